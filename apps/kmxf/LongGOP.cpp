#include "LongGOP.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "ParameterSets.h"
#include "SliceHeader.h"
#include "kmxf/core/VideoStandard.h"

namespace kmxf::program {

namespace {

struct Look {
    std::optional<SequenceParameterSet> sps;  // the first
    uint64_t fields = 0;                      // pictures, a frame counted twice
};

Look LookAt(std::span<const uint8_t> head) {
    Look look;
    ParameterSets sets;
    for (size_t at = FindStartCode(head); at != kNotFound; at = FindStartCode(head)) {
        head = head.subspan(at + 3);
        const auto nal = head.first(std::min({FindStartCode(head), head.size(), kMostSliceHead}));
        if (nal.size() < 2) continue;
        const uint32_t type = nal[0] % 32U;
        if (!look.sps) look.sps = ParseSequenceParameterSet(nal);
        if (type == kSequenceSet || type == kPictureSet) sets.Take(nal);
        const bool firstSlice =
            (type == kSlice || type == kSliceOfIDR) && (nal[1] & 0x80) != 0;  // first_mb_in_slice is 0
        const auto slice = firstSlice ? ParseSliceHeader(nal, sets) : std::nullopt;
        if (slice) look.fields += slice->field ? 1U : 2U;
    }
    return look;
}

// The classes of 25 and 50 Mb/s are 4:2:2 of 10 bits, those of 6 and 12 are 4:2:0 of 8 bits.
bool SameSampling(const VideoFormat& format, const SequenceParameterSet& sps) {
    const bool high = GetAVCBitRate(format.compType) >= 25000000;
    return sps.chromaFormat == (high ? 2U : 1U) && sps.bitDepth == (high ? 10U : 8U);
}

bool SameRaster(const VideoFormat& format, const SequenceParameterSet& sps) {
    return format.Raster() == (sps.height == 1088 ? "1080" : std::to_string(sps.height));
}

bool SameRate(const VideoFormat& format, const SequenceParameterSet& sps) {
    const MXFRATIONALTag rate = GetVideoEditRate(format.videoStd);
    return sps.timeScale == 0 || uint64_t{sps.timeScale} * static_cast<uint32_t>(rate.denominator) ==
                                     2 * uint64_t{sps.unitsInTick} * static_cast<uint32_t>(rate.numerator);
}

// How far the bit rate of the stream is from that of the format, as a ratio.
double Distance(const VideoFormat& format, const Look& look, size_t size) {
    const MXFRATIONALTag rate = GetVideoEditRate(format.videoStd);
    const double framesPerSecond = static_cast<double>(rate.numerator) / rate.denominator;
    // At 50 frames and more, 1080 lines take twice the rate that the class is named for.
    const double named =
        GetAVCBitRate(format.compType) * (format.Raster() == "1080" && framesPerSecond > 40 ? 2.0 : 1.0);
    const double measured = static_cast<double>(size) * 16 * framesPerSecond / static_cast<double>(look.fields);
    const double actual = look.sps->bitRate != 0 ? static_cast<double>(look.sps->bitRate) : measured;
    return std::abs(std::log(actual / named));
}

}  // namespace

Candidates FindLongGOPFormats(std::span<const uint8_t> head, const std::optional<std::string>& codec) {
    const Look look = LookAt(head);
    if (!look.sps || look.sps->intraOnly || look.fields == 0) return {};
    const SequenceParameterSet& sps = *look.sps;
    std::vector<VideoFormat> fitting, likely;
    bool named = false;
    for (const VideoFormat& format : AllLongGOPFormats()) {
        named = named || codec == format.Codec();
        if (SameRaster(format, sps) && SameRate(format, sps)) fitting.push_back(format);
    }
    std::copy_if(fitting.begin(), fitting.end(), std::back_inserter(likely), [&](const VideoFormat& format) {
        return named ? codec == format.Codec() : SameSampling(format, sps);
    });
    if (likely.empty()) return {named ? likely : fitting, std::nullopt};

    Candidates found;
    for (const VideoFormat& format : likely) {
        const auto same = std::find_if(found.formats.begin(), found.formats.end(),
                                       [&](const VideoFormat& other) { return other.videoStd == format.videoStd; });
        if (same == found.formats.end()) {
            found.formats.push_back(format);
        } else if (Distance(format, look, head.size()) < Distance(*same, look, head.size())) {
            *same = format;
        }
    }
    for (const VideoFormat& format : found.formats) {
        // Progressive pictures may be shown as two fields, but that has to be said.
        if (sps.timeScale != 0 && IsProgressive(format.videoStd) != sps.interlaced) found.preferred = format;
    }
    return found;
}

}  // namespace kmxf::program
