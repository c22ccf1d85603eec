#include "Sound.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <sndfile.hh>

#include "Program.h"

namespace kmxf::program {

struct WavInput::File {
    SndfileHandle handle;
};
struct WavOutput::File {
    SndfileHandle handle;
    uint32_t bytesPerSample;
};

namespace {

constexpr int64_t kSamplesAtOnce = 8192;            // they stay in the processor's cache
constexpr int64_t kMostSamples = int64_t{1} << 40;  // more than half a year of them

// Every `step`-th of the samples, which come left-justified in 32 bits.
template <uint32_t kBytes>
void TakeChannel(const int32_t* from, size_t step, size_t count, uint8_t* to) {
    for (size_t i = 0; i < count; ++i, from += step) {
        const uint32_t sample = static_cast<uint32_t>(*from) >> (32 - 8 * kBytes);
        for (uint32_t b = 0; b < kBytes; ++b) *to++ = static_cast<uint8_t>(sample >> (8 * b));
    }
}

// The same of samples as they are stored.
template <uint32_t kBytes>
void TakeStored(const uint8_t* from, size_t step, size_t count, uint8_t* to) {
    for (size_t i = 0; i < count; ++i, from += step, to += kBytes) std::memcpy(to, from, kBytes);
}

}  // namespace

WavInput::WavInput(const std::string& path, uint32_t bits)
    : path_(path), file_(std::make_unique<File>(File{SndfileHandle(path)})) {
    SndfileHandle& handle = file_->handle;
    if (!handle || handle.error() != SF_ERR_NO_ERROR) {
        Fail(ExitStatus::kInput, path, std::string("cannot be read as a sound file: ") + handle.strError());
    }
    const int subtype = handle.format() & SF_FORMAT_SUBMASK;
    const uint32_t own = subtype == SF_FORMAT_PCM_24 ? 24
                         : subtype == SF_FORMAT_PCM_16 || subtype == SF_FORMAT_PCM_U8 || subtype == SF_FORMAT_PCM_S8
                             ? 16
                             : 0;
    if (own == 0 && bits == 0)
        Fail(ExitStatus::kInput, path, "has samples of neither 16 nor 24 bits: say which with --bits");
    if (handle.samplerate() != 48000 && handle.samplerate() != 96000) {
        Fail(ExitStatus::kInput, path,
             "has a sampling rate of " + std::to_string(handle.samplerate()) + " Hz; 48000 or 96000 is needed");
    }
    if (own == 0) {
        handle.command(SFC_SET_SCALE_FLOAT_INT_READ, nullptr, SF_TRUE);
        handle.command(SFC_SET_CLIPPING, nullptr, SF_TRUE);
    }
    if (handle.frames() < 0 || handle.frames() > kMostSamples)
        Fail(ExitStatus::kInput, path, "tells of " + std::to_string(handle.frames()) + " samples");
    const int container = handle.format() & SF_FORMAT_TYPEMASK;
    const bool isPlain = container == SF_FORMAT_WAV || container == SF_FORMAT_WAVEX || container == SF_FORMAT_RF64 ||
                         container == SF_FORMAT_W64;
    if (!isPlain) RequireLastSample();
    bytesPerSample_ = (bits != 0 ? bits : own) / 8;
    const bool sameSize = subtype == (bytesPerSample_ == 3 ? SF_FORMAT_PCM_24 : SF_FORMAT_PCM_16);
    isStored_ = isPlain && sameSize && std::endian::native == std::endian::little &&
                handle.command(SFC_RAW_DATA_NEEDS_ENDSWAP, nullptr, 0) == SF_FALSE;
}

// What is compressed may tell of any length, to which other files would be filled up before it is read.
void WavInput::RequireLastSample() {
    SndfileHandle& handle = file_->handle;
    if (Samples() == 0) return;
    std::vector<int32_t> sample(Channels());
    const bool there = handle.seek(Samples() - 1, SEEK_SET) == Samples() - 1 && handle.readf(sample.data(), 1) == 1;
    if (!there || handle.seek(0, SEEK_SET) != 0) FailShort();
}

void WavInput::FailShort() const {
    Fail(ExitStatus::kInput, path_, "ends before its " + std::to_string(Samples()) + " samples");
}

WavInput::~WavInput() = default;

uint32_t WavInput::Channels() const { return static_cast<uint32_t>(file_->handle.channels()); }
uint32_t WavInput::SamplingRate() const { return static_cast<uint32_t>(file_->handle.samplerate()); }
int64_t WavInput::Samples() const { return file_->handle.frames(); }

int64_t WavInput::ReadConverted(int64_t count, int64_t at, std::span<uint8_t* const> channels) {
    converted_.resize(static_cast<size_t>(count) * channels.size());
    const int64_t got = file_->handle.readf(converted_.data(), count);
    const auto take = bytesPerSample_ == 3 ? TakeChannel<3> : TakeChannel<2>;
    for (size_t c = 0; c < channels.size(); ++c) {
        take(converted_.data() + c, channels.size(), static_cast<size_t>(got), channels[c] + at * bytesPerSample_);
    }
    return got;
}

// Without the library's conversion, which takes small steps.
int64_t WavInput::ReadStored(int64_t count, int64_t at, std::span<uint8_t* const> channels) {
    const size_t step = channels.size() * bytesPerSample_;
    stored_.resize(static_cast<size_t>(count) * step);
    const int64_t got =
        file_->handle.readRaw(stored_.data(), static_cast<sf_count_t>(stored_.size())) / static_cast<int64_t>(step);
    const auto take = bytesPerSample_ == 3 ? TakeStored<3> : TakeStored<2>;
    for (size_t c = 0; c < channels.size(); ++c) {
        take(stored_.data() + c * bytesPerSample_, step, static_cast<size_t>(got), channels[c] + at * bytesPerSample_);
    }
    return got;
}

int64_t WavInput::Read(int64_t count, std::span<uint8_t* const> channels) {
    const size_t channelCount = Channels();
    int64_t read = 0;
    while (read < count) {
        const int64_t chunk = std::min(kSamplesAtOnce, count - read);
        const int64_t got = isStored_ ? ReadStored(chunk, read, channels) : ReadConverted(chunk, read, channels);
        if (got < chunk && file_->handle.error() != SF_ERR_NO_ERROR) {
            Fail(ExitStatus::kInput, path_, std::string("cannot be read: ") + file_->handle.strError());
        }
        ++statistics.reads;
        statistics.bytesRead += static_cast<uint64_t>(got) * channelCount * bytesPerSample_;
        read += got;
        if (got < chunk) break;
    }
    if (read < std::min(count, Samples() - read_)) {
        FailShort();
    }
    read_ += read;
    return read;
}

WavOutput::WavOutput(int descriptor, const std::string& path, uint32_t samplingRate, uint32_t bytesPerSample,
                     uint64_t size)
    : path_(path) {
    constexpr uint64_t kMostInWav = 0xFFFFF000;  // 32 bits, with the header's bytes
    const int format = (size > kMostInWav ? SF_FORMAT_RF64 : SF_FORMAT_WAV) |
                       (bytesPerSample == 3 ? SF_FORMAT_PCM_24 : SF_FORMAT_PCM_16);
    // cppcheck-suppress useInitializationList ; the format comes first
    file_ = std::make_unique<File>(
        File{SndfileHandle(descriptor, false, SFM_WRITE, format, 1, static_cast<int>(samplingRate)), bytesPerSample});
    if (file_->handle.error() != SF_ERR_NO_ERROR) {
        Fail(ExitStatus::kOutput, path, std::string("cannot be written: ") + file_->handle.strError());
    }
}

WavOutput::~WavOutput() = default;

void WavOutput::Write(std::span<const uint8_t> samples) {
    if (file_->handle.writeRaw(samples.data(), static_cast<sf_count_t>(samples.size())) !=
        static_cast<sf_count_t>(samples.size())) {
        Fail(ExitStatus::kOutput, path_, std::string("cannot be written: ") + file_->handle.strError());
    }
    ++statistics.writes;
    statistics.bytesWritten += samples.size();
}

void WavOutput::Close() { file_->handle = SndfileHandle(); }

}  // namespace kmxf::program
