#include "kmxf/reader/ReadMXFHeader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "kmxf/collaborators/FileIO.h"
#include "kmxf/core/Status.h"
#include "reader/FailingAllocation.h"
#include "reader/Op1bFixture.h"
#include "support/LogRecorder.h"
#include "support/TemporaryFolder.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A header partition pack of 124 bytes and the sets, with bytes behind it.
ByteVector HeaderFile(const ByteVector& sets, std::string_view pattern = kOp1b, size_t behind = 100) {
    return Join({Pack{"02 04", pattern, Hex(kAES3Clip), sets.size()}.Bytes(), sets, ByteVector(behind, 0xBE)});
}

class ReadMXFHeader : public testing::Test {
protected:
    int32_t Read(const ByteVector& bytes) {
        const std::string name = folder.File("file.mxf");
        std::ofstream(name, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        return reader.ReadHeader(name.c_str());
    }
    void ExpectNothingHeld() {
        ByteVector buffer(131072, 0x77);
        EXPECT_FALSE(reader.GetHeaderData(buffer.data()));
        EXPECT_EQ(0x77, buffer[0]);
        EXPECT_EQ(0u, reader.GetHeaderSize());
        EXPECT_EQ(-1, reader.GetOperationalPattern());
        EXPECT_FALSE(reader.IsConsumerDV());
        EXPECT_FALSE(reader.IsValidDMS());
    }
    void ExpectFailed(int32_t expected, int32_t status, const char* message) {
        EXPECT_EQ(expected, status);
        EXPECT_THAT(log.Lines(), ElementsAre(std::string("CReadMXFHeader::ReadHeader: ") + message));
        EXPECT_EQ("ReadMXFHeader", log.Records().at(0).sourceFile);
        EXPECT_EQ(kLogError, log.Records().at(0).level);
        ExpectNothingHeld();
    }
    ByteVector Data() {
        ByteVector buffer(reader.GetHeaderSize());
        EXPECT_TRUE(reader.GetHeaderData(buffer.data()));
        return buffer;
    }

    LogRecorder log;
    TemporaryFolder folder;
    CReadMXFHeader reader;
};

TEST_F(ReadMXFHeader, StartsEmpty) { ExpectNothingHeld(); }

TEST_F(ReadMXFHeader, ReadsPackAndMetadata) {
    const auto file = HeaderFile(StructuralSet("36", {LocalItem("44 01", kSomeUMID)}));
    ASSERT_EQ(0, Read(file));
    EXPECT_EQ(file.size() - 100, reader.GetHeaderSize());
    EXPECT_TRUE(SameBytes(std::span(file).first(file.size() - 100), Data()));
    EXPECT_FALSE(reader.GetHeaderData(nullptr));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadMXFHeader, ReadsLargeHeadersInASecondPass) {
    for (const size_t size : {32767u, 32768u, 32769u, 40000u}) {
        const auto file = HeaderFile(Fill(size - 124));
        ASSERT_EQ(0, Read(file));
        EXPECT_EQ(size, reader.GetHeaderSize());
        EXPECT_TRUE(SameBytes(std::span(file).first(size), Data())) << size;
    }
}

TEST_F(ReadMXFHeader, TellsThePatternByTheWholeLabel) {
    const struct {
        std::string_view label;
        int32_t code, byTwoBytes;
    } rows[] = {
        {"06 0E 2B 34 04 01 01 02 0D 01 02 01 10 02 00 00", 0, 0},
        {"06 0E 2B 34 04 01 01 02 0D 01 02 01 10 03 00 00", 1, 0},
        {"06 0E 2B 34 04 01 01 02 0D 01 02 01 10 01 00 00", -1, 0},
        {"06 0E 2B 34 04 01 01 01 0D 01 02 01 01 01 09 00", 2, 1},
        {"06 0E 2B 34 04 01 01 01 0D 01 02 01 01 02 09 00", 3, 2},
        {"06 0E 2B 34 04 01 01 01 0D 01 02 01 01 02 08 00", -1, 2},
        {"06 0E 2B 34 04 01 01 01 0D 01 02 01 10 02 00 00", -1, 0},
    };
    for (const auto& row : rows) {
        ASSERT_EQ(0, Read(HeaderFile({}, row.label)));
        EXPECT_EQ(row.code, reader.GetOperationalPattern()) << row.label;
        auto header = Data();
        header.resize(131072);
        EXPECT_EQ(row.byTwoBytes, GetOperationPattern(header.data())) << row.label;
    }
}

TEST_F(ReadMXFHeader, FindsDescriptiveMetadata) {
    constexpr std::string_view kClip = "06 0E 2B 34 02 53 01 01 0D 01 04 01 01 01 02 00";
    constexpr std::string_view kScene = "06 0E 2B 34 02 53 01 01 0D 01 04 01 01 01 03 00";
    for (const std::string_view key : {kClip, kScene}) {
        ASSERT_EQ(0, Read(HeaderFile(Packet(key, LocalItem("80 01", "65 6E 00")))));
        EXPECT_TRUE(reader.IsValidDMS());
    }
    ASSERT_EQ(0, Read(HeaderFile(Packet(kClip, LocalItem("80 12", "65 6E 00")))));
    EXPECT_FALSE(reader.IsValidDMS()) << "without the language code";
    ASSERT_EQ(0, Read(HeaderFile({})));
    EXPECT_FALSE(reader.IsValidDMS());
}

TEST_F(ReadMXFHeader, KnowsConsumerDVOf525Lines) {
    const auto consumer = [&](std::string_view lastFour) {
        EXPECT_EQ(0, Read(HeaderFile(Packet(kCDCIKey, LocalItem("32 01", "06 0E 2B 34 04 01 01 01 04 01 02 02 " +
                                                                             std::string(lastFour))))));
        return reader.IsConsumerDV();
    };
    EXPECT_TRUE(consumer("02 01 01 00"));
    EXPECT_FALSE(consumer("02 01 02 00")) << "625 lines are not looked for";
    EXPECT_FALSE(consumer("02 02 01 00"));
    EXPECT_FALSE(consumer("02 01 01")) << "cut short";
}

TEST_F(ReadMXFHeader, RefusesANullNameWithoutARecord) {
    ASSERT_EQ(0, Read(HeaderFile({})));
    EXPECT_EQ(kStatusInvalidArgument, reader.ReadHeader(nullptr));
    EXPECT_THAT(log.Lines(), IsEmpty());
    ExpectNothingHeld();
}

TEST_F(ReadMXFHeader, ReportsAFileThatCannotBeOpened) {
    ASSERT_EQ(0, Read(HeaderFile({})));
    ExpectFailed(kStatusIoError, reader.ReadHeader(folder.File("none.mxf").c_str()), "Open Error.");
}

TEST_F(ReadMXFHeader, ReportsAFactoryThatGivesNothing) {
    CFileIOMain::SetFactoryProvider([](uint32_t, const CNetworkInfo*, uint32_t) -> IFileIOFactory* { return nullptr; });
    ExpectFailed(kStatusIoError, reader.ReadHeader("any"), "Open Error.");
    CFileIOMain::SetFactoryProvider({});
}

TEST_F(ReadMXFHeader, RefusesWhatIsNoPartitionPack) {
    ExpectFailed(kStatusInvalidArgument, Read({}), "SetData Error.");
    log.Clear();
    ExpectFailed(kStatusInvalidArgument, Read(Hex("52 49 46 46")), "SetData Error.");
}

TEST_F(ReadMXFHeader, RefusesSizesThatCannotBe) {
    for (const std::string_view count :
         {"FF FF FF FF FF FF FF FF", "80 00 00 00 00 00 00 00", "7F FF FF FF FF FF FF FF", "00 00 00 01 00 00 00 00",
          "00 00 00 00 00 02 00 00"}) {
        log.Clear();
        auto file = HeaderFile({});
        Patch(file, 52, Hex(count));
        ExpectFailed(kStatusNoMemory, Read(file), "Error.");
    }
}

TEST_F(ReadMXFHeader, APackOfAbsurdLengthIsRefused) {
    // A length of 2^32 - 25 in 8 bytes: with the head it would come to 0 in 32 bits.
    auto file = HeaderFile({});
    const auto length = Hex("88 00 00 00 00 FF FF FF E7");
    file.erase(file.begin() + 16, file.begin() + 20);
    file.insert(file.begin() + 16, length.begin(), length.end());
    EXPECT_NE(0, Read(file));
    EXPECT_EQ(0u, reader.GetHeaderSize());
}

TEST_F(ReadMXFHeader, WhatAHeaderOfAClipLacksInTheFileIsZeros) {
    auto file = HeaderFile({});
    Patch(file, 52, BigEndian(131072 - 124, 8));
    ASSERT_EQ(0, Read(file));
    EXPECT_EQ(131072u, reader.GetHeaderSize());
    file.resize(131072);
    EXPECT_TRUE(SameBytes(file, Data()));
}

TEST_F(ReadMXFHeader, WhatASmallHeaderLacksInTheFileIsZeros) {
    auto file = HeaderFile({}, kOp1b, 10);
    Patch(file, 52, BigEndian(300, 8));
    ASSERT_EQ(0, Read(file));
    EXPECT_EQ(424u, reader.GetHeaderSize());
    EXPECT_EQ(3, reader.GetOperationalPattern());
    file.resize(424);
    EXPECT_TRUE(SameBytes(file, Data()));
}

// On machines of 32 bits 3 GiB are more than a vector takes; on others the allocation fails.
TEST_F(ReadMXFHeader, ReportsASizeThatNoMemoryHolds) {
    auto file = HeaderFile({});
    Patch(file, 52, Hex("00 00 00 00 BF FF FF 84"));
    Read(file);
    std::filesystem::resize_file(folder.File("file.mxf"), 0xC0000000);
    const FailingAllocation none(FailingAllocation::By::kNew, 0xC0000000);
    log.Clear();
    ExpectFailed(kStatusNoMemory, reader.ReadHeader(folder.File("file.mxf").c_str()), "Error.");
}

TEST_F(ReadMXFHeader, ReportsMissingMemory) {
    const auto large = HeaderFile(Fill(100000 - 124));
    ASSERT_EQ(0, Read(large));
    for (const size_t size : {32768u, 100000u}) {
        const FailingAllocation none(FailingAllocation::By::kNew, size);
        log.Clear();
        ExpectFailed(kStatusNoMemory, reader.ReadHeader(folder.File("file.mxf").c_str()), "Error.");
    }
    EXPECT_EQ(0, Read(large)) << "and reads again";
}

TEST_F(ReadMXFHeader, EveryCutOfAFileEnds) {
    Op1bClip clip;
    clip.AddPictures(1);
    clip.headerSize = 3000;
    const ByteVector file = clip.Bytes();
    for (size_t size = 0; size < 3000; size += size < 140 ? 1 : 61) {
        const int32_t status = Read(ByteVector(file.begin(), file.begin() + static_cast<ptrdiff_t>(size)));
        // All but the bytes that make a partition pack key may be zeros.
        EXPECT_EQ(size < 13 ? kStatusInvalidArgument : 0, status) << size;
    }
}

TEST_F(ReadMXFHeader, ServesSeveralThreads) {
    ASSERT_EQ(0, Read(HeaderFile({})));
    const std::string name = folder.File("file.mxf");
    std::thread other([&] {
        for (int i = 0; i < 20; ++i) EXPECT_EQ(0, reader.ReadHeader(name.c_str()));
    });
    for (int i = 0; i < 20; ++i) EXPECT_EQ(0, reader.ReadHeader(name.c_str()));
    other.join();
    EXPECT_EQ(124u, reader.GetHeaderSize());
}

}  // namespace
}  // namespace kmxf::test
