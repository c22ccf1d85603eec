#include "kmxf/tools/Check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>

#include "core/LocalTags.h"
#include "reader/FailingAllocation.h"
#include "tools/CheckFiles.h"
#include "tools/CheckModel.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;

constexpr uint32_t kStandards[] = {VIDEO_STD_59_94I, VIDEO_STD_50I, VIDEO_STD_23_98P, VIDEO_STD_29_97P,
                                   VIDEO_STD_59_94P, VIDEO_STD_25P, VIDEO_STD_50P};

TEST(Check, OpAtomPicturesOfEveryFormatAreGood) {
    for (const uint32_t compType : {COMP_TYPE_DV25, COMP_TYPE_DV50, COMP_TYPE_DV100_1080I, COMP_TYPE_DV100_720P,
                                    COMP_TYPE_AVCI50_1080, COMP_TYPE_AVCI50_720, COMP_TYPE_AVCI100_1080,
                                    COMP_TYPE_AVCI100_720, COMP_TYPE_AVCI200_1080, COMP_TYPE_AVCI200_720}) {
        for (const uint32_t videoStd : kStandards) {
            if (GetFrameDataSize(videoStd, compType) == 0) continue;
            const AtomFile atom{.videoStd = videoStd, .compType = compType};
            EXPECT_THAT(Checked(Record(atom)), IsEmpty()) << std::hex << videoStd << " " << compType;
        }
    }
    for (const uint32_t videoStd : {VIDEO_STD_59_94I, VIDEO_STD_50I})
        EXPECT_THAT(Checked(Record(AtomFile{.videoStd = videoStd, .consumerDV = true})), IsEmpty());
}

TEST(Check, OpAtomSoundOfEveryStandardAndLengthIsGood) {
    for (const uint32_t videoStd : kStandards) {
        for (const uint32_t rate : {48000u, 96000u}) {
            for (int64_t frames = 1; frames <= 13; ++frames) {
                const AtomFile atom{.videoStd = videoStd,
                                    .compType = 0,
                                    .frames = frames,
                                    .samplesPerSec = rate,
                                    .bytesPerSample = static_cast<uint16_t>(2 + frames % 2)};
                EXPECT_THAT(Checked(Record(atom)), IsEmpty()) << std::hex << videoStd << " " << rate << " " << frames;
            }
        }
    }
}

TEST(Check, OpAtomFilesWithAllThatMayBeSetAreGood) {
    const auto spanned = [](CCreateMXFBase& writer) { writer.SetPrevDuration(1501); };
    const auto described = [](CCreateMXFBase& writer) { writer.SetDescriptiveMetadata(TestMetadata()); };
    const auto plain = [](CCreateMXFBase& writer) {
        writer.SetUMID({});
        writer.SetShotUMID({});
        writer.SetPackageName("");
        writer.SetStartTimecode(0, false);
    };
    for (const auto& with : std::initializer_list<std::function<void(CCreateMXFBase&)>>{spanned, described, plain}) {
        for (const uint32_t compType : {COMP_TYPE_DV25, COMP_TYPE_AVCI100_1080, 0u}) {
            for (const uint32_t clipType : {0x10101u, 0x10110u, 0x10401u}) {
                for (const int64_t frames : {1, 2, 3}) {
                    const AtomFile atom{.compType = compType, .clipType = clipType, .frames = frames, .with = with};
                    EXPECT_THAT(Checked(Record(atom)), IsEmpty()) << compType << " " << clipType << " " << frames;
                }
            }
        }
    }
    EXPECT_THAT(Checked(Record(AtomFile{.compType = 0, .clipType = 0x10002, .channel = 1})), IsEmpty());
}

TEST(Check, Op1bFilesOfEveryStandardAndLayoutAreGood) {
    for (const Op1bStandard& standard : Op1bStandards()) {
        for (const bool players : {false, true}) {
            for (const uint32_t frames : {1u, standard.groupFrames, standard.groupFrames + 1}) {
                for (const uint8_t channels : std::initializer_list<uint8_t>{0, 1, 4}) {
                    const Op1bClip clip{.videoStd = standard.code,
                                        .compType = COMP_TYPE_LONGG25_1080,
                                        .channels = channels,
                                        .bytesPerSample = static_cast<uint8_t>(channels == 1 ? 3 : 2),
                                        .frames = frames,
                                        .players = players,
                                        .hidden = 2};
                    EXPECT_THAT(Checked(Record(clip)), IsEmpty()) << std::hex << standard.code << " " << frames;
                }
            }
        }
    }
}

TEST(Check, Op1bFilesOfEveryTypeAreGood) {
    for (const uint32_t compType :
         {COMP_TYPE_LONGG6_1080, COMP_TYPE_LONGG6_720, COMP_TYPE_LONGG12_1080, COMP_TYPE_LONGG12_720,
          COMP_TYPE_LONGG25_720, COMP_TYPE_LONGG50_1080, COMP_TYPE_LONGG50_720}) {
        for (const uint32_t videoStd : {VIDEO_STD_29_97P, VIDEO_STD_59_94P, VIDEO_STD_50P}) {
            const Op1bClip clip{.videoStd = videoStd, .compType = compType, .channels = 2};
            EXPECT_THAT(Checked(Record(clip)), IsEmpty()) << std::hex << videoStd << " " << compType;
        }
    }
}

TEST(Check, Op1bFilesWithAllThatMayBeSetAreGood) {
    const auto with = [](CCreateMXFOp1b& writer) {
        writer.SetDescriptiveMetadata(TestMetadata());
        EXPECT_EQ(writer.SetXMLData(Bytes(65535, 'x').data(), 65535), kStatusOk);
        EXPECT_EQ(writer.SetThumbnailData(Bytes(16031).data(), 16031, 80, 45, 0), kStatusOk);
        writer.SetThumbnailPosition(1);
    };
    for (const bool players : {false, true}) {
        const Op1bClip clip{.videoStd = VIDEO_STD_50P,
                            .compType = COMP_TYPE_LONGG50_1080,
                            .channels = 22,
                            .frames = 201,
                            .players = players};
        EXPECT_THAT(Checked(Record(clip, with)), IsEmpty());
    }
}

// --- recordings that were cut off ---

const std::string kCutOff =
    "PP-001 44: expected the place of a footer partition, found FooterPartition 0: the recording was cut off";

Bytes FirstBytes(const Bytes& file, size_t size) {
    return {file.begin(), file.begin() + static_cast<std::ptrdiff_t>(size)};
}

// Sizes at which a file may have been cut: at the ends of packets, next to them, and in between.
std::vector<size_t> CutSizes(const Bytes& file) {
    std::vector<size_t> sizes;
    size_t number = 0;
    for (const WalkedPacket& packet : Walk(file)) {
        if (packet.offset > 140000 && number++ % 37 != 0) continue;
        for (const uint64_t size : {packet.End() - 1, packet.End(), packet.End() + 1, packet.offset + packet.headSize})
            if (size >= 108 && size < file.size()) sizes.push_back(static_cast<size_t>(size));
    }
    for (size_t size = 108; size < std::min<size_t>(file.size(), 40000); size += 1997) sizes.push_back(size);
    return sizes;
}

TEST(Check, RecordingThatWasCutOffAnywhereIsOneFinding) {
    for (const uint32_t compType : {COMP_TYPE_DV25, COMP_TYPE_AVCI100_1080, 0u}) {
        const Bytes open = Record(AtomFile{.compType = compType, .close = false});
        for (const size_t size : CutSizes(open))
            ASSERT_THAT(Checked(FirstBytes(open, size)), ElementsAre(kCutOff)) << compType << " " << size;
    }
    const Op1bClip clip{.videoStd = VIDEO_STD_50P, .compType = COMP_TYPE_LONGG6_720, .channels = 2, .frames = 205};
    const Bytes open = Record(clip, {}, false);
    EXPECT_THAT(Checked(open), ElementsAre(kCutOff));
    for (const size_t size : CutSizes(open)) {
        ASSERT_THAT(Checked(FirstBytes(open, size)), ElementsAre(kCutOff)) << size;
    }
}

TEST(Check, FileThatLostItsEndIsOneFinding) {
    const Op1bClip clip{.videoStd = VIDEO_STD_25P, .compType = COMP_TYPE_LONGG6_720, .channels = 1, .frames = 52};
    for (const Bytes& whole : {Record(AtomFile{}), Record(AtomFile{.compType = 0}), Record(clip)}) {
        const size_t footer = Named(Walk(whole), "FooterPartitionPack")[0].offset;
        for (const size_t size : CutSizes(whole)) {
            if (size >= footer) continue;
            ASSERT_THAT(Checked(FirstBytes(whole, size)),
                        ElementsAre("PP-001 44: expected the place of a footer partition, found FooterPartition " +
                                    std::to_string(footer) + ": the file ends at " + std::to_string(size)));
        }
    }
}

TEST(Check, FileThatLostPartOfItsFooterSaysWhat) {
    const Bytes whole = Record(AtomFile{});
    const std::string footer = std::to_string(whole.size() - 224);
    EXPECT_THAT(Checked(FirstBytes(whole, whole.size() - 1)),
                ElementsAre("KLV-004 " + std::to_string(whole.size() - 100) + ": expected 80 bytes, found 79 bytes"));
    EXPECT_THAT(Checked(FirstBytes(whole, whole.size() - 150)),
                ElementsAre("PP-001 44: expected the place of a footer partition, found FooterPartition " + footer +
                            ": it is cut off"));
    const Bytes clip = Record(Op1bClip{.videoStd = VIDEO_STD_25P, .compType = COMP_TYPE_LONGG6_720});
    EXPECT_THAT(Checked(FirstBytes(clip, clip.size() - 1)),
                ElementsAre("KLV-004 " + std::to_string(clip.size() - 96) + ": expected 76 bytes, found 75 bytes"));
}

TEST(Check, FileCutWithinItsFirstPackIsCutOffOrNoMXFFile) {
    const Bytes whole = Record(AtomFile{});
    for (size_t size = 0; size < 20; ++size)
        EXPECT_THAT(Checked(FirstBytes(whole, size)),
                    ElementsAre("KLV-001 0: expected a partition pack, found none in " + std::to_string(size) +
                                (size == 1 ? " byte" : " bytes")));
    for (size_t size = 20; size < 108; ++size) {
        const auto lines = Checked(FirstBytes(whole, size));
        ASSERT_EQ(lines.size(), 1u) << size;
        EXPECT_THAT(lines[0], testing::StartsWith("PP-001 "));
    }
}

TEST(Check, WhatStandsInFrontOfACutIsHeldAgainstTheRules) {
    Bytes file = Record(AtomFile{.close = false});
    file = With(file, "Preface", 0, "Version", "0102");
    EXPECT_THAT(Checked(file), ElementsAre(kCutOff, "HM-013 2332: expected Version 1.3, found Version 1.2"));

    const Op1bClip clip{.videoStd = VIDEO_STD_25P, .compType = COMP_TYPE_LONGG6_720, .frames = 101};
    file = With(Record(clip, {}, false), "IndexTableSegment", 0, "IndexDuration", "0000000000000007");
    EXPECT_EQ(Checked(file)[0], kCutOff);
    EXPECT_EQ(Checked(file)[1].substr(0, 7), "IX-003 ");
}

// --- damage ---

TEST(Check, DamageIsToldAndNotWhatFollowsFromIt) {
    const Op1bClip clip{.videoStd = VIDEO_STD_25P, .compType = COMP_TYPE_LONGG6_720, .channels = 1, .frames = 101};
    const Bytes op1b = Record(clip), atom = Record(AtomFile{});
    for (const Bytes& whole : {atom, op1b}) {
        const auto packets = Walk(whole);
        for (size_t at = 0; at + 4096 < whole.size(); at += 4999) {
            for (const bool noise : {false, true}) {
                Bytes file = whole;
                const Bytes damage = noise ? Noise(4096, static_cast<uint32_t>(at)) : Bytes(4096);
                std::ranges::copy(damage, file.begin() + static_cast<std::ptrdiff_t>(at));
                const auto lines = Checked(file);
                ASSERT_LE(lines.size(), 12u) << at << testing::PrintToString(lines);
                // A stretch as long as this covers a head, or lies within essence, fill or the thumbnail.
                const bool shown = std::ranges::any_of(packets, [&](const WalkedPacket& packet) {
                    const auto head = static_cast<std::ptrdiff_t>(packet.offset);
                    return !std::equal(file.begin() + head, file.begin() + head + packet.headSize,
                                       whole.begin() + head);
                });
                ASSERT_EQ(lines.empty(), !shown) << at << testing::PrintToString(lines);
            }
        }
    }
}

TEST(Check, OneByteChangedAnywhereInTheHeadersNeverCrashes) {
    const Bytes whole = Record(AtomFile{.compType = 0, .frames = 1});
    for (size_t at = 0; at < 7000; at += 23) {
        Bytes file = whole;
        file[at] ^= 0xFF;
        ASSERT_LE(Checked(file).size(), 130u) << at;
    }
}

// --- files of other writers ---

TEST(Check, OtherDynamicTagsAreReportedByThePrimerAndReadByTheirLabels) {
    Bytes file =
        Record(AtomFile{.with = [](CCreateMXFBase& writer) { writer.SetDescriptiveMetadata(TestMetadata()); }});
    const WalkedPacket framework = Nth(file, "ClipFramework");
    file = At(file, framework.Item("TakeNumber")->offset - 4, "9ABC");
    const WalkedPacket primer = Nth(file, "PrimerPack");
    for (const InspectedItem& entry : primer.items)
        if (entry.tag == 0x8010) file = At(file, entry.offset - 2, "9ABC");
    EXPECT_THAT(
        Checked(file),
        ElementsAre(testing::MatchesRegex(
            "HM-002 .*: expected 8010 060E2B34010101010105070000000000, found 9ABC 060E2B34010101010105070000000000")));
}

TEST(Check, AnotherOperationalPatternIsHeldAgainstWhatIsCommonToAll) {
    const std::string op1b = "060E2B34040101010D01020101020900", op1a = "060E2B34040101010D01020101010900";
    const Op1bClip clip{.videoStd = VIDEO_STD_25P, .compType = COMP_TYPE_LONGG6_720, .channels = 1, .frames = 51};
    const Bytes file = Replaced(Record(clip), op1b, op1a);
    EXPECT_THAT(Checked(file), IsEmpty());
    EXPECT_THAT(Checked(With(file, "BodyPartitionPack", 1, "ThisPartition", "0000000000000000")),
                ElementsAre(testing::StartsWith("PP-007 ")));
    EXPECT_THAT(Checked(With(file, "Track", 1, "Sequence", "77")), Not(IsEmpty()));
    EXPECT_THAT(Checked(With(file, "Preface", 0, "Version", "0102")), IsEmpty());  // a rule of our layouts
}

TEST(Check, TooManyPlacesOfARuleAreCounted) {
    Bytes file = Record(Op1bClip{.videoStd = VIDEO_STD_50P, .compType = COMP_TYPE_LONGG6_720, .frames = 100});
    for (const WalkedPacket& packet : Walk(file))
        if (packet.name == "Fill" && packet.offset > 131072) file = At(file, packet.offset + 7, "01");
    const auto lines = Checked(file);
    ASSERT_EQ(lines.size(), 100u);
    EXPECT_THAT(lines[98], testing::EndsWith("found 060E2B34010101010301021001000000"));
    EXPECT_THAT(lines[99], testing::EndsWith("found 060E2B34010101010301021001000000 (and 1 more place)"));
}

// --- clips ---

std::vector<Bytes> ClipOf3() {
    return {Record(AtomFile{.clipType = 0x102}), Record(AtomFile{.compType = 0, .clipType = 0x102}),
            Record(AtomFile{.compType = 0, .clipType = 0x102, .channel = 1})};
}

TEST(Check, GoodClipsHaveNoFinding) {
    EXPECT_THAT(CheckedClip(ClipOf3()), IsEmpty());
    EXPECT_THAT(CheckedClip({}), IsEmpty());
    // DV counts an even number of frames in its header, but it has all of them.
    EXPECT_THAT(CheckedClip({Record(AtomFile{.clipType = 0x101, .frames = 3}),
                             Record(AtomFile{.compType = 0, .clipType = 0x101, .frames = 3})}),
                IsEmpty());
    // Sound without a picture: nobody tells the rate, only the samples can be compared.
    std::vector<Bytes> sound;
    for (const uint32_t channel : {0u, 1u})
        sound.push_back(Record(AtomFile{.compType = 0, .clipType = 0x2, .channel = channel, .frames = 7}));
    EXPECT_THAT(CheckedClip(sound), IsEmpty());
    sound[1] = Record(AtomFile{.compType = 0, .clipType = 0x2, .channel = 1, .frames = 8});
    EXPECT_THAT(CheckedClip(sound), ElementsAre("file 1 CL-006 32744: expected 11212 samples, found 12812 samples"));
}

TEST(Check, FilesThatWereCutOffHaveNoPartInTheComparison) {
    std::vector<Bytes> clip = ClipOf3();
    clip[1] = Record(AtomFile{.compType = 0, .clipType = 0x102, .close = false});
    EXPECT_THAT(CheckedClip(clip), ElementsAre("file 1 " + kCutOff));
    clip[0] = FirstBytes(clip[0], 5000);
    EXPECT_THAT(CheckedClip(clip).size(), 2u);
}

TEST(Check, FilesByThemselvesAreNotCompared) {
    const std::vector<Bytes> files{Record(AtomFile{.compType = 0, .clipType = 0x2, .frames = 7}),
                                   Record(AtomFile{.compType = 0, .clipType = 0x2, .channel = 1, .close = false}),
                                   Record(AtomFile{.compType = 0, .clipType = 0x2, .channel = 1, .frames = 8})};
    std::vector<MemorySource> sources(files.begin(), files.end());
    const std::vector<IByteSource*> pointers{&sources[0], &sources[1], &sources[2]};
    EXPECT_THAT(Lines(CheckFiles(pointers)), ElementsAre("file 1 " + kCutOff));
    EXPECT_THAT(CheckFiles({}), IsEmpty());
}

TEST(Check, NumbersMayBeAny) {
    const Bytes clip =
        Record(Op1bClip{.videoStd = VIDEO_STD_59_94I, .compType = COMP_TYPE_LONGG25_1080, .channels = 1, .frames = 4});
    const Bytes damaged = At(clip, Nth(clip, "AVCLongGOPElement", 1).offset, "FF");  // its group is told by the index
    for (const Bytes& file : {Record(AtomFile{}), Record(AtomFile{.compType = 0}), clip, damaged}) {
        WithExtremeNumbers(file, [](const Bytes& extreme) { EXPECT_LT(Checked(extreme).size(), 1000u); });
    }
    // Sums of two
    Bytes sum = WithAll(clip, "Track", "Origin", "0000000000000007");
    sum = WithAll(sum, "SourceClip", "Duration", "8000000000000000");
    EXPECT_THAT(Checked(sum), Not(IsEmpty()));
    const auto spanned = [](CCreateMXFBase& writer) { writer.SetPrevDuration(1501); };
    sum = Record(AtomFile{.with = spanned});
    for (const char* const set : {"Filler", "SourceClip"}) sum = WithAll(sum, set, "Duration", "7FFFFFFFFFFFFFFF");
    EXPECT_THAT(Checked(sum), Not(IsEmpty()));
}

// Each of the tracks that a package names may name thousands of components, over and over the same ones.
TEST(Check, ReferencesAreNotFollowedWithoutEnd) {
    constexpr size_t kMany = 4000;
    const auto uid = [](uint8_t number) { return Bytes(16, number); };
    const auto item = [](std::string_view name, ValueKind kind, Bytes value) {
        InspectedItem made;
        made.name = name;
        made.kind = kind;
        made.length = value.size();
        made.value = std::move(value);
        return made;
    };
    const auto list = [&](std::string_view name, uint8_t number) {
        Bytes value = Hex("00 00 0F A0 00 00 00 10");
        for (size_t i = 0; i < kMany; ++i) value.insert(value.end(), 16, number);
        return item(name, ValueKind::kKeys, std::move(value));
    };
    const auto set = [&](std::string_view name, uint8_t number, std::optional<InspectedItem> more = std::nullopt) {
        CheckedSet made;
        made.name = name;
        made.items.push_back(item("InstanceUID", ValueKind::kKey, uid(number)));
        if (more) made.items.push_back(*std::move(more));
        return made;
    };
    CheckedMetadata metadata;
    metadata.sets.push_back(set("SourcePackage", 1, list("PackageTracks", 2)));
    metadata.sets.push_back(set("Track", 2, item("Sequence", ValueKind::kKey, uid(3))));
    metadata.sets.push_back(set("Sequence", 3, list("StructuralComponents", 4)));
    metadata.sets.push_back(set("SourceClip", 4));
    metadata.Follow();
    ASSERT_EQ(metadata.sources.size(), 1u);
    size_t references = metadata.sources[0].tracks.size();
    EXPECT_EQ(references, kMany);
    for (const CheckedTrack& track : metadata.sources[0].tracks) references += track.components.size();
    EXPECT_EQ(references, kMostReferences);
}

// What a good set looks like is told by sets that are built for it. One that there is no memory for is no other set.
TEST(Check, WithoutMemoryForASetNothingIsFound) {
    const Bytes file = Record(AtomFile{.compType = COMP_TYPE_AVCI100_1080});
    size_t refused = 0;
    for (size_t size = 20; size < 300; ++size) {
        MemorySource source(file);
        const FailingAllocation failing(FailingAllocation::By::kMalloc, size);
        try {
            EXPECT_THAT(Lines(CheckFile(source)), IsEmpty()) << size;
        } catch (const std::bad_alloc&) {
            ++refused;
        }
    }
    EXPECT_GE(refused, 2u);  // the two descriptors of the picture
    MemorySource source(file);
    EXPECT_THAT(Lines(CheckFile(source)), IsEmpty());
}

// --- cost ---

// Bytes in front, and zeros behind them up to the size.
class Sparse final : public IByteSource {
public:
    Sparse(Bytes front, Bytes back, uint64_t size) : front_(std::move(front)), back_(std::move(back)), size_(size) {}
    uint64_t GetSize() override {
        ++sizes;
        return size_;
    }
    size_t Read(uint64_t offset, std::span<uint8_t> bytes) override {
        for (size_t i = 0; i < bytes.size(); ++i) {
            const uint64_t at = offset + i, behind = size_ - back_.size();
            bytes[i] = at < front_.size() ? front_[static_cast<size_t>(at)]
                       : at >= behind     ? back_[static_cast<size_t>(at - behind)]
                                          : 0;
        }
        ++reads;
        read += bytes.size();
        return bytes.size();
    }
    uint64_t reads = 0, read = 0, sizes = 0;

private:
    Bytes front_, back_;
    uint64_t size_;
};

TEST(Check, TwoGigabytesOfDVCostLessThanAThousandth) {
    const Bytes small = Record(AtomFile{});
    const int64_t frames = 17000;
    const uint64_t size = static_cast<uint64_t>(frames) * 120000;
    Bytes file = small;
    for (const char* pack : {"HeaderPartitionPack", "BodyPartitionPack", "FooterPartitionPack"})
        file = With(file, pack, 0, "FooterPartition", Number(32768 + size, 8));
    file = With(file, "FooterPartitionPack", 0, "ThisPartition", Number(32768 + size, 8));
    for (const char* set : {"Sequence", "SourceClip", "TimecodeComponent"})
        for (const WalkedPacket& packet : Named(Walk(file), set)) {
            const bool sound = packet.Item("DataDefinition")->Text() == "060E2B34040101010103020202000000";
            const int64_t duration = sound ? DurationToAudioSample(VIDEO_STD_59_94I, frames, 48000) : frames;
            file = At(file, packet.Item("Duration")->offset, Number(static_cast<uint64_t>(duration), 8));
        }
    file = WithAll(file, "CDCIDescriptor", "ContainerDuration", Number(static_cast<uint64_t>(frames), 8));
    file = WithAll(file, "IndexTableSegment", "IndexDuration", Number(static_cast<uint64_t>(frames), 8));
    file = At(file, 32761, Number(size, 7));
    Sparse source(FirstBytes(file, 32768), Bytes(file.end() - 224, file.end()), 32768 + size + 224);
    CheckCost cost;
    EXPECT_THAT(Lines(CheckFile(source, &cost)), IsEmpty());
    EXPECT_EQ(cost.reads, source.reads);
    EXPECT_EQ(cost.bytes, source.read);
    EXPECT_EQ(source.sizes, 1u);
    EXPECT_LT(cost.bytes, 65536u);
    EXPECT_LT(cost.reads, 100u);
}

TEST(Check, CostOfAClipIsThatOfItsFiles) {
    const std::vector<Bytes> files = ClipOf3();
    CheckCost sum, clip;
    std::vector<MemorySource> sources(files.begin(), files.end());
    std::vector<IByteSource*> pointers;
    for (MemorySource& source : sources) {
        CheckCost cost;
        CheckFile(source, &cost);
        sum.reads += cost.reads;
        sum.bytes += cost.bytes;
        pointers.push_back(&source);
    }
    CheckClip(pointers, &clip);
    EXPECT_EQ(clip.reads, sum.reads);
    EXPECT_EQ(clip.bytes, sum.bytes);
}

// Behind `end` nothing can be read.
class Failing final : public IByteSource {
public:
    Failing(const Bytes& bytes, uint64_t end) : bytes_(bytes), end_(end) {}
    uint64_t GetSize() override { return bytes_.size(); }
    size_t Read(uint64_t offset, std::span<uint8_t> bytes) override {
        const auto count = static_cast<size_t>(std::min<uint64_t>(bytes.size(), end_ - std::min(offset, end_)));
        std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(offset), count, bytes.begin());
        return count;
    }

private:
    const Bytes& bytes_;
    uint64_t end_;
};

TEST(Check, ReadFailureAnywhereIsAFinding) {
    const Bytes file = Record(AtomFile{});
    for (const uint64_t end : {0u, 10u, 1000u, 20000u, 32767u, 272800u, 272900u, 272991u}) {
        Failing source(file, end);
        EXPECT_THAT(CheckFile(source), Not(IsEmpty())) << end;
    }
}

}  // namespace
}  // namespace kmxf::test
