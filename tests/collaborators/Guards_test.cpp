#include "collaborators/Guards.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "support/FaultyStream.h"

namespace kmxf {
namespace {

using test::FaultyStream;
using test::Op;
using testing::ElementsAre;

TEST(PieceAllocator, IsReleasedAtTheEndOfTheScope) {
    FaultyStream stream;
    {
        PieceAllocator allocator(&stream);
        EXPECT_EQ(stream.LiveAllocators(), 1);
        StreamPiece* const piece = allocator.Allocate(10);
        ASSERT_NE(piece, nullptr);
        allocator.Free(piece);
        allocator.Free(nullptr);
    }
    EXPECT_EQ(stream.LiveAllocators(), 0);
    EXPECT_EQ(stream.LivePieces(), 0);
}

TEST(PieceAllocator, AllocatesNothingWithoutAStreamOrAnAllocator) {
    EXPECT_FALSE(PieceAllocator(nullptr));
    EXPECT_EQ(PieceAllocator(nullptr).Allocate(10), nullptr);
    FaultyStream stream;
    stream.FailAll(Op::kGetPieceAllocator);
    EXPECT_FALSE(PieceAllocator(&stream));
    EXPECT_EQ(PieceAllocator(&stream).Allocate(10), nullptr);
}

TEST(OwnedPiece, GoesBackUnlessItIsHandedOn) {
    FaultyStream stream;
    PieceAllocator allocator(&stream);
    { const OwnedPiece piece(allocator, 10); }
    EXPECT_EQ(stream.LivePieces(), 0);

    StreamPiece* handedOn = nullptr;
    {
        OwnedPiece piece(allocator, 10);
        EXPECT_EQ(piece.Bytes().size(), 10u);
        EXPECT_EQ(piece->GetSize(), 10u);
        handedOn = piece.release();
        EXPECT_FALSE(piece);
    }
    EXPECT_EQ(stream.LivePieces(), 1);
    allocator.Free(handedOn);

    OwnedPiece piece(allocator, 10);
    piece.reset();
    EXPECT_EQ(stream.LivePieces(), 0);
}

TEST(OwnedPiece, IsFalseWhenThereIsNone) {
    FaultyStream stream;
    stream.FailNth(Op::kAllocate, 2);
    PieceAllocator allocator(&stream);
    EXPECT_TRUE(OwnedPiece(allocator, 10));
    EXPECT_FALSE(OwnedPiece(allocator, 10));
    EXPECT_TRUE(OwnedPiece(allocator, 10));
}

// A file system whose objects say when they go.
class Recorder final : public IFileIOFactory, public IStreamPieceAllocator {
public:
    IFileIO* CreateFileIO(uint32_t) override { return nullptr; }
    IStreamFileIO* CreateStreamFileIO(uint32_t) override { return new Noting(*this); }
    // Both interfaces have it: first as the allocator, if one was asked for, then as the factory.
    void Release() override { events.emplace_back(std::exchange(allocatorGone, true) ? "factory" : "allocator"); }
    StreamPiece* Allocate(uint32_t) override { return nullptr; }
    void Free(StreamPiece*) override {}

    std::vector<std::string> events;
    bool allocatorGone = false;

private:
    class Noting final : public IStreamFileIO {
    public:
        explicit Noting(Recorder& recorder) : recorder_(recorder) {}
        bool Open(const char* fileName, uint32_t) override { return *fileName != '\0'; }
        bool Close() override {
            recorder_.events.emplace_back("close");
            return true;
        }
        int32_t Write(StreamPiece*, int32_t, int32_t) override { return -1; }
        int32_t Read(StreamPiece*, int32_t) override { return -1; }
        int64_t Seek(int64_t, int32_t) override { return -1; }
        bool DataSync() override { return false; }
        bool RegisterCallback(IFileIOCallback*) override { return false; }
        IStreamPieceAllocator* GetPieceAllocator() override { return &recorder_; }
        uint32_t GetClusterSize() override { return 1; }
        void Release() override {
            recorder_.events.emplace_back("stream");
            delete this;
        }

    private:
        Recorder& recorder_;
    };
};

TEST(FactoryStream, ClosesAndReleasesStreamAllocatorAndFactoryInThisOrder) {
    Recorder recorder;
    CFileIOMain::SetFactoryProvider([&](auto...) { return static_cast<IFileIOFactory*>(&recorder); });
    {
        FactoryStream stream;
        EXPECT_TRUE(stream.Open("a", kOpenRead));
        EXPECT_TRUE(stream.Allocator());
        EXPECT_TRUE(stream.Allocator());
    }
    EXPECT_THAT(recorder.events, ElementsAre("close", "stream", "allocator", "factory"));
    CFileIOMain::SetFactoryProvider({});
}

TEST(FactoryStream, ClosesOnlyWhatIsOpen) {
    Recorder recorder;
    recorder.allocatorGone = true;  // none is asked for
    CFileIOMain::SetFactoryProvider([&](auto...) { return static_cast<IFileIOFactory*>(&recorder); });
    {
        FactoryStream stream;
        EXPECT_FALSE(stream.Open("", kOpenRead));
        EXPECT_TRUE(stream.Close());
        EXPECT_TRUE(stream.Open("a", kOpenRead));
        EXPECT_TRUE(stream.Close());
    }
    EXPECT_THAT(recorder.events, ElementsAre("close", "stream", "factory"));
    CFileIOMain::SetFactoryProvider({});
}

}  // namespace
}  // namespace kmxf
