#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>

#include "support/Op1bClip.h"
#include "tools/Extraction.h"

namespace kmxf::test {
namespace {

using testing::IsEmpty;

TEST_F(MXFExtractMetaData, DataOffsetThatIsNoMultipleOfFourIsStoredAllTheSame) {
    // The element's length in 7 bytes and less instead of 8, and the essence so much earlier.
    for (const auto& [form, expected] :
         {std::pair{uint8_t{0x86}, 32767u}, {uint8_t{0x85}, 32766u}, {uint8_t{0x84}, 32765u}}) {
        auto video = Video({}, DV25());
        video[32760] = form;
        video.erase(video.begin() + 32761, video.begin() + 32761 + (0x87 - form));
        ASSERT_EQ(ExtractClip(video), kStatusOk);
        uint32_t offset = 0;
        EXPECT_EQ(extractor.GetVideoDataOffset(&offset), kStatusInvalidArgument);
        EXPECT_EQ(offset, expected);
        EXPECT_EQ(Get<int64_t>(extractor, &C::GetVideoDataSize), 240000);
        EXPECT_EQ(Get<CTimecode>(extractor, &C::GetDIFStartTimecode).GetText(), "01:02:03;04");
    }
}

TEST_F(MXFExtractMetaData, EssenceLengthInTheShortFormIsReportedAsNone) {
    // The element's length in one byte, and the essence 7 bytes earlier.
    auto video = Video({}, DV25());
    video[32760] = 0x7F;
    video.erase(video.begin() + 32761, video.begin() + 32768);
    ASSERT_EQ(ExtractClip(video), kStatusOk);
    EXPECT_EQ(Get<int64_t>(extractor, &C::GetVideoDataSize), 0);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetVideoDuration), 2u);
    EXPECT_EQ(Get<int64_t>(extractor, &C::GetVideoFileSize), 272985);
    uint32_t offset = 0;
    EXPECT_EQ(extractor.GetVideoDataOffset(&offset), kStatusInvalidArgument);
    EXPECT_EQ(offset, 32761u);
    EXPECT_EQ(Get<CTimecode>(extractor, &C::GetDIFStartTimecode).GetText(), "01:02:03;04");
}

TEST_F(MXFExtractMetaData, OpenVideoRecordingIsReportedByItsFirstUnit) {
    auto video = Video({}, DV25());
    // As a recording that was cut off: the element is empty, the container duration 0, there is no footer.
    Patch(video, 32761, ByteVector(7));
    video = Replaced(video, Hex("30 02 00 08 00 00 00 00 00 00 00 02"), Hex("30 02 00 08 00 00 00 00 00 00 00 00"));
    video.resize(32768 + 130000);
    ASSERT_EQ(ExtractClip(video), kStatusOk);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetVideoDuration), 0u);
    EXPECT_EQ(Get<int64_t>(extractor, &C::GetVideoDataSize), 0);
    EXPECT_EQ(Get<int64_t>(extractor, &C::GetVideoFileSize), 162768);
    EXPECT_EQ(Get<CTimecode>(extractor, &C::GetDIFStartTimecode).GetText(), "01:02:03;04");
    MXFUMIDEXTag umid;
    EXPECT_EQ(extractor.GetDIFEndUMID(&umid), kNoEndUMID);
}

TEST_F(MXFExtractMetaData, OpenSoundRecordingHasNoSamples) {
    auto sound = Sound({}, 3204);
    // What the header of a recording that was cut off says: the element is empty, the container duration 0.
    Patch(sound, 32761, ByteVector(7));
    sound = Replaced(sound, Hex("30 02 00 08 00 00 00 00 00 00 0C 84"), Hex("30 02 00 08 00 00 00 00 00 00 00 00"));
    ASSERT_EQ(ExtractClip(Video({}, DV25()), {sound}), kStatusOk);
    EXPECT_EQ(Get(extractor, &C::GetAudioDuration, 0), 0u);
    EXPECT_EQ(Get(extractor, &C::GetAudioDataSize, 0), 0);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetClipDuration), 0u);
}

// Everything a video file must say, and where a row is replaced, something else.
struct Described {
    std::string_view label = "06 0E 2B 34 04 01 01 0A 0D 01 03 01 02 10 60 01";
    ByteVector descriptor = LocalItem("30 02", "00 00 00 00 00 00 00 03");
    ByteVector name = LocalItem("44 02", "00 4E 00 61 00 6D 00 65 00 00 00 58");
    ByteVector date = LocalItem("44 05", "07 EA 0C 1F 17 3B 3A 05");
    ByteVector base = LocalItem("15 02", "00 1E");
    ByteVector start = LocalItem("15 01", "00 00 00 00 00 00 07 08");
    ByteVector drop = LocalItem("15 03", "01");
    std::string_view descriptorKey = kCDCIKey;

    ByteVector Bytes(ByteVector essence) const {
        const std::string materialUMID = "A1" + std::string(31 * 2, '0'), fileUMID = "F1" + std::string(31 * 2, '0');
        OpAtomFile file;
        file.container = Hex(label);
        file.sets = Join({Packet(kMaterialKey, Join({LocalItem("44 01", materialUMID), name, date})),
                          Packet(kFilePackageKey, LocalItem("44 01", fileUMID)),
                          Packet(kTimecodeKey, Join({base, start, drop})), Packet(descriptorKey, descriptor)});
        file.essence = std::move(essence);
        return file.Bytes();
    }
};

TEST_F(MXFExtractMetaData, LongGOPPicturesAreReportedWithoutStandardAndType) {
    ASSERT_EQ(ExtractClip(Described().Bytes(ByteVector(9))), kStatusOk);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetVideoDuration), 3u);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetVideoStandard), 0u);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetDVType), 0u);
    EXPECT_TRUE(Get<bool>(extractor, &C::GetWideFlag));
    EXPECT_EQ(Get<int64_t>(extractor, &C::GetVideoDataSize), 9);
    EXPECT_EQ(Get<std::string>(extractor, &C::GetVideoClipName), "Name");
    EXPECT_EQ(Get<MXFTIMESTAMPTag>(extractor, &C::GetVideoCreationDate),
              (MXFTIMESTAMPTag{2026, 12, 31, 23, 59, 58, 5}));
    EXPECT_EQ(Get<MXFUMIDTag>(extractor, &C::GetVideoMaterialUMID).bytes[0], 0xA1);
    EXPECT_EQ(Get<MXFUMIDTag>(extractor, &C::GetVideoFileUMID).bytes[0], 0xF1);
    EXPECT_EQ(Get<CTimecode>(extractor, &C::GetVideoStartTimecode).GetText(), "00:01:00;02");  // 1800 frames
    ExpectEach(DIFAccessors(), kStatusNotFound);
    // With sound of any length the frames of a standard that is not known do not count.
    ASSERT_EQ(ExtractClip(Described().Bytes(ByteVector(9)), {Sound({}, 5)}), kStatusOk);
    EXPECT_EQ(Get(extractor, &C::GetAudioDuration, 0), 0xFFFFFFFFu);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetClipDuration), 3u);
}

TEST_F(MXFExtractMetaData, Op1bClipIsAVideoFileWhoseElementIsTheFirstPicture) {
    for (const auto& [channels, offset] : {std::pair{uint8_t{0}, 131232u}, {uint8_t{2}, 131248u}}) {
        // Packs of 140 and 156 bytes, and the element's key and length of 20.
        const Op1bClip clip{VIDEO_STD_59_94I, COMP_TYPE_LONGG25_1080, channels, 2, 3};
        ASSERT_EQ(ExtractClip(test::RecordClip(clip)), kStatusOk);
        EXPECT_EQ(Get<uint32_t>(extractor, &C::GetVideoDataOffset), offset);
        EXPECT_EQ(Get<int64_t>(extractor, &C::GetVideoDataSize), 4);
        EXPECT_EQ(Get<uint32_t>(extractor, &C::GetVideoDuration), 3u);
        EXPECT_EQ(Get<uint32_t>(extractor, &C::GetVideoStandard), 0u);
        EXPECT_EQ(Get<uint32_t>(extractor, &C::GetDVType), 0u);
        ExpectEach(DIFAccessors(), kStatusNotFound);
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(MXFExtractMetaData, UnitsOfAnUnknownRateHaveNoSizeAndCarryNothing) {
    Described file;
    const std::string label = Label("02 02 62 02");
    file.label = label;
    file.descriptor = Join({file.descriptor, LocalItem("30 01", "00 00 00 11 00 00 00 01")});
    ASSERT_EQ(ExtractClip(file.Bytes({})), kStatusOk);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetVideoStandard), 0u);
    EXPECT_EQ(Get<uint32_t>(extractor, &C::GetDVType), 0x4E00u);
    ExpectEach(DIFAccessors(), kStatusNotFound);
    MXFUMIDEXTag umid;
    EXPECT_EQ(extractor.GetDIFEndUMID(&umid), kNoEndUMID);
}

TEST_F(MXFExtractMetaData, PackageNameIsCutAtItsWidthAndOtherValuesMustFit) {
    Described file;
    file.name = LocalItem("44 02", UTF16(std::string(201, 'n')));
    ASSERT_EQ(ExtractClip(file.Bytes({})), kStatusOk);
    EXPECT_EQ(Get<std::string>(extractor, &C::GetPackageName), std::string(200, 'n'));
    file.name = LocalItem("44 02", "");
    ASSERT_EQ(ExtractClip(file.Bytes({})), kStatusOk);
    EXPECT_EQ(Get<std::string>(extractor, &C::GetPackageName), "");

    const auto tooLong = [](ByteVector item) {
        item[3] = static_cast<uint8_t>(item[3] + 1);
        item.push_back(0);
        return item;
    };
    for (const auto item :
         {&Described::descriptor, &Described::date, &Described::base, &Described::start, &Described::drop}) {
        Described other;
        other.*item = tooLong(other.*item);
        EXPECT_EQ(ExtractClip(other.Bytes({})), kStatusIoError);
        other.descriptorKey = kAES3Key;
        files["A"] = other.Bytes({});
        // The date is not asked of a sound file; this one has no bits and no rate.
        EXPECT_EQ(extractor.GetAudioInformation("A"),
                  item == &Described::date ? kStatusFailure : kStatusInvalidArgument);
    }
}

}  // namespace
}  // namespace kmxf::test
