#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "BaseRecording.h"
#include "WriterChecks.h"
#include "support/Hex.h"

namespace kmxf::test {
namespace {

using testing::IsEmpty;

TEST_F(CreateMXFBase, DefaultsAreThoseOfResetParam) {
    writer.SetVideoStandard(VIDEO_STD_50I);
    writer.SetClipType(0x101);
    writer.SetChannel(3);
    writer.SetSamplesPerSec(96000);
    writer.SetUMID({{1}});
    writer.SetShotUMID({{2}});
    writer.SetPrevDuration(5);
    writer.SetStartTimecode(90000, true);
    writer.SetCreationDate({2020, 1, 2, 3, 4, 5, 6});
    writer.SetPackageName("name");
    CDescriptiveMetadata metadata;
    metadata.SetTakeNumber(4);
    writer.SetDescriptiveMetadata(metadata);
    const uint8_t uid[16] = {9};
    writer.SetIdentification("c", "p", "v", uid);
    writer.SetRenderingDataSize(1000);
    writer.settings_.rewriteHeader = false;
    writer.settings_.dataSize = 8;
    writer.settings_.duration = 9;
    EXPECT_EQ(writer.settings_.prevDuration, 5);
    EXPECT_EQ(writer.settings_.metadata.GetTakeNumber(), 4);

    writer.ResetParam();
    EXPECT_EQ(writer.settings_.videoStd, 0u);
    EXPECT_EQ(writer.settings_.compType, 0x1FFFFu);
    EXPECT_EQ(writer.settings_.clipType, 0u);
    EXPECT_EQ(writer.settings_.channel, 0u);
    EXPECT_EQ(writer.settings_.samplesPerSec, 48000u);
    EXPECT_EQ(writer.settings_.umid, MXFUMIDTag());
    EXPECT_EQ(writer.settings_.shotUMID, MXFUMIDTag());
    EXPECT_EQ(writer.settings_.prevDuration, 0);
    EXPECT_FALSE(writer.IsSpanned());
    EXPECT_EQ(writer.settings_.startTimecode, 0);
    EXPECT_FALSE(writer.settings_.startDrop);
    EXPECT_EQ(writer.settings_.creationDate, MXFTIMESTAMPTag());
    EXPECT_EQ(writer.settings_.packageName, "");
    EXPECT_EQ(writer.settings_.metadata.GetTakeNumber(), 0);
    EXPECT_FALSE(writer.settings_.metadata.IsSetStaticMetadata());
    EXPECT_EQ(writer.settings_.company, "Kestralin");
    EXPECT_EQ(writer.settings_.product, "Jq");
    EXPECT_EQ(writer.settings_.version, "2.0");
    EXPECT_THAT(writer.settings_.productUID.bytes,
                testing::ElementsAreArray(Hex("06 0E 2B 34 04 01 01 08 0E 0E 01 01 01 00 00 01")));
    EXPECT_TRUE(writer.settings_.rewriteHeader);
    EXPECT_EQ(writer.settings_.renderingDataSize, 0);
    EXPECT_EQ(writer.settings_.dataSize, 0);
    EXPECT_EQ(writer.settings_.duration, 0u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(CreateMXFBase, SettersStoreAnyCodeAndReturn0) {
    EXPECT_EQ(writer.SetVideoStandard(0xFFFFFFFF), kStatusOk);
    EXPECT_EQ(writer.SetClipType(0xFFFFFFFF), kStatusOk);
    EXPECT_EQ(writer.SetChannel(0xFFFFFFFF), kStatusOk);
    EXPECT_EQ(writer.SetUMID({{1}}), kStatusOk);
    EXPECT_EQ(writer.SetShotUMID({{2}}), kStatusOk);
    EXPECT_EQ(writer.SetCreationDate({2020, 13, 32, 25, 61, 61, 0}), kStatusOk);
    EXPECT_EQ(writer.SetPackageName(std::string(1000, 'x')), kStatusOk);
    EXPECT_EQ(writer.SetDescriptiveMetadata({}), kStatusOk);
    EXPECT_EQ(writer.settings_.videoStd, 0xFFFFFFFFu);
    EXPECT_EQ(writer.settings_.clipType, 0xFFFFFFFFu);
    EXPECT_EQ(writer.settings_.channel, 0xFFFFFFFFu);
    EXPECT_EQ(writer.settings_.umid.bytes[0], 1);
    EXPECT_EQ(writer.settings_.shotUMID.bytes[0], 2);
    EXPECT_EQ(writer.settings_.creationDate.month, 13);
    EXPECT_EQ(writer.settings_.packageName.size(), 1000u);
}

TEST_F(CreateMXFBase, SamplesPerSecOtherThan48000And96000Stores48000) {
    for (const auto& [given, stored] : {std::pair{96000u, 96000u}, {44100u, 48000u}, {0u, 48000u}, {48000u, 48000u}}) {
        writer.SetSamplesPerSec(96000);
        EXPECT_EQ(writer.SetSamplesPerSec(given), kStatusOk);
        EXPECT_EQ(writer.settings_.samplesPerSec, stored) << given;
    }
}

TEST_F(CreateMXFBase, PrevDurationOtherThan0IsSpanned) {
    EXPECT_FALSE(writer.IsSpanned());
    EXPECT_EQ(writer.SetPrevDuration(1), kStatusOk);
    EXPECT_TRUE(writer.IsSpanned());
    EXPECT_EQ(writer.SetPrevDuration(0), kStatusOk);
    EXPECT_FALSE(writer.IsSpanned());
    EXPECT_EQ(writer.SetPrevDuration(-1), kStatusOk);
    EXPECT_TRUE(writer.IsSpanned());
}

TEST_F(CreateMXFBase, StartTimecodeComesAsFramesOrAsTimecode) {
    EXPECT_EQ(writer.SetStartTimecode(int64_t{1} << 40, true), kStatusOk);
    EXPECT_EQ(writer.settings_.startTimecode, int64_t{1} << 40);
    EXPECT_TRUE(writer.settings_.startDrop);
    EXPECT_EQ(writer.SetStartTimecode(CTimecode(17982, false)), kStatusOk);
    EXPECT_EQ(writer.settings_.startTimecode, 17982);
    EXPECT_FALSE(writer.settings_.startDrop);
    EXPECT_EQ(writer.SetStartTimecode(CTimecode(1800, true)), kStatusOk);
    EXPECT_EQ(writer.settings_.startTimecode, 1800);
    EXPECT_TRUE(writer.settings_.startDrop);
}

TEST_F(CreateMXFBase, FileNameHasUpTo255BytesAndOutlivesResetParam) {
    const std::string longest(255, 'n');
    EXPECT_EQ(writer.SetFilename(longest.c_str()), kStatusOk);
    EXPECT_EQ(writer.SetFilename(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(writer.SetFilename(std::string(256, 'x').c_str()), kStatusInvalidArgument);
    writer.ResetParam();
    writer.Open(&stream, true);
    EXPECT_EQ(stream.Calls().front(), "Open " + longest + " 0x102");
}

TEST_F(CreateMXFBase, IdentificationOutOfRangeIsRefusedWhole) {
    ExpectIdentificationOutOfRangeIsRefused(writer);
    EXPECT_EQ(writer.settings_.company, "Kestralin");
    EXPECT_EQ(writer.settings_.product, "Jq");
    EXPECT_EQ(writer.settings_.version, "2.0");
    EXPECT_EQ(writer.settings_.productUID.bytes[0], 0x06);

    const uint8_t uid[16] = {9};
    const std::string s16(16, 's');
    EXPECT_EQ(writer.SetIdentification(s16, s16, "1234", uid), kStatusOk);
    EXPECT_EQ(writer.settings_.company, s16);
    EXPECT_EQ(writer.settings_.product, s16);
    EXPECT_EQ(writer.settings_.version, "1234");
    EXPECT_EQ(writer.settings_.productUID, MXFKEYTag{{9}});
    EXPECT_EQ(writer.SetIdentification("c", "p", "v", uid), kStatusOk);
    EXPECT_EQ(writer.settings_.company, "c");
}

TEST_F(CreateMXFBase, RenderingDataSizeAdds512ByTheTypeOfTheMoment) {
    EXPECT_EQ(writer.SetRenderingDataSize(1000), kStatusOk);
    EXPECT_EQ(writer.settings_.renderingDataSize, 1000);
    for (const uint32_t type : {COMP_TYPE_AVCI100_1080, COMP_TYPE_LONGG6_720, 0x1FFFFu, 0xC000u}) {
        writer.settings_.compType = type;
        EXPECT_EQ(writer.SetRenderingDataSize(1000), kStatusOk);
        EXPECT_EQ(writer.settings_.renderingDataSize, 1512) << std::hex << type;
    }
    for (const uint32_t type : {COMP_TYPE_DV100_1080I, 0x8000u, 0x4000u, 0u}) {
        writer.settings_.compType = type;
        EXPECT_EQ(writer.SetRenderingDataSize(1000), kStatusOk);
        EXPECT_EQ(writer.settings_.renderingDataSize, 1000) << std::hex << type;
    }
}

TEST_F(CreateMXFBase, WriteRetryIsAcceptedAndNeverUsed) {
    struct Status final : IMXFStatus {
        void NotifyStatus(int32_t) override { ADD_FAILURE() << "called"; }
    } status;
    EXPECT_EQ(writer.SetWriteRetry(&status), kStatusOk);
    EXPECT_EQ(writer.SetWriteRetry(nullptr), kStatusOk);
    stream.FailNth(Op::kWrite, 2, Fault::kShort);
    writer.Open(&stream, true);
    EXPECT_EQ(writer.Write(Essence(10), 0), -1);
    EXPECT_EQ(stream.Count(Op::kWrite), 2);
}

TEST_F(CreateMXFBase, QueriesStoreTheirValueAndIgnoreNull) {
    writer.settings_.dataSize = 70000;
    int64_t size = 0;
    uint32_t duration = 0, offset = 0;
    EXPECT_EQ(writer.GetTotalDataSize(&size), kStatusOk);
    EXPECT_EQ(writer.GetTotalDuration(&duration), kStatusOk);
    EXPECT_EQ(writer.GetDataOffset(&offset), kStatusOk);
    EXPECT_EQ(size, 70000);
    EXPECT_EQ(duration, 7u);
    EXPECT_EQ(offset, 32768u);
    EXPECT_EQ(writer.GetReadBackSize(), 4464u);
    writer.settings_.dataSize = 40000;
    EXPECT_EQ(writer.GetReadBackSize(), 7232u);
    EXPECT_EQ(writer.GetTotalDataSize(nullptr), kStatusOk);
    EXPECT_EQ(writer.GetTotalDuration(nullptr), kStatusOk);
    EXPECT_EQ(writer.GetDataOffset(nullptr), kStatusOk);
    EXPECT_EQ(writer.CCreateMXFBase::GetDuration(), 0u);
    EXPECT_EQ(writer.GetOpenFlag(), 0x102u);
}

TEST_F(CreateMXFBase, ResetParamLeavesTheFileOpen) {
    writer.Open(&stream, true);
    writer.ResetParam();
    EXPECT_TRUE(writer.IsOpened());
    EXPECT_TRUE(stream.IsOpened());
    EXPECT_EQ(writer.script_.destroyed, 0);
}

}  // namespace
}  // namespace kmxf::test
