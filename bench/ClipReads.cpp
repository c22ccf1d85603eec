// An OP-1b clip read through the library from its first frame to its last, pictures and sound, against the same bytes
// in plain large reads; and its pictures one by one, against pread() of the same places and one copy. The file is named
// by KMXF_BENCH_CLIP; scripts/bench makes one.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "FrameOrder.h"
#include "kmxf/collaborators/FileIO.h"
#include "kmxf/reader/ReadMXFOp1b.h"

namespace {

// A client's piece over a buffer that is used again and again.
class Window final : public kmxf::StreamPiece {
public:
    uint8_t* Resize(uint32_t size) {
        if (size > buffer_.size()) buffer_.resize(size);
        size_ = size;
        return buffer_.data();
    }
    uint32_t GetSize() override { return size_; }
    uint8_t* GetBuffer() override { return buffer_.data(); }
    void CopyIn(uint32_t offset, const void* source, uint32_t size) override {
        std::memcpy(buffer_.data() + offset, source, size);
    }

private:
    std::vector<uint8_t> buffer_;
    uint32_t size_ = 0;
};

struct Clip {
    explicit Clip(const char* file)
        : factory(kmxf::CFileIOMain::GetFactory(0, nullptr, 32768)), stream(factory->CreateStreamFileIO(0)) {
        status = reader.Open(file, stream);
    }
    Clip(const Clip&) = delete;
    Clip& operator=(const Clip&) = delete;
    ~Clip() {
        reader.Close();
        stream->Release();
        factory->Release();
    }
    bool Read(uint64_t offset, uint32_t size) {
        window.Resize(size);
        return stream->Seek(static_cast<int64_t>(offset), kmxf::kSeekBegin) >= 0 &&
               stream->Read(&window, 0) == static_cast<int32_t>(size);
    }
    bool ReadPicture(uint32_t frame) {
        kmxf::VIDEOFRAMEINFOTag info;
        return reader.GetVideoInfo(frame, info) == 0 && Read(info.offset, info.size);
    }
    bool ReadSound(uint32_t frame, uint32_t channel) {
        kmxf::AUDIODATAINFOTag info;
        return reader.GetAudioInfo(frame, channel, info) == 0 && Read(info.offset, info.size);
    }

    kmxf::IFileIOFactory* factory;
    kmxf::IStreamFileIO* stream;
    kmxf::CReadMXFOp1b reader;
    int32_t status;
    Window window;
};

const char* BenchClip(benchmark::State& state) {
    const char* file = std::getenv("KMXF_BENCH_CLIP");
    if (file == nullptr) state.SkipWithError("KMXF_BENCH_CLIP names no file");
    return file;
}

void ReadClipFrameByFrame(benchmark::State& state) {
    const char* file = BenchClip(state);
    if (file == nullptr) return;
    for (auto _ : state) {
        Clip clip(file);
        bool good = clip.status == 0;
        const auto frames = static_cast<uint32_t>(clip.reader.GetDuration());
        for (uint32_t frame = 0; good && frame < frames; ++frame) {
            good = clip.ReadPicture(frame);
            const bool groupBegins = frame % clip.reader.GetPartitionFrame() == 0;
            for (uint32_t c = 0; good && groupBegins && c < clip.reader.GetAudioCh(); ++c)
                good = clip.ReadSound(frame, c);
        }
        if (!good) state.SkipWithError("the clip could not be read");
    }
}
BENCHMARK(ReadClipFrameByFrame)->UseRealTime()->Unit(benchmark::kMillisecond);

void ReadClipPlainly(benchmark::State& state) {
    const char* file = BenchClip(state);
    if (file == nullptr) return;
    std::vector<uint8_t> buffer(1 << 20);
    for (auto _ : state) {
        const int descriptor = ::open(file, O_RDONLY);
        while (::read(descriptor, buffer.data(), buffer.size()) > 0) benchmark::DoNotOptimize(buffer.data());
        ::close(descriptor);
    }
}
BENCHMARK(ReadClipPlainly)->UseRealTime()->Unit(benchmark::kMillisecond);

void Picture(benchmark::State& state, bool random) {
    const char* file = BenchClip(state);
    if (file == nullptr) return;
    Clip clip(file);
    kmxf::bench::FrameOrder order(static_cast<uint32_t>(clip.reader.GetDuration()), random);
    for (auto _ : state) {
        if (!clip.ReadPicture(order.Next())) {
            state.SkipWithError("a picture could not be read");
            return;
        }
        benchmark::DoNotOptimize(clip.window.GetBuffer()[0]);
    }
}

// It knows where the pictures are.
void PreadPictureAndCopy(benchmark::State& state, bool random) {
    const char* file = BenchClip(state);
    if (file == nullptr) return;
    std::vector<kmxf::VIDEOFRAMEINFOTag> places;
    uint32_t largest = 0;
    {
        Clip clip(file);
        places.resize(static_cast<size_t>(clip.reader.GetDuration()));
        for (uint32_t frame = 0; frame < places.size(); ++frame) {
            clip.reader.GetVideoInfo(frame, places[frame]);
            largest = std::max<uint32_t>(largest, places[frame].size);
        }
    }
    std::vector<uint8_t> buffer(largest), copy(largest);
    kmxf::bench::FrameOrder order(static_cast<uint32_t>(places.size()), random);
    const int descriptor = ::open(file, O_RDONLY);
    for (auto _ : state) {
        const auto& place = places[order.Next()];
        if (::pread(descriptor, buffer.data(), place.size, static_cast<off_t>(place.offset)) != place.size) {
            state.SkipWithError("pread failed");
            break;
        }
        std::memcpy(copy.data(), buffer.data(), place.size);
        benchmark::DoNotOptimize(copy[0]);
    }
    ::close(descriptor);
}

BENCHMARK_CAPTURE(Picture, InOrder, false)->UseRealTime();
BENCHMARK_CAPTURE(PreadPictureAndCopy, InOrder, false)->UseRealTime();
BENCHMARK_CAPTURE(Picture, AtRandom, true)->UseRealTime();
BENCHMARK_CAPTURE(PreadPictureAndCopy, AtRandom, true)->UseRealTime();

}  // namespace
