#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/reader/ReadMXFOp1b.h"
#include "kmxf/tools/SalvageMXFOp1b.h"
#include "kmxf/writer/CreateMXFOp1b.h"
#include "roundtrip/Recording.h"
#include "support/FaultyStream.h"
#include "support/Hex.h"
#include "support/LogRecorder.h"
#include "support/Packets.h"
#include "support/TemporaryFolder.h"
#include "support/TestData.h"
#include "tools/StreamFactory.h"

// OP-1b recordings that were cut off, and runs of CSalvageMXFOp1b over them.
namespace kmxf::test {

using Bytes = std::vector<uint8_t>;
using Note = std::pair<int32_t, int32_t>;

inline constexpr size_t kClipHeader = 131072;
inline constexpr std::string_view kPictureKey = "06 0E 2B 34 01 02 01 01 0D 01 03 01 15 01 05 01";
inline constexpr std::string_view kSoundKey = "06 0E 2B 34 01 02 01 01 0D 01 03 01 16 01 0C 01";
inline constexpr std::string_view kStartItem = "3F 0C 00 08";  // of an index segment, with its length
inline constexpr std::string_view kFooterKey = "06 0E 2B 34 02 05 01 01 0D 01 02 01 01 04 04 00";
inline const Note kCompleted{1, 0}, kCancelled{1, -1}, kFailed{1, -2};

inline std::ptrdiff_t At(size_t offset) { return static_cast<std::ptrdiff_t>(offset); }
inline Bytes First(const Bytes& bytes, size_t count) { return {bytes.begin(), bytes.begin() + At(count)}; }
inline void Put(Bytes& bytes, size_t at, const Bytes& what) { std::ranges::copy(what, bytes.begin() + At(at)); }
inline uint64_t NumberAt(const Bytes& bytes, size_t at, size_t width) {
    return BigEndian(std::span(bytes).subspan(at, width));
}
// Where these bytes are first found; the end if they are not.
inline size_t Find(const Bytes& bytes, const Bytes& what, size_t from = 0) {
    return static_cast<size_t>(std::search(bytes.begin() + At(from), bytes.end(), what.begin(), what.end()) -
                               bytes.begin());
}

// A recording to be made.
struct RecordedClip {
    uint32_t videoStd = VIDEO_STD_25P;  // groups of 50
    uint32_t compType = COMP_TYPE_LONGG25_1080;
    uint32_t channels = 2;
    uint8_t bytesPerSample = 2;
    uint32_t frames = 110;
    bool players = false;
    bool sideData = true;                                      // XML and thumbnail
    std::map<uint32_t, std::pair<int8_t, uint8_t>> entries{};  // temporal offset and flags of some frames
    Bytes firstPicture{};                                      // instead of noise

    Bytes XML() const { return sideData ? LoadTestData("essence/clip.xml") : Bytes{'D', 'u', 'm', 'm', 'y', 0}; }
    Bytes Thumbnail() const { return sideData ? LoadTestData("essence/thumbnail.bmp") : Bytes(10854); }
    uint32_t Group() const { return VideoStandardToPartitionFrame(videoStd); }
    Bytes Picture(uint32_t frame) const {
        if (frame == 0 && !firstPicture.empty()) return firstPicture;
        return Noise(30 + frame % 7, frame + 1);
    }
    Bytes Sound(uint32_t group, uint32_t channel) const {
        const uint32_t count = std::min(Group(), frames - group * Group());
        const auto samples = static_cast<size_t>(DurationToAudioSample(videoStd, count, 48000));
        return Noise(samples * bytesPerSample, 1000 + group * 16 + channel);
    }
};

inline MXFUMIDTag SomeUMID() {
    MXFUMIDTag umid;
    for (size_t i = 0; i < 32; ++i) umid.bytes[i] = static_cast<uint8_t>(0xA0 + i);
    return umid;
}

// The file that a recording leaves behind: whole, or as it is when the writer goes away.
inline Bytes Record(const RecordedClip& clip, bool close, const CDescriptiveMetadata& metadata = {}) {
    CMemoryFileIO stream;
    CCreateMXFOp1b writer;
    const Bytes product(16, 0x77);
    writer.SetVideoStandard(clip.videoStd);
    writer.SetCompType(clip.compType);
    writer.SetBytesPerSample(clip.bytesPerSample);
    writer.SetClipType(0x100 + clip.channels);
    writer.SetUMID(SomeUMID());
    writer.SetPackageName("A001C007");
    writer.SetStartTimecode(CTimecode(90000, true));
    writer.SetIdentification("Company", "Product", "9.87", product.data());
    writer.SetPlayerLayout(clip.players);
    writer.SetDescriptiveMetadata(metadata);
    EXPECT_EQ(writer.Open("clip.mxf", &stream), kStatusOk);
    if (clip.sideData) {
        const Bytes xml = clip.XML(), thumbnail = clip.Thumbnail();
        EXPECT_EQ(writer.SetXMLData(xml.data(), static_cast<uint16_t>(xml.size())), kStatusOk);
        EXPECT_EQ(writer.SetThumbnailData(thumbnail.data(), static_cast<uint16_t>(thumbnail.size()), 80, 45, 0),
                  kStatusOk);
        EXPECT_EQ(writer.SetThumbnailPosition(33), kStatusOk);
    }
    for (uint32_t frame = 0; frame < clip.frames; ++frame) {
        const Bytes picture = clip.Picture(frame);
        CMemoryPiece piece(picture.data(), static_cast<uint32_t>(picture.size()));
        const auto found = clip.entries.find(frame);
        const auto entry = found == clip.entries.end() ? std::pair<int8_t, uint8_t>{0, 0x80} : found->second;
        EXPECT_GT(writer.WriteVideo(&piece, entry.first, 0, entry.second), 0);
        const bool ends = (frame + 1) % clip.Group() == 0 || frame + 1 == clip.frames;
        for (uint32_t channel = 0; ends && channel < clip.channels; ++channel) {
            const Bytes sound = clip.Sound(frame / clip.Group(), channel);
            CMemoryPiece block(sound.data(), static_cast<uint32_t>(sound.size()));
            EXPECT_GT(writer.WriteAudio(&block, static_cast<uint8_t>(channel)), 0);
        }
    }
    if (close) {
        EXPECT_EQ(writer.Close(), kStatusOk);
    }
    return stream.GetContents();
}

// Where each group of a closed file begins, and at last the footer: by its random index.
inline std::vector<size_t> GroupStarts(const Bytes& closed, uint32_t channels) {
    const size_t overall = NumberAt(closed, closed.size() - 4, 4), entries = (overall - 24) / 12;
    std::vector<size_t> starts;
    for (size_t entry = 1; entry < entries; entry += 4 + 2 * channels) {
        starts.push_back(NumberAt(closed, closed.size() - overall + 20 + 12 * entry + 4, 8));
    }
    return starts;
}

// The UUIDs of FixedEnvironment, numbered anew in the order in which they are met.
inline Bytes Renumbered(Bytes bytes) {
    const Bytes prefix = Hex("00 00 00 00 00 00 40 00 80 00 00 00");
    std::map<uint64_t, uint32_t> numbers;
    for (size_t at = 0; (at = Find(bytes, prefix, at)) < bytes.size(); at += 16) {
        const uint32_t number =
            numbers.try_emplace(NumberAt(bytes, at + 12, 4), static_cast<uint32_t>(numbers.size())).first->second;
        for (size_t i = 0; i < 4; ++i) bytes[at + 15 - i] = static_cast<uint8_t>(number >> (8 * i));
    }
    return bytes;
}

// Keeps what it is told, and calls `on` each time.
class Notes final : public ISalvageMXFNotify {
public:
    explicit Notes(std::function<void(Note)> on = {}) : on_(std::move(on)) {}
    void Notify(int32_t kind, int32_t value) override {
        if (on_) on_({kind, value});
        const std::lock_guard lock(mutex_);
        notes_.emplace_back(kind, value);
        changed_.notify_all();
    }
    std::vector<Note> UntilTheEnd() {
        std::unique_lock lock(mutex_);
        const bool ended = changed_.wait_for(lock, std::chrono::seconds(60),
                                             [this] { return !notes_.empty() && notes_.back().first == 1; });
        EXPECT_TRUE(ended);
        return notes_;
    }

private:
    std::function<void(Note)> on_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Note> notes_;
};

class SalvageMXFOp1b : public testing::Test {
protected:
    SalvageMXFOp1b() : name(folder.File("clip.mxf")) {}

    // A run over these bytes in memory. Cutting needs a file on the medium: an empty one of the same name stands in
    // for it, and its size says where the cut was.
    Note Run(Bytes file) { return RunOn(std::make_unique<FaultyStream>(std::move(file))); }
    Note RunOn(std::unique_ptr<FaultyStream> on) {
        stream = std::move(on);
        log.Clear();
        std::ofstream(name, std::ios::trunc);
        salvager = std::make_unique<CSalvageMXFOp1b>();
        EXPECT_TRUE(salvager->SetFilename(name.c_str()));
        const StreamFactory factory(stream.get());
        Notes told;
        EXPECT_EQ(salvager->Salvage(&told), kStatusOk);
        notes = told.UntilTheEnd();
        EXPECT_TRUE(stream->Released());
        EXPECT_FALSE(stream->IsOpened());
        EXPECT_EQ(stream->LivePieces() + stream->LiveAllocators() + factory.Live(), 0);
        if (const size_t cut = std::filesystem::file_size(name); cut > 0) {
            EXPECT_LT(cut, stream->Bytes().size());
            stream->Bytes().resize(cut);
        }
        return notes.back();
    }
    const Bytes& After() const { return stream->Bytes(); }

    // A run that fails with these lines and leaves the file alone.
    void ExpectRefused(const Bytes& file, const std::vector<std::string>& lines) {
        EXPECT_EQ(Run(file), kFailed);
        EXPECT_EQ(log.Lines(), lines);
        EXPECT_TRUE(SameBytes(file, After()));
        EXPECT_EQ(salvager->GetDuration(), 0);
        EXPECT_EQ(salvager->GetVideoStandard(), 0u);
    }

    // The file is whole and holds the first frames of the clip, in order, with their sound.
    void ExpectFrames(const RecordedClip& clip, uint32_t frames) {
        CMemoryFileIO reading(After());
        CReadMXFOp1b reader;
        ASSERT_EQ(reader.Open("clip.mxf", &reading), kStatusOk);
        ASSERT_EQ(reader.GetDuration() + reader.GetOrigin(), salvager->GetDuration());
        EXPECT_EQ(reader.GetOrigin(), salvager->GetOrigin());
        for (uint32_t frame = 0; frame < frames; ++frame) {
            VIDEOFRAMEINFOTag info;
            ASSERT_EQ(reader.GetVideoInfo(frame, info), kStatusOk) << frame;
            const Bytes picture = clip.Picture(frame);
            ASSERT_EQ(info.size, (picture.size() + 3) / 4 * 4);
            EXPECT_TRUE(SameBytes(picture, std::span(After()).subspan(info.offset, picture.size()))) << frame;
        }
        VIDEOFRAMEINFOTag none;
        EXPECT_EQ(reader.GetVideoInfo(frames, none), kStatusNotFound);
        for (uint32_t group = 0; group * clip.Group() < frames; ++group) {
            for (uint32_t channel = 0; channel < clip.channels; ++channel) {
                AUDIODATAINFOTag info;
                ASSERT_EQ(reader.GetAudioInfo(group * clip.Group(), channel, info), kStatusOk);
                EXPECT_TRUE(SameBytes(clip.Sound(group, channel), std::span(After()).subspan(info.offset, info.size)));
            }
        }
        Bytes xml(reader.GetXMLDataSize()), thumbnail(reader.GetThumbnailDataSize());
        EXPECT_EQ(reader.GetXMLData(xml.data()), kStatusOk);
        EXPECT_EQ(reader.GetThumbnailData(thumbnail.data()), kStatusOk);
        EXPECT_EQ(xml, clip.XML());
        EXPECT_EQ(thumbnail, clip.Thumbnail());
    }

    LogRecorder log;
    const TemporaryFolder folder;
    const std::string name;
    std::unique_ptr<FaultyStream> stream;
    std::unique_ptr<CSalvageMXFOp1b> salvager;
    std::vector<Note> notes;
};

}  // namespace kmxf::test
