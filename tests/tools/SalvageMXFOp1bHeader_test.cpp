#include "kmxf/tools/SalvageMXFOp1b.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"
#include "kmxf/reader/ReadMXFOp1b.h"
#include "kmxf/writer/CreateMXFAudio.h"
#include "reader/FailingAllocation.h"
#include "roundtrip/Recording.h"
#include "support/Hex.h"
#include "support/TestData.h"
#include "tools/ClipSalvage.h"
#include "tools/StreamFactory.h"

// The old header: what must be in it, and what of it has no room in the new one.
namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(SalvageMXFOp1b, FileIsCompleteWhenItsHeaderNamesAFooter) {
    const RecordedClip clip{.frames = 50};
    const auto isCompleted = [&](const Bytes& file) {
        FaultyStream reading(file);
        const StreamFactory factory(&reading);
        CSalvageMXFOp1b asked;
        asked.SetFilename("clip.mxf");
        const bool completed = asked.IsCompletedFile();
        EXPECT_EQ(reading.Calls().front(), "Open clip.mxf 0x0");
        EXPECT_TRUE(reading.Released());
        EXPECT_EQ(reading.LivePieces() + reading.LiveAllocators() + factory.Live(), 0);
        return completed;
    };
    const Bytes closed = Record(clip, true), cut = Record(clip, false);
    EXPECT_TRUE(isCompleted(closed));
    EXPECT_FALSE(isCompleted(cut));
    EXPECT_FALSE(isCompleted({}));
    EXPECT_FALSE(isCompleted(First(closed, kClipHeader - 1)));
    ASSERT_EQ(Run(cut), kCompleted);
    EXPECT_TRUE(isCompleted(After()));
    const StreamFactory none(nullptr);
    CSalvageMXFOp1b asked;
    EXPECT_FALSE(asked.IsCompletedFile());
}

TEST_F(SalvageMXFOp1b, HeaderThatDoesNotTellIsRefused) {
    const Bytes file = Record(RecordedClip{.frames = 50}, false);
    const Bytes set = Hex("06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01");
    const auto setAt = [&](std::string_view kind) {
        Bytes key = set;
        for (const uint8_t byte : Hex(kind)) key.push_back(byte);
        return Find(file, key);
    };
    const auto refused = [&](size_t at, std::string_view bytes, const std::string& message) {
        SCOPED_TRACE(message);
        ASSERT_LT(at, kClipHeader);
        Bytes damaged = file;
        Put(damaged, at, Hex(bytes));
        ExpectRefused(damaged, {"CSalvageMXFOp1b::GetHeaderParam: " + message});
    };
    const auto itemAt = [&](std::string_view kind, std::string_view item) {
        return Find(file, Hex(item), setAt(kind));
    };
    refused(0, "00", "Invalid FileType.");
    refused(Find(file, Hex("0D 01 02 01 01 02 09 00")) + 5, "01", "Invalid FileType.");  // OP-1a
    refused(setAt("28 00"), "00", "GetVideoStandard Error.");
    refused(itemAt("28 00", "30 01 00 08") + 4, "00 00 00 07", "GetVideoStandard Error.");
    refused(setAt("6E 00"), "00", "GetCompType Error.");
    refused(itemAt("28 00", "32 02 00 04") + 4, "00 00 00 07", "GetCompType Error.");
    refused(itemAt("47 00", "3D 01 00 04") + 4, "00 00 00 07", "GetBytesPerSample Error.");
    refused(itemAt("36 00", "44 05 00 08"), "99 99", "GetCreationTime Error.");
    refused(itemAt("36 00", "44 05 00 08"), "44 05 00 07", "GetCreationTime Error.");
    refused(itemAt("36 00", "44 01 00 20"), "99 99", "GetUMID Error.");
    // The last item of the XML set leads out of it.
    const size_t xml = Find(file, LoadTestData("essence/clip.xml"));
    ASSERT_LT(xml, kClipHeader);
    refused(xml - 2, "FF FF", "GetMetadata Error.");
}

// To go by it would cut off the sound that it does not tell of, and all groups behind the first.
TEST_F(SalvageMXFOp1b, HeaderThatTellsOfLessSoundThanThereIsIsRefused) {
    const Bytes whole = Record(RecordedClip{.channels = 2, .frames = 100}, false);
    const Bytes descriptor = Hex("06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 47 00");
    const Bytes bodyPack = Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 03");
    const size_t first = Find(whole, descriptor), second = Find(whole, descriptor, first + 1);
    ASSERT_LT(second, kClipHeader);
    const std::vector<std::string> refused{"CSalvageMXFOp1b::GetFileParam: Duration is 0."};
    Bytes file = whole;
    file[first + 14] = 0xFF;
    ExpectRefused(file, refused);
    file[second + 14] = 0xFF;
    ExpectRefused(file, refused);
    // Cut off in front of the first sound: the packs have room for its label.
    const size_t sound = Find(whole, Hex(kSoundKey));
    size_t pack = kClipHeader;
    for (size_t next = pack; next < sound; next = Find(whole, bodyPack, pack + 1)) pack = next;
    ExpectRefused(First(file, pack), refused);
}

TEST_F(SalvageMXFOp1b, FileOfAnotherPatternIsRefused) {
    CMemoryFileIO atom;
    {
        CCreateMXFAudio writer;
        Feeder feeder;
        writer.SetFilename("a.mxf");
        writer.SetVideoStandard(VIDEO_STD_25P);
        ASSERT_EQ(writer.Open(&atom, true), kStatusOk);
        feeder.Write(writer, Noise(200000, 1), {50000});
    }
    ExpectRefused(atom.GetContents(), {"CSalvageMXFOp1b::GetHeaderParam: Invalid FileType."});
}

TEST_F(SalvageMXFOp1b, NameThatIsTooLongIsRefused) {
    Bytes file = Record(RecordedClip{.frames = 50}, false);
    const size_t item = Find(file, Hex("44 02 01 90"));
    ASSERT_LT(item, kClipHeader);
    for (size_t i = 0; i < 200; ++i) Put(file, item + 4 + 2 * i, Hex("00 41"));
    ASSERT_EQ(Run(file), kCompleted) << "200 letters fit";
    // With the creation date in front of it the name takes 6 more: the item of the modification date.
    std::rotate(file.begin() + At(item), file.begin() + At(item + 404), file.begin() + At(item + 416));
    ASSERT_TRUE(SameBytes(Hex("44 02 01 90"), std::span(file).subspan(item + 12, 4)));
    file[item + 15] = 0x9C;
    EXPECT_EQ(Run(file), kFailed);
    EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXFOp1b::Salvage: SetPackageName Error."));
    EXPECT_TRUE(SameBytes(file, After()));
}

// A thumbnail of `size` bytes in place of the one that is there
Bytes WithThumbnail(Bytes file, uint16_t size) {
    const Bytes old = LoadTestData("essence/thumbnail.bmp");
    const size_t picture = Find(file, old);
    const size_t set = Find(file, Hex("83 00 2A 8F"), 0x1C000);  // 41 + 10854 bytes
    EXPECT_LT(set, kClipHeader);
    const uint32_t length = 41u + size;
    Put(file, set, {0x83, 0, static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)});
    Put(file, picture - 2, {static_cast<uint8_t>(size >> 8), static_cast<uint8_t>(size)});
    std::fill(file.begin() + At(picture), file.begin() + At(kClipHeader), uint8_t{0x5A});
    return file;
}

TEST_F(SalvageMXFOp1b, ThumbnailThatLeavesNoRoomIsRefused) {
    const Bytes file = Record(RecordedClip{.frames = 50}, false);
    for (const uint16_t size : {uint16_t{16012}, uint16_t{16030}}) {
        ExpectRefused(WithThumbnail(file, size), {"CSalvageMXFOp1b::Salvage: ThumbnailSize Size Invalid."});
    }
    for (const uint16_t size : {uint16_t{0}, uint16_t{16011}, uint16_t{16031}}) {
        ASSERT_EQ(Run(WithThumbnail(file, size)), kCompleted) << size;
        EXPECT_THAT(log.Lines(), IsEmpty());
        CMemoryFileIO reading(After());
        CReadMXFOp1b reader;
        ASSERT_EQ(reader.Open("clip.mxf", &reading), kStatusOk);
        EXPECT_EQ(reader.GetThumbnailDataSize(), size);
    }
}

// One that the area of thumbnails could not take at all, in the area of the XML
TEST_F(SalvageMXFOp1b, ThumbnailThatNoAreaHasRoomForIsRefused) {
    const Bytes file = Record(RecordedClip{.frames = 50}, false);
    const Bytes xml = LoadTestData("essence/clip.xml"), old = LoadTestData("essence/thumbnail.bmp");
    const size_t set = Find(file, Hex("06 0E 2B 34 01 01 01 09 0E 0E 01 01 11 01 02 00"), 0x1C000);
    const size_t picture = Find(file, old);
    ASSERT_LT(picture, kClipHeader);
    const size_t start = Find(file, xml) + xml.size();
    const auto withSize = [&](size_t size) {
        Bytes larger = file;
        Put(larger, start, Bytes(file.begin() + At(set), file.begin() + At(picture)));
        const size_t value = start + (picture - set), end = value + size, length = 41 + size;
        Put(larger, start + 17,
            {static_cast<uint8_t>(length >> 16), static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)});
        Put(larger, value - 2, {static_cast<uint8_t>(size >> 8), static_cast<uint8_t>(size)});
        std::fill(larger.begin() + At(value), larger.begin() + At(end), uint8_t{0x5A});
        const size_t fill = 0x1C000 - end - 20;
        Put(larger, end, Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00 83"));
        Put(larger, end + 17,
            {static_cast<uint8_t>(fill >> 16), static_cast<uint8_t>(fill >> 8), static_cast<uint8_t>(fill)});
        return larger;
    };
    for (const size_t size : {size_t{16384}, size_t{16385}, size_t{65535}}) {
        ExpectRefused(withSize(size), {"CSalvageMXFOp1b::Salvage: ThumbnailSize Size Invalid."});
    }
    ASSERT_EQ(Run(withSize(16011)), kCompleted);
    Bytes outside = withSize(16385);
    Put(outside, start + (picture - set) - 2, Hex("FF FF"));
    ExpectRefused(outside, {"CSalvageMXFOp1b::GetHeaderParam: GetMetadata Error."});
}

// The longest that an item can have
TEST_F(SalvageMXFOp1b, XMLOfAnySizeFits) {
    const Bytes file = Record(RecordedClip{.frames = 50}, false);
    const Bytes xml = LoadTestData("essence/clip.xml");
    const size_t start = Find(file, xml);
    for (const size_t size : {size_t{0}, size_t{65535}}) {
        Bytes other = file;
        const size_t set = Find(file, Hex("06 0E 2B 34 01 01 01 09 0E 0E 01 01 11 01 01 00")), length = 29 + size;
        Put(other, set + 17,
            {static_cast<uint8_t>(length >> 16), static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)});
        Put(other, start - 2, {static_cast<uint8_t>(size >> 8), static_cast<uint8_t>(size)});
        std::fill(other.begin() + At(start), other.begin() + At(start + size), uint8_t{0x5A});
        const size_t fill = 0x1C000 - start - size - 20;
        Put(other, start + size, Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00 83"));
        Put(other, start + size + 17,
            {static_cast<uint8_t>(fill >> 16), static_cast<uint8_t>(fill >> 8), static_cast<uint8_t>(fill)});
        ASSERT_EQ(Run(other), kCompleted) << size;
        EXPECT_THAT(log.Lines(), IsEmpty());
        CMemoryFileIO reading(After());
        CReadMXFOp1b reader;
        ASSERT_EQ(reader.Open("clip.mxf", &reading), kStatusOk);
        EXPECT_EQ(reader.GetXMLDataSize(), size);
    }
}

TEST_F(SalvageMXFOp1b, ThumbnailOfAnotherFormatIsRefused) {
    Bytes file = Record(RecordedClip{.frames = 50}, false);
    // Format, width and height stand in front of the picture.
    const size_t width = Find(file, Hex("00 02 00 50"), 0x1C000);
    ASSERT_LT(width, kClipHeader);
    file[width - 3] = 7;
    EXPECT_EQ(Run(file), kFailed);
    EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXFOp1b::Salvage: SetThumbnailData Error."));
}

// Their sets are of other kinds here, which nobody knows.
TEST_F(SalvageMXFOp1b, HeaderWithoutXMLAndThumbnailIsNoFault) {
    Bytes file = Record(RecordedClip{.frames = 50}, false);
    for (const std::string_view key :
         {"06 0E 2B 34 01 01 01 09 0E 0E 01 01 11 01 01 00", "06 0E 2B 34 01 01 01 09 0E 0E 01 01 11 01 02 00"}) {
        const size_t set = Find(file, Hex(key));
        ASSERT_LT(set, kClipHeader);
        file[set + 14] = 0x77;
    }
    ASSERT_EQ(Run(file), kCompleted);
    EXPECT_THAT(log.Lines(), IsEmpty());
    CMemoryFileIO reading(After());
    CReadMXFOp1b reader;
    ASSERT_EQ(reader.Open("clip.mxf", &reading), kStatusOk);
    EXPECT_EQ(reader.GetXMLDataSize(), 0u);
    EXPECT_EQ(reader.GetThumbnailDataSize(), 0u);
}

TEST_F(SalvageMXFOp1b, PartThatCannotBeBuiltLeavesTheFileAlone) {
    const RecordedClip clip{.channels = 0, .frames = 50};
    const Bytes file = Record(clip, false), closed = Record(clip, true);
    const size_t randomIndex = 24 + 6 * 12, footer = closed.size() - GroupStarts(closed, 0).back() - randomIndex;
    for (const auto& [size, part] : std::vector<std::pair<size_t, std::string>>{
             {kClipHeader, "Header"}, {footer, "Footer"}, {randomIndex, "RandomIndex"}}) {
        SCOPED_TRACE(part);
        const FailingAllocation none(FailingAllocation::By::kMalloc, size);
        ExpectRefused(file, {"CSalvageMXFOp1b::Salvage: Get" + part + "Data Error."});
        EXPECT_EQ(stream->Count(Op::kWrite), 0);
    }
}

}  // namespace
}  // namespace kmxf::test
