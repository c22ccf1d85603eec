#include "kmxf/tools/SalvageMXFOp1b.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"
#include "kmxf/reader/ReadMXFOp1b.h"
#include "reader/FailingAllocation.h"
#include "support/Hex.h"
#include "support/Packets.h"
#include "tools/ClipSalvage.h"

// Which groups of the body are kept.
namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(SalvageMXFOp1b, RecordingCutAnywhereKeepsItsWholeGroups) {
    const RecordedClip clip{.channels = 1, .frames = 110};
    const Bytes closed = Record(clip, true), whole = Record(clip, false);
    const auto starts = GroupStarts(closed, 1);
    ASSERT_EQ(starts.size(), 4u);  // of three groups and the footer
    std::vector<size_t> sizes = {kClipHeader, kClipHeader + 1, whole.size()};
    for (const Packet& packet : Packets(whole, starts[1], whole.size())) {
        for (const size_t size : {packet.offset - 1, packet.offset, packet.offset + 20, packet.End() - 1}) {
            if (sizes.back() != size && Noise(1, static_cast<uint32_t>(size))[0] < 100) sizes.push_back(size);
        }
    }
    for (size_t i = 1; i < starts.size(); ++i) sizes.insert(sizes.end(), {starts[i] - 1, starts[i]});
    for (const size_t size : sizes) {
        SCOPED_TRACE(size);
        const Bytes cut = First(whole, size);
        const auto groups = static_cast<size_t>(
            std::ranges::count_if(starts, [&](size_t start) { return start <= size && start > kClipHeader; }));
        if (groups == 0) {
            ExpectRefused(cut, {"CSalvageMXFOp1b::GetFileParam: Duration is 0."});
            continue;
        }
        ASSERT_EQ(Run(cut), kCompleted);
        EXPECT_THAT(log.Lines(), IsEmpty());
        const uint32_t frames = std::min<uint32_t>(110, static_cast<uint32_t>(groups) * 50);
        EXPECT_EQ(salvager->GetDuration(), frames);
        EXPECT_EQ(NumberAt(After(), 44, 8), starts[groups]);
        EXPECT_TRUE(SameBytes(Hex(kFooterKey), std::span(After()).subspan(starts[groups], 16)));
        EXPECT_TRUE(SameBytes(std::span(whole).subspan(kClipHeader, starts[groups] - kClipHeader),
                              std::span(After()).subspan(kClipHeader, starts[groups] - kClipHeader)));
        // The random index is the last packet, right behind the footer.
        const size_t overall = NumberAt(After(), After().size() - 4, 4);
        EXPECT_EQ(overall, 24 + 12 * (2 + 6 * groups));
        if (size % 5 == 0) ExpectFrames(clip, frames);
    }
}

TEST_F(SalvageMXFOp1b, HeaderAloneOrLessIsNotSalvaged) {
    const Bytes whole = Record(RecordedClip{}, false);
    ExpectRefused(First(whole, kClipHeader), {"CSalvageMXFOp1b::GetFileParam: Duration is 0."});
    for (const size_t size : {size_t{0}, size_t{1}, size_t{32768}, kClipHeader - 1}) {
        ExpectRefused(First(whole, size), {"CSalvageMXFOp1b::GetHeaderParam: Read Error."});
    }
}

TEST_F(SalvageMXFOp1b, LastGroupMayBeShorter) {
    const RecordedClip clip{.videoStd = VIDEO_STD_29_97P, .frames = 130};
    ASSERT_EQ(Run(Record(clip, false)), kCompleted);
    EXPECT_EQ(salvager->GetDuration(), 130);
    ExpectFrames(clip, 130);
}

TEST_F(SalvageMXFOp1b, NothingFollowsAShortGroup) {
    const RecordedClip clip{.channels = 0, .frames = 107};
    Bytes file = Record(clip, true);
    const auto starts = GroupStarts(file, 0);
    // A group by its bytes, with another number of its first frame
    const auto group = [&](size_t number, uint8_t first) {
        Bytes bytes(file.begin() + At(starts[number]), file.begin() + At(starts[number + 1]));
        for (size_t at = 0; (at = Find(bytes, Hex(kStartItem), at)) < bytes.size(); at += 12) bytes[at + 11] = first;
        return bytes;
    };
    const auto joined = [](Bytes front, const std::vector<Bytes>& groups) {
        for (const Bytes& each : groups) front.insert(front.end(), each.begin(), each.end());
        return front;
    };
    ASSERT_EQ(Run(joined(First(file, starts[3]), {group(2, 107)})), kCompleted);
    EXPECT_EQ(salvager->GetDuration(), 107);
    ExpectFrames(clip, 107);
    // A short one in front: by its number of frames the others could not be found.
    ASSERT_EQ(Run(joined(First(file, kClipHeader), {group(2, 0), group(0, 7)})), kCompleted);
    EXPECT_EQ(salvager->GetDuration(), 7);
    // As short as the first is long enough.
    ASSERT_EQ(Run(joined(First(file, kClipHeader), {group(2, 0), group(2, 7), group(0, 14)})), kCompleted);
    EXPECT_EQ(salvager->GetDuration(), 14);
}

TEST_F(SalvageMXFOp1b, GroupWithTheSoundOfAnotherIsNotKept) {
    const RecordedClip clip{.frames = 100};
    const Bytes closed = Record(clip, true);
    const auto starts = GroupStarts(closed, 2);
    Bytes file = First(closed, starts[2]);
    // The second channel of the last group is another one's.
    const size_t pack = Find(file, Hex("00 00 00 04 06 0E 2B 34"), starts[1]);  // BodySID 4
    ASSERT_LT(pack, file.size());
    file[pack + 3] = 5;
    ASSERT_EQ(Run(file), kCompleted);
    EXPECT_EQ(salvager->GetDuration(), 50);
    ExpectFrames(clip, 50);
}

// The sound of 50 frames, and with it a group, has 50 x 1920 x 2 bytes.
TEST_F(SalvageMXFOp1b, GroupWithoutAChannelsSoundOrWithMoreOrLessOfItIsNotKept) {
    const RecordedClip clip{.frames = 100};
    const Bytes closed = Record(clip, true);
    const auto starts = GroupStarts(closed, 2);
    const Bytes file = First(closed, starts[2]);
    const Bytes head = Hex(std::string(kSoundKey) + "87 00 00 00 00 02 EE 00");
    for (const size_t group : {size_t{0}, size_t{1}}) {
        const size_t first = Find(file, head, starts[group]), second = Find(file, head, first + 1);
        ASSERT_LT(second, starts[group + 1]);
        for (const size_t element : {first, second}) {
            SCOPED_TRACE(element);
            const auto expectNotKept = [&](const Bytes& damaged) {
                if (group == 0) {
                    ExpectRefused(damaged, {"CSalvageMXFOp1b::GetFileParam: Duration is 0."});
                    return;
                }
                ASSERT_EQ(Run(damaged), kCompleted);
                EXPECT_THAT(log.Lines(), IsEmpty());
                EXPECT_EQ(salvager->GetDuration(), 50);
                ExpectFrames(clip, 50);
            };
            Bytes none = file;
            none.erase(none.begin() + At(element), none.begin() + At(element + 24 + 192000));
            expectNotKept(none);
            Bytes empty = none;
            const Bytes emptyHead = Hex(std::string(kSoundKey) + "87 00 00 00 00 00 00 00");
            empty.insert(empty.begin() + At(element), emptyHead.begin(), emptyHead.end());
            expectNotKept(empty);
            Bytes less = file;
            Put(less, element + 20, Hex("00 02 ED FE"));
            less.erase(less.begin() + At(element + 24), less.begin() + At(element + 26));
            expectNotKept(less);
            Bytes more = file;
            Put(more, element + 20, Hex("00 02 EE 02"));
            more.insert(more.begin() + At(element + 24), 2, uint8_t{0});
            expectNotKept(more);
        }
    }
}

// What an index says of its group is copied into the footer, and frames are found by it.
TEST_F(SalvageMXFOp1b, GroupWithTheIndexOfAnotherIsNotKept) {
    const RecordedClip clip{.channels = 1, .frames = 100};
    const Bytes closed = Record(clip, true);
    const auto starts = GroupStarts(closed, 1);
    const Bytes file = First(closed, starts[2]);
    ASSERT_EQ(Run(file), kCompleted);
    EXPECT_EQ(salvager->GetDuration(), 100);
    const auto expectNotKept = [&](size_t at, std::string_view before, std::string_view after) {
        SCOPED_TRACE(testing::Message() << at << " " << after);
        const Bytes old = Hex(before);
        ASSERT_TRUE(SameBytes(old, std::span(file).subspan(at, old.size())));
        Bytes damaged = file;
        Put(damaged, at, Hex(after));
        ASSERT_EQ(Run(damaged), kCompleted);
        EXPECT_THAT(log.Lines(), IsEmpty());
        EXPECT_EQ(salvager->GetDuration(), 50);
        ExpectFrames(clip, 50);
    };
    // Of pictures, ANC elements and sound; these count samples.
    struct Segment {
        std::string_view start, duration, bodySID;
    };
    size_t at = starts[1];
    for (const Segment& segment :
         {Segment{"32", "32", "01"}, Segment{"32", "32", "02"}, Segment{"01 77 00", "01 77 00", "03"}}) {
        const auto item = [&](std::string_view tag) { return Find(file, Hex(tag), at) + 4; };
        const auto last = [&](std::string_view tag, std::string_view bytes) {
            return item(tag) + NumberAt(file, item(tag) - 2, 2) - Hex(bytes).size();
        };
        at = Find(file, Hex("06 0E 2B 34 02 53 01 01 0D 01 02 01 01 10 01 00"), at + 1);
        ASSERT_LT(at, file.size());
        expectNotKept(last(kStartItem, segment.start), segment.start, "31");
        expectNotKept(last("3F 0D 00 08", segment.duration), segment.duration, "31");
        expectNotKept(item("3F 07 00 04") + 3, segment.bodySID, "07");
    }
    // 50 entries of 11 bytes, each with a place in its last 8
    const size_t entries = Find(file, Hex("3F 0A 02 2E 00 00 00 32 00 00 00 0B"), starts[1]);
    ASSERT_LT(entries, file.size());
    expectNotKept(entries + 7, "32", "31");
    expectNotKept(entries + 7, "32", "00");
    for (const size_t entry : {size_t{0}, size_t{1}, size_t{49}}) {
        const size_t place = entries + 12 + 11 * entry + 10;
        const uint8_t byte = file[place];
        Bytes damaged = file;
        damaged[place] = static_cast<uint8_t>(byte ^ 4);
        ASSERT_EQ(Run(damaged), kCompleted);
        EXPECT_EQ(salvager->GetDuration(), 50) << entry;
    }
    // No group has less than its first frame, and the first one begins with 0.
    Bytes later = First(file, kClipHeader);
    later.insert(later.end(), file.begin() + At(starts[1]), file.end());
    ExpectRefused(later, {"CSalvageMXFOp1b::GetFileParam: Duration is 0."});
}

TEST_F(SalvageMXFOp1b, FillBehindAnIndexNeedNotBeCounted) {
    const RecordedClip clip{.videoStd = VIDEO_STD_59_94I, .channels = 0, .frames = 61};
    Bytes file = Record(clip, false);
    // The index of 60 pictures has 790 bytes, and the fill behind it 22.
    const size_t count = Find(file, Hex("00 00 00 00 00 00 03 2C 00 00 00 65"));  // of bytes, and the index SID
    ASSERT_LT(count, file.size());
    std::ranges::copy(Hex("03 16"), file.begin() + At(count + 6));
    ASSERT_EQ(Run(file), kCompleted);
    EXPECT_EQ(salvager->GetDuration(), 60) << "the last group was not written";
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(SalvageMXFOp1b, IndexThatCannotBeKeptFailsTheRun) {
    const Bytes file = Record(RecordedClip{.channels = 0, .frames = 50}, false);
    const FailingAllocation none(FailingAllocation::By::kMalloc, 130 + 11 * 50);
    ExpectRefused(file, {"CSalvageMXFOp1b::GetFileParam: AddFooterIndex Error."});
}

TEST_F(SalvageMXFOp1b, BodyThatCannotBeReadIsNotCut) {
    const RecordedClip clip{.channels = 1, .frames = 110};
    const Bytes file = Record(clip, false);
    const auto starts = GroupStarts(Record(clip, true), 1);
    ASSERT_EQ(Run(file), kCompleted);
    const auto calls = stream->Calls();
    size_t inGroup[] = {0, 0, 0};
    for (size_t call = 6; call < calls.size() && calls[call] != "Close"; ++call) {
        const std::string seek = "Seek ";
        if (!calls[call - 1].starts_with(seek) || !calls[call].starts_with("Read ")) continue;
        const size_t offset = std::stoul(calls[call - 1].substr(seek.size()));
        const auto group = static_cast<size_t>(std::ranges::count_if(starts, [&](size_t at) { return at <= offset; }));
        // The pictures of the first group are read once more, behind the body.
        if (group == 0 || (group == 1 && inGroup[1] > 0)) continue;
        // Of each group some places, and the first
        if (inGroup[group - 1]++ % 16 != 0) continue;
        SCOPED_TRACE(testing::Message() << call << " " << calls[call - 1]);
        auto failing = std::make_unique<FaultyStream>(file);
        failing->FailNthOfAll(static_cast<int>(call + 1));
        const Note end = RunOn(std::move(failing));
        EXPECT_EQ(end, kFailed);
        EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXFOp1b::GetFileParam: Read Error."));
        EXPECT_TRUE(SameBytes(file, After()));
    }
    for (const size_t count : inGroup) EXPECT_GT(count, 20u);
}

TEST_F(SalvageMXFOp1b, GroupOfMoreThan120FramesFailsTheRun) {
    const RecordedClip clip{.channels = 0, .frames = 50};
    const Bytes file = Record(clip, false);
    const auto withFrames = [&](size_t count) {
        Bytes long1 = First(file, kClipHeader + 140);  // and the body partition pack
        const Bytes element = Hex(std::string(kPictureKey) + "83 00 00 04 01 02 03 04");
        for (size_t i = 0; i < count; ++i) long1.insert(long1.end(), element.begin(), element.end());
        return long1;
    };
    ASSERT_TRUE(SameBytes(Hex(kPictureKey), std::span(file).subspan(kClipHeader + 140, 16)));
    ExpectRefused(withFrames(121), {"CSalvageMXFOp1b::GetFileParam: Invalid Partition Frame."});
    ExpectRefused(withFrames(120), {"CSalvageMXFOp1b::GetFileParam: Duration is 0."});
}

TEST_F(SalvageMXFOp1b, BodyThatBeginsWithAnythingElseHasNoFrames) {
    const Bytes file = Record(RecordedClip{.channels = 0, .frames = 50}, false);
    const std::vector<std::string> nothing = {"CSalvageMXFOp1b::GetFileParam: Duration is 0."};
    for (const auto& [at, byte] :
         std::vector<std::pair<size_t, uint8_t>>{{0, 0}, {13, 4}, {13, 2}, {17, 0xFF}, {71 + 12, 2}, {140, 0}}) {
        SCOPED_TRACE(at);
        Bytes damaged = file;
        damaged[kClipHeader + at] = byte;
        ExpectRefused(damaged, nothing);
    }
    Bytes noise = file;
    Put(noise, kClipHeader, Noise(noise.size() - kClipHeader, 4));
    ExpectRefused(noise, nothing);
}

TEST_F(SalvageMXFOp1b, IndexThatLeadsOutOfTheFileEndsTheBody) {
    const RecordedClip clip{.channels = 0, .frames = 100};
    const Bytes closed = Record(clip, true);
    const auto starts = GroupStarts(closed, 0);
    const Bytes file = First(closed, starts[2]);
    // IndexByteCount of the second group's first index pack
    const size_t pack = Find(file, Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 03"), starts[1] + 140);
    for (const std::string_view count :
         {"00 00 00 00 7F FF FF FF", "7F FF FF FF FF FF FF FF", "FF FF FF FF FF FF FF FF", "80 00 00 00 00 00 00 00",
          "00 00 00 00 00 00 00 00", "00 00 00 00 00 00 00 40"}) {
        Bytes damaged = file;
        Put(damaged, pack + 60, Hex(count));
        ASSERT_EQ(Run(damaged), kCompleted) << count;
        EXPECT_EQ(salvager->GetDuration(), 50);
        ExpectFrames(clip, 50);
    }
}

TEST_F(SalvageMXFOp1b, ElementThatLeadsOutOfTheFileEndsTheBody) {
    const RecordedClip clip{.frames = 100};
    const Bytes closed = Record(clip, true);
    const auto starts = GroupStarts(closed, 2);
    const Bytes file = First(closed, starts[2]);
    for (const std::string_view key : {kPictureKey, kSoundKey}) {
        Bytes damaged = file;
        const size_t element = Find(damaged, Hex(key), starts[1]);
        ASSERT_LT(element, file.size());
        damaged[element + 17] = 0xFF;
        ASSERT_EQ(Run(damaged), kCompleted);
        EXPECT_EQ(salvager->GetDuration(), 50);
        ExpectFrames(clip, 50);
    }
}

TEST_F(SalvageMXFOp1b, DamageNeverLeadsAstray) {
    const RecordedClip clip{.channels = 1, .frames = 150};
    const Bytes file = Record(clip, false);
    for (uint32_t seed = 1; seed <= 40; ++seed) {
        Bytes damaged = file;
        const Bytes place = Noise(4, seed);
        const size_t at = BigEndian(place) % (file.size() - 4096);
        Put(damaged, at, seed % 2 == 0 ? Bytes(4096) : Noise(4096, seed));
        const Note end = Run(damaged);
        if (end == kFailed) {
            EXPECT_TRUE(SameBytes(damaged, After())) << at;
            continue;
        }
        ASSERT_EQ(end, kCompleted);
        CMemoryFileIO reading(After());
        CReadMXFOp1b reader;
        EXPECT_EQ(reader.Open("clip.mxf", &reading), kStatusOk) << at;
        reader.Close();
    }
}

}  // namespace
}  // namespace kmxf::test
