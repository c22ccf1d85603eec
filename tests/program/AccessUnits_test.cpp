#include "AccessUnits.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "Program.h"
#include "program/CodedPictures.h"

namespace kmxf::program {
namespace {

using namespace coded;
using testing::ElementsAre;
using testing::HasSubstr;

// Brings `chunk` more bytes to hand at a time.
class InChunks final : public StreamBytes {
public:
    InChunks(Stream stream, size_t chunk) : stream_(std::move(stream)), chunk_(chunk) {}
    std::span<const uint8_t> AtHand() const override { return std::span(stream_).subspan(begin_, end_ - begin_); }
    bool More() override {
        const size_t had = end_;
        end_ = std::min(end_ + chunk_, stream_.size());
        return end_ > had;
    }
    std::unique_ptr<OwnedPiece> Take(uint32_t count) override {
        auto piece = std::make_unique<HeapPiece>(count);
        std::copy_n(AtHand().begin(), count, piece->GetBuffer());
        begin_ += count;
        return piece;
    }
    void Skip(size_t count) override { begin_ += count; }

private:
    Stream stream_;
    size_t chunk_, begin_ = 0, end_ = 0;
};

AccessUnits Splitter(const Stream& stream, size_t chunk = 4096) {
    return AccessUnits(std::make_unique<InChunks>(stream, chunk), "in.h264");
}

std::vector<AccessUnit> Split(const Stream& stream, size_t chunk = 4096) {
    AccessUnits units = Splitter(stream, chunk);
    std::vector<AccessUnit> all;
    while (auto unit = units.Next()) all.push_back(std::move(*unit));
    return all;
}

std::vector<int> Temporal(const std::vector<AccessUnit>& units) {
    std::vector<int> values;
    for (const AccessUnit& unit : units) values.push_back(unit.temporalOffset);
    return values;
}
std::vector<int> KeyFrame(const std::vector<AccessUnit>& units) {
    std::vector<int> values;
    for (const AccessUnit& unit : units) values.push_back(unit.keyFrameOffset);
    return values;
}
std::vector<int> Flags(const std::vector<AccessUnit>& units) {
    std::vector<int> values;
    for (const AccessUnit& unit : units) values.push_back(unit.flags);
    return values;
}
std::vector<uint64_t> Offsets(const std::vector<AccessUnit>& units) {
    std::vector<uint64_t> values;
    for (const AccessUnit& unit : units) values.push_back(unit.offset);
    return values;
}

std::string FailureOf(const Stream& stream) {
    try {
        Split(stream);
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.Status(), ExitStatus::kInput);
        return failure.what();
    }
    return "no failure";
}

Stream File(const std::string& name) {
    std::ifstream file(std::string(KMXF_TEST_DATA "/essence/") + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(AccessUnits, OfTheBundledStreamAreAsItsDescriptionSays) {
    const auto description =
        nlohmann::json::parse(std::ifstream(KMXF_TEST_DATA "/essence/longg25-1080-5994i.au.json"))["access_units"];
    const Stream stream = File("longg25-1080-5994i.264");
    ASSERT_EQ(description.size(), 24u);
    for (const size_t chunk : {size_t{1}, size_t{7}, size_t{1000}, stream.size()}) {
        const auto units = Split(stream, chunk);
        ASSERT_EQ(units.size(), 24u);
        for (size_t i = 0; i < units.size(); ++i) {
            SCOPED_TRACE(i);
            const auto& expected = description[i];
            const AccessUnit& unit = units[i];
            EXPECT_EQ(unit.offset, expected["offset"]);
            EXPECT_EQ(unit.piece->GetSize(), expected["size"]);
            EXPECT_TRUE(std::equal(unit.piece->GetBuffer(), unit.piece->GetBuffer() + unit.piece->GetSize(),
                                   stream.begin() + static_cast<std::ptrdiff_t>(unit.offset)));
            EXPECT_EQ(std::string(1, "IPB"[static_cast<size_t>(unit.type)]), expected["type"]);
            EXPECT_EQ(unit.hasParameterSets, expected["has_sps"]);
            EXPECT_EQ(unit.temporalOffset, expected["temporal_offset"]);
            EXPECT_EQ(unit.keyFrameOffset, expected["key_frame_offset"]);
            EXPECT_EQ(unit.flags, expected["flags_with_sequence_bit"]);
            // Picture k is shown where the entry says that leads to it.
            const size_t shown = expected["display_index"];
            EXPECT_EQ(static_cast<int>(shown) + units[shown].temporalOffset, static_cast<int>(i));
        }
    }
}

TEST(AccessUnits, WithoutBPicturesAreShownAsTheyAreStored) {
    const auto units = Split(Pictures("K0 P1 P2 P3 K0 P1"));
    EXPECT_THAT(Temporal(units), ElementsAre(0, 0, 0, 0, 0, 0));
    EXPECT_THAT(KeyFrame(units), ElementsAre(0, -1, -2, -3, 0, -1));
    EXPECT_THAT(Flags(units), ElementsAre(0xC0, 0x22, 0x22, 0x22, 0xC0, 0x22));
}

TEST(AccessUnits, OfIDRPicturesOnlyAreAllKeyFrames) {
    const auto units = Split(Pictures("K0 K0 K0"));
    EXPECT_THAT(Temporal(units), ElementsAre(0, 0, 0));
    EXPECT_THAT(KeyFrame(units), ElementsAre(0, 0, 0));
    EXPECT_THAT(Flags(units), ElementsAre(0xC0, 0xC0, 0xC0));
}

TEST(AccessUnits, OfClosedGOPsStayWithinThem) {
    // Shown: K B B P B P | K B P.
    const auto units = Split(Pictures("K0 P3 B1 B2 P5 B4 K0 P2 B1"));
    EXPECT_THAT(Temporal(units), ElementsAre(0, 1, 1, -2, 1, -1, 0, 1, -1));
    EXPECT_THAT(KeyFrame(units), ElementsAre(0, -1, -2, -3, -4, -5, 0, -1, -2));
    EXPECT_THAT(Flags(units), ElementsAre(0xC0, 0x22, 0x33, 0x33, 0x22, 0x33, 0xC0, 0x22, 0x33));
}

TEST(AccessUnits, ReorderedByAPyramid) {
    // Shown: 0 4 3 5 2 7 6 8 1 by their stored positions.
    const auto units = Split(Pictures("K0 P8 b4 b2 B1 B3 b6 B5 B7"));
    EXPECT_THAT(Temporal(units), ElementsAre(0, 3, 1, 2, -2, 2, 0, 1, -7));
    EXPECT_THAT(Flags(units), ElementsAre(0xC0, 0x22, 0x33, 0x33, 0x33, 0x33, 0x33, 0x33, 0x33));
}

TEST(AccessUnits, AtTheStartOfAnOpenGOPLackTheirOtherReference) {
    // Shown: B B I B P B B I P. Only the first I picture has nothing before it.
    const auto units = Split(Pictures("I2 B0 B1 P4 B3 I7 B5 B6 P8"));
    EXPECT_THAT(Temporal(units), ElementsAre(1, 1, -2, 1, -1, 1, 1, -2, 0));
    EXPECT_THAT(KeyFrame(units), ElementsAre(0, -1, -2, -3, -4, 0, -1, -2, -3));
    EXPECT_THAT(Flags(units), ElementsAre(0xC0, 0x3B, 0x3B, 0x22, 0x33, 0xC0, 0x33, 0x33, 0x22));
}

TEST(AccessUnits, BehindAnIDRPictureLackNothing) {
    const auto units = Split(Pictures("I1 B0 K0 P2 B1"));
    EXPECT_THAT(Temporal(units), ElementsAre(1, -1, 0, 1, -1));
    EXPECT_THAT(Flags(units), ElementsAre(0xC0, 0x3B, 0xC0, 0x22, 0x33));
}

TEST(AccessUnits, WithoutParameterSetsInFrontOfAnIPicture) {
    const auto units = Split(Pictures("K0 P1") + Slice({.type = 'I', .order = 4, .frameNum = 2}) +
                             Slice({.type = 'P', .order = 6, .frameNum = 3}));
    EXPECT_THAT(Flags(units), ElementsAre(0xC0, 0x22, 0x80, 0x22));
    EXPECT_THAT(KeyFrame(units), ElementsAre(0, -1, 0, -1));
}

TEST(AccessUnits, CountOnWhenTheOrderCountWraps) {
    // Five bits: the count begins again at every 16th frame; B pictures reach back over it.
    std::string text = "K0";
    for (int i = 3; i <= 60; i += 3) {
        text += " P" + std::to_string(i) + " B" + std::to_string(i - 2) + " B" + std::to_string(i - 1);
    }
    const auto units = Split(Pictures(text));
    ASSERT_EQ(units.size(), 61u);
    for (size_t k = 1; k < 61; k += 3) {
        EXPECT_EQ(units[k].temporalOffset, 1) << k;
        EXPECT_EQ(units[k + 1].temporalOffset, 1) << k;
        EXPECT_EQ(units[k + 2].temporalOffset, -2) << k;
    }
}

TEST(AccessUnits, AreOrderedByFrameNumberWithOrderCountType2) {
    const Format format{.orderType = 2};
    std::string text = "K0";
    for (int i = 1; i < 40; ++i) text += i % 3 == 0 ? " B0" : " P0";  // frame numbers of four bits wrap
    const auto units = Split(Pictures(text, format));
    ASSERT_EQ(units.size(), 40u);
    for (const AccessUnit& unit : units) EXPECT_EQ(unit.temporalOffset, 0);
}

TEST(AccessUnits, BehindMemoryManagement5AreCountedAnew) {
    // The order count of the fourth picture is taken as 0, and the B picture behind it refers to the one after.
    const auto units =
        Split(Pictures("K0 P2 B1") + Slice({.type = 'P', .order = 26, .frameNum = 2, .endsOrder = true}) +
              Slice({.type = 'P', .order = 4, .frameNum = 1}) +
              Slice({.type = 'B', .order = 2, .frameNum = 2, .reference = false}));
    EXPECT_THAT(Temporal(units), ElementsAre(0, 1, -1, 0, 1, -1));
    const Format type2{.orderType = 2};
    const auto counted =
        Split(Pictures("K0 P0 P0", type2) + Slice({.type = 'P', .frameNum = 3, .endsOrder = true}, type2) +
              Slice({.type = 'P', .frameNum = 1}, type2));
    EXPECT_THAT(Temporal(counted), ElementsAre(0, 0, 0, 0, 0));
}

TEST(AccessUnits, FindMemoryManagementBehindPredictionWeights) {
    // The head of the slice is longer than usual.
    const Format format{.weighted = true};
    const auto units = Split(Pictures("K0 P2 B1", format) +
                             Slice({.type = 'B', .order = 26, .frameNum = 2, .endsOrder = true}, format) +
                             Slice({.type = 'P', .order = 4, .frameNum = 1}, format));
    EXPECT_THAT(Temporal(units), ElementsAre(0, 1, -1, 0, 0));
}

TEST(AccessUnits, OfTwoFieldsAreOneFrame) {
    const Format format{.interlaced = true};
    const auto field = [&](char type, char parity, uint32_t order, uint32_t frameNum, bool reference, bool idr) {
        return kDelimiter + Slice({.type = type,
                                   .order = order,
                                   .frameNum = frameNum,
                                   .reference = reference,
                                   .idr = idr,
                                   .field = parity},
                                  format);
    };
    const Stream first = Sets(format) + field('I', 't', 0, 0, true, true) + field('P', 'b', 1, 0, true, false);
    const Stream second = kSEI + field('P', 't', 4, 1, true, false) + kSEI + field('P', 'b', 5, 1, true, false);
    const Stream third = field('B', 't', 2, 2, false, false) + field('B', 'b', 3, 2, false, false);
    const Stream frame = kDelimiter + Slice({.type = 'P', .order = 6, .frameNum = 2, .deltaBottom = 1}, format);
    const auto units = Split(first + second + third + frame);
    EXPECT_THAT(Offsets(units), ElementsAre(0u, first.size(), first.size() + second.size(),
                                            first.size() + second.size() + third.size()));
    EXPECT_THAT(Temporal(units), ElementsAre(0, 1, -1, 0));
    EXPECT_THAT(Flags(units), ElementsAre(0xC0, 0x22, 0x33, 0x22));
}

TEST(AccessUnits, TakeTheBottomFieldFirst) {
    const Format format{.interlaced = true};
    const auto field = [&](char type, char parity, uint32_t order, uint32_t frameNum, bool reference,
                           bool idr = false) {
        return Slice(
            {.type = type, .order = order, .frameNum = frameNum, .reference = reference, .idr = idr, .field = parity},
            format);
    };
    const auto units = Split(Sets(format) + field('I', 'b', 0, 0, true, true) + field('P', 't', 1, 0, true) +
                             field('P', 'b', 4, 1, true) + field('P', 't', 5, 1, true) + field('B', 'b', 2, 2, false) +
                             field('B', 't', 3, 2, false));
    EXPECT_THAT(Temporal(units), ElementsAre(0, 1, -1));
}

TEST(AccessUnits, OfFieldsThatHaveNoOtherAreFramesOfTheirOwn) {
    const Format format{.interlaced = true};
    const auto field = [&](char type, char parity, uint32_t order, uint32_t frameNum, bool idr = false) {
        return Slice({.type = type, .order = order, .frameNum = frameNum, .idr = idr, .field = parity}, format);
    };
    // The same parity again; then another frame number.
    const auto units = Split(Sets(format) + field('I', 't', 0, 0, true) + field('P', 't', 2, 1) +
                             field('P', 'b', 5, 2) + field('P', 't', 4, 2));
    EXPECT_EQ(units.size(), 3u);
}

TEST(AccessUnits, OfFramesThatShowTheBottomFieldFirst) {
    const Format format{.interlaced = true};
    const auto frame = [&](char type, uint32_t order, uint32_t frameNum, bool reference, bool idr = false) {
        return Slice(
            {.type = type, .order = order, .frameNum = frameNum, .reference = reference, .idr = idr, .deltaBottom = -1},
            format);
    };
    const auto units =
        Split(Sets(format) + frame('I', 1, 0, true, true) + frame('P', 5, 1, true) + frame('B', 3, 2, false));
    EXPECT_THAT(Temporal(units), ElementsAre(0, 1, -1));
}

TEST(AccessUnits, HoldAllSlicesOfAPicture) {
    const Picture i{.type = 'I', .idr = true}, p{.type = 'P', .order = 2, .frameNum = 1};
    const Picture iSliceOfP{.type = 'I', .order = 2, .frameNum = 1};
    const Stream first = kDelimiter + Sets() + Slice(i) + Slice(i, {}, 2000, false) + Slice(i, {}, 4000, false);
    const Stream second = kDelimiter + Slice(iSliceOfP) + Slice(p, {}, 2000, false);
    for (const size_t chunk : {size_t{1}, size_t{4096}}) {
        const auto units = Split(first + second, chunk);
        EXPECT_THAT(Offsets(units), ElementsAre(0u, first.size()));
        EXPECT_THAT(Flags(units), ElementsAre(0xC0, 0x22)) << "a picture with a P slice is a P picture";
    }
}

TEST(AccessUnits, BeginWhereverTheStandardLetsThem) {
    const Stream i = Slice({.type = 'I', .idr = true});
    const Stream p1 = Slice({.type = 'P', .order = 2, .frameNum = 1});
    const Stream p2 = Slice({.type = 'P', .order = 4, .frameNum = 2}, {}, 0, false);
    const Stream endOfSequence{0, 0, 0, 1, 0x0A}, filler{0, 0, 0, 1, 0x0C, 0xFF, 0x80};
    const Stream first = Sets() + i;
    // Without a delimiter: the first slice of the next picture, or the first NAL unit of those that come before it.
    EXPECT_THAT(Offsets(Split(first + p1 + p2)), ElementsAre(0u, first.size(), first.size() + p1.size()));
    EXPECT_THAT(Offsets(Split(first + kSEI + p1)), ElementsAre(0u, first.size()));
    EXPECT_THAT(Offsets(Split(first + Sets() + kSEI + p1)), ElementsAre(0u, first.size()));
    // A delimiter, even if the next picture's slices look the same.
    EXPECT_THAT(Offsets(Split(first + i)), ElementsAre(0u));
    EXPECT_THAT(Offsets(Split(first + kDelimiter + i)), ElementsAre(0u, first.size()));
    EXPECT_THAT(Offsets(Split(first + filler + endOfSequence + kDelimiter + p1)),
                ElementsAre(0u, first.size() + filler.size() + endOfSequence.size()));
    // Zeros go with the start code behind them, so that no picture ends in zeros; the last ones are nobody's.
    EXPECT_THAT(Offsets(Split(first + Stream{0, 0, 0} + p1)), ElementsAre(0u, first.size()));
    EXPECT_THAT(Offsets(Split(first + Stream{0, 0, 0} + p2)), ElementsAre(0u, first.size()));
    const auto ended = Split(first + p1 + Stream{0, 0, 0, 0, 0});
    ASSERT_EQ(2u, ended.size());
    EXPECT_EQ(p1.size(), ended[1].piece->GetSize());
    // A NAL unit of that kind between the slices of one picture begins none.
    const Stream prefix{0, 0, 0, 1, 0x6E, 0x40, 0x80};
    const Stream more = Slice({.type = 'I', .idr = true}, {}, 100);
    EXPECT_THAT(Offsets(Split(first + prefix + more + prefix + p1)),
                ElementsAre(0u, first.size() + prefix.size() + more.size()));
}

TEST(AccessUnits, KeepRedundantPicturesWithTheirPrimaryOne) {
    const Format format{.redundant = true};
    const Stream first = Sets(format) + Slice({.type = 'I', .idr = true}, format);
    const Stream copy = Slice({.type = 'P', .order = 8, .frameNum = 3, .redundant = 1}, format);
    const auto units = Split(first + copy + Slice({.type = 'P', .order = 2, .frameNum = 1}, format));
    EXPECT_THAT(Offsets(units), ElementsAre(0u, first.size() + copy.size()));
}

TEST(AccessUnits, TellWhatIsStoredAndWhatIsShownFirst) {
    const Stream stream = Pictures("I2 B0 B1 P3");
    AccessUnits units = Splitter(stream);
    const auto stored = units.FirstStored(), shown = units.FirstShown();
    auto first = units.Next(), second = units.Next();
    EXPECT_EQ(stored.data(), first->piece->GetBuffer());
    EXPECT_EQ(shown.data(), second->piece->GetBuffer());
    EXPECT_EQ(shown.size(), second->piece->GetSize());
    AccessUnits none = Splitter({});
    EXPECT_TRUE(none.FirstStored().empty());
    EXPECT_TRUE(none.FirstShown().empty());
}

TEST(AccessUnits, KeepNoMoreThanSeventeenFramesOfAnEndlessStream) {
    std::string text = "K0";
    for (int i = 1; i < 100; ++i) text += " P" + std::to_string(i);
    const Stream stream = Pictures(text);
    size_t taken = 0;
    class Counting final : public StreamBytes {
    public:
        Counting(const Stream& stream, size_t& count) : bytes_(stream, 64), taken_(count) {}
        std::span<const uint8_t> AtHand() const override { return bytes_.AtHand(); }
        bool More() override { return bytes_.More(); }
        std::unique_ptr<OwnedPiece> Take(uint32_t count) override {
            ++taken_;
            return bytes_.Take(count);
        }
        void Skip(size_t count) override { bytes_.Skip(count); }

    private:
        InChunks bytes_;
        size_t& taken_;
    };
    AccessUnits units(std::make_unique<Counting>(stream, taken), "in.h264");
    size_t given = 0;
    while (units.Next()) {
        ++given;
        EXPECT_LE(taken - given, 16u);
    }
    EXPECT_EQ(given, 100u);
}

TEST(AccessUnits, BeginWithTheFirstIPictureThatHasItsParameterSets) {
    const Stream stream = Pictures("K0 P2 B1");
    const Stream garbage{'g', 'a', 'r', 'b', 'a', 'g', 'e'};
    const Stream p = Slice({.type = 'P', .order = 6, .frameNum = 5});
    for (const auto& [front, leftOut] :
         std::vector<std::pair<Stream, bool>>{{{}, false},
                                              {Stream(100, 0), false},
                                              {garbage, true},
                                              {Stream(5, 0) + garbage + Stream(5, 0), true},
                                              {p, true},
                                              {garbage + p, true},
                                              {kDelimiter + p, true},
                                              {Sets() + p, true},
                                              {Slice({.type = 'I', .idr = true}), true}}) {
        for (const size_t chunk : {size_t{1}, size_t{4096}}) {
            AccessUnits units = Splitter(front + stream, chunk);
            std::vector<AccessUnit> all;
            while (auto unit = units.Next()) all.push_back(std::move(*unit));
            ASSERT_EQ(all.size(), 3u) << front.size();
            EXPECT_EQ(all[0].offset, front.size());
            EXPECT_THAT(Temporal(all), ElementsAre(0, 1, -1));
            EXPECT_EQ(units.LeftOutInFront(), leftOut ? front.size() : 0);
            EXPECT_EQ(units.LeftOutAtEnd(), 0u);
        }
    }
}

TEST(AccessUnits, HoldAllThatIsNotLeftOut) {
    const Stream stream = Pictures("K0 P2 B1 P4 B3");
    for (const Stream& end :
         {Stream{}, kDelimiter, kSEI, kDelimiter + Sets(), Stream{0, 0, 1}, Stream{0, 0, 0, 1, 0x41}}) {
        AccessUnits units = Splitter(stream + end);
        uint64_t size = 0;
        while (const auto unit = units.Next()) {
            EXPECT_EQ(unit->offset, size);
            size += unit->piece->GetSize();
        }
        EXPECT_EQ(size + units.LeftOutAtEnd(), stream.size() + end.size());
    }
    AccessUnits units = Splitter(stream + kDelimiter + kSEI);
    while (units.Next()) continue;
    EXPECT_EQ(units.LeftOutAtEnd(), kDelimiter.size() + kSEI.size());
}

TEST(AccessUnits, OfAStreamCutAtAnyByteAreThoseBefore) {
    const Stream stream = Pictures("K0 P2 B1 P4 B3 I7 B5 B6");
    const auto whole = Offsets(Split(stream));
    for (size_t size = 0; size <= stream.size(); ++size) {
        const auto cut = Split(Stream(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(size)));
        ASSERT_LE(cut.size(), whole.size()) << size;
        for (size_t i = 0; i < cut.size(); ++i) EXPECT_EQ(cut[i].offset, whole[i]) << size;
        if (cut.size() < whole.size()) {
            EXPECT_LT(size, whole[cut.size()] + 120) << "only a picture without its slice is no picture";
        }
    }
}

TEST(AccessUnits, OfAnInterruptedStreamEndBeforeThePictureThatMayNotBeWhole) {
    interrupted = true;
    const auto units = Split(Pictures("K0 P2 B1 P4 B3"));
    interrupted = false;
    EXPECT_EQ(units.size(), 4u);
}

// An I picture, a P picture that is shown last, and so many more in between.
std::string ShownLast(int between) {
    std::string text = "K0 P200";
    for (int i = 1; i <= between; ++i) text += (i % 50 == 0 ? " I" : " B") + std::to_string(i);
    return text;
}

TEST(AccessUnits, ThatAnIndexCannotHoldAreRefused) {
    std::string far = "K0";
    for (int i = 1; i <= 128; ++i) far += " P" + std::to_string(i);
    EXPECT_EQ(Split(Pictures(far)).back().keyFrameOffset, -128);
    EXPECT_THAT(FailureOf(Pictures(far + " P129")),
                HasSubstr("in.h264: picture 129 is 129 behind the last I picture, and an index reaches back 128 only"));

    const Format format{.orderBits = 10};
    EXPECT_EQ(Split(Pictures(ShownLast(128), format)).back().temporalOffset, -128);
    EXPECT_THAT(
        FailureOf(Pictures(ShownLast(129), format)),
        HasSubstr("in.h264: the picture shown as number 130 is stored as number 1, and an index holds distances "
                  "from -128 to 127 only (offset "));
}

TEST(AccessUnits, ThatComeTooLateAreRefused) {
    const Format format{.orderBits = 10};
    std::string text = "K0";
    for (int i = 2; i <= 17; ++i) text += " P" + std::to_string(i);
    EXPECT_EQ(Split(Pictures(text + " B1", format))[1].temporalOffset, 16);
    EXPECT_THAT(
        FailureOf(Pictures(text + " P18 B1", format)),
        HasSubstr("in.h264: picture 18 should be shown before one that is stored more than 16 before it (offset "));
}

TEST(AccessUnits, OrderedByType1AreRefused) {
    const Format format{.orderType = 1};
    EXPECT_EQ(
        FailureOf(Pictures("K0 P1", format)),
        "in.h264: its pictures are ordered by picture order count type 1; types 0 and 2 are known here (offset 0)");
}

TEST(AccessUnits, OfAnotherFormatThanTheFirstAreRefused) {
    const Stream first = Pictures("K0 P1");
    EXPECT_EQ(
        FailureOf(first + Pictures("K0", {.widthInBlocks = 90})),
        "in.h264: the pictures are no longer of the format of the first (offset " + std::to_string(first.size()) + ")");
}

TEST(AccessUnits, WithAMalformedSliceAreRefused) {
    const Stream first = Pictures("K0 P1");
    const Stream bad{0, 0, 0, 1, 0x41, 0x00, 0x00, 0x80, 0x55};
    EXPECT_EQ(FailureOf(first + bad + Pictures("P2")),
              "in.h264: a slice is malformed, or its parameter sets are missing (offset " +
                  std::to_string(first.size()) + ")");
}

TEST(AccessUnits, LongerThanAnElementCanBeAreRefused) {
    const Stream first = Pictures("K0");
    const Stream longest = first + Stream(0xFFFFFC - first.size(), 0x55);
    EXPECT_EQ(Split(longest + kDelimiter + Pictures("P1")).size(), 2u);
    for (const Stream& rest : {Stream{}, kDelimiter + Pictures("P1")}) {
        EXPECT_EQ(FailureOf(longest + Stream{0x55} + rest),
                  "in.h264: a picture is longer than the 16777212 bytes that fit (offset 0)");
    }
    EXPECT_EQ(Split(Stream(20000000, 0x55) + first).size(), 1u) << "what is no picture is not kept";
}

TEST(AccessUnits, OfDamagedStreamsFailOrAreThere) {
    std::mt19937 random(1);
    const Stream stream = Pictures("K0 P2 B1 P4 B3 I7 B5 B6");
    for (int round = 0; round < 3000; ++round) {
        Stream bad = stream;
        for (int i = 0; i <= round % 5; ++i) bad[random() % bad.size()] = static_cast<uint8_t>(random());
        try {
            uint64_t end = 0;
            for (const AccessUnit& unit : Split(bad, 1 + random() % 200)) {
                EXPECT_GE(unit.offset, end);
                end = unit.offset + unit.piece->GetSize();
                EXPECT_LE(end, bad.size());
            }
        } catch (const Failure&) {
        }
    }
}

}  // namespace
}  // namespace kmxf::program
