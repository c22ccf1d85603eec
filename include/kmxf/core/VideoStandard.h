#pragma once

#include <cstdint>

#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"

// Picture formats are named by two codes: the video standard gives rate and scan, the compression type gives the codec
// and with it the raster. The functions here answer what follows from the codes. They are pure; an unknown code gives
// the result stated, and nothing is logged.
namespace kmxf {

// Video standard. The high byte is 01 for interlaced and 02 for progressive pictures; it says nothing of lines.
using VideoStd = uint32_t;
inline constexpr VideoStd VIDEO_STD_59_94I = 0x0100007C;
inline constexpr VideoStd VIDEO_STD_50I = 0x010000B2;
inline constexpr VideoStd VIDEO_STD_23_98P = 0x02000058;
inline constexpr VideoStd VIDEO_STD_29_97P = 0x0200005E;
inline constexpr VideoStd VIDEO_STD_59_94P = 0x0200007C;
inline constexpr VideoStd VIDEO_STD_25P = 0x02000099;
inline constexpr VideoStd VIDEO_STD_50P = 0x020000B2;

// Compression type. H.264 has both bits of 0xC000; in Long-GOP types the high byte is the rate in Mbit/s.
using CompType = uint32_t;
inline constexpr CompType COMP_TYPE_DV25 = 0x0400;         // DV 25 Mbit/s, 525 or 625 lines
inline constexpr CompType COMP_TYPE_DV50 = 0x4800;         // DV-based 50 Mbit/s, 525 or 625 lines
inline constexpr CompType COMP_TYPE_DV100_1080I = 0x4D00;  // DV-based 100 Mbit/s
inline constexpr CompType COMP_TYPE_DV100_720P = 0x4E00;
inline constexpr CompType COMP_TYPE_AVCI50_1080 = 0xC900;  // AVC-Intra, class 50 (SMPTE RP 2027)
inline constexpr CompType COMP_TYPE_AVCI50_720 = 0xCA00;
inline constexpr CompType COMP_TYPE_AVCI100_1080 = 0xCD00;  // class 100
inline constexpr CompType COMP_TYPE_AVCI100_720 = 0xCE00;
inline constexpr CompType COMP_TYPE_AVCI200_1080 = 0xD100;  // class 200
inline constexpr CompType COMP_TYPE_AVCI200_720 = 0xD200;
inline constexpr CompType COMP_TYPE_LONGG6_1080 = 0x0400C100;  // AVC Long-GOP 6 Mbit/s
inline constexpr CompType COMP_TYPE_LONGG6_720 = 0x0400C200;
inline constexpr CompType COMP_TYPE_LONGG12_1080 = 0x0C00C100;  // 12 Mbit/s
inline constexpr CompType COMP_TYPE_LONGG12_720 = 0x0C00C200;
inline constexpr CompType COMP_TYPE_LONGG25_1080 = 0x1000C100;  // 25 Mbit/s
inline constexpr CompType COMP_TYPE_LONGG25_720 = 0x1000C200;
inline constexpr CompType COMP_TYPE_LONGG50_1080 = 0x2000C100;  // 50 Mbit/s
inline constexpr CompType COMP_TYPE_LONGG50_720 = 0x2000C200;

// Track codes: the first of each kind. Add 0x100 for each further picture track and 1 for each further sound track.
inline constexpr uint32_t kTrackCodeTimecode = 0x31000;
inline constexpr uint32_t kTrackCodePicture = 0x30100;
inline constexpr uint32_t kTrackCodeSound = 0x30001;
inline constexpr uint32_t kTrackCodeData = 0x32000;

// What an OP-Atom file holds.
inline constexpr uint32_t kFileTypeUnknown = 0x20000;
inline constexpr uint32_t kFileTypeVideo = 0x20001;
inline constexpr uint32_t kFileTypeAudio = 0x20002;

// Bytes of one frame; 0 for formats that do not exist and for Long-GOP, whose frames have no fixed size.
KMXF_API uint32_t GetFrameDataSize(uint32_t videoStd, uint32_t compType);

// Whole frames in `dataSize` bytes of video essence, the 512-byte header of AVC-Intra included or not; 0 when
// GetFrameDataSize is 0. Progressive DV counts in pairs: one DIF unit holds two frames, a last odd one is left out.
KMXF_API uint32_t DataSizeToDuration(int64_t dataSize, uint32_t videoStd, uint32_t compType);

// Frames per second; 0/0 for an unknown standard.
KMXF_API MXFRATIONALTag GetVideoEditRate(uint32_t videoStd);

// Timecode frames per second (SMPTE ST 12-1), half the frame rate at 59.94p and 50p; 0/0 for an unknown standard.
KMXF_API MXFRATIONALTag GetTimecodeEditRate(uint32_t videoStd);

// Samples per second of a sampling rate in Hz: 96000/1 for 96000, 48000/1 for every other.
KMXF_API MXFRATIONALTag GetAudioEditRate(uint32_t samplingRate);

// The code itself when it is one of the seven standards, otherwise 0xFFFFFFFF: to be asked before a timecode is given
// the standard.
KMXF_API uint32_t ConvertTCVideoStd(uint32_t videoStd);

// Timecode frames that `duration` frames take: half as many, rounded up, at 59.94p and 50p, otherwise as many.
KMXF_API int64_t CalcTimecodeDuration(uint32_t videoStd, int64_t duration);

// The standard of an edit rate, by its numerator alone: 24, 24000, 25, 30, 30000, 50, 60 or 60000 for progressive, 25,
// 30 or 30000 for interlaced pictures (any `interlaced` but 0); 0 for every other. The denominator is not looked at.
KMXF_API uint32_t EditRateToVideoStd(MXFRATIONALTag editRate, uint8_t interlaced);

// Whether the standard is one of the five progressive ones.
KMXF_API bool IsProgressive(uint32_t videoStd);

// Whether the type is one of the four DV types.
KMXF_API bool IsDV(uint32_t compType);

// Whether the type is one of the six AVC-Intra types.
KMXF_API bool IsAVCI(uint32_t compType);

// Whether the type is one of the four Long-GOP types of 1080 lines; false for those of 720 lines.
KMXF_API bool IsAVCGOP(uint32_t compType);

// Bits per second of a Long-GOP type, of either raster; 0 for every other type.
KMXF_API uint32_t GetAVCBitRate(uint32_t compType);

// Audio samples of one channel that belong to the first `duration` frames, of which there must not be fewer than 0. At
// 59.94 and 29.97 frames a second 5 frames share 8008 samples at 48 kHz, and so do 10 frames at 59.94p and 4 at 23.98p.
// At 96000 Hz there are twice as many; every other rate counts as 48 kHz. An unknown standard gives -1, at 96000 Hz -2.
KMXF_API int64_t DurationToAudioSample(uint32_t videoStd, int64_t duration, uint32_t samplingRate);

// Frames that `samples` samples of one channel fill. At 48 kHz every result of DurationToAudioSample leads back to its
// duration. At 96000 Hz the frames are counted as if at 48 kHz and then halved, which can come out one frame short. An
// unknown standard gives 0xFFFFFFFF, at 96000 Hz 0x7FFFFFFF.
KMXF_API uint32_t AudioSampleToDuration(uint32_t videoStd, int64_t samples, uint32_t samplingRate);

// Stores the label of the essence container: DV (SMPTE ST 383), which depends on the standard and, at 25 Mbit/s, on
// whether the pictures are IEC 61834 ones (`iec`), or AVC (SMPTE ST 381-3). It says clip wrapping, or frame wrapping
// with `frameWrap` and for Long-GOP always. False, with the label untouched, for an unknown type, a DV type that does
// not exist at the standard and a null label.
KMXF_API bool GetEssenceContainerLabel(uint32_t videoStd, uint32_t compType, bool iec, bool frameWrap,
                                       MXFKEYTag* label);

// Number of the picture track in a track code: bits 8 to 11.
KMXF_API uint32_t GetPictureTrackNum(uint32_t trackCode);

// Number of the sound track in a track code: bits 0 to 7.
KMXF_API uint32_t GetSoundTrackNum(uint32_t trackCode);

// Fills the 512 bytes of `buffer` with the header that stands in front of the first AVC-Intra frame: an access unit
// delimiter and the sequence parameter set at 0, the picture parameter set at 256, zeros elsewhere (ITU-T H.264, SMPTE
// RP 2027). A 720-line type with an interlaced standard has no sequence parameter set; other H.264 types than AVC-Intra
// get zeros only.
//
// False for null and for types that are not H.264, with the buffer untouched, and for an unknown standard, with zeros.
KMXF_API bool GetAVCIHeader(uint32_t videoStd, uint32_t compType, uint8_t* buffer);

// Frames that one group of body partitions covers in an OP-1b file; 0 for an unknown standard.
KMXF_API uint32_t VideoStandardToPartitionFrame(uint32_t videoStd);

}  // namespace kmxf
