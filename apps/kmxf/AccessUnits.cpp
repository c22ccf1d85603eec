#include "AccessUnits.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "Program.h"

namespace kmxf::program {

namespace {

// Whether such a NAL unit behind the slices of a picture begins the next access unit (7.4.1.2.3).
constexpr bool BeginsAccessUnit(uint32_t type) { return (type >= 6 && type <= 9) || (type >= 14 && type <= 18); }

constexpr size_t kStartCode = 3;
constexpr size_t kMostParameterSet = 2048;
constexpr size_t kMostFrame = 0xFFFFFC;  // three bytes of length, and a multiple of 4

uint8_t Flags(PictureType type, bool hasParameterSets, bool cutOff) {
    switch (type) {
        case PictureType::kI:
            return hasParameterSets ? kFlagsIWithParameterSets : kFlagsI;
        case PictureType::kP:
            return kFlagsP;
        case PictureType::kB:
            return cutOff ? kFlagsBCutOff : kFlagsB;
    }
    return 0;
}

bool FitsByte(int64_t offset) {
    return offset >= std::numeric_limits<int8_t>::min() && offset <= std::numeric_limits<int8_t>::max();
}

std::span<const uint8_t> Bytes(const AccessUnit& unit) { return {unit.piece->GetBuffer(), unit.piece->GetSize()}; }

}  // namespace

AccessUnits::AccessUnits(std::unique_ptr<StreamBytes> bytes, std::string file)
    : bytes_(std::move(bytes)), file_(std::move(file)) {}

void AccessUnits::FailAt(size_t at, const std::string& what) const {
    Fail(ExitStatus::kInput, file_, what + " (offset " + std::to_string(position_ + at) + ")");
}

std::span<const uint8_t> AccessUnits::FirstStored() {
    return FillUntilShown() ? Bytes(stored_.front()) : std::span<const uint8_t>{};
}

std::span<const uint8_t> AccessUnits::FirstShown() {
    return FillUntilShown() ? Bytes(stored_[*nextShown_]) : std::span<const uint8_t>{};
}

std::optional<AccessUnit> AccessUnits::Next() {
    if (!FillUntilShown()) return std::nullopt;
    AccessUnit unit = std::move(stored_.front());
    stored_.pop_front();
    const auto temporalOffset = static_cast<int64_t>(*nextShown_) - static_cast<int64_t>(given_);
    if (!FitsByte(temporalOffset)) {
        Fail(ExitStatus::kInput, file_,
             "the picture shown as number " + std::to_string(given_) + " is stored as number " +
                 std::to_string(*nextShown_) + ", and an index holds distances from -128 to 127 only (offset " +
                 std::to_string(unit.offset) + ")");
    }
    unit.temporalOffset = static_cast<int8_t>(temporalOffset);
    ++given_;
    nextShown_.reset();
    return unit;
}

bool AccessUnits::FillUntilShown() {
    while (!nextShown_ && !(nextShown_ = order_.Next())) {
        if (ended_) return false;
        ReadFrame();
        if (ended_) order_.End();
    }
    return true;
}

void AccessUnits::ReadFrame() {
    for (const uint64_t had = count_; count_ == had && !ended_;) {
        if (const auto at = NextStartCode()) {
            OnNal(*at);
        } else {
            OnEnd();
        }
    }
}

std::optional<size_t> AccessUnits::NextStartCode() {
    while (true) {
        const auto bytes = bytes_->AtHand();
        const size_t found = FindStartCode(bytes.subspan(searched_));
        if (found != kNotFound) return searched_ + found;
        searched_ = std::max(searched_, bytes.size() - std::min(bytes.size(), kStartCode));
        if (searched_ > kMostFrame && synchronized_) {
            FailAt(0, "a picture is longer than the " + std::to_string(kMostFrame) + " bytes that fit");
        }
        if (!synchronized_) LeaveOut(searched_);
        if (!bytes_->More()) return std::nullopt;
    }
}

std::span<const uint8_t> AccessUnits::NalAt(size_t at, size_t most) {
    const size_t begin = at + kStartCode;
    while (bytes_->AtHand().size() < begin + most && bytes_->More()) continue;
    const auto rest = bytes_->AtHand().subspan(begin);
    const auto nal = rest.first(std::min(rest.size(), most));
    return nal.first(std::min(FindStartCode(nal), nal.size()));
}

void AccessUnits::OnNal(size_t at) {
    const auto head = NalAt(at, 1);
    const uint32_t type = head.empty() ? 0U : head[0] % 32U;
    // Zeros in front of a start code are counted to it, although all but one trail the last NAL unit (B.1.2): no
    // picture ends in zeros then, and those that align it in a file can be told from its own bytes.
    size_t start = SizeWithoutZeros(bytes_->AtHand().first(at));
    if (!synchronized_) {
        start = std::max(start, at - std::min<size_t>(at, 1));  // but in front of the first one they are nobody's
        LeaveOut(start);
        at -= start;
        start = 0;
        synchronized_ = true;
    }
    searched_ = at + kStartCode;
    if (type == kSlice || type == kSliceOfIDR) {
        OnSlice(at, start);
    } else if (BeginsAccessUnit(type) && frame_ && !boundary_) {
        boundary_ = start;
    }
    delimiterMet_ = delimiterMet_ || type == kAccessUnitDelimiter;
    if (type == kSequenceSet || type == kPictureSet) {
        sets_.Take(NalAt(at, kMostParameterSet));
        parameterSetsMet_ = parameterSetsMet_ || type == kSequenceSet;
    }
}

void AccessUnits::OnSlice(size_t at, size_t start) {
    const auto nal = NalAt(at, kMostSliceHead);
    const auto slice = ParseSliceHeader(nal, sets_);
    if (!slice) {
        const bool cutShort = at + kStartCode + nal.size() == bytes_->AtHand().size();
        if (frame_ && !cutShort) FailAt(start, "a slice is malformed, or its parameter sets are missing");
        if (frame_) {
            boundary_ = boundary_.value_or(start);
        } else {  // nothing came yet that can be decoded
            LeaveOut(searched_);
            synchronized_ = false;
        }
        return;
    }
    if (slice->redundant) return;

    if (frame_ && (delimiterMet_ || !slice->SamePicture(frame_->last))) {
        if (!frame_->twoFields && slice->IsSecondFieldOf(frame_->first)) {
            frame_->twoFields = true;
            frame_->orderCount = std::min(frame_->orderCount, OrderCount(*slice, start));
        } else {
            EndFrame(boundary_.value_or(start));
        }
    }
    if (!frame_) frame_ = Frame{*slice, *slice, false, slice->type, OrderCount(*slice, 0), false};
    // The second field of a key frame may be predicted from the first.
    if (!frame_->twoFields) frame_->type = std::max(frame_->type, slice->type);
    frame_->last = *slice;
    frame_->hasParameterSets = frame_->hasParameterSets || parameterSetsMet_;
    parameterSetsMet_ = delimiterMet_ = false;
    boundary_.reset();
}

int64_t AccessUnits::OrderCount(const SliceHeader& slice, size_t at) {
    const SequenceParameterSet& sps = *sets_.SequenceOf(*sets_.Picture(slice.pictureSet));
    if (!format_) format_ = sps;
    if (sps.width != format_->width || sps.height != format_->height || sps.chromaFormat != format_->chromaFormat ||
        sps.bitDepth != format_->bitDepth) {
        FailAt(at, "the pictures are no longer of the format of the first");
    }
    if (sps.orderType != 0 && sps.orderType != 2) {
        FailAt(at, "its pictures are ordered by picture order count type " + std::to_string(sps.orderType) +
                       "; types 0 and 2 are known here");
    }
    return orderCount_.Next(slice, sps);
}

void AccessUnits::EndFrame(size_t end) {
    if (end > kMostFrame) {
        FailAt(0, "a picture is longer than the " + std::to_string(kMostFrame) + " bytes that fit");
    }
    const Frame frame = *std::exchange(frame_, std::nullopt);
    boundary_.reset();
    if (count_ == 0 && frame.type != PictureType::kI) {
        LeaveOut(end);
        return;
    }
    const bool newSequence = frame.first.idr || frame.first.endsOrder;
    if (count_ == 0) firstOrderCount_ = frame.orderCount;
    if (count_ != 0 && newSequence) firstSequence_ = false;
    if (frame.type == PictureType::kI) lastKeyFrame_ = count_;
    const auto keyFrameOffset = static_cast<int64_t>(lastKeyFrame_) - static_cast<int64_t>(count_);
    if (!FitsByte(keyFrameOffset)) {
        FailAt(0, "picture " + std::to_string(count_) + " is " + std::to_string(-keyFrameOffset) +
                      " behind the last I picture, and an index reaches back 128 only");
    }
    if (!order_.Add(frame.orderCount, newSequence)) {
        FailAt(0, "picture " + std::to_string(count_) +
                      " should be shown before one that is stored more than 16 before it");
    }

    AccessUnit unit;
    unit.offset = position_;
    unit.type = frame.type;
    unit.hasParameterSets = frame.hasParameterSets;
    unit.keyFrameOffset = static_cast<int8_t>(keyFrameOffset);
    // At the start, pictures shown before the first I picture lack the one that they follow in display order.
    unit.flags = Flags(frame.type, frame.hasParameterSets, firstSequence_ && frame.orderCount < firstOrderCount_);
    unit.piece = bytes_->Take(static_cast<uint32_t>(end));
    position_ += end;
    searched_ -= end;
    ++count_;
    stored_.push_back(std::move(unit));
}

void AccessUnits::OnEnd() {
    ended_ = true;
    if (frame_ && !interrupted)
        EndFrame(boundary_.value_or(SizeWithoutZeros(bytes_->AtHand())));  // else it is not whole
    const auto rest = bytes_->AtHand();
    if (count_ == 0) {
        LeaveOut(rest.size());
    } else if (SizeWithoutZeros(rest) != 0) {
        leftOutAtEnd_ = rest.size();
    }
}

void AccessUnits::LeaveOut(size_t count) {
    const auto bytes = bytes_->AtHand().first(count);
    // Zeros may stand in front of the first NAL unit (B.1.1).
    const bool zeros = std::all_of(bytes.begin(), bytes.end(), [](uint8_t byte) { return byte == 0; });
    bytes_->Skip(count);
    position_ += count;
    searched_ -= std::min(searched_, count);
    if (leftOutInFront_ != 0 || !zeros) leftOutInFront_ = position_;
}

}  // namespace kmxf::program
