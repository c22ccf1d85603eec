#include "collaborators/PicTiming.h"
#include "collaborators/SEI.h"
#include "kmxf/collaborators/VideoFrame.h"

namespace kmxf {

namespace {

std::optional<PackData> FindClockTimestamp(std::span<const uint8_t> area, const PicTimingLayout& layout,
                                           int32_t number) {
    for (const SEIMessage& message : ReadSEIMessages(area))
        if (message.type == kSEIPicTiming && message.whole) return ReadClockTimestamp(message.payload, layout, number);
    return {};
}

}  // namespace

CAVCSEIData::CAVCSEIData() : layout_(std::make_unique<PicTimingLayout>()) {}
CAVCSEIData::~CAVCSEIData() = default;

int32_t CAVCSEIData::SetSEIData(const uint8_t* data, bool reserved) { return SetSEIData(data, kSEIAreaSize, reserved); }

int32_t CAVCSEIData::SetSEIData(const uint8_t* data, uint32_t size, bool /*reserved*/) {
    if (data == nullptr) return kStatusInvalidArgument;
    data_ = data;
    size_ = size;
    if (const auto layout = FindPicTimingLayout({data, size})) layout_ = std::make_unique<PicTimingLayout>(*layout);
    return kStatusOk;
}

int32_t CAVCSEIData::GetTimecode(uint8_t* timecode, eSEIDataType type) const {
    const std::span<const uint8_t> area(data_, size_);
    const auto packed = FindSEITimecode(area, type);
    return GiveOut(packed ? packed : FindClockTimestamp(area, *layout_, type), timecode);
}

int32_t CAVCSEIData::GetUsersBit(uint8_t* usersBit, eSEIDataType type) const {
    return GiveOut(FindSEIUsersBit({data_, size_}, type), usersBit);
}

int32_t CAVCSEIData::GetUMID(uint8_t* umid) const { return GiveOut(FindSEIUMID({data_, size_}), umid); }

}  // namespace kmxf
