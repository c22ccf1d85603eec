#include "tools/Op1bPlaces.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "support/FailingDisk.h"
#include "tools/Op1bGroups.h"

namespace kmxf::test {
namespace {

constexpr uint64_t kWindow = 1 << 20;

class Op1bPlaces : public Op1bGroups {
protected:
    // Makes a file of its header, zeros and the second group, which names its place.
    void MoveGroupTo(uint64_t place) {
        file.resize(kHeader);
        file.resize(place);
        file.insert(file.end(), group.begin(), group.end());
        for (size_t i = 0; i < 8; ++i) file[place + 35 - i] = static_cast<uint8_t>(place >> (8 * i));
    }

    const Bytes group{file.begin() + At(starts[1]), file.begin() + At(starts[2])};
};

TEST_F(Op1bPlaces, EveryGroupIsFoundFromAnyPlaceInFrontOfIt) {
    SalvageInput source(Written());
    uint64_t from = 0;
    for (const size_t start : starts) {
        EXPECT_EQ(FindGroup(source, from), start);
        EXPECT_EQ(FindGroup(source, start), start);
        from = start + 1;
    }
    EXPECT_EQ(FindGroup(source, from), file.size());
    EXPECT_EQ(FindGroup(source, file.size() + 1), file.size());
}

TEST_F(Op1bPlaces, GroupOfWhichACutLeftAByteOfItsFirstPictureIsOne) {
    const size_t value = starts[0] + kPackSize + 20;
    const Bytes whole = file;
    for (const size_t size : {value, value + 1}) {
        file.assign(whole.begin(), whole.begin() + At(size));
        SalvageInput source(Written());
        EXPECT_EQ(FindGroup(source, kHeader), size == value ? size : starts[0]);
    }
}

TEST_F(Op1bPlaces, KeyOnABorderOfWindowsIsFound) {
    for (size_t shift = 0; shift < 20; ++shift) {
        MoveGroupTo(kHeader + 1 + kWindow - shift);
        SalvageInput source(Written());
        EXPECT_EQ(FindGroup(source, kHeader + 1), kHeader + 1 + kWindow - shift) << shift;
    }
}

TEST_F(Op1bPlaces, SectorsThatCannotBeReadArePassedOver) {
    const std::string path = Written();
    for (const int64_t sector : {int64_t{kHeader} + 4096, int64_t{kHeader} + 9 * 4096}) {
        const FailingDisk disk(sector, sector + 4096);
        SalvageInput source(path);
        EXPECT_EQ(FindGroup(source, starts[0] + 1), starts[1]);
        EXPECT_EQ(source.Unreadable(), sector);
    }
}

TEST_F(Op1bPlaces, PackInFrontOfASectorThatCannotBeReadIsFound) {
    const uint64_t border = kHeader + 2 * 4096;
    MoveGroupTo(border - 600);
    const std::string path = Written();
    const FailingDisk disk(static_cast<int64_t>(border), static_cast<int64_t>(border) + 4096);
    SalvageInput source(path);
    EXPECT_EQ(FindGroup(source, kHeader + 1), border - 600);
    EXPECT_EQ(source.Copy(border - 500, 1024).size(), 500u);
    EXPECT_EQ(source.Unreadable(), border);
}

// The window holds what was read in small steps, up to 32 MiB.
TEST_F(Op1bPlaces, StretchThatWasSearchedIsNotReadAgain) {
    const std::string path = Written();
    SalvageInput source(path);
    EXPECT_EQ(FindGroup(source, starts[2] + 1), starts[3]);
    // Nothing of the file is there any more.
    file.resize(kHeader);
    Written();
    EXPECT_EQ(FindGroup(source, starts[2] + 1), starts[3]);
    EXPECT_EQ(source.Copy(starts[3], 4), Hex("06 0E 2B 34"));
    EXPECT_EQ(source.Copy(starts[1], 4), Bytes()) << "in front of what was searched";
}

TEST_F(Op1bPlaces, StretchLargerThanTheWindowIsSearchedToo) {
    const uint64_t place = kHeader + 33 * kWindow + 5;
    MoveGroupTo(place);
    SalvageInput source(Written());
    EXPECT_EQ(FindGroup(source, kHeader + 1), place);
}

}  // namespace
}  // namespace kmxf::test
