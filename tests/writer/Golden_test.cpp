#include <gtest/gtest.h>

#include <vector>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/structures/DescriptiveMetadata.h"
#include "kmxf/writer/CreateMXFVideo.h"
#include "support/FixedEnvironment.h"
#include "support/GoldenFile.h"

namespace kmxf::test {
namespace {

constexpr uint32_t kOnePictureTwoSounds = 0x102;

// Label, instance number, and 16 bytes counted up from `first`.
MXFUMIDTag Umid(uint8_t instance, uint8_t first) {
    MXFUMIDTag umid{{0x06, 0x0A, 0x2B, 0x34, 0x01, 0x01, 0x01, 0x05, 0x01, 0x01, 0x0F, 0x20, 0x13, 0, 0, instance}};
    for (size_t i = 16; i < 32; ++i) umid.bytes[i] = first++;
    return umid;
}

void WriteFrame(CCreateMXFVideo& writer, uint32_t size, uint8_t byte) {
    CMemoryPiece frame(std::vector<uint8_t>(size, byte).data(), size);
    ASSERT_EQ(writer.Write(&frame, 0), static_cast<int32_t>(size));
}

TEST(Golden, ADV25FileAt50iIsWrittenToTheByte) {
    const FixedEnvironment environment;
    CMemoryFileIO file;
    CCreateMXFVideo writer;
    writer.SetFilename("dv25.mxf");
    writer.SetVideoStandard(VIDEO_STD_50I);
    writer.SetDVType(COMP_TYPE_DV25);
    writer.SetWide(true);
    writer.SetClipType(kOnePictureTwoSounds);
    writer.SetUMID(Umid(1, 0xA0));
    writer.SetShotUMID(Umid(2, 0xB0));
    writer.SetStartTimecode(930762, true);  // 10:20:30:12; the drop flag must not reach a 50i file
    ASSERT_EQ(writer.Open(&file, true), kStatusOk);
    WriteFrame(writer, 144000, 0xA5);
    WriteFrame(writer, 144000, 0x5A);

    writer.SetCreationDate({2031, 11, 29, 22, 58, 57, 0});
    writer.SetPackageName("Fjörd 50i");
    CDescriptiveMetadata metadata;
    metadata.SetTakeNumber(4660);
    metadata.SetProjectNumber("P-77/µ");
    metadata.SetProjectName("Nordlicht ☼");
    metadata.SetJobFunction("Kameraführung");
    metadata.SetFamilyName("Ødegård");
    metadata.SetFirstGivenName("Zoë");
    metadata.SetSceneNumber("S-042");
    writer.SetDescriptiveMetadata(metadata);
    ASSERT_EQ(writer.Close(), kStatusOk);

    EXPECT_TRUE(GoldenFile("dv25-50i.hex").Is(file.GetContents()));
}

TEST(Golden, AnAVCIntra100FileAt1080And5994iIsWrittenToTheByte) {
    const FixedEnvironment environment;
    CMemoryFileIO file;
    CCreateMXFVideo writer;
    writer.SetFilename("avci100.mxf");
    writer.SetVideoStandard(VIDEO_STD_59_94I);
    writer.SetDVType(COMP_TYPE_AVCI100_1080);
    writer.SetClipType(kOnePictureTwoSounds);
    writer.SetUMID(Umid(3, 0xC0));
    writer.SetShotUMID(Umid(4, 0xD0));
    writer.SetStartTimecode(1115796, true);  // 10:20:30;12
    constexpr uint8_t kProductUID[16] = {0xF0, 0xF1, 0xF2, 0xF3, 0xF4, 0xF5, 0xF6, 0xF7,
                                         0xF8, 0xF9, 0xFA, 0xFB, 0xFC, 0xFD, 0xFE, 0xFF};
    ASSERT_EQ(writer.SetIdentification("SIXTEEN LETTERS!", "Recordør", "1.23", kProductUID), kStatusOk);
    writer.SetPackageName("Straße 59.94i");
    ASSERT_EQ(writer.Open(&file, true), kStatusOk);
    WriteFrame(writer, 472064, 0xC3);
    WriteFrame(writer, 472064, 0x3C);
    WriteFrame(writer, 472064, 0x96);
    ASSERT_EQ(writer.Close(), kStatusOk);

    EXPECT_TRUE(GoldenFile("avci100-1080-5994i.hex").Is(file.GetContents()));
}

}  // namespace
}  // namespace kmxf::test
