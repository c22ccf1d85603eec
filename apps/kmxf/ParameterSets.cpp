#include "ParameterSets.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "collaborators/BitReader.h"

namespace kmxf::program {

namespace {

constexpr uint32_t kMostBlocks = 4096;  // in each direction

// Keeps what it reads.
class ValueReader {
public:
    ValueReader(BitReader& bits, std::vector<uint32_t>& values) : bits_(bits), values_(values) {}

    bool Ok() const { return bits_.Ok(); }
    bool Flag() { return Kept(bits_.U(1)) != 0; }
    uint32_t UE() { return Kept(bits_.UE()); }
    int32_t SE() { return static_cast<int32_t>(Kept(static_cast<uint32_t>(bits_.SE()))); }

private:
    uint32_t Kept(uint32_t value) { return values_.emplace_back(value); }

    BitReader& bits_;
    std::vector<uint32_t>& values_;
};

void ReadScalingLists(ValueReader& values, uint32_t count) {
    for (uint32_t list = 0; list < count && values.Ok(); ++list) {
        if (!values.Flag()) continue;
        int32_t last = 8, next = 8;
        for (int i = 0; i < (list < 6 ? 16 : 64) && values.Ok(); ++i) {
            if (next != 0) next = (last + values.SE() % 256 + 256) % 256;
            if (next != 0) last = next;
        }
    }
}

// The largest bit rate of the HRD parameters.
uint64_t ReadBitRate(BitReader& bits) {
    const uint32_t last = bits.UE();
    const uint32_t scale = bits.U(4);
    bits.Skip(4);  // cpb_size_scale
    uint64_t most = 0;
    for (uint32_t i = 0; i <= last && bits.Ok(); ++i) {
        most = std::max(most, (uint64_t{bits.UE()} + 1) << (6 + scale));
        bits.UE();     // cpb_size_value_minus1
        bits.Skip(1);  // cbr_flag
    }
    bits.Skip(20);  // lengths of delays and time offset
    return most;
}

void ReadUsability(BitReader& bits, SequenceParameterSet& sps) {
    if (bits.Flag() && bits.U(8) == 255) bits.Skip(32);  // aspect_ratio_info
    if (bits.Flag()) bits.Skip(1);                       // overscan_info
    if (bits.Flag()) {                                   // video_signal_type
        bits.Skip(4);
        if (bits.Flag()) bits.Skip(24);
    }
    if (bits.Flag()) {  // chroma_loc_info
        bits.UE();
        bits.UE();
    }
    if (bits.Flag()) {  // timing_info
        const uint32_t unitsInTick = bits.U(32), timeScale = bits.U(32);
        if (!bits.Ok()) return;
        sps.unitsInTick = unitsInTick;
        sps.timeScale = timeScale;
        bits.Skip(1);  // fixed_frame_rate_flag
    }
    uint64_t bitRate = 0;
    for (int kind = 0; kind < 2; ++kind) {  // of all NAL units, of the slices
        if (bits.Flag()) bitRate = std::max(bitRate, ReadBitRate(bits));
    }
    if (bits.Ok()) sps.bitRate = bitRate;
}

bool IsOneOf(uint8_t profile, std::initializer_list<uint8_t> profiles) {
    return std::find(profiles.begin(), profiles.end(), profile) != profiles.end();
}

}  // namespace

std::optional<SequenceParameterSet> ParseSequenceParameterSet(std::span<const uint8_t> nal) {
    const auto rbsp = WithoutEmulationPrevention(nal);
    BitReader bits(rbsp);
    if (bits.U(8) % 32 != kSequenceSet) return std::nullopt;
    SequenceParameterSet sps;
    sps.profile = static_cast<uint8_t>(bits.U(8));
    const uint32_t constraints = bits.U(8);
    sps.intraOnly = sps.profile == 44 || (IsOneOf(sps.profile, {110, 122, 244}) && (constraints & 0x10) != 0);
    sps.level = static_cast<uint8_t>(bits.U(8));

    ValueReader values(bits, sps.decodingValues);
    sps.id = values.UE();
    if (IsOneOf(sps.profile, {100, 110, 122, 244, 44, 83, 86, 118, 128, 138, 139, 134, 135})) {
        sps.chromaFormat = values.UE();
        if (sps.chromaFormat == 3) sps.separatePlanes = values.Flag();
        sps.bitDepth = 8 + std::min(values.UE(), 6U);
        values.UE();    // chroma bit depth
        values.Flag();  // transform bypass
        if (values.Flag()) ReadScalingLists(values, sps.chromaFormat == 3 ? 12 : 8);
    }
    sps.frameNumBits = 4 + std::min(values.UE(), 12U);
    sps.orderType = values.UE();
    if (sps.orderType == 0) {
        sps.orderLsbBits = 4 + std::min(values.UE(), 12U);
    } else if (sps.orderType == 1) {
        values.Flag();
        values.SE();
        values.SE();
        for (uint32_t n = std::min(values.UE(), 255U); n > 0; --n) values.SE();
    }
    values.UE();    // reference frames
    values.Flag();  // gaps allowed
    const uint64_t widthInBlocks = uint64_t{values.UE()} + 1;
    const uint64_t heightInUnits = uint64_t{values.UE()} + 1;
    const bool frameOnly = values.Flag();
    if (!frameOnly) values.Flag();  // adaptive frame/field
    values.Flag();                  // direct_8x8_inference
    uint64_t cropX = 0, cropY = 0;
    if (values.Flag()) {
        const uint64_t left = values.UE(), right = values.UE(), top = values.UE(), bottom = values.UE();
        cropX = (left + right) * (sps.chromaFormat == 1 || sps.chromaFormat == 2 ? 2 : 1);
        cropY = (top + bottom) * (sps.chromaFormat == 1 ? 2 : 1) * (frameOnly ? 1 : 2);
    }
    // cppcheck-suppress knownConditionTrueFalse ; two values, read one after the other
    if (!bits.Ok() || widthInBlocks > kMostBlocks || heightInUnits > kMostBlocks) return std::nullopt;

    const uint64_t width = widthInBlocks * 16, height = heightInUnits * 16 * (frameOnly ? 1 : 2);
    if (cropX >= width || cropY >= height) return std::nullopt;
    sps.width = static_cast<uint32_t>(width - cropX);
    sps.height = static_cast<uint32_t>(height - cropY);
    sps.interlaced = !frameOnly;
    if (bits.Flag()) ReadUsability(bits, sps);
    return sps;
}

std::optional<PictureParameterSet> ParsePictureParameterSet(std::span<const uint8_t> nal) {
    const auto rbsp = WithoutEmulationPrevention(nal);
    BitReader bits(rbsp);
    if (bits.U(8) % 32 != kPictureSet) return std::nullopt;
    PictureParameterSet pps;
    pps.id = bits.UE();
    pps.sequenceId = bits.UE();
    bits.Skip(1);  // entropy_coding_mode_flag
    pps.fieldOrderPresent = bits.Flag();
    if (bits.UE() != 0) return std::nullopt;  // slice groups
    for (uint32_t& count : pps.references) count = std::min(bits.UE(), 31U) + 1;
    pps.weightedPrediction = bits.Flag();
    pps.weightedBiprediction = bits.U(2);
    bits.SE();  // initial quantisers and chroma offset
    bits.SE();
    bits.SE();
    bits.Skip(2);  // deblocking_filter_control_present_flag, constrained_intra_pred_flag
    pps.redundantPresent = bits.Flag();
    if (!bits.Ok()) return std::nullopt;
    return pps;
}

void ParameterSets::Take(std::span<const uint8_t> nal) {
    if (auto sps = ParseSequenceParameterSet(nal)) sequences[sps->id % 32] = std::move(*sps);
    if (const auto pps = ParsePictureParameterSet(nal)) pictures[pps->id % 256] = *pps;
}

const PictureParameterSet* ParameterSets::Picture(uint32_t id) const {
    const auto found = pictures.find(id);
    return found == pictures.end() ? nullptr : &found->second;
}

const SequenceParameterSet* ParameterSets::SequenceOf(const PictureParameterSet& picture) const {
    const auto found = sequences.find(picture.sequenceId);
    return found == sequences.end() ? nullptr : &found->second;
}

size_t SizeWithoutZeros(std::span<const uint8_t> bytes) {
    size_t size = bytes.size();
    while (size > 0 && bytes[size - 1] == 0) --size;
    return size;
}

size_t FindStartCode(std::span<const uint8_t> bytes) {
    const uint8_t* at = bytes.data();
    const uint8_t* const end = at + bytes.size();
    while (end - at >= 3) {
        // Zeros are rare in coded pictures: whoever looks for them passes over most bytes.
        at = static_cast<const uint8_t*>(std::memchr(at, 0, static_cast<size_t>(end - at) - 2));
        if (at == nullptr) return kNotFound;
        if (at[1] != 0) {
            at += 2;
        } else if (at[2] == 1) {
            return static_cast<size_t>(at - bytes.data());
        } else {
            at += at[2] == 0 ? 1 : 3;
        }
    }
    return kNotFound;
}

std::span<const uint8_t> FindNal(std::span<const uint8_t> bytes, uint8_t type) {
    while (true) {
        const size_t at = FindStartCode(bytes);
        if (at == kNotFound || at + 3 == bytes.size()) return {};
        bytes = bytes.subspan(at + 3);
        if (bytes[0] % 32 != type) continue;
        auto nal = bytes.first(std::min(FindStartCode(bytes), bytes.size()));
        while (!nal.empty() && nal.back() == 0) nal = nal.first(nal.size() - 1);
        return nal;
    }
}

std::vector<uint8_t> WithoutEmulationPrevention(std::span<const uint8_t> nal) {
    std::vector<uint8_t> rbsp;
    rbsp.reserve(nal.size());
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

}  // namespace kmxf::program
