// Runs a target without a fuzzing engine: over the files and folders named, and over as many inputs as --mutations says
// that are made of them, the same ones every time. An input that ends the program is left in "crash-" and the program's
// name.
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "support/Sanitizers.h"

// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" int LLVMFuzzerInitialize(int*, char***);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t capacity, unsigned seed);
extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t capacity);
#if KMXF_TEST_ASAN
extern "C" void __sanitizer_set_death_callback(void (*callback)());
#endif
// NOLINTEND(bugprone-reserved-identifier)

namespace {

namespace fs = std::filesystem;
using Input = std::vector<uint8_t>;

constexpr size_t kRoom = 1 << 12;  // for what mutations add

std::minstd_rand random_;
std::string crashName;
const Input* running = nullptr;

Input Load(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    Input bytes(fs::file_size(path));
    if (!bytes.empty()) file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!file) throw fs::filesystem_error("cannot be read", path, std::make_error_code(std::errc::io_error));
    return bytes;
}

void KeepInput() {
    if (running == nullptr) return;
    std::ofstream file(crashName, std::ios::binary);
    if (!running->empty())
        file.write(reinterpret_cast<const char*>(running->data()), static_cast<std::streamsize>(running->size()));
    std::fprintf(stderr, "the input is in %s\n", crashName.c_str());
    running = nullptr;
}

void Feed(const Input& input) {
    running = &input;
    LLVMFuzzerTestOneInput(input.data(), input.size());
    running = nullptr;
}

}  // namespace

// What the engine has of its own: one change of bytes that knows nothing about them.
size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t capacity) {
    const auto below = [](size_t count) { return random_() % std::max<size_t>(count, 1); };
    const size_t at = below(size), count = std::min(1 + below(8), size - std::min(at, size));
    switch (below(4)) {
        case 0:
            if (size == 0) break;
            data[at] = static_cast<uint8_t>(random_());
            return size;
        case 1:
            if (size == 0) break;
            data[at] = static_cast<uint8_t>(data[at] ^ 1u << below(8));
            return size;
        case 2:
            if (size <= count) break;
            std::copy(data + at + count, data + size, data + at);
            return size - count;
        default:
            break;
    }
    if (size >= capacity) return size;
    std::copy_backward(data + at, data + size, data + size + 1);
    data[at] = static_cast<uint8_t>(random_());
    return size + 1;
}

int main(int argc, char** argv) {
    std::FILE* const output = fdopen(dup(STDOUT_FILENO), "w");
    if (output == nullptr || std::freopen("/dev/null", "w", stdout) == nullptr) return 2;  // commands print a lot
    LLVMFuzzerInitialize(&argc, &argv);
    crashName = "crash-" + fs::path(argv[0]).filename().string();
    std::signal(SIGABRT, [](int) { KeepInput(); });
#if KMXF_TEST_ASAN
    __sanitizer_set_death_callback(KeepInput);
#endif
    unsigned long mutations = 0;
    std::vector<fs::path> paths;
    for (int i = 1; i < argc; ++i) {
        if (argv[i] == std::string("--mutations") && i + 1 < argc) {
            mutations = std::strtoul(argv[++i], nullptr, 10);
        } else if (fs::is_directory(argv[i])) {
            for (const auto& entry : fs::recursive_directory_iterator(argv[i])) {
                if (entry.is_regular_file()) paths.push_back(entry.path());
            }
        } else if (fs::exists(argv[i])) {
            paths.emplace_back(argv[i]);
        } else {
            std::fprintf(stderr, "%s: there is no %s\n", argv[0], argv[i]);
            return 2;
        }
    }
    std::ranges::sort(paths);
    std::vector<Input> seeds;
    for (const fs::path& path : paths) seeds.push_back(Load(path));
    for (const Input& seed : seeds) Feed(seed);
    for (unsigned long i = 0; i < mutations && !seeds.empty(); ++i) {
        Input input = seeds[i % seeds.size()];
        size_t size = input.size();
        input.resize(size + kRoom);
        for (auto rounds = 1 + random_() % 4; rounds > 0; --rounds)
            size = LLVMFuzzerCustomMutator(input.data(), size, input.size(), static_cast<unsigned>(random_()));
        Feed({input.begin(), input.begin() + static_cast<std::ptrdiff_t>(size)});
    }
    std::fprintf(output, "%zu inputs and %lu made of them\n", seeds.size(), seeds.empty() ? 0 : mutations);
    return 0;
}
