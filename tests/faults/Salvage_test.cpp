#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "faults/FaultyFiles.h"
#include "faults/Recordings.h"
#include "faults/StreamFaults.h"
#include "kmxf/collaborators/Notify.h"
#include "kmxf/core/Environment.h"
#include "kmxf/tools/MXFExtractMetaData.h"
#include "kmxf/tools/SalvageMXF.h"
#include "kmxf/tools/SalvageMXFOp1b.h"
#include "kmxf/tools/SalvagePlan.h"
#include "support/TemporaryFolder.h"

namespace kmxf::test {
namespace {

constexpr auto kSilent = Play::Failure::kSilent;

// What a recording leaves behind whose writer is killed in front of Close.
class Killed final : public IStreamFileIO {
public:
    bool Open(const char* name, uint32_t flags) override { return stream_.Open(name, flags); }
    bool Close() override { return stream_.Close(); }
    int32_t Write(StreamPiece* piece, int32_t tag, int32_t reserved) override {
        const int32_t count = stream_.Write(piece, tag, reserved);
        // Tag 2 is the footer's.
        if (tag != 2 && !ended_) left_ = stream_.Bytes();
        ended_ = ended_ || tag == 2;
        return count;
    }
    int32_t Read(StreamPiece* piece, int32_t reserved) override { return stream_.Read(piece, reserved); }
    int64_t Seek(int64_t offset, int32_t origin) override { return stream_.Seek(offset, origin); }
    bool DataSync() override { return stream_.DataSync(); }
    bool RegisterCallback(IFileIOCallback* callback) override { return stream_.RegisterCallback(callback); }
    IStreamPieceAllocator* GetPieceAllocator() override { return stream_.GetPieceAllocator(); }
    uint32_t GetClusterSize() override { return stream_.GetClusterSize(); }
    void Release() override {}

    const Bytes& Left() const { return left_; }

private:
    FaultyStream stream_;
    Bytes left_;
    bool ended_ = false;
};

template <class Recorded>
Bytes RecordAndKill() {
    Killed stream;
    Play play;
    Recorded().Record(play, stream);
    return stream.Left();
}

// A file with the UUIDs of FixedEnvironment numbered anew, in the order in which they are met: who tries something
// twice makes more of them.
Bytes LoadRenumbered(const std::string& path) {
    constexpr uint8_t kPrefix[12] = {0, 0, 0, 0, 0, 0, 0x40, 0, 0x80};
    Bytes bytes = LoadFile(path);
    std::map<Bytes, uint8_t> numbers;
    for (size_t at = 0;;) {
        const void* found = memmem(bytes.data() + at, bytes.size() - at, kPrefix, sizeof kPrefix);
        if (found == nullptr) return bytes;
        at = static_cast<size_t>(static_cast<const uint8_t*>(found) - bytes.data()) + sizeof kPrefix;
        if (bytes.size() - at < 4) return bytes;
        const auto number = bytes.begin() + static_cast<std::ptrdiff_t>(at);
        const auto known = numbers.try_emplace(Bytes(number, number + 4), static_cast<uint8_t>(numbers.size()));
        std::fill_n(number, 4, known.first->second);
    }
}
void Put(const std::string& path, const Bytes& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

// Work by one and the same object on files of these names, each time.
class Work {
public:
    virtual ~Work() = default;
    virtual void Do(Play& play) = 0;
};
using Make = std::function<std::unique_ptr<Work>()>;

template <class Value>
int32_t PutValue(Bytes& out, int32_t status, const Value& value) {
    if (status == kStatusOk) Append(out, static_cast<int64_t>(value));
    return status;
}

class AtomSalvage final : public Work {
public:
    AtomSalvage(std::string path, uint32_t fileType, uint32_t videoStd, uint32_t compType)
        : path_(std::move(path)), fileType_(fileType), videoStd_(videoStd), compType_(compType) {}

    void Do(Play& play) override {
        const FixedEnvironment environment;
        play(
            "SetFilename", [&] { return salvager_.SetFilename(path_.c_str()); }, kSilent);
        play("settings", [&] {
            salvager_.SetFileType(fileType_);
            salvager_.SetVideoStandard(videoStd_);
            salvager_.SetCompType(compType_);
            salvager_.SetBytesPerSample(3);
            salvager_.SetChannel(1);
            salvager_.SetClipType(0x10102);
            salvager_.SetUMID(SomeUMID(1));
            return salvager_.SetShotUMID(SomeUMID(2));
        });
        play(
            "SetPackageName", [&] { return salvager_.SetPackageName(kLongName); }, kSilent);
        play(
            "SetDescriptiveMetadata", [&] { return salvager_.SetDescriptiveMetadata(SomeMetadata()); }, kSilent);
        play("Salvage", [&] { return salvager_.Salvage(); });
        play("GetDuration", [&](Bytes& out) {
            uint32_t frames = 0;
            return PutValue(out, salvager_.GetDuration(&frames), frames);
        });
        play(
            "GetStartTimecode",
            [&](Bytes& out) {
                CTimecode timecode;
                const int32_t status = salvager_.GetStartTimecode(&timecode);
                return PutValue(out, status, timecode.GetTotalFrame());
            },
            kSilent);
        play(
            "GetEndUMID",
            [&](Bytes& out) {
                MXFUMIDEXTag umid;
                const int32_t status = salvager_.GetEndUMID(&umid);
                if (status == kStatusOk) Append(out, umid.bytes);
                return status;
            },
            kSilent);
    }

private:
    std::string path_;
    uint32_t fileType_, videoStd_, compType_;
    CSalvageMXF salvager_{true};
};

class ClipSalvage final : public Work, private ISalvageMXFNotify {
public:
    explicit ClipSalvage(std::string path) : path_(std::move(path)) {}

    void Do(Play& play) override {
        const FixedEnvironment environment;
        play(
            "SetFilename", [&] { return salvager_.SetFilename(path_.c_str()); }, kSilent);
        // Salvage returns when the run has ended, which is at once.
        play("Salvage", [&] {
            outcome_ = 1;
            const int32_t status = salvager_.Salvage(this);
            return status == kStatusOk ? outcome_ : status;
        });
        play("GetDuration", [&] { return salvager_.GetDuration(); });
        play("GetAudioDataSize", [&] { return salvager_.GetAudioDataSize(); });
    }

private:
    void Notify(int32_t kind, int32_t value) override {
        if (kind == kSalvageFinished) outcome_ = value;
    }

    std::string path_;
    int32_t outcome_ = 0;
    CSalvageMXFOp1b salvager_;
};

class Extraction final : public Work {
public:
    Extraction(std::string video, std::vector<std::string> sound)
        : video_(std::move(video)), sound_(std::move(sound)) {}

    void Do(Play& play) override {
        play("ExtractMetaData", [&] { return extractor_.ExtractMetaData(video_, sound_); });
        play(
            "GetClipDuration",
            [&](Bytes& out) {
                uint32_t frames = 0;
                return PutValue(out, extractor_.GetClipDuration(&frames), frames);
            },
            kSilent);
        const auto text = [&](const char* name, auto get) {
            play(
                name,
                [&](Bytes& out) {
                    std::string value;
                    const int32_t status = (extractor_.*get)(&value);
                    Append(out, std::span(reinterpret_cast<const uint8_t*>(value.data()), value.size()));
                    return status;
                },
                kSilent);
        };
        text("GetClipName", &CMXFExtractMetaData::GetClipName);
        text("GetPackageName", &CMXFExtractMetaData::GetPackageName);
        text("GetProjectName", &CMXFExtractMetaData::GetProjectName);
        text("GetJobFunction", &CMXFExtractMetaData::GetJobFunction);
        play(
            "GetDIFEndUMID",
            [&](Bytes& out) {
                MXFUMIDEXTag umid;
                const int32_t status = extractor_.GetDIFEndUMID(&umid);
                if (status == kStatusOk) Append(out, umid.bytes);
                return status;
            },
            kSilent);
    }

private:
    std::string video_;
    std::vector<std::string> sound_;
    CMXFExtractMetaData extractor_;
};

// The program's way: a plan, carried out in place.
class PlanCarriedOut final : public Work {
public:
    explicit PlanCarriedOut(SalvagePlan plan, std::string path) : plan_(std::move(plan)), path_(std::move(path)) {}
    void Do(Play& play) override {
        const FixedEnvironment environment(1000);  // behind the UUIDs of what is kept
        // What was left of the first attempt is looked at anew.
        if (std::exchange(tried_, true)) plan_ = ScanForSalvage({path_});
        play(
            "CarryOutSalvage", [&] { return CarryOut(); }, kSilent);
    }

private:
    bool CarryOut() try { return CarryOutSalvage(plan_, {path_}).IsProven(); } catch (const std::bad_alloc&) {
        return false;
    }

    bool tried_ = false;
    SalvagePlan plan_;
    std::string path_;
};

// The library's threads run here and now.
class NoThreads {
public:
    NoThreads() {
        SetThreadStarter([](std::function<void()> run) {
            run();
            return 0;
        });
    }
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;
    ~NoThreads() { SetThreadStarter({}); }
};

// A file, and all failures of work on it. After each the same object does its work once more, on what is left, and
// comes to the same end.
class FileSweep {
public:
    FileSweep(std::string name, Bytes before, Make make)
        : name_(std::move(name)), before_(std::move(before)), make_(make) {}

    std::string Path() const { return path_; }
    // The second attempt proves its own result, which a new plan makes another one: UMIDs, dates.
    void ProvesItself() { sameTwice_ = false; }
    void SweepAll(int mostOperations, int mostRequests) {
        const NoThreads inline_;
        std::vector<std::string> calls;
        {
            Put(path_, before_);
            FaultyFiles files;
            const FailingMemory counting;
            Play play;
            make_()->Do(play);
            EXPECT_THAT(play.Faults(), testing::IsEmpty());
            EXPECT_THAT(play.Log(), testing::IsEmpty());
            calls = files.Calls();
            answers_ = play.Answers();
            for (const Answer& answer : answers_) {
                if (answer.call.starts_with("Get")) continue;  // what a file does not carry
                ASSERT_GE(answer.status, 0) << answer.call;
            }
            requests_ = FailingMemory::Requests();
            after_ = LoadRenumbered(path_);
        }
        {
            Sweep sweep(name_ + ", files");
            sweep.ForEach(static_cast<int>(calls.size()), mostOperations, [&](int n) {
                const std::string& call = calls[static_cast<size_t>(n - 1)];
                using enum FaultyFiles::Way;
                for (const auto& [way, text] :
                     {std::pair{kFails, " fails"}, {kIsShort, " is short"}, {kAllBehind, " and all behind it fail"}}) {
                    if (way == kIsShort && call != "Read" && call != "Write") continue;
                    sweep.Try(call + " (operation " + std::to_string(n) + ")" + text,
                              [&, w = way] { return WorkTwice(n, w, nullptr); });
                }
            });
        }
        Sweep sweep(name_ + ", memory");
        SweepMemory(sweep, requests_, mostRequests, [&](int n, FailingMemory::Way way) {
            return WorkTwice(0, FaultyFiles::Way::kFails, [=] { return std::make_unique<FailingMemory>(n, way); });
        });
    }

private:
    std::vector<std::string> WorkTwice(int n, FaultyFiles::Way way,
                                       const std::function<std::unique_ptr<FailingMemory>()>& failMemory) {
        std::vector<std::string> faults;
        Put(path_, before_);
        FaultyFiles files;
        files.Fail(n, way);
        {
            const auto work = make_();
            {
                Play play(answers_);
                auto memory = failMemory ? failMemory() : nullptr;
                work->Do(play);
                memory.reset();
                const auto log = play.Log();
                faults = play.Faults();
                if (!play.Failed() && LoadRenumbered(path_) != after_) {
                    const Bytes other = LoadRenumbered(path_);
                    const auto at = std::ranges::mismatch(other, after_).in1 - other.begin();
                    faults.push_back("it went well, but the file is another: " + std::to_string(other.size()) +
                                     " bytes for " + std::to_string(after_.size()) + ", from byte " +
                                     std::to_string(at) + " on");
                }
            }
            files.Fail(0, way);
            Play play(answers_);
            work->Do(play);
            if (play.Failed()) faults.push_back("it does not work again: " + play.FailedCall());
            for (const auto& line : play.Log()) faults.push_back(line);
        }
        if (files.Live() != 0) faults.push_back("files are not released");
        if (sameTwice_ && LoadRenumbered(path_) != after_)
            faults.push_back("the second time does not complete the first");
        return faults;
    }

    std::string name_;
    Bytes before_, after_;
    Make make_;
    int requests_ = 0;
    bool sameTwice_ = true;
    std::vector<Answer> answers_;
    const TemporaryFolder folder_;
    const std::string path_ = folder_.File("CLIP.mxf");
};

// Behind the last whole group, or frame, something that was never finished.
Bytes With(Bytes bytes, size_t count) {
    const Bytes rest = Noise(count, 31);
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    return bytes;
}

TEST(SalvageFaults, DV) {
    FileSweep sweep("DV salvage", With(RecordAndKill<DVRecording>(), 5000), [&]() -> std::unique_ptr<Work> {
        return std::make_unique<AtomSalvage>(sweep.Path(), kFileTypeVideo, VIDEO_STD_59_94I, COMP_TYPE_DV25);
    });
    sweep.SweepAll(1000, 30);
}
TEST(SalvageFaults, AVCIntra) {
    FileSweep sweep(
        "AVC-Intra salvage", With(RecordAndKill<AVCIntraRecording>(), 5000), [&]() -> std::unique_ptr<Work> {
            return std::make_unique<AtomSalvage>(sweep.Path(), kFileTypeVideo, VIDEO_STD_59_94P, COMP_TYPE_AVCI50_720);
        });
    sweep.SweepAll(1000, 30);
}
TEST(SalvageFaults, Sound) {
    FileSweep sweep("sound salvage", With(RecordAndKill<SoundRecording>(), 5), [&]() -> std::unique_ptr<Work> {
        return std::make_unique<AtomSalvage>(sweep.Path(), kFileTypeAudio, VIDEO_STD_59_94I, 0);
    });
    sweep.SweepAll(1000, 30);
}
TEST(SalvageFaults, Clip) {
    FileSweep sweep("OP-1b salvage", With(RecordAndKill<ClipRecording>(), 5000),
                    [&]() -> std::unique_ptr<Work> { return std::make_unique<ClipSalvage>(sweep.Path()); });
    sweep.SweepAll(60, 30);
}

TEST(SalvageFaults, PlanOfSound) {
    const Bytes left = With(RecordAndKill<SoundRecording>(), 5);
    std::optional<SalvagePlan> plan;
    FileSweep sweep("sound salvage by plan", left, [&]() -> std::unique_ptr<Work> {
        if (!plan) plan = ScanForSalvage({sweep.Path()});
        return std::make_unique<PlanCarriedOut>(*plan, sweep.Path());
    });
    sweep.ProvesItself();
    sweep.SweepAll(30, 30);
}
TEST(SalvageFaults, PlanOfAClip) {
    const Bytes left = With(RecordAndKill<ClipRecording>(), 5000);
    std::optional<SalvagePlan> plan;
    FileSweep sweep("OP-1b salvage by plan", left, [&]() -> std::unique_ptr<Work> {
        if (!plan) plan = ScanForSalvage({sweep.Path()});
        return std::make_unique<PlanCarriedOut>(*plan, sweep.Path());
    });
    sweep.ProvesItself();
    sweep.SweepAll(20, 10);
}

TEST(ExtractFaults, DVAndSound) {
    const TemporaryFolder folder;
    Put(folder.File("sound.mxf"), FileOf<SoundRecording>());
    FileSweep sweep("extraction", FileOf<DVRecording>(), [&]() -> std::unique_ptr<Work> {
        return std::make_unique<Extraction>(sweep.Path(), std::vector{folder.File("sound.mxf")});
    });
    sweep.SweepAll(60, 60);
}
// Each text is copied for the client; the sample above may leave one out.
TEST(ExtractFaults, TextsWithoutMemory) {
    const TemporaryFolder folder;
    Put(folder.File("video.mxf"), FileOf<DVRecording>());
    CMXFExtractMetaData extractor;
    ASSERT_EQ(extractor.ExtractMetaData(folder.File("video.mxf"), {}), kStatusOk);
    for (const auto get : {&CMXFExtractMetaData::GetPackageName, &CMXFExtractMetaData::GetProjectName,
                           &CMXFExtractMetaData::GetJobFunction}) {
        std::string text;
        int32_t status = kStatusOk;
        {
            const FailingMemory none(1, FailingMemory::Way::kFromThereOn);
            const FailingMemory::InLibrary inLibrary;
            EXPECT_NO_THROW(status = (extractor.*get)(&text));
        }
        EXPECT_EQ(status, kStatusNoMemory);
        EXPECT_EQ((extractor.*get)(&text), kStatusOk);
        EXPECT_GT(text.size(), 15u) << "too short to take memory: " << text;
    }
}

}  // namespace
}  // namespace kmxf::test
