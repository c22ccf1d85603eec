#include "kmxf/writer/Op1bBase.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "support/FixedEnvironment.h"
#include "support/Hex.h"
#include "support/Packets.h"

namespace kmxf::test {
namespace {

constexpr uint32_t kStandards[] = {VIDEO_STD_59_94I, VIDEO_STD_50I, VIDEO_STD_23_98P, VIDEO_STD_29_97P,
                                   VIDEO_STD_59_94P, VIDEO_STD_25P, VIDEO_STD_50P};
constexpr int64_t kMost = std::numeric_limits<int64_t>::max();
constexpr int64_t kLeast = std::numeric_limits<int64_t>::min();

std::unique_ptr<COp1bBase> Builder(uint32_t channels = 2, uint32_t videoStd = VIDEO_STD_59_94I,
                                   uint8_t bytesPerSample = 2, bool players = false,
                                   uint32_t compType = COMP_TYPE_LONGG25_1080) {
    auto builder = std::make_unique<COp1bBase>(videoStd, compType, bytesPerSample, channels);
    EXPECT_EQ(builder->SetPlayerLayout(players), kStatusOk);
    EXPECT_EQ(builder->Initialize(), kStatusOk);
    return builder;
}

std::vector<uint8_t> TakeBytes(uint8_t* data, uint32_t size) {
    const std::unique_ptr<uint8_t, decltype(&std::free)> owner(data, &std::free);
    return {data, data + size};
}
std::vector<uint8_t> HeaderOf(COp1bBase& builder) {
    uint8_t* data = nullptr;
    if (builder.GetHeaderData(&data) != kStatusOk) return {};
    return TakeBytes(data, 0x20000);
}
std::vector<Packet> PacketsOf(COp1bBase& builder) {
    const auto header = HeaderOf(builder);
    return header.empty() ? std::vector<Packet>{} : Packets(header, 0, header.size());
}
std::vector<uint8_t> FooterOf(COp1bBase& builder) {
    uint8_t* data = nullptr;
    if (builder.GetFooterData(&data) != kStatusOk) return {};
    return TakeBytes(data, builder.GetFooterSize());
}
std::vector<uint8_t> RandomIndexOf(COp1bBase& builder) {
    uint8_t* data = nullptr;
    if (builder.GetRandomIndexData(&data) != kStatusOk) return {};
    return TakeBytes(data, builder.GetRandomIndexSize());
}
std::vector<uint8_t> VideoPartitionOf(COp1bBase& builder, bool withIndex) {
    const uint32_t size = builder.GetBodyPartitionSize(withIndex, false);
    uint8_t* data = nullptr;
    if (builder.GetBodyPartitionDataVideo(&data, withIndex) != kStatusOk) return {};
    return TakeBytes(data, size);
}
std::vector<uint8_t> AudioPartitionOf(COp1bBase& builder, bool withIndex, uint8_t channel) {
    const uint32_t size = builder.GetBodyPartitionSize(withIndex, true);
    uint8_t* data = nullptr;
    if (builder.GetBodyPartitionDataAudio(&data, withIndex, channel) != kStatusOk) return {};
    return TakeBytes(data, size);
}
std::vector<uint8_t> ANCBlockOf(COp1bBase& builder, int64_t offset, uint32_t frames) {
    const uint32_t size = builder.GetBodyPartitionSizeANCData(frames);
    uint8_t* data = nullptr;
    if (builder.GetBodyPartitionDataANCData(&data, offset, frames) != kStatusOk) return {};
    return TakeBytes(data, size);
}

// `size` bytes from `offset`.
std::vector<uint8_t> Cut(const std::vector<uint8_t>& bytes, size_t offset, size_t size) {
    if (offset + size > bytes.size()) return {};
    const auto start = bytes.begin() + static_cast<std::ptrdiff_t>(offset);
    return {start, start + static_cast<std::ptrdiff_t>(size)};
}
using Uids = std::vector<std::vector<uint8_t>>;

MXFUMIDTag Umid(uint8_t instance) {
    MXFUMIDTag umid{{0x06, 0x0A, 0x2B, 0x34, 0x01, 0x01, 0x01, 0x05, 0x01, 0x01, 0x0F, 0x20, 0x13, 0, 0, instance}};
    for (size_t i = 16; i < 32; ++i) umid.bytes[i] = static_cast<uint8_t>(0x90 + i);
    return umid;
}
std::vector<uint8_t> BytesOf(const MXFUMIDTag& umid) { return {umid.bytes, umid.bytes + 32}; }
std::vector<uint8_t> UidOf(const Packet& set) { return set.Item(0x3C0A); }
// The elements of a batch item, 16 bytes each.
Uids Batch(const Packet& set, uint16_t tag) {
    const auto value = set.Item(tag);
    Uids elements;
    for (auto at = value.begin() + 8; at < value.end(); at += 16) elements.emplace_back(at, at + 16);
    return elements;
}

// A package with its chains, in the order of the file.
struct Chain {
    Packet track, sequence, component;
};
struct Package {
    Packet set;
    std::vector<Chain> chains;
};
std::vector<Package> PackagesOf(const std::vector<Packet>& packets) {
    std::vector<Package> packages;
    for (size_t i = 0; i < packets.size() && packets[i].offset < 32768; ++i) {
        const std::vector<Packet> one = {packets[i]};
        if (!SetsOfKind(one, 0x36).empty() || !SetsOfKind(one, 0x37).empty()) packages.push_back({packets[i], {}});
        if (!SetsOfKind(one, 0x3B).empty()) {
            packages.back().chains.push_back({packets[i], packets[i + 1], packets[i + 2]});
        }
    }
    return packages;
}

// Byte 14 of the sets between the primer pack and the fill item behind the metadata.
std::vector<uint8_t> KindsOf(const std::vector<Packet>& packets) {
    std::vector<uint8_t> kinds;
    for (size_t i = 2; packets[i].key[4] == 0x02; ++i) kinds.push_back(packets[i].Kind());
    return kinds;
}

CDescriptiveMetadata StaticMetadata() {
    CDescriptiveMetadata metadata;
    metadata.SetTakeNumber(7);
    return metadata;
}
CDescriptiveMetadata SceneMetadata() {
    CDescriptiveMetadata metadata;
    metadata.SetSceneNumber("S-1");
    return metadata;
}
CDescriptiveMetadata AllMetadata() {
    CDescriptiveMetadata metadata = StaticMetadata();
    metadata.SetSceneNumber("S-1");
    return metadata;
}

// --- state and arguments ---

TEST(Op1bBase, NothingWorksBeforeInitialize) {
    COp1bBase builder(VIDEO_STD_50I, COMP_TYPE_LONGG25_1080, 2, 2);
    uint8_t* data = nullptr;
    const uint8_t bytes[16] = {};
    EXPECT_EQ(builder.GetHeaderData(&data), kStatusWrongState);
    EXPECT_EQ(builder.SetDuration(1), kStatusWrongState);
    EXPECT_EQ(builder.SetContainerDuration(1), kStatusWrongState);
    EXPECT_EQ(builder.SetOrigin(1), kStatusWrongState);
    EXPECT_EQ(builder.SetStartTimecode(0, false), kStatusWrongState);
    EXPECT_EQ(builder.SetDMS({}), kStatusWrongState);
    EXPECT_EQ(builder.SetXMLData(bytes, 1), kStatusWrongState);
    EXPECT_EQ(builder.SetThumbnailData(bytes, 1, 1, 1, 0), kStatusWrongState);
    EXPECT_EQ(builder.SetThumbnailPosition(1), kStatusWrongState);
    EXPECT_EQ(builder.SetUMID({}), kStatusWrongState);
    EXPECT_EQ(builder.SetPackageName("x"), kStatusWrongState);
    EXPECT_EQ(builder.SetIdentification("a", "b", "c", bytes), kStatusWrongState);
    EXPECT_EQ(builder.SetCreationDate({}), kStatusWrongState);
    EXPECT_EQ(builder.SetModifiedDate({}), kStatusWrongState);
    EXPECT_EQ(builder.AddFillerSize(1), kStatusWrongState);

    EXPECT_EQ(builder.SetBodyPartitionParamVideo(0, 0, 1, false, true), kStatusFailure);
    EXPECT_EQ(builder.SetBodyPartitionParamAudio(0, 0, 1, 0, false, true), kStatusFailure);
    EXPECT_EQ(builder.GetBodyPartitionDataVideo(&data, false), kStatusFailure);
    EXPECT_EQ(builder.GetBodyPartitionDataAudio(&data, false, 0), kStatusFailure);
    EXPECT_EQ(builder.GetBodyPartitionDataANCData(&data, 0, 1), kStatusFailure);
    EXPECT_EQ(builder.AddIndexEntry(0, 0, 0, 0), kStatusFailure);
    EXPECT_EQ(builder.AddPartitionInfo({}), kStatusFailure);
    EXPECT_EQ(builder.AddFooterIndex(CIndexCommon(1, 0, 0, 0)), kStatusFailure);
    EXPECT_EQ(builder.SetFooterPartitionParam(1), kStatusFailure);
    EXPECT_EQ(builder.SetFooterPartitionPos(1), kStatusFailure);
    EXPECT_EQ(builder.SetFooterPrevPartitionPos(1), kStatusFailure);
    EXPECT_EQ(builder.GetFooterData(&data), kStatusFailure);
    EXPECT_EQ(builder.GetRandomIndexData(&data), kStatusFailure);
    EXPECT_EQ(data, nullptr);

    EXPECT_EQ(builder.GetHeaderSize(), 131072u);
    EXPECT_EQ(builder.GetHeaderMetadataSize(), 0u);
    EXPECT_EQ(builder.GetBodyPartitionSize(true, true), 0u);
    EXPECT_EQ(builder.GetBodyPartitionSizeANCData(1), 0u);
    EXPECT_EQ(builder.GetFooterSize(), 0u);
    EXPECT_EQ(builder.GetRandomIndexSize(), 0u);
    uint8_t untouched[1] = {7};
    EXPECT_EQ(builder.MXFMemSetHeaderMetadata(untouched, 5), 5u);
    EXPECT_EQ(untouched[0], 7);
}

TEST(Op1bBase, NullPointersAreInvalid) {
    auto builder = Builder();
    const uint8_t bytes[16] = {};
    EXPECT_EQ(builder->GetHeaderData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(builder->GetBodyPartitionDataVideo(nullptr, true), kStatusInvalidArgument);
    EXPECT_EQ(builder->GetBodyPartitionDataAudio(nullptr, true, 0), kStatusInvalidArgument);
    EXPECT_EQ(builder->GetBodyPartitionDataANCData(nullptr, 0, 1), kStatusInvalidArgument);
    EXPECT_EQ(builder->GetFooterData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(builder->GetRandomIndexData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(builder->GetKLData(kTrackCodePicture, 1, nullptr), kStatusInvalidArgument);
    EXPECT_EQ(builder->SetXMLData(nullptr, 1), kStatusInvalidArgument);
    EXPECT_EQ(builder->SetThumbnailData(nullptr, 1, 1, 1, 0), kStatusInvalidArgument);
    EXPECT_EQ(builder->SetIdentification("a", "b", "c", nullptr), kStatusInvalidArgument);
    EXPECT_FALSE(COp1bBase::CreateDummyANC(nullptr));
    uint8_t out[512];
    EXPECT_FALSE(COp1bBase::CreateANCData(nullptr, 1, out));
    EXPECT_FALSE(COp1bBase::CreateANCData(nullptr, 0, out));
    EXPECT_FALSE(COp1bBase::CreateANCData(bytes, 1, nullptr));
    EXPECT_EQ(builder->MXFMemSetHeaderMetadata(nullptr, 9), 9u);
}

TEST(Op1bBase, OnlyLongGOPFormatsAreBuilt) {
    for (const uint32_t type :
         {COMP_TYPE_LONGG6_1080, COMP_TYPE_LONGG6_720, COMP_TYPE_LONGG12_1080, COMP_TYPE_LONGG12_720,
          COMP_TYPE_LONGG25_1080, COMP_TYPE_LONGG25_720, COMP_TYPE_LONGG50_1080, COMP_TYPE_LONGG50_720}) {
        for (const uint32_t standard : kStandards) {
            EXPECT_EQ(COp1bBase(standard, type, 2, 1).Initialize(), kStatusOk) << std::hex << type << ' ' << standard;
        }
        EXPECT_EQ(COp1bBase(0x0300007C, type, 2, 1).Initialize(), kStatusInvalidArgument);
        EXPECT_EQ(COp1bBase(0, type, 2, 1).Initialize(), kStatusInvalidArgument);
    }
    for (const uint32_t type :
         {COMP_TYPE_DV25, COMP_TYPE_DV50, COMP_TYPE_DV100_1080I, COMP_TYPE_AVCI50_1080, COMP_TYPE_AVCI100_1080,
          COMP_TYPE_AVCI200_1080, CompType{0xC100}, CompType{0x0800C100}, CompType{0}}) {
        COp1bBase builder(VIDEO_STD_59_94I, type, 2, 1);
        EXPECT_EQ(builder.Initialize(), kStatusInvalidArgument) << std::hex << type;
        EXPECT_EQ(builder.SetDuration(1), kStatusWrongState);
    }
}

TEST(Op1bBase, OfTheNumberOfChannelsOnlyTheLowByteCounts) {
    EXPECT_EQ(SetsOfKind(PacketsOf(*Builder(0x10104)), 0x47).size(), 4u);
    EXPECT_EQ(SetsOfKind(PacketsOf(*Builder(0x100)), 0x47).size(), 0u);
}

TEST(Op1bBase, TheLayoutIsChosenBeforeInitialize) {
    auto builder = Builder();
    EXPECT_EQ(builder->SetPlayerLayout(true), kStatusWrongState);
    EXPECT_TRUE(SetsOfKind(PacketsOf(*builder), 0x44).empty());
}

// --- header ---

TEST(Op1bBase, AHeaderWithoutSideDataIsFilledUp) {
    auto builder = Builder(0);
    const auto header = HeaderOf(*builder);
    ASSERT_EQ(header.size(), 0x20000u);
    EXPECT_EQ(builder->GetHeaderSize(), 0x20000u);
    const auto packets = Packets(header, 0, header.size());
    const auto fill = Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00");
    ASSERT_GT(packets.size(), 3u);
    const Packet& first = packets[packets.size() - 3];
    EXPECT_EQ(first.key, fill);
    EXPECT_EQ(first.End(), 32768u);
    // 81920 bytes, then 16384.
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00  83 01 3F EC"),
                          std::span(header).subspan(32768, 20)));
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00  83 00 3F EC"),
                          std::span(header).subspan(114688, 20)));
    for (size_t i = 32788; i < header.size(); ++i) {
        if (i >= 114688 && i < 114708) continue;
        ASSERT_EQ(header[i], 0) << i;
    }
}

TEST(Op1bBase, TheHeaderPackIsClosedCompleteAndNamesTheHeaderBytes) {
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 02 04 00  83 00 00 88"
                              "00 01 00 03 00 00 00 01"
                              "00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00"
                              "00 00 00 00 00 01 FF 64  00 00 00 00 00 00 00 00"  // 131072 - 156
                              "00 00 00 00  00 00 00 00 00 00 00 00  00 00 00 00"
                              "06 0E 2B 34 04 01 01 01 0D 01 02 01 01 02 09 00  00 00 00 03 00 00 00 10"
                              "06 0E 2B 34 04 01 01 0A 0D 01 03 01 02 10 60 01"
                              "06 0E 2B 34 04 01 01 09 0D 01 03 01 02 0E 00 00"
                              "06 0E 2B 34 04 01 01 0D 0D 01 03 01 02 06 0B 00"),
                          Cut(HeaderOf(*Builder(1)), 0, 156)));
}

TEST(Op1bBase, WithoutSoundThereAreTwoEssenceContainerLabels) {
    auto builder = Builder(0);
    const auto header = HeaderOf(*builder);
    const auto labels =
        Hex("00 00 00 02 00 00 00 10  06 0E 2B 34 04 01 01 0A 0D 01 03 01 02 10 60 01"
            "06 0E 2B 34 04 01 01 09 0D 01 03 01 02 0E 00 00");
    EXPECT_TRUE(SameBytes(labels, std::span(header).subspan(100, 40)));
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 01 FF 74"), std::span(header).subspan(52, 8)));  // 131072 - 140
    const auto preface = SetsOfKind(Packets(header, 0, header.size()), 0x2F).front();
    EXPECT_EQ(preface.Item(0x3B0A), labels);
    EXPECT_EQ(preface.Item(0x3B09), Hex("06 0E 2B 34 04 01 01 01 0D 01 02 01 01 02 09 00"));
    EXPECT_EQ(preface.Item(0x3B0B), Hex("00 00 00 00 00 00 00 00"));
    EXPECT_FALSE(preface.Items().contains(0x3B08));  // no primary package
    EXPECT_EQ(builder->GetBodyPartitionSize(false, false), 140u);
    EXPECT_EQ(builder->GetFooterSize(), 140u);
}

TEST(Op1bBase, SetsStandInTheOrderOfTheFile) {
    auto builder = Builder();
    builder->SetDMS(AllMetadata());
    const uint8_t bytes[1] = {};
    builder->SetXMLData(bytes, 1);
    builder->SetThumbnailData(bytes, 1, 1, 1, 0);
    const auto packets = PacketsOf(*builder);
    EXPECT_EQ(packets[1].key, Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 05 01 00"));
    const auto expected = Hex(R"(
        2F 30 18 23 23 23 23                              // preface, identification, content storage, container data
        36 3B 0F 14 3B 0F 11 3B 0F 11 3B 0F 11 3B 0F 11   // material package, with timecode, picture, ANC, two sounds
        3A 0F 41 01 19 20 18 1A                           // clip
        39 0F 41 01                                       // scene
        37 3B 0F 14 3B 0F 11 3B 0F 11 3B 0F 11 3B 0F 11   // file package
        28 6E 5C 47 47                                    // descriptors
    )");
    // Byte 13 tells descriptive frameworks apart, except for clip and scene: ... 0D 01 04 01 01 kind.
    std::vector<uint8_t> actual;
    for (size_t i = 2; packets[i].key[4] == 0x02; ++i) {
        actual.push_back(packets[i].key[10] == 0x04 ? packets[i].key[13] : packets[i].Kind());
    }
    EXPECT_EQ(actual, expected);
}

TEST(Op1bBase, HeaderMetadataIsPrimerAndSets) {
    auto builder = Builder();
    EXPECT_EQ(builder->GetHeaderMetadataSize(), 7826u);
    const auto header = HeaderOf(*builder);
    std::vector<uint8_t> buffer(7826 + 20, 0xEE);
    EXPECT_EQ(builder->MXFMemSetHeaderMetadata(buffer.data(), 10), 7836u);
    EXPECT_TRUE(SameBytes(std::span(header).subspan(156, 7826), std::span(buffer).subspan(10, 7826)));
    EXPECT_TRUE(SameBytes(std::vector<uint8_t>(10, 0xEE), std::span(buffer).first(10)));
    EXPECT_TRUE(SameBytes(std::vector<uint8_t>(10, 0xEE), std::span(buffer).last(10)));
    // The fill item behind it: 32768 - 156 - 7826 - 20 = 24766.
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00  83 00 60 BE"),
                          std::span(header).subspan(7982, 20)));
}

TEST(Op1bBase, TheHeaderMayBeBuiltAgain) {
    auto builder = Builder();
    builder->SetDMS(AllMetadata());
    const uint8_t bytes[1] = {};
    builder->SetXMLData(bytes, 1);
    builder->SetThumbnailData(bytes, 1, 1, 1, 0);
    const auto once = HeaderOf(*builder);
    EXPECT_TRUE(SameBytes(once, HeaderOf(*builder)));
    EXPECT_EQ(builder->GetRandomIndexSize(), 36u);  // the header is entered once
}

TEST(Op1bBase, SetsAreLinked) {
    const auto packets = PacketsOf(*Builder());
    const auto one = [&](uint8_t kind) { return SetsOfKind(packets, kind).front(); };
    const auto all = [&](uint8_t kind) {
        Uids uids;
        for (const Packet& set : SetsOfKind(packets, kind)) uids.push_back(UidOf(set));
        return uids;
    };
    EXPECT_EQ(Batch(one(0x2F), 0x3B06), all(0x30));
    EXPECT_EQ(one(0x2F).Item(0x3B03), UidOf(one(0x18)));
    EXPECT_EQ(Batch(one(0x18), 0x1901), (Uids{UidOf(one(0x36)), UidOf(one(0x37))}));
    EXPECT_EQ(Batch(one(0x18), 0x1902), all(0x23));
    const auto packages = PackagesOf(packets);
    ASSERT_EQ(packages.size(), 2u);
    for (const Package& package : packages) {
        ASSERT_EQ(package.chains.size(), 5u);
        Uids tracks;
        for (const Chain& chain : package.chains) {
            tracks.push_back(UidOf(chain.track));
            EXPECT_EQ(chain.track.Item(0x4803), UidOf(chain.sequence));
            EXPECT_EQ(Batch(chain.sequence, 0x1001), Uids{UidOf(chain.component)});
        }
        EXPECT_EQ(Batch(package.set, 0x4403), tracks);
    }
    EXPECT_EQ(packages[1].set.Item(0x4701), UidOf(one(0x28)));
    EXPECT_EQ(Batch(one(0x28), 0x9001), all(0x6E));
    std::set<std::vector<uint8_t>> uids;
    for (size_t i = 2; packets[i].key[4] == 0x02; ++i) EXPECT_TRUE(uids.insert(UidOf(packets[i])).second) << i;
}

TEST(Op1bBase, ContainersTracksAndDescriptorsAreNumberedAlike) {
    auto builder = Builder();
    builder->SetUMID(Umid(1));
    const auto packets = PacketsOf(*builder);
    const auto containers = SetsOfKind(packets, 0x23);
    ASSERT_EQ(containers.size(), 4u);
    for (uint32_t i = 0; i < 4; ++i) {
        EXPECT_EQ(BigEndian(containers[i].Item(0x3F06)), 101 + i);
        EXPECT_EQ(BigEndian(containers[i].Item(0x3F07)), 1 + i);
    }
    const auto packages = PackagesOf(packets);
    const struct {
        uint32_t id, number;
        const char* rate;
        const char* definition;  // second half
    } rows[] = {
        {1, 0x00000000, "00 00 75 30 00 00 03 E9", "01 03 02 01 01 00 00 00"},
        {2, 0x15010501, "00 00 75 30 00 00 03 E9", "01 03 02 02 01 00 00 00"},
        {3, 0x17010201, "00 00 75 30 00 00 03 E9", "01 03 02 02 03 00 00 00"},
        {4, 0x16010C01, "00 00 BB 80 00 00 00 01", "01 03 02 02 02 00 00 00"},
        {5, 0x16010C01, "00 00 BB 80 00 00 00 01", "01 03 02 02 02 00 00 00"},
    };
    for (size_t p = 0; p < 2; ++p) {
        for (size_t i = 0; i < 5; ++i) {
            SCOPED_TRACE(testing::Message() << "package " << p << ", track " << i);
            const Chain& chain = packages[p].chains[i];
            EXPECT_EQ(BigEndian(chain.track.Item(0x4801)), rows[i].id);
            EXPECT_EQ(BigEndian(chain.track.Item(0x4804)), p == 0 ? 0 : rows[i].number);
            EXPECT_EQ(chain.track.Item(0x4B01), Hex(rows[i].rate));
            EXPECT_EQ(chain.track.Item(0x4B02), Hex("00 00 00 00 00 00 00 00"));
            const auto definition = Hex(std::string("06 0E 2B 34 04 01 01 01") + rows[i].definition);
            EXPECT_EQ(chain.sequence.Item(0x0201), definition);
            EXPECT_EQ(chain.component.Item(0x0201), definition);
            if (i == 0) continue;
            EXPECT_EQ(BigEndian(chain.component.Item(0x1201)), 0u);
            EXPECT_EQ(BigEndian(chain.component.Item(0x1102)), p == 0 ? rows[i].id : 0);
        }
    }
    const struct {
        uint8_t kind;
        uint32_t trackID;
        const char* container;
    } descriptors[] = {
        {0x28, 2, "06 0E 2B 34 04 01 01 0A 0D 01 03 01 02 10 60 01"},
        {0x5C, 3, "06 0E 2B 34 04 01 01 09 0D 01 03 01 02 0E 00 00"},
        {0x47, 4, "06 0E 2B 34 04 01 01 0D 0D 01 03 01 02 06 0B 00"},
    };
    for (const auto& row : descriptors) {
        const auto set = SetsOfKind(packets, row.kind).front();
        EXPECT_EQ(BigEndian(set.Item(0x3006)), row.trackID);
        EXPECT_EQ(set.Item(0x3004), Hex(row.container));
    }
    EXPECT_EQ(BigEndian(SetsOfKind(packets, 0x47)[1].Item(0x3006)), 5u);
}

TEST(Op1bBase, DescriptorsDescribeTheFormat) {
    const auto packets = PacketsOf(*Builder(1, VIDEO_STD_59_94P, 3));
    const auto picture = SetsOfKind(packets, 0x28).front();
    EXPECT_EQ(picture.Item(0x3001), Hex("00 00 EA 60 00 00 03 E9"));
    EXPECT_EQ(picture.Item(0x3201), Hex("06 0E 2B 34 04 01 01 0D 04 01 02 02 01 31 60 01"));
    EXPECT_EQ(picture.Item(0x320C), Hex("00"));
    EXPECT_EQ(picture.Item(0x3203), Hex("00 00 07 80"));
    EXPECT_EQ(picture.Item(0x3202), Hex("00 00 04 38"));
    EXPECT_EQ(picture.Item(0x320E), Hex("00 00 00 10 00 00 00 09"));
    EXPECT_EQ(picture.Item(0x320D), Hex("00 00 00 02 00 00 00 04 00 00 00 2A 00 00 00 00"));
    EXPECT_EQ(picture.Item(0x3301), Hex("00 00 00 0A"));
    EXPECT_EQ(SetsOfKind(packets, 0x6E).front().Item(0x9014), Hex("02 FA F0 80"));  // 50 Mbit/s: twice 25
    const auto data = SetsOfKind(packets, 0x5C).front();
    EXPECT_EQ(data.Item(0x3001), Hex("00 00 EA 60 00 00 03 E9"));
    const auto sound = SetsOfKind(packets, 0x47).front();
    EXPECT_EQ(sound.Item(0x3001), Hex("00 00 BB 80 00 00 00 01"));
    EXPECT_EQ(sound.Item(0x3D03), Hex("00 00 BB 80 00 00 00 01"));
    EXPECT_EQ(sound.Item(0x3D07), Hex("00 00 00 01"));
    EXPECT_EQ(sound.Item(0x3D01), Hex("00 00 00 18"));
    EXPECT_EQ(sound.Item(0x3D0A), Hex("00 03"));
    EXPECT_EQ(sound.Item(0x3D09), Hex("00 02 32 80"));
    const auto sound16 = SetsOfKind(PacketsOf(*Builder(1)), 0x47).front();
    EXPECT_EQ(sound16.Item(0x3D01), Hex("00 00 00 10"));
    EXPECT_EQ(sound16.Item(0x3D0A), Hex("00 02"));
    EXPECT_EQ(sound16.Item(0x3D09), Hex("00 01 77 00"));
}

TEST(Op1bBase, EachNumberOfChannelsFitsUpToItsLimit) {
    const struct {
        bool players;
        CDescriptiveMetadata metadata;
        uint32_t most;
    } rows[] = {
        {false, {}, 27}, {false, StaticMetadata(), 26}, {false, AllMetadata(), 25},
        {true, {}, 24},  {true, StaticMetadata(), 22},  {true, AllMetadata(), 22},
    };
    const uint8_t bytes[1] = {};
    for (const auto& row : rows) {
        for (const bool sideData : {false, true}) {
            for (const uint32_t channels : {row.most, row.most + 1}) {
                SCOPED_TRACE(channels);
                auto builder = Builder(channels, VIDEO_STD_59_94I, 2, row.players);
                builder->SetDMS(row.metadata);
                if (sideData) {
                    builder->SetXMLData(bytes, 1);
                    builder->SetThumbnailData(bytes, 1, 1, 1, 0);
                }
                uint8_t* data = nullptr;
                const int32_t status = builder->GetHeaderData(&data);
                EXPECT_EQ(status, channels == row.most ? kStatusOk : kStatusNoMemory);
                EXPECT_EQ(data != nullptr, channels == row.most);
                if (data != nullptr) {
                    EXPECT_EQ(Packets(TakeBytes(data, 0x20000), 0, 0x20000).back().End(), 0x20000u);
                }
                // A header that does not fit is not entered into the random index.
                EXPECT_EQ(builder->GetRandomIndexSize(), channels == row.most ? 36u : 24u);
            }
        }
    }
}

TEST(Op1bBase, TheMostChannelsThatCanBeAskedForDoNotFit) {
    auto builder = Builder(255);
    uint8_t* data = nullptr;
    EXPECT_EQ(builder->GetHeaderData(&data), kStatusNoMemory);
    EXPECT_EQ(data, nullptr);
}

// --- side data ---

TEST(Op1bBase, XMLStandsInAnAreaOfItsOwn) {
    auto builder = Builder();
    const std::string xml = "<clip/>";
    EXPECT_EQ(builder->SetXMLData(reinterpret_cast<const uint8_t*>(xml.data()), 7), kStatusOk);
    const auto header = HeaderOf(*builder);
    const auto packets = Packets(header, 32768, header.size());
    ASSERT_EQ(packets.size(), 6u);
    EXPECT_EQ(packets[0].key, Hex("06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 3A 00"));
    EXPECT_EQ(packets[0].Item(0x4801), Hex("00 00 03 E9"));
    EXPECT_EQ(packets[3].key, Hex("06 0E 2B 34 01 01 01 09 0E 0E 01 01 11 01 01 00"));
    EXPECT_EQ(packets[3].Item(0xA001), Hex("00"));
    EXPECT_EQ(packets[3].Item(0xA002), std::vector<uint8_t>(xml.begin(), xml.end()));
    EXPECT_EQ(packets[4].offset, 32768u + 300);
    EXPECT_EQ(packets[4].key, Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00"));
    EXPECT_EQ(packets[5].offset, 114688u);

    const auto metadata = Packets(header, 0, 32768);
    EXPECT_EQ(SetsOfKind(metadata, 0x2F).front().Item(0x3B0B),
              Hex("00 00 00 01 00 00 00 10  06 0E 2B 34 04 01 01 08 0E 0E 01 01 11 01 01 00"));
    const auto tracks = Batch(SetsOfKind(metadata, 0x36).front(), 0x4403);
    ASSERT_EQ(tracks.size(), 6u);
    EXPECT_EQ(tracks.back(), UidOf(packets[0]));
}

TEST(Op1bBase, XMLOfAnyLengthFitsItsArea) {
    auto builder = Builder();
    const std::vector<uint8_t> xml(65535, 'x');
    for (const uint16_t size : {uint16_t{65535}, uint16_t{0}}) {
        EXPECT_EQ(builder->SetXMLData(xml.data(), size), kStatusOk);
        const auto header = HeaderOf(*builder);
        ASSERT_EQ(header.size(), 0x20000u);
        const auto packets = Packets(header, 32768, 114688);
        ASSERT_EQ(packets.size(), 5u);
        EXPECT_EQ(packets[4].offset, 32768u + 293 + size);
        EXPECT_EQ(packets[3].Item(0xA002).size(), size);
    }
}

TEST(Op1bBase, ThumbnailStandsInAnAreaOfItsOwn) {
    auto builder = Builder(2, VIDEO_STD_25P);
    EXPECT_EQ(builder->SetThumbnailPosition(77), kStatusOk);
    const auto picture = Hex("42 4D 01 02 03");
    EXPECT_EQ(builder->SetThumbnailData(picture.data(), 5, 160, 90, 1), kStatusOk);
    const auto header = HeaderOf(*builder);
    const auto packets = Packets(header, 32768, header.size());
    ASSERT_EQ(packets.size(), 6u);
    EXPECT_EQ(packets[1].offset, 114688u);
    EXPECT_EQ(packets[1].Item(0x4801), Hex("00 00 03 EA"));
    EXPECT_EQ(packets[1].Item(0x4B01), Hex("00 00 00 19 00 00 00 01"));
    EXPECT_EQ(packets[2].Item(0x0202), Hex("00 00 00 00 00 00 00 01"));
    EXPECT_EQ(packets[3].Item(0x0601), Hex("00 00 00 00 00 00 00 4D"));
    EXPECT_EQ(packets[4].key, Hex("06 0E 2B 34 01 01 01 09 0E 0E 01 01 11 01 02 00"));
    EXPECT_EQ(packets[4].Item(0xA011), Hex("01"));
    EXPECT_EQ(packets[4].Item(0xA012), Hex("00 A0"));
    EXPECT_EQ(packets[4].Item(0xA013), Hex("00 5A"));
    EXPECT_EQ(packets[4].Item(0xA014), picture);
    EXPECT_EQ(packets[5].offset, 114688u + 358);
    EXPECT_EQ(packets[5].End(), 131072u);
    const auto metadata = Packets(header, 0, 32768);
    EXPECT_EQ(SetsOfKind(metadata, 0x2F).front().Item(0x3B0B),
              Hex("00 00 00 01 00 00 00 10  06 0E 2B 34 04 01 01 08 0E 0E 01 01 11 01 02 00"));
    EXPECT_EQ(Batch(SetsOfKind(metadata, 0x36).front(), 0x4403).back(), UidOf(packets[1]));
}

TEST(Op1bBase, ThumbnailPositionReachesAThumbnailThatIsThere) {
    auto builder = Builder();
    const uint8_t picture[1] = {};
    builder->SetThumbnailData(picture, 1, 1, 1, 0);
    EXPECT_EQ(builder->SetThumbnailPosition(0xFFFFFFFF), kStatusOk);
    auto header = HeaderOf(*builder);
    EXPECT_EQ(Packets(header, 114688, header.size())[2].Item(0x0601), Hex("00 00 00 00 FF FF FF FF"));
    builder->SetThumbnailData(picture, 1, 1, 1, 0);  // a new picture keeps it
    header = HeaderOf(*builder);
    EXPECT_EQ(Packets(header, 114688, header.size())[2].Item(0x0601), Hex("00 00 00 00 FF FF FF FF"));
}

TEST(Op1bBase, ThumbnailsThatLeaveNoRoomForTheirFillItemAreRefused) {
    const std::vector<uint8_t> picture(65535, 0x5A);
    for (const uint16_t size : {uint16_t{16012}, uint16_t{16030}, uint16_t{16032}, uint16_t{65535}}) {
        auto builder = Builder();
        EXPECT_EQ(builder->SetThumbnailData(picture.data(), size, 80, 45, 0), kStatusInvalidArgument) << size;
        const auto header = HeaderOf(*builder);
        EXPECT_EQ(Packets(header, 114688, header.size()).size(), 1u) << size;  // no group was begun
    }
    for (const uint16_t size : {uint16_t{0}, uint16_t{16011}, uint16_t{16031}}) {
        auto builder = Builder();
        EXPECT_EQ(builder->SetThumbnailData(picture.data(), size, 80, 45, 0), kStatusOk) << size;
        const auto header = HeaderOf(*builder);
        ASSERT_EQ(header.size(), 0x20000u) << size;
        const auto packets = Packets(header, 114688, header.size());
        EXPECT_EQ(packets.size(), size == 16031 ? 4u : 5u);
        EXPECT_EQ(packets[3].Item(0xA014).size(), size);
    }
}

TEST(Op1bBase, ARefusedThumbnailKeepsTheOneBefore) {
    auto builder = Builder();
    const uint8_t picture[2] = {1, 2};
    EXPECT_EQ(builder->SetThumbnailData(picture, 2, 3, 4, 2), kStatusInvalidArgument);
    EXPECT_TRUE(SetsOfKind(PacketsOf(*builder), 0x39).empty());
    EXPECT_EQ(builder->SetThumbnailData(picture, 2, 3, 4, 1), kStatusOk);
    const auto before = HeaderOf(*builder);
    EXPECT_EQ(builder->SetThumbnailData(picture, 1, 9, 9, 2), kStatusInvalidArgument);
    EXPECT_EQ(builder->SetThumbnailData(nullptr, 1, 9, 9, 0), kStatusInvalidArgument);
    EXPECT_TRUE(SameBytes(before, HeaderOf(*builder)));
}

TEST(Op1bBase, SchemesAndTracksOfDescriptiveMetadataComeOnce) {
    auto builder = Builder(0);
    const uint8_t bytes[1] = {};
    for (int i = 0; i < 2; ++i) {
        builder->SetXMLData(bytes, 1);
        builder->SetThumbnailData(bytes, 1, 1, 1, 0);
        EXPECT_EQ(builder->SetDMS(AllMetadata()), kStatusOk);
        HeaderOf(*builder);
    }
    const auto packets = PacketsOf(*builder);
    EXPECT_EQ(SetsOfKind(packets, 0x2F).front().Item(0x3B0B),
              Hex("00 00 00 04 00 00 00 10  06 0E 2B 34 04 01 01 08 0E 0E 01 01 11 01 01 00"
                  "06 0E 2B 34 04 01 01 08 0E 0E 01 01 11 01 02 00  06 0E 2B 34 04 01 01 04 0D 01 04 01 01 02 02 01"
                  "06 0E 2B 34 04 01 01 04 0D 01 04 01 01 03 02 01"));
    // Timecode, picture, ANC, then 1001, 1002, 101, 102.
    const auto tracks = Batch(SetsOfKind(packets, 0x36).front(), 0x4403);
    ASSERT_EQ(tracks.size(), 7u);
    std::vector<uint64_t> ids;
    for (const auto& track : tracks) {
        for (const Packet& packet : packets) {
            if (packet.key[4] == 0x02 && packet.key[5] == 0x53 && UidOf(packet) == track) {
                ids.push_back(BigEndian(packet.Item(0x4801)));
            }
        }
    }
    EXPECT_EQ(ids, (std::vector<uint64_t>{1, 2, 3, 1001, 1002, 101, 102}));
}

TEST(Op1bBase, DescriptiveMetadataIsThereWhereItWasSet) {
    const auto tracks = [](const CDescriptiveMetadata& metadata) {
        auto builder = Builder(0);
        EXPECT_EQ(builder->SetDMS(metadata), kStatusOk);
        const auto packets = PacketsOf(*builder);
        return std::pair(SetsOfKind(packets, 0x3A).size(), SetsOfKind(packets, 0x39).size());
    };
    EXPECT_EQ(tracks({}), std::pair(size_t{0}, size_t{0}));
    EXPECT_EQ(tracks(StaticMetadata()), std::pair(size_t{1}, size_t{0}));
    EXPECT_EQ(tracks(SceneMetadata()), std::pair(size_t{0}, size_t{1}));
    EXPECT_EQ(tracks(AllMetadata()), std::pair(size_t{1}, size_t{1}));
}

// --- identity ---

TEST(Op1bBase, PackagesHaveTheUMIDAndItsNextInstance) {
    auto builder = Builder();
    EXPECT_EQ(builder->SetUMID(Umid(0xFF)), kStatusOk);
    const auto packets = PacketsOf(*builder);
    const auto packages = PackagesOf(packets);
    const auto file = BytesOf(Umid(0x00));  // the count begins anew
    EXPECT_EQ(packages[0].set.Item(0x4401), BytesOf(Umid(0xFF)));
    EXPECT_EQ(packages[1].set.Item(0x4401), file);
    for (const Packet& container : SetsOfKind(packets, 0x23)) EXPECT_EQ(container.Item(0x2701), file);
    for (size_t i = 1; i < 5; ++i) {
        EXPECT_EQ(packages[0].chains[i].component.Item(0x1101), file);
        EXPECT_EQ(packages[1].chains[i].component.Item(0x1101), std::vector<uint8_t>(32));
    }
}

TEST(Op1bBase, AnAllZeroUMIDIsReplacedByOneForGood) {
    auto builder = Builder();
    builder->SetUMID({});
    const auto umid = PackagesOf(PacketsOf(*builder))[0].set.Item(0x4401);
    EXPECT_TRUE(SameBytes(Hex("06 0A 2B 34 01 01 01 05 01 01 0F 20 13 00 00 00"), std::span(umid).first(16)));
    EXPECT_NE(std::vector<uint8_t>(umid.begin() + 16, umid.end()), std::vector<uint8_t>(16));
    builder->SetUMID(Umid(1));
    EXPECT_EQ(PackagesOf(PacketsOf(*builder))[0].set.Item(0x4401), BytesOf(Umid(1)));
    builder->SetUMID({});
    EXPECT_EQ(PackagesOf(PacketsOf(*builder))[0].set.Item(0x4401), umid);
    auto other = Builder();
    other->SetUMID({});
    EXPECT_NE(PackagesOf(PacketsOf(*other))[0].set.Item(0x4401), umid);
}

TEST(Op1bBase, NameAndDatesAndIdentification) {
    auto builder = Builder(1, VIDEO_STD_59_94I, 2, true);
    EXPECT_EQ(builder->SetPackageName("Fjörd"), kStatusOk);
    EXPECT_EQ(builder->SetCreationDate({2031, 11, 29, 22, 58, 57, 1}), kStatusOk);
    EXPECT_EQ(builder->SetModifiedDate({2032, 12, 30, 23, 59, 58, 2}), kStatusOk);
    const auto uid = Hex("F0 F1 F2 F3 F4 F5 F6 F7 F8 F9 FA FB FC FD FE FF");
    EXPECT_EQ(builder->SetIdentification("SIXTEEN LETTERS!", "Recorder", "1.23", uid.data()), kStatusOk);
    const auto packets = PacketsOf(*builder);
    const auto created = Hex("07 EF 0B 1D 16 3A 39 01"), modified = Hex("07 F0 0C 1E 17 3B 3A 02");
    auto name = Hex("00 46 00 6A 00 F6 00 72 00 64");
    name.resize(400);
    const auto packages = PackagesOf(packets);
    ASSERT_EQ(packages.size(), 3u);  // material, file, sound
    EXPECT_EQ(packages[0].set.Item(0x4402), name);
    for (const Package& package : packages) {
        EXPECT_EQ(package.set.Item(0x4405), created);
        EXPECT_EQ(package.set.Item(0x4404), modified);
    }
    EXPECT_EQ(SetsOfKind(packets, 0x2F).front().Item(0x3B02), modified);
    const auto identification = SetsOfKind(packets, 0x30).front();
    EXPECT_EQ(identification.Item(0x3C06), modified);
    EXPECT_EQ(identification.Item(0x3C01), Hex("00 53 00 49 00 58 00 54 00 45 00 45 00 4E 00 20"
                                               "00 4C 00 45 00 54 00 54 00 45 00 52 00 53 00 21"));
    EXPECT_EQ(identification.Item(0x3C04), Hex("00 31 00 2E 00 32 00 33"));
    EXPECT_EQ(identification.Item(0x3C05), uid);
}

TEST(Op1bBase, NamesThatDoNotFitLeaveTheFieldZero) {
    auto builder = Builder();
    const auto name = [&] { return PackagesOf(PacketsOf(*builder))[0].set.Item(0x4402); };
    EXPECT_EQ(builder->SetPackageName(std::string(200, 'n')), kStatusOk);
    EXPECT_EQ(name()[399], 'n');
    EXPECT_EQ(builder->SetPackageName(std::string(201, 'n')), kStatusInvalidArgument);
    EXPECT_EQ(name(), std::vector<uint8_t>(400));
    builder->SetPackageName("good");
    EXPECT_EQ(builder->SetPackageName("\xFF"), kStatusInvalidArgument);
    EXPECT_EQ(name(), std::vector<uint8_t>(400));
    const uint8_t uid[16] = {};
    EXPECT_EQ(builder->SetIdentification(std::string(17, 'c'), "p", "v", uid), kStatusInvalidArgument);
    const auto identification = SetsOfKind(PacketsOf(*builder), 0x30).front();
    EXPECT_EQ(identification.Item(0x3C01), std::vector<uint8_t>(32));
    EXPECT_EQ(identification.Item(0x3C02)[1], 'p');
}

// --- durations and timecode ---

// Origin of the file package's track; durations of sequence and component, which agree, in both packages.
struct Durations {
    uint64_t origin, material, file;
    bool operator==(const Durations&) const = default;
};
std::vector<Durations> DurationsOf(COp1bBase& builder) {
    const auto packages = PackagesOf(PacketsOf(builder));
    std::vector<Durations> durations;
    for (size_t i = 0; i < packages[0].chains.size(); ++i) {
        for (const Package& package : packages) {
            const Chain& chain = package.chains[i];
            EXPECT_EQ(chain.sequence.Item(0x0202), chain.component.Item(0x0202));
        }
        EXPECT_EQ(BigEndian(packages[0].chains[i].track.Item(0x4B02)), 0u);
        durations.push_back({BigEndian(packages[1].chains[i].track.Item(0x4B02)),
                             BigEndian(packages[0].chains[i].sequence.Item(0x0202)),
                             BigEndian(packages[1].chains[i].sequence.Item(0x0202))});
    }
    return durations;
}

TEST(Op1bBase, FilePackageTracksAreShorterByTheOrigin) {
    auto builder = Builder(1);
    EXPECT_EQ(builder->SetDuration(130), kStatusOk);
    EXPECT_EQ(builder->SetOrigin(3), kStatusOk);
    // Sound: 130 frames have 26 x 8008 samples, 127 have 25 x 8008 + 3204, 3 have 4804.
    const std::vector<Durations> expected = {{3, 130, 127}, {3, 130, 127}, {3, 130, 127}, {4804, 208208, 203404}};
    EXPECT_EQ(DurationsOf(*builder), expected);
    auto other = Builder(1);
    other->SetOrigin(3);
    other->SetDuration(130);
    EXPECT_EQ(DurationsOf(*other), expected);
}

TEST(Op1bBase, TimecodeCountsHalfTheFramesAt5994pAnd50p) {
    auto builder = Builder(1, VIDEO_STD_59_94P);
    builder->SetDuration(245);
    builder->SetOrigin(3);
    EXPECT_EQ(DurationsOf(*builder),
              (std::vector<Durations>{{2, 123, 121}, {3, 245, 242}, {3, 245, 242}, {2404, 196196, 193792}}));
    builder = Builder(1, VIDEO_STD_50P);
    builder->SetDuration(102);
    builder->SetOrigin(1);
    EXPECT_EQ(DurationsOf(*builder),
              (std::vector<Durations>{{1, 51, 51}, {1, 102, 101}, {1, 102, 101}, {960, 97920, 96960}}));
    const auto rate = PackagesOf(PacketsOf(*builder))[0].chains[0].track.Item(0x4B01);
    EXPECT_EQ(rate, Hex("00 00 00 19 00 00 00 01"));
}

TEST(Op1bBase, ContainerDurationIsThatOfAllFrames) {
    auto builder = Builder(1, VIDEO_STD_23_98P, 2, true);
    builder->SetOrigin(3);
    EXPECT_EQ(builder->SetContainerDuration(50), kStatusOk);
    const auto packets = PacketsOf(*builder);
    for (const uint8_t kind : {uint8_t{0x44}, uint8_t{0x28}, uint8_t{0x5C}}) {
        EXPECT_EQ(BigEndian(SetsOfKind(packets, kind).front().Item(0x3002)), 50u);
    }
    EXPECT_EQ(BigEndian(SetsOfKind(packets, 0x47).front().Item(0x3002)), 100100u);  // 12 x 8008 + 4004
}

TEST(Op1bBase, AbsurdDurationsDoNoHarm) {
    for (const bool players : {false, true}) {
        auto builder = Builder(2, VIDEO_STD_59_94P, 2, players);
        for (const int64_t absurd : {kMost, kLeast, int64_t{-1}}) {
            EXPECT_EQ(builder->SetOrigin(absurd), kStatusOk);
            EXPECT_EQ(builder->SetDuration(absurd), kStatusOk);
            EXPECT_EQ(builder->SetContainerDuration(absurd), kStatusOk);
            EXPECT_EQ(builder->SetStartTimecode(absurd, true), kStatusOk);
            EXPECT_EQ(HeaderOf(*builder).size(), 0x20000u);
        }
        builder->SetOrigin(-1);
        builder->SetDuration(kMost);
        builder->SetStartTimecode(kMost, true);
        builder->SetOrigin(1);
        builder->SetDuration(kLeast);
        EXPECT_EQ(HeaderOf(*builder).size(), 0x20000u);
    }
}

struct Start {
    uint64_t material, file;
    uint8_t drop;
};
Start StartOf(COp1bBase& builder) {
    const auto packages = PackagesOf(PacketsOf(builder));
    const Packet &material = packages[0].chains[0].component, &file = packages[1].chains[0].component;
    EXPECT_EQ(material.Item(0x1503), file.Item(0x1503));
    return {BigEndian(material.Item(0x1501)), BigEndian(file.Item(0x1501)), file.Item(0x1503)[0]};
}

TEST(Op1bBase, TheFilePackageStartsLaterByTheOrigin) {
    for (const uint32_t standard : kStandards) {
        const bool neverDrops = standard == 0x010000B2 || standard == 0x02000099 || standard == 0x020000B2;
        for (const bool drop : {false, true}) {
            auto builder = Builder(0, standard);
            EXPECT_EQ(builder->SetStartTimecode(107892, drop), kStatusOk);
            EXPECT_EQ(builder->SetOrigin(3), kStatusOk);
            const Start start = StartOf(*builder);
            EXPECT_EQ(start.material, 107892u) << std::hex << standard;
            EXPECT_EQ(start.file, 107895u) << std::hex << standard;  // not halved anywhere
            EXPECT_EQ(start.drop, drop && !neverDrops ? 1 : 0) << std::hex << standard;
        }
    }
}

TEST(Op1bBase, DropFrameIsThatOfTheStandardUntilTheStartIsSet) {
    for (const uint32_t standard : kStandards) {
        const bool neverDrops = standard == 0x010000B2 || standard == 0x02000099 || standard == 0x020000B2;
        auto builder = Builder(0, standard);
        EXPECT_EQ(StartOf(*builder).drop, neverDrops ? 0 : 1) << std::hex << standard;
        builder->SetDuration(10);
        builder->SetOrigin(1);
        EXPECT_EQ(StartOf(*builder).drop, neverDrops ? 0 : 1) << std::hex << standard;
    }
}

// --- KL and ANC elements ---

TEST(Op1bBase, KLOfEachKindOfEssence) {
    auto builder = Builder(0);
    const auto kl = [&](uint32_t type, int64_t length) {
        std::vector<uint8_t> out(24, 0xEE);
        EXPECT_EQ(builder->GetKLData(type, length, out.data()), kStatusOk);
        return out;
    };
    const auto video = Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 15 01 05 01  83 12 34 56  EE EE EE EE");
    const auto sound = Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 16 01 0C 01  87 11 22 33 44 55 66 77");
    const auto anc = Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 17 01 02 01  83 00 00 02  EE EE EE EE");
    const std::vector<uint8_t> nothing(24, 0xEE);
    EXPECT_EQ(kl(0x30100, 0x123456), video);
    EXPECT_EQ(kl(0x30F00, 0x123456), video);
    EXPECT_EQ(kl(0, 0x123456), video);  // lies within every mask, the first of which is the picture's
    EXPECT_EQ(kl(0x30000, 0x123456), video);
    EXPECT_EQ(kl(0x30001, 0x11223344556677), sound);
    EXPECT_EQ(kl(0x300FF, 0x11223344556677), sound);
    EXPECT_EQ(kl(0x32000, 2), anc);
    EXPECT_EQ(kl(0x2000, 2), anc);
    EXPECT_EQ(kl(0x31000, 2), nothing);
    EXPECT_EQ(kl(0x30101, 2), nothing);
    EXPECT_EQ(kl(0x32001, 2), nothing);
    EXPECT_EQ(kl(0x40000, 2), nothing);
}

TEST(Op1bBase, TheDummyANCElementHas512Bytes) {
    std::vector<uint8_t> out(512, 0xEE);
    EXPECT_TRUE(COp1bBase::CreateDummyANC(out.data()));
    auto expected =
        Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 17 01 02 01  83 00 00 02  00 00"
            "06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00  83 00 01 D6");
    expected.resize(512);
    EXPECT_TRUE(SameBytes(expected, out));
}

TEST(Op1bBase, AnANCElementCarriesUpTo470Bytes) {
    std::vector<uint8_t> payload(471, 0xA5), out(513, 0xEE);
    const auto element = [&](const char* head, uint32_t size, const char* fill) {
        auto bytes = Hex(std::string("06 0E 2B 34 01 02 01 01 0D 01 03 01 17 01 02 01") + head);
        bytes.insert(bytes.end(), size, 0xA5);
        const auto tail = Hex(std::string("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00") + fill);
        bytes.insert(bytes.end(), tail.begin(), tail.end());
        bytes.resize(512);
        bytes.push_back(0xEE);
        return bytes;
    };
    EXPECT_TRUE(COp1bBase::CreateANCData(payload.data(), 0, out.data()));
    EXPECT_TRUE(SameBytes(element("83 00 00 02 01 00", 0, "83 00 01 D6"), out));
    EXPECT_TRUE(COp1bBase::CreateANCData(payload.data(), 1, out.data()));
    EXPECT_TRUE(SameBytes(element("83 00 00 03 01 00", 1, "83 00 01 D5"), out));
    EXPECT_TRUE(COp1bBase::CreateANCData(payload.data(), 470, out.data()));
    EXPECT_TRUE(SameBytes(element("83 00 01 D8 01 00", 470, "83 00 00 00"), out));
    const auto before = out;
    EXPECT_FALSE(COp1bBase::CreateANCData(payload.data(), 471, out.data()));
    EXPECT_FALSE(COp1bBase::CreateANCData(payload.data(), 0xFFFFFFFF, out.data()));
    EXPECT_EQ(out, before);
}

// --- body ---

// The value of a pack's fields from ThisPartition to BodySID.
std::vector<uint8_t> FieldsOf(const std::vector<uint8_t>& pack) { return {pack.begin() + 28, pack.begin() + 84}; }

TEST(Op1bBase, BodyPartitionsNeedTheHeaderInTheRandomIndex) {
    auto builder = Builder();
    uint8_t* data = nullptr;
    EXPECT_EQ(builder->SetBodyPartitionParamVideo(0x20000, 0, 1, false, true), kStatusFailure);
    EXPECT_EQ(builder->SetBodyPartitionParamAudio(0x20000, 0, 1, 0, false, true), kStatusFailure);
    EXPECT_EQ(builder->GetBodyPartitionDataANCData(&data, 0x20000, 1), kStatusFailure);
    EXPECT_EQ(builder->SetFooterPartitionParam(0x20000), kStatusFailure);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(builder->GetRandomIndexSize(), 24u);
    HeaderOf(*builder);
    EXPECT_EQ(builder->GetRandomIndexSize(), 36u);
    EXPECT_EQ(builder->SetBodyPartitionParamVideo(0x20000, 0, 1, false, true), kStatusOk);
    EXPECT_EQ(builder->GetRandomIndexSize(), 48u);
}

TEST(Op1bBase, AVideoBodyPartitionIsOnePack) {
    auto builder = Builder();
    HeaderOf(*builder);
    builder->SetBodyPartitionParamVideo(0x20000, 0, 60, false, true);
    builder->SetBodyPartitionParamVideo(0x123456789A, 0x1122334455, 60, false, true);
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 03 04 00  83 00 00 88"
                              "00 01 00 03 00 00 00 01"
                              "00 00 00 12 34 56 78 9A  00 00 00 00 00 02 00 00  00 00 00 00 00 00 00 00"
                              "00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00"
                              "00 00 00 00  00 00 00 11 22 33 44 55  00 00 00 01"
                              "06 0E 2B 34 04 01 01 01 0D 01 02 01 01 02 09 00  00 00 00 03 00 00 00 10"
                              "06 0E 2B 34 04 01 01 0A 0D 01 03 01 02 10 60 01"
                              "06 0E 2B 34 04 01 01 09 0D 01 03 01 02 0E 00 00"
                              "06 0E 2B 34 04 01 01 0D 0D 01 03 01 02 06 0B 00"),
                          VideoPartitionOf(*builder, false)));
    EXPECT_EQ(builder->GetBodyPartitionSize(false, false), 156u);
    EXPECT_EQ(builder->GetBodyPartitionSize(false, true), 156u);
    EXPECT_EQ(builder->GetBodyPartitionSize(true, true), 256u);
}

TEST(Op1bBase, AVideoIndexPartitionIsFilledUpToFourBytes) {
    const struct {
        uint32_t frames, segment, fill;
        const char* byteCount;
    } rows[] = {
        {1, 141, 23, "00 00 00 00 00 00 00 A4"},    {2, 152, 0, "00 00 00 00 00 00 00 98"},
        {3, 163, 21, "00 00 00 00 00 00 00 B8"},    {4, 174, 22, "00 00 00 00 00 00 00 C4"},
        {48, 658, 22, "00 00 00 00 00 00 02 A8"},   {50, 680, 0, "00 00 00 00 00 00 02 A8"},
        {60, 790, 22, "00 00 00 00 00 00 03 2C"},   {100, 1230, 22, "00 00 00 00 00 00 04 E4"},
        {120, 1450, 22, "00 00 00 00 00 00 05 C0"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.frames);
        auto builder = Builder();
        HeaderOf(*builder);
        for (uint32_t i = 0; i < row.frames; ++i) builder->AddIndexEntry(0, 0, 0, i);
        EXPECT_EQ(builder->SetBodyPartitionParamVideo(0x20000, 99, row.frames, true, false), kStatusOk);
        EXPECT_EQ(builder->GetBodyPartitionSize(true, false), 156 + row.segment + row.fill);
        const auto bytes = VideoPartitionOf(*builder, true);
        ASSERT_EQ(bytes.size(), 156 + row.segment + row.fill);
        EXPECT_EQ(bytes.size() % 4, 0u);
        EXPECT_TRUE(
            SameBytes(Hex(std::string("00 00 00 00 00 02 00 00  00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00"
                                      "00 00 00 00 00 00 00 00") +
                          row.byteCount + "00 00 00 65  00 00 00 00 00 00 00 00  00 00 00 00"),
                      FieldsOf(bytes)));
        const auto packets = Packets(bytes, 156, bytes.size());
        EXPECT_EQ(packets[0].End(), 156u + row.segment);
        ASSERT_EQ(packets.size(), row.fill == 0 ? 1u : 2u);
        if (row.fill > 0) {
            auto fill = Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00  83 00 00");
            fill.push_back(static_cast<uint8_t>(row.fill - 20));
            fill.resize(row.fill);
            EXPECT_TRUE(SameBytes(fill, std::span(bytes).last(row.fill)));
        }
    }
}

TEST(Op1bBase, AVideoIndexSegmentHasAnEntryForEachFrame) {
    auto builder = Builder();
    HeaderOf(*builder);
    EXPECT_EQ(builder->AddIndexEntry(0, 0, 0xC0, 0), kStatusOk);
    EXPECT_EQ(builder->AddIndexEntry(-1, -128, 0x22, 0x102030405060708), kStatusOk);
    EXPECT_EQ(builder->AddIndexEntry(127, -2, 0x3B, 0x7FFFFFFFFFFFFFFF), kStatusOk);
    builder->SetBodyPartitionParamVideo(0x20000, 0, 3, true, false);
    const auto bytes = VideoPartitionOf(*builder, true);
    const auto segment = Packets(bytes, 156, bytes.size()).front();
    EXPECT_EQ(segment.key, Hex("06 0E 2B 34 02 53 01 01 0D 01 02 01 01 10 01 00"));
    EXPECT_EQ(segment.Item(0x3F0B), Hex("00 00 75 30 00 00 03 E9"));
    EXPECT_EQ(segment.Item(0x3F0C), Hex("00 00 00 00 00 00 00 00"));
    EXPECT_EQ(segment.Item(0x3F0D), Hex("00 00 00 00 00 00 00 03"));
    EXPECT_EQ(segment.Item(0x3F05), Hex("00 00 00 00"));
    EXPECT_EQ(segment.Item(0x3F06), Hex("00 00 00 65"));
    EXPECT_EQ(segment.Item(0x3F07), Hex("00 00 00 01"));
    EXPECT_FALSE(segment.Items().contains(0x3F08));
    EXPECT_EQ(segment.Item(0x3F09), Hex("00 00 00 01 00 00 00 06  FF 00 00 00 00 00"));
    EXPECT_EQ(segment.Item(0x3F0A), Hex("00 00 00 03 00 00 00 0B  00 00 C0 00 00 00 00 00 00 00 00"
                                        "FF 80 22 01 02 03 04 05 06 07 08  7F FE 3B 7F FF FF FF FF FF FF FF"));
}

TEST(Op1bBase, TheNextSegmentBeginsWithTheNextFrame) {
    auto builder = Builder(1);
    HeaderOf(*builder);
    std::set<std::vector<uint8_t>> uids;
    const auto segmentOf = [&](const std::vector<uint8_t>& bytes) {
        const auto packet = Packets(bytes, 156, bytes.size()).front();
        EXPECT_TRUE(uids.insert(UidOf(packet)).second);
        return packet;
    };
    for (uint32_t group = 0; group < 3; ++group) {
        SCOPED_TRACE(group);
        for (int i = 0; i < 2; ++i) builder->AddIndexEntry(0, 0, 0, 0);
        builder->SetBodyPartitionParamVideo(1, 0, 2, true, false);
        const auto video = segmentOf(VideoPartitionOf(*builder, true));
        EXPECT_EQ(BigEndian(video.Item(0x3F0C)), 2 * group);
        EXPECT_EQ(BigEndian(video.Item(0x3F0D)), 2u);
        EXPECT_EQ(BigEndian(std::span(video.value).last(30).first(4)), 2u);  // its entries alone
        const auto anc = ANCBlockOf(*builder, 1, 2);
        const auto packets = Packets(anc, 0, anc.size());
        EXPECT_EQ(BigEndian(packets.back().Item(0x3F0C)), 2 * group);
        EXPECT_TRUE(uids.insert(UidOf(packets.back())).second);
        builder->SetBodyPartitionParamAudio(1, 0, 2, 0, true, false);
        const auto sound = segmentOf(AudioPartitionOf(*builder, true, 0));
        constexpr uint64_t kStarts[] = {0, 3204, 6408};
        EXPECT_EQ(BigEndian(sound.Item(0x3F0C)), kStarts[group]);
        EXPECT_EQ(BigEndian(sound.Item(0x3F0D)), 3204u);
    }
}

TEST(Op1bBase, AnANCBlockIsBodyElementsAndIndex) {
    auto builder = Builder(2, VIDEO_STD_25P);
    HeaderOf(*builder);
    for (int i = 0; i < 52; ++i) builder->AddIndexEntry(0, 0, 0, 0);
    EXPECT_EQ(builder->GetBodyPartitionSizeANCData(2), 1436u);  // 2 x 156 + 2 x 512 + 100
    const auto block = ANCBlockOf(*builder, 0x30000, 2);
    ASSERT_EQ(block.size(), 1436u);
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 03 00 00  00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00"
                              "00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00"
                              "00 00 00 00  00 00 00 00 00 00 64 00  00 00 00 02"),  // 50 frames before it
                          FieldsOf(block)));
    auto element =
        Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 17 01 02 01  83 00 00 02  00 00"
            "06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00  83 00 01 D6");
    element.resize(512);
    EXPECT_TRUE(SameBytes(element, std::span(block).subspan(156, 512)));
    EXPECT_TRUE(SameBytes(element, std::span(block).subspan(668, 512)));
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 03 04 9C  00 00 00 00 00 03 00 00  00 00 00 00 00 00 00 00"
                              "00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 64"
                              "00 00 00 66  00 00 00 00 00 00 00 00  00 00 00 00"),
                          std::span(block).subspan(1180 + 28, 56)));
    const auto segment = Packets(block, 1336, block.size()).front();
    EXPECT_EQ(segment.End() - segment.offset, 100u);
    EXPECT_EQ(segment.Item(0x3F0B), Hex("00 00 00 19 00 00 00 01"));
    EXPECT_EQ(segment.Item(0x3F0D), Hex("00 00 00 00 00 00 00 02"));
    EXPECT_EQ(segment.Item(0x3F05), Hex("00 00 02 00"));
    EXPECT_EQ(segment.Item(0x3F06), Hex("00 00 00 66"));
    EXPECT_EQ(segment.Item(0x3F07), Hex("00 00 00 02"));
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 11 01 00  83 00 00 28"
                              "00 00 00 00 00 00 00 00 00 00 00 00  00 00 00 02 00 00 00 00 00 03 00 00"
                              "00 00 00 00 00 00 00 00 00 03 04 9C  00 00 00 3C"),
                          RandomIndexOf(*builder)));
}

TEST(Op1bBase, AnANCBlockThatNoBufferCanHoldFails) {
    auto builder = Builder();
    HeaderOf(*builder);
    uint8_t* data = nullptr;
    EXPECT_EQ(builder->GetBodyPartitionDataANCData(&data, 0, 8388608), kStatusNoMemory);  // 4 GiB and 412 bytes
    EXPECT_EQ(data, nullptr);
}

TEST(Op1bBase, SoundPartitionsAreThoseOfTheirChannel) {
    auto builder = Builder(2, VIDEO_STD_59_94I, 3);
    HeaderOf(*builder);
    builder->SetBodyPartitionParamAudio(0x40000, 0x99, 60, 1, false, true);
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 04 00 00  00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00"
                              "00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00"
                              "00 00 00 00  00 00 00 00 00 00 00 99  00 00 00 04"),
                          FieldsOf(AudioPartitionOf(*builder, false, 1))));
    builder->SetBodyPartitionParamAudio(0x50000, 0x99, 60, 1, true, false);
    const auto bytes = AudioPartitionOf(*builder, true, 1);
    ASSERT_EQ(bytes.size(), 256u);
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 05 00 00  00 00 00 00 00 04 00 00  00 00 00 00 00 00 00 00"
                              "00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 64"
                              "00 00 00 68  00 00 00 00 00 00 00 00  00 00 00 00"),
                          FieldsOf(bytes)));
    const auto segment = Packets(bytes, 156, bytes.size()).front();
    EXPECT_EQ(segment.Item(0x3F0B), Hex("00 00 BB 80 00 00 00 01"));
    EXPECT_EQ(segment.Item(0x3F0D), Hex("00 00 00 00 00 01 77 60"));  // 12 x 8008
    EXPECT_EQ(segment.Item(0x3F05), Hex("00 00 00 03"));
    EXPECT_EQ(segment.Item(0x3F06), Hex("00 00 00 68"));
    EXPECT_EQ(segment.Item(0x3F07), Hex("00 00 00 04"));
}

TEST(Op1bBase, AChannelThatTheClipDoesNotHaveFails) {
    auto builder = Builder(2);
    HeaderOf(*builder);
    uint8_t* data = nullptr;
    EXPECT_EQ(builder->SetBodyPartitionParamAudio(1, 0, 1, 2, false, true), kStatusFailure);
    EXPECT_EQ(builder->SetBodyPartitionParamAudio(1, 0, 1, 255, false, true), kStatusFailure);
    EXPECT_EQ(builder->GetBodyPartitionDataAudio(&data, true, 2), kStatusFailure);
    EXPECT_EQ(builder->GetRandomIndexSize(), 36u);
    EXPECT_EQ(data, nullptr);
}

TEST(Op1bBase, APartitionMayHaveIndexAndEssence) {
    auto builder = Builder();
    HeaderOf(*builder);
    builder->AddIndexEntry(0, 0, 0, 0);
    builder->SetBodyPartitionParamVideo(0x20000, 0x77, 1, true, true);
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 02 00 00  00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00"
                              "00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 A4"
                              "00 00 00 65  00 00 00 00 00 00 00 77  00 00 00 01"),
                          FieldsOf(VideoPartitionOf(*builder, true))));
}

TEST(Op1bBase, AFillerSizeIsTakenBackByTheNextHeader) {
    auto builder = Builder();
    const auto header = HeaderOf(*builder);
    EXPECT_EQ(builder->AddFillerSize(100), kStatusOk);
    EXPECT_TRUE(SameBytes(header, HeaderOf(*builder)));
}

// --- footer and random index ---

// Writes one group of two frames with one channel, and returns its segments in the order in which they were written.
std::vector<uint8_t> BuildGroup(COp1bBase& builder) {
    HeaderOf(builder);
    for (int i = 0; i < 2; ++i) builder.AddIndexEntry(0, 0, 0, 0);
    std::vector<uint8_t> segments;
    const auto keep = [&](const std::vector<uint8_t>& segment) {
        segments.insert(segments.end(), segment.begin(), segment.end());
    };
    builder.SetBodyPartitionParamVideo(0x20000, 0, 2, true, false);
    keep(Cut(VideoPartitionOf(builder, true), 156, 152));
    keep(Cut(ANCBlockOf(builder, 0x20200, 2), 1336, 100));
    builder.SetBodyPartitionParamAudio(0x20800, 0, 2, 0, true, false);
    keep(Cut(AudioPartitionOf(builder, true, 0), 156, 100));
    return segments;
}

TEST(Op1bBase, TheFooterRepeatsAllSegments) {
    auto builder = Builder(1);
    auto segments = BuildGroup(*builder);
    const auto more = BuildGroup(*builder);
    segments.insert(segments.end(), more.begin(), more.end());
    ASSERT_EQ(segments.size(), 704u);
    EXPECT_EQ(builder->SetFooterPartitionParam(0x30000), kStatusOk);
    EXPECT_EQ(builder->GetFooterSize(), 860u);
    const auto footer = FooterOf(*builder);
    ASSERT_EQ(footer.size(), 860u);
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 04 04 00  83 00 00 88"
                              "00 01 00 03 00 00 00 01"
                              "00 00 00 00 00 03 00 00  00 00 00 00 00 02 08 00  00 00 00 00 00 03 00 00"
                              "00 00 00 00 00 00 00 00  00 00 00 00 00 00 02 C0"
                              "00 00 00 65  00 00 00 00 00 00 00 00  00 00 00 00"),
                          std::span(footer).first(84)));
    EXPECT_TRUE(SameBytes(segments, std::span(footer).subspan(156)));
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 03 00 00"), Cut(HeaderOf(*builder), 44, 8)));
}

TEST(Op1bBase, FillItemsAreNotRepeatedInTheFooter) {
    auto builder = Builder();
    HeaderOf(*builder);
    builder->AddIndexEntry(0, 0, 0, 0);
    builder->SetBodyPartitionParamVideo(0x20000, 0, 1, true, false);
    VideoPartitionOf(*builder, true);
    EXPECT_EQ(builder->GetFooterSize(), 156u + 141);
}

TEST(Op1bBase, WithoutKeepingTheFooterIsOnePack) {
    COp1bBase builder(VIDEO_STD_59_94I, COMP_TYPE_LONGG25_1080, 2, 1);
    EXPECT_EQ(builder.Initialize(false), kStatusOk);
    BuildGroup(builder);
    EXPECT_EQ(builder.GetFooterSize(), 156u);
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00  00 00 00 00"),
                          Cut(FooterOf(builder), 60, 24)));  // no index, no IndexSID
}

TEST(Op1bBase, TheFooterIsEnteredOnce) {
    auto builder = Builder();
    HeaderOf(*builder);
    builder->SetBodyPartitionParamVideo(0x20000, 0, 1, false, true);
    EXPECT_EQ(builder->SetFooterPartitionParam(0x12345), kStatusOk);
    EXPECT_EQ(builder->SetFooterPartitionParam(0x12345), kStatusOk);
    EXPECT_EQ(builder->GetRandomIndexSize(), 60u);
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 11 01 00  83 00 00 28"
                              "00 00 00 00 00 00 00 00 00 00 00 00  00 00 00 01 00 00 00 00 00 02 00 00"
                              "00 00 00 00 00 00 00 00 00 01 23 45  00 00 00 3C"),
                          RandomIndexOf(*builder)));
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 01 23 45  00 00 00 00 00 02 00 00  00 00 00 00 00 01 23 45"),
                          Cut(FooterOf(*builder), 28, 24)));
}

TEST(Op1bBase, FooterPositionsCanBeSetOneByOne) {
    auto builder = Builder();
    EXPECT_EQ(builder->SetFooterPartitionPos(0x1122), kStatusOk);
    EXPECT_EQ(builder->SetFooterPrevPartitionPos(0x3344), kStatusOk);
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 00 11 22  00 00 00 00 00 00 33 44  00 00 00 00 00 00 11 22"),
                          Cut(FooterOf(*builder), 28, 24)));
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 00 11 22"), Cut(HeaderOf(*builder), 44, 8)));
    EXPECT_EQ(builder->GetRandomIndexSize(), 36u);  // the header alone
}

TEST(Op1bBase, EntriesAndSegmentsOfAnotherFileAreTakenOver) {
    auto builder = Builder();
    EXPECT_EQ(builder->AddPartitionInfo({0x20000, 1}), kStatusOk);
    EXPECT_EQ(builder->AddPartitionInfo({0x30000, 0}), kStatusOk);
    HeaderOf(*builder);  // not entered: there are entries already
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 11 01 00  83 00 00 1C"
                              "00 00 00 01 00 00 00 00 00 02 00 00  00 00 00 00 00 00 00 00 00 03 00 00  00 00 00 30"),
                          RandomIndexOf(*builder)));
    CIndexCommon segment(1, 0, 0, 0);
    segment.SetDuration(9);
    EXPECT_EQ(builder->AddFooterIndex(segment), kStatusOk);
    uint8_t* data = nullptr;
    ASSERT_EQ(segment.GetData(&data), kStatusOk);
    const auto expected = TakeBytes(data, segment.GetLength());
    const auto footer = FooterOf(*builder);
    ASSERT_EQ(footer.size(), 256u);
    EXPECT_TRUE(SameBytes(expected, std::span(footer).last(100)));
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 00 00 64 00 00 00 65"), std::span(footer).subspan(60, 12)));
}

TEST(Op1bBase, TheNextPartitionFollowsEntriesTakenOver) {
    auto builder = Builder();
    builder->AddPartitionInfo({0x20000, 1});
    builder->AddPartitionInfo({0x30000, 0});
    EXPECT_EQ(builder->SetFooterPartitionParam(0x40000), kStatusOk);
    EXPECT_TRUE(SameBytes(Hex("00 00 00 00 00 03 00 00"), Cut(FooterOf(*builder), 36, 8)));
}

// --- the layout for other players ---

TEST(Op1bBase, PlayersLayoutHasAPackageForEachChannel) {
    auto builder = Builder(2, VIDEO_STD_59_94I, 2, true);
    const auto packets = PacketsOf(*builder);
    EXPECT_EQ(KindsOf(packets), Hex(R"(
        2F 30 18 23 23 23 23
        36 3B 0F 14 3B 0F 11 3B 0F 11 3B 0F 11 3B 0F 11   // material package
        37 3B 0F 14 3B 0F 11 3B 0F 11                     // file package: timecode, picture, ANC
        44 28 6E 5C 47 47                                 // descriptors
        37 3B 0F 11 37 3B 0F 11                           // file packages of the sound
    )"));
    EXPECT_EQ(builder->GetHeaderMetadataSize(), 8250u);  // 7826 + 128 + 2 x 148
}

TEST(Op1bBase, PlayersLayoutNamesAMultipleDescriptor) {
    auto builder = Builder(2, VIDEO_STD_25P, 2, true);
    const auto packets = PacketsOf(*builder);
    const auto multiple = SetsOfKind(packets, 0x44).front();
    EXPECT_EQ(multiple.key, Hex("06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 44 00"));
    ASSERT_EQ(multiple.value.size(), 108u);
    EXPECT_TRUE(SameBytes(Hex("3C 0A 00 10"), std::span(multiple.value).first(4)));
    EXPECT_TRUE(SameBytes(Hex("30 01 00 08 00 00 00 19 00 00 00 01  30 02 00 08 00 00 00 00 00 00 00 00"
                              "30 04 00 10 06 0E 2B 34 04 01 01 03 0D 01 03 01 02 7F 01 00"
                              "3F 01 00 28 00 00 00 02 00 00 00 10"),
                          std::span(multiple.value).subspan(20, 56)));
    EXPECT_EQ(Batch(multiple, 0x3F01),
              (Uids{UidOf(SetsOfKind(packets, 0x28).front()), UidOf(SetsOfKind(packets, 0x5C).front())}));

    const auto packages = PackagesOf(packets);
    ASSERT_EQ(packages.size(), 4u);
    EXPECT_EQ(packages[1].set.Item(0x4701), UidOf(multiple));
    EXPECT_EQ(packages[2].set.Item(0x4701), UidOf(SetsOfKind(packets, 0x47)[0]));
    EXPECT_EQ(packages[3].set.Item(0x4701), UidOf(SetsOfKind(packets, 0x47)[1]));
    Uids uids;
    for (const Package& package : packages) uids.push_back(UidOf(package.set));
    EXPECT_EQ(Batch(SetsOfKind(packets, 0x18).front(), 0x1901), uids);
}

TEST(Op1bBase, PlayersLayoutCountsUMIDsAndKeepsTrackNumbers) {
    auto builder = Builder(2, VIDEO_STD_25P, 2, true);
    builder->SetUMID(Umid(0xFD));
    builder->SetDuration(100);
    builder->SetOrigin(2);
    const auto packets = PacketsOf(*builder);
    const auto packages = PackagesOf(packets);
    ASSERT_EQ(packages.size(), 4u);
    ASSERT_EQ(packages[0].chains.size(), 5u);
    ASSERT_EQ(packages[1].chains.size(), 3u);
    constexpr uint8_t kInstances[] = {0xFD, 0xFE, 0xFF, 0x00};  // counted modulo 256
    for (size_t p = 0; p < 4; ++p) EXPECT_EQ(packages[p].set.Item(0x4401), BytesOf(Umid(kInstances[p])));
    for (size_t c = 0; c < 2; ++c) {
        SCOPED_TRACE(c);
        const Package& sound = packages[2 + c];
        ASSERT_EQ(sound.chains.size(), 1u);
        const Chain& chain = sound.chains[0];
        EXPECT_EQ(Batch(sound.set, 0x4403), Uids{UidOf(chain.track)});
        EXPECT_EQ(BigEndian(chain.track.Item(0x4801)), 4 + c);
        EXPECT_EQ(BigEndian(chain.track.Item(0x4804)), 0x16010C01u);
        EXPECT_EQ(chain.track.Item(0x4B01), Hex("00 00 BB 80 00 00 00 01"));
        EXPECT_EQ(BigEndian(chain.track.Item(0x4B02)), 3840u);
        EXPECT_EQ(BigEndian(chain.sequence.Item(0x0202)), 188160u);
        EXPECT_EQ(BigEndian(chain.component.Item(0x0202)), 188160u);
        EXPECT_EQ(chain.component.Item(0x1101), std::vector<uint8_t>(32));
        EXPECT_EQ(chain.track.Item(0x4803), UidOf(chain.sequence));
        EXPECT_EQ(Batch(chain.sequence, 0x1001), Uids{UidOf(chain.component)});
        const Chain& material = packages[0].chains[3 + c];
        EXPECT_EQ(material.component.Item(0x1101), BytesOf(Umid(kInstances[2 + c])));
        EXPECT_EQ(BigEndian(material.component.Item(0x1102)), 4 + c);
        EXPECT_EQ(SetsOfKind(packets, 0x23)[2 + c].Item(0x2701), BytesOf(Umid(kInstances[2 + c])));
    }
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(SetsOfKind(packets, 0x23)[i].Item(0x2701), BytesOf(Umid(0xFE)));
        EXPECT_EQ(packages[0].chains[1 + i].component.Item(0x1101), BytesOf(Umid(0xFE)));
    }
}

TEST(Op1bBase, PlayersLayoutWithoutSoundHasOneFilePackage) {
    auto builder = Builder(0, VIDEO_STD_25P, 2, true);
    const auto packets = PacketsOf(*builder);
    EXPECT_EQ(PackagesOf(packets).size(), 2u);
    EXPECT_EQ(SetsOfKind(packets, 0x44).size(), 1u);
}

TEST(Op1bBase, BodyAndFooterAreTheSameInBothLayouts) {
    Uids files;
    for (const bool players : {false, true}) {
        auto builder = Builder(1, VIDEO_STD_25P, 2, players);
        HeaderOf(*builder);
        builder->SetBodyPartitionParamVideo(0x20000, 0, 1, false, true);
        builder->SetFooterPartitionParam(0x30000);
        files.push_back(VideoPartitionOf(*builder, false));
        for (const auto& part : {FooterOf(*builder), RandomIndexOf(*builder)}) {
            files.back().insert(files.back().end(), part.begin(), part.end());
        }
    }
    EXPECT_TRUE(SameBytes(files[0], files[1]));
}

}  // namespace
}  // namespace kmxf::test
