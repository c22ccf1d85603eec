#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <vector>

// What the parameter sets of an H.264 stream say (ITU-T H.264, 7.3.2.1, 7.3.2.2 and Annex E), and how NAL units are
// found in a byte stream (Annex B).
namespace kmxf::program {

// Types of NAL units (ITU-T H.264, table 7-1).
enum NalType : uint8_t { kSlice = 1, kSliceOfIDR = 5, kSequenceSet = 7, kPictureSet = 8, kAccessUnitDelimiter = 9 };

struct SequenceParameterSet {
    uint8_t profile = 0;
    bool intraOnly = false;  // constraint_set3_flag of the profiles that have an intra form
    uint8_t level = 0;
    uint32_t id = 0;
    uint32_t chromaFormat = 1;  // 1: 4:2:0, 2: 4:2:2, 3: 4:4:4
    bool separatePlanes = false;
    uint32_t bitDepth = 8;  // luma
    uint32_t frameNumBits = 0;
    uint32_t orderType = 0;     // pic_order_cnt_type
    uint32_t orderLsbBits = 0;  // type 0
    uint32_t width = 0;         // cropped, in pixels
    uint32_t height = 0;        // cropped, in lines
    bool interlaced = false;    // may hold fields: frame_mbs_only_flag is not set
    uint32_t timeScale = 0;     // 0: no timing information
    uint32_t unitsInTick = 0;
    uint64_t bitRate = 0;  // of the HRD parameters, in bits per second; 0: they are not there
    // The values that decide how pictures decode: everything but constraint flags, level and VUI.
    std::vector<uint32_t> decodingValues;
};

struct PictureParameterSet {
    uint32_t id = 0;
    uint32_t sequenceId = 0;
    bool fieldOrderPresent = false;  // bottom_field_pic_order_in_frame_present_flag
    uint32_t references[2] = {1, 1};
    bool weightedPrediction = false;
    uint32_t weightedBiprediction = 0;
    bool redundantPresent = false;
};

// `nal` is the NAL unit from its first byte (0x67, 0x68) on. Nothing when it is malformed, or a picture parameter set
// with slice groups.
std::optional<SequenceParameterSet> ParseSequenceParameterSet(std::span<const uint8_t> nal);
std::optional<PictureParameterSet> ParsePictureParameterSet(std::span<const uint8_t> nal);

// The parameter sets that hold at a place of a stream.
struct ParameterSets {
    std::map<uint32_t, SequenceParameterSet> sequences;
    std::map<uint32_t, PictureParameterSet> pictures;

    // Takes the NAL unit if it is a parameter set; one that is malformed is passed over.
    void Take(std::span<const uint8_t> nal);
    // Null when there is none.
    const PictureParameterSet* Picture(uint32_t id) const;
    const SequenceParameterSet* SequenceOf(const PictureParameterSet& picture) const;
};

inline constexpr size_t kNotFound = static_cast<size_t>(-1);

// Where the first start code (00 00 01) lies; kNotFound when there is none.
size_t FindStartCode(std::span<const uint8_t> bytes);

// The size of the bytes without the zeros at their end.
size_t SizeWithoutZeros(std::span<const uint8_t> bytes);

// The first NAL unit of a type in Annex B bytes, without its start code and trailing zeros; empty when there is none.
std::span<const uint8_t> FindNal(std::span<const uint8_t> bytes, uint8_t type);

// The bytes of a NAL unit without those that keep start codes from coming up in it (7.4.1).
std::vector<uint8_t> WithoutEmulationPrevention(std::span<const uint8_t> nal);

}  // namespace kmxf::program
