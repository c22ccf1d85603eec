#pragma once

#include <cstdint>

#include "kmxf/collaborators/Timecode.h"
#include "kmxf/collaborators/VideoFrame.h"
#include "kmxf/core/Export.h"
#include "kmxf/reader/ReadMXFBase.h"

namespace kmxf {

struct LogPlace;

// Reads an OP-Atom video file: DV and DV-based pictures as DIF frames (SMPTE ST 383) or AVC-Intra pictures (SMPTE
// ST 381-3, RP 2027), clip-wrapped. It hands out single frames, DIF units and SEI areas, and reads timecode, user bits,
// UMID and colour frame out of the pictures themselves. Frames are counted from 0.
//
// AVC-Intra frames stand behind one header of 512 bytes, DV frames at the start of the essence. One DIF unit of the
// 720p DV formats holds two frames.
//
// Buffers handed out are allocated with malloc and belong to the caller, who gives them to the matching Release... or
// to free. A failure leaves the out-pointer untouched.
class KMXF_API CReadMXFVideo : public CReadMXFBase {
public:
    CReadMXFVideo();
    ~CReadMXFVideo() override;

    // Finds the essence, then the format: by the label of the essence container, and where that leaves it open by the
    // picture descriptor. Sets the end position to the total of frames.
    //
    // Returns 0; kStatusNotFound for an empty essence, with the file left open. Everything else closes the file:
    // kStatusFailure for an unknown format, kStatusWrongState when the header cannot be read, whatever the reason, or
    // the file is not OP-Atom.
    int32_t ReadHeader() override;

    // Closes the file and forgets frame size and data offset; the rest of the format is kept. Always 0.
    int32_t Close() override;

    // Video-standard code, 0 when the descriptor's sample rate is none that is known; compression-type code; bytes of
    // one frame; count of whole frames in the essence.
    // kStatusWrongState before the header is read, kStatusInvalidArgument for null.
    int32_t GetVideoStandard(uint32_t* videoStd) const;
    int32_t GetCompType(uint32_t* compType) const;
    int32_t GetFrameDataSize(uint32_t* size) const;
    int32_t GetTotalFrame(uint32_t* frames) const;

    // The same values as they stand, without a check; GetDuration is the count of frames.
    uint32_t GetVideoStandard() const;
    uint32_t GetCompType() const;
    uint32_t GetFrameDataSize() const;
    uint32_t GetDuration() const;

    // Whether the pictures are IEC (consumer) DV; whether they are AVC-Intra.
    bool IsConsumerDV() const;
    bool IsAVCI() const;

    // Bytes of one DIF unit: two frames at the progressive standards, else one frame.
    // kStatusWrongState before the header is read, kStatusInvalidArgument for null, kStatusFailure for AVC-Intra.
    int32_t GetDIFDataSize(uint32_t* size) const;

    // Bytes in front of the first frame: 512 for AVC-Intra, 0 for DV. kStatusInvalidArgument for null.
    int32_t GetAVCIHeaderSize(uint32_t* size) const;

    // Replace what the header says, in bytes; not checked. Always 0.
    int32_t SetDataOffset(uint32_t offset);
    int32_t SetFrameDataSize(uint32_t size);

    // The count of frames whose last one GetEnd... reads, at most the total; for a file that is still being written or
    // was cut. kStatusWrongState before the header is read.
    int32_t SetEndPosition(uint32_t frames);

    // Moves to the start of a frame; whether there is such a frame is not checked. Failures close the file:
    // kStatusWrongState without data offset or frame size, kStatusIoError when the stream fails.
    int32_t Seek(uint32_t frame);

    // One frame of GetFrameDataSize bytes, in a new buffer. A frame past the last one gives what follows the essence.
    // kStatusFailure for null or before the header is read; a failure of Seek; kStatusNoMemory; kStatusIoError when
    // the file has fewer bytes there.
    int32_t GetFrameData(uint32_t frame, uint8_t** data);

    // The DIF unit that holds the frame, in a new buffer of 576000 bytes, with zeros behind the unit. Of the 720p
    // formats that is the unit of the even frame and the one behind it; when the last frame is even, its second half is
    // what follows the essence. Fails as GetFrameData, and with kStatusFailure for AVC-Intra and for a unit over 576000
    // bytes.
    int32_t GetDIFData(uint32_t frame, uint8_t** data);

    // The first 512 bytes of an AVC-Intra frame, where its SEI messages are, in a new buffer. Fails as GetFrameData.
    int32_t GetSEIData(uint32_t frame, uint8_t** data);

    // Free a buffer handed out above (null is allowed); all three do the same. Always 0.
    int32_t ReleaseFrameData(uint8_t* data);
    int32_t ReleaseDIFData(uint8_t* data);
    int32_t ReleaseSEIData(uint8_t* data);

    // Timecode, user bits (SMPTE ST 12-1) and 64-byte extended UMID (SMPTE ST 330) of the first frame and of the last
    // one before the end position; `type` chooses among the pairs that a frame may carry. The UMID of IEC DV is 0 and
    // left untouched.
    // kStatusNotFound when the frame carries none; kStatusFailure or kStatusInvalidArgument for null; kStatusFailure or
    // kStatusWrongState before the header is read; the failures of reading the frame and of its parser.
    int32_t GetStartTimecode(CTimecode* timecode);
    int32_t GetEndTimecode(CTimecode* timecode);
    int32_t GetStartUsersBit(CUsersBit* usersBit, eSEIDataType type);
    int32_t GetEndUsersBit(CUsersBit* usersBit, eSEIDataType type);
    int32_t GetStartUMID(MXFUMIDEXTag* umid);
    int32_t GetEndUMID(MXFUMIDEXTag* umid);

    // Colour-frame byte of the last DV frame before the end position. Fails as above; kStatusNotFound for AVC-Intra.
    int32_t GetEndCLF(uint8_t* clf);

    // Timecode of any frame. That of a DV frame comes from the first subcode block at a fixed place of the frame
    // (SMPTE ST 314), without reading the frame.
    // kStatusWrongState before the header is read, kStatusInvalidArgument for null, kStatusNotFound when the frame
    // carries none, kStatusIoError, kStatusInvalidArgument for bytes that are no timecode; AVC-Intra as above.
    int32_t GetTimecode(uint32_t frame, CTimecode* timecode);

protected:
    // Decides the format of an open file; see ReadHeader. kStatusWrongState before the header is read, kStatusFailure.
    int32_t SetVideoFormat();

    // One value of one frame, through the frame parser of its kind. kStatusFailure before the header is read, for null
    // and for pictures of the other kind; kStatusNotFound when the frame carries none; failures of reading and parsing.
    int32_t GetDIFTimecode(uint32_t frame, CTimecode* timecode);
    int32_t GetDIFUsersBit(uint32_t frame, CUsersBit* usersBit, eSEIDataType type);
    int32_t GetDIFUMID(uint32_t frame, MXFUMIDEXTag* umid);  // IEC DV: 0, untouched
    int32_t GetDIFCLF(uint32_t frame, uint8_t* clf);
    int32_t GetAVCITimecode(uint32_t frame, CTimecode* timecode);
    int32_t GetAVCIUsersBit(uint32_t frame, CUsersBit* usersBit, eSEIDataType type);
    int32_t GetAVCIUMID(uint32_t frame, MXFUMIDEXTag* umid);  // 0 also when the frame carries none: untouched then

private:
    uint64_t FrameOffset(uint32_t frame) const;
    // Reads `size` bytes from the start of a frame into a new buffer of `capacity` bytes, with zeros behind them.
    int32_t ReadFrame(const LogPlace& place, const char* noPiece, uint32_t frame, uint32_t size, uint32_t capacity,
                      uint8_t** data);
    // The per-frame reader for the kind of picture at hand.
    int32_t TimecodeOf(uint32_t frame, CTimecode* timecode);
    int32_t UsersBitOf(uint32_t frame, CUsersBit* usersBit, eSEIDataType type);
    int32_t UMIDOf(uint32_t frame, MXFUMIDEXTag* umid);

    uint32_t videoStd_ = 0;
    uint32_t compType_ = 0;
    uint32_t frameDataSize_ = 0;
    uint32_t totalFrames_ = 0;
    bool consumerDV_ = false;
    uint32_t endPosition_ = 0;
    bool avcIntra_ = false;
};

}  // namespace kmxf
