#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "faults/Left.h"
#include "faults/Recordings.h"
#include "kmxf/collaborators/FileIO.h"
#include "support/TemporaryFolder.h"

namespace kmxf::test {
namespace {

// A medium that is full after so many bytes: the system refuses to let files of this process grow beyond.
class FullMedium {
public:
    explicit FullMedium(size_t bytes) : ignored_(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    FullMedium(const FullMedium&) = delete;
    FullMedium& operator=(const FullMedium&) = delete;
    ~FullMedium() {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, ignored_);
    }

private:
    rlimit before_{};
    void (*ignored_)(int);
};

// Records onto real files by the library's own stream.
class RealFiles {
public:
    RealFiles() : factory_(CFileIOMain::GetFactory(0, nullptr, 32768)), stream_(factory_->CreateStreamFileIO(0)) {}
    RealFiles(const RealFiles&) = delete;
    RealFiles& operator=(const RealFiles&) = delete;
    ~RealFiles() {
        stream_->Release();
        factory_->Release();
    }
    IStreamFileIO& Stream() { return *stream_; }

private:
    IFileIOFactory* factory_;
    IStreamFileIO* stream_;
};

// The recording's own name is a long one, of no folder: the test goes into a folder of its own.
class Folder {
public:
    Folder() : before_(std::filesystem::current_path()) { std::filesystem::current_path(folder_.Path()); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() { std::filesystem::current_path(before_); }

private:
    TemporaryFolder folder_;
    std::filesystem::path before_;
};

template <class Recorded>
void SweepFull(const std::string& name, const std::string& file, size_t step) {
    const Folder folder;
    Recorded recording;
    RealFiles files;
    std::vector<Answer> answers;
    {
        Play play;
        recording.Record(play, files.Stream());
        ASSERT_TRUE(play.Faults().empty());
        answers = play.Answers();
    }
    const Bytes clean = LoadFile(file);
    ASSERT_GT(clean.size(), 32768u);
    Sweep sweep(name + ", full medium");
    // Around the header, and the last bytes one by one
    std::vector<size_t> sizes = {0, 1, 32767, 32768, clean.size() - 1};
    for (size_t size = step; size < clean.size(); size += step) sizes.push_back(size);
    for (const size_t size : sizes) {
        sweep.Try("full after " + std::to_string(size) + " bytes", [&] {
            std::vector<std::string> faults;
            uint32_t confirmed = 0;
            std::vector<std::string> log;
            {
                Play play(answers);
                {
                    const FullMedium full(size);
                    recording.Record(play, files.Stream());
                }
                faults = play.Faults();
                log = play.Log();
                confirmed = recording.FramesConfirmed();
            }
            // Lost writes show at the next operation, at the latest when the stream is closed.
            if (log.empty()) faults.push_back("nothing was logged");
            const Bytes left = LoadFile(file);
            if (left.size() > size) faults.push_back("the medium was not full");
            if (!std::ranges::equal(left, std::span(clean).first(left.size())) && left.size() > 32768 &&
                !std::equal(left.begin() + 32768, left.end(), clean.begin() + 32768))
                faults.push_back("what is there is not what was written");
            for (const auto& fault : SalvageWhatIsLeft(left, confirmed, false)) faults.push_back(fault);
            Play play(answers);
            recording.Record(play, files.Stream());
            if (play.Failed()) faults.push_back("it does not record again: " + play.FailedCall());
            if (LoadFile(file) != clean) faults.push_back("it records something else the next time");
            return faults;
        });
    }
}

TEST(FullMediumFaults, DV) {
    SweepFull<DVRecording>("DV recording", "a name that no string holds without memory.mxf", 30011);
}
TEST(FullMediumFaults, Sound) {
    SweepFull<SoundRecording>("sound recording", "a name that no string holds without memory.mxf", 4999);
}
TEST(FullMediumFaults, Clip) { SweepFull<ClipRecording>("OP-1b recording", "clip.mxf", 60013); }

}  // namespace
}  // namespace kmxf::test
