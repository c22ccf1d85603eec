#include "Sound.h"

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
    bytesPerSample_ = (bits != 0 ? bits : own) / 8;
}

WavInput::~WavInput() = default;

uint32_t WavInput::Channels() const { return static_cast<uint32_t>(file_->handle.channels()); }
uint32_t WavInput::SamplingRate() const { return static_cast<uint32_t>(file_->handle.samplerate()); }
int64_t WavInput::Samples() const { return file_->handle.frames(); }

int64_t WavInput::Read(int64_t count, std::vector<std::vector<uint8_t>>& channels) {
    const size_t channelCount = Channels();
    interleaved_.resize(static_cast<size_t>(count) * channelCount);
    const int64_t got = file_->handle.readf(interleaved_.data(), count);
    if (got < count && file_->handle.error() != SF_ERR_NO_ERROR) {
        Fail(ExitStatus::kInput, path_, std::string("cannot be read: ") + file_->handle.strError());
    }
    ++statistics.reads;
    channels.resize(channelCount);
    for (size_t c = 0; c < channelCount; ++c) {
        channels[c].resize(static_cast<size_t>(got) * bytesPerSample_);
        uint8_t* out = channels[c].data();
        for (size_t i = c; i < static_cast<size_t>(got) * channelCount; i += channelCount) {
            // Samples come left-justified in 32 bits.
            const uint32_t sample = static_cast<uint32_t>(interleaved_[i]) >> (32 - 8 * bytesPerSample_);
            for (uint32_t b = 0; b < bytesPerSample_; ++b) *out++ = static_cast<uint8_t>(sample >> (8 * b));
        }
        statistics.bytesRead += channels[c].size();
    }
    return got;
}

WavOutput::WavOutput(int descriptor, const std::string& path, uint32_t samplingRate, uint32_t bytesPerSample,
                     uint64_t size)
    : path_(path) {
    constexpr uint64_t kMostInWav = 0xFFFFF000;  // 32 bits, with the header's bytes
    const int format = (size > kMostInWav ? SF_FORMAT_RF64 : SF_FORMAT_WAV) |
                       (bytesPerSample == 3 ? SF_FORMAT_PCM_24 : SF_FORMAT_PCM_16);
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
