#include "tools/Op1bBody.h"

#include <algorithm>
#include <map>
#include <span>
#include <utility>

#include "core/KLVPacket.h"
#include "core/Labels.h"
#include "core/Layout.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/structures/Partition.h"
#include "tools/Op1bPlaces.h"
#include "tools/Op1bScan.h"
#include "tools/SalvageSheet.h"

namespace kmxf {

namespace {

constexpr uint64_t kHeaderSize = kOp1bHeaderSize;
constexpr uint64_t kMostPictures = 512 << 20;  // that are shown to the indexer
constexpr uint64_t kWindow = 1 << 20;
constexpr int64_t kMostAhead = 4;        // groups that are asked for their number
constexpr uint8_t kRandomAccess = 0x80;  // of a picture's flags

const char* const kUnfinished = "a group of frames that was being written";
const char* const kOdd = "a group of frames of another length than the others";
const char* const kUntold = "a damaged group of frames, which cannot be told apart";

std::vector<MXFINDEXENTRYTag> EntriesOf(const CIndexCommon& segment) {
    std::vector<MXFINDEXENTRYTag> entries;
    MXFINDEXENTRYTag entry;
    for (uint32_t i = 0; segment.GetIndexEntry(i, &entry) == kStatusOk; ++i) entries.push_back(entry);
    return entries;
}

class BodyReader {
public:
    BodyReader(const std::string& path, const Op1bFormat& format, const SalvageIndexer& indexer)
        : path_(path), format_(format), indexer_(indexer), source_(path), groups_(format, source_, kHeaderSize) {}

    Op1bBody Read();

private:
    // A group that a walk by keys and lengths does not find whole.
    struct Resolved {
        Op1bContent content;
        uint64_t picturesEnd = 0, end = 0;  // `end` as it is when nothing of it is missing
        bool indexed = false;
        std::optional<int64_t> number;  // of its first frame, by its index
    };

    // What follows a damaged stretch.
    struct Ahead {
        uint64_t start = 0;             // of the next group, or the end of the file
        bool last = true;               // there is none
        bool readable = true;           // the stretch
        std::optional<int64_t> number;  // of the first frame of the next group
    };

    struct IndexSearch {
        uint64_t from = 0, limit = 0;
        Op1bPack found;
    };

    uint32_t GroupFrames() const { return groupFrames_.value_or(VideoStandardToPartitionFrame(format_.videoStd)); }
    uint64_t SoundBytes(int64_t frames) const;
    uint64_t PackSize() const { return packSize_; }

    Op1bScan ScanFrom(uint64_t place);
    const Ahead& LookAhead(uint64_t at);
    const Op1bPack& FindIndex(uint32_t indexSID, uint64_t from, uint64_t limit);
    std::optional<int64_t> NumberBehind(uint64_t place);
    std::optional<int64_t> FramesUpTo(const Ahead& ahead, uint64_t at) const;
    bool CanBeRead(uint64_t from, uint64_t to);
    bool Fits(const Op1bGroup& group);
    bool IsNumbered(const Resolved& resolved, const Ahead& ahead, std::optional<int64_t> told) const;
    bool Take(const Op1bGroup& group);
    bool TakeResolved(Resolved& resolved, uint64_t limit, bool last);
    void TakeTail(Resolved& resolved);
    uint64_t SoundThere(const Op1bContent& content, uint32_t channel);
    bool HasAllSound(const Op1bContent& content);
    void Lose(uint64_t from, uint64_t to, const char* why);
    void LoseFrames(uint64_t from, uint64_t to, int64_t frames, const char* why);
    void Append(std::vector<Op1bPiece> pieces);
    void Account(const Op1bContent& content, uint64_t end, const std::vector<Op1bPiece>& pieces, uint64_t lost);

    std::optional<Resolved> Resolve(uint64_t start, uint64_t limit, bool last);
    std::optional<Resolved> ByIndex(uint64_t start, uint64_t limit);
    std::optional<Op1bPictures> ByANC(uint64_t first, uint64_t limit);
    void Place(Resolved& resolved) const;
    void NoteEntries(const std::vector<MXFINDEXENTRYTag>& entries);
    void NoteBefore(const Op1bContent& content);
    std::vector<MXFINDEXENTRYTag> EntriesFor(const std::vector<Op1bElement>& pictures);

    const std::string path_;
    const Op1bFormat& format_;
    const SalvageIndexer& indexer_;
    FactoryStream file_;
    SalvageInput source_;
    Op1bGroupBuilder groups_;
    uint64_t packSize_ = 0;
    std::optional<uint32_t> groupFrames_;
    int64_t framesBefore_ = 0;  // in the old file
    bool counted_ = true;       // framesBefore_ is no guess
    std::optional<Ahead> ahead_;
    std::map<uint32_t, IndexSearch> searches_;            // the last one for each IndexSID
    std::vector<Op1bElement> before_;                     // last pictures of the group in front
    std::vector<MXFINDEXENTRYTag> pattern_;               // entries of a whole group
    int64_t mended_ = 0, borrowed_ = 0;                   // groups
    bool tail_ = false, moved_ = false, behind_ = false;  // a lost group
    Op1bBody body_;
};

Op1bBody BodyReader::Read() {
    if (!source_.IsOpened() || !file_.Open(path_.c_str(), kOpenRead)) {
        body_.failure = "it cannot be opened";
        return std::move(body_);
    }
    const uint64_t size = source_.GetSize();
    packSize_ = SizesOf(format_, 0, 0).pack;
    body_.end = kHeaderSize;
    uint64_t at = kHeaderSize;
    while (at < size && groups_.IsGood()) {
        Op1bGroup group;
        const Op1bScan::Found found = ScanFrom(at).Next(group);
        if (found == Op1bScan::Found::kGroup) {
            const bool fits = Fits(group);
            if (!fits || !Take(group)) LoseFrames(at, group.end, group.frames, fits ? kUntold : kOdd);
            at = group.end;
            // Frames are found by the length of the first group, so behind a shorter one there is none.
            if (fits && group.frames < GroupFrames()) break;
            continue;
        }
        const Ahead ahead = LookAhead(at);
        if (found == Op1bScan::Found::kReadError || !ahead.readable) {
            body_.unreadable = body_.unreadable.value_or(at);
            LoseFrames(at, ahead.start, FramesUpTo(ahead, at).value_or(ahead.last ? 0 : GroupFrames()), kUnreadable);
            at = ahead.start;
            continue;
        }
        const auto told = FramesUpTo(ahead, at);
        auto resolved = Resolve(at, ahead.start, ahead.last);
        if (resolved && IsNumbered(*resolved, ahead, told) && TakeResolved(*resolved, ahead.start, ahead.last)) {
            at = std::min(resolved->end, size);
            continue;
        }
        if (ahead.last) break;
        counted_ = told.has_value();
        LoseFrames(at, ahead.start, told.value_or(GroupFrames()), kUntold);
        at = ahead.start;
    }
    if (!groups_.IsGood() && body_.failure.empty()) body_.failure = "its groups of frames cannot be built";
    if (const auto offset = source_.Unreadable()) body_.unreadable = offset;
    body_.moves = body_.moves || body_.unreadable;
    // What can stand there is a footer that did not come to its end; a pack tells of its kind with its 14th byte.
    const auto rest = source_.Copy(at, sizeof(MXFKEYTag));
    const bool footer = BeginsLikePack(rest) && (rest.size() <= kPackKindByte || rest[kPackKindByte] == kFooterPack);
    if (footer) {
        body_.rebuiltSize += size - std::min(at, size);
    } else if (at < size) {
        Lose(at, size, kUnfinished);
    }
    if (mended_ > 0) body_.rebuilt.push_back("damaged parts of " + std::to_string(mended_) + " groups of frames");
    if (borrowed_ > 0)
        body_.rebuilt.push_back("the index of " + std::to_string(borrowed_) + " groups after that of another");
    if (tail_) body_.rebuilt.emplace_back("the tables of the last group of frames");
    if (behind_) body_.rebuilt.emplace_back("the tables of the groups behind a lost one");
    return std::move(body_);
}

Op1bScan BodyReader::ScanFrom(uint64_t place) {
    return {*file_.get(),
            file_.Allocator(),
            place,
            source_.GetSize(),
            {format_.videoStd, format_.channels, format_.bytesPerSample}};
}

// Looks once for each stretch.
const BodyReader::Ahead& BodyReader::LookAhead(uint64_t at) {
    if (ahead_ && at < ahead_->start) return *ahead_;
    Ahead ahead;
    const uint64_t size = ahead.start = source_.GetSize();
    uint64_t behind = at + 1;
    for (int64_t groups = 0; groups < kMostAhead && !ahead.number; ++groups) {
        const uint64_t place = FindGroup(source_, behind);
        if (place == size) break;
        Op1bGroup next;
        const bool whole = ScanFrom(place).Next(next) == Op1bScan::Found::kGroup;
        if (whole && pattern_.empty()) NoteEntries(EntriesOf(next.index.front()));
        if (ahead.last) ahead.start = place;
        ahead.last = false;
        if (const auto number = NumberBehind(place)) ahead.number = *number - groups * GroupFrames();
        behind = place + 1;
    }
    ahead.readable = CanBeRead(at, ahead.start);
    return ahead_.emplace(ahead);
}

// The number of the first frame of the group that begins here, by its index.
std::optional<int64_t> BodyReader::NumberBehind(uint64_t place) {
    const auto found = FindBodyPack(source_, place + packSize_, place + kFirstGroup, [](const CPartition& pack) {
        return pack.GetIndexSID() == kPictureIndexSID || pack.GetBodySID() == kPictureSID;
    });
    const bool own = found.pack && found.pack->GetBodySID() != kPictureSID;
    const auto segment = own ? SegmentBehind(source_, *found.pack) : std::nullopt;
    const auto number = segment ? std::optional(segment->GetStartPosition()) : std::nullopt;
    // Each frame has a head in front of it.
    const bool likely = number && *number >= 0 && std::cmp_less(*number, place / kKLVHeadSize);
    return likely ? number : std::nullopt;
}

// How many frames are missing or damaged from here up to the next group.
std::optional<int64_t> BodyReader::FramesUpTo(const Ahead& ahead, uint64_t at) const {
    if (!ahead.number || !counted_) return std::nullopt;
    const int64_t frames = *ahead.number - framesBefore_;
    const bool likely = frames > 0 && std::cmp_less_equal(frames, (ahead.start - at) / kKLVHeadSize);
    return likely ? std::optional(frames) : std::nullopt;
}

bool BodyReader::CanBeRead(uint64_t from, uint64_t to) {
    for (uint64_t at = from; at < to; at += kWindow)
        if (const uint64_t step = std::min(kWindow, to - at); source_.Copy(at, step).size() < step) return false;
    return true;
}

// All groups have the length of the first, but for a shorter one at the end.
bool BodyReader::Fits(const Op1bGroup& group) {
    if (group.frames >= GroupFrames()) return group.frames == GroupFrames();
    Op1bGroup next;
    const bool whole = ScanFrom(group.end).Next(next) == Op1bScan::Found::kGroup;
    if (!groupFrames_) return !whole || next.frames <= group.frames;
    return !whole && FindGroup(source_, group.end + 1) == source_.GetSize();
}

// Damage that swallows packs can make one group of several. Either the next group says that just this one is in front
// of it, or its own index says which it is.
bool BodyReader::IsNumbered(const Resolved& resolved, const Ahead& ahead, std::optional<int64_t> told) const {
    const bool own = counted_ && resolved.indexed && resolved.number == framesBefore_;
    if (ahead.last) return !counted_ || !resolved.number || own;
    if (own || !told) return true;
    return *told == GroupFrames() && resolved.end == ahead.start;
}

uint64_t BodyReader::SoundBytes(int64_t frames) const {
    return static_cast<uint64_t>(DurationToAudioSample(format_.videoStd, framesBefore_ + frames, kOp1bSamplesPerSec) -
                                 DurationToAudioSample(format_.videoStd, framesBefore_, kOp1bSamplesPerSec)) *
           format_.bytesPerSample;
}

void BodyReader::Lose(uint64_t from, uint64_t to, const char* why) {
    if (from < to) body_.losses.push_back({from, to - from, why});
}

// Those behind them move, and what is told of these could be wrong: the file itself is not to be cut.
void BodyReader::LoseFrames(uint64_t from, uint64_t to, int64_t frames, const char* why) {
    Lose(from, to, why);
    framesBefore_ += frames;
    body_.framesFound += frames;
    body_.moves = moved_ = true;
    before_.clear();
}

void BodyReader::Append(std::vector<Op1bPiece> pieces) {
    behind_ = moved_;
    for (Op1bPiece& piece : pieces) {
        body_.moves = body_.moves || (piece.made.empty() && piece.from != body_.end);
        body_.end += piece.size;
        const bool joins = !body_.pieces.empty() && piece.made.empty() && body_.pieces.back().made.empty() &&
                           body_.pieces.back().from + body_.pieces.back().size == piece.from;
        if (joins) {
            body_.pieces.back().size += piece.size;
        } else {
            body_.pieces.push_back(std::move(piece));
        }
    }
}

// Of a group's bytes up to `end`, what is not kept nor lost is made anew.
void BodyReader::Account(const Op1bContent& content, uint64_t end, const std::vector<Op1bPiece>& pieces,
                         uint64_t lost) {
    uint64_t kept = 0;
    for (const Op1bPiece& piece : pieces) kept += piece.old ? piece.size : 0;
    body_.keptSize += kept;
    body_.rebuiltSize += end - content.start - kept - lost;
    const auto frames = static_cast<int64_t>(content.pictures.size());
    body_.framesKept += frames;
    body_.lastPicture = content.pictures.back();
}

void BodyReader::NoteEntries(const std::vector<MXFINDEXENTRYTag>& entries) { pattern_ = entries; }

// From the last key picture but one on: what is shown in front of a key picture is stored behind it.
void BodyReader::NoteBefore(const Op1bContent& content) {
    size_t from = content.pictures.size();
    for (int keys = 0; from > 0 && keys < 2;) keys += (content.entries[--from].flags & kRandomAccess) != 0;
    before_.assign(content.pictures.begin() + static_cast<std::ptrdiff_t>(from), content.pictures.end());
}

// A whole one. It stays as it is where it is of another layout than ours, unless it has to move.
bool BodyReader::Take(const Op1bGroup& group) {
    const int64_t number = group.index.front().GetStartPosition();
    if (!counted_ && number > framesBefore_ && std::cmp_less(number, group.start / kKLVHeadSize)) {
        framesBefore_ = number;
        counted_ = true;
    }
    Op1bContent content{group.start, group.pictures, EntriesOf(group.index.front()), 0, {}, 0};
    content.ancAt = group.partitions[2].offset + packSize_;
    for (const Op1bElement& sound : group.sounds) {
        content.soundAt.push_back(sound.offset);
        content.soundSize = sound.size;
    }
    NoteEntries(content.entries);
    const uint64_t start = groups_.End();
    auto pieces = groups_.Add(content, false, body_.framesDamaged);
    if (!pieces) return false;
    groupFrames_ = groupFrames_.value_or(group.frames);
    if (start == group.start && groups_.End() != group.end) {
        groups_.Keep(group.end, group.partitions.back());
        pieces = std::vector<Op1bPiece>{{group.start, group.end - group.start, {}, true}};
    }
    if (start == group.start && std::ranges::any_of(*pieces, [](const Op1bPiece& piece) { return !piece.old; }))
        ++mended_;
    Account(content, group.end, *pieces, 0);
    body_.framesFound += group.frames;
    framesBefore_ += group.frames;
    NoteBefore(content);
    Append(std::move(*pieces));
    return true;
}

// Looks once at each place: where many groups have lost theirs, all of them find the same one, or none.
const Op1bPack& BodyReader::FindIndex(uint32_t indexSID, uint64_t from, uint64_t limit) {
    IndexSearch& last = searches_[indexSID];
    if (last.limit != limit || from < last.from || from > last.found.place) {
        const auto wanted = [&](const CPartition& pack) { return pack.GetIndexSID() == indexSID; };
        last = {from, limit, FindBodyPack(source_, from, limit, wanted)};
    }
    return last.found;
}

// By the index of its pictures: that tells where each of them begins.
std::optional<BodyReader::Resolved> BodyReader::ByIndex(uint64_t start, uint64_t limit) {
    const uint64_t first = start + packSize_;
    const auto& [place, pack] = FindIndex(kPictureIndexSID, first, limit);
    if (!pack) return std::nullopt;
    const auto segment = SegmentBehind(source_, *pack);
    Resolved resolved;
    resolved.content.start = start;
    resolved.picturesEnd = place;
    if (segment) {
        resolved.content.entries = EntriesOf(*segment);
        resolved.number = segment->GetStartPosition();
    }
    auto& entries = resolved.content.entries;
    auto& pictures = resolved.content.pictures;
    if (entries.size() > GroupFrames()) entries.clear();
    for (size_t i = 0; i < entries.size(); ++i) {
        const uint64_t from = first + (entries[i].streamOffset - entries.front().streamOffset);
        const uint64_t to =
            i + 1 < entries.size() ? first + (entries[i + 1].streamOffset - entries.front().streamOffset) : place;
        if (from < first || to > place || to < from || to - from < kKLVHeadSize || (to - from) % 4 != 0) {
            entries.clear();
            pictures.clear();
            break;
        }
        const auto there = PictureAt(source_, from, place);
        const bool whole = there && there->offset + there->size == to;
        pictures.push_back(whole ? *there : Op1bElement{from, from + kKLVHeadSize, to - from - kKLVHeadSize, false});
    }
    resolved.indexed = !entries.empty();
    return resolved;
}

// By the index of its ANC elements, which are all of one size: that tells how many frames there are and where the
// pictures end.
std::optional<Op1bPictures> BodyReader::ByANC(uint64_t first, uint64_t limit) {
    const auto& [place, pack] = FindIndex(kANCIndexSID, first, limit);
    const auto segment = pack ? SegmentBehind(source_, *pack) : std::nullopt;
    if (!segment || segment->GetDuration() <= 0 || segment->GetDuration() > GroupFrames()) return std::nullopt;
    const auto frames = static_cast<uint32_t>(segment->GetDuration());
    const uint64_t behind = SizesOf(format_, frames, 0).pictureIndex + PackSize() + uint64_t{frames} * kANCElementSize;
    if (place < first + behind) return std::nullopt;
    Op1bPictures walked = FindPictures(source_, first, place - behind, true, frames);
    const bool whole = walked.end == place - behind && walked.Divide(frames);
    return whole ? std::optional(std::move(walked)) : std::nullopt;
}

// Sets the places behind the pictures.
void BodyReader::Place(Resolved& resolved) const {
    const auto frames = static_cast<uint32_t>(resolved.content.pictures.size());
    const Op1bGroupSizes sizes = SizesOf(format_, frames, SoundBytes(frames));
    resolved.content.ancAt = resolved.picturesEnd + sizes.Anc();
    resolved.content.soundSize = sizes.sound;
    resolved.content.soundAt.clear();
    for (uint32_t channel = 0; channel < format_.channels; ++channel)
        resolved.content.soundAt.push_back(resolved.picturesEnd + sizes.Sound(channel));
    resolved.end = resolved.picturesEnd + sizes.All(format_.channels);
}

std::optional<BodyReader::Resolved> BodyReader::Resolve(uint64_t start, uint64_t limit, bool last) {
    const uint64_t first = start + packSize_;
    if (first >= limit) return std::nullopt;
    const uint32_t frames = GroupFrames();
    const auto told = [&](Op1bPictures walked) {
        Resolved resolved;
        resolved.content.start = start;
        resolved.content.pictures = std::move(walked.pictures);
        resolved.picturesEnd = walked.end;
        return resolved;
    };
    auto resolved = ByIndex(start, limit);
    const auto number = resolved ? resolved->number : std::nullopt;
    if (resolved && !resolved->indexed) {
        // The place of the index alone tells where the pictures end.
        Op1bPictures walked = FindPictures(source_, first, resolved->picturesEnd, true, frames);
        const bool whole = walked.end == resolved->picturesEnd && (last || walked.Divide(frames));
        resolved = whole ? std::optional(told(std::move(walked))) : std::nullopt;
    }
    if (!resolved) {
        if (auto walked = ByANC(first, limit)) resolved = told(std::move(*walked));
    }
    if (!resolved && !last) {
        const uint64_t behind = SizesOf(format_, frames, SoundBytes(frames)).All(format_.channels);
        if (limit - first > behind) {
            Op1bPictures walked = FindPictures(source_, first, limit - behind, true, frames);
            if (walked.end == limit - behind && walked.Divide(frames)) resolved = told(std::move(walked));
        }
    }
    if (!resolved) {
        Op1bPictures walked = FindPictures(source_, first, limit, false, frames);
        if (walked.pictures.size() > frames) {
            walked.pictures.resize(frames);
            walked.end = walked.pictures.back().offset + walked.pictures.back().size;
        }
        if (walked.pictures.size() < frames && !last) return std::nullopt;
        resolved = told(std::move(walked));
    }
    // Where no picture is whole there is nothing to keep.
    if (std::ranges::none_of(resolved->content.pictures, &Op1bElement::headed)) return std::nullopt;
    resolved->number = number;
    Place(*resolved);
    return resolved;
}

// The pictures of the group in front come first: some of them are what the first ones here refer to. What damaged
// pictures do not tell is as in another group.
std::vector<MXFINDEXENTRYTag> BodyReader::EntriesFor(const std::vector<Op1bElement>& pictures) {
    std::vector<MXFINDEXENTRYTag> entries;
    std::vector<Op1bElement> elements = before_;
    elements.insert(elements.end(), pictures.begin(), pictures.end());
    uint64_t total = 0;
    for (const Op1bElement& element : elements) total += element.size;
    if (indexer_ && total <= kMostPictures) {
        std::vector<uint8_t> bytes;
        for (const Op1bElement& element : elements) {
            const auto picture = source_.Copy(element.offset, element.size);
            bytes.insert(bytes.end(), picture.begin(), picture.end());
        }
        entries = indexer_(bytes, pictures.size());
    }
    return entries.size() == pictures.size() ? entries : std::vector<MXFINDEXENTRYTag>();
}

bool BodyReader::TakeResolved(Resolved& resolved, uint64_t limit, bool last) {
    Op1bContent& content = resolved.content;
    const auto frames = static_cast<uint32_t>(content.pictures.size());
    const bool complete = resolved.end <= limit;
    const bool isShort = frames < GroupFrames();
    if (!last && (!complete || isShort)) return false;
    if (!complete || (isShort && !HasAllSound(content))) {
        TakeTail(resolved);
        return true;
    }
    if (content.entries.empty()) content.entries = EntriesFor(content.pictures);
    if (content.entries.empty() && pattern_.size() >= frames) {
        const auto front = std::span(pattern_).first(frames);
        content.entries.assign(front.begin(), front.end());
        ++borrowed_;
    }
    if (content.entries.empty()) return false;
    groupFrames_ = groupFrames_.value_or(frames);
    auto pieces = groups_.Add(content, false, body_.framesDamaged);
    if (!pieces) return false;
    ++mended_;
    Account(content, resolved.end, *pieces, 0);
    body_.framesFound += frames;
    framesBefore_ += frames;
    NoteBefore(content);
    Append(std::move(*pieces));
    return true;
}

// How much of a channel's sound is in its place: behind its head, or in front of its index. A run in place that was
// broken off can have written the tables of a shorter group and not yet moved its sound, which both of them follow.
uint64_t BodyReader::SoundThere(const Op1bContent& content, uint32_t channel) {
    const uint64_t size = source_.GetSize(), at = std::min(content.soundAt[channel], size);
    const auto head = ReadKLVHead(source_.Copy(at - kAudioKLSize, kAudioKLSize));
    const bool told = (head && head->key == kPCMBlockElementKey) || BodyPackAt(source_, at + content.soundSize);
    return told ? std::min(content.soundSize, size - at) : 0;
}

bool BodyReader::HasAllSound(const Op1bContent& content) {
    for (uint32_t channel = 0; channel < format_.channels; ++channel)
        if (SoundThere(content, channel) < content.soundSize) return false;
    return true;
}

// The group that was being written: the frames of which every channel has the sound.
void BodyReader::TakeTail(Resolved& resolved) {
    Op1bContent& content = resolved.content;
    const uint64_t size = source_.GetSize();
    auto frames = static_cast<uint32_t>(content.pictures.size());
    body_.framesFound += frames;
    const uint64_t end = std::min(std::exchange(resolved.end, size), size);
    std::vector<uint64_t> there;  // of the sound
    for (uint32_t channel = 0; channel < format_.channels; ++channel) {
        there.push_back(SoundThere(content, channel));
        while (frames > 0 && SoundBytes(frames) > there.back()) --frames;
    }
    content.pictures.resize(frames);
    if (frames > 0 && content.entries.empty()) content.entries = EntriesFor(content.pictures);
    // A clip of which no picture could be shown is none.
    const auto shown = [](const MXFINDEXENTRYTag& entry) { return entry.temporalOffset < 1; };
    if (frames == 0 || content.entries.size() < frames ||
        (body_.framesKept == 0 && std::ranges::none_of(std::span(content.entries).first(frames), shown))) {
        return Lose(content.start, size, kUnfinished);
    }
    content.soundSize = SoundBytes(frames);
    auto pieces = groups_.Add(content, !moved_, body_.framesDamaged);
    if (!pieces) return Lose(content.start, size, kUnfinished);
    // Behind the last picture kept the others are lost, and behind its sound theirs; a picture that is not whole, too.
    const size_t before = body_.losses.size();
    const uint64_t keptEnd = content.pictures.back().offset + content.pictures.back().size;
    // Where something of what belongs behind the pictures is in its place, no other picture began there.
    const bool closed =
        resolved.indexed || format_.channels != 0 || std::ranges::any_of(*pieces, [&](const Op1bPiece& piece) {
            return piece.made.empty() && piece.from + piece.size > keptEnd;
        });
    Lose(keptEnd, closed ? resolved.picturesEnd : size, kUnfinished);
    for (uint32_t channel = 0; channel < format_.channels; ++channel)
        Lose(content.soundAt[channel] + content.soundSize, content.soundAt[channel] + there[channel], kUnfinished);
    Lose(end, size, kUnfinished);
    uint64_t lost = 0;
    for (size_t i = before; i < body_.losses.size(); ++i) lost += body_.losses[i].size;
    tail_ = true;
    Account(content, size, *pieces, lost);
    framesBefore_ += frames;
    Append(std::move(*pieces));
}

}  // namespace

Op1bBody ReadOp1bBody(const std::string& path, const Op1bFormat& format, const SalvageIndexer& indexer) {
    return BodyReader(path, format, indexer).Read();
}

}  // namespace kmxf
