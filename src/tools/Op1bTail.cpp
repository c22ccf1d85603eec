#include "tools/Op1bTail.h"

#include <algorithm>
#include <optional>

#include "core/Layout.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/writer/Op1bBase.h"
#include "reader/StreamRead.h"
#include "writer/OwnPieces.h"

namespace kmxf {

namespace {

constexpr uint64_t kHeaderSize = kOp1bHeaderSize;
constexpr uint32_t kSamplesPerSec = 48000;
constexpr uint32_t kAudioKLSize = 24;
constexpr uint64_t kMostPictures = 512 << 20;  // that are shown to the indexer

using Bytes = std::vector<uint8_t>;

// Takes the builder from group to group, as the writer of the clip did.
class GroupBuilder {
public:
    explicit GroupBuilder(const Op1bFormat& format)
        : format_(format), builder_(format.videoStd, format.compType, format.bytesPerSample, format.channels) {
        builder_.SetPlayerLayout(format.playerLayout);
        good_ = builder_.Initialize(false) == kStatusOk && builder_.AddPartitionInfo({0, 0}) == kStatusOk;
    }

    int64_t Frames() const { return frames_; }

    // What stands behind the pictures of a group. `sounds` are the samples of its channels; null: of a group that is in
    // the file, of which only the bytes count.
    std::optional<Bytes> Add(const Op1bGroup& group, uint32_t frames, const std::vector<MXFINDEXENTRYTag>& entries,
                             const std::vector<Bytes>* sounds) {
        if (frames == 0 || group.pictures.size() < frames || entries.size() < frames || group.partitions.empty())
            return std::nullopt;
        out_.clear();
        const uint64_t start = group.pictures.front().start;
        end_ = group.pictures[frames - 1].offset + group.pictures[frames - 1].size;
        Require(builder_.SetBodyPartitionParamVideo(static_cast<int64_t>(group.partitions.front().offset),
                                                    pictureBytes_, frames, false, true));
        for (uint32_t i = 0; i < frames; ++i) {
            const int64_t place = pictureBytes_ + static_cast<int64_t>(group.pictures[i].start - start);
            Require(
                builder_.AddIndexEntry(entries[i].temporalOffset, entries[i].keyFrameOffset, entries[i].flags, place));
        }
        pictureBytes_ += static_cast<int64_t>(end_ - start);
        Require(builder_.SetBodyPartitionParamVideo(At(group, 1, sounds), pictureBytes_, frames, true, false));
        Append([&](uint8_t** data) { return builder_.GetBodyPartitionDataVideo(data, true); },
               builder_.GetBodyPartitionSize(true, false));
        const int64_t anc = At(group, 2, sounds);
        Append([&](uint8_t** data) { return builder_.GetBodyPartitionDataANCData(data, anc, frames); },
               builder_.GetBodyPartitionSizeANCData(frames));
        for (uint32_t channel = 0; channel < format_.channels; ++channel) {
            if (sounds != nullptr) {
                AddSound(static_cast<uint8_t>(channel), frames, At(group, 0, sounds), &(*sounds)[channel], group);
            } else {
                AddSound(static_cast<uint8_t>(channel), frames, At(group, 4 + 2 * channel, sounds), nullptr, group);
            }
        }
        if (!group.sounds.empty()) soundBytes_ += static_cast<int64_t>(group.sounds.back().size);
        frames_ += frames;
        return good_ ? std::optional(std::move(out_)) : std::nullopt;
    }

private:
    void Require(int32_t status) { good_ = good_ && status == kStatusOk; }

    // Where the next partition begins: of a group that is in the file, that of this number.
    int64_t At(const Op1bGroup& group, size_t number, const std::vector<Bytes>* sounds) const {
        const bool known = sounds == nullptr && number < group.partitions.size();
        return static_cast<int64_t>(known ? group.partitions[number].offset : end_ + out_.size());
    }

    template <class Get>
    void Append(Get get, uint32_t size) {
        BuiltBytes built;
        Require(get(&built.data));
        if (good_) out_.insert(out_.end(), built.data, built.data + size);
    }

    void AddSound(uint8_t channel, uint32_t frames, int64_t at, const Bytes* samples, const Op1bGroup& group) {
        const auto partition = [&](int64_t place, bool index) {
            Require(builder_.SetBodyPartitionParamAudio(place, soundBytes_, frames, channel, index, !index));
            const uint32_t size = builder_.GetBodyPartitionSize(index, true);
            Append([&](uint8_t** data) { return builder_.GetBodyPartitionDataAudio(data, index, channel); }, size);
        };
        partition(at, false);
        uint8_t kl[kAudioKLSize];
        if (samples != nullptr) {
            Require(builder_.GetKLData(kTrackCodeSound + channel, static_cast<int64_t>(samples->size()), kl));
            out_.insert(out_.end(), kl, kl + kAudioKLSize);
            out_.insert(out_.end(), samples->begin(), samples->end());
        }
        partition(
            samples != nullptr ? static_cast<int64_t>(end_ + out_.size()) : At(group, 5 + 2 * size_t{channel}, nullptr),
            true);
    }

    const Op1bFormat& format_;
    COp1bBase builder_;
    bool good_ = false;
    int64_t frames_ = 0, pictureBytes_ = 0, soundBytes_ = 0;
    uint64_t end_ = 0;  // of the pictures
    Bytes out_;
};

std::vector<MXFINDEXENTRYTag> EntriesOf(const Op1bGroup& group) {
    std::vector<MXFINDEXENTRYTag> entries;
    if (group.index.empty()) return entries;
    MXFINDEXENTRYTag entry;
    for (uint32_t i = 0; group.index.front().GetIndexEntry(i, &entry) == kStatusOk; ++i) entries.push_back(entry);
    return entries;
}

class BodyReader {
public:
    BodyReader(const std::string& path, const Op1bFormat& format, const SalvageIndexer& indexer)
        : path_(path), format_(format), indexer_(indexer), groups_(format) {}

    Op1bBody Read() {
        const int64_t size = file_.Open(path_.c_str(), kOpenRead) ? file_->Seek(0, kSeekEnd) : -1;
        if (size < 0) return Failed("it cannot be opened");
        body_.wholeEnd = body_.tailEnd = kHeaderSize;
        if (static_cast<uint64_t>(size) <= kHeaderSize) return std::move(body_);
        Op1bScan scan(*file_.get(), file_.Allocator(), kHeaderSize, static_cast<uint64_t>(size), format_.channels);
        std::optional<uint32_t> groupFrames;
        while (true) {
            Op1bGroup group;
            const Op1bScan::Found found = scan.Next(group);
            if (found == Op1bScan::Found::kReadError) return Failed("it cannot be read");
            if (found == Op1bScan::Found::kTooManyFrames) return Failed("a group has more frames than any clip");
            if (groupFrames && group.frames > *groupFrames) break;
            if (found == Op1bScan::Found::kEnd) {
                body_.last = std::move(group);
                TakeTail();
                break;
            }
            TakeWhole(group);
            groupFrames = groupFrames.value_or(group.frames);
            // Frames are found by the length of the first group, so behind a shorter one there is none.
            if (group.frames < *groupFrames) break;
            before_ = std::move(group.pictures);
        }
        return std::move(body_);
    }

private:
    Op1bBody Failed(const char* why) {
        Op1bBody none;
        none.failure = why;
        return none;
    }

    void TakeWhole(const Op1bGroup& group) {
        groups_.Add(group, group.frames, EntriesOf(group), nullptr);
        body_.wholeFrames += group.frames;
        body_.wholeEnd = body_.tailEnd = group.end;
        body_.lastPicture = group.pictures.back();
    }

    void TakeTail() {
        Op1bGroup& group = body_.last;
        auto entries = EntriesOf(group);
        // Damaged heads can make a scan see pictures that their index does not know.
        auto frames = static_cast<uint32_t>(group.pictures.size());
        if (!entries.empty()) frames = std::min(frames, static_cast<uint32_t>(entries.size()));
        if (format_.channels > 0) frames = group.sounds.size() < format_.channels ? 0 : WithSound(group, frames);
        if (frames == 0) return;
        if (entries.empty()) {
            entries = IndexByPictures(frames);
            if (entries.size() < frames) return;
        }
        // A clip of which no picture could be shown is none.
        const bool shown = std::any_of(entries.begin(), entries.begin() + frames,
                                       [](const MXFINDEXENTRYTag& entry) { return entry.temporalOffset < 1; });
        if (body_.wholeFrames == 0 && !shown) return;
        std::vector<Bytes> sounds;
        for (const Op1bElement& sound : group.sounds) {
            auto samples = Copy(sound.offset, SoundBytes(frames));
            if (!samples) return;
            sounds.push_back(std::move(*samples));
        }
        group.sounds.resize(format_.channels);
        auto tail = groups_.Add(group, frames, entries, &sounds);
        if (!tail) return;
        body_.tail = std::move(*tail);
        body_.tailFrames = frames;
        body_.lastPicture = group.pictures[frames - 1];
        body_.tailEnd = body_.lastPicture.offset + body_.lastPicture.size;
        body_.tailKept = body_.tailEnd - group.pictures.front().start;
        for (const Bytes& sound : sounds) body_.tailKept += kAudioKLSize + sound.size();
    }

    uint64_t SoundBytes(uint32_t frames) const {
        const int64_t before = body_.wholeFrames;
        return static_cast<uint64_t>(DurationToAudioSample(format_.videoStd, before + frames, kSamplesPerSec) -
                                     DurationToAudioSample(format_.videoStd, before, kSamplesPerSec)) *
               format_.bytesPerSample;
    }
    // As many frames as every channel has.
    uint32_t WithSound(const Op1bGroup& group, uint32_t frames) const {
        for (const Op1bElement& sound : group.sounds)
            while (frames > 0 && SoundBytes(frames) > sound.size) --frames;
        return frames;
    }

    std::optional<Bytes> Copy(uint64_t offset, uint64_t size) {
        const OwnedPiece piece(file_.Allocator(), static_cast<uint32_t>(size));
        if (!piece || !ReadWholeAt(*file_.get(), offset, piece)) return std::nullopt;
        const auto bytes = piece.Bytes();
        return Bytes(bytes.begin(), bytes.end());
    }

    // The pictures of the group in front come first: some of them are what the first ones here refer to.
    std::vector<MXFINDEXENTRYTag> IndexByPictures(uint32_t frames) {
        if (!indexer_) return {};
        std::vector<Op1bElement> elements = before_;
        elements.insert(elements.end(), body_.last.pictures.begin(), body_.last.pictures.begin() + frames);
        uint64_t total = 0;
        for (const Op1bElement& element : elements) total += element.size;
        if (total > kMostPictures) return {};
        Bytes pictures;
        for (const Op1bElement& element : elements) {
            const auto picture = Copy(element.offset, element.size);
            if (!picture) return {};
            pictures.insert(pictures.end(), picture->begin(), picture->end());
        }
        return indexer_(pictures, frames);
    }

    const std::string path_;
    const Op1bFormat& format_;
    const SalvageIndexer& indexer_;
    FactoryStream file_;
    GroupBuilder groups_;
    std::vector<Op1bElement> before_;  // pictures of the group in front
    Op1bBody body_;
};

}  // namespace

Op1bBody ReadOp1bBody(const std::string& path, const Op1bFormat& format, const SalvageIndexer& indexer) {
    return BodyReader(path, format, indexer).Read();
}

}  // namespace kmxf
