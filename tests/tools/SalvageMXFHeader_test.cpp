#include "kmxf/tools/SalvageMXF.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "kmxf/core/Status.h"
#include "support/FixedEnvironment.h"
#include "support/Hex.h"
#include "support/Packets.h"
#include "tools/AtomSalvage.h"
#include "writer/WriterDoubles.h"

// The header that is written, and the settings that go into it.
namespace kmxf::test {
namespace {

using testing::ElementsAre;

TEST_F(SalvageMXF, SalvagedFileIsTheOneThatCloseWouldHaveWritten) {
    for (const AtomFormat& format :
         {Video(VIDEO_STD_59_94I, COMP_TYPE_DV25), Video(VIDEO_STD_50P, COMP_TYPE_DV100_720P),
          Video(VIDEO_STD_50I, COMP_TYPE_AVCI100_1080), Sound(VIDEO_STD_50I), Sound(VIDEO_STD_25P, 96000, 3)}) {
        SCOPED_TRACE(format.compType);
        const Bytes essence =
            format.fileType == kFileTypeVideo ? VideoEssence(format, 2) : Noise(format.SoundSize(2), 8);
        Bytes closed, cut;
        {
            const FixedEnvironment environment;
            closed = Record(format, essence, true);
        }
        cut = CutOff(format, essence);
        const FixedEnvironment environment;
        stream = std::make_unique<FaultyStream>(cut);
        salvager = std::make_unique<CSalvageMXF>(true);
        Describe(*salvager, format);
        // The video writer has these types always wide.
        salvager->SetWide((format.compType & 0x0C00) == 0x0C00);
        ASSERT_EQ(Run(), kStatusOk);
        EXPECT_TRUE(SameBytes(closed, stream->Bytes()));
    }
}

TEST_F(SalvageMXF, EverySettingGetsIntoTheHeader) {
    const AtomFormat format = Video(VIDEO_STD_59_94I, COMP_TYPE_DV25);
    const FixedEnvironment environment;
    stream = std::make_unique<FaultyStream>(CutOff(format, VideoEssence(format, 2)));
    salvager = std::make_unique<CSalvageMXF>(true);
    Describe(*salvager, format);
    CDescriptiveMetadata metadata;
    metadata.SetSceneNumber("SCENE 42");
    salvager->SetDescriptiveMetadata(metadata);
    salvager->SetWide(true);
    salvager->SetMaterialDuration(99);
    salvager->SetPrevDuration(77);
    ASSERT_EQ(Run(), kStatusOk);
    const auto packets = Packets(stream->Bytes(), 0, 32744);
    const auto one = [&](uint8_t kind) { return SetsOfKind(packets, kind).at(0); };
    const auto material = one(0x36), file = one(0x37), identification = one(0x30), descriptor = one(0x28);
    EXPECT_EQ(material.Item(0x4401), Bytes(32, 0xB2));
    EXPECT_EQ(file.Item(0x4401), Bytes(32, 0xA1));
    EXPECT_TRUE(Contains(material.Item(0x4402), Hex("00 41 00 30 00 30 00 31 00 43 00 30 00 30 00 37")));
    EXPECT_EQ(material.Item(0x4405), Hex("07 EA 01 02 03 04 05 00")) << "created now";
    EXPECT_TRUE(Contains(identification.Item(0x3C01), Hex("00 43 00 6F 00 6D 00 70 00 61 00 6E 00 79 00 00")));
    EXPECT_EQ(identification.Item(0x3C05), Bytes(16, 0x77));
    EXPECT_EQ(one(0x14).Item(0x1501), Hex("00 00 00 00 00 01 A5 74")) << "start timecode 107892";
    EXPECT_EQ(one(0x14).Item(0x1503), Hex("01"));
    EXPECT_EQ(descriptor.Item(0x320E), Hex("00 00 00 10 00 00 00 09")) << "16:9";
    EXPECT_EQ(descriptor.Item(0x3002), Hex("00 00 00 00 00 00 00 02"));
    EXPECT_EQ(SetsOfKind(packets, 0x09).at(0).Item(0x0202), Hex("00 00 00 00 00 00 00 4D")) << "77 frames elsewhere";
    EXPECT_TRUE(Contains(stream->Bytes(), Hex("53 43 45 4E 45 20 34 32"))) << "the scene number";
}

TEST_F(SalvageMXF, WithoutAShotUMIDBothPackagesHaveTheOneUMID) {
    const AtomFormat format = Sound(VIDEO_STD_50I);
    stream = std::make_unique<FaultyStream>(CutOff(format, Noise(3840, 1)));
    salvager = std::make_unique<CSalvageMXF>(true);
    Describe(*salvager, format);
    salvager->SetShotUMID({});
    ASSERT_EQ(Run(), kStatusOk);
    const auto packets = Packets(stream->Bytes(), 0, 32744);
    EXPECT_EQ(SetsOfKind(packets, 0x36).at(0).Item(0x4401), Bytes(32, 0xA1));
}

TEST_F(SalvageMXF, LostHeaderIsNoMatter) {
    const AtomFormat format = Video(VIDEO_STD_59_94P, COMP_TYPE_AVCI50_720);
    const Bytes original = CutOff(format, VideoEssence(format, 2));
    Bytes file = original;
    const Bytes noise = Noise(kHeaderArea, 1);
    std::ranges::copy(noise, file.begin());
    ASSERT_EQ(Salvage(format, file, true), kStatusOk);
    ExpectWhole(format, original, 2, 512 + 2 * 116224);
}

TEST_F(SalvageMXF, SalvagedTwiceChangesNothing) {
    struct Row {
        AtomFormat format;
        size_t size;
        bool completed;
    };
    const AtomFormat dv = Video(VIDEO_STD_59_94I, COMP_TYPE_DV25), sound = Sound(VIDEO_STD_59_94P, 96000, 3);
    for (const Row& row :
         {Row{dv, 120000 * 2, true}, Row{dv, 120000 * 2 + 100, true}, Row{dv, 120000 * 2 + 90000, true},
          Row{dv, kVideoCut + 120000 * 2 + 5, false}, Row{sound, 14424 * 3, true}, Row{sound, 14424 * 3 + 2000, true},
          Row{sound, 131072 + 50000, false}}) {
        SCOPED_TRACE(row.size);
        const Bytes file = CutOff(row.format, Noise(row.size, 4));
        const auto salvaged = [&](const Bytes& bytes) {
            const FixedEnvironment environment;
            EXPECT_EQ(Salvage(row.format, bytes, row.completed), kStatusOk);
            return stream->Bytes();
        };
        const Bytes once = salvaged(file);
        EXPECT_FALSE(std::ranges::equal(file, once));
        EXPECT_TRUE(SameBytes(once, salvaged(once)));
    }
}

TEST_F(SalvageMXF, OddSampleSizesAndRatesAreStoredAsTheUsual) {
    const AtomFormat format = Sound(VIDEO_STD_50I);
    for (const uint16_t bytes : {uint16_t{0}, uint16_t{4}, uint16_t{24}}) {
        const Bytes file = CutOff(format, Noise(3840 * 2, 1));
        stream = std::make_unique<FaultyStream>(file);
        salvager = std::make_unique<CSalvageMXF>(true);
        Describe(*salvager, format);
        EXPECT_EQ(salvager->SetBytesPerSample(3), kStatusOk);
        EXPECT_EQ(salvager->SetBytesPerSample(bytes), kStatusOk);
        EXPECT_EQ(salvager->SetSamplesPerSec(96000), kStatusOk);
        EXPECT_EQ(salvager->SetSamplesPerSec(44100), kStatusOk);
        ASSERT_EQ(Run(), kStatusOk);
        ExpectWhole(format, file, 2, 7680);
    }
}

TEST_F(SalvageMXF, SettersReturnNoFailure) {
    CSalvageMXF fresh(false);
    EXPECT_EQ(fresh.SetFileType(5), kStatusOk);
    EXPECT_EQ(fresh.SetWide(true), kStatusOk);
    EXPECT_EQ(fresh.SetMaterialDuration(5), kStatusOk);
    EXPECT_EQ(fresh.SetDVType(5), kStatusOk);
    EXPECT_EQ(fresh.SetCompType(5), kStatusOk);
    EXPECT_EQ(fresh.GetOpenFlag(), 2u);
}

TEST_F(SalvageMXF, CompressionTypeIsDV25UntilItIsSetByEitherName) {
    const Bytes dv25 = CutOff(Video(VIDEO_STD_59_94I, COMP_TYPE_DV25), Noise(240000, 3));
    const Bytes dv50 = CutOff(Video(VIDEO_STD_59_94I, COMP_TYPE_DV50), Noise(240000, 3));
    const auto salvage = [&](const Bytes& file, auto set) {
        stream = std::make_unique<FaultyStream>(file);
        salvager = std::make_unique<CSalvageMXF>(true);
        salvager->SetFilename("cut.mxf");
        salvager->SetFileType(kFileTypeVideo);
        salvager->SetVideoStandard(VIDEO_STD_59_94I);
        set();
        EXPECT_EQ(Run(), kStatusOk);
        return salvager->GetDuration();
    };
    EXPECT_EQ(salvage(dv25, [] {}), 2u);
    EXPECT_EQ(salvage(dv50, [&] { salvager->SetDVType(COMP_TYPE_DV50); }), 1u);
    EXPECT_EQ(salvage(dv50, [&] { salvager->SetCompType(COMP_TYPE_DV50); }), 1u);
}

TEST_F(SalvageMXF, CompressionTypeDoesNotMakeThePictureWide) {
    const AtomFormat format = Video(VIDEO_STD_59_94P, COMP_TYPE_DV100_720P);
    ASSERT_EQ(Salvage(format, CutOff(format, VideoEssence(format, 2)), true), kStatusOk);
    const auto packets = Packets(stream->Bytes(), 0, 32744);
    EXPECT_EQ(SetsOfKind(packets, 0x28).at(0).Item(0x320E), Hex("00 00 00 04 00 00 00 03"));
}

TEST_F(SalvageMXF, EverySettingButTheNameIsResetByARun) {
    const AtomFormat format = Video(VIDEO_STD_59_94I, COMP_TYPE_DV50);
    ASSERT_EQ(Salvage(format, CutOff(format, VideoEssence(format, 2)), true), kStatusOk);
    // As sound of an unknown standard, which is what the defaults say.
    EXPECT_EQ(Run(), kStatusInvalidArgument);
    EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXF::Salvage: AudioSampleToDuration Error."));
    EXPECT_EQ(stream->Calls().at(stream->Calls().size() - 5), "Open cut.mxf 0x2");
    // And they are the same after a failure.
    Describe(*salvager, format);
    stream->FailNth(Op::kOpen, stream->Count(Op::kOpen) + 1);
    EXPECT_EQ(Run(), kStatusIoError);
    EXPECT_EQ(Run(), kStatusInvalidArgument);
    Describe(*salvager, format);
    EXPECT_EQ(Run(), kStatusOk);
    EXPECT_EQ(salvager->GetDuration(), 2u);
}

}  // namespace
}  // namespace kmxf::test
