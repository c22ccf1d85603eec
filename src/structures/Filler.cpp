#include "kmxf/structures/Filler.h"

#include "core/HandOut.h"
#include "core/KLVPacket.h"
#include "core/Labels.h"

namespace kmxf {

namespace {

constexpr uint32_t kMostZeros = 0xFFFFFF;  // what the 3 bytes of length can say

}  // namespace

CFiller::CFiller() : CMXFHeaderBase(kFillKey) { StoreLength(kKLVHeadSize); }

int32_t CFiller::SetLength(uint32_t length) {
    StoreLength(length);
    return kStatusOk;
}

int32_t CFiller::GetData(uint8_t** data) {
    const uint32_t length = GetLength();
    if (length < kKLVHeadSize || length - kKLVHeadSize > kMostZeros) return kStatusInvalidArgument;
    return HandOut(length, data, [&](ByteWriter& writer) {
        WriteKLVHead(writer, GetKey(), length);
        writer.Zeros(writer.Remaining());
    });
}

}  // namespace kmxf
