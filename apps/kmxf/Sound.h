#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

// Sound as WAV files, sample by sample; the samples in MXF are little-endian PCM of 16 or 24 bits.
namespace kmxf::program {

class WavInput {
public:
    // bits 0: as the file has them. Throws Failure when it is no sound file, or one whose rate or samples do not fit.
    WavInput(const std::string& path, uint32_t bits);
    ~WavInput();
    WavInput(const WavInput&) = delete;
    WavInput& operator=(const WavInput&) = delete;

    const std::string& Path() const { return path_; }
    uint32_t Channels() const;
    uint32_t SamplingRate() const;
    uint32_t BytesPerSample() const { return bytesPerSample_; }
    int64_t Samples() const;  // of each channel

    // The next samples: channel c gets up to `count` of them, of BytesPerSample() bytes each, at channels[c]. Returns
    // how many. Throws Failure when there are fewer than `count` and than Samples() says.
    int64_t Read(int64_t count, std::span<uint8_t* const> channels);

private:
    void RequireLastSample();
    [[noreturn]] void FailShort() const;
    // Both put `count` samples behind the `at` that each channel has.
    int64_t ReadConverted(int64_t count, int64_t at, std::span<uint8_t* const> channels);
    int64_t ReadStored(int64_t count, int64_t at, std::span<uint8_t* const> channels);

    struct File;
    std::string path_;
    std::unique_ptr<File> file_;
    uint32_t bytesPerSample_ = 0;
    bool isStored_ = false;  // the samples in the file are as they are wanted
    int64_t read_ = 0;
    std::vector<int32_t> converted_;  // interleaved, as are
    std::vector<uint8_t> stored_;
};

class WavOutput {
public:
    // Writes `size` bytes of samples to an open descriptor, which stays the caller's. 64-bit sizes (RF64) are used only
    // where they are needed.
    WavOutput(int descriptor, const std::string& path, uint32_t samplingRate, uint32_t bytesPerSample, uint64_t size);
    ~WavOutput();
    WavOutput(const WavOutput&) = delete;
    WavOutput& operator=(const WavOutput&) = delete;

    void Write(std::span<const uint8_t> samples);
    void Close();

private:
    struct File;
    std::string path_;
    std::unique_ptr<File> file_;
};

}  // namespace kmxf::program
