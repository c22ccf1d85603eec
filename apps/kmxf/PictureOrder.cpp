#include "PictureOrder.h"

#include <algorithm>

namespace kmxf::program {

namespace {

constexpr size_t kMostWaiting = 16;  // ITU-T H.264, A.3.1: MaxDpbFrames

}  // namespace

int64_t PictureOrderCount::Next(const SliceHeader& slice, const SequenceParameterSet& sps) {
    const int64_t count = sps.orderType == 0 ? NextOfType0(slice, sps) : NextOfType2(slice, sps);
    return slice.endsOrder ? 0 : count;
}

int64_t PictureOrderCount::NextOfType0(const SliceHeader& slice, const SequenceParameterSet& sps) {
    if (slice.idr) msb_ = lsb_ = 0;
    const int64_t range = int64_t{1} << sps.orderLsbBits;
    const auto lsb = static_cast<int64_t>(slice.orderLsb);
    int64_t msb = msb_;
    if (lsb < lsb_ && lsb_ - lsb >= range / 2) {
        msb += range;
    } else if (lsb > lsb_ && lsb - lsb_ > range / 2) {
        msb -= range;
    }
    const int64_t earlier = std::min<int64_t>(slice.orderDeltaBottom, 0);
    if (slice.endsOrder) {  // the counts of the picture itself are taken down by that of its earlier field
        msb_ = 0;
        lsb_ = -earlier;
    } else if (slice.reference) {
        msb_ = msb;
        lsb_ = lsb;
    }
    return msb + lsb + earlier;
}

int64_t PictureOrderCount::NextOfType2(const SliceHeader& slice, const SequenceParameterSet& sps) {
    if (slice.idr) {
        frameBase_ = 0;
    } else if (frameNum_ > slice.frameNum) {
        frameBase_ += int64_t{1} << sps.frameNumBits;
    }
    frameNum_ = slice.frameNum;
    const int64_t count = 2 * (frameBase_ + frameNum_) - (slice.reference ? 0 : 1);
    if (slice.endsOrder) frameBase_ = frameNum_ = 0;
    return count;
}

bool DisplayOrder::Add(int64_t orderCount, bool first) {
    if (first) End();
    if (lastShown_ && orderCount < *lastShown_) return false;
    const auto place = std::find_if(waiting_.begin(), waiting_.end(),
                                    [&](const Waiting& each) { return each.orderCount <= orderCount; });
    waiting_.insert(place, {orderCount, count_++});
    if (waiting_.size() > kMostWaiting) Show();
    return true;
}

void DisplayOrder::End() {
    while (!waiting_.empty()) Show();
    lastShown_.reset();
}

void DisplayOrder::Show() {
    lastShown_ = waiting_.back().orderCount;
    shown_.push_back(waiting_.back().stored);
    waiting_.pop_back();
}

std::optional<uint64_t> DisplayOrder::Next() {
    if (shown_.empty()) return std::nullopt;
    const uint64_t stored = shown_.front();
    shown_.pop_front();
    return stored;
}

}  // namespace kmxf::program
