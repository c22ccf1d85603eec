#include <memory>

#include "kmxf/collaborators/FileIO.h"
#include "salvage/Recordings.h"

namespace kmxf::test {
namespace {

// While it lives the files that the library opens by name take so many bytes in all, the last of them in the middle of
// a write, and nothing more: what a process leaves that is killed there.
class BrokenOff {
public:
    explicit BrokenOff(uint64_t bytes) : left_(bytes), local_(CFileIOMain::GetFactory(0, nullptr, 32768)) {
        CFileIOMain::SetFactoryProvider([this](uint32_t, const CNetworkInfo*, uint32_t) { return new Factory(*this); });
    }
    BrokenOff(const BrokenOff&) = delete;
    BrokenOff& operator=(const BrokenOff&) = delete;
    ~BrokenOff() {
        CFileIOMain::SetFactoryProvider({});
        local_->Release();
    }

    uint64_t Left() const { return left_; }

private:
    class File final : public IFileIO {
    public:
        File(BrokenOff& run, IFileIO* file) : run_(run), file_(file) {}
        bool Open(const char* name, uint32_t flags) override { return file_->Open(name, flags); }
        bool Close() override { return file_->Close(); }
        int32_t Write(const void* buffer, uint32_t size) override {
            const auto taken = static_cast<uint32_t>(std::min<uint64_t>(size, run_.left_));
            run_.left_ -= taken;
            const int32_t count = taken == 0 ? 0 : file_->Write(buffer, taken);
            return taken == size ? count : -1;
        }
        int32_t Read(void* buffer, uint32_t size) override { return file_->Read(buffer, size); }
        int64_t Seek(int64_t offset, int32_t origin) override { return file_->Seek(offset, origin); }
        void Release() override {
            file_->Release();
            delete this;
        }

    private:
        BrokenOff& run_;
        IFileIO* file_;
    };

    class Factory final : public IFileIOFactory {
    public:
        explicit Factory(BrokenOff& run) : run_(run) {}
        IFileIO* CreateFileIO(uint32_t mode) override { return new File(run_, run_.local_->CreateFileIO(mode)); }
        IStreamFileIO* CreateStreamFileIO(uint32_t mode) override { return run_.local_->CreateStreamFileIO(mode); }
        void Release() override { delete this; }

    private:
        BrokenOff& run_;
    };

    uint64_t left_;
    IFileIOFactory* local_;
};

// The tables and the sound of a shorter last group come to lie where sound of the longer one was.
TEST(SalvageBrokenOff, ASecondRunInPlaceTakesNoOtherBytesForSound) {
    const Bytes& whole = CutClip(2);
    const auto pictures = Elements(whole, "AVCLongGOPElement"), sounds = Elements(whole, "PCMBlockElement");
    const size_t size = sounds.back().ValueOffset() + sounds.back().length * 6 / 10;
    constexpr uint64_t kPlenty = 1 << 30;
    Clip clip;
    const auto salvage = [&](uint64_t bytes) {
        const SalvagePlan plan = ScanForSalvage({clip.Put("C.mxf", Beginning(whole, size))}, {}, PlainEntries);
        EXPECT_EQ(plan.duration, 2 * kClipGroupFrames + 6);
        const BrokenOff run(bytes);
        const SalvageResult result = CarryOutSalvage(plan, {clip.Path("C.mxf")});
        EXPECT_EQ(result.IsProven(), run.Left() > 0) << result.failure;
        return bytes - run.Left();
    };
    const uint64_t all = salvage(kPlenty);
    std::mt19937 random(5);
    for (uint64_t bytes = 0; bytes < all; bytes += 1 + random() % (all / 50)) {
        SCOPED_TRACE(std::to_string(bytes) + " of " + std::to_string(all) + " bytes written");
        salvage(bytes);
        const SalvagePlan plan = ScanForSalvage({clip.Path("C.mxf")}, {}, PlainEntries);
        ASSERT_GE(plan.duration, 2 * kClipGroupFrames) << "the whole groups stay";
        const Bytes salvaged = Salvaged(plan);
        const auto keptPictures = Elements(salvaged, "AVCLongGOPElement");
        ASSERT_EQ(keptPictures.size(), static_cast<size_t>(plan.duration));
        for (size_t i = 0; i < keptPictures.size(); ++i)
            ASSERT_EQ(Part(salvaged, keptPictures[i]), Part(whole, pictures[i])) << i;
        const auto keptSounds = Elements(salvaged, "PCMBlockElement");
        for (size_t i = 0; i < keptSounds.size(); ++i) {
            const Bytes samples = Part(salvaged, keptSounds[i]), recorded = Part(whole, sounds[i]);
            ASSERT_LE(samples.size(), recorded.size());
            ASSERT_TRUE(std::equal(samples.begin(), samples.end(), recorded.begin())) << i;
        }
    }
}

}  // namespace
}  // namespace kmxf::test
