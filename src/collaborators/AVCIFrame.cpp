#include <algorithm>

#include "collaborators/SEI.h"
#include "kmxf/collaborators/VideoFrame.h"

namespace kmxf {

CAVCIFrame::CAVCIFrame() = default;
CAVCIFrame::~CAVCIFrame() = default;

int32_t CAVCIFrame::SetFrameData(const uint8_t* data) { return SetSEIData(data, kSEIAreaSize); }

int32_t CAVCIFrame::SetFrameData(const uint8_t* data, uint32_t size) {
    return SetSEIData(data, std::min(size, kSEIAreaSize));
}

int32_t CAVCIFrame::SetSEIData(const uint8_t* data) { return SetSEIData(data, kSEIAreaSize); }

int32_t CAVCIFrame::SetSEIData(const uint8_t* data, uint32_t size) {
    if (data == nullptr) return kStatusInvalidArgument;
    data_ = data;
    size_ = size;
    return kStatusOk;
}

int32_t CAVCIFrame::GetTimecode(uint8_t* timecode, eSEIDataType type) const {
    return GiveOut(FindSEITimecode({data_, size_}, type), timecode);
}

int32_t CAVCIFrame::GetUsersBit(uint8_t* usersBit, eSEIDataType type) const {
    return GiveOut(FindSEIUsersBit({data_, size_}, type), usersBit);
}

int32_t CAVCIFrame::GetUMID(uint8_t* umid) const { return GiveOut(FindSEIUMID({data_, size_}), umid); }

}  // namespace kmxf
