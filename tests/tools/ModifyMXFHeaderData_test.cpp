#include "kmxf/tools/ModifyMXFHeaderData.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "kmxf/core/Status.h"
#include "reader/FailingAllocation.h"
#include "reader/HeaderFixture.h"
#include "support/FaultyStream.h"
#include "support/Hex.h"
#include "support/LogRecorder.h"
#include "support/TemporaryFolder.h"
#include "support/TestData.h"
#include "tools/StreamFactory.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// --- an OP-1b clip, put together from hex text ---

constexpr std::string_view kMaterialKey = "06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 36 00";
constexpr std::string_view kStaticTrackSetKey = "06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 3A 00";
constexpr std::string_view kEventTrackSetKey = "06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 39 00";
constexpr std::string_view kSequenceSetKey = "06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 0F 00";
constexpr std::string_view kSegmentSetKey = "06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 41 00";
constexpr std::string_view kXMLKey = "06 0E 2B 34 01 01 01 09 0E 0E 01 01 11 01 01 00";
constexpr std::string_view kThumbnailKey = "06 0E 2B 34 01 01 01 09 0E 0E 01 01 11 01 02 00";
constexpr std::string_view kDescriptive = "06 0E 2B 34 04 01 01 01 01 03 02 01 10 00 00 00";
constexpr std::string_view kOldUMID =
    "A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE AF B0 B1 B2 B3 B4 B5 B6 B7 B8 B9 BA BB BC BD BE BF";
constexpr std::string_view kShotUMID =
    "06 0A 2B 34 01 01 01 05 01 01 0D 43 13 00 00 00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10";

// Sixteen times the same byte, for InstanceUIDs and references.
std::string U(char digit) {
    std::string text;
    for (int i = 0; i < 32; ++i) text += digit;
    return text;
}
std::string Reference(char digit) { return "00 00 00 01 00 00 00 10" + U(digit); }

ByteVector LongItem(std::string_view tag, const ByteVector& value) {
    return Join({Hex(tag), BigEndian(value.size(), 2), value});
}

ByteVector MaterialPackage(std::string_view umid = kOldUMID) {
    return Packet(kMaterialKey,
                  Join({LocalItem("3C 0A", U('1')), LocalItem("44 01", umid), LocalItem("44 03", "00 00 00 00")}));
}

// Track, sequence and segment (244 bytes), then the framework (49 bytes and the XML).
ByteVector XMLFramework(const ByteVector& xml) {
    return Packet(kXMLKey, Join({LocalItem("3C 0A", U('5')), LocalItem("A0 01", "00"), LongItem("A0 02", xml)}));
}
ByteVector XMLGroup(const ByteVector& framework) {
    return Join({Packet(kStaticTrackSetKey, Join({LocalItem("3C 0A", U('2')), LocalItem("48 01", "00 00 03 E9"),
                                                  LocalItem("48 04", "00 00 00 00"), LocalItem("48 03", U('3'))})),
                 Packet(kSequenceSetKey, Join({LocalItem("3C 0A", U('3')), LocalItem("02 01", kDescriptive),
                                               LocalItem("10 01", Reference('4'))})),
                 Packet(kSegmentSetKey, Join({LocalItem("3C 0A", U('4')), LocalItem("02 01", kDescriptive),
                                              LocalItem("61 01", U('5'))})),
                 framework});
}

// Track, sequence and segment (292 bytes), then the framework (61 bytes and the picture).
ByteVector ThumbnailFramework(const ByteVector& picture) {
    return Packet(kThumbnailKey,
                  Join({LocalItem("3C 0A", U('9')), LocalItem("A0 11", "01"), LocalItem("A0 12", "00 40"),
                        LocalItem("A0 13", "00 24"), LongItem("A0 14", picture)}));
}
ByteVector EventSegment(std::string_view position) {
    return Packet(kSegmentSetKey, Join({LocalItem("3C 0A", U('8')), LocalItem("02 01", kDescriptive),
                                        LocalItem("02 02", "00 00 00 00 00 00 00 01"), LocalItem("06 01", position),
                                        LocalItem("61 01", U('9'))}));
}
ByteVector ThumbnailGroup(const ByteVector& framework, const ByteVector& segment) {
    return Join(
        {Packet(kEventTrackSetKey,
                Join({LocalItem("3C 0A", U('6')), LocalItem("48 01", "00 00 03 EA"), LocalItem("48 04", "00 00 00 00"),
                      LocalItem("4B 01", "00 00 75 30 00 00 03 E9"), LocalItem("48 03", U('7'))})),
         Packet(kSequenceSetKey,
                Join({LocalItem("3C 0A", U('7')), LocalItem("02 01", kDescriptive),
                      LocalItem("02 02", "00 00 00 00 00 00 00 01"), LocalItem("10 01", Reference('8'))})),
         segment, framework});
}

// Bytes that tell their place.
ByteVector Pattern(size_t size, uint8_t seed) {
    ByteVector bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(i * 7 + i / 256 + seed);
    return bytes;
}

ByteVector Text(std::string_view text) { return {text.begin(), text.end()}; }

// `front` and a fill item behind it: `size` bytes. The item's bytes are not zero, so that they show when they change.
ByteVector Filled(const ByteVector& front, size_t size) {
    const size_t fill = size - front.size();
    if (fill == 0) return front;
    return Join({front, Hex(kFillItemKey), {0x83}, BigEndian(fill - 20, 3), Pattern(fill - 20, 0xF0)});
}

constexpr size_t kXMLAreaSize = 0x14000, kThumbnailAreaSize = 0x4000;
constexpr size_t kXMLFrameworkAt = 0x80F4, kPositionAt = 0x1C108, kThumbnailFrameworkAt = 0x1C124;

constexpr std::string_view kOldXML = "<clip><name>An old text</name><n>1</n>...";
static_assert(kOldXML.size() == 41);

struct Clip {
    ByteVector xml = Filled(XMLGroup(XMLFramework(Text(kOldXML))), kXMLAreaSize);
    ByteVector thumbnail =
        Filled(ThumbnailGroup(ThumbnailFramework(Pattern(10854, 1)), EventSegment("00 00 00 00 00 00 01 02")),
               kThumbnailAreaSize);

    ByteVector Bytes() const {
        const auto metadata = Join({Packet(kPrimerKey, Hex("00 00 00 00 00 00 00 12")), MaterialPackage()});
        const Pack header{"02 04", kOp1b, Hex(kAES3Clip), 0x20000 - 124};
        return Join({Filled(Join({header.Bytes(), metadata}), 0x8000), xml, thumbnail, Pattern(1000, 3)});
    }
};

MXFUMIDTag ShotUMID() {
    MXFUMIDTag umid;
    std::ranges::copy(Hex(kShotUMID), umid.bytes);
    return umid;
}

ByteVector OpAtomBytes(const ByteVector& sets = MaterialPackage()) {
    OpAtomFile file;
    file.sets = sets;
    file.essence = Hex("E0 E1 E2 E3");
    return file.Bytes();
}
constexpr size_t kUMIDAt = OpAtomFile::kSetsAt + 44;

// One of the three edits, of a file of any name.
using Edit = std::function<int32_t(const char*)>;

class ModifyMXFHeaderData : public testing::Test {
protected:
    ModifyMXFHeaderData() { editor.SetShotUMID(ShotUMID()); }

    Edit SaveUMID() {
        return [this](const char* name) { return editor.Save(name); };
    }
    Edit XML(ByteVector xml) {
        return [this, xml](const char* name) {
            return editor.ModifyXMLData(name, xml.data(), static_cast<uint16_t>(xml.size()));
        };
    }
    Edit Thumbnail(ByteVector picture, int64_t position) {
        return [this, picture, position](const char* name) {
            return editor.ModifyThumbnailData(name, picture.data(), position, static_cast<uint16_t>(picture.size()));
        };
    }

    // What the edit returned for this stream, which must be closed and released and hold nothing then.
    int32_t Run(const Edit& edit, FaultyStream& stream) {
        log.Clear();
        const StreamFactory factory(&stream);
        const int32_t status = edit("a.mxf");
        EXPECT_FALSE(stream.IsOpened());
        EXPECT_EQ(stream.LivePieces(), 0);
        EXPECT_EQ(stream.LiveAllocators(), 0);
        EXPECT_TRUE(stream.Released());
        EXPECT_EQ(factory.Live(), 0);
        return status;
    }
    // The edit makes `after` of `before`.
    void ExpectEdited(const Edit& edit, const ByteVector& before, const ByteVector& after) {
        FaultyStream stream(before);
        EXPECT_EQ(Run(edit, stream), kStatusOk);
        EXPECT_TRUE(SameBytes(after, stream.Bytes()));
        EXPECT_THAT(log.Lines(), IsEmpty());
    }
    // The edit is refused before anything is written.
    void ExpectRefused(const Edit& edit, const ByteVector& bytes, const std::string& line,
                       int32_t status = kStatusFailure) {
        FaultyStream stream(bytes);
        EXPECT_EQ(Run(edit, stream), status);
        EXPECT_EQ(stream.Count(Op::kWrite), 0);
        EXPECT_TRUE(SameBytes(bytes, stream.Bytes()));
        EXPECT_THAT(log.Lines(), ElementsAre(line));
    }
    // Every call of the stream fails in turn, in every way; `lines` are those of Open, reading and writing.
    void ExpectEveryFailureReported(const Edit& edit, const ByteVector& bytes, const ByteVector& edited,
                                    const std::vector<std::string>& openLines, const std::string& operation) {
        // Open; GetPieceAllocator, Allocate, Seek, Read; Seek, Write, DataSync; Close.
        constexpr int kCalls = 9;
        for (const Fault fault : {Fault::kFail, Fault::kShort, Fault::kEndOfFile, Fault::kFailCompleted}) {
            for (int call = 1; call <= kCalls; ++call) {
                FaultyStream stream(bytes);
                stream.FailNthOfAll(call, fault);
                const int32_t status = Run(edit, stream);
                const auto lines = log.Lines();
                if (call == 1) {
                    EXPECT_EQ(lines, openLines);
                } else if (call <= 3) {
                    EXPECT_THAT(lines, ElementsAre(operation + ": Allocate Error.")) << call;
                } else if (call <= 5) {
                    EXPECT_THAT(lines, ElementsAre(operation + ": Read Error.")) << call;
                } else if (call <= 8) {
                    EXPECT_THAT(lines, ElementsAre(operation + ": Write Error.")) << call;
                } else {
                    EXPECT_THAT(lines, IsEmpty()) << "the bytes are on the medium";
                }
                const bool memory = call == 2 || call == 3;
                EXPECT_EQ(status, memory ? kStatusNoMemory : call < kCalls ? kStatusIoError : kStatusOk) << call;
                // The write may have got as far as it did, but whatever is in the file is old or new.
                if (call <= 6) {
                    EXPECT_TRUE(SameBytes(bytes, stream.Bytes())) << call;
                }
                ASSERT_EQ(stream.Bytes().size(), bytes.size());
                for (size_t i = 0; i < bytes.size(); ++i) {
                    const uint8_t byte = stream.Bytes()[i];
                    if (byte != bytes[i] && byte != edited[i]) FAIL() << "byte " << i << " at call " << call;
                }
            }
        }
        FaultyStream lost(bytes);
        lost.FailNth(Op::kWrite, 1, Fault::kBadCompletion);
        lost.FailNth(Op::kDataSync, 1);
        EXPECT_EQ(Run(edit, lost), kStatusIoError) << "a write that is lost later";
        EXPECT_THAT(log.Lines(), ElementsAre(operation + ": Write Error."));

        FaultyStream slow(bytes);
        slow.CompleteAsynchronously(std::chrono::milliseconds(20));
        EXPECT_EQ(Run(edit, slow), kStatusOk);
        EXPECT_TRUE(SameBytes(edited, slow.Bytes()));
    }

    // There is no memory for the value of an item, and then none for the set, while the clip is edited.
    void ExpectMissingMemoryReported(const Edit& edit, size_t valueSize, size_t setSize, const std::string& line) {
        for (const auto& [by, size] :
             {std::pair{FailingAllocation::By::kNew, valueSize}, std::pair{FailingAllocation::By::kMalloc, setSize}}) {
            const auto bytes = Clip().Bytes();
            const FailingAllocation none(by, size);
            ExpectRefused(edit, bytes, line, kStatusNoMemory);
        }
        FaultyStream stream(Clip().Bytes());
        EXPECT_EQ(Run(edit, stream), kStatusOk);
    }

    LogRecorder log;
    CModifyMXFHeaderData editor;
};

// --- shot UMID ---

constexpr const char* kSaveNotFound = "CModifyMXFHeaderData::Save: GetKeyParam Error.";

ByteVector WithShotUMID(ByteVector bytes) {
    Patch(bytes, kUMIDAt, Hex(kShotUMID));
    return bytes;
}

TEST_F(ModifyMXFHeaderData, SaveWritesTheShotUMIDAndNothingElse) {
    ExpectEdited(SaveUMID(), OpAtomBytes(), WithShotUMID(OpAtomBytes()));
    ExpectEdited(SaveUMID(), Clip().Bytes(), WithShotUMID(Clip().Bytes()));
}

TEST_F(ModifyMXFHeaderData, SaveReadsAndWritesTheHeaderAreaOnce) {
    FaultyStream stream(OpAtomBytes());
    EXPECT_EQ(Run(SaveUMID(), stream), kStatusOk);
    EXPECT_THAT(stream.Calls(), ElementsAre("Open a.mxf 0x2", "GetPieceAllocator", "Allocate 32768", "Seek 0 0",
                                            "Read 32768", "Seek 0 0", "Write 32768 tag 0", "DataSync", "Close"));
}

TEST_F(ModifyMXFHeaderData, ShotUMIDIsZeroAtFirst) {
    auto expected = OpAtomBytes();
    Patch(expected, kUMIDAt, ByteVector(32));
    CModifyMXFHeaderData fresh;
    ExpectEdited([&](const char* name) { return fresh.Save(name); }, OpAtomBytes(), expected);
}

TEST_F(ModifyMXFHeaderData, SaveEditsAFileOnDisk) {
    const TemporaryFolder folder;
    const std::string name = folder.File("clip.mxf");
    const auto bytes = OpAtomBytes();
    std::ofstream(name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    EXPECT_EQ(editor.Save(name.c_str()), kStatusOk);
    EXPECT_TRUE(SameBytes(WithShotUMID(bytes), LoadFile(name)));
    EXPECT_EQ(editor.Save(folder.File("none.mxf").c_str()), kStatusIoError);
    EXPECT_FALSE(std::filesystem::exists(folder.File("none.mxf")));
    EXPECT_THAT(log.Lines(), ElementsAre("CModifyMXFHeaderData::Save: Open Error."));
}

TEST_F(ModifyMXFHeaderData, SaveRefusesANullNameWithoutALog) {
    EXPECT_EQ(editor.Save(nullptr), kStatusInvalidArgument);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ModifyMXFHeaderData, LogsNameTheSourceFileAndLine) {
    const StreamFactory none(nullptr);
    EXPECT_EQ(editor.Save("a.mxf"), kStatusIoError);
    EXPECT_EQ(none.Live(), 0);
    const auto record = log.Records().at(0);
    EXPECT_EQ(record.module, "");
    EXPECT_EQ(record.function, "CModifyMXFHeaderData::Save");
    EXPECT_EQ(record.sourceFile, "ModifyMXFHeaderData");
    EXPECT_EQ(record.message, "Open Error.");
    EXPECT_EQ(record.level, kLogError);
    EXPECT_GT(record.line, 0);
}

TEST_F(ModifyMXFHeaderData, SaveNeedsTheWholeHeaderArea) {
    auto bytes = OpAtomBytes();
    bytes.resize(32768);
    ExpectEdited(SaveUMID(), bytes, WithShotUMID(bytes));
    bytes.resize(32767);
    ExpectRefused(SaveUMID(), bytes, "CModifyMXFHeaderData::Save: Read Error.", kStatusIoError);
    ExpectRefused(SaveUMID(), {}, "CModifyMXFHeaderData::Save: Read Error.", kStatusIoError);
}

TEST_F(ModifyMXFHeaderData, SaveNeedsAPackageUIDOf32Bytes) {
    ExpectRefused(SaveUMID(), OpAtomBytes(ByteVector{}), kSaveNotFound);
    ExpectRefused(SaveUMID(), OpAtomBytes(Packet(kMaterialKey, LocalItem("3C 0A", U('1')))), kSaveNotFound);
    ExpectRefused(SaveUMID(), OpAtomBytes(MaterialPackage(kOldUMID.substr(3))), kSaveNotFound);
    ExpectRefused(SaveUMID(), OpAtomBytes(MaterialPackage(std::string(kOldUMID) + " 00")), kSaveNotFound);
    ExpectRefused(SaveUMID(), ByteVector(32768), kSaveNotFound);
}

TEST_F(ModifyMXFHeaderData, PackageUIDThatReachesOutOfTheHeaderAreaIsNotFound) {
    const auto package = MaterialPackage();
    // The UMID ends 76 bytes behind the start of the package.
    for (size_t inside = 0; inside < 76; ++inside) {
        auto bytes = Join({Filled({}, 32768 - inside), package, Pattern(100, 1)});
        FaultyStream stream(bytes);
        ASSERT_EQ(Run(SaveUMID(), stream), kStatusFailure) << inside;
        ASSERT_EQ(stream.Count(Op::kWrite), 0);
    }
    auto bytes = Join({Filled({}, 32768 - 76), package, Pattern(100, 1)});
    auto expected = bytes;
    Patch(expected, 32768 - 32, Hex(kShotUMID));
    ExpectEdited(SaveUMID(), bytes, expected);
}

TEST_F(ModifyMXFHeaderData, SaveReportsEveryFailureOfTheStream) {
    ExpectEveryFailureReported(SaveUMID(), OpAtomBytes(), WithShotUMID(OpAtomBytes()),
                               {"CModifyMXFHeaderData::Save: Open Error."}, "CModifyMXFHeaderData::Save");
}

// --- XML ---

constexpr const char* kXMLNotFound = "CModifyMXFHeaderData::ModifyXMLData: GetKeyParam Error.";
constexpr const char* kXMLUnfit = "CModifyMXFHeaderData::ModifyXMLData: DMS SetData Error.";

constexpr std::string_view kXMLSetStart = "06 0E 2B 34 01 01 01 09 0E 0E 01 01 11 01 01 00 83";
const std::string kXMLSetItems = "3C 0A 00 10" + U('5') + "A0 01 00 01 00 A0 02";

TEST_F(ModifyMXFHeaderData, ShorterXMLLetsTheFillItemGrowUpToTheThumbnail) {
    auto expected = Clip().Bytes();
    Patch(expected, kXMLFrameworkAt,
          Join({Hex(kXMLSetStart), Hex("00 00 23"), Hex(kXMLSetItems), Hex("00 06"), Text("<new/>"),
                Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00 83 01 3E C1")}));
    ExpectEdited(XML(Text("<new/>")), Clip().Bytes(), expected);
}

TEST_F(ModifyMXFHeaderData, LongerXMLTakesFromTheFillItem) {
    const auto xml = Pattern(1000, 5);
    auto expected = Clip().Bytes();
    Patch(expected, kXMLFrameworkAt,
          Join({Hex(kXMLSetStart), Hex("00 04 05"), Hex(kXMLSetItems), Hex("03 E8"), xml,
                Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00 83 01 3A DF")}));
    ExpectEdited(XML(xml), Clip().Bytes(), expected);
}

TEST_F(ModifyMXFHeaderData, XMLOfTheSameLengthChangesTheXMLOnly) {
    const auto xml = Pattern(41, 9);
    auto expected = Clip().Bytes();
    Patch(expected, kXMLFrameworkAt + 49, xml);
    ExpectEdited(XML(xml), Clip().Bytes(), expected);
}

TEST_F(ModifyMXFHeaderData, LongestXMLFits) {
    const auto xml = Pattern(65535, 2);
    auto expected = Clip().Bytes();
    Patch(expected, kXMLFrameworkAt,
          Join({Hex(kXMLSetStart), Hex("01 00 1C"), Hex(kXMLSetItems), Hex("FF FF"), xml,
                Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00 83 00 3E C8")}));
    ExpectEdited(XML(xml), Clip().Bytes(), expected);
}

TEST_F(ModifyMXFHeaderData, XMLIsReplacedAgainAndAgain) {
    FaultyStream stream(Clip().Bytes());
    for (const size_t size : {65535u, 1u, 700u, 41u}) EXPECT_EQ(Run(XML(Pattern(size, 4)), stream), kStatusOk);
    // As if the last text were the only one, but for what the fill item covers: it begins at 0x814E.
    auto last = stream.Bytes();
    const auto original = Clip().Bytes();
    std::copy(original.begin() + 0x8162, original.begin() + 0x1C000, last.begin() + 0x8162);
    auto expected = original;
    Patch(expected, kXMLFrameworkAt + 49, Pattern(41, 4));
    EXPECT_TRUE(SameBytes(expected, last));
}

TEST_F(ModifyMXFHeaderData, ModifyXMLDataReadsAndWritesTheHeaderOnce) {
    FaultyStream stream(Clip().Bytes());
    EXPECT_EQ(Run(XML(Text("a")), stream), kStatusOk);
    EXPECT_THAT(stream.Calls(), ElementsAre("Open a.mxf 0x2", "GetPieceAllocator", "Allocate 131072", "Seek 0 0",
                                            "Read 131072", "Seek 0 0", "Write 131072 tag 0", "DataSync", "Close"));
}

TEST_F(ModifyMXFHeaderData, ModifyXMLDataTakesNoNullAndNoEmptyText) {
    FaultyStream stream(Clip().Bytes());
    const StreamFactory factory(&stream);
    const uint8_t xml = 'x';
    EXPECT_EQ(editor.ModifyXMLData(nullptr, &xml, 1), kStatusInvalidArgument);
    EXPECT_EQ(editor.ModifyXMLData("a.mxf", nullptr, 1), kStatusInvalidArgument);
    EXPECT_EQ(editor.ModifyXMLData("a.mxf", &xml, 0), kStatusInvalidArgument);
    EXPECT_EQ(stream.CountOfAll(), 0) << "the file is not even opened";
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ModifyMXFHeaderData, ModifyXMLDataNeedsTheWholeHeader) {
    auto bytes = Clip().Bytes();
    bytes.resize(0x20000);
    FaultyStream stream(bytes);
    EXPECT_EQ(Run(XML(Text("a")), stream), kStatusOk);
    bytes.resize(0x1FFFF);
    ExpectRefused(XML(Text("a")), bytes, "CModifyMXFHeaderData::ModifyXMLData: Read Error.", kStatusIoError);
    ExpectRefused(XML(Text("a")), OpAtomBytes(), "CModifyMXFHeaderData::ModifyXMLData: Read Error.", kStatusIoError);
}

TEST_F(ModifyMXFHeaderData, ClipWithoutXMLIsLeftAlone) {
    Clip clip;
    clip.xml = Filled({}, kXMLAreaSize);
    ExpectRefused(XML(Text("a")), clip.Bytes(), kXMLNotFound);
    ExpectRefused(XML(Text("a")), ByteVector(0x20000), kXMLNotFound);
}

TEST_F(ModifyMXFHeaderData, XMLSetThatIsNotAsOursIsLeftAlone) {
    const auto with = [](const ByteVector& framework) {
        Clip clip;
        clip.xml = Filled(XMLGroup(framework), kXMLAreaSize);
        return clip.Bytes();
    };
    // An item of somebody else's would be lost.
    ExpectRefused(XML(Text("a")),
                  with(Packet(kXMLKey, Join({LocalItem("3C 0A", U('5')), LocalItem("A0 02", "78"),
                                             LocalItem("A0 77", "01 02")}))),
                  kXMLUnfit);
    // The InstanceUID is not the first item.
    ExpectRefused(
        XML(Text("a")),
        with(Packet(kXMLKey, Join({LocalItem("A0 01", "00"), LocalItem("3C 0A", U('5')), LocalItem("A0 02", "78")}))),
        kXMLUnfit);
    // A type wider than its field.
    ExpectRefused(XML(Text("a")),
                  with(Packet(kXMLKey, Join({LocalItem("3C 0A", U('5')), LocalItem("A0 01", "00 00"),
                                             LocalItem("A0 02", "78")}))),
                  kXMLUnfit);
    // No InstanceUID, or one of another width.
    ExpectRefused(XML(Text("a")), with(Packet(kXMLKey, LocalItem("A0 02", "78"))), kXMLNotFound);
    ExpectRefused(XML(Text("a")), with(Packet(kXMLKey, Join({LocalItem("3C 0A", "01 02"), LocalItem("A0 02", "78")}))),
                  kXMLNotFound);
    // A length of another form: the set begins elsewhere than it seems.
    ExpectRefused(XML(Text("a")),
                  with(Join({Hex(kXMLKey), {25}, LocalItem("3C 0A", U('5')), LocalItem("A0 02", "78")})), kXMLUnfit);
}

TEST_F(ModifyMXFHeaderData, XMLSetWithAShortLengthAtTheVeryStartOfItsRoomIsNotFound) {
    Clip clip;
    clip.xml = Filled(Join({Hex(kXMLKey), {25}, LocalItem("3C 0A", U('5')), LocalItem("A0 02", "78")}), kXMLAreaSize);
    ExpectRefused(XML(Text("a")), clip.Bytes(), kXMLNotFound);
}

TEST_F(ModifyMXFHeaderData, XMLSetWithoutItsTypeGetsOne) {
    Clip clip;
    clip.xml =
        Filled(XMLGroup(Packet(kXMLKey, Join({LocalItem("3C 0A", U('5')), LocalItem("A0 02", "78")}))), kXMLAreaSize);
    auto expected = clip.Bytes();
    Patch(expected, kXMLFrameworkAt,
          Join({Hex(kXMLSetStart), Hex("00 00 1E"), Hex(kXMLSetItems), Hex("00 01"), Text("y"),
                Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00 83 01 3E C6")}));
    ExpectEdited(XML(Text("y")), clip.Bytes(), expected);
}

TEST_F(ModifyMXFHeaderData, XMLFitsItsRoomExactlyOrWithAFillItem) {
    // The set of a text of one byte has 50 bytes; one of n bytes 49 + n.
    const auto room = [](size_t size) {
        Clip clip;
        clip.xml = Filled(Filled({}, kXMLAreaSize - size), kXMLAreaSize - size);
        clip.xml = Join({clip.xml, Filled(XMLFramework(Text("x")), size)});
        return clip.Bytes();
    };
    const auto edited = [](ByteVector bytes, size_t size, const ByteVector& set) {
        Patch(bytes, 0x1C000 - size, set);
        return bytes;
    };
    const auto set = [](std::string_view length, std::string_view size, std::string_view xml) {
        return Join({Hex(kXMLSetStart), Hex(length), Hex(kXMLSetItems), Hex(size), Text(xml)});
    };
    const auto emptyFill = Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00 83 00 00 00");
    // 80 bytes of room: 31 fill it, 11 leave room for an empty fill item, what is between does not fit, nor do 32.
    const auto bytes = room(80);
    ExpectEdited(XML(Text("0123456789012345678901234567890")), bytes,
                 edited(bytes, 80, set("00 00 3C", "00 1F", "0123456789012345678901234567890")));
    ExpectEdited(XML(Text("01234567890")), bytes,
                 edited(bytes, 80, Join({set("00 00 28", "00 0B", "01234567890"), emptyFill})));
    for (const size_t size : {12u, 21u, 30u, 32u, 33u, 65535u})
        ExpectRefused(XML(ByteVector(size, 'x')), bytes, kXMLUnfit);
}

TEST_F(ModifyMXFHeaderData, XMLSetInTheRoomOfTheThumbnailIsLeftAlone) {
    Clip clip;
    clip.xml = Filled({}, kXMLAreaSize);
    clip.thumbnail = Filled(XMLGroup(XMLFramework(Text("x"))), kThumbnailAreaSize);
    ExpectRefused(XML(Text("a")), clip.Bytes(), kXMLUnfit);
    clip.thumbnail = Filled(XMLFramework(Text("x")), kThumbnailAreaSize);
    ExpectRefused(XML(Text("a")), clip.Bytes(), kXMLUnfit);
}

TEST_F(ModifyMXFHeaderData, XMLSetThatReachesOutOfItsRoomIsLeftAlone) {
    const auto set = XMLFramework(Text("0123456789"));
    for (size_t inside = 1; inside < set.size(); ++inside) {
        Clip clip;
        clip.xml = Filled({}, kXMLAreaSize - inside);
        auto bytes = Join({clip.Bytes()});
        // The set runs from the end of its room into that of the thumbnail.
        bytes.resize(0x20000);
        Patch(bytes, 0x1C000 - inside, set);
        FaultyStream stream(bytes);
        ASSERT_EQ(Run(XML(Text("a")), stream), kStatusFailure) << inside;
        ASSERT_EQ(stream.Count(Op::kWrite), 0);
    }
}

TEST_F(ModifyMXFHeaderData, SetsOfOtherWritersBehindTheXMLAreNotCovered) {
    const auto stranger = Packet("06 0E 2B 34 02 53 01 01 0F 0F 0F 0F 0F 0F 0F 00", Hex("01 02 03"));
    Clip clip;
    clip.xml = Filled(Join({XMLGroup(XMLFramework(Text("x"))), stranger}), kXMLAreaSize);
    ExpectRefused(XML(Text("a")), clip.Bytes(), kXMLUnfit);
    clip.xml = Join({Filled(XMLGroup(XMLFramework(Text("x"))), 1000), Filled(stranger, kXMLAreaSize - 1000)});
    ExpectRefused(XML(Text("a")), clip.Bytes(), kXMLUnfit);
    // In front of the XML they may stand.
    clip.xml = Filled(Join({stranger, XMLGroup(XMLFramework(Text("x")))}), kXMLAreaSize);
    auto expected = clip.Bytes();
    Patch(expected, kXMLFrameworkAt + 23 + 49, Text("y"));
    ExpectEdited(XML(Text("y")), clip.Bytes(), expected);
}

TEST_F(ModifyMXFHeaderData, WhatIsNoPacketIsCoveredByTheFillItem) {
    const auto group = XMLGroup(XMLFramework(Text("x")));  // 294 bytes
    const auto fill = Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00 83 01 3E C6");
    for (const auto& rest : {
             ByteVector(kXMLAreaSize - 294),                                                 // zeros
             Pattern(kXMLAreaSize - 294, 1),                                                 // anything
             Join({Filled({}, 500), Filled({}, kXMLAreaSize - 794)}),                        // two fill items
             Join({Filled({}, 500), ByteVector(kXMLAreaSize - 794, 0xFF)}),                  // a fill item and anything
             Join({Hex(kFillItemKey), Hex("83 FF FF FF"), ByteVector(kXMLAreaSize - 314)}),  // one that leads outside
         }) {
        Clip clip;
        clip.xml = Join({group, rest});
        auto expected = clip.Bytes();
        Patch(expected, 0x8000 + 293, Text("y"));
        Patch(expected, 0x8000 + 294, fill);
        ExpectEdited(XML(Text("y")), clip.Bytes(), expected);
    }
}

TEST_F(ModifyMXFHeaderData, ModifyXMLDataReportsEveryFailureOfTheStreamButOpenByItsStatusOnly) {
    FaultyStream stream(Clip().Bytes());
    ASSERT_EQ(Run(XML(Text("<new/>")), stream), kStatusOk);
    ExpectEveryFailureReported(XML(Text("<new/>")), Clip().Bytes(), stream.Bytes(), {},
                               "CModifyMXFHeaderData::ModifyXMLData");
}

TEST_F(ModifyMXFHeaderData, ModifyXMLDataReportsMissingMemory) {
    ExpectMissingMemoryReported(XML(Pattern(5003, 9)), 5003, 5003 + 49,
                                "CModifyMXFHeaderData::ModifyXMLData: Allocate Error.");
}

// --- thumbnail ---

constexpr const char* kThumbnailNotFound = "CModifyMXFHeaderData::ModifyThumbnailData: GetKeyParam Error.";
constexpr const char* kThumbnailUnfit = "CModifyMXFHeaderData::ModifyThumbnailData: DMS SetData Error.";

const std::string kThumbnailSet = "06 0E 2B 34 01 01 01 09 0E 0E 01 01 11 01 02 00 83 00 2A 8F  3C 0A 00 10" + U('9') +
                                  "A0 11 00 01 01  A0 12 00 02 00 40  A0 13 00 02 00 24  A0 14 2A 66";

// A clip whose old picture has this size.
ByteVector ClipWithPicture(size_t size) {
    Clip clip;
    clip.thumbnail =
        Filled(ThumbnailGroup(ThumbnailFramework(Pattern(size, 1)), EventSegment("00 00 00 00 00 00 01 02")),
               kThumbnailAreaSize);
    return clip.Bytes();
}

TEST_F(ModifyMXFHeaderData, ThumbnailAndItsPositionAreReplacedAndNothingElse) {
    const auto picture = Pattern(10854, 77);
    auto expected = Clip().Bytes();
    Patch(expected, kPositionAt, Hex("01 02 03 04 05 06 07 08"));
    Patch(expected, kThumbnailFrameworkAt, Join({Hex(kThumbnailSet), picture}));
    ExpectEdited(Thumbnail(picture, 0x0102030405060708), Clip().Bytes(), expected);
    // The set is as long as before, so the fill item is not touched, whatever it looks like.
    auto strange = Clip().Bytes();
    Patch(strange, kThumbnailFrameworkAt + 10915, ByteVector(300, 0x55));
    Patch(expected, kThumbnailFrameworkAt + 10915, ByteVector(300, 0x55));
    ExpectEdited(Thumbnail(picture, 0x0102030405060708), strange, expected);
}

TEST_F(ModifyMXFHeaderData, PositionMayBeAsItWasOrNegative) {
    const auto picture = Pattern(10854, 1);
    ExpectEdited(Thumbnail(picture, 0x102), Clip().Bytes(), Clip().Bytes());
    auto expected = Clip().Bytes();
    Patch(expected, kPositionAt, Hex("80 00 00 00 00 00 00 00"));
    ExpectEdited(Thumbnail(picture, std::numeric_limits<int64_t>::min()), Clip().Bytes(), expected);
}

TEST_F(ModifyMXFHeaderData, PictureOfAnotherSizeTakesTheFillItemAlong) {
    const auto picture = Pattern(10854, 77);
    for (const size_t size : {0u, 3u, 10853u, 10855u, 16011u, 16031u}) {
        auto expected = ClipWithPicture(size);
        Patch(expected, kPositionAt, Hex("00 00 00 00 00 00 00 00"));
        Patch(expected, kThumbnailFrameworkAt,
              Join({Hex(kThumbnailSet), picture, Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00 83 00 14 25")}));
        ExpectEdited(Thumbnail(picture, 0), ClipWithPicture(size), expected);
    }
}

TEST_F(ModifyMXFHeaderData, ThumbnailHasExactly10854Bytes) {
    FaultyStream stream(Clip().Bytes());
    const StreamFactory factory(&stream);
    const ByteVector picture(65535);
    for (const uint16_t length : {uint16_t{0}, uint16_t{10853}, uint16_t{10855}, uint16_t{65535}})
        EXPECT_EQ(editor.ModifyThumbnailData("a.mxf", picture.data(), 0, length), kStatusInvalidArgument);
    EXPECT_EQ(editor.ModifyThumbnailData(nullptr, picture.data(), 0, 10854), kStatusInvalidArgument);
    EXPECT_EQ(editor.ModifyThumbnailData("a.mxf", nullptr, 0, 10854), kStatusInvalidArgument);
    EXPECT_EQ(stream.CountOfAll(), 0) << "the file is not even opened";
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ModifyMXFHeaderData, ModifyThumbnailDataNeedsTheWholeHeader) {
    const auto edit = Thumbnail(Pattern(10854, 1), 0);
    auto bytes = Clip().Bytes();
    bytes.resize(0x1FFFF);
    ExpectRefused(edit, bytes, "CModifyMXFHeaderData::ModifyThumbnailData: Read Error.", kStatusIoError);
}

TEST_F(ModifyMXFHeaderData, ClipWithoutAThumbnailIsLeftAlone) {
    const auto edit = Thumbnail(Pattern(10854, 1), 0);
    Clip clip;
    clip.thumbnail = Filled({}, kThumbnailAreaSize);
    ExpectRefused(edit, clip.Bytes(), kThumbnailNotFound);
    // A segment without a position, with one of another width, or without the framework.
    const auto framework = ThumbnailFramework(Pattern(10854, 1));
    clip.thumbnail = Filled(ThumbnailGroup({}, Packet(kSegmentSetKey, LocalItem("3C 0A", U('8')))), kThumbnailAreaSize);
    ExpectRefused(edit, clip.Bytes(), kThumbnailNotFound);
    clip.thumbnail = Filled(ThumbnailGroup(framework, EventSegment("00 00 00 01")), kThumbnailAreaSize);
    ExpectRefused(edit, clip.Bytes(), kThumbnailNotFound);
    clip.thumbnail = Filled(ThumbnailGroup({}, EventSegment("00 00 00 00 00 00 00 01")), kThumbnailAreaSize);
    ExpectRefused(edit, clip.Bytes(), kThumbnailNotFound);
}

TEST_F(ModifyMXFHeaderData, ThumbnailSetThatIsNotAsOursIsLeftAlone) {
    const auto edit = Thumbnail(Pattern(10854, 1), 0);
    Clip clip;
    clip.thumbnail =
        Filled(ThumbnailGroup(Packet(kThumbnailKey, Join({LocalItem("3C 0A", U('9')), LocalItem("A0 14", "42 4D"),
                                                          LocalItem("A0 77", "01")})),
                              EventSegment("00 00 00 00 00 00 00 01")),
               kThumbnailAreaSize);
    ExpectRefused(edit, clip.Bytes(), kThumbnailUnfit);
    // A set that is a byte longer than its room.
    auto bytes = ClipWithPicture(16031);
    Patch(bytes, kThumbnailFrameworkAt + 17, Hex("00 3E C9"));
    ExpectRefused(edit, bytes, kThumbnailUnfit);
}

TEST_F(ModifyMXFHeaderData, ThumbnailThatDoesNotFitIsLeftAlone) {
    // The set needs 10915 bytes, and then none or at least 20.
    const auto room = [](size_t size) {
        Clip clip;
        clip.thumbnail = Join({Filled(EventSegment("00 00 00 00 00 00 00 01"), kThumbnailAreaSize - size),
                               Filled(ThumbnailFramework(Hex("42 4D")), size)});
        return clip.Bytes();
    };
    const auto edit = Thumbnail(Pattern(10854, 1), 1);
    for (const size_t size : {10000u, 10914u, 10916u, 10934u}) ExpectRefused(edit, room(size), kThumbnailUnfit);
    for (const auto& [size, fill] : std::vector<std::pair<size_t, std::string_view>>{
             {10915, ""},
             {10935, "06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00 83 00 00 00"},
             {12000, "06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00 83 00 04 29"},
         }) {
        auto expected = room(size);
        Patch(expected, 0x1C000 + 76, Hex("00 00 00 00 00 00 00 01"));
        Patch(expected, 0x20000 - size, Join({Hex(kThumbnailSet), Pattern(10854, 1), Hex(fill)}));
        ExpectEdited(edit, room(size), expected);
    }
}

TEST_F(ModifyMXFHeaderData, SetsOfOtherWritersBehindTheThumbnailAreNotCovered) {
    const auto stranger = Packet("06 0E 2B 34 02 53 01 01 0F 0F 0F 0F 0F 0F 0F 00", Hex("01 02 03"));
    Clip clip;
    clip.thumbnail = Filled(
        Join({ThumbnailGroup(ThumbnailFramework(Hex("42 4D")), EventSegment("00 00 00 00 00 00 00 01")), stranger}),
        kThumbnailAreaSize);
    ExpectRefused(Thumbnail(Pattern(10854, 1), 0), clip.Bytes(), kThumbnailUnfit);
}

TEST_F(ModifyMXFHeaderData, ModifyThumbnailDataReportsEveryFailureOfTheStreamButOpenByItsStatusOnly) {
    const auto edit = Thumbnail(Pattern(10854, 77), 5);
    FaultyStream stream(ClipWithPicture(2));
    ASSERT_EQ(Run(edit, stream), kStatusOk);
    ExpectEveryFailureReported(edit, ClipWithPicture(2), stream.Bytes(), {},
                               "CModifyMXFHeaderData::ModifyThumbnailData");
}

TEST_F(ModifyMXFHeaderData, ModifyThumbnailDataReportsMissingMemory) {
    // The old picture is as large, and read first.
    ExpectMissingMemoryReported(Thumbnail(Pattern(10854, 9), 5), 10854, 10854 + 61,
                                "CModifyMXFHeaderData::ModifyThumbnailData: Allocate Error.");
}

// --- durations of an OP-Atom header in memory ---

constexpr std::string_view kFilePackageKeyText = "06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 37 00";
constexpr std::string_view kSourceClipSetKey = "06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 11 00";
constexpr std::string_view kAVCClip = "06 0E 2B 34 04 01 01 01 0D 01 03 01 02 10 60 02";
constexpr std::string_view kDVClip = "06 0E 2B 34 04 01 01 01 0D 01 03 01 02 02 41 02";
constexpr std::string_view kOldDuration = "AA BB CC DD EE FF 01 02";
constexpr std::string_view kNewDuration = "00 00 00 00 FE DC BA 98";

// Sets with a duration and something around it.
ByteVector Timed(std::string_view key, std::string_view tag, std::string_view duration = kOldDuration) {
    return Packet(key, Join({LocalItem("3C 0A", U('3')), LocalItem(tag, duration), LocalItem("02 01", kDescriptive)}));
}
ByteVector FilePackage() { return Packet(kFilePackageKeyText, LocalItem("3C 0A", U('2'))); }

// The 32768 bytes in front of the essence, on the heap and not a byte longer.
ByteVector HeaderWith(std::string_view container, const ByteVector& sets) {
    OpAtomFile file;
    file.container = Hex(container);
    file.sets = sets;
    return file.HeaderArea();
}

// Which of these sets a change touched: their old duration is gone from the right place.
ByteVector Sets(std::initializer_list<std::pair<std::string_view, bool>> keysAndChanges) {
    ByteVector sets;
    for (const auto& [key, changed] : keysAndChanges) {
        const bool descriptor = key != kSequenceSetKey && key != kSourceClipSetKey;
        const auto set = key == kFilePackageKeyText
                             ? FilePackage()
                             : Timed(key, descriptor ? "30 02" : "02 02", changed ? kNewDuration : kOldDuration);
        sets.insert(sets.end(), set.begin(), set.end());
    }
    return sets;
}

TEST(ModifyFilePackageDuration, ChangesTheFirstSetsBehindTheFilePackageAndTheDescriptorOfTheContainer) {
    const auto expectChanged = [](std::string_view container, bool cdci, bool mpeg, bool aes3) {
        const auto sets = [&](bool changed) {
            return Sets({{kSequenceSetKey, false},  // of the material package
                         {kSourceClipSetKey, false},
                         {kCDCIKey, false},
                         {kFilePackageKeyText, false},
                         {kCDCIKey, changed && cdci},
                         {kSourceClipSetKey, changed},
                         {kSequenceSetKey, changed},
                         {kSequenceSetKey, false},
                         {kSourceClipSetKey, false},
                         {kMPEGKey, changed && mpeg},
                         {kAES3Key, changed && aes3},
                         {kAES3Key, false},
                         {kMPEGKey, false}});
        };
        auto header = HeaderWith(container, sets(false));
        EXPECT_TRUE(ModifyFilePackageDuration(header.data(), 0xFEDCBA98));
        EXPECT_TRUE(SameBytes(HeaderWith(container, sets(true)), header));
    };
    expectChanged(kAES3Clip, false, false, true);
    expectChanged(kAVCClip, false, true, false);
    expectChanged(kDVClip, true, false, false);
    // All 16 bytes of a label count: frame-wrapped sound is not known.
    expectChanged("06 0E 2B 34 04 01 01 01 0D 01 03 01 02 06 03 00", true, false, false);
    expectChanged("06 0E 2B 34 04 01 01 0A 0D 01 03 01 02 10 60 02", true, false, false);
}

TEST(ModifyFilePackageDuration, WithoutABufferIsFalse) { EXPECT_FALSE(ModifyFilePackageDuration(nullptr, 1)); }

TEST(ModifyFilePackageDuration, StopsAtTheFirstThatIsMissing) {
    const auto expectFalse = [](const ByteVector& before, const ByteVector& after) {
        auto header = HeaderWith(kDVClip, before);
        EXPECT_FALSE(ModifyFilePackageDuration(header.data(), 0xFEDCBA98));
        EXPECT_TRUE(SameBytes(HeaderWith(kDVClip, after), header));
    };
    const auto none = Sets({{kSequenceSetKey, false}, {kSourceClipSetKey, false}, {kCDCIKey, false}});
    expectFalse(none, none);
    // The sequence is missing: nothing changes. Then the source clip, then the descriptor: what came before stays.
    expectFalse(Sets({{kFilePackageKeyText, false}, {kSourceClipSetKey, false}, {kCDCIKey, false}}),
                Sets({{kFilePackageKeyText, false}, {kSourceClipSetKey, false}, {kCDCIKey, false}}));
    expectFalse(Sets({{kFilePackageKeyText, false}, {kSequenceSetKey, false}, {kCDCIKey, false}}),
                Sets({{kFilePackageKeyText, false}, {kSequenceSetKey, true}, {kCDCIKey, false}}));
    expectFalse(Sets({{kFilePackageKeyText, false}, {kSequenceSetKey, false}, {kSourceClipSetKey, false}}),
                Sets({{kFilePackageKeyText, false}, {kSequenceSetKey, true}, {kSourceClipSetKey, true}}));
}

TEST(ModifyFilePackageDuration, LeavesADurationOfAnotherWidthAlone) {
    for (const auto* odd : {"", "00 00 00 00", "00 00 00 00 00 00 00", "00 00 00 00 00 00 00 00 00"}) {
        auto header = HeaderWith(kDVClip, Join({FilePackage(), Timed(kSequenceSetKey, "02 02", odd),
                                                Sets({{kSourceClipSetKey, false}, {kCDCIKey, false}})}));
        const auto before = header;
        EXPECT_FALSE(ModifyFilePackageDuration(header.data(), 7)) << odd;
        EXPECT_TRUE(SameBytes(before, header));
    }
}

TEST(ModifyFilePackageDuration, FilePackageWithAShortLengthAtTheVeryStartIsNoPlaceToBegin) {
    auto header = Join({Hex(kFilePackageKeyText),
                        {20},
                        LocalItem("3C 0A", U('2')),
                        Sets({{kSequenceSetKey, false}, {kSourceClipSetKey, false}, {kCDCIKey, false}})});
    header.resize(32768);
    const auto before = header;
    EXPECT_FALSE(ModifyFilePackageDuration(header.data(), 7));
    EXPECT_TRUE(SameBytes(before, header));
}

TEST(ModifyFilePackageDuration, NeverLeavesTheHeaderHoweverMuchOfTheSetsIsInside) {
    const auto sets =
        Sets({{kFilePackageKeyText, false}, {kSequenceSetKey, false}, {kSourceClipSetKey, false}, {kCDCIKey, false}});
    // The last duration ends 20 bytes before the end of the sets.
    for (size_t inside = 0; inside <= sets.size(); ++inside) {
        ByteVector header = Join({Pack{"02 04", kOpAtom, Hex(kDVClip)}.Bytes(), Filled({}, 32768 - 124 - inside),
                                  ByteVector(sets.begin(), sets.begin() + static_cast<std::ptrdiff_t>(inside))});
        header.shrink_to_fit();
        ASSERT_EQ(ModifyFilePackageDuration(header.data(), 7), inside + 20 >= sets.size()) << inside;
    }
}

// --- truncation ---

class TruncatePelmardTest : public testing::Test {
protected:
    TruncatePelmardTest() { std::ofstream(name) << "0123456789"; }
    ByteVector Contents() const { return LoadFile(name); }

    TemporaryFolder folder;
    const std::string name = folder.File("clip.mxf");
};

TEST_F(TruncatePelmardTest, CutsAFile) {
    EXPECT_TRUE(TruncatePelmard(name.c_str(), 4));
    EXPECT_EQ(Contents(), Text("0123"));
    EXPECT_TRUE(TruncatePelmard(name.c_str(), 4));
    EXPECT_EQ(Contents(), Text("0123"));
    EXPECT_TRUE(TruncatePelmard(name.c_str(), 0));
    EXPECT_EQ(Contents(), Text(""));
}

TEST_F(TruncatePelmardTest, LengthBehindTheEndAddsZeros) {
    EXPECT_TRUE(TruncatePelmard(name.c_str(), 12));
    EXPECT_EQ(Contents(), Join({Text("0123456789"), Hex("00 00")}));
    EXPECT_TRUE(TruncatePelmard(name.c_str(), int64_t{5} << 30));
    EXPECT_EQ(std::filesystem::file_size(name), uintmax_t{5} << 30);
}

TEST_F(TruncatePelmardTest, RefusesWhatCannotBe) {
    EXPECT_FALSE(TruncatePelmard(nullptr, 4));
    EXPECT_FALSE(TruncatePelmard("", 4));
    EXPECT_FALSE(TruncatePelmard(name.c_str(), -1));
    EXPECT_FALSE(TruncatePelmard(name.c_str(), std::numeric_limits<int64_t>::min()));
    EXPECT_FALSE(TruncatePelmard(name.c_str(), std::numeric_limits<int64_t>::max()));
    EXPECT_FALSE(TruncatePelmard(folder.Path().c_str(), 4));
    EXPECT_EQ(Contents(), Text("0123456789"));
}

TEST_F(TruncatePelmardTest, MissingFileIsNotMade) {
    const auto missing = folder.File("missing.mxf");
    EXPECT_FALSE(TruncatePelmard(missing.c_str(), 4));
    EXPECT_FALSE(std::filesystem::exists(missing));
}

}  // namespace
}  // namespace kmxf::test
