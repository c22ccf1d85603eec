// A camera that can be killed: it records a clip through the library as a client would, and keeps account, in memory
// that outlives it, of the frames that it has handed over and of those whose writes are complete.
//
//   recorder LAYOUT STREAM CHANNELS RATE FRAMES FEED FOLDER TALLY
//
// LAYOUT is op-atom or op-1b, STREAM async (the library's own) or sync; RATE is in frames a second, 0 for as fast as it
// goes. FEED.txt holds video standard and compression type, then a line for each frame: offset and size in FEED.bin,
// the place of its stamp, temporal offset, key-frame offset and flags of its index entry. The frames are recorded again
// and again, each with its number stamped in. FEED.pcm is the sound, which also repeats.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "kmxf/kmxf.h"
#include "support/SynchronousStream.h"

namespace kmxf::test {
namespace {

constexpr uint32_t kSamplesPerSec = 48000;
constexpr size_t kBytesPerSample = 2;
constexpr size_t kMostTracks = 17;

// The account. It lies in a file that is mapped: what was stored stays when the process is killed.
struct Tally {
    struct Track {
        std::atomic<uint64_t> given;      // frames or blocks of sound for which Write was called
        std::atomic<uint64_t> completed;  // whose completion has come
    };
    enum : uint64_t { kRecording, kClosing, kClosed };
    std::atomic<uint64_t> state;
    std::array<Track, kMostTracks> tracks;  // the picture, then the sound

    static Tally& At(const char* path) {
        const int descriptor = ::open(path, O_RDWR | O_CLOEXEC);
        void* const mapping = ::mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
        if (descriptor < 0 || mapping == MAP_FAILED) throw std::runtime_error("cannot map the tally");
        ::close(descriptor);
        return *static_cast<Tally*>(mapping);  // a file of zeros is a tally of zeros
    }
};
static_assert(std::atomic<uint64_t>::is_always_lock_free && sizeof(Tally::Track) == 16);

std::vector<uint8_t> Load(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// What the camera sees and hears.
class Feed {
public:
    struct Frame {
        size_t offset = 0;
        uint32_t size = 0, stamp = 0;
        int temporalOffset = 0, keyFrameOffset = 0, flags = 0;
    };

    explicit Feed(const std::string& path) : pictures_(Load(path + ".bin")), sound_(Load(path + ".pcm")) {
        std::ifstream list(path + ".txt");
        list >> videoStd >> compType;
        for (Frame frame; list >> frame.offset >> frame.size >> frame.stamp >> frame.temporalOffset >>
                          frame.keyFrameOffset >> frame.flags;) {
            frames_.push_back(frame);
        }
        if (frames_.empty()) throw std::runtime_error("no frames in " + path);
    }

    const Frame& At(uint64_t number) const { return frames_[number % frames_.size()]; }
    std::unique_ptr<CMemoryPiece> Picture(uint64_t number) const {
        const Frame& frame = At(number);
        auto piece = std::make_unique<CMemoryPiece>(pictures_.data() + frame.offset, frame.size);
        char stamp[9];
        std::snprintf(stamp, sizeof stamp, "%08u", static_cast<unsigned>(number));
        piece->CopyIn(frame.stamp, stamp, 8);
        return piece;
    }
    // The samples of a channel from one frame up to another.
    std::unique_ptr<CMemoryPiece> Sound(uint32_t channel, uint64_t first, uint64_t end) const {
        const size_t from = SamplesBefore(first) * kBytesPerSample, to = SamplesBefore(end) * kBytesPerSample;
        auto piece = std::make_unique<CMemoryPiece>(static_cast<uint32_t>(to - from));
        for (size_t i = from; i < to; ++i) {
            piece->GetBuffer()[i - from] = sound_[(i + 1001 * (channel + size_t{1})) % sound_.size()];
        }
        return piece;
    }

    uint32_t videoStd = 0, compType = 0;

private:
    size_t SamplesBefore(uint64_t frame) const {
        return static_cast<size_t>(DurationToAudioSample(videoStd, static_cast<int64_t>(frame), kSamplesPerSec));
    }

    std::vector<uint8_t> pictures_, sound_;
    std::vector<Frame> frames_;
};

// Keeps pieces until their completions, which come in the order of the writes, and counts both.
class Sender final : public IFileIOCallback {
public:
    explicit Sender(Tally& tally) : tally_(tally) {}

    template <class Write>
    void Send(size_t track, std::unique_ptr<CMemoryPiece> piece, Write write) {
        StreamPiece* const sent = piece.get();
        {
            const std::lock_guard lock(mutex_);
            underWay_.push_back({track, std::move(piece)});
        }
        ++tally_.tracks[track].given;
        if (write(sent) < 0) throw std::runtime_error("a write failed");
    }
    void CallbackForWriteComplete(uint64_t, int32_t status, int32_t) override {
        const std::lock_guard lock(mutex_);
        if (status == 0) ++tally_.tracks[underWay_.front().track].completed;
        underWay_.pop_front();
    }

private:
    struct Piece {
        size_t track;
        std::unique_ptr<CMemoryPiece> piece;
    };

    Tally& tally_;
    std::mutex mutex_;
    std::deque<Piece> underWay_;
};

class Stream {
public:
    explicit Stream(const std::string& kind) {
        if (kind == "sync") {
            synchronous_ = std::make_unique<SynchronousStream>();
        } else {
            factory_.reset(CFileIOMain::GetFactory(0, nullptr, 32768));
            asynchronous_.reset(factory_->CreateStreamFileIO(0));
        }
    }
    IStreamFileIO* Get() const { return synchronous_ ? synchronous_.get() : asynchronous_.get(); }

private:
    struct Releaser {
        void operator()(auto* object) const { object->Release(); }
    };
    std::unique_ptr<IFileIOFactory, Releaser> factory_;
    std::unique_ptr<IStreamFileIO, Releaser> asynchronous_;
    std::unique_ptr<SynchronousStream> synchronous_;
};

struct Clip {
    std::string stream, folder;
    uint32_t channels;
    const Feed& feed;
    Tally& tally;

    std::string File(const std::string& suffix = "") const { return folder + "/CLIP" + suffix + ".mxf"; }
    uint32_t Type() const { return 0x100 | channels; }
};

MXFUMIDTag Numbered(uint8_t number) {
    MXFUMIDTag umid;
    std::memset(umid.bytes, 0x5A, sizeof umid.bytes);
    umid.bytes[15] = number;
    return umid;
}

// A file for the picture and one for each channel.
class OpAtomClip {
public:
    explicit OpAtomClip(const Clip& clip) : clip_(clip) {
        auto picture = std::make_unique<CCreateMXFVideo>();
        picture->SetDVType(clip.feed.compType);
        Add(std::move(picture), clip.File());
        for (uint32_t channel = 0; channel < clip.channels; ++channel) {
            auto sound = std::make_unique<CCreateMXFAudio>();
            sound->SetBytesPerSample(kBytesPerSample);
            sound->SetChannel(channel);
            const std::string number = std::to_string(channel);
            Add(std::move(sound), clip.File(std::string(2 - number.size(), '0') + number));
        }
    }
    void Record(uint64_t frame) {
        Write(0, clip_.feed.Picture(frame));
        for (uint32_t channel = 0; channel < clip_.channels; ++channel) {
            Write(channel + 1, clip_.feed.Sound(channel, frame, frame + 1));
        }
    }
    void Close() {
        for (const auto& file : files_) {
            if (file->writer->Close() != kStatusOk) throw std::runtime_error("a file does not close");
        }
    }

private:
    struct File {
        Stream stream;
        Sender sender;
        std::unique_ptr<CCreateMXFBase> writer;  // goes first: its destructor closes
    };

    void Add(std::unique_ptr<CCreateMXFBase> writer, const std::string& path) {
        writer->SetFilename(path.c_str());
        writer->SetVideoStandard(clip_.feed.videoStd);
        writer->SetClipType(clip_.Type());
        writer->SetUMID(Numbered(static_cast<uint8_t>(files_.size() + 1)));
        writer->SetShotUMID(Numbered(0));
        files_.emplace_back(new File{Stream(clip_.stream), Sender(clip_.tally), std::move(writer)});
        File& file = *files_.back();
        file.writer->Open(file.stream.Get(), true);
        if (!file.writer->IsOpened()) throw std::runtime_error("cannot open " + path);
        file.writer->RegisterCallback(&file.sender);
    }
    void Write(size_t track, std::unique_ptr<CMemoryPiece> piece) {
        File& file = *files_[track];
        file.sender.Send(track, std::move(piece), [&](StreamPiece* sent) { return file.writer->Write(sent, 0); });
    }

    const Clip& clip_;
    std::vector<std::unique_ptr<File>> files_;
};

// One file; the sound of a group of frames follows the group.
class Op1bFile {
public:
    explicit Op1bFile(const Clip& clip) : clip_(clip), stream_(clip.stream), sender_(clip.tally) {
        writer_.SetVideoStandard(clip.feed.videoStd);
        writer_.SetCompType(clip.feed.compType);
        writer_.SetClipType(clip.Type());
        writer_.SetBytesPerSample(kBytesPerSample);
        writer_.SetUMID(Numbered(0));
        writer_.SetPlayerLayout(true);
        if (writer_.Open(clip.File().c_str(), stream_.Get()) != kStatusOk) throw std::runtime_error("cannot open");
        writer_.RegisterCallback(&sender_);
    }
    void Record(uint64_t number) {
        const Feed::Frame& frame = clip_.feed.At(number);
        sender_.Send(0, clip_.feed.Picture(number), [&](StreamPiece* piece) {
            return writer_.WriteVideo(piece, static_cast<int8_t>(frame.temporalOffset),
                                      static_cast<int8_t>(frame.keyFrameOffset), static_cast<uint8_t>(frame.flags));
        });
        if ((number + 1) % writer_.GetPartitionFrame() == 0) WriteSound(number + 1);
    }
    void Close() {
        if (soundUpTo_ < writer_.GetDuration()) WriteSound(writer_.GetDuration());
        if (writer_.Close() != kStatusOk) throw std::runtime_error("the file does not close");
    }

private:
    void WriteSound(uint64_t end) {
        for (uint8_t channel = 0; channel < clip_.channels; ++channel) {
            sender_.Send(channel + size_t{1}, clip_.feed.Sound(channel, soundUpTo_, end),
                         [&](StreamPiece* block) { return writer_.WriteAudio(block, channel); });
        }
        soundUpTo_ = end;
    }

    const Clip& clip_;
    Stream stream_;
    Sender sender_;
    CCreateMXFOp1b writer_;
    uint64_t soundUpTo_ = 0;
};

template <class Recording>
void Record(const Clip& clip, double rate, uint64_t frames) {
    Recording recording(clip);
    const auto start = std::chrono::steady_clock::now();
    for (uint64_t frame = 0; frame < frames; ++frame) {
        if (rate > 0) {
            std::this_thread::sleep_until(start + std::chrono::duration<double>(static_cast<double>(frame) / rate));
        }
        recording.Record(frame);
    }
    clip.tally.state = Tally::kClosing;
    recording.Close();
    clip.tally.state = Tally::kClosed;
}

int Main(const std::vector<std::string>& arguments) try {
    if (arguments.size() != 8) throw std::runtime_error("LAYOUT STREAM CHANNELS RATE FRAMES FEED FOLDER TALLY");
    const Feed feed(arguments[5]);
    const Clip clip{arguments[1], arguments[6], static_cast<uint32_t>(std::stoul(arguments[2])), feed,
                    Tally::At(arguments[7].c_str())};
    if (clip.channels >= kMostTracks) throw std::runtime_error("too many channels");
    const auto record = arguments[0] == "op-1b" ? Record<Op1bFile> : Record<OpAtomClip>;
    record(clip, std::stod(arguments[3]), std::stoull(arguments[4]));
    return EXIT_SUCCESS;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "recorder: %s\n", failure.what());
    return EXIT_FAILURE;
}

}  // namespace
}  // namespace kmxf::test

int main(int count, char** texts) { return kmxf::test::Main({texts + 1, texts + count}); }
