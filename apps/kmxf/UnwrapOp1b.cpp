#include "UnwrapOp1b.h"

#include <algorithm>
#include <cstdio>
#include <future>

#include "Op1bGroups.h"
#include "ParameterSets.h"
#include "Program.h"
#include "Progress.h"
#include "kmxf/core/VideoStandard.h"

namespace kmxf::program {

namespace {

// The end of an element and the head of the next: all that is looked at of pictures.
constexpr size_t kLook = 32;
constexpr uint64_t kMostPicture = 64 << 20;
constexpr size_t kParameterSetArea = 4096;  // of a picture, where its parameter sets are

FramePlace PlaceOf(const InputFile& from, const FileInfo& info, uint64_t frame) {
    const ClipGroup& group = GroupOf(info.groups, frame);
    return FramePlaces(from, group)[static_cast<size_t>(frame - group.firstFrame)];
}

// The frame at which decoding must begin so that `range` can be seen: its key picture. What cannot be is said.
// (Pictures stored behind a key picture and shown before it may need the key picture before that one too.)
uint64_t DecodableFrom(const InputFile& from, const FileInfo& info, const FrameRange& range) {
    const int64_t key = static_cast<int64_t>(range.first) + PlaceOf(from, info, range.first).keyFrameOffset;
    const std::string frame = "frame " + std::to_string(range.first);
    if (key < 0 || key > static_cast<int64_t>(range.first)) {
        Say(info.path + ": " + frame + " has no key picture in this file: it cannot be decoded");
        return range.first;
    }
    const auto start = static_cast<uint64_t>(key);
    const ByteRange picture = PlaceOf(from, info, start).picture;
    const auto area =
        from.Look(picture.begin, static_cast<size_t>(std::min<uint64_t>(picture.Size(), kParameterSetArea)));
    if (FindNal(area, kSequenceSet).empty()) {
        Say(info.path + ": " + frame + " cannot be decoded by itself: its key picture, frame " + std::to_string(start) +
            ", has no parameter sets");
        return range.first;
    }
    if (start != range.first) {
        Say(info.path + ": " + frame + " is decoded from frame " + std::to_string(start) + " on: frames " +
            std::to_string(start) + "-" + std::to_string(range.last) + " are given back");
    }
    return start;
}

// Pictures are stored in multiples of 4 bytes, and no NAL unit ends in a zero (ITU-T H.264, 7.4.1): up to 3 zeros at
// the end are what aligned it. Of more than 3 some were in the stream, and nobody knows how many: all of them stay.
size_t AligningZeros(uint64_t size, std::span<const uint8_t> end) {
    const size_t zeros = end.size() - SizeWithoutZeros(end);
    return size % 4 == 0 && zeros <= 3 ? zeros : 0;
}

class Extraction {
public:
    Extraction(const InputFile& from, const FileInfo& info, bool raw, Progress& progress)
        : from_(from), info_(info), raw_(raw), progress_(progress), window_(from, kLook) {}

    // The group's frames from `first` up to and without `end`, counted in the group.
    void Pictures(const ClipGroup& group, uint32_t first, uint32_t end, StreamOutput& to) {
        Elements elements(from_, window_, group.pictures);
        for (uint32_t i = 0; i < end; ++i) {
            auto place = elements.Next();
            if (!place || place->Size() > kMostPicture) {
                Fail(ExitStatus::kInput, info_.path,
                     "frame " + std::to_string(group.firstFrame + i) + " is not where it should be (offset " +
                         std::to_string(place ? place->begin : group.pictures.end) + ")");
            }
            if (i < first) continue;
            if (!raw_) {
                const auto look = static_cast<size_t>(std::min<uint64_t>(4, place->Size()));
                place->end -= AligningZeros(place->Size(), window_.At(place->end - look, look));
            }
            Copy(*place, to);
        }
    }

    void Sound(const ClipGroup& group, uint32_t first, uint32_t end, size_t channel, StreamOutput& to) {
        const uint32_t bytesPerSample = info_.bitsPerSample / 8;  // 0: a damaged header
        const auto place = Elements(from_, window_, group.sound[channel]).Next();
        if (!place || bytesPerSample == 0) return;
        ByteRange wanted = info_.SoundOf(group, *place, first, end);
        if (!raw_) wanted.end -= wanted.Size() % bytesPerSample;
        Copy(wanted, to);
    }

private:
    void Copy(const ByteRange& range, StreamOutput& to) {
        to.Copy(from_, range, [this](uint64_t bytes) { progress_.Advance(bytes); });
        if (interrupted) throw Failure(ExitStatus::kInterrupted, "interrupted");
    }

    const InputFile& from_;
    const FileInfo& info_;
    bool raw_;
    Progress& progress_;
    ReadingWindow window_;
};

}  // namespace

std::vector<EssenceStream> Op1bStreams(const FileInfo& info, const std::string& stem, bool raw) {
    using Kind = EssenceStream::Kind;
    std::vector<EssenceStream> streams{{stem + (raw ? ".raw" : ".h264"), Kind::kPicture}};
    for (uint32_t channel = 0; channel < info.channels; ++channel) {
        char number[12];
        std::snprintf(number, sizeof number, "%02u", channel);
        streams.push_back({stem + number + (raw ? ".pcm" : ".wav"), Kind::kSound});
    }
    if (info.xml && !info.xml->isPlaceholder) streams.push_back({stem + ".xml", Kind::kXml});
    if (info.thumbnail && !info.thumbnail->picture.isPlaceholder) streams.push_back({stem + ".bmp", Kind::kThumbnail});
    return streams;
}

void ExtractOp1b(const InputFile& from, const FileInfo& info, const std::vector<EssenceStream>& streams,
                 const std::optional<FrameRange>& range, bool raw,
                 const std::vector<std::unique_ptr<StreamOutput>>& outputs) {
    for (size_t i = 0; i < streams.size(); ++i) {
        if (!streams[i].IsSideData()) continue;
        const ByteRange& place =
            (streams[i].kind == EssenceStream::Kind::kXml ? *info.xml : info.thumbnail->picture).place;
        std::vector<uint8_t> bytes(static_cast<size_t>(place.Size()));
        from.Read(place.begin, bytes);
        outputs[i]->Write(bytes);
    }
    if (info.groups.empty()) return;

    const uint64_t end = range ? range->last + 1 : static_cast<uint64_t>(info.frames);
    const uint64_t first = range ? (raw ? range->first : DecodableFrom(from, info, *range)) : 0;
    Progress progress(info.path, range ? 0 : static_cast<uint64_t>(info.dataSize), 0);
    Extraction pictures(from, info, raw, progress), sound(from, info, raw, progress);
    for (const ClipGroup& group : info.groups) {
        if (group.firstFrame + group.frames <= first || group.firstFrame >= end) continue;
        const auto begin = static_cast<uint32_t>(std::max(first, group.firstFrame) - group.firstFrame);
        const auto upTo = static_cast<uint32_t>(std::min<uint64_t>(end - group.firstFrame, group.frames));
        // At the same time, and not further apart than a group: they lie side by side.
        auto heard = std::async([&] {
            for (size_t channel = 0; channel < group.sound.size(); ++channel)
                sound.Sound(group, begin, upTo, channel, *outputs[1 + channel]);
        });
        pictures.Pictures(group, begin, upTo, *outputs.front());
        heard.get();
    }
}

}  // namespace kmxf::program
