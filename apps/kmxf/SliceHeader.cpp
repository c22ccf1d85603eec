#include "SliceHeader.h"

#include <algorithm>

#include "collaborators/BitReader.h"

namespace kmxf::program {

namespace {

constexpr size_t kUsualHead = 48;  // of a slice without prediction weights
constexpr uint32_t kMostReferences = 32;

void SkipListModification(BitReader& bits) {
    if (!bits.Flag()) return;
    while (bits.Ok() && bits.UE() != 3) bits.UE();
}

void SkipWeights(BitReader& bits, bool chroma, const uint32_t (&references)[2], int lists) {
    bits.UE();  // denominators
    if (chroma) bits.UE();
    for (int list = 0; list < lists; ++list) {
        for (uint32_t i = 0; i < references[list] && bits.Ok(); ++i) {
            for (const int count : {2, 4}) {  // weights and offsets of luma, of both chroma components
                if (count == 4 && !chroma) continue;
                if (!bits.Flag()) continue;
                for (int n = 0; n < count; ++n) bits.SE();
            }
        }
    }
}

// Whether one of the operations is number 5.
bool ReadMemoryManagement(BitReader& bits) {
    if (!bits.Flag()) return false;
    bool five = false;
    while (bits.Ok()) {
        const uint32_t operation = bits.UE();
        if (operation == 0) break;
        five = five || operation == 5;
        if (operation != 5) bits.UE();
        if (operation == 3) bits.UE();
    }
    return five;
}

std::optional<SliceHeader> Parse(std::span<const uint8_t> nal, const ParameterSets& sets) {
    const auto rbsp = WithoutEmulationPrevention(nal);
    BitReader bits(rbsp);
    const uint32_t nalHead = bits.U(8);
    SliceHeader slice;
    slice.reference = (nalHead >> 5 & 3) != 0;
    slice.idr = nalHead % 32 == kSliceOfIDR;
    bits.UE();  // first_mb_in_slice
    const uint32_t type = bits.UE();
    if (!bits.Ok() || type > 9) return std::nullopt;
    static constexpr PictureType kTypes[] = {PictureType::kP, PictureType::kB, PictureType::kI, PictureType::kP,
                                             PictureType::kI};  // the last two are SP and SI
    slice.type = kTypes[type % 5];
    slice.pictureSet = bits.UE();
    const PictureParameterSet* const pps = sets.Picture(slice.pictureSet);
    const SequenceParameterSet* const sps = pps == nullptr ? nullptr : sets.SequenceOf(*pps);
    if (sps == nullptr) return std::nullopt;

    if (sps->separatePlanes) bits.Skip(2);
    slice.frameNum = bits.U(sps->frameNumBits);
    if (sps->interlaced) slice.field = bits.Flag();
    if (slice.field) slice.bottom = bits.Flag();
    if (slice.idr) slice.idrId = bits.UE();
    if (sps->orderType == 0) {
        slice.orderLsb = bits.U(sps->orderLsbBits);
        if (pps->fieldOrderPresent && !slice.field) slice.orderDeltaBottom = bits.SE();
    }
    if (pps->redundantPresent) slice.redundant = bits.UE() != 0;
    if (sps->orderType == 1 || !slice.reference || slice.idr) {
        return bits.Ok() ? std::optional(slice) : std::nullopt;  // the rest tells nothing more
    }

    const bool predicted = slice.type != PictureType::kI;
    const bool bipredicted = slice.type == PictureType::kB;
    const int lists = bipredicted ? 2 : predicted ? 1 : 0;
    uint32_t references[2] = {pps->references[0], pps->references[1]};
    if (bipredicted) bits.Skip(1);  // direct_spatial_mv_pred_flag
    if (predicted && bits.Flag()) {
        for (int list = 0; list < lists; ++list) references[list] = std::min(bits.UE(), kMostReferences - 1) + 1;
    }
    for (int list = 0; list < lists; ++list) SkipListModification(bits);
    if ((predicted && !bipredicted && pps->weightedPrediction) || (bipredicted && pps->weightedBiprediction == 1)) {
        SkipWeights(bits, sps->chromaFormat != 0 && !sps->separatePlanes, references, lists);
    }
    slice.endsOrder = ReadMemoryManagement(bits);
    return bits.Ok() ? std::optional(slice) : std::nullopt;
}

}  // namespace

bool SliceHeader::SamePicture(const SliceHeader& other) const {
    return pictureSet == other.pictureSet && frameNum == other.frameNum && field == other.field &&
           bottom == other.bottom && reference == other.reference && idr == other.idr && idrId == other.idrId &&
           orderLsb == other.orderLsb && orderDeltaBottom == other.orderDeltaBottom;
}

bool SliceHeader::IsSecondFieldOf(const SliceHeader& first) const {
    return field && first.field && bottom != first.bottom && frameNum == first.frameNum && !idr && !endsOrder;
}

std::optional<SliceHeader> ParseSliceHeader(std::span<const uint8_t> nal, const ParameterSets& sets) {
    if (nal.size() > kUsualHead) {
        if (const auto slice = Parse(nal.first(kUsualHead), sets)) return slice;
    }
    return Parse(nal.first(std::min(nal.size(), kMostSliceHead)), sets);
}

}  // namespace kmxf::program
