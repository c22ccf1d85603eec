#include "kmxf/structures/Inspect.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

#include "structures/InspectFixture.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

const std::vector<std::string> kSmallFileLines = {
    "0 partition HeaderPartitionPack 20+104 1",
    "124 primer PrimerPack 20+62 1",
    "206 set Preface 20+37 1",
    "263 index segment IndexTableSegment 20+20 1",
    "303 fill Fill 17+0 1",
    "320 partition BodyPartitionPack 20+88 2",
    "428 essence AVCLongGOPElement 24+16 2",
    "468 dark 18+3 2",
    "489 partition FooterPartitionPack 20+88 3",
    "597 random index RandomIndexPack 20+40 3",
};
const std::vector<size_t> kSmallFileOffsets = {0, 124, 206, 263, 303, 320, 428, 468, 489, 597, 657};

std::vector<uint8_t> operator+(std::vector<uint8_t> a, const std::vector<uint8_t>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// The packets fill the file without gap and overlap.
void ExpectTiled(const std::vector<uint8_t>& file) {
    uint64_t at = 0;
    for (const WalkedPacket& packet : Walk(file)) {
        ASSERT_EQ(packet.offset, at);
        ASSERT_GT(packet.End(), at);
        ASSERT_EQ(packet.whole, packet.available == packet.length);
        at = packet.End();
    }
    EXPECT_EQ(at, file.size());
}

// A file of any size of which only some bytes are not 0; remembers the reads.
class SparseSource final : public IByteSource {
public:
    explicit SparseSource(uint64_t size) : size_(size) {}
    uint64_t Put(uint64_t offset, const std::vector<uint8_t>& bytes) {
        parts_[offset] = bytes;
        return offset + bytes.size();
    }
    uint64_t GetSize() override { return size_; }
    size_t Read(uint64_t offset, std::span<uint8_t> bytes) override {
        EXPECT_LE(offset + bytes.size(), size_);
        std::ranges::fill(bytes, uint8_t{0});
        auto part = parts_.upper_bound(offset);
        if (part != parts_.begin()) --part;
        for (; part != parts_.end() && part->first < offset + bytes.size(); ++part) {
            for (size_t i = 0; i < part->second.size(); ++i) {
                const uint64_t at = part->first + i;
                if (at >= offset && at < offset + bytes.size())
                    bytes[static_cast<size_t>(at - offset)] = part->second[i];
            }
        }
        ++reads;
        read += bytes.size();
        return bytes.size();
    }

    uint64_t reads = 0, read = 0;

private:
    uint64_t size_;
    std::map<uint64_t, std::vector<uint8_t>> parts_;
};

std::string Number(uint64_t value, int bytes) {
    char text[20];
    std::snprintf(text, sizeof text, "%0*llX ", 2 * bytes, static_cast<unsigned long long>(value));
    return text;
}
std::vector<uint8_t> Packet(const std::string& key, uint64_t length, size_t zeros = 0) {
    auto bytes = Hex(key + (length < 0x1000000 ? "83" + Number(length, 3) : "87" + Number(length, 7)));
    bytes.resize(bytes.size() + zeros);
    return bytes;
}

TEST(Inspect, EveryKindOfPacketIsFoundWithItsPlace) { EXPECT_EQ(Lines(SmallFile()), kSmallFileLines); }

TEST(Inspect, PartitionsHoldThePacketsUpToTheNextPack) {
    const auto file = SmallFile();
    MemorySource source(file);
    CInspector inspector(source);
    const auto header = inspector.NextPartition();
    ASSERT_TRUE(header && header->pack);
    EXPECT_EQ(header->packets.size(), 5u);
    EXPECT_EQ(header->pack->GetFooterPartition(), 489);
    EXPECT_EQ(header->pack->GetIndexSID(), 101u);
    EXPECT_EQ(header->pack->GetEssenceContainerNum(), 1u);
    const auto body = inspector.NextPartition();
    ASSERT_TRUE(body && body->pack);
    EXPECT_EQ(body->packets.size(), 3u);
    EXPECT_EQ(body->pack->GetThisPartition(), 320);
    EXPECT_EQ(body->pack->GetBodySID(), 1u);
    const auto footer = inspector.NextPartition();
    ASSERT_TRUE(footer && footer->pack);
    EXPECT_EQ(footer->packets.size(), 2u);
    EXPECT_EQ(footer->pack->GetThisPartition(), 489);
    EXPECT_FALSE(inspector.NextPartition());
    EXPECT_FALSE(inspector.Next());
}

TEST(Inspect, NextGoesOnWhereNextPartitionStopped) {
    const auto file = SmallFile();
    MemorySource source(file);
    CInspector inspector(source);
    ASSERT_TRUE(inspector.NextPartition());
    EXPECT_EQ(Line(*inspector.Next()), "320 partition BodyPartitionPack 20+88 2");
    EXPECT_EQ(inspector.NextPartition()->packets.size(), 2u);
}

TEST(Inspect, EmptyFileHasNothing) {
    EXPECT_THAT(Lines(std::vector<uint8_t>()), IsEmpty());
    EXPECT_THAT(Walk({}), IsEmpty());
}

TEST(Inspect, FileOfNoPacketIsOneStretchOfDamage) {
    EXPECT_THAT(Lines(std::vector<uint8_t>(1)), ElementsAre("0 damage 0+1 0"));
    EXPECT_THAT(Lines(std::vector<uint8_t>(600'000, 0x06)), ElementsAre("0 damage 0+600000 0"));
}

TEST(Inspect, PacketsInFrontOfTheFirstPackHaveNoPartition) {
    const auto file = Hex(kFillItemKey + "02 00 00") + SmallFile();
    EXPECT_EQ(Lines(file)[0], "0 fill Fill 17+2 0");
    EXPECT_EQ(Lines(file)[1], "19 partition HeaderPartitionPack 20+104 1");
    EXPECT_FALSE(Walk(file)[0].pack);
    EXPECT_TRUE(Walk(file)[1].pack);
}

TEST(Inspect, RunInEndsAtTheHeaderPartition) {
    for (const size_t size : {1u, 11u, 4096u, 65535u, 65536u}) {
        const auto lines = Lines(std::vector<uint8_t>(size, 0x2B) + SmallFile());
        ASSERT_EQ(lines.size(), 11u) << size;
        EXPECT_EQ(lines[0], "0 run-in 0+" + std::to_string(size) + " 0");
        EXPECT_EQ(lines[1], std::to_string(size) + " partition HeaderPartitionPack 20+104 1");
    }
    EXPECT_EQ(Lines(std::vector<uint8_t>(65537, 0x2B) + SmallFile())[0], "0 damage 0+65537 0");
}

TEST(Inspect, BytesInFrontOfAnotherPackAreDamageNotRunIn) {
    auto file = SmallFile();
    std::fill_n(file.begin(), 310, uint8_t{0});  // the first key left is the body partition's
    EXPECT_THAT(Lines(file).front(), "0 damage 0+320 0");
    EXPECT_EQ(Lines(file)[1], "320 partition BodyPartitionPack 20+88 1");
}

TEST(Inspect, DestroyedHeadCostsItsPacketOnly) {
    for (size_t i = 0; i + 1 < kSmallFileOffsets.size(); ++i) {
        const size_t offset = kSmallFileOffsets[i], end = kSmallFileOffsets[i + 1];
        for (const size_t zeroed : {size_t{1}, size_t{4}, size_t{16}, end - offset}) {
            auto file = SmallFile();
            std::fill_n(file.begin() + static_cast<std::ptrdiff_t>(offset), zeroed, uint8_t{0});
            auto expected = kSmallFileLines;
            expected[i] = std::to_string(offset) + " damage 0+" + std::to_string(end - offset) + " ";
            auto lines = Lines(file);
            ASSERT_EQ(lines.size(), expected.size()) << offset;
            for (size_t k = 0; k < lines.size(); ++k) {
                // A lost pack is missing from the numbers behind it.
                const auto shown = [](const std::string& line) { return line.substr(0, line.rfind(' ')); };
                EXPECT_EQ(shown(lines[k]), shown(expected[k])) << offset << " " << zeroed;
            }
        }
    }
}

TEST(Inspect, NoiseAnywhereLeavesAWalkOverTheWholeFile) {
    std::mt19937 random(7);
    for (size_t at = 0; at < 650; ++at) {
        auto file = SmallFile();
        const size_t end = std::min<size_t>(file.size(), at + 1 + random() % 64);
        for (size_t i = at; i < end; ++i) file[i] = static_cast<uint8_t>(random());
        ExpectTiled(file);
    }
}

TEST(Inspect, FileCutAtEveryByteKeepsThePacketsInFrontOfTheCut) {
    const auto whole = SmallFile();
    for (size_t size = 0; size < whole.size(); ++size) {
        const std::vector<uint8_t> cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        ExpectTiled(cut);
        const auto lines = Lines(cut);
        const auto complete =
            static_cast<size_t>(std::ranges::upper_bound(kSmallFileOffsets, size) - kSmallFileOffsets.begin() - 1);
        ASSERT_GE(lines.size(), complete) << size;
        for (size_t i = 0; i < complete; ++i) EXPECT_EQ(lines[i], kSmallFileLines[i]) << size;
        EXPECT_EQ(lines.size(), complete + (kSmallFileOffsets[complete] < size ? 1 : 0)) << size;
    }
}

TEST(Inspect, CutPacketTellsWhatThereIs) {
    auto file = SmallFile();
    file.resize(428 + 24 + 5);
    EXPECT_EQ(Lines(file).back(), "428 essence AVCLongGOPElement 24+16/5 2");
    file.resize(428 + 24);
    EXPECT_EQ(Lines(file).back(), "428 essence AVCLongGOPElement 24+16/0 2");
    file.resize(428 + 23);
    EXPECT_EQ(Lines(file).back(), "428 damage 0+23 2");
}

TEST(Inspect, EveryLengthFormIsRead) {
    const struct {
        const char* length;
        const char* head;
    } kForms[] = {
        {"03", "17"},
        {"81 03", "18"},
        {"82 00 03", "19"},
        {"83 00 00 03", "20"},
        {"84 00 00 00 03", "21"},
        {"85 00 00 00 00 03", "22"},
        {"86 00 00 00 00 00 03", "23"},
        {"87 00 00 00 00 00 00 03", "24"},
        {"88 00 00 00 00 00 00 00 03", "25"},
        {"89 00 00 00 00 00 00 00 00 03", "26"},
    };
    for (const auto& form : kForms) {
        const auto file = Hex(kFillItemKey + form.length + " AA BB CC") + SmallFile();
        EXPECT_EQ(Lines(file)[0], std::string("0 fill Fill ") + form.head + "+3 0") << form.length;
        EXPECT_EQ(Lines(file).size(), 11u);
    }
    auto longest = Hex(kFillItemKey + "FF");
    longest.resize(longest.size() + 126);
    longest = longest + Hex("03 AA BB CC");
    EXPECT_THAT(Lines(longest), ElementsAre("0 fill Fill 144+3 0"));
    EXPECT_EQ(Lines(longest + SmallFile())[0], "0 fill Fill 144+3 0");
}

TEST(Inspect, LengthThatIsNoneMakesDamage) {
    for (const char* length : {"80", "87 10 00 00 00 00 00 01", "88 FF FF FF FF FF FF FF FF",
                               "88 80 00 00 00 00 00 00 00", "89 01 00 00 00 00 00 00 00 03", "FF 01"}) {
        auto file = Hex(kPictureKey + length + " AA BB CC");
        const std::string size = std::to_string(file.size());
        const auto lines = Lines(Hex(kFillItemKey + "00") + file + SmallFile());
        ASSERT_EQ(lines.size(), 12u) << length;
        EXPECT_EQ(lines[1], "17 damage 0+" + size + " 0");
    }
}

TEST(Inspect, KeysOfNoPacketMakeDamage) {
    for (const char* key :
         {"06 0E 2B 34 00 01 01 01 01 01 01 01 01 01 01 01", "06 0E 2B 34 04 01 01 01 01 01 01 01 01 01 01 01",
          "06 0E 2B 35 02 53 01 01 0D 01 01 01 01 01 2F 00"}) {
        const auto lines = Lines(Hex(kFillItemKey + "00 " + key + " 01 AA") + SmallFile());
        ASSERT_EQ(lines.size(), 12u) << key;
        EXPECT_EQ(lines[1], "17 damage 0+18 0");
    }
}

TEST(Inspect, LengthThatLeadsOverTheNextKeyEndsAtThatKey) {
    auto file = SmallFile();
    file[225] = 0x60;  // the Preface claims 96 bytes, which end in the middle of the body partition pack
    auto expected = kSmallFileLines;
    expected[2] = "206 set Preface 20+96/37 1";
    EXPECT_EQ(Lines(file), expected);

    file[223] = 0xFF;  // 16 MiB, out of the file
    expected[2] = "206 set Preface 20+16711776/37 1";
    EXPECT_EQ(Lines(file), expected);

    file = SmallFile();
    file[446] = 0x7F;  // of the essence: 127 TiB are no length, 508 GiB are
    EXPECT_EQ(Lines(file)[6], "428 damage 0+40 2");
    file = SmallFile();
    file[447] = 0x7F;
    EXPECT_EQ(Lines(file)[6], "428 essence AVCLongGOPElement 24+545460846608/16 2");
}

TEST(Inspect, LengthThatEndsTooSoonLeavesDamageUpToTheNextKey) {
    auto file = SmallFile();
    file[225] = 0x20;
    auto expected = kSmallFileLines;
    expected[2] = "206 set Preface 20+32 1";
    expected.insert(expected.begin() + 3, "258 damage 0+5 1");
    EXPECT_EQ(Lines(file), expected);
}

TEST(Inspect, LabelsWithinADamagedSetAreNotTakenForKeys) {
    // A primer pack without its head: labels of every class, one of them with what could be a length behind it.
    const auto primer =
        Hex("49 01  06 0E 2B 34 01 01 01 02 05 30 04 02 00 00 00 00"
            "01 02  06 0E 2B 34 04 01 01 02 0D 01 02 01 10 02 00 00"
            "01 02  06 0E 2B 34 01 01 01 01 01 01 15 02 00 00 00 00"
            "01 02  06 0E 2B 34 01 01 01 01 01 01 15 02 00 00 00 00");
    EXPECT_EQ(Lines(primer + SmallFile())[0], "0 run-in 0+72 0");
    const auto lines = Lines(Hex(kFillItemKey + "00") + primer + SmallFile());
    EXPECT_EQ(lines[1], "17 damage 0+72 0");
    EXPECT_EQ(lines.size(), 12u);
}

TEST(Inspect, UnknownSetIsFoundBehindDamageWhenAKeyFollowsIt) {
    const auto unknown = Hex(kSetKey + "7F 00 04 AA BB CC DD");
    const std::vector<uint8_t> noise(100, 0x0E);
    const auto fill = Hex(kFillItemKey + "00");
    EXPECT_EQ(Lines(fill + noise + unknown + SmallFile())[2], "117 set 17+4 0");
    EXPECT_EQ(Lines(fill + noise + unknown + Hex("00") + SmallFile())[1], "17 damage 0+122 0");
    EXPECT_EQ(Lines(fill + noise + unknown)[2], "117 set 17+4 0");
}

TEST(Inspect, KeyAcrossAnyPlaceOfALongSearchIsFound) {
    const auto fill = Hex(kFillItemKey + "00");
    for (const size_t around : {1'024u, 3'072u, 261'120u, 523'264u}) {
        for (size_t size = around - 200; size < around + 20; size += 11) {
            const auto lines = Lines(fill + std::vector<uint8_t>(size, 0x34) + SmallFile());
            ASSERT_EQ(lines.size(), 12u) << size;
            ASSERT_EQ(lines[1], "17 damage 0+" + std::to_string(size) + " 0");
        }
    }
}

// Each of them is looked for behind the one before: that must not read on over all that follows.
TEST(Inspect, PacketsWhoseLengthsAllLeadOutsideAreReadThroughOnce) {
    const auto packet = Hex(kSetKey + "2F 00 84 7F FF FF FF");
    std::vector<uint8_t> file;
    for (int i = 0; i < 2000; ++i) file.insert(file.end(), packet.begin(), packet.end());
    MemorySource source(file);
    CInspector inspector(source);
    size_t packets = 0;
    while (inspector.Next()) ++packets;
    EXPECT_EQ(packets, 2000u);
    EXPECT_LE(inspector.GetReadBytes(), 4 * file.size());
}

TEST(Inspect, EssenceOfUnwrittenLengthReachesTheEndOfTheFile) {
    auto file = SmallFile();
    file.resize(428);
    file = file + Hex(kPictureKey + "87 00 00 00 00 00 00 00") + std::vector<uint8_t>(2'000'000, 0x77);
    EXPECT_EQ(Lines(file).back(), "428 essence AVCLongGOPElement 24+0/2000000 2");
    EXPECT_EQ(Lines(file).size(), 7u);
    file.resize(452);
    EXPECT_EQ(Lines(file).back(), "428 essence AVCLongGOPElement 24+0 2");
}

TEST(Inspect, EssenceOfUnwrittenLengthReachesTheFooterThatTheFirstPackNames) {
    auto file = SmallFile();
    std::vector<uint8_t> tail(file.begin() + 489, file.end());
    file.resize(428);
    file = file + Hex(kPictureKey + "87 00 00 00 00 00 00 00") + std::vector<uint8_t>(2'000'000, 0x77) + tail;
    const std::vector<uint8_t> footer = Hex("00 00 00 00 00 1E 86 44");  // 2000452
    std::ranges::copy(footer, file.begin() + 44);
    const auto lines = Lines(file);
    ASSERT_EQ(lines.size(), 9u);
    EXPECT_EQ(lines[6], "428 essence AVCLongGOPElement 24+0/2000000 2");
    EXPECT_EQ(lines[7], "2000452 partition FooterPartitionPack 20+88 3");
    // Behind a run-in, places are counted from the header partition.
    const auto behind = Lines(std::vector<uint8_t>(10) + file);
    EXPECT_EQ(behind[8], "2000462 partition FooterPartitionPack 20+88 3");
    // No pack where it is named: the last packets of the file are found all the same, unless they are too far off.
    file[51] = 0x45;
    EXPECT_EQ(Lines(file), lines);
    file.resize(2'000'452 + 65'536);
    EXPECT_EQ(Lines(file)[7], lines[7]);
    file.resize(2'000'560 + 65'537);
    EXPECT_EQ(Lines(file).back(), "428 essence AVCLongGOPElement 24+0/2065645 2");
}

TEST(Inspect, EssenceOfUnwrittenLengthReachesAKeyThatIsNear) {
    const auto file = Hex(kPictureKey + "00") + std::vector<uint8_t>(5000, 0x77) + SmallFile();
    EXPECT_EQ(Lines(file)[0], "0 essence AVCLongGOPElement 17+0/5000 0");
    EXPECT_EQ(Lines(file)[1], "5017 partition HeaderPartitionPack 20+104 1");
}

TEST(Inspect, PackCutShortHasNoFields) {
    auto file = SmallFile();
    file.resize(320 + 20 + 87);
    EXPECT_EQ(Walk(file).back().name, "BodyPartitionPack");
    EXPECT_FALSE(Walk(file).back().pack);
    file = SmallFile();
    file.resize(320 + 20 + 88);
    EXPECT_TRUE(Walk(file).back().pack);
}

TEST(Inspect, FailedReadEndsTheFileThere) {
    class FailingSource final : public IByteSource {
    public:
        explicit FailingSource(size_t good) : good_(good) {}
        uint64_t GetSize() override { return file_.size(); }
        size_t Read(uint64_t offset, std::span<uint8_t> bytes) override {
            const size_t from = static_cast<size_t>(offset);
            const size_t read = from >= good_ ? 0 : std::min(bytes.size(), good_ - from);
            std::copy_n(file_.begin() + static_cast<std::ptrdiff_t>(from), read, bytes.begin());
            return read;
        }

    private:
        std::vector<uint8_t> file_ = SmallFile();
        size_t good_;
    };
    for (size_t good = 0; good < 657; ++good) {
        FailingSource source(good);
        CInspector inspector(source);
        uint64_t end = 0;
        while (const auto partition = inspector.NextPartition()) {
            for (const InspectedPacket& packet : partition->packets) {
                inspector.Items(packet);
                ASSERT_GT(packet.End(), packet.offset);
                end = packet.End();
            }
        }
        EXPECT_EQ(end, good);
        EXPECT_EQ(inspector.GetFailure(), good);
    }
    FailingSource whole(657);
    CInspector inspector(whole);
    while (inspector.Next()) {
    }
    EXPECT_FALSE(inspector.GetFailure());
}

TEST(Inspect, ValueIsHandedOutUpToTheMostAskedFor) {
    const auto file = SmallFile();
    MemorySource source(file);
    CInspector inspector(source);
    std::vector<InspectedPacket> packets;
    while (const auto packet = inspector.Next()) packets.push_back(*packet);
    EXPECT_EQ(inspector.Value(packets[6], 3), Hex("F0 F1 F2"));
    EXPECT_EQ(inspector.Value(packets[7], 1000), Hex("D1 D2 D3"));
    EXPECT_THAT(inspector.Value(packets[4], 1000), IsEmpty());
}

TEST(Inspect, ReadsAreCounted) {
    const auto file = SmallFile();
    SparseSource source(file.size());
    source.Put(0, file);
    CInspector inspector(source);
    EXPECT_EQ(inspector.GetReadCount(), 0u);
    while (inspector.Next()) {
    }
    EXPECT_EQ(inspector.GetReadCount(), source.reads);
    EXPECT_EQ(inspector.GetReadBytes(), source.read);
    EXPECT_LE(source.reads, 3u);
    EXPECT_LE(source.read, 2 * file.size());
}

// Walks as dump and check do: everything decoded.
void WalkAll(IByteSource& source, uint64_t& packets) {
    CInspector inspector(source);
    while (const auto partition = inspector.NextPartition()) {
        for (const InspectedPacket& packet : partition->packets) {
            inspector.Items(packet);
            packets += packet.whole && packet.kind != PacketKind::kDamage ? 1 : 0;
        }
    }
}

TEST(Inspect, TwoGigabytesOfDVTakeAFewReads) {
    constexpr uint64_t kEssence = 2'000'000'000;
    SparseSource source(32768 + kEssence + 224);
    uint64_t at = source.Put(0, Packet(kHeaderPackKey, 104, 104));
    at = source.Put(at, Packet(kPrimerKey, 2132, 2132));
    for (int set = 0; set < 40; ++set) at = source.Put(at, Packet(kSetKey + "3B 00 ", 80, 80));
    source.Put(at, Packet(kFillItemKey, 32620 - at - 20));
    source.Put(32620, Packet(kPackKey + "03 04 00 ", 104, 104));
    at = source.Put(32744, Packet("06 0E 2B 34 01 02 01 01 0D 01 03 01 18 01 02 01", kEssence));
    at = source.Put(at + kEssence, Packet(kPackKey + "04 04 00 ", 104, 104));
    source.Put(at, Packet("06 0E 2B 34 02 53 01 01 0D 01 02 01 01 10 01 00 ", 80, 80));
    uint64_t packets = 0;
    WalkAll(source, packets);
    EXPECT_EQ(packets, 47u);
    EXPECT_LT(source.read, kEssence / 1000 / 50);
    EXPECT_LT(source.reads, 20u);
}

TEST(Inspect, LongGOPClipIsWalkedForUnderAPercentOfItsBytes) {
    constexpr uint64_t kGroups = 20, kFrames = 30, kPicture = 50'000, kSound = 144'144;
    constexpr uint64_t kSize = 131072 + kGroups * (kFrames * (kPicture + 532) + 2 * (kSound + 500) + 1500);
    SparseSource source(kSize);
    uint64_t at = source.Put(0, Packet(kHeaderPackKey, 136, 136));
    for (int set = 0; set < 60; ++set) at = source.Put(at, Packet(kSetKey + "3B 00 ", 80, 80));
    source.Put(at, Packet(kFillItemKey, 131072 - at - 20));
    at = 131072;
    uint64_t expected = 62;
    const auto pack = [&] { at = source.Put(at, Packet(kPackKey + "03 04 00 ", 136, 136)); };
    const auto segment = [&](size_t size) {
        at = source.Put(at, Packet("06 0E 2B 34 02 53 01 01 0D 01 02 01 01 10 01 00 ", size, size));
    };
    for (uint64_t group = 0; group < kGroups; ++group) {
        pack();
        for (uint64_t i = 0; i < kFrames; ++i) at = source.Put(at, Packet(kPictureKey, kPicture)) + kPicture;
        pack();
        segment(110 + 11 * kFrames);
        pack();
        for (uint64_t i = 0; i < kFrames; ++i) {
            at = source.Put(at, Packet("06 0E 2B 34 01 02 01 01 0D 01 03 01 17 01 02 01", 2, 2));
            at = source.Put(at, Packet(kFillItemKey, 470)) + 470;
        }
        pack();
        segment(80);
        for (int channel = 0; channel < 2; ++channel) {
            pack();
            at = source.Put(at, Packet("06 0E 2B 34 01 02 01 01 0D 01 03 01 16 01 0C 01", kSound)) + kSound;
            pack();
            segment(80);
        }
        expected += kFrames * 3 + 8 + 4 + 2;
    }
    source.Put(at, Packet(kFillItemKey, kSize - at - 20));
    uint64_t packets = 0;
    WalkAll(source, packets);
    EXPECT_EQ(packets, expected + 1);
    EXPECT_LT(source.read, kSize / 100);
    // A read for each picture and for the ancillary data of each, and a few for all the rest of a group.
    EXPECT_LT(source.reads, kGroups * (2 * kFrames + 50));
}

TEST(Inspect, CutEssenceOfKnownSizeIsNotReadThrough) {
    constexpr uint64_t kEssence = 2'000'000'000;
    for (const uint64_t stated : {kEssence + 1'000'000, uint64_t{0}}) {
        SparseSource source(144 + kEssence);
        source.Put(0, Packet(kHeaderPackKey, 100, 100));
        source.Put(120, Hex(kPictureKey + "87" + Number(stated, 7)));
        uint64_t packets = 0;
        WalkAll(source, packets);
        EXPECT_EQ(packets, 1u);
        EXPECT_LT(source.read, kEssence / 1000);
    }
}

TEST(Inspect, OfAVastValueOnlyTheBeginningIsDecoded) {
    constexpr uint64_t kVast = 1'000'000'000'000, kHeads = 1000;
    const struct {
        std::string key;
        uint64_t read;
    } kMost[] = {
        {kPackKey + "11 01 00 ", 4 << 20}, {kPrimerKey, 1 << 20},
        {kSetKey + "2F 00 ", 1 << 20},     {kHeaderPackKey, 2 << 20},  // for the pack and for its items
        {kUnknownKey, 64 << 10},           {kFillItemKey, 0},
    };
    for (const auto& most : kMost) {
        SparseSource source(24 + kVast);
        source.Put(0, Packet(most.key, kVast));
        uint64_t packets = 0;
        WalkAll(source, packets);
        EXPECT_EQ(packets, 1u);
        EXPECT_LT(source.read, most.read + kHeads) << most.key;
    }
}

TEST(Inspect, RandomFilesOfKeysAreWalked) {
    std::mt19937 random(3);
    const std::string keys[] = {
        kHeaderPackKey, kPrimerKey,  kSetKey + "2F 00 ",     kFillItemKey,
        kPictureKey,    kUnknownKey, kPackKey + "11 01 00 ", "06 0E 2B 34 02 53 01 01 0D 01 02 01 01 10 01 00 "};
    for (int run = 0; run < 200; ++run) {
        std::vector<uint8_t> file;
        for (int packet = 0; packet < 20; ++packet) {
            file = file + Hex(keys[random() % std::size(keys)]);
            file.push_back(static_cast<uint8_t>(random() % 3 == 0 ? 0x80 + random() % 10 : random() % 0x60));
            const size_t size = random() % 100;
            for (size_t i = 0; i < size; ++i) file.push_back(static_cast<uint8_t>(random() % 4 == 0 ? random() : 0));
        }
        ExpectTiled(file);
    }
}

TEST(Inspect, KindsHaveWords) {
    const char* const kWords[] = {"partition", "primer",  "set",  "index segment", "random index",
                                  "fill",      "essence", "dark", "run-in",        "damage"};
    for (int kind = 0; kind <= static_cast<int>(PacketKind::kDamage); ++kind)
        EXPECT_EQ(KindName(static_cast<PacketKind>(kind)), kWords[kind]);
}

MXFKEYTag Key(const std::string& hex) {
    MXFKEYTag key;
    std::ranges::copy(Hex(hex), key.bytes);
    return key;
}

TEST(Inspect, KeysAndLabelsHaveNamesWhateverTheirVersion) {
    EXPECT_EQ(KeyName(Key(kSetKey + "37 00")), "SourcePackage");
    EXPECT_EQ(KeyName(Key("06 0E 2B 34 02 53 01 7F 0D 01 01 01 01 01 37 00")), "SourcePackage");
    EXPECT_EQ(KeyName(Key(kPackKey + "04 01 00")), "FooterPartitionPack");
    EXPECT_EQ(KeyName(Key("06 0E 2B 34 01 01 01 01 03 01 02 10 01 00 00 00")), "Fill");
    EXPECT_EQ(KeyName(Key("06 0E 2B 34 01 02 01 01 0D 01 03 01 16 02 03 04")), "SoundElement");
    EXPECT_EQ(KeyName(Key("06 0E 2B 34 04 01 01 01 0D 01 02 01 01 02 09 00")), "OperationalPattern1b");
    EXPECT_EQ(KeyName(Key(kSetKey + "7F 00")), "");
    EXPECT_EQ(KeyName(Key(kUnknownKey)), "");
    EXPECT_EQ(KeyName({}), "");
}

}  // namespace
}  // namespace kmxf::test
