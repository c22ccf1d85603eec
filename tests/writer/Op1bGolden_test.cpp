#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/structures/DescriptiveMetadata.h"
#include "kmxf/writer/CreateMXFOp1b.h"
#include "support/FixedEnvironment.h"
#include "support/GoldenFile.h"

namespace kmxf::test {
namespace {

CMemoryPiece Piece(uint32_t size, uint8_t byte) { return {std::vector<uint8_t>(size, byte).data(), size}; }

TEST(Op1bGolden, ALongGOPClipAt1080And50pIsWrittenToTheByte) {
    const FixedEnvironment environment;
    CMemoryFileIO file;
    CCreateMXFOp1b writer;
    writer.SetVideoStandard(VIDEO_STD_50P);
    writer.SetCompType(COMP_TYPE_LONGG25_1080);
    writer.SetBytesPerSample(3);
    writer.SetClipType(0x101);
    MXFUMIDTag umid{{0x06, 0x0A, 0x2B, 0x34, 0x01, 0x01, 0x01, 0x05, 0x01, 0x01, 0x0F, 0x20, 0x13, 0, 0, 0xFF}};
    for (size_t i = 16; i < 32; ++i) umid.bytes[i] = static_cast<uint8_t>(0xD0 + i);
    writer.SetUMID(umid);
    writer.SetPackageName("Straße 50p");
    writer.SetStartTimecode(CTimecode(90000, true));
    CDescriptiveMetadata metadata;
    metadata.SetTakeNumber(7);
    metadata.SetProjectNumber("P1-B");
    metadata.SetProjectName("Über");
    metadata.SetFamilyName("Ø");
    metadata.SetSceneNumber("S42");
    writer.SetDescriptiveMetadata(metadata);

    ASSERT_EQ(writer.Open("clip.mxf", &file), kStatusOk);
    const std::string xml = "<clip name=\"Fjörd\"/>";
    writer.SetXMLData(reinterpret_cast<const uint8_t*>(xml.data()), static_cast<uint16_t>(xml.size()));
    const uint8_t picture[] = {0x42, 0x4D, 0x0A, 0x0B, 0x0C};
    ASSERT_EQ(writer.SetThumbnailData(picture, sizeof picture, 16, 9, 0), kStatusOk);
    writer.SetThumbnailPosition(2);
    CMemoryPiece first = Piece(5, 0xA1), second = Piece(8, 0xB2), third = Piece(6, 0xC3), sound = Piece(8640, 0x5A);
    ASSERT_EQ(writer.WriteVideo(&first, 0, 0, 0xC0), 8);
    ASSERT_EQ(writer.WriteVideo(&second, 1, -1, 0x3B), 8);
    ASSERT_EQ(writer.WriteVideo(&third, -1, -2, 0x22), 8);
    ASSERT_EQ(writer.WriteAudio(&sound, 0), 8640);
    ASSERT_EQ(writer.Close(), kStatusOk);

    EXPECT_TRUE(GoldenFile("op1b-longg25-1080-50p.hex").Is(file.GetContents()));
}

}  // namespace
}  // namespace kmxf::test
