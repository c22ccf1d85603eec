#include "kmxf/tools/ModifyMXFHeaderData.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>

#include "kmxf/core/Status.h"
#include "support/FaultyStream.h"
#include "support/Hex.h"
#include "support/TemporaryFolder.h"
#include "support/TestData.h"
#include "tools/HeaderEditing.h"
#include "tools/StreamFactory.h"

// The shot UMID of a file.
namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kSaveNotFound = "CModifyMXFHeaderData::Save: GetKeyParam Error.";

ByteVector WithShotUMID(ByteVector bytes) {
    Patch(bytes, kUMIDAt, Hex(kShotUMID));
    return bytes;
}

TEST_F(ModifyMXFHeaderData, SaveWritesTheShotUMIDAndNothingElse) {
    ExpectEdited(SaveUMID(), OpAtomBytes(), WithShotUMID(OpAtomBytes()));
    ExpectEdited(SaveUMID(), HexClip().Bytes(), WithShotUMID(HexClip().Bytes()));
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

}  // namespace
}  // namespace kmxf::test
