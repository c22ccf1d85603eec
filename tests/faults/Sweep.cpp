#include "faults/Sweep.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/Sanitizers.h"

#if KMXF_TEST_ASAN
extern "C" int __lsan_do_recoverable_leak_check();  // NOLINT(bugprone-reserved-identifier)
#endif

namespace kmxf::test {

namespace {

constexpr unsigned kMostSeconds = 30;  // of a point, on a machine under load
constexpr int kEnds = 6;               // points at both ends that no sample leaves out
constexpr int kMostReports = 10;       // of a sweep: one mistake shows at many points

int total = 0;
char hanging[256];

void TellHang(int) {
    constexpr char kText[] = "hangs: ";
    static_cast<void>(!write(STDERR_FILENO, kText, sizeof kText - 1));
    static_cast<void>(!write(STDERR_FILENO, hanging, std::strlen(hanging)));
    std::abort();
}

class Total final : public testing::Environment {
public:
    // Thousands of syncs are for a medium in memory, where there is one.
    void SetUp() override {
        if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 0);
    }
    void TearDown() override { std::printf("%d points of failure tried\n", total); }
};
[[maybe_unused]] const auto* const kTotal = testing::AddGlobalTestEnvironment(new Total);

}  // namespace

void Append(Bytes& out, std::span<const uint8_t> bytes) { out.insert(out.end(), bytes.begin(), bytes.end()); }
void Append(Bytes& out, int64_t number) {
    for (int shift = 56; shift >= 0; shift -= 8) out.push_back(static_cast<uint8_t>(number >> shift));
}

void Play::Threw(const char* name, const char* what) {
    faults_.push_back(std::string(name) + " threw: " + what);
    failedCall_ = name;
}

bool Play::Take(Answer answer, Failure failure, bool logged) {
    if (!failedCall_.empty()) return false;
    if (clean_ == nullptr) {
        answers_.push_back(std::move(answer));
        return true;
    }
    const size_t number = answers_.size();
    if (number < clean_->size() && answer == (*clean_)[number]) {
        answers_.push_back(std::move(answer));
        return true;
    }
    failedCall_ = answer.call;
    const std::string said = answer.call + " returned " + std::to_string(answer.status);
    if (number >= clean_->size() || answer.call != (*clean_)[number].call) {
        faults_.push_back(answer.call + " is not what a clean play calls next");
    } else if (answer.status >= 0 && failure != Failure::kByValue && failure != Failure::kAsked) {
        faults_.push_back(said + ", and its result is wrong");
    } else if (!logged && !FailingMemory::RefusesAll() &&
               (failure == Failure::kLogged || failure == Failure::kByValue)) {
        faults_.push_back(said + " without a record in the log");
    }
    return false;
}

Sweep::Sweep(std::string name) : name_(std::move(name)) { std::signal(SIGALRM, TellHang); }

Sweep::~Sweep() {
    std::printf("%s: %d points of failure%s\n", name_.c_str(), tried_,
                sampled_ ? ", a sample (KMXF_FAULTS_ALL=1 tries all)" : "");
    testing::Test::RecordProperty("points", tried_);
    total += tried_;
    EXPECT_EQ(wrong_, 0) << name_;
#if KMXF_TEST_ASAN
    EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0) << name_;
#endif
}

bool Sweep::IsFull() {
    static const bool full = std::getenv("KMXF_FAULTS_ALL") != nullptr;
    return full;
}

void Sweep::ForEach(int count, int most, const std::function<void(int n)>& tryPoint) {
    const int step = IsFull() ? 1 : std::max(1, (count + most - 1) / most);
    sampled_ = sampled_ || step > 1;
    for (int n = 1; n <= count; ++n) {
        if (n % step == 0 || n <= kEnds || n > count - kEnds) tryPoint(n);
    }
}

void Sweep::Try(const std::string& point, const std::function<std::vector<std::string>()>& run) {
    std::snprintf(hanging, sizeof hanging, "%s: %s\n", name_.c_str(), point.c_str());
    alarm(kMostSeconds);
    const auto faults = run();
    alarm(0);
    ++tried_;
    if (faults.empty()) return;
    if (++wrong_ > kMostReports) return;
    std::string text;
    for (const std::string& fault : faults) text += "\n  " + fault;
    ADD_FAILURE() << name_ << ": " << point << text;
}

void Sweep::Note(const std::string& kind, const std::vector<std::string>& lines) {
    notes_[kind].insert(lines.begin(), lines.end());
}

}  // namespace kmxf::test
