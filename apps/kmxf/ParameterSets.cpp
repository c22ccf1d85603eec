#include "ParameterSets.h"

#include <algorithm>

namespace kmxf::program {

namespace {

// Bits of an RBSP, most significant first; past the end it yields zeros and is no longer good.
class BitReader {
public:
    explicit BitReader(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {}

    bool Good() const { return good_; }
    size_t Position() const { return position_; }
    bool BitAt(size_t at) const { return (bytes_[at / 8] >> (7 - at % 8) & 1) != 0; }

    uint32_t Bits(uint32_t count) {
        uint32_t value = 0;
        for (uint32_t i = 0; i < count; ++i) {
            if (position_ >= bytes_.size() * 8) {
                good_ = false;
                return 0;
            }
            value = value << 1 | (BitAt(position_++) ? 1U : 0U);
        }
        return value;
    }
    bool Flag() { return Bits(1) != 0; }
    uint32_t Exp() {  // ue(v)
        uint32_t zeros = 0;
        while (good_ && zeros < 32 && Bits(1) == 0) ++zeros;
        if (zeros >= 32) good_ = false;
        return good_ ? (uint32_t{1} << zeros) - 1 + Bits(zeros) : 0;
    }
    int32_t SignedExp() {  // se(v)
        const uint32_t k = Exp();
        return k % 2 == 1 ? static_cast<int32_t>(k / 2 + 1) : -static_cast<int32_t>(k / 2);
    }

private:
    std::vector<uint8_t> bytes_;
    size_t position_ = 0;
    bool good_ = true;
};

std::vector<uint8_t> WithoutEmulationPrevention(std::span<const uint8_t> nal) {
    std::vector<uint8_t> rbsp;
    size_t zeros = 0;
    for (const uint8_t byte : nal) {
        if (zeros >= 2 && byte == 3) {
            zeros = 0;
            continue;
        }
        zeros = byte == 0 ? zeros + 1 : 0;
        rbsp.push_back(byte);
    }
    return rbsp;
}

void SkipScalingLists(BitReader& bits, uint32_t count) {
    for (uint32_t list = 0; list < count && bits.Good(); ++list) {
        if (!bits.Flag()) continue;
        int32_t last = 8, next = 8;
        for (int i = 0; i < (list < 6 ? 16 : 64) && bits.Good(); ++i) {
            if (next != 0) next = (last + bits.SignedExp() + 256) % 256;
            if (next != 0) last = next;
        }
    }
}

void ReadTiming(BitReader& bits, SequenceParameterSet& sps) {
    if (bits.Flag() && bits.Bits(8) == 255) bits.Bits(32);  // aspect_ratio_info
    if (bits.Flag()) bits.Flag();                           // overscan_info
    if (bits.Flag()) {                                      // video_signal_type
        bits.Bits(4);
        if (bits.Flag()) bits.Bits(24);
    }
    if (bits.Flag()) {  // chroma_loc_info
        bits.Exp();
        bits.Exp();
    }
    if (bits.Flag()) {  // timing_info
        sps.unitsInTick = bits.Bits(32);
        sps.timeScale = bits.Bits(32);
    }
    if (!bits.Good()) sps.unitsInTick = sps.timeScale = 0;
}

}  // namespace

std::optional<SequenceParameterSet> ParseSequenceParameterSet(std::span<const uint8_t> nal) {
    BitReader bits(WithoutEmulationPrevention(nal));
    if (bits.Bits(8) % 32 != 7) return std::nullopt;
    SequenceParameterSet sps;
    sps.profile = static_cast<uint8_t>(bits.Bits(8));
    bits.Bits(8);  // constraint flags
    sps.level = static_cast<uint8_t>(bits.Bits(8));
    const size_t decodingStart = bits.Position();
    bits.Exp();  // seq_parameter_set_id
    uint32_t chroma = 1;
    static constexpr uint8_t kHighProfiles[] = {100, 110, 122, 244, 44, 83, 86, 118, 128};
    if (std::find(std::begin(kHighProfiles), std::end(kHighProfiles), sps.profile) != std::end(kHighProfiles)) {
        chroma = bits.Exp();
        if (chroma == 3) bits.Flag();
        bits.Exp();   // luma bit depth
        bits.Exp();   // chroma bit depth
        bits.Flag();  // transform bypass
        if (bits.Flag()) SkipScalingLists(bits, chroma == 3 ? 12 : 8);
    }
    bits.Exp();  // log2_max_frame_num
    const uint32_t orderType = bits.Exp();
    if (orderType == 0) {
        bits.Exp();
    } else if (orderType == 1) {
        bits.Flag();
        bits.SignedExp();
        bits.SignedExp();
        for (uint32_t n = std::min<uint32_t>(bits.Exp(), 255); n > 0; --n) bits.SignedExp();
    }
    bits.Exp();   // reference frames
    bits.Flag();  // gaps allowed
    const uint64_t widthInBlocks = uint64_t{bits.Exp()} + 1;
    const uint64_t heightInUnits = uint64_t{bits.Exp()} + 1;
    const bool frameOnly = bits.Flag();
    if (!frameOnly) bits.Flag();  // adaptive frame/field
    bits.Flag();                  // direct_8x8_inference
    uint64_t cropX = 0, cropY = 0;
    if (bits.Flag()) {
        const uint64_t left = bits.Exp(), right = bits.Exp(), top = bits.Exp(), bottom = bits.Exp();
        cropX = (left + right) * (chroma == 1 || chroma == 2 ? 2 : 1);
        cropY = (top + bottom) * (chroma == 1 ? 2 : 1) * (frameOnly ? 1 : 2);
    }
    if (!bits.Good() || widthInBlocks > 4096 || heightInUnits > 4096) return std::nullopt;
    for (size_t at = decodingStart; at < bits.Position(); ++at) sps.decodingBits.push_back(bits.BitAt(at));

    const uint64_t width = widthInBlocks * 16, height = heightInUnits * 16 * (frameOnly ? 1 : 2);
    if (cropX >= width || cropY >= height) return std::nullopt;
    sps.width = static_cast<uint32_t>(width - cropX);
    sps.height = static_cast<uint32_t>(height - cropY);
    sps.interlaced = !frameOnly;
    if (bits.Flag()) ReadTiming(bits, sps);
    return sps;
}

std::span<const uint8_t> FindNal(std::span<const uint8_t> bytes, uint8_t type) {
    static constexpr uint8_t kStartCode[] = {0, 0, 1};
    auto at = bytes.begin();
    while (true) {
        at = std::search(at, bytes.end(), std::begin(kStartCode), std::end(kStartCode));
        if (at == bytes.end()) return {};
        at += 3;
        if (at == bytes.end()) return {};
        auto end = std::search(at, bytes.end(), std::begin(kStartCode), std::end(kStartCode));
        if (*at % 32 == type) {
            while (end != at && *(end - 1) == 0) --end;
            return {at, end};
        }
        at = end;
    }
}

}  // namespace kmxf::program
