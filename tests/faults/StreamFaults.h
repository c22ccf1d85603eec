#pragma once

#include <functional>
#include <string>
#include <vector>

#include "faults/Sweep.h"
#include "support/FaultyStream.h"

namespace kmxf::test {

// One way in which the nth operation of a stream fails.
struct StreamFault {
    const char* name;
    bool alone;  // no other operation fails
    std::function<void(FaultyStream& stream, int n)> set;
};

// All ways for an operation, by what FaultyStream::Calls says of it.
// `told`: also a write of which nothing but its completion tells that it failed.
inline std::vector<StreamFault> StreamFaultsOf(const std::string& call, bool told) {
    const auto once = [](Fault fault) {
        return [fault](FaultyStream& stream, int n) { stream.FailNthOfAll(n, fault); };
    };
    std::vector<StreamFault> faults = {
        {"fails", true, once(Fault::kFail)},
        {"and all behind it fail", false, [](FaultyStream& stream, int n) { stream.FailFromNthOfAll(n); }},
    };
    if (call.starts_with("Write")) {
        faults.push_back({"fails with a completion", true, once(Fault::kFailCompleted)});
        faults.push_back({"is short", true, once(Fault::kShort)});
        if (told) faults.push_back({"completes with an error", true, once(Fault::kBadCompletion)});
        faults.push_back({"is lost", false, once(Fault::kLost)});
        faults.push_back({"finds the medium full", false, [](FaultyStream& stream, int n) {
                              stream.FailFromNthOfAll(n, Fault::kFailCompleted, Op::kWrite);
                          }});
    }
    if (call.starts_with("Read")) {
        faults.push_back({"is short", true, once(Fault::kShort)});
        faults.push_back({"finds the end", true, once(Fault::kEndOfFile)});
    }
    return faults;
}

// What is to be tried at a point: `kind` is the operation's name, if that one alone fails, and `set` makes a stream
// fail there. Returns what is wrong.
using TryStream =
    std::function<std::vector<std::string>(const std::string& kind, const std::function<void(FaultyStream&)>& set)>;

// Every way of every operation of a clean play; of a recording with writes that complete at once, and later.
inline void SweepStream(Sweep& sweep, const std::vector<std::string>& calls, int most, bool recording,
                        const TryStream& tryStream) {
    sweep.ForEach(static_cast<int>(calls.size()), most, [&](int n) {
        const std::string& call = calls[static_cast<size_t>(n - 1)];
        for (const StreamFault& fault : StreamFaultsOf(call, recording)) {
            for (const bool asynchronous : {false, true}) {
                if (asynchronous && !recording) continue;
                const std::string point = call + " (operation " + std::to_string(n) + ") " + fault.name;
                sweep.Try(point + (asynchronous ? ", later" : ""), [&] {
                    return tryStream(fault.alone && !asynchronous ? call.substr(0, call.find(' ')) : "",
                                     [&](FaultyStream& stream) {
                                         if (asynchronous) stream.CompleteAsynchronously();
                                         fault.set(stream, n);
                                     });
                });
            }
        }
    });
}

// A request for memory of a clean play refused, one at a time, and then that and all behind it.
inline void SweepMemory(Sweep& sweep, int requests, int most,
                        const std::function<std::vector<std::string>(int n, FailingMemory::Way way)>& tryMemory) {
    sweep.ForEach(requests, most, [&](int n) {
        sweep.Try("request for memory " + std::to_string(n), [&] { return tryMemory(n, FailingMemory::Way::kOnce); });
        sweep.Try("request for memory " + std::to_string(n) + " and all behind it",
                  [&] { return tryMemory(n, FailingMemory::Way::kFromThereOn); });
    });
}

// What is wrong with a stream that its user should have given back.
inline void ExpectGivenBack(const FaultyStream& stream, std::vector<std::string>& faults) {
    if (stream.IsOpened()) faults.push_back("the stream is still open");
    // A stream that gives no allocator any more keeps its pieces: there is nothing to give them back to.
    if (stream.LivePieces() != 0 && !stream.FailsNthOfAll(stream.CountOfAll() + 1))
        faults.push_back("pieces are left: " + std::to_string(stream.LivePieces()));
    if (stream.LiveAllocators() != 0) faults.push_back("allocators are left");
}

}  // namespace kmxf::test
