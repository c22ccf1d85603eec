#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"
#include "kmxf/structures/DescriptiveMetadata.h"
#include "kmxf/structures/IndexCommon.h"

namespace kmxf {

// Builds, in memory, everything of one OP-1b clip file (SMPTE ST 391) but the frames and the sound: the fixed header of
// 131072 bytes, what stands around the essence of each group of frames, the footer with the repeated index, the random
// index pack. It never touches a stream.
//
// Construct, call Initialize once, then the setters and the data operations. Before Initialize setters and header
// operations return kStatusWrongState, operations of body and footer kStatusFailure. Buffers that are handed out are
// new and the caller's to free().
//
// Order of a group of frames: body partition of the picture, an index entry for each frame, index partition of the
// picture, the ANC block, then for each channel its body partition and its index partition. Each
// `SetBodyPartitionParam` says what the next `GetBodyPartitionData` writes, and enters that partition into the random
// index.
class KMXF_API COp1bBase {
public:
    // videoStandard and compressionType are codes of VideoStandard.h; bytesPerSample is 2 or 3; audioChannels counts
    // the sound tracks, each of one channel, and only its low byte is used. Up to 27 channels fit the header, 26 with a
    // clip group, 25 with clip and scene; 24, 22 and 22 in the players layout.
    COp1bBase(uint32_t videoStandard, uint32_t compressionType, uint8_t bytesPerSample, uint32_t audioChannels);
    COp1bBase(const COp1bBase&) = delete;
    COp1bBase& operator=(const COp1bBase&) = delete;
    virtual ~COp1bBase();

    // Builds partition packs, sets and the first index segments. With keepForFooter finished index segments are
    // repeated in the footer. Returns 0, or kStatusInvalidArgument for a format that is not AVC Long-GOP.
    int32_t Initialize(bool keepForFooter = true);

    // The whole header: partition pack, metadata, XML, thumbnail, fill items. Enters the header partition into a random
    // index that is still empty. Returns 0, kStatusInvalidArgument (null pointer), kStatusNoMemory (also when the
    // metadata does not fit: more than 32768 bytes with its pack, or a rest that no fill item can take).
    int32_t GetHeaderData(uint8_t** data);
    // 131072.
    uint32_t GetHeaderSize();
    // Primer pack and sets in bytes, without XML, thumbnail and fill items.
    uint32_t GetHeaderMetadataSize();
    // Writes them at `offset` of a buffer that holds GetHeaderMetadataSize() bytes from there on. Returns the offset
    // behind them, or `offset` when there is nothing to write or no buffer.
    uint32_t MXFMemSetHeaderMetadata(uint8_t* buffer, uint32_t offset);

    // Key and length of an essence element whose value has `length` bytes; `type` is a track code. 20 bytes for picture
    // and ANC, 24 for sound; of any other type nothing is written. Returns 0, or kStatusInvalidArgument (null pointer).
    int32_t GetKLData(uint32_t type, int64_t length, uint8_t* out);
    // An ANC element (SMPTE ST 436) without data: 512 bytes with the fill item behind it. False: null pointer.
    static bool CreateDummyANC(uint8_t* out);
    // An ANC element of `size` bytes of data, up to 470; again 512 bytes in all. False: null pointer, or more data.
    static bool CreateANCData(const uint8_t* data, uint32_t size, uint8_t* out);

    // Describe the next partition of the picture, or of the sound of `channel` (from 0): its file offset, the offset
    // of its essence in the essence stream (both in bytes), the video frames it covers, and whether it has index or
    // essence. Returns 0, or kStatusFailure while the random index is empty (GetHeaderData fills it), and for a channel
    // that the clip does not have.
    int32_t SetBodyPartitionParamVideo(int64_t thisPartition, int64_t bodyOffset, uint32_t frames, bool withIndex,
                                       bool withBody);
    int32_t SetBodyPartitionParamAudio(int64_t thisPartition, int64_t bodyOffset, uint32_t frames, uint8_t channel,
                                       bool withIndex, bool withBody);
    // Bytes of a partition pack, with index also of the open segment and its fill item.
    uint32_t GetBodyPartitionSize(bool withIndex, bool audio);
    // The pack; with index also the open segment, which is finished by that: the next one begins with the next frame.
    // Returns 0, kStatusInvalidArgument (null pointer), kStatusFailure (no such segment), kStatusNoMemory.
    int32_t GetBodyPartitionDataVideo(uint8_t** data, bool withIndex);
    int32_t GetBodyPartitionDataAudio(uint8_t** data, bool withIndex, uint8_t channel);
    // Bytes of the ANC block for that many frames.
    uint32_t GetBodyPartitionSizeANCData(uint32_t frames);
    // The ANC block of a group whose picture index is finished, for file offset thisPartition: body partition, an
    // element without data for each frame, index partition. Returns as the two above; kStatusFailure while the random
    // index is empty.
    int32_t GetBodyPartitionDataANCData(uint8_t** data, int64_t thisPartition, uint32_t frames);
    // Counts a frame and enters it into the open index segment of the picture: offsets in display order and to the key
    // frame, edit unit flags (SMPTE ST 377-1, 11.2.3), and the byte of the picture's essence stream at which it begins.
    // Returns 0, or kStatusFailure.
    int32_t AddIndexEntry(int8_t temporalOffset, int8_t keyFrameOffset, uint8_t flags, int64_t streamOffset);
    // Grows the fill item behind the metadata by `size` bytes. Returns 0.
    int32_t AddFillerSize(uint32_t size);
    // Append what another file already has, so that its header and footer can be built anew: an entry of the random
    // index, and a segment to be repeated in the footer. Return 0, kStatusFailure or kStatusNoMemory.
    int32_t AddPartitionInfo(MXF_PARTITION_INFOTag info);
    int32_t AddFooterIndex(const CIndexCommon& segment);

    // All in video frames; return 0. The duration counts every frame stored. The origin counts the frames in front of
    // the first one to be shown: the file package's tracks begin behind them and are so much shorter. The container
    // duration is that of the descriptors, again of all frames.
    int32_t SetDuration(int64_t duration);
    int32_t SetContainerDuration(int64_t duration);
    int32_t SetOrigin(int64_t origin);
    // Start timecode of the material package, in timecode frames; the file package's is later by the origin. Drop frame
    // is off at 50i, 25p and 50p whatever is asked. Returns 0.
    int32_t SetStartTimecode(int64_t frames, bool drop);

    // Clip and scene metadata, each where `metadata` has it (SMPTE ST 380). Returns 0.
    int32_t SetDMS(const CDescriptiveMetadata& metadata);
    // The clip's XML, which is copied. Returns 0, or kStatusInvalidArgument (null pointer).
    int32_t SetXMLData(const uint8_t* xml, uint16_t size);
    // The clip's thumbnail, which is copied: sizes in pixels, format 0 or 1. Returns 0, or kStatusInvalidArgument: null
    // pointer, another format, or a size that CDMSKestralinEvent refuses.
    int32_t SetThumbnailData(const uint8_t* data, uint16_t size, uint16_t width, uint16_t height, uint8_t format);
    // The frame that the thumbnail shows. Returns 0.
    int32_t SetThumbnailPosition(uint32_t position);

    // Call before Initialize. Off: one file package with a descriptor for each of its tracks, of which it names the
    // picture's. On: a Multiple Descriptor for picture and ANC, and a file package of its own for the sound of each
    // channel (SMPTE ST 377-1, ST 391), as other players need it. Returns 0, or kStatusWrongState after Initialize.
    int32_t SetPlayerLayout(bool on);
    // UMID of the material package (SMPTE ST 330); the file package has the next instance number. All zero, or never
    // called: a new UMID, one for the life of the builder. Returns 0.
    int32_t SetUMID(MXFUMIDTag umid);
    // Name of the material package, UTF-8. Malformed or over 200 UTF-16 units: kStatusInvalidArgument, and no name.
    int32_t SetPackageName(const std::string& utf8);
    // Company and product up to 16 UTF-16 units, version up to 4; productUID points at 16 bytes.
    // kStatusInvalidArgument: null pointer, or a text that does not fit, whose field is left zero.
    int32_t SetIdentification(const std::string& company, const std::string& product, const std::string& version,
                              const uint8_t* productUID);
    // Creation date of the packages; modification date of preface, identification and packages. Return 0.
    int32_t SetCreationDate(MXFTIMESTAMPTag date);
    int32_t SetModifiedDate(MXFTIMESTAMPTag date);

    // Places the footer partition at this file offset, behind the last partition of the random index, and enters it
    // there once. Returns 0, or kStatusFailure while the random index is empty.
    int32_t SetFooterPartitionParam(int64_t footerOffset);
    // The same offsets, in bytes, without the random index: of the footer, and of the partition in front of it.
    int32_t SetFooterPartitionPos(int64_t offset);
    int32_t SetFooterPrevPartitionPos(int64_t offset);
    // Footer partition pack and every index segment that is kept, in bytes; 0 before Initialize.
    uint32_t GetFooterSize();
    // Returns 0, kStatusInvalidArgument (null pointer), kStatusFailure (size 0), kStatusNoMemory.
    int32_t GetFooterData(uint8_t** data);
    // Bytes of the random index pack; it grows with every partition, the footer's included.
    uint32_t GetRandomIndexSize();
    // Returns 0, kStatusInvalidArgument (null pointer), kStatusFailure (no partition yet), kStatusNoMemory.
    int32_t GetRandomIndexData(uint8_t** data);

protected:
    // The four steps of Initialize: sets and packs, labels, tracks and links, index segments.
    int32_t CreateInstance();
    int32_t InitPartition();
    int32_t InitPackage();
    int32_t InitIndex();

private:
    friend class CCreateMXFOp1b;
    // Whether the header has room for this descriptive metadata, without taking it over: 0, or kStatusNoMemory.
    int32_t CheckRoom(const CDescriptiveMetadata& metadata) const;

    struct Parts;

    uint32_t videoStd_;
    uint32_t compType_;
    uint8_t bytesPerSample_;
    uint8_t channels_;
    bool playerLayout_ = false;
    std::unique_ptr<Parts> parts_;
};

}  // namespace kmxf
