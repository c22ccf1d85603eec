#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/Extraction.h"

namespace kmxf::test {
namespace {

struct Format {
    uint32_t fileType = 0, videoStd = 9, compType = 9;
    bool consumerDV = false, wide = false, avci = false;
    bool operator==(const Format&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Format& f) {
    return out << std::hex << f.fileType << ' ' << f.videoStd << ' ' << f.compType << ' ' << f.consumerDV << f.wide
               << f.avci;
}

template <class Extractor>
int32_t ReadFormat(Extractor& extractor, IFileIO* file, Format& f) {
    return extractor.GetPelmardFormat(file, &f.fileType, &f.videoStd, &f.compType, &f.consumerDV, &f.wide, &f.avci);
}

ByteVector CodingItem(std::string_view lastTwo) {
    return LocalItem("32 01", "06 0E 2B 34 04 01 01 0A 04 01 02 02 01 32 " + std::string(lastTwo));
}
// Both picture descriptors, with what decides.
ByteVector Descriptors(std::string_view rate, std::string_view ratio, std::string_view coding = "21 01") {
    const auto rateItem = LocalItem("30 01", rate);
    return Join({Packet(kCDCIKey, Join({rateItem, LocalItem("32 0E", ratio)})),
                 Packet(kMPEGKey, Join({rateItem, CodingItem(coding)}))});
}
constexpr std::string_view k5994 = "00 00 EA 60 00 00 03 E9", k16To9 = "00 00 00 10 00 00 00 09",
                           k4To3 = "00 00 00 04 00 00 00 03";

TEST_F(MXFExtractMetaData, FormatGoesByTheFirstContainerLabel) {
    const struct {
        std::string label;
        Format format;  // with a descriptor of 59.94p and 16:9
    } kRows[] = {
        {Label("02 02 40 02"), {0x20001, 0x0100007C, 0x0400, false, true, false}},
        {Label("02 02 41 02"), {0x20001, 0x010000B2, 0x0400, false, true, false}},
        {Label("02 02 50 02"), {0x20001, 0x0100007C, 0x4800, false, true, false}},
        {Label("02 02 51 02"), {0x20001, 0x010000B2, 0x4800, false, true, false}},
        {Label("02 02 01 02"), {0x20001, 0x0100007C, 0x0400, true, true, false}},
        {Label("02 02 02 02"), {0x20001, 0x010000B2, 0x0400, true, true, false}},
        {Label("02 02 60 02"), {0x20001, 0x0100007C, 0x4D00, false, true, false}},
        {Label("02 02 60 01"), {0x20001, 0x0100007C, 0x4D00, false, true, false}},
        {Label("02 02 60 FF"), {0x20001, 0x0100007C, 0x4D00, false, true, false}},
        {Label("02 02 61 02"), {0x20001, 0x010000B2, 0x4D00, false, true, false}},
        {Label("02 02 62 02"), {0x20001, 0x0200007C, 0x4E00, false, true, false}},
        {Label("02 02 63 02"), {0x20001, 0x0200007C, 0x4E00, false, true, false}},
        {Label("02 10 60 02"), {0x20001, 0x0100007C, 0xC900, false, true, true}},
        {"06 0E 2B 34 04 01 01 0A 0D 01 03 01 02 10 60 01", {0x20001, 0, 0, false, true, false}},
        {Label("02 06 04 00"), {0x20002, 0, 0, false, false, false}},
    };
    const auto read = [&](std::string_view label, std::string_view ratio, Format& format) {
        OpAtomFile file;
        file.container = Hex(label);
        file.sets = Descriptors(k5994, ratio);
        return ReadFormat(extractor, Opened(file), format);
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.label);
        Format format;
        EXPECT_EQ(read(row.label, k16To9, format), kStatusOk);
        EXPECT_EQ(format, row.format);
        // Only of DV 25 and DV 50 the descriptor says whether they are wide.
        Format narrow = row.format;
        if (narrow.compType == 0x0400 || narrow.compType == 0x4800) narrow.wide = false;
        EXPECT_EQ(read(row.label, k4To3, format), kStatusOk);
        EXPECT_EQ(format, narrow);
    }
    for (const std::string& label :
         {Label("02 02 61 01"), Label("02 02 40 01"), Label("02 02 64 02"), Label("02 10 60 01"), Label("02 06 03 00"),
          std::string("06 0E 2B 34 04 01 01 0A 0D 01 03 01 02 10 60 02"),
          std::string("06 0E 2B 34 04 01 01 02 0D 01 03 01 02 02 40 02"),
          std::string("06 0E 2B 34 04 01 01 02 0D 01 03 01 02 02 60 02"), std::string()}) {
        Format format;
        EXPECT_EQ(read(label, k16To9, format), kStatusFailure) << label;
        EXPECT_EQ(format, Format{}) << label;
    }
}

TEST_F(MXFExtractMetaData, FormatNeedsTheDescriptorWhereTheLabelLeavesItOpen) {
    for (const std::string_view lastFour :
         {"02 02 40 02", "02 02 50 02", "02 02 01 02", "02 02 62 02", "02 10 60 02"}) {
        OpAtomFile file;
        file.container = Hex(Label(lastFour));
        Format format;
        EXPECT_EQ(ReadFormat(extractor, Opened(file), format), kStatusFailure);
        EXPECT_EQ(format, Format{});
    }
}

TEST_F(MXFExtractMetaData, FormatOfWhatCannotBeRead) {
    Format f;
    const auto read = [&](IFileIO* file) { return ReadFormat(extractor, file, f); };
    const auto bytes = OpAtomFile{.sets = {}, .essence = {}}.Bytes();
    EXPECT_EQ(read(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(read(Opened(ByteVector(200))), kStatusInvalidArgument);
    for (const ptrdiff_t size : {0, 24, 25, 123})
        EXPECT_EQ(read(Opened(ByteVector(bytes.begin(), bytes.begin() + size))), kStatusIoError) << size;
    EXPECT_EQ(read(Opened(ByteVector(bytes.begin(), bytes.begin() + 124))), kStatusOk);

    IFileIO* opened = open->file;
    EXPECT_EQ(extractor.GetPelmardFormat(opened, nullptr, &f.videoStd, &f.compType, &f.consumerDV, &f.wide, &f.avci),
              kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetPelmardFormat(opened, &f.fileType, nullptr, &f.compType, &f.consumerDV, &f.wide, &f.avci),
              kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetPelmardFormat(opened, &f.fileType, &f.videoStd, nullptr, &f.consumerDV, &f.wide, &f.avci),
              kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetPelmardFormat(opened, &f.fileType, &f.videoStd, &f.compType, nullptr, &f.wide, &f.avci),
              kStatusInvalidArgument);
    EXPECT_EQ(
        extractor.GetPelmardFormat(opened, &f.fileType, &f.videoStd, &f.compType, &f.consumerDV, nullptr, &f.avci),
        kStatusInvalidArgument);
    EXPECT_EQ(
        extractor.GetPelmardFormat(opened, &f.fileType, &f.videoStd, &f.compType, &f.consumerDV, &f.wide, nullptr),
        kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetDVWideFlag(nullptr, &f.wide), kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetDVWideFlag(opened, nullptr), kStatusInvalidArgument);
    EXPECT_EQ(extractor.Get720PFormat(nullptr, &f.videoStd), kStatusInvalidArgument);
    EXPECT_EQ(extractor.Get720PFormat(opened, nullptr), kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetAVCIFormat(nullptr, &f.videoStd, &f.compType), kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetAVCIFormat(opened, nullptr, &f.compType), kStatusInvalidArgument);
    EXPECT_EQ(extractor.GetAVCIFormat(opened, &f.videoStd, nullptr), kStatusInvalidArgument);
}

TEST_F(MXFExtractMetaData, PackThatIsLongerThanItsLabelsCanMakeItIsNotEvenRead) {
    Format f;
    const auto read = [&](uint64_t length) {
        auto bytes = Pack{}.Bytes();
        Patch(bytes, 17, BigEndian(length, 3));
        bytes.resize(100000);
        return ReadFormat(extractor, Opened(bytes), f);
    };
    EXPECT_EQ(read(88 + 255 * 16), kStatusOk);
    const auto before = files.BytesRead();
    EXPECT_EQ(read(88 + 255 * 16 + 1), kStatusInvalidArgument);
    EXPECT_EQ(files.BytesRead(), before + 25);
}

TEST_F(MXFExtractMetaData, OnlySixteenToNineIsWide) {
    for (const auto& [ratio, expected] : {std::pair{k16To9, true},
                                          {k4To3, false},
                                          {std::string_view("00 00 00 20 00 00 00 12"), false},
                                          {std::string_view("00 00 00 10 00 00 00 0A"), false}}) {
        OpAtomFile file;
        file.sets = Descriptors(k5994, ratio);
        bool wide = !expected;
        EXPECT_EQ(extractor.GetDVWideFlag(Opened(file), &wide), kStatusOk);
        EXPECT_EQ(wide, expected) << ratio;
    }
}

TEST_F(MXFExtractMetaData, RateGivesTheStandardOfProgressivePictures) {
    const struct {
        std::string_view rate;
        uint32_t videoStd;
    } kRows[] = {{"00 00 00 18 00 00 00 01", 0x02000058}, {"00 00 5D C0 00 00 03 E9", 0x02000058},
                 {"00 00 00 19 00 00 00 01", 0x02000099}, {"00 00 00 1E 00 00 00 01", 0x0200005E},
                 {"00 00 75 30 00 00 03 E9", 0x0200005E}, {"00 00 00 32 00 00 00 01", 0x020000B2},
                 {"00 00 00 3C 00 00 00 01", 0x0200007C}, {"00 00 EA 60 00 00 03 E9", 0x0200007C},
                 {"00 00 00 17 00 00 00 01", 0}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.rate);
        OpAtomFile file;
        file.sets = Descriptors(row.rate, k16To9, "21 08");
        uint32_t videoStd = 9, compType = 9;
        EXPECT_EQ(extractor.Get720PFormat(Opened(file), &videoStd), kStatusOk);
        EXPECT_EQ(videoStd, row.videoStd);
        videoStd = 9;
        EXPECT_EQ(extractor.GetAVCIFormat(open->file, &videoStd, &compType), kStatusOk);
        EXPECT_EQ(videoStd, row.videoStd);
        EXPECT_EQ(compType, 0xCA00u);
    }
}

TEST_F(MXFExtractMetaData, CodingLabelGivesTheAVCIntraClass) {
    const struct {
        std::string_view coding;
        uint32_t videoStd, compType;  // at 59.94
    } kRows[] = {{"21 08", 0x0200007C, 0xCA00}, {"21 09", 0x0200007C, 0xCA00}, {"21 01", 0x0100007C, 0xC900},
                 {"21 02", 0x010000B2, 0xC900}, {"21 03", 0x0200007C, 0xC900}, {"21 04", 0x0200007C, 0xC900},
                 {"31 08", 0x0200007C, 0xCE00}, {"31 09", 0x0200007C, 0xCE00}, {"31 01", 0x0100007C, 0xCD00},
                 {"31 02", 0x010000B2, 0xCD00}, {"31 03", 0x0200007C, 0xCD00}, {"31 04", 0x0200007C, 0xCD00},
                 {"32 08", 0x0200007C, 0xD200}, {"32 09", 0x0200007C, 0xD200}, {"32 01", 0x0100007C, 0xD100},
                 {"32 02", 0x010000B2, 0xD100}, {"32 03", 0x0200007C, 0xD100}, {"32 04", 0x0200007C, 0xD100}};
    uint32_t videoStd = 9, compType = 9;
    for (const auto& row : kRows) {
        OpAtomFile file;
        file.sets = Descriptors(k5994, k16To9, row.coding);
        EXPECT_EQ(extractor.GetAVCIFormat(Opened(file), &videoStd, &compType), kStatusOk);
        EXPECT_EQ(videoStd, row.videoStd) << row.coding;
        EXPECT_EQ(compType, row.compType) << row.coding;
    }
    OpAtomFile file;
    for (const ByteVector& set :
         {Join({LocalItem("30 01", k5994), CodingItem("21 05")}), LocalItem("30 01", k5994), CodingItem("21 01")}) {
        file.sets = Packet(kMPEGKey, set);
        videoStd = compType = 9;
        EXPECT_EQ(extractor.GetAVCIFormat(Opened(file), &videoStd, &compType), kStatusFailure);
        EXPECT_EQ(videoStd, 9u);
        EXPECT_EQ(compType, 9u);
    }
    file.sets =
        Packet(kMPEGKey, Join({LocalItem("32 01", std::string(17 * 3, '0').substr(0, 34)), CodingItem("21 01")}));
    EXPECT_EQ(extractor.GetAVCIFormat(Opened(file), &videoStd, &compType), kStatusInvalidArgument);
}

TEST_F(MXFExtractMetaData, UnitSizes) {
    const uint32_t all[] = {0x0100007C, 0x010000B2, 0x02000058, 0x0200005E, 0x0200007C, 0x02000099, 0x020000B2, 0};
    const struct {
        uint32_t compType;
        std::vector<uint32_t> sizes;
    } kRows[] = {{0x0400, {120000, 144000, 0, 0, 0, 0, 0, 0}},
                 {0x4800, {240000, 288000, 0, 0, 0, 0, 0, 0}},
                 {0x4D00, {480000, 576000, 480000, 480000, 480000, 576000, 576000, 0}},
                 {0x4E00, {480000, 576000, 480000, 480000, 480000, 576000, 576000, 0}},
                 {0xCD00, {0, 0, 0, 0, 0, 0, 0, 0}},
                 {0, {0, 0, 0, 0, 0, 0, 0, 0}}};
    for (const auto& row : kRows) {
        for (size_t i = 0; i < std::size(all); ++i)
            EXPECT_EQ(extractor.GetDIFSize(all[i], row.compType), row.sizes[i]) << row.compType << ' ' << all[i];
    }
}

}  // namespace
}  // namespace kmxf::test
