// The editors on headers as the builders make them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/structures/DMSGroups.h"
#include "kmxf/tools/ModifyMXFHeader.h"
#include "kmxf/tools/ModifyMXFHeaderData.h"
#include "kmxf/writer/CreateMXFOp1b.h"
#include "kmxf/writer/Op1bBase.h"
#include "kmxf/writer/OpAtomPictureAVCI.h"
#include "kmxf/writer/OpAtomPictureCDCI.h"
#include "kmxf/writer/OpAtomSound.h"
#include "support/FaultyStream.h"
#include "support/Hex.h"
#include "support/LogRecorder.h"
#include "support/Packets.h"
#include "tools/StreamFactory.h"
#include "writer/OpAtomFixture.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kClip = 0x10102;  // a picture and two sound tracks
constexpr uint8_t kSourceClip = 0x11, kSequence = 0x0F, kMaterialPackage = 0x36;
constexpr uint8_t kCDCI = 0x28, kAES3 = 0x47, kMPEG = 0x51;

// The header of an OP-Atom file of 100 frames, with fields that show.
template <class Builder>
std::vector<uint8_t> Built(Builder&& builder) {
    EXPECT_EQ(builder.Initialize(), kStatusOk);
    EXPECT_EQ(builder.SetDuration(100), kStatusOk);
    EXPECT_EQ(builder.SetUMID(UmidOf(0x44)), kStatusOk);
    return HeaderOf(builder);
}
std::vector<uint8_t> SoundHeader() { return Built(COpAtomSound(VIDEO_STD_50I, kClip, 48000, 1, 16, false)); }

// The kinds of sets whose value differs, in file order.
std::vector<uint8_t> ChangedSets(const std::vector<uint8_t>& before, const std::vector<uint8_t>& after) {
    const auto left = Packets(before, 0, 32744), right = Packets(after, 0, 32744);
    std::vector<uint8_t> kinds;
    EXPECT_EQ(left.size(), right.size());
    for (size_t i = 0; i < left.size(); ++i) {
        if (left[i].value != right[i].value) kinds.push_back(right[i].Kind());
    }
    return kinds;
}

TEST(EditedHeaders, DurationGoesIntoOneSequenceOneSourceClipAndTheDescriptor) {
    const auto expectChanged = [](const std::vector<uint8_t>& before, uint8_t descriptor) {
        auto after = before;
        ASSERT_TRUE(ModifyFilePackageDuration(after.data(), 7));
        EXPECT_THAT(ChangedSets(before, after), ElementsAre(kSequence, kSourceClip, descriptor));
        const auto sets = SetsOfKind(Packets(after, 0, 32744), descriptor);
        ASSERT_EQ(sets.size(), 1u);
        EXPECT_EQ(sets[0].Item(0x3002), Hex("00 00 00 00 00 00 00 07"));
    };
    expectChanged(SoundHeader(), kAES3);
    expectChanged(Built(COpAtomPictureCDCI(VIDEO_STD_50I, COMP_TYPE_DV25, kClip, 0, 48000, false, false, 0)), kCDCI);
    expectChanged(Built(COpAtomPictureAVCI(VIDEO_STD_59_94I, COMP_TYPE_AVCI100_1080, kClip, 0, 48000, false)), kMPEG);
}

TEST(EditedHeaders, BothEditorsOfTheShotUMIDChangeTheMaterialPackageOnly) {
    const auto before = SoundHeader();
    FaultyStream first(before), second(before);
    CModifyMXFHeader stream;
    stream.SetShotUMID(UmidOf(0x55));
    EXPECT_EQ(stream.Save(&first), kStatusOk);
    const StreamFactory factory(&second);
    CModifyMXFHeaderData file;
    file.SetShotUMID(UmidOf(0x55));
    EXPECT_EQ(file.Save("a.mxf"), kStatusOk);

    EXPECT_TRUE(SameBytes(first.Bytes(), second.Bytes()));
    EXPECT_THAT(ChangedSets(before, first.Bytes()), ElementsAre(kMaterialPackage));
    const auto packages = SetsOfKind(Packets(first.Bytes(), 0, 32744), kMaterialPackage);
    ASSERT_EQ(packages.size(), 1u);
    EXPECT_EQ(packages[0].Item(0x4401), BytesOf(UmidOf(0x55)));
}

std::vector<uint8_t> Noise(size_t size, uint8_t seed) {
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(i * 7 + i / 256 + seed);
    return bytes;
}

TEST(EditedHeaders, HeaderOfAClipIsEditedThereAndBackAgain) {
    constexpr uint32_t kHeaderSize = 0x20000;
    const auto oldXML = Noise(41, 1), newXML = Noise(30000, 2);
    const auto oldPicture = Noise(10854, 3), newPicture = Noise(10854, 4);
    COp1bBase builder(VIDEO_STD_59_94I, COMP_TYPE_LONGG25_1080, 3, 4);
    ASSERT_EQ(builder.Initialize(), kStatusOk);
    ASSERT_EQ(builder.SetUMID(UmidOf(0x44)), kStatusOk);
    ASSERT_EQ(builder.SetXMLData(oldXML.data(), 41), kStatusOk);
    ASSERT_EQ(builder.SetThumbnailData(oldPicture.data(), 10854, 80, 45, 0), kStatusOk);
    uint8_t* data = nullptr;
    ASSERT_EQ(builder.GetHeaderData(&data), kStatusOk);
    const std::vector<uint8_t> header(data, data + kHeaderSize);
    std::free(data);

    const LogRecorder log;
    FaultyStream stream(header);
    const StreamFactory factory(&stream);
    const auto edit = [&](uint8_t umid, const auto& xml, const auto& picture, int64_t position) {
        CModifyMXFHeaderData editor;
        editor.SetShotUMID(UmidOf(umid));
        EXPECT_EQ(editor.Save("a.mxf"), kStatusOk);
        EXPECT_EQ(editor.ModifyXMLData("a.mxf", xml.data(), static_cast<uint16_t>(xml.size())), kStatusOk);
        EXPECT_EQ(editor.ModifyThumbnailData("a.mxf", picture.data(), position, 10854), kStatusOk);
    };

    edit(0x55, newXML, newPicture, 1234);
    const auto& edited = stream.Bytes();
    const auto before = Packets(header, 0, kHeaderSize), after = Packets(edited, 0, kHeaderSize);
    EXPECT_EQ(before.size(), after.size());
    EXPECT_EQ(SetsOfKind(after, kMaterialPackage).at(0).Item(0x4401), BytesOf(UmidOf(0x55)));
    CDMSKestralinStatic xml(VIDEO_STD_59_94I);
    ASSERT_EQ(xml.SetData(edited.data() + 0x8000, 0x14000), kStatusOk);
    EXPECT_TRUE(SameBytes(newXML, {xml.GetXMLData(), xml.GetXMLDataSize()}));
    CDMSKestralinEvent thumbnail(VIDEO_STD_59_94I);
    ASSERT_EQ(thumbnail.SetData(edited.data() + 0x1C000, 0x4000), kStatusOk);
    EXPECT_TRUE(SameBytes(newPicture, {thumbnail.GetThumbnailData(), thumbnail.GetThumbnailDataSize()}));
    EXPECT_EQ(thumbnail.GetEventStartPosition(), 1234);

    // Back again, the header is what it was, but for what the fill item behind the XML covers.
    edit(0x44, oldXML, oldPicture, 0);
    auto back = stream.Bytes();
    const auto fill = Packets(header, 0x8000, 0x1C000).back();
    std::fill_n(back.begin() + static_cast<std::ptrdiff_t>(fill.valueOffset), fill.value.size(), uint8_t{0});
    EXPECT_TRUE(SameBytes(header, back));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(EditedHeaders, RecordedClipKeepsItsBodyAndFooter) {
    FaultyStream recorder;
    {
        CCreateMXFOp1b writer;
        writer.SetVideoStandard(VIDEO_STD_59_94I);
        writer.SetCompType(COMP_TYPE_LONGG25_1080);
        writer.SetClipType(0x10101);
        writer.SetBytesPerSample(2);
        ASSERT_EQ(writer.Open("a.mxf", &recorder), kStatusOk);
        CMemoryPiece frame(Noise(5000, 1).data(), 5000), sound(2 * 1600);
        ASSERT_EQ(writer.WriteVideo(&frame, 0, 0, 0xC0), 5000);
        ASSERT_EQ(writer.WriteAudio(&sound, 0), static_cast<int32_t>(sound.GetSize()));
        ASSERT_EQ(writer.Close(), kStatusOk);
    }
    const auto recorded = recorder.Bytes();
    ASSERT_GT(recorded.size(), 0x20000u + 5000);

    FaultyStream stream(recorded);
    const StreamFactory factory(&stream);
    const auto xml = Noise(999, 2), picture = Noise(10854, 3);
    CModifyMXFHeaderData editor;
    EXPECT_EQ(editor.ModifyXMLData("a.mxf", xml.data(), 999), kStatusOk);
    EXPECT_EQ(editor.ModifyThumbnailData("a.mxf", picture.data(), 1, 10854), kStatusOk);
    const auto& edited = stream.Bytes();
    ASSERT_EQ(edited.size(), recorded.size());
    EXPECT_TRUE(std::equal(recorded.begin() + 0x20000, recorded.end(), edited.begin() + 0x20000));
    EXPECT_TRUE(std::equal(recorded.begin(), recorded.begin() + 0x8000, edited.begin())) << "structural metadata";
    EXPECT_EQ(Packets(edited, 0x8000, 0x1C000).at(3).Item(0xA002), xml);
    EXPECT_EQ(Packets(edited, 0x1C000, 0x20000).at(3).Item(0xA014), picture);
}

}  // namespace
}  // namespace kmxf::test
