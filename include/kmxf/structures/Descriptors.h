#pragma once

#include <cstdint>

#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"
#include "kmxf/structures/MXFHeaderBase.h"

// The essence descriptors: header metadata sets that tell what kind of essence a file package stands for (SMPTE
// ST 377-1, annex E). Each is made with its key, a new InstanceUID and defaults for all its items. Setters and adders
// return 0 unless they say otherwise. Format codes are those of kmxf/core/VideoStandard.h.
namespace kmxf {

// The items that every descriptor below starts with; 0 by default.
class KMXF_API CFileDescriptor : public CMXFHeaderBase {
public:
    int32_t SetLinkedTrackID(uint32_t trackID);      // TrackID of the file package's track
    int32_t SetSampleRate(MXFRATIONALTag rate);      // the unit of the container duration
    int32_t SetContainerDuration(int64_t duration);  // samples at that rate
    int32_t SetEssenceContainer(MXFKEYTag label);

protected:
    explicit CFileDescriptor(const MXFKEYTag& key);
};

// CDCI Picture Essence Descriptor: DV, DV-based and AVC pictures.
class KMXF_API CCDCIEssenceDescriptor : public CFileDescriptor {
public:
    // The essence container is GetEssenceContainerLabel's for clip wrapping, zero for codes it does not know. The
    // picture values are those of SetVideoFormat; a format that it refuses leaves 720 x 240, separate fields, 4/3,
    // lines 23 and 285, 8 bits, subsampling 4 / 1, no coding and no rate.
    CCDCIEssenceDescriptor(uint32_t videoStd, uint32_t compType, bool consumerDV);

    // Sets coding, layout, size, aspect ratio, line map, depth, subsampling and sample rate for a DV, DV-based or AVC
    // Long-GOP format. `consumerDV` makes a difference to DV 25 Mb/s only. Returns 0, or kStatusInvalidArgument and
    // changes nothing: any other pair of codes. AVC-Intra pictures are described by their builder.
    int32_t SetVideoFormat(uint32_t videoStd, uint32_t compType, bool consumerDV);

    int32_t SetPictureEssenceCoding(MXFKEYTag label);
    int32_t SetFrameLayout(uint8_t layout);    // 0 full frame, 1 separate fields
    int32_t SetStoredWidth(uint32_t width);    // pixels
    int32_t SetStoredHeight(uint32_t height);  // lines, of a field when fields are separate
    int32_t SetAspectRatio(MXFRATIONALTag ratio);
    int32_t SetVideoLineMap(uint32_t first, uint32_t second);  // line on which each field begins
    int32_t SetComponentDepth(uint32_t bits);
    int32_t SetHorizontalSubsampling(uint32_t value);
    int32_t SetVerticalSubsampling(uint32_t value);
    // Appends the InstanceUID of a sub-descriptor; the set grows by 16 bytes.
    int32_t AddSubDescriptor(MXFKEYTag subDescriptor);

protected:
    CCDCIEssenceDescriptor(const MXFKEYTag& key, uint32_t videoStd, uint32_t compType, bool consumerDV);
};

// MPEG picture descriptor: the same items under a key of its own.
class KMXF_API CMPEGEssenceDescriptor : public CCDCIEssenceDescriptor {
public:
    CMPEGEssenceDescriptor(uint32_t videoStd, uint32_t compType);
};

// AES3 Audio Essence Descriptor (SMPTE ST 382): 48 kHz, 1 channel, 16 bits, uncompressed, clip-wrapped.
class KMXF_API CAESEssenceDescriptor : public CFileDescriptor {
public:
    CAESEssenceDescriptor();
    int32_t SetAudioSamplingRate(MXFRATIONALTag rate);  // Hz
    int32_t SetLocked(bool locked);                     // to video
    int32_t SetChannelCount(uint32_t count);
    int32_t SetQuantizationBits(uint32_t bits);  // per sample
    int32_t SetSoundEssenceCompression(MXFKEYTag label);
    int32_t SetBlockAlign(uint16_t bytes);  // per sample of all channels
    int32_t SetAverageBytesPerSecond(uint32_t bytes);
};

// ANC Data Descriptor (SMPTE ST 436-1).
class KMXF_API CDataEssenceDescriptor : public CFileDescriptor {
public:
    explicit CDataEssenceDescriptor(MXFRATIONALTag editRate);
};

// AVC Sub-Descriptor: what a decoder of ITU-T H.264 wants to know beforehand (SMPTE ST 381-3). Bit rates, profile,
// level and the structure of the sequence follow from the format. For a pair of codes that is neither an AVC-Intra nor
// an AVC Long-GOP format they are 25 Mb/s, profile 122, level 30 and the structure of Long-GOP.
class KMXF_API CH264EssenceSubDescriptor : public CMXFHeaderBase {
public:
    CH264EssenceSubDescriptor(uint32_t videoStd, uint32_t compType);
    int32_t SetConstantBPictureFlag(uint8_t value);
    int32_t SetCodedContentKind(uint8_t value);
    int32_t SetClosedGOPIndicator(uint8_t value);
    int32_t SetIdenticalGOPIndicator(uint8_t value);
    int32_t SetMaximumGOPSize(uint16_t pictures);  // 0: not known
    int32_t SetMaximumBPictureCount(uint16_t pictures);
    int32_t SetMaximumBitRate(uint32_t bitsPerSecond);
    int32_t SetProfile(uint8_t value);            // profile_idc
    int32_t SetProfileConstraint(uint8_t value);  // constraint flags, as in a sequence parameter set
    int32_t SetLevel(uint8_t value);              // level_idc
    int32_t SetDecodingDelay(uint8_t value);      // pictures
    int32_t SetMaximumReferenceFrames(uint8_t value);
    int32_t SetSequenceParameterSetFlag(uint8_t value);
    int32_t SetPictureParameterSetFlag(uint8_t value);
    int32_t SetAverageBitRate(uint32_t bitsPerSecond);
};

}  // namespace kmxf
