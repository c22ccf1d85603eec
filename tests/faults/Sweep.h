#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include "faults/FailingMemory.h"
#include "support/LogRecorder.h"

namespace kmxf::test {

using Bytes = std::vector<uint8_t>;

// What the library answered to one call: its status or count, and what came out besides.
struct Answer {
    std::string call;
    int64_t status;
    Bytes out;
    bool operator==(const Answer&) const = default;
};

// One play of a scenario by a client who stops at the first call that comes out otherwise than it should: than it did
// in the play without faults.
class Play {
public:
    enum class Failure {
        kLogged,   // a failure leaves a record in the log
        kSilent,   // or need not
        kByValue,  // it has no status: another value tells
        kAsked     // it has none at all, and the next call tells
    };

    Play() { log_.Clear(); }
    explicit Play(const std::vector<Answer>& clean) : clean_(&clean) { log_.Clear(); }

    // Calls the library; false when this call or one before failed. `call` returns a status, a count or whether it
    // succeeded, and may put results into the bytes that it is given.
    template <class Call>
    bool operator()(const char* name, Call call, Failure failure = Failure::kLogged) {
        if (!failedCall_.empty()) return false;
        Answer answer{name, 0, {}};
        answer.out.reserve(kMostOut);
        const size_t logged = log_.Size();
        Guard(name, [&] {
            if constexpr (std::is_invocable_v<Call, Bytes&>) {
                answer.status = StatusOf(call(answer.out));
            } else {
                answer.status = StatusOf(call());
            }
        });
        return Take(std::move(answer), failure, log_.Size() > logged);
    }

    // What the client does at the end in any case.
    template <class Call>
    void Always(const char* name, Call call) {
        Guard(name, [&] { call(); });
    }

    const std::vector<Answer>& Answers() const { return answers_; }
    const std::string& FailedCall() const { return failedCall_; }
    bool Failed() const { return !failedCall_.empty(); }
    std::vector<std::string> Log() const { return log_.Lines(); }
    // What must not be: an exception, a failure without a record, a wrong result without a failure.
    const std::vector<std::string>& Faults() const { return faults_; }

private:
    static constexpr size_t kMostOut = 4096;

    class Recorder : public LogRecorder {
    public:
        size_t Size() const { return Records().size(); }
    };

    template <class Value>
    static int64_t StatusOf(Value value) {
        if constexpr (std::is_same_v<Value, bool>) return value ? 0 : -1;
        return static_cast<int64_t>(value);
    }
    template <class Call>
    void Guard(const char* name, Call call) {
        try {
            const FailingMemory::InLibrary inLibrary;
            call();
        } catch (const std::exception& exception) {
            Threw(name, exception.what());
        }
    }
    void Threw(const char* name, const char* what);
    bool Take(Answer answer, Failure failure, bool logged);

    Recorder log_;
    const std::vector<Answer>* clean_ = nullptr;
    std::vector<Answer> answers_;
    std::vector<std::string> faults_;
    std::string failedCall_;
};

// All points of failure of one scenario.
class Sweep {
public:
    explicit Sweep(std::string name);
    ~Sweep();  // prints what was tried
    Sweep(const Sweep&) = delete;
    Sweep& operator=(const Sweep&) = delete;

    // Goes through 1 to `count`: all of them when KMXF_FAULTS_ALL is set; otherwise at most about `most`, in equal
    // steps, and the first and the last few.
    void ForEach(int count, int most, const std::function<void(int n)>& tryPoint);
    // One point: `run` returns what is wrong with it. A run that hangs ends the program with the point's name.
    void Try(const std::string& point, const std::function<std::vector<std::string>()>& run);
    // What the log said at a kind of point, for a comparison at the end.
    void Note(const std::string& kind, const std::vector<std::string>& lines);
    const std::map<std::string, std::set<std::string>>& Notes() const { return notes_; }

    static bool IsFull();

private:
    std::string name_;
    int tried_ = 0, wrong_ = 0;
    bool sampled_ = false;
    std::map<std::string, std::set<std::string>> notes_;
};

void Append(Bytes& out, std::span<const uint8_t> bytes);
void Append(Bytes& out, int64_t number);

}  // namespace kmxf::test
