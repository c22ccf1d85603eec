#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "InputFile.h"
#include "OutputFile.h"
#include "Sound.h"
#include "kmxf/tools/Clip.h"

namespace kmxf::program {

// Sound that is to become a WAV file.
struct WavForm {
    uint32_t samplingRate = 0, bytesPerSample = 0;
    uint64_t mostBytes = 0;  // of samples, or a little more
};

// Where one stream of essence goes: a file, or standard output.
class StreamOutput {
public:
    // `path` is the file's final one, empty for standard output. Without `wav` the bytes are written as they come.
    // All functions throw Failure.
    StreamOutput(const std::string& path, bool force, const std::optional<WavForm>& wav);
    StreamOutput(const StreamOutput&) = delete;
    StreamOutput& operator=(const StreamOutput&) = delete;
    ~StreamOutput();

    const std::string& Name() const { return name_; }
    void Write(std::span<const uint8_t> bytes);
    // Writes what lies in a file, without a look at it where the system can copy by itself; `copied` is told of each
    // part.
    void Copy(const InputFile& from, ByteRange range, const std::function<void(uint64_t)>& copied);

    // All is written: looks at it again before it gets its name.
    void Finish();
    // The file, to be published; null for standard output.
    std::unique_ptr<OutputFile> TakeFile() { return std::move(file_); }

private:
    bool CopyInKernel(const InputFile& from, const ByteRange& range, size_t& count);
    void CountWritten(size_t count);
    void CopyToStandardOutput();

    struct FileCloser {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    std::string name_;
    std::unique_ptr<OutputFile> file_;
    std::unique_ptr<std::FILE, FileCloser> rehearsal_;  // a WAV header is finished at the end: made in a file first
    int descriptor_;
    std::unique_ptr<WavOutput> wav_;
    bool isWav_;
    bool inKernel_;                // until the system shows that it cannot: a pipe, another file system
    std::vector<uint8_t> buffer_;  // for what it cannot
    uint64_t written_ = 0;         // bytes of essence
    uint64_t begun_ = 0;           // of them on their way to the medium
};

}  // namespace kmxf::program
