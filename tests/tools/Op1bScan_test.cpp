#include "tools/Op1bScan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/FaultyStream.h"
#include "support/Hex.h"
#include "support/Packets.h"
#include "tools/Op1bGroups.h"
#include "tools/Op1bPlaces.h"

namespace kmxf::test {
namespace {

using Found = Op1bScan::Found;

class Op1bScanTest : public Op1bGroups {
protected:
    // Of each group found: where it begins, and the number of its first frame.
    using Places = std::vector<std::pair<uint64_t, int64_t>>;
    Places WholeGroups(FaultyStream& stream) {
        PieceAllocator allocator(&stream);
        EXPECT_TRUE(stream.Open("clip.mxf", kOpenRead));
        SalvageInput source(Written());
        Places places;
        for (uint64_t at = kHeader; at < file.size();) {
            Op1bScan scan(stream, allocator, at, file.size(), sound);
            Op1bGroup group;
            Found found = scan.Next(group);
            for (; found == Found::kGroup; found = scan.Next(group)) {
                places.emplace_back(group.start, group.index.front().GetStartPosition());
                EXPECT_EQ(group.pictures.size(), group.frames);
                EXPECT_EQ(group.sounds.size(), 1u);
            }
            broken.push_back(found);
            const uint64_t next = FindGroup(source, group.start + 1);
            EXPECT_GT(next, at) << "it goes forwards";
            at = next;
        }
        stream.Close();
        EXPECT_EQ(stream.LivePieces(), 0);
        return places;
    }
    Places WholeGroups() {
        FaultyStream stream(file);
        return WholeGroups(stream);
    }
    Places Without(size_t number) const {
        Places places;
        for (size_t i = 0; i < starts.size(); ++i) {
            if (i != number) places.emplace_back(starts[i], 50 * i);
        }
        return places;
    }

    const Op1bSound sound{0x02000099, 1, 2};
    std::vector<Found> broken;
};

TEST_F(Op1bScanTest, UndamagedBodyIsReadToItsEnd) {
    EXPECT_EQ(WholeGroups(), Without(4));
    EXPECT_EQ(broken, std::vector{Found::kEnd}) << "the footer";
}

TEST_F(Op1bScanTest, GroupBehindADamagedHeadIsFound) {
    const Bytes whole = file;
    for (const size_t number : {size_t{0}, size_t{1}, size_t{2}}) {
        const size_t start = starts[number], sample = Find("06 0E 2B 34 01 02 01 01 0D 01 03 01 16 01 0C 01", start);
        const std::pair<size_t, std::string_view> kDamages[] = {
            {start, "00"},                                      // the pack's key
            {start + 17, "FF FF FF"},                           // its length
            {start + 80, "00 00 00 09"},                        // its BodySID
            {start + kPackSize, "00"},                          // the first picture's key
            {Find(kPictureKey, start + 400) + 17, "7F FF FF"},  // another one's length
            {sample, "00"},
            {sample + 17, "00 7F FF FF FF FF FF"},
            {Find("06 0E 2B 34 02 53 01 01 0D 01 02 01 01 10 01 00", start), "00"},  // the index
        };
        for (const auto& [at, bytes] : kDamages) {
            SCOPED_TRACE(testing::Message() << number << " " << at);
            file = whole;
            Damage(at, Hex(bytes));
            EXPECT_EQ(WholeGroups(), Without(number));
        }
    }
}

TEST_F(Op1bScanTest, NoiseAndZerosCostTheGroupsTheyAreIn) {
    const Bytes whole = file;
    for (uint32_t seed = 1; seed <= 60; ++seed) {
        file = whole;
        const size_t at = kHeader + BigEndian(Noise(4, seed)) % (starts[3] - kHeader - 4096);
        Damage(at, seed % 2 == 0 ? Bytes(4096) : Noise(4096, seed));
        const Places places = WholeGroups();
        SCOPED_TRACE(at);
        for (size_t i = 0; i < 3; ++i) {
            if (at + 4096 <= starts[i] || starts[i + 1] <= at) {
                EXPECT_EQ(std::ranges::count(places, std::pair<uint64_t, int64_t>(starts[i], 50 * i)), 1) << i;
            }
        }
        EXPECT_EQ(places.back(), (std::pair<uint64_t, int64_t>(starts[3], 150)));
    }
}

TEST_F(Op1bScanTest, PackThatNamesAnotherPlaceBeginsNoGroup) {
    // A copy of the first group's beginning, inside a picture that is too long for it
    const Bytes copy(file.begin() + At(starts[0]), file.begin() + At(starts[0] + 400));
    const size_t sample = Find("06 0E 2B 34 01 02 01 01 0D 01 03 01 16 01 0C 01", starts[1]) + 24;
    Damage(sample + 100, copy);
    Damage(starts[1] + kPackSize, Hex("00"));
    EXPECT_EQ(WholeGroups(), Without(1));
    EXPECT_EQ(broken.size(), 2u);
    // One that names its own is taken for a group, which then is not whole.
    const uint64_t own = sample + 100;
    Bytes place(8);
    for (size_t i = 0; i < 8; ++i) place[7 - i] = static_cast<uint8_t>(own >> (8 * i));
    Damage(own + 28, place);
    broken.clear();
    EXPECT_EQ(WholeGroups(), Without(1));
    EXPECT_EQ(broken.size(), 3u);
}

TEST_F(Op1bScanTest, NumbersOfAnIndexThatNoClipHasCostItsGroup) {
    const Bytes whole = file;
    for (const std::string_view item : {"3F 0C 00 08", "3F 0D 00 08"}) {  // start and duration
        for (const std::string_view number :
             {"7F FF FF FF FF FF FF FF", "80 00 00 00 00 00 00 00", "FF FF FF FF FF FF FF FF"}) {
            for (size_t segment = 0, at = starts[1]; segment < 3; ++segment) {
                at = Find(item, at) + 4;
                ASSERT_LT(at, starts[2]);
                file = whole;
                Damage(at, Hex(number));
                EXPECT_EQ(WholeGroups(), Without(1)) << segment << " " << item << " " << number;
            }
        }
    }
}

TEST_F(Op1bScanTest, GroupOfTooManyFramesIsPassedOver) {
    const Bytes element = Hex(std::string(kPictureKey) + "83 00 00 00");
    for (size_t i = 0; i < 121; ++i) Damage(starts[1] + kPackSize + 20 * i, element);
    EXPECT_EQ(WholeGroups(), Without(1));
    EXPECT_EQ(broken.front(), Found::kTooManyFrames);
}

TEST_F(Op1bScanTest, WhatCannotBeReadIsPassedOver) {
    FaultyStream counted(file);
    ASSERT_EQ(WholeGroups(counted), Without(4));
    std::vector<size_t> reads;  // their places
    size_t place = 0;
    for (const std::string& call : counted.Calls()) {
        if (call.starts_with("Seek ")) place = std::stoul(call.substr(5));
        if (call.starts_with("Read ")) reads.push_back(place);
    }
    const size_t footer = Find("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 04 04 00", kHeader);
    for (size_t read = 0; read < reads.size() && reads[read] < footer; read += 7) {
        SCOPED_TRACE(reads[read]);
        broken.clear();
        FaultyStream stream(file);
        stream.FailNth(Op::kRead, static_cast<int>(read + 1));
        const auto group = std::ranges::upper_bound(starts, reads[read]) - starts.begin() - 1;
        EXPECT_EQ(WholeGroups(stream), Without(static_cast<size_t>(group)));
        EXPECT_EQ(broken.front(), Found::kReadError);
    }
}

TEST_F(Op1bScanTest, MissingMemoryIsThrown) {
    FaultyStream stream(file);
    PieceAllocator allocator(&stream);
    ASSERT_TRUE(stream.Open("clip.mxf", kOpenRead));
    stream.FailNth(Op::kAllocate, 3);
    Op1bScan scan(stream, allocator, kHeader, file.size(), sound);
    Op1bGroup group;
    EXPECT_THROW(scan.Next(group), std::bad_alloc);
}

TEST_F(Op1bScanTest, FileThatEndsAnywhereHasWhatIsWhole) {
    const Bytes whole = file;
    std::vector<size_t> sizes = {kHeader, kHeader + 1};
    for (const Packet& packet : Packets(whole, starts[2], starts[3])) {
        if (packet.offset % 5 != 0 && packet.value.size() < 1000) continue;
        sizes.insert(sizes.end(), {packet.offset, packet.offset + 19, packet.End() - 1});
    }
    for (const size_t size : sizes) {
        file.assign(whole.begin(), whole.begin() + At(size));
        const auto count = static_cast<size_t>(
            std::ranges::count_if(starts, [&](size_t start) { return start > kHeader && start <= size; }));
        EXPECT_EQ(WholeGroups().size(), count) << size;
    }
}

}  // namespace
}  // namespace kmxf::test
