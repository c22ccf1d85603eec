#include "HeaderEdit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "OwnedPiece.h"
#include "UndoFile.h"
#include "kmxf/collaborators/FileIO.h"
#include "support/TemporaryFolder.h"

namespace kmxf::program {
namespace {

// Real files, of which one write gets half of its bytes onto the medium and fails. With a power cut nothing is written
// after it.
class FailingFiles {
public:
    FailingFiles(int write, bool powerCut) : left_(write), powerCut_(powerCut) {
        CFileIOMain::SetFactoryProvider(
            [this](uint32_t, const CNetworkInfo*, uint32_t) -> IFileIOFactory* { return new Factory(*this); });
    }
    FailingFiles(const FailingFiles&) = delete;
    FailingFiles& operator=(const FailingFiles&) = delete;
    ~FailingFiles() {
        CFileIOMain::SetFactoryProvider({});
        real_->Release();
    }

    bool Happened() const { return left_ <= 0; }

private:
    class Stream final : public IStreamFileIO {
    public:
        Stream(FailingFiles& files, IStreamFileIO* real) : files_(files), real_(real) {}
        bool Open(const char* name, uint32_t flags) override { return !files_.dead_ && real_->Open(name, flags); }
        bool Close() override { return real_->Close(); }
        int32_t Write(StreamPiece* piece, int32_t tag, int32_t reserved) override {
            if (files_.dead_) return -1;
            if (--files_.left_ != 0) return real_->Write(piece, tag, reserved);
            HeapPiece half(piece->GetSize() / 2);
            half.CopyIn(0, piece->GetBuffer(), half.GetSize());
            real_->Write(&half, tag, reserved);
            real_->DataSync();
            files_.dead_ = files_.powerCut_;
            return -1;
        }
        int32_t Read(StreamPiece* piece, int32_t reserved) override { return real_->Read(piece, reserved); }
        int64_t Seek(int64_t offset, int32_t origin) override { return real_->Seek(offset, origin); }
        bool DataSync() override { return real_->DataSync() && !files_.dead_; }
        bool RegisterCallback(IFileIOCallback* callback) override { return real_->RegisterCallback(callback); }
        IStreamPieceAllocator* GetPieceAllocator() override { return real_->GetPieceAllocator(); }
        uint32_t GetClusterSize() override { return real_->GetClusterSize(); }
        void Release() override {
            real_->Release();
            delete this;
        }

    private:
        FailingFiles& files_;
        IStreamFileIO* real_;
    };

    class Factory final : public IFileIOFactory {
    public:
        explicit Factory(FailingFiles& files) : files_(files) {}
        IFileIO* CreateFileIO(uint32_t mode) override { return files_.real_->CreateFileIO(mode); }
        IStreamFileIO* CreateStreamFileIO(uint32_t mode) override {
            return new Stream(files_, files_.real_->CreateStreamFileIO(mode));
        }
        void Release() override { delete this; }

    private:
        FailingFiles& files_;
    };

    IFileIOFactory* real_ = CFileIOMain::GetFactory(0, nullptr, 32768);
    int left_;
    bool powerCut_;
    bool dead_ = false;
};

class HeaderEdits : public testing::Test {
protected:
    // Three files longer than a header, each with two changes in it.
    void SetUp() override {
        for (const char* name : {"a", "b", "c"}) {
            std::vector<uint8_t> content(0x20000 + 1000, static_cast<uint8_t>(*name));
            std::ofstream(folder_.File(name), std::ios::binary)
                .write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
            edits_.push_back(Edit(name, [](auto& bytes) {
                std::fill_n(bytes.begin() + 100, 32, uint8_t{1});
                std::fill_n(bytes.begin() + 0x1FFF0, 16, uint8_t{2});
            }));
        }
    }

    template <class Change>
    HeaderEdit Edit(const char* name, Change change) const {
        HeaderEdit edit{ReadHeaderBytes(folder_.File(name)), {}};
        edit.after = edit.now.bytes;
        change(edit.after);
        return edit;
    }

    static void Nothing(const HeaderEdit&) {}

    // 'b' where file b is as it was, 'B' where it is edited, '?' where it is neither; the essence stays in any case.
    std::string States() const {
        std::string states;
        for (const HeaderEdit& edit : edits_) {
            const std::string name = std::filesystem::path(edit.now.path).filename();
            std::ifstream file(edit.now.path, std::ios::binary);
            const std::string all{std::istreambuf_iterator<char>(file), {}};
            EXPECT_EQ(all.substr(0x20000), std::string(1000, name[0]));
            const auto bytes = ReadHeaderBytes(edit.now.path).bytes;
            states += bytes == edit.now.bytes ? name[0] : bytes == edit.after ? char(name[0] - 'a' + 'A') : '?';
        }
        return states;
    }

    void WriteUndo() const {
        std::vector<NewUndoFile> files;
        for (const HeaderEdit& edit : edits_) {
            files.push_back({edit.now.path, MakeUndoFile(edit, std::nullopt, {"a", "b", "c"})});
        }
        WriteUndoFiles(files);
    }
    void Undo() const {
        std::vector<HeaderEdit> back;
        for (const HeaderEdit& edit : edits_) {
            const HeaderBytes now = ReadHeaderBytes(edit.now.path);
            const auto before = ReadUndoFile(edit.now.path).value().PutBack(now);
            ASSERT_TRUE(before);
            back.push_back({now, *before});
        }
        ApplyAll(back, Nothing);
    }

    test::TemporaryFolder folder_;
    std::vector<HeaderEdit> edits_;
};

TEST_F(HeaderEdits, RangesJoinDifferencesThatAreClose) {
    const HeaderEdit edit = Edit("a", [](auto& bytes) {
        for (const size_t at : {0u, 5u, 37u, 70u, 0x1FFFFu}) bytes[at] = 0;
    });
    const auto ranges = edit.Ranges();
    ASSERT_EQ(ranges.size(), 3u);
    EXPECT_EQ(std::pair(ranges[0].begin, ranges[0].end), std::pair(uint64_t{0}, uint64_t{38}));
    EXPECT_EQ(std::pair(ranges[1].begin, ranges[1].end), std::pair(uint64_t{70}, uint64_t{71}));
    EXPECT_EQ(std::pair(ranges[2].begin, ranges[2].end), std::pair(uint64_t{0x1FFFF}, uint64_t{0x20000}));
}

TEST_F(HeaderEdits, FingerprintsAreFnv1a) {
    const auto of = [](const std::string& text) { return Fingerprint({text.begin(), text.end()}); };
    EXPECT_EQ(of(""), "CBF29CE484222325");
    EXPECT_EQ(of("a"), "AF63DC4C8601EC8C");
    EXPECT_EQ(of("foobar"), "85944171F73967E8");
}

TEST_F(HeaderEdits, ACopyIsChangedInTheFilesStead) {
    const HeaderEdit edit = EditCopy(edits_[0].now, [](const char* name) {
        std::fstream copy(name, std::ios::binary | std::ios::in | std::ios::out);
        copy.seekp(3);
        copy << "xy";
    });
    EXPECT_EQ(std::string(edit.after.begin(), edit.after.begin() + 7), "aaaxyaa");
    EXPECT_EQ(edit.after.size(), 0x20000u);
    EXPECT_EQ(States(), "abc");
}

TEST_F(HeaderEdits, AllFilesAreChanged) {
    ApplyAll(edits_, Nothing);
    EXPECT_EQ(States(), "ABC");
}

TEST_F(HeaderEdits, AnyWriteThatFailsPutsAllFilesBack) {
    for (int write = 1; write <= 6; ++write) {
        FailingFiles files(write, false);
        try {
            ApplyAll(edits_, Nothing);
            FAIL() << write;
        } catch (const NotPutBack&) {
            FAIL() << write;
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.Status(), ExitStatus::kOutput);
            EXPECT_EQ(failure.what(), edits_[static_cast<size_t>(write - 1) / 2].now.path + ": cannot be written");
        }
        EXPECT_TRUE(files.Happened());
        EXPECT_EQ(States(), "abc") << write;
    }
}

TEST_F(HeaderEdits, APowerCutAtAnyWriteLeavesTheWayBack) {
    const std::string expected[] = {"?bc", "?bc", "A?c", "A?c", "AB?", "AB?", "ABC"};
    for (int write = 1; write <= 7; ++write) {
        WriteUndo();
        {
            FailingFiles files(write, true);
            if (write <= 6) {
                EXPECT_THROW(ApplyAll(edits_, Nothing), NotPutBack) << write;
            } else {
                ApplyAll(edits_, Nothing);
            }
            EXPECT_EQ(files.Happened(), write <= 6);
        }
        EXPECT_EQ(States(), expected[write - 1]) << write;
        Undo();
        EXPECT_EQ(States(), "abc") << write;
    }
}

TEST_F(HeaderEdits, APowerCutWhilePuttingBackLeavesTheWayBack) {
    for (int write = 1; write <= 6; ++write) {
        WriteUndo();
        ApplyAll(edits_, Nothing);
        {
            const FailingFiles files(write, true);
            EXPECT_THROW(Undo(), NotPutBack) << write;
        }
        Undo();
        EXPECT_EQ(States(), "abc") << write;
    }
}

TEST_F(HeaderEdits, AFileThatDoesNotProveGoodPutsAllBack) {
    EXPECT_THROW(ApplyAll(edits_,
                          [&](const HeaderEdit& edit) {
                              if (edit.now.path == edits_[1].now.path) Fail(ExitStatus::kInternal, "b", "bad");
                          }),
                 Failure);
    EXPECT_EQ(States(), "abc");
}

TEST_F(HeaderEdits, AFileThatChangedMeanwhileKeepsAllFromBeingWritten) {
    std::ofstream(folder_.File("c"), std::ios::app) << "more";
    try {
        ApplyAll(edits_, Nothing);
        FAIL();
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.Status(), ExitStatus::kInput);
        EXPECT_EQ(failure.what(), folder_.File("c") + ": was changed meanwhile");
    }
    edits_.pop_back();
    EXPECT_EQ(States(), "ab");
}

TEST_F(HeaderEdits, AnUndoFileSaysWhetherItsEditIsComplete) {
    const HeaderEdit& edit = edits_[0];
    const UndoFile undo = MakeUndoFile(edit, std::nullopt, {"a"});
    EXPECT_FALSE(undo.IsComplete(edit.now));
    HeaderBytes now = edit.now;
    now.bytes = edit.after;
    EXPECT_TRUE(undo.IsComplete(now));
    EXPECT_EQ(undo.PutBack(now), edit.now.bytes);
    now.bytes[100] ^= 1;  // within the changes
    EXPECT_FALSE(undo.IsComplete(now));
    EXPECT_EQ(undo.PutBack(now), edit.now.bytes);
    now.bytes[99] ^= 1;  // outside
    EXPECT_EQ(undo.PutBack(now), std::nullopt);
    now.bytes[99] ^= 1;
    ++now.fileSize;
    EXPECT_EQ(undo.PutBack(now), std::nullopt);
}

// The second edit takes the first one back; broken off, it leaves bytes of it.
TEST_F(HeaderEdits, TheUndoFileOfASecondEditLeadsBackBeforeTheFirst) {
    const HeaderEdit& first = edits_[0];
    const UndoFile earlier = MakeUndoFile(first, std::nullopt, {"a", "b"});
    HeaderEdit second{first.now, first.now.bytes};
    second.now.bytes = first.after;
    second.after[500] = 9;
    const UndoFile undo = MakeUndoFile(second, earlier, {"a", "c"});
    EXPECT_EQ(undo.clip, (std::vector<std::string>{"a", "b", "c"}));
    HeaderBytes now = second.now;
    EXPECT_EQ(undo.PutBack(now), first.now.bytes);
    now.bytes[110] = 'a';
    EXPECT_EQ(undo.PutBack(now), first.now.bytes);
    now.bytes = second.after;
    EXPECT_EQ(undo.PutBack(now), first.now.bytes);
}

}  // namespace
}  // namespace kmxf::program
