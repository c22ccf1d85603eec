#include "kmxf/tools/SalvageMXFOp1b.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

#include "collaborators/Guards.h"
#include "collaborators/Report.h"
#include "core/EnvironmentSources.h"
#include "core/Layout.h"
#include "kmxf/collaborators/Log.h"
#include "kmxf/core/Status.h"
#include "tools/NamesFooter.h"
#include "tools/Op1bSalvage.h"

namespace kmxf {

namespace {

constexpr std::chrono::milliseconds kFirstWait{1000};

}  // namespace

// A run, as its own thread and the others see it.
struct CSalvageMXFOp1b::Run {
    Run(std::string name, ISalvageMXFNotify* to) : fileName(std::move(name)), notify(to) {}

    // On the run's thread.
    void Execute() {
        SetThread();
        const int32_t outcome = Salvage();
        Reach(State::kNotifies);
        notify->Notify(kSalvageFinished, outcome);
        Reach(State::kFinished);
    }
    // The file is closed when it returns.
    int32_t Salvage() try {
        const std::function<void(int32_t)> progress = [this](int32_t percent) {
            notify->Notify(kSalvageProgress, percent);
        };
        Op1bSalvage salvage(fileName, cancel, progress);
        const int32_t outcome = salvage.Execute();
        if (outcome == kSalvageCompleted) {
            const std::lock_guard lock(mutex);
            clip = salvage.Clip();
        }
        return outcome;
    } catch (const std::bad_alloc&) {
        return Failed("CSalvageMXFOp1b::Salvage", "SalvageMXFOp1b", "Allocate Error.", kSalvageFailed);
    }

    void SetThread() {
        const std::lock_guard lock(mutex);
        thread = std::this_thread::get_id();
    }
    // With its final notification a run is over for the client, who may begin another one within it.
    enum class State { kRuns, kNotifies, kFinished };
    void Reach(State reached) {
        const std::lock_guard lock(mutex);
        state = reached;
        changed.notify_all();
    }
    bool Has(State reached) {
        const std::lock_guard lock(mutex);
        return state >= reached;
    }
    void Wait(std::chrono::milliseconds most) {
        std::unique_lock lock(mutex);
        changed.wait_for(lock, most, [this] { return state == State::kFinished; });
    }
    // At once on the run's own thread.
    void WaitForEnd() {
        if (before) before->WaitForEnd();
        std::unique_lock lock(mutex);
        changed.wait(lock, [this] { return state == State::kFinished || thread == std::this_thread::get_id(); });
    }

    const std::string fileName;
    ISalvageMXFNotify* const notify;
    std::atomic<bool> cancel{false};
    std::shared_ptr<Run> before;  // which was still in its final notification

    std::mutex mutex;  // of what follows
    std::condition_variable changed;
    std::thread::id thread;
    State state = State::kRuns;
    SalvagedClip clip;
};

CSalvageMXFOp1b::CSalvageMXFOp1b() = default;

CSalvageMXFOp1b::~CSalvageMXFOp1b() {
    Cancel();
    if (const auto run = Current()) run->WaitForEnd();
}

bool CSalvageMXFOp1b::SetFilename(const char* fileName) try {
    if (fileName == nullptr || *fileName == '\0') return false;
    fileName_ = fileName;
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

int32_t CSalvageMXFOp1b::Salvage(ISalvageMXFNotify* notify) {
    if (notify == nullptr) return kStatusInvalidArgument;
    std::shared_ptr<Run> run, last;
    std::function<void()> work;
    try {
        run = std::make_shared<Run>(fileName_, notify);
        work = [run] { run->Execute(); };
    } catch (const std::bad_alloc&) {
        return Failed("CSalvageMXFOp1b::Salvage", "SalvageMXFOp1b", "Allocate Error.", kStatusNoMemory);
    }
    {
        const ScopedLock lock(lock_);
        if (run_ && !run_->Has(Run::State::kNotifies)) return kStatusWrongState;
        last = std::exchange(run_, run);
        if (last && last->before && last->before->Has(Run::State::kFinished)) last->before.reset();
        if (last && !last->Has(Run::State::kFinished)) run->before = last;
    }
    constexpr int32_t kNotStarted = 1;  // whatever else is answered, it runs
    int32_t started = kNotStarted;
    try {
        started = StartThread(std::move(work));
    } catch (...) {  // as one that says that it could not
    }
    if (started == kNotStarted) {
        const ScopedLock lock(lock_);
        run_ = last;
        throw jq_middle_common::ThreadException(0);
    }
    run->Wait(kFirstWait);
    return kStatusOk;
}

void CSalvageMXFOp1b::Cancel() {
    if (const auto run = Current()) run->cancel = true;
}

bool CSalvageMXFOp1b::IsCompletedFile() { return NamesFooter(fileName_, kOp1bHeaderSize); }

std::shared_ptr<CSalvageMXFOp1b::Run> CSalvageMXFOp1b::Current() const {
    const ScopedLock lock(lock_);
    return run_;
}

SalvagedClip CSalvageMXFOp1b::Clip() const {
    const auto run = Current();
    if (!run) return {};
    const std::lock_guard lock(run->mutex);
    return run->clip;
}

int64_t CSalvageMXFOp1b::GetDuration() const { return Clip().duration; }
int64_t CSalvageMXFOp1b::GetVideoDataSize() const { return Clip().videoDataSize; }
int64_t CSalvageMXFOp1b::GetAudioDataSize() const { return Clip().audioDataSize; }
uint32_t CSalvageMXFOp1b::GetVideoStandard() const { return Clip().videoStd; }
uint32_t CSalvageMXFOp1b::GetCompType() const { return Clip().compType; }
uint8_t CSalvageMXFOp1b::GetBytesPerSample() const { return Clip().bytesPerSample; }
uint32_t CSalvageMXFOp1b::GetClipType() const { return Clip().clipType; }
int64_t CSalvageMXFOp1b::GetOrigin() const { return Clip().origin; }
MXFTIMESTAMPTag CSalvageMXFOp1b::GetCreationDate() const { return Clip().creationDate; }
MXFUMIDTag CSalvageMXFOp1b::GetUMID() const { return Clip().umid; }
CTimecode CSalvageMXFOp1b::GetStartTimecode() const { return Clip().startTimecode; }
CUsersBit CSalvageMXFOp1b::GetStartUsersBit() const { return Clip().startUsersBit; }
MXFUMIDEXTag CSalvageMXFOp1b::GetStartUMID() const { return Clip().startUMID; }

}  // namespace kmxf
