#include "StreamOutput.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "Program.h"
#include "Text.h"

namespace kmxf::program {

namespace {

// In whole samples of 2 and 3 bytes; what goes through memory stays in the processor's cache.
constexpr size_t kCopySize = 6 * (size_t{32} << 10);
constexpr uint64_t kSyncStep = 8 << 20;
constexpr size_t kCopyInKernelSize = size_t{16} << 20;  // Ctrl-C is looked at in between

void WriteAll(int descriptor, std::span<const uint8_t> bytes, const std::string& name) {
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t count = ::write(descriptor, bytes.data() + done, bytes.size() - done);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) Fail(ExitStatus::kOutput, name, "cannot be written: " + ErrorText(errno));
        done += static_cast<size_t>(count);
    }
    ++statistics.writes;
    statistics.bytesWritten += bytes.size();
}

}  // namespace

StreamOutput::StreamOutput(const std::string& path, bool force, const std::optional<WavForm>& wav)
    : name_(path.empty() ? "standard output" : path),
      descriptor_(STDOUT_FILENO),
      isWav_(wav.has_value()),
      inKernel_(!isWav_) {
    if (!path.empty()) {
        file_ = std::make_unique<OutputFile>(path, force);
        descriptor_ = file_->Descriptor();
    } else if (isWav_) {
        rehearsal_.reset(std::tmpfile());
        if (!rehearsal_) Fail(ExitStatus::kOutput, name_, "cannot be prepared: " + ErrorText(errno));
        descriptor_ = ::fileno(rehearsal_.get());
    }
    if (isWav_) {
        wav_ = std::make_unique<WavOutput>(descriptor_, name_, wav->samplingRate, wav->bytesPerSample, wav->mostBytes);
    }
}

StreamOutput::~StreamOutput() = default;

void StreamOutput::Write(std::span<const uint8_t> bytes) {
    if (isWav_) {
        wav_->Write(bytes);
    } else {
        WriteAll(descriptor_, bytes, name_);
    }
    CountWritten(bytes.size());
}

// What was written goes on to the medium while the rest is still to come. That is a hint: what fails fails again when
// the file is published.
void StreamOutput::CountWritten(size_t count) {
    written_ += count;
    if (!file_ || written_ - begun_ < kSyncStep) return;
    ::sync_file_range(descriptor_, static_cast<off_t>(begun_), static_cast<off_t>(written_ - begun_),
                      SYNC_FILE_RANGE_WRITE);
    begun_ = written_;
}

void StreamOutput::Copy(const InputFile& from, ByteRange range, const std::function<void(uint64_t)>& copied) {
    while (range.Size() > 0 && !interrupted) {
        size_t count = 0;
        if (!inKernel_ || !CopyInKernel(from, range, count)) {
            buffer_.resize(std::max<size_t>(buffer_.size(), std::min<uint64_t>(range.Size(), kCopySize)));
            const auto bytes = std::span(buffer_).first(std::min<uint64_t>(range.Size(), buffer_.size()));
            from.Read(range.begin, bytes);
            Write(bytes);
            count = bytes.size();
        }
        range.begin += count;
        copied(count);
    }
}

bool StreamOutput::CopyInKernel(const InputFile& from, const ByteRange& range, size_t& count) {
    auto offset = static_cast<off_t>(range.begin);
    const ssize_t copied = ::copy_file_range(from.Descriptor(), &offset, descriptor_, nullptr,
                                             std::min<uint64_t>(range.Size(), kCopyInKernelSize), 0);
    inKernel_ = copied > 0 || (copied < 0 && errno == EINTR);
    if (copied <= 0) return false;
    ++statistics.reads;
    ++statistics.writes;
    count = static_cast<size_t>(copied);
    statistics.bytesRead += count;
    statistics.bytesWritten += count;
    CountWritten(count);
    return true;
}

void StreamOutput::CopyToStandardOutput() {
    std::vector<uint8_t> buffer(1 << 20);
    for (off_t offset = 0; !interrupted;) {
        const ssize_t count = ::pread(descriptor_, buffer.data(), buffer.size(), offset);
        if (count < 0) Fail(ExitStatus::kOutput, name_, "cannot be prepared: " + ErrorText(errno));
        if (count == 0) return;
        WriteAll(STDOUT_FILENO, std::span<const uint8_t>(buffer).first(static_cast<size_t>(count)), name_);
        offset += count;
    }
    throw Failure(ExitStatus::kInterrupted, "interrupted");
}

void StreamOutput::Finish() {
    if (wav_) wav_->Close();
    wav_.reset();
    if (rehearsal_) CopyToStandardOutput();
    if (!file_) return;
    uint64_t size = 0;
    if (isWav_) {
        const WavInput wav(file_->WorkPath(), 0);
        size = static_cast<uint64_t>(wav.Samples()) * wav.BytesPerSample();
    } else {
        size = std::filesystem::file_size(file_->WorkPath());
    }
    if (size != written_) {
        Fail(ExitStatus::kFindings, file_->FinalPath(),
             "reads back with " + std::to_string(size) + " bytes of essence instead of " + std::to_string(written_));
    }
}

}  // namespace kmxf::program
