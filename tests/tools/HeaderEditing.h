#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kmxf/core/Status.h"
#include "kmxf/tools/ModifyMXFHeaderData.h"
#include "reader/FailingAllocation.h"
#include "reader/HeaderFixture.h"
#include "support/FaultyStream.h"
#include "support/Hex.h"
#include "support/LogRecorder.h"
#include "support/TestData.h"
#include "tools/StreamFactory.h"

// Clips put together from hex text, and edits of their headers.
namespace kmxf::test {

inline constexpr std::string_view kMaterialKey = "06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 36 00";
inline constexpr std::string_view kStaticTrackSetKey = "06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 3A 00";
inline constexpr std::string_view kEventTrackSetKey = "06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 39 00";
inline constexpr std::string_view kSequenceSetKey = "06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 0F 00";
inline constexpr std::string_view kSegmentSetKey = "06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 41 00";
inline constexpr std::string_view kXMLKey = "06 0E 2B 34 01 01 01 09 0E 0E 01 01 11 01 01 00";
inline constexpr std::string_view kThumbnailKey = "06 0E 2B 34 01 01 01 09 0E 0E 01 01 11 01 02 00";
inline constexpr std::string_view kDescriptive = "06 0E 2B 34 04 01 01 01 01 03 02 01 10 00 00 00";
inline constexpr std::string_view kOldUMID =
    "A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE AF B0 B1 B2 B3 B4 B5 B6 B7 B8 B9 BA BB BC BD BE BF";
inline constexpr std::string_view kShotUMID =
    "06 0A 2B 34 01 01 01 05 01 01 0D 43 13 00 00 00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10";

// Sixteen times the same byte, for InstanceUIDs and references.
inline std::string U(char digit) {
    std::string text;
    for (int i = 0; i < 32; ++i) text += digit;
    return text;
}
inline std::string Reference(char digit) { return "00 00 00 01 00 00 00 10" + U(digit); }

inline ByteVector LongItem(std::string_view tag, const ByteVector& value) {
    return Join({Hex(tag), BigEndian(value.size(), 2), value});
}

inline ByteVector MaterialPackage(std::string_view umid = kOldUMID) {
    return Packet(kMaterialKey,
                  Join({LocalItem("3C 0A", U('1')), LocalItem("44 01", umid), LocalItem("44 03", "00 00 00 00")}));
}

// Track, sequence and segment (244 bytes), then the framework (49 bytes and the XML).
inline ByteVector XMLFramework(const ByteVector& xml) {
    return Packet(kXMLKey, Join({LocalItem("3C 0A", U('5')), LocalItem("A0 01", "00"), LongItem("A0 02", xml)}));
}
inline ByteVector XMLGroup(const ByteVector& framework) {
    return Join({Packet(kStaticTrackSetKey, Join({LocalItem("3C 0A", U('2')), LocalItem("48 01", "00 00 03 E9"),
                                                  LocalItem("48 04", "00 00 00 00"), LocalItem("48 03", U('3'))})),
                 Packet(kSequenceSetKey, Join({LocalItem("3C 0A", U('3')), LocalItem("02 01", kDescriptive),
                                               LocalItem("10 01", Reference('4'))})),
                 Packet(kSegmentSetKey, Join({LocalItem("3C 0A", U('4')), LocalItem("02 01", kDescriptive),
                                              LocalItem("61 01", U('5'))})),
                 framework});
}

// Track, sequence and segment (292 bytes), then the framework (61 bytes and the picture).
inline ByteVector ThumbnailFramework(const ByteVector& picture) {
    return Packet(kThumbnailKey,
                  Join({LocalItem("3C 0A", U('9')), LocalItem("A0 11", "01"), LocalItem("A0 12", "00 40"),
                        LocalItem("A0 13", "00 24"), LongItem("A0 14", picture)}));
}
inline ByteVector EventSegment(std::string_view position) {
    return Packet(kSegmentSetKey, Join({LocalItem("3C 0A", U('8')), LocalItem("02 01", kDescriptive),
                                        LocalItem("02 02", "00 00 00 00 00 00 00 01"), LocalItem("06 01", position),
                                        LocalItem("61 01", U('9'))}));
}
inline ByteVector ThumbnailGroup(const ByteVector& framework, const ByteVector& segment) {
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
inline ByteVector Pattern(size_t size, uint8_t seed) {
    ByteVector bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(i * 7 + i / 256 + seed);
    return bytes;
}

inline ByteVector Text(std::string_view text) { return {text.begin(), text.end()}; }

// `front` and a fill item behind it: `size` bytes. The item's bytes are not zero, so that they show when they change.
inline ByteVector Filled(const ByteVector& front, size_t size) {
    const size_t fill = size - front.size();
    if (fill == 0) return front;
    return Join({front, Hex(kFillItemKey), {0x83}, BigEndian(fill - 20, 3), Pattern(fill - 20, 0xF0)});
}

inline constexpr size_t kXMLAreaSize = 0x14000, kThumbnailAreaSize = 0x4000;
inline constexpr size_t kXMLFrameworkAt = 0x80F4, kPositionAt = 0x1C108, kThumbnailFrameworkAt = 0x1C124;

inline constexpr std::string_view kOldXML = "<clip><name>An old text</name><n>1</n>...";
static_assert(kOldXML.size() == 41);

struct HexClip {
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

inline MXFUMIDTag ShotUMID() {
    MXFUMIDTag umid;
    std::ranges::copy(Hex(kShotUMID), umid.bytes);
    return umid;
}

inline ByteVector OpAtomBytes(const ByteVector& sets = MaterialPackage()) {
    OpAtomFile file;
    file.sets = sets;
    file.essence = Hex("E0 E1 E2 E3");
    return file.Bytes();
}
inline constexpr size_t kUMIDAt = OpAtomFile::kSetsAt + 44;

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
        EXPECT_THAT(log.Lines(), testing::IsEmpty());
    }
    // The edit is refused before anything is written.
    void ExpectRefused(const Edit& edit, const ByteVector& bytes, const std::string& line,
                       int32_t status = kStatusFailure) {
        FaultyStream stream(bytes);
        EXPECT_EQ(Run(edit, stream), status);
        EXPECT_EQ(stream.Count(Op::kWrite), 0);
        EXPECT_TRUE(SameBytes(bytes, stream.Bytes()));
        EXPECT_THAT(log.Lines(), testing::ElementsAre(line));
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
                    EXPECT_THAT(lines, testing::ElementsAre(operation + ": Allocate Error.")) << call;
                } else if (call <= 5) {
                    EXPECT_THAT(lines, testing::ElementsAre(operation + ": Read Error.")) << call;
                } else if (call <= 8) {
                    EXPECT_THAT(lines, testing::ElementsAre(operation + ": Write Error.")) << call;
                } else {
                    EXPECT_THAT(lines, testing::IsEmpty()) << "the bytes are on the medium";
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
        EXPECT_THAT(log.Lines(), testing::ElementsAre(operation + ": Write Error."));

        FaultyStream slow(bytes);
        slow.CompleteAsynchronously(std::chrono::milliseconds(20));
        EXPECT_EQ(Run(edit, slow), kStatusOk);
        EXPECT_TRUE(SameBytes(edited, slow.Bytes()));
    }

    // There is no memory for the value of an item, and then none for the set, while the clip is edited.
    void ExpectMissingMemoryReported(const Edit& edit, size_t valueSize, size_t setSize, const std::string& line) {
        for (const auto& [by, size] :
             {std::pair{FailingAllocation::By::kNew, valueSize}, std::pair{FailingAllocation::By::kMalloc, setSize}}) {
            const auto bytes = HexClip().Bytes();
            const FailingAllocation none(by, size);
            ExpectRefused(edit, bytes, line, kStatusNoMemory);
        }
        FaultyStream stream(HexClip().Bytes());
        EXPECT_EQ(Run(edit, stream), kStatusOk);
    }

    LogRecorder log;
    CModifyMXFHeaderData editor;
};

}  // namespace kmxf::test
