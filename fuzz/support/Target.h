#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <random>
#include <span>
#include <string_view>

// What every fuzz target shares. A target is one function, Run, that does with bytes from outside what a client would.
// Around it (Target.cpp) stand the limits that hold for each input: a second, 64 MiB of memory.
namespace kmxf::fuzz {

using Bytes = std::span<const uint8_t>;

// Defined by each target. It returns whatever the input is, and leaves nothing behind.
void Run(Bytes input);

// What a target finds out beyond what the sanitizers see: ends the program when it does not hold.
void Require(bool holds, const char* what);

// Settings that go with an input: the same input always has the same.
class Choices {
public:
    explicit Choices(Bytes input)
        : random_(static_cast<uint_fast32_t>(
              std::hash<std::string_view>()({reinterpret_cast<const char*>(input.data()), input.size()}))) {}

    uint32_t Below(uint32_t count) { return static_cast<uint32_t>(random_() % count); }
    bool Flip() { return Below(2) == 0; }
    template <class Container>
    const auto& Of(const Container& container) {
        return container[Below(static_cast<uint32_t>(std::size(container)))];
    }

private:
    std::minstd_rand random_;
};

}  // namespace kmxf::fuzz
