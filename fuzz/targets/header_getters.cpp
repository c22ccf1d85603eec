// The exported functions that take a header of 131072 bytes, and the change of its duration.
#include <algorithm>
#include <vector>

#include "kmxf/reader/ReadMXFHeader.h"
#include "kmxf/tools/ModifyMXFHeaderData.h"
#include "support/Target.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    std::vector<uint8_t> header(131072);
    std::copy_n(input.begin(), std::min(input.size(), header.size()), header.begin());
    const uint8_t* const bytes = header.data();
    GetOperationPattern(bytes);
    GetVideoStandardFromHeader(bytes);
    GetCompTypeLongGFromHeader(bytes);
    GetSampleNumFromHeader(bytes);
    GetSamplingRateFromHeader(bytes);
    GetBytesPerSampleFromHeader(bytes);
    GetStartTimecodeFromHeader(bytes);
    GetRoundedTCBaseFromHeader(bytes);
    GetDropFlagFromHeader(bytes);
    GetMaterialUIDFromHeader(bytes);
    std::vector<uint8_t> area(bytes, bytes + 32768);
    ModifyFilePackageDuration(area.data(), 0xFFFFFFFF);
}

}  // namespace kmxf::fuzz
