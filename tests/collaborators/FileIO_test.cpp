#include "kmxf/collaborators/FileIO.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <tuple>
#include <type_traits>

#include "collaborators/Guards.h"
#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/collaborators/Notify.h"
#include "support/TemporaryFolder.h"
#include "support/TestData.h"

namespace kmxf {
namespace {

using testing::ElementsAre;

TEST(FileIOInterfaces, HaveAVirtualDestructorWhereSlotZeroIsOneAndOnlyThere) {
    EXPECT_FALSE(std::has_virtual_destructor_v<StreamPiece>);
    EXPECT_FALSE(std::has_virtual_destructor_v<IStreamPieceAllocator>);
    EXPECT_FALSE(std::has_virtual_destructor_v<IStreamFileIO>);
    EXPECT_FALSE(std::has_virtual_destructor_v<IFileIO>);
    EXPECT_FALSE(std::has_virtual_destructor_v<IFileIOFactory>);
    EXPECT_TRUE(std::has_virtual_destructor_v<IFileIOCallback>);
    EXPECT_TRUE(std::has_virtual_destructor_v<IMXFStatus>);
    EXPECT_TRUE(std::has_virtual_destructor_v<ISalvageMXFNotify>);
}

#if defined(__x86_64__) && defined(__GNUC__)
// The Itanium C++ ABI represents a pointer to a virtual member as 1 + 8 times its slot.
template <class Member>
size_t SlotOf(Member member) {
    size_t representation[2];
    static_assert(sizeof representation == sizeof member);
    std::memcpy(representation, &member, sizeof representation);
    return (representation[0] - 1) / sizeof(void*);
}

TEST(FileIOInterfaces, KeepTheirSlots) {
    EXPECT_EQ(SlotOf(&StreamPiece::GetSize), 0u);
    EXPECT_EQ(SlotOf(&StreamPiece::GetBuffer), 1u);
    EXPECT_EQ(SlotOf(&StreamPiece::CopyIn), 3u);

    EXPECT_EQ(SlotOf(&IStreamPieceAllocator::Allocate), 0u);
    EXPECT_EQ(SlotOf(&IStreamPieceAllocator::Free), 1u);
    EXPECT_EQ(SlotOf(&IStreamPieceAllocator::Release), 2u);

    EXPECT_EQ(SlotOf(&IStreamFileIO::Open), 0u);
    EXPECT_EQ(SlotOf(&IStreamFileIO::Close), 1u);
    EXPECT_EQ(SlotOf(&IStreamFileIO::Write), 2u);
    EXPECT_EQ(SlotOf(&IStreamFileIO::Read), 3u);
    EXPECT_EQ(SlotOf(&IStreamFileIO::Seek), 4u);
    EXPECT_EQ(SlotOf(&IStreamFileIO::DataSync), 5u);
    EXPECT_EQ(SlotOf(&IStreamFileIO::RegisterCallback), 6u);
    EXPECT_EQ(SlotOf(&IStreamFileIO::GetPieceAllocator), 9u);
    EXPECT_EQ(SlotOf(&IStreamFileIO::GetClusterSize), 10u);
    EXPECT_EQ(SlotOf(&IStreamFileIO::Release), 11u);

    EXPECT_EQ(SlotOf(&IFileIO::Open), 0u);
    EXPECT_EQ(SlotOf(&IFileIO::Close), 1u);
    EXPECT_EQ(SlotOf(&IFileIO::Write), 2u);
    EXPECT_EQ(SlotOf(&IFileIO::Read), 3u);
    EXPECT_EQ(SlotOf(&IFileIO::Seek), 4u);
    EXPECT_EQ(SlotOf(&IFileIO::Release), 10u);

    EXPECT_EQ(SlotOf(&IFileIOFactory::CreateFileIO), 0u);
    EXPECT_EQ(SlotOf(&IFileIOFactory::CreateStreamFileIO), 1u);
    EXPECT_EQ(SlotOf(&IFileIOFactory::Release), 8u);

    // A virtual destructor takes two entries of the table, and is one slot of the interface.
    EXPECT_EQ(SlotOf(&IFileIOCallback::CallbackForWriteComplete), 2u);
    EXPECT_EQ(SlotOf(&IMXFStatus::NotifyStatus), 2u);
    EXPECT_EQ(SlotOf(&ISalvageMXFNotify::Notify), 2u);
}
#endif

class LocalFile : public testing::Test {
protected:
    test::TemporaryFolder folder_;
    std::string name_ = folder_.File("a.bin");
    FactoryFile file_;
};

TEST_F(LocalFile, WritesAndReadsFromAPosition) {
    ASSERT_TRUE(file_->Open(name_.c_str(), kOpenCreate));
    EXPECT_EQ(file_->Write("abcdef", 6), 6);
    EXPECT_EQ(file_->Seek(-4, kSeekEnd), 2);
    char bytes[8] = "-------";
    EXPECT_EQ(file_->Read(bytes, 3), 3);
    EXPECT_STREQ(bytes, "cde----");
    EXPECT_EQ(file_->Seek(0, kSeekCurrent), 5);
    EXPECT_EQ(file_->Read(bytes, 8), 1);
    EXPECT_EQ(file_->Read(bytes, 8), 0);
    EXPECT_EQ(file_->Read(bytes, 0), 0);
    EXPECT_EQ(file_->Seek(1, kSeekBegin), 1);
    EXPECT_EQ(file_->Write("XY", 2), 2);
    EXPECT_EQ(file_->Seek(0, kSeekEnd), 6);
    EXPECT_TRUE(file_->Close());
    EXPECT_THAT(test::LoadFile(name_), ElementsAre('a', 'X', 'Y', 'd', 'e', 'f'));
}

TEST_F(LocalFile, HasSixtyFourBitPositions) {
    constexpr int64_t kFar = int64_t{5} << 30;
    ASSERT_TRUE(file_->Open(name_.c_str(), kOpenCreate));
    EXPECT_EQ(file_->Seek(kFar, kSeekBegin), kFar);
    EXPECT_EQ(file_->Write("end", 3), 3);
    EXPECT_EQ(file_->Seek(0, kSeekEnd), kFar + 3);
    EXPECT_EQ(file_->Seek(-2, kSeekCurrent), kFar + 1);
    char bytes[2];
    EXPECT_EQ(file_->Read(bytes, 2), 2);
    EXPECT_EQ(bytes[0], 'n');
}

TEST_F(LocalFile, SeekStaysWhereItIsOnFailure) {
    ASSERT_TRUE(file_->Open(name_.c_str(), kOpenCreate));
    EXPECT_EQ(file_->Write("abc", 3), 3);
    EXPECT_EQ(file_->Seek(-4, kSeekEnd), -1);
    EXPECT_EQ(file_->Seek(-1, kSeekBegin), -1);
    EXPECT_EQ(file_->Seek(0, 3), -1);
    EXPECT_EQ(file_->Seek(0, kSeekCurrent), 3);
    EXPECT_EQ(file_->Seek(7, kSeekEnd), 10);
}

TEST_F(LocalFile, OpensWithTheStreamsFlags) {
    EXPECT_FALSE(file_->Open(name_.c_str(), kOpenRead));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(file_->Open(name_.c_str(), kOpenReadWrite));
    EXPECT_FALSE(file_->Open(name_.c_str(), 1));
    EXPECT_FALSE(file_->Open(nullptr, kOpenCreate));
    ASSERT_TRUE(file_->Open(name_.c_str(), kOpenCreate));
    EXPECT_EQ(file_->Write("abc", 3), 3);
    ASSERT_TRUE(file_->Open(name_.c_str(), kOpenReadWrite));  // closes the first
    EXPECT_EQ(file_->Write("X", 1), 1);
    ASSERT_TRUE(file_->Open(name_.c_str(), kOpenRead));
    EXPECT_EQ(file_->Write("Y", 1), -1);
    char bytes[4] = {};
    EXPECT_EQ(file_->Read(bytes, 4), 3);
    EXPECT_STREQ(bytes, "Xbc");
    ASSERT_TRUE(file_->Open(name_.c_str(), kOpenCreate));
    EXPECT_EQ(file_->Seek(0, kSeekEnd), 0);
}

TEST_F(LocalFile, DoesNothingWhenNotOpen) {
    char byte = 0;
    EXPECT_EQ(file_->Write(&byte, 1), -1);
    EXPECT_EQ(file_->Read(&byte, 1), -1);
    EXPECT_EQ(file_->Seek(0, kSeekBegin), -1);
    EXPECT_FALSE(file_->Close());
    ASSERT_TRUE(file_->Open(name_.c_str(), kOpenCreate));
    EXPECT_EQ(file_->Write(nullptr, 1), -1);
    EXPECT_EQ(file_->Read(nullptr, 1), -1);
    EXPECT_TRUE(file_->Close());
    EXPECT_FALSE(file_->Close());
}

TEST_F(LocalFile, ReportsAFullDisk) {
    ASSERT_TRUE(file_->Open("/dev/full", kOpenCreate));
    EXPECT_EQ(file_->Write("abc", 3), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(file_->Seek(0, kSeekCurrent), 0);
}

// Stands in for a program's own files.
class FakeFactory final : public IFileIOFactory {
public:
    IFileIO* CreateFileIO(uint32_t mode) override {
        lastMode = mode;
        return nullptr;
    }
    IStreamFileIO* CreateStreamFileIO(uint32_t mode) override {
        lastMode = mode;
        return new CMemoryFileIO({1, 2, 3});
    }
    void Release() override { ++released; }
    uint32_t lastMode = 99;
    int released = 0;
};

TEST(FileIOMain, GivesTheLocalFileSystemForKindZeroOnly) {
    const Released<IFileIOFactory> factory(CFileIOMain::GetFactory(0, nullptr, 32768));
    ASSERT_NE(factory, nullptr);
    const Released<IFileIO> file(factory->CreateFileIO(1));
    const Released<IStreamFileIO> stream(factory->CreateStreamFileIO(0));
    EXPECT_NE(file, nullptr);
    EXPECT_NE(stream, nullptr);
    EXPECT_EQ(CFileIOMain::GetFactory(1, nullptr, 32768), nullptr);
    EXPECT_EQ(CFileIOMain::GetFactory(0xFFFFFFFF, nullptr, 32768), nullptr);
}

TEST(FileIOMain, AProviderAnswersInsteadUntilItIsTakenAway) {
    FakeFactory fake;
    std::tuple<uint32_t, const CNetworkInfo*, uint32_t> asked{9, nullptr, 9};
    CFileIOMain::SetFactoryProvider([&](uint32_t kind, const CNetworkInfo* network, uint32_t bufferUnit) {
        asked = {kind, network, bufferUnit};
        return &fake;
    });
    const CNetworkInfo network;
    EXPECT_EQ(CFileIOMain::GetFactory(3, &network, 512), &fake);
    EXPECT_EQ(asked, std::tuple(3u, &network, 512u));
    CFileIOMain::SetFactoryProvider([](auto...) { return nullptr; });
    EXPECT_EQ(CFileIOMain::GetFactory(0, nullptr, 32768), nullptr);
    CFileIOMain::SetFactoryProvider({});
    EXPECT_NE(Released<IFileIOFactory>(CFileIOMain::GetFactory(0, nullptr, 32768)), nullptr);
}

TEST(FileIOMain, TheLibraryAsksWithItsOwnArguments) {
    FakeFactory fake;
    std::tuple<uint32_t, const CNetworkInfo*, uint32_t> asked{9, nullptr, 9};
    CFileIOMain::SetFactoryProvider([&](uint32_t kind, const CNetworkInfo* network, uint32_t bufferUnit) {
        asked = {kind, network, bufferUnit};
        return &fake;
    });
    {
        const FactoryStream stream;
        EXPECT_EQ(asked, std::tuple(0u, static_cast<const CNetworkInfo*>(nullptr), 32768u));
        EXPECT_TRUE(stream);
        EXPECT_EQ(fake.lastMode, 0u);
        EXPECT_EQ(fake.released, 0);
    }
    EXPECT_EQ(fake.released, 1);
    {
        FactoryFile file;
        EXPECT_EQ(fake.lastMode, 1u);
        EXPECT_FALSE(file);
        EXPECT_FALSE(file.Open("a", kOpenRead));
        EXPECT_TRUE(file.Close());
    }
    EXPECT_EQ(fake.released, 2);
    CFileIOMain::SetFactoryProvider([](auto...) { return nullptr; });
    EXPECT_FALSE(FactoryStream().Open("a", kOpenRead));
    CFileIOMain::SetFactoryProvider({});
}

}  // namespace
}  // namespace kmxf
