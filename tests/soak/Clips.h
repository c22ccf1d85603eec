#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "kmxf/core/Status.h"
#include "kmxf/reader/ReadMXFAudio.h"
#include "kmxf/reader/ReadMXFOp1b.h"
#include "kmxf/reader/ReadMXFVideo.h"
#include "kmxf/tools/SalvageMXFOp1b.h"
#include "roundtrip/Op1bRecording.h"
#include "support/FaultyStream.h"
#include "support/Hex.h"
#include "support/SynchronousStream.h"

// Clips that are recorded and looked at by one thread of many.
namespace kmxf::test {

constexpr uint32_t kDV25FrameSize = 120000;

// What a thread leaves to chance, the same in every run.
class Chance {
public:
    explicit Chance(uint32_t seed) : engine_(seed) {}
    uint32_t operator()(uint32_t least, uint32_t most) {
        return std::uniform_int_distribution<uint32_t>(least, most)(engine_);
    }

private:
    std::mt19937 engine_;
};

// Essence for one clip; `seed` tells it from others.
inline std::span<const uint8_t> Essence(size_t size, uint32_t seed) {
    static const auto kNoise = Noise(size_t{4} << 20, 7);
    return std::span(kNoise).subspan(seed * size_t{7919} % (kNoise.size() - size), size);
}

// The library's stream over a local file.
class LocalStream {
public:
    LocalStream() : factory_(CFileIOMain::GetFactory(0, nullptr, 32768)), stream_(factory_->CreateStreamFileIO(0)) {}
    IStreamFileIO& operator*() const { return *stream_; }

private:
    struct Releaser {
        void operator()(auto* object) const { object->Release(); }
    };
    std::unique_ptr<IFileIOFactory, Releaser> factory_;
    std::unique_ptr<IStreamFileIO, Releaser> stream_;
};

// Where a clip is written and read again: on one of four kinds of stream.
class Place {
public:
    static constexpr uint32_t kKinds = 4;

    Place(uint32_t kind, std::string file) : kind_(kind), file_(std::move(file)) {
        if (kind == 1) {
            queued_.CompleteAsynchronously();
            reread_.emplace(queued_.Shared());
        }
    }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;
    ~Place() {
        EXPECT_EQ(queued_.LivePieces(), 0);
        std::error_code ignored;
        std::filesystem::remove(file_, ignored);
    }

    const std::string& File() const { return file_; }
    IStreamFileIO& Writing() {
        if (kind_ == 0) return memory_;
        if (kind_ == 1) return queued_;
        return kind_ == 2 ? *local_ : synchronous_;
    }
    IStreamFileIO& Reading() {
        if (kind_ == 0) return memory_;
        if (kind_ == 1) return *reread_;
        return *local_;
    }

private:
    uint32_t kind_;
    std::string file_;
    CMemoryFileIO memory_;
    FaultyStream queued_;
    std::optional<FaultyStream> reread_;
    LocalStream local_;
    SynchronousStream synchronous_;
};

inline void RecordPicture(Place& place, uint32_t frames, uint32_t seed) {
    Feeder feeder;
    CCreateMXFVideo writer;
    writer.SetFilename(place.File().c_str());
    writer.SetVideoStandard(VIDEO_STD_59_94I);
    writer.SetDVType(COMP_TYPE_DV25);
    writer.SetClipType(0x102);
    ASSERT_EQ(writer.Open(&place.Writing(), true), kStatusOk);
    ASSERT_TRUE(writer.IsOpened());
    feeder.Write(writer, Essence(size_t{frames} * kDV25FrameSize, seed), {kDV25FrameSize, 70001, 9});
    ASSERT_EQ(writer.Close(), kStatusOk);
    ASSERT_EQ(feeder.UnderWay(), 0u);
}

// Each of the frames, in an order of its own.
inline void ExpectPicture(IStreamFileIO& stream, const std::string& file, uint32_t frames, uint32_t seed) {
    CReadMXFVideo reader;
    reader.SetFilename(file.c_str());
    ASSERT_EQ(reader.Open(&stream, true), kStatusOk);
    ASSERT_EQ(reader.GetDuration(), frames);
    const auto essence = Essence(size_t{frames} * kDV25FrameSize, seed);
    for (uint32_t i = 0; i < frames; ++i) {
        const uint32_t frame = (seed + i) % frames;
        uint8_t* data = nullptr;
        ASSERT_EQ(reader.GetFrameData(frame, &data), kStatusOk);
        EXPECT_TRUE(SameBytes(essence.subspan(size_t{frame} * kDV25FrameSize, kDV25FrameSize), {data, kDV25FrameSize}));
        reader.ReleaseFrameData(data);
    }
}

inline void RecordSound(Place& place, uint32_t samples, uint32_t seed) {
    Feeder feeder;
    CCreateMXFAudio writer;
    writer.SetFilename(place.File().c_str());
    writer.SetVideoStandard(VIDEO_STD_59_94I);
    writer.SetClipType(0x102);
    writer.SetBytesPerSample(3);
    ASSERT_EQ(writer.Open(&place.Writing(), true), kStatusOk);
    feeder.Write(writer, Essence(size_t{samples} * 3, seed), {4800, 20001});
    ASSERT_EQ(writer.Close(), kStatusOk);
    ASSERT_EQ(feeder.UnderWay(), 0u);
}

inline void ExpectSound(IStreamFileIO& stream, const std::string& file, uint32_t samples, uint32_t seed) {
    CReadMXFAudio reader;
    reader.SetFilename(file.c_str());
    ASSERT_EQ(reader.Open(&stream, true), kStatusOk);
    int64_t size = 0;
    ASSERT_EQ(reader.GetDataSize(&size), kStatusOk);
    ASSERT_EQ(size, int64_t{samples} * 3);
    EXPECT_EQ(reader.GetBitsPerSample(), 24u);
    CMemoryPiece piece(samples * 3);
    ASSERT_EQ(reader.Read(&piece), static_cast<int32_t>(piece.GetSize()));
    EXPECT_TRUE(SameBytes(Essence(piece.GetSize(), seed), {piece.GetBuffer(), piece.GetSize()}));
}

// Groups of 50 frames, with two channels.
inline Op1bClip SomeClip(uint32_t frames) {
    return {.videoStd = VIDEO_STD_25P, .compType = COMP_TYPE_LONGG25_1080, .channels = 2, .frames = frames};
}

inline void RecordClip(IStreamFileIO& stream, const std::string& file, const Op1bClip& clip, bool close = true) {
    Op1bClient client(clip);
    CCreateMXFOp1b writer;
    SetFormat(writer, clip);
    ASSERT_EQ(writer.Open(file.c_str(), &stream), kStatusOk);
    ASSERT_TRUE(client.Feed(writer));
    if (close) {
        ASSERT_EQ(writer.Close(), kStatusOk);
    }
}

// The pictures and the first channel of its frames; gives their number.
inline void ExpectClip(IStreamFileIO& stream, const std::string& file, const Op1bClip& clip, int64_t frames) {
    const auto expectBytes = [&stream](std::span<const uint8_t> expected, uint64_t offset) {
        CMemoryPiece piece(static_cast<uint32_t>(expected.size()));
        ASSERT_EQ(stream.Seek(static_cast<int64_t>(offset), kSeekBegin), static_cast<int64_t>(offset));
        ASSERT_EQ(stream.Read(&piece, 0), static_cast<int32_t>(piece.GetSize()));
        EXPECT_TRUE(SameBytes(expected, {piece.GetBuffer(), piece.GetSize()}));
    };
    CReadMXFOp1b reader;
    ASSERT_EQ(reader.Open(file.c_str(), &stream), kStatusOk);
    ASSERT_EQ(reader.GetDuration(), frames);
    for (uint32_t frame = 0; frame < frames; ++frame) {
        VIDEOFRAMEINFOTag picture;
        AUDIODATAINFOTag sound;
        ASSERT_EQ(reader.GetVideoInfo(frame, picture), kStatusOk);
        expectBytes(clip.Frame(frame), picture.offset);
        ASSERT_EQ(reader.GetAudioInfo(frame, 0, sound), kStatusOk);
        if (frame % 16 == 0) expectBytes(SoundOf(clip, 0, frame, 1), sound.offset + sound.position);
    }
}

// Waits for the end of a run.
class Outcome final : public ISalvageMXFNotify {
public:
    void Notify(int32_t kind, int32_t value) override {
        const std::lock_guard lock(mutex_);
        if (kind != kSalvageFinished) return;
        value_ = value;
        changed_.notify_all();
    }
    int32_t Wait() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return value_.has_value(); });
        return *value_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::optional<int32_t> value_;
};

}  // namespace kmxf::test
