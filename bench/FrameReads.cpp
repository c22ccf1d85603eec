// Frames out of an OP-Atom file through the library, against pread() and one copy of the same bytes. The file is named
// by KMXF_BENCH_FILE; scripts/bench makes one.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "FrameOrder.h"
#include "kmxf/collaborators/FileIO.h"
#include "kmxf/reader/ReadMXFVideo.h"

namespace {

const char* BenchFile(benchmark::State& state) {
    const char* file = std::getenv("KMXF_BENCH_FILE");
    if (file == nullptr) state.SkipWithError("KMXF_BENCH_FILE names no file");
    return file;
}

struct Reader {
    explicit Reader(const char* file)
        : factory(kmxf::CFileIOMain::GetFactory(0, nullptr, 32768)), stream(factory->CreateStreamFileIO(0)) {
        reader.SetFilename(file);
        reader.Open(stream, true);
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    ~Reader() {
        reader.Close();
        stream->Release();
        factory->Release();
    }
    kmxf::IFileIOFactory* factory;
    kmxf::IStreamFileIO* stream;
    kmxf::CReadMXFVideo reader;
};

void Library(benchmark::State& state, bool random) {
    const char* file = BenchFile(state);
    if (file == nullptr) return;
    Reader opened(file);
    const uint32_t frameSize = opened.reader.GetFrameDataSize();
    kmxf::bench::FrameOrder order(opened.reader.GetDuration(), random);
    for (auto _ : state) {
        uint8_t* frame = nullptr;
        if (opened.reader.GetFrameData(order.Next(), &frame) != 0) {
            state.SkipWithError("a frame could not be read");
            return;
        }
        benchmark::DoNotOptimize(frame[0]);
        opened.reader.ReleaseFrameData(frame);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * frameSize);
}

void PreadAndCopy(benchmark::State& state, bool random) {
    const char* file = BenchFile(state);
    if (file == nullptr) return;
    const Reader opened(file);
    const uint32_t frameSize = opened.reader.GetFrameDataSize();
    kmxf::bench::FrameOrder order(opened.reader.GetDuration(), random);
    const int descriptor = ::open(file, O_RDONLY);
    const std::unique_ptr<uint8_t[]> buffer(new uint8_t[frameSize]);
    for (auto _ : state) {
        const off_t offset = 32768 + static_cast<off_t>(order.Next()) * frameSize;
        if (::pread(descriptor, buffer.get(), frameSize, offset) != static_cast<ssize_t>(frameSize)) {
            state.SkipWithError("pread failed");
            break;
        }
        auto* copy = static_cast<uint8_t*>(std::malloc(frameSize));
        std::memcpy(copy, buffer.get(), frameSize);
        benchmark::DoNotOptimize(copy[0]);
        std::free(copy);
    }
    ::close(descriptor);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * frameSize);
}

BENCHMARK_CAPTURE(Library, InOrder, false)->UseRealTime();
BENCHMARK_CAPTURE(PreadAndCopy, InOrder, false)->UseRealTime();
BENCHMARK_CAPTURE(Library, AtRandom, true)->UseRealTime();
BENCHMARK_CAPTURE(PreadAndCopy, AtRandom, true)->UseRealTime();

}  // namespace
