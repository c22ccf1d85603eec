#include "kmxf/tools/ModifyMXFHeaderData.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "support/Hex.h"
#include "support/TestData.h"
#include "tools/HeaderEditing.h"

// The durations of an OP-Atom header in memory.
namespace kmxf::test {
namespace {

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

}  // namespace
}  // namespace kmxf::test
