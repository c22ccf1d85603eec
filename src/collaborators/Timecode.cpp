#include "kmxf/collaborators/Timecode.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <optional>

#include "kmxf/core/Status.h"

namespace kmxf {

namespace {

struct Label {
    uint32_t hours, minutes, seconds, frames;
};

// How labels are given to frames: so many a second, and so many left out at the start of every minute but each tenth.
struct Counting {
    uint32_t rate;
    uint32_t dropped;

    uint32_t FramesPer(uint32_t minutes) const { return 60 * rate * minutes - dropped * (minutes - minutes / 10); }
    uint32_t FramesPerDay() const { return FramesPer(24 * 60); }

    bool Has(const Label& label) const {
        return label.hours < 24 && label.minutes < 60 && label.seconds < 60 && label.frames < rate;
    }
    // A label that is left out comes out as one of the minute before.
    uint32_t ToCount(const Label& label) const {
        return FramesPer(60 * label.hours + label.minutes) + rate * label.seconds + label.frames;
    }
    Label ToLabel(uint32_t count) const {
        // Ten minutes have one whole minute and nine that are short.
        // NOLINTNEXTLINE(clang-analyzer-core.DivideZero): no rate of the table is 0, nor wraps
        const uint32_t tens = count / FramesPer(10), rest = count % FramesPer(10);
        const uint32_t whole = 60 * rate;
        const uint32_t shortMinutes = rest < whole ? 0 : 1 + (rest - whole) / (whole - dropped);
        const uint32_t number = count + dropped * (9 * tens + shortMinutes);  // labels up to here, left out or not
        return {number / (3600 * rate), number / (60 * rate) % 60, number / rate % 60, number % rate};
    }
};

// The rate is the nominal one, as labels are whole: 30 for 30000/1001. Only counting by 30 leaves labels out. Rate 0:
// not a video standard.
Counting CountingOf(uint32_t videoStd, bool drop) {
    const auto [numerator, denominator] = GetTimecodeEditRate(videoStd);
    if (denominator == 0) return {0, 0};
    const auto rate = static_cast<uint32_t>((numerator + denominator - 1) / denominator);
    return {rate, drop && rate == 30 ? 2u : 0u};
}

constexpr uint8_t kDropFlag = 0x40;
// The bits of frames, seconds, minutes and hours that are digits.
constexpr std::array<uint8_t, 4> kDigits = {0x3F, 0x7F, 0x7F, 0x3F};

std::optional<uint32_t> FromBCD(uint8_t byte) {
    const uint32_t tens = byte >> 4, units = byte & 0x0F;
    if (tens > 9 || units > 9) return {};
    return 10 * tens + units;
}
uint8_t ToBCD(uint32_t value) { return static_cast<uint8_t>(value / 10 << 4 | value % 10); }

}  // namespace

CTimecode::CTimecode() = default;
CTimecode::CTimecode(uint32_t totalFrames, bool dropFrame) : total_(totalFrames), drop_(dropFrame) {}
CTimecode::~CTimecode() = default;

int32_t CTimecode::SetVideoStd(uint32_t videoStd) {
    if (CountingOf(videoStd, false).rate == 0) return kStatusInvalidArgument;
    videoStd_ = videoStd;
    return kStatusOk;
}

uint32_t CTimecode::GetVideoStd() const { return videoStd_; }

int32_t CTimecode::SetData(const uint8_t* data) {
    if (data == nullptr) return kStatusInvalidArgument;
    std::array<uint32_t, 4> values;
    for (size_t i = 0; i < values.size(); ++i) {
        const auto value = FromBCD(data[i] & kDigits[i]);
        if (!value) return kStatusInvalidArgument;
        values[i] = *value;
    }
    const bool drop = (data[0] & kDropFlag) != 0;
    const Counting counting = CountingOf(videoStd_, drop);
    const Label label{values[3], values[2], values[1], values[0]};
    if (!counting.Has(label)) return kStatusInvalidArgument;
    total_ = counting.ToCount(label);
    drop_ = drop;
    return kStatusOk;
}

int32_t CTimecode::GetData(uint8_t* data) const {
    if (data == nullptr) return kStatusInvalidArgument;
    const Label label = CountingOf(videoStd_, drop_).ToLabel(GetTotalFrame());
    data[0] = static_cast<uint8_t>(ToBCD(label.frames) | (drop_ ? kDropFlag : 0));
    data[1] = ToBCD(label.seconds);
    data[2] = ToBCD(label.minutes);
    data[3] = ToBCD(label.hours);
    return kStatusOk;
}

int32_t CTimecode::SetTotalFrame(uint32_t totalFrames) {
    total_ = totalFrames;
    return kStatusOk;
}

// NOLINTNEXTLINE(clang-analyzer-core.DivideZero): as above
uint32_t CTimecode::GetTotalFrame() const { return total_ % CountingOf(videoStd_, drop_).FramesPerDay(); }

int32_t CTimecode::SetDropFlag(uint8_t dropFlag, bool keepText) {
    const bool drop = dropFlag != 0;
    if (keepText) {
        const Label label = CountingOf(videoStd_, drop_).ToLabel(GetTotalFrame());
        total_ = CountingOf(videoStd_, drop).ToCount(label);
    }
    drop_ = drop;
    return kStatusOk;
}

bool CTimecode::IsDrop() const { return drop_; }

std::string CTimecode::GetText() const {
    const Label label = CountingOf(videoStd_, drop_).ToLabel(GetTotalFrame());
    char text[64];
    std::snprintf(text, sizeof text, "%02u:%02u:%02u%c%02u", label.hours, label.minutes, label.seconds,
                  drop_ ? ';' : ':', label.frames);
    return text;
}

int32_t CTimecode::SetText(const std::string& text) {
    CTimecode parsed(*this);
    Label label;
    char separator;
    if (std::sscanf(text.c_str(), "%2u:%2u:%2u%c%2u", &label.hours, &label.minutes, &label.seconds, &separator,
                    &label.frames) != 5) {
        return kStatusInvalidArgument;
    }
    parsed.drop_ = separator == ';';
    parsed.total_ = CountingOf(videoStd_, parsed.drop_).ToCount(label);
    // What does not come out again was not such a text, or no label of this rate.
    if (parsed.GetText() != text) return kStatusInvalidArgument;
    *this = parsed;
    return kStatusOk;
}

CUsersBit::CUsersBit() = default;
CUsersBit::~CUsersBit() = default;

int32_t CUsersBit::SetData(const uint8_t* data) {
    if (data == nullptr) return kStatusInvalidArgument;
    std::memcpy(data_, data, sizeof data_);
    return kStatusOk;
}

int32_t CUsersBit::GetData(uint8_t* data) const {
    if (data == nullptr) return kStatusInvalidArgument;
    std::memcpy(data, data_, sizeof data_);
    return kStatusOk;
}

}  // namespace kmxf
