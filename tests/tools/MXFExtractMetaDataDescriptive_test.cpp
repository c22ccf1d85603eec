#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>

#include "tools/Extraction.h"

namespace kmxf::test {
namespace {

struct Texts {
    std::string job = "?", family = "?", given = "?", number = "?", name = "?";
    uint16_t take = 99;
    std::string kind = "?", scene = "?";
    bool operator==(const Texts&) const = default;
};
const Texts kNoTexts{"", "", "", "", "", 0, "", ""};

class DescriptiveMetadataOfFiles : public MXFExtractMetaData {
protected:
    DescriptiveMetadataOfFiles() {
        // Other tags than this library's own
        file.primer = {{"C0 01", "06 0E 2B 34 01 01 01 03 02 30 05 01 01 00 00 00"},
                       {"C0 02", "06 0E 2B 34 01 01 01 03 02 30 06 03 01 01 01 00"},
                       {"C0 03", "06 0E 2B 34 01 01 01 03 02 30 06 03 01 02 01 00"},
                       {"C0 04", "06 0E 2B 34 01 01 01 02 01 03 01 06 00 00 00 00"},
                       {"C0 05", "06 0E 2B 34 01 01 01 05 01 03 01 08 01 00 00 00"},
                       {"C0 06", "06 0E 2B 34 01 01 01 01 01 05 07 00 00 00 00 00"},
                       {"C0 07", "06 0E 2B 34 01 01 01 05 03 02 05 04 00 00 00 00"},
                       {"C0 08", "06 0E 2B 34 01 01 01 01 01 05 06 00 00 00 00 00"}};
    }
    int32_t Read(IFileIO* opened) {
        return extractor.GetDMSData(opened, &texts.job, &texts.family, &texts.given, &texts.number, &texts.name,
                                    &texts.take, &texts.kind, &texts.scene);
    }
    int32_t Read() {
        texts = {};
        return Read(Opened(file.Bytes()));
    }
    static ByteVector AllSets() {
        return Join(
            {Packet(kSceneFrameworkSetKey, LocalItem("C0 08", "37 41")),
             Packet(kClipFrameworkSetKey, Join({LocalItem("C0 06", "01 02"), LocalItem("C0 07", UTF16("k"))})),
             Packet(kProjectSetKey, Join({LocalItem("C0 04", "41 2D 31"), LocalItem("C0 05", UTF16("pn"))})),
             Packet(kParticipantSetKey, LocalItem("C0 01", UTF16("job"))),
             Packet(kPersonSetKey, Join({LocalItem("C0 02", UTF16("fam")), LocalItem("C0 03", UTF16("giv"))}))});
    }

    MetadataFile file;
    Texts texts;
};

TEST_F(DescriptiveMetadataOfFiles, TagsAreThoseOfTheFilesOwnPrimer) {
    file.sets = AllSets();
    EXPECT_EQ(Read(), kStatusOk);
    EXPECT_EQ(texts, (Texts{"job", "fam", "giv", "A-1", "pn", 0x0102, "k", "7A"}));
    // An item that the primer does not know is left out, even where a set has it.
    const auto primer = file.primer;
    for (size_t i = 0; i < primer.size(); ++i) {
        file.primer = primer;
        file.primer.erase(file.primer.begin() + static_cast<ptrdiff_t>(i));
        Texts expected{"job", "fam", "giv", "A-1", "pn", 0x0102, "k", "7A"};
        std::string* const fields[] = {&expected.job,  &expected.family, &expected.given, &expected.number,
                                       &expected.name, nullptr,          &expected.kind,  &expected.scene};
        if (fields[i] != nullptr) fields[i]->clear();
        if (fields[i] == nullptr) expected.take = 0;
        EXPECT_EQ(Read(), kStatusOk);
        EXPECT_EQ(texts, expected) << i;
    }
}

TEST_F(DescriptiveMetadataOfFiles, WhatIsNotThereIsEmpty) {
    EXPECT_EQ(Read(), kStatusOk);
    EXPECT_EQ(texts, kNoTexts);
    file.sets = Packet(kClipFrameworkSetKey, LocalItem("C0 06", "00 05"));
    EXPECT_EQ(Read(), kStatusOk);
    EXPECT_EQ(texts, (Texts{"", "", "", "", "", 5, "", ""}));
    file.primer.clear();
    EXPECT_EQ(Read(), kStatusOk);
    EXPECT_EQ(texts, kNoTexts);
}

TEST_F(DescriptiveMetadataOfFiles, TextsEndAtTheirFirstZeroAndNamesAtTheirWidth) {
    file.sets = Join(
        {Packet(kParticipantSetKey, LocalItem("C0 01", UTF16(std::string(61, 'j')))),
         Packet(kPersonSetKey, Join({LocalItem("C0 02", UTF16("fa") + "00 00 " + UTF16("m")), LocalItem("C0 03", "")})),
         Packet(kProjectSetKey, Join({LocalItem("C0 04", "41 00 42"), LocalItem("C0 05", "00 E9 4E 2D 00")})),
         Packet(kSceneFrameworkSetKey, LocalItem("C0 08", std::string(33 * 2, '3')))});
    EXPECT_EQ(Read(), kStatusOk);
    EXPECT_EQ(texts.job, std::string(60, 'j'));
    EXPECT_EQ(texts.family, "fa");
    EXPECT_EQ(texts.given, "");
    EXPECT_EQ(texts.number, "A");
    EXPECT_EQ(texts.name, "é中");
    EXPECT_EQ(texts.scene, std::string(33, '3'));
}

TEST_F(DescriptiveMetadataOfFiles, TakeNumberIsTwoBytes) {
    for (const auto& [value, take] : {std::pair{std::string_view("00 05"), 5},
                                      {std::string_view("01 02 03"), 0x0102},
                                      {std::string_view("05"), 0},
                                      {std::string_view(""), 0}}) {
        file.sets = Packet(kClipFrameworkSetKey, LocalItem("C0 06", value));
        EXPECT_EQ(Read(), kStatusOk);
        EXPECT_EQ(texts.take, take) << value;
    }
}

TEST_F(DescriptiveMetadataOfFiles, CutShortIsAFailureNotAnEmptyValue) {
    file.sets = AllSets();
    const auto bytes = file.Bytes();
    const size_t primerEnd = MetadataFile::kPrimerAt + 20 + 8 + 8 * 18;
    for (size_t size = 0; size < bytes.size(); ++size) {
        const int32_t expected = size < primerEnd ? kStatusNoMemory : kStatusIoError;
        EXPECT_EQ(Read(Opened(ByteVector(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size)))), expected)
            << size;
    }
    // The last item states more than the file has.
    file.sets = Packet(kPersonSetKey, LocalItem("C0 02", UTF16("fam")));
    auto lying = file.Bytes();
    Patch(lying, lying.size() - 8, Hex("00 09"));
    EXPECT_EQ(Read(Opened(lying)), kStatusIoError);
}

TEST_F(DescriptiveMetadataOfFiles, NullPointersAreRefused) {
    file.sets = AllSets();
    IFileIO* opened = Opened(file.Bytes());
    EXPECT_EQ(Read(nullptr), kStatusInvalidArgument);
    std::string text;
    uint16_t take = 0;
    for (int null = 0; null < 8; ++null) {
        const auto out = [&](int which) { return which == null ? nullptr : &text; };
        EXPECT_EQ(extractor.GetDMSData(opened, out(0), out(1), out(2), out(3), out(4), null == 5 ? nullptr : &take,
                                       out(6), out(7)),
                  kStatusInvalidArgument)
            << null;
    }
    EXPECT_EQ(text, "");
}

}  // namespace
}  // namespace kmxf::test
