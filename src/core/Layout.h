#pragma once

#include <cstdint>

// Where things lie in every file of a layout, in bytes from its start (docs/format.md, docs/format-op1b.md).
namespace kmxf {

// A partition pack, behind its key and length: so much up to its essence container labels.
inline constexpr uint32_t kPackFieldsSize = 88;

// OP-Atom: the header area, and behind it the essence.
inline constexpr uint32_t kOpAtomHeaderSize = 0x8000;
inline constexpr uint32_t kElementHeadSize = 24;  // in front of it: key, and the length as 0x87 and 7 bytes

// OP-1b: the header in its three areas, and behind it the groups.
inline constexpr uint32_t kOp1bMetadataEnd = 0x8000;
inline constexpr uint32_t kOp1bXMLEnd = 0x1C000;
inline constexpr uint32_t kOp1bHeaderSize = 0x20000;
// The thumbnail that has its place there: a bitmap of 80 x 45 pixels of 24 bits with 54 bytes of headers.
inline constexpr uint16_t kOp1bThumbnailSize = 10854;

// Frames that a file of sound is taken to be enough for, at most: those that its readers count in 32 bits.
inline constexpr int64_t kMostSoundFrames = 0xFFFFFF00;

// In front of the first AVC-Intra frame: a block with its parameter sets.
inline constexpr uint32_t kParameterSetBlock = 512;

// Samples of the sound of OP-1b in a second.
inline constexpr uint32_t kOp1bSamplesPerSec = 48000;

// Whether the area of the thumbnail holds a picture of so many bytes: with a fill item behind it, or exactly without.
constexpr bool HasOp1bThumbnailRoom(uint32_t size) { return size <= 16011 || size == 16031; }

// The streams of an OP-1b file: pictures, ANC, and each channel of sound. Their index tables count alike.
inline constexpr uint32_t kPictureSID = 1, kANCSID = 2, kFirstSoundSID = 3;
inline constexpr uint32_t kPictureIndexSID = 101, kANCIndexSID = 102, kFirstSoundIndexSID = 103;

// An ANC element in OP-1b, with the fill item behind it.
inline constexpr uint32_t kANCElementSize = 512;

// In front of the samples of a sound element in OP-1b: key, and a length of 8 bytes.
inline constexpr uint32_t kAudioKLSize = 24;

}  // namespace kmxf
