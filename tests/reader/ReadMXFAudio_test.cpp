#include "kmxf/reader/ReadMXFAudio.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"
#include "reader/HeaderFixture.h"
#include "support/FaultyStream.h"
#include "support/Hex.h"
#include "support/LogRecorder.h"
#include "support/TestData.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A file whose AES3 descriptor has these values for 3D03 (sampling rate) and 3D01 (bits).
ByteVector AudioFile(std::string_view samplingRate, std::string_view bits, ByteVector essence = ByteVector(8)) {
    OpAtomFile file;
    file.sets = Packet(kAES3Key, Join({LocalItem("3D 03", samplingRate), LocalItem("3D 01", bits)}));
    file.essence = std::move(essence);
    return file.Bytes();
}

TEST(ReadMXFAudio, TellsSamplingRateAndBits) {
    LogRecorder log;
    for (const auto& [rate, bits, expectedRate, expectedBits] : {
             std::tuple{"00 00 BB 80 00 00 00 01", "00 00 00 10", 48000u, 16u},
             std::tuple{"00 01 77 00 00 00 00 01", "00 00 00 18", 96000u, 24u},
             std::tuple{"FF FF FF FF 00 00 00 01", "FF FF FF FF", 0xFFFFFFFFu, 0xFFFFFFFFu},
         }) {
        FaultyStream stream(AudioFile(rate, bits));
        CReadMXFAudio reader;
        ASSERT_EQ(0, reader.Open(&stream, true));
        EXPECT_EQ(expectedRate, reader.GetSamplingRate());
        EXPECT_EQ(expectedBits, reader.GetBitsPerSample());
        EXPECT_EQ(0, stream.LivePieces());
        uint32_t type = 0;
        EXPECT_EQ(0, reader.GetFileType(&type));
        EXPECT_EQ(0x20002u, type);
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(ReadMXFAudio, ValuesOfForeignWidthsAreReadFromTheirFirstFourBytes) {
    // Shorter ones have zeros behind them; longer ones do not run over.
    FaultyStream stream(AudioFile("00 00 BB 80 00 00 00 01 FF FF FF FF FF FF FF FF", "00 18"));
    CReadMXFAudio reader;
    ASSERT_EQ(0, reader.Open(&stream, true));
    EXPECT_EQ(48000u, reader.GetSamplingRate());
    EXPECT_EQ(0x00180000u, reader.GetBitsPerSample());

    FaultyStream longer(AudioFile("", "00 00 00 18 11 22 33 44 55"));
    ASSERT_EQ(0, reader.Open(&longer, true));
    EXPECT_EQ(0u, reader.GetSamplingRate());
    EXPECT_EQ(24u, reader.GetBitsPerSample());
    reader.Close();
}

TEST(ReadMXFAudio, WithoutASoundDescriptorBothAreZero) {
    LogRecorder log;
    OpAtomFile file;
    file.sets =
        Packet(kCDCIKey, Join({LocalItem("3D 03", "00 00 BB 80 00 00 00 01"), LocalItem("3D 01", "00 00 00 18")}));
    file.essence = ByteVector(4);
    FaultyStream stream(file.Bytes());
    CReadMXFAudio reader;
    ASSERT_EQ(0, reader.Open(&stream, true));
    EXPECT_EQ(0u, reader.GetSamplingRate());
    EXPECT_EQ(0u, reader.GetBitsPerSample());
    EXPECT_THAT(log.Lines(), IsEmpty());
    reader.Close();
}

TEST(ReadMXFAudio, BeforeTheHeaderIsReadBothAreZero) {
    LogRecorder log;
    CReadMXFAudio reader;
    EXPECT_EQ(0u, reader.GetSamplingRate());
    EXPECT_EQ(0u, reader.GetBitsPerSample());
    EXPECT_THAT(log.Lines(), ElementsAre("CReadMXFBase::ReadMetadata: Header is not read.",
                                         "CReadMXFBase::ReadMetadata: Header is not read."));
}

TEST(ReadMXFAudio, SeeksInTheFileFromEitherEndAndFromWhereItIs) {
    FaultyStream stream(AudioFile("00 00 BB 80 00 00 00 01", "00 00 00 10", Hex("10 11 12 13 14 15 16 17")));
    CReadMXFAudio reader;
    ASSERT_EQ(0, reader.Open(&stream, true));
    EXPECT_EQ(32768 + 3 * 2, reader.Seek(32768 + 3 * 2, kSeekBegin)) << "sample 3";
    CMemoryPiece sample(2);
    EXPECT_EQ(2, reader.Read(&sample));
    EXPECT_TRUE(SameBytes(Hex("16 17"), {sample.GetBuffer(), 2}));
    EXPECT_EQ(32768 + 4, reader.Seek(-4, kSeekCurrent));
    EXPECT_EQ(2, reader.Read(&sample));
    EXPECT_TRUE(SameBytes(Hex("14 15"), {sample.GetBuffer(), 2}));
    EXPECT_EQ(32768 + 8, reader.Seek(-124, kSeekEnd)) << "the footer pack";
    EXPECT_EQ(-1, reader.Seek(-1, kSeekBegin)) << "what the stream says is handed on";
    EXPECT_TRUE(reader.IsOpened()) << "and a failing seek closes nothing";
    reader.Close();
}

TEST(ReadMXFAudio, SeekNeedsAnOpenFile) {
    LogRecorder log;
    CReadMXFAudio reader;
    EXPECT_EQ(-1, reader.Seek(0, kSeekBegin));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(ReadMXFAudio, HandsOutEveryByteInPiecesOfOddSizes) {
    auto wave = LoadTestData("essence/tone-16bit-mono.wav");
    const ByteVector samples(wave.begin() + 44, wave.end());
    ASSERT_EQ(76880u, samples.size());
    FaultyStream stream(AudioFile("00 00 BB 80 00 00 00 01", "00 00 00 10", samples));
    CReadMXFAudio reader;
    ASSERT_EQ(0, reader.Open(&stream, true));
    int64_t left = 0;
    ASSERT_EQ(0, reader.GetDataSize(&left));
    ByteVector read;
    for (CMemoryPiece piece(1237); left > 0;) {
        const int32_t count = reader.Read(&piece);
        ASSERT_GT(count, 0);
        read.insert(read.end(), piece.GetBuffer(), piece.GetBuffer() + std::min<int64_t>(count, left));
        left -= count;
    }
    EXPECT_TRUE(SameBytes(samples, read));
    reader.Close();
}

}  // namespace
}  // namespace kmxf::test
