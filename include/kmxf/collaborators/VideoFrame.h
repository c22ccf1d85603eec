#pragma once

#include <cstdint>
#include <memory>

#include "kmxf/core/Export.h"

// What coded pictures carry besides the picture: timecode, user bits, UMID and the signal they belong to.
//
// The parsers do not copy the bytes they are given: these must stay valid while the object is asked, and belong to the
// caller. No parser looks past the size it is given; the forms without a size say how many bytes they look at.
//
// Every getter returns
//   kStatusOk               the value was found and stored;
//   kStatusFrameNoInfo      the frame does not carry it, or no bytes are set: the output is untouched;
//   kStatusInvalidArgument  the output is null.
//
// A timecode is given as the 4 data bytes of a timecode pack (SMPTE ST 314, IEC 61834-4), which CTimecode::SetData
// takes: frames, seconds, minutes, hours, each in BCD with its flags (SMPTE ST 12-1; bit 6 of the frames byte is the
// drop-frame flag). Bytes that are no time of day (30 frames, 60 seconds and so on, or a pack of FF) are no timecode.
// User bits are the 4 data bytes of a binary group pack. A UMID (SMPTE ST 330) is given as 64 bytes: an extended UMID,
// or a basic UMID of 32 bytes followed by zeros.
namespace kmxf {

struct PicTimingLayout;

// Which timecode, or which user bits, of a picture that carries several.
enum eSEIDataType : int32_t {
    SEI_DATA_TYPE1 = 1,  // the first
    SEI_DATA_TYPE2 = 2   // the second
};

// A DV or DV-based frame as DIF blocks (IEC 61834-2, SMPTE ST 314, ST 370), or the two-frame unit of the 720-line
// formats. A block that is not where its ID says is passed over, so that bytes which are no DIF frame carry nothing.
class KMXF_API CDIFFrame {
public:
    CDIFFrame();
    CDIFFrame(const CDIFFrame&) = delete;
    CDIFFrame& operator=(const CDIFFrame&) = delete;
    virtual ~CDIFFrame();

    // Takes a whole frame or unit. Its length in bytes is what the frame itself says: the first DIF block gives the
    // number of lines, and so the length of the first channel; the VAUX source pack in that channel gives the number of
    // channels and frames. Nothing past the first block is looked at when that is no DIF header block. Bytes that may
    // be damaged or cut belong into the form with a size. Returns kStatusOk, or kStatusInvalidArgument for a null
    // pointer.
    int32_t SetDIFData(const uint8_t* data);

    // Takes a frame or unit, or what there is of it: `size` bytes at most are looked at, and none behind the frame or
    // unit. Returns as above.
    int32_t SetDIFData(const uint8_t* data, uint32_t size);

    // Forgets the bytes; every getter then returns kStatusFrameNoInfo.
    void ResetDIFData();

    // The timecode (4 bytes out) of the subcode. `sequence` 1 or 2 is the frame of a two-frame unit (a single frame has
    // only 1), 0xFFFFFFFF the first that is found in any; no other frame is there.
    int32_t GetTimecode(uint8_t* timecode, uint32_t sequence) const;

    // The user bits (4 bytes out): SEI_DATA_TYPE1 of the subcode, SEI_DATA_TYPE2 of the binary group pack in VAUX.
    // `sequence` as for the timecode.
    int32_t GetUsersBit(uint8_t* usersBit, eSEIDataType type, uint32_t sequence) const;

    // The UMID (64 bytes out), looked for in the packs of VAUX and AAUX of all frames.
    int32_t GetUMID(uint8_t* umid) const;

    // The video-standard code, as VIDEO_STD_59_94I, of the VAUX source pack.
    int32_t GetVideoSystem(uint32_t* videoStd) const;

    // The compression-type code, as COMP_TYPE_DV25, of the VAUX source pack.
    int32_t GetCompType(uint32_t* compType) const;

    // Whether the application id of the header block is that of IEC 61834 (consumer DV) and not of SMPTE ST 314.
    int32_t GetConsumerDVFlag(bool* flag) const;

    // 2:3:3:2 pull-down. No public standard gives it a place in a DIF frame: a frame is never found to carry it.
    int32_t Get2332PulldownFlag(bool* flag) const;

    // Frame rate before pull-down. As for the flag, a frame is never found to carry it.
    int32_t GetPulldownFrameRate(uint8_t* rate) const;

    // The colour frame of the VAUX source pack, 0 to 3, where the pack says that it is valid. `sequence` as for the
    // timecode.
    int32_t GetCLF(uint8_t* clf, uint32_t sequence) const;

private:
    const uint8_t* data_ = nullptr;
    uint32_t size_ = 0;
};

// An AVC-Intra frame (SMPTE RP 2027), which carries its data in a user_data_unregistered SEI message (ITU-T H.264,
// D.1.6) at its start. Bytes that begin without a start code are taken as an SEI NAL unit or SEI message.
class KMXF_API CAVCIFrame {
public:
    CAVCIFrame();
    CAVCIFrame(const CAVCIFrame&) = delete;
    CAVCIFrame& operator=(const CAVCIFrame&) = delete;
    virtual ~CAVCIFrame();

    // Takes a frame without parameter sets in front; its first 512 bytes, of at most `size` where that is given, are
    // looked at. Returns kStatusOk, or kStatusInvalidArgument for a null pointer.
    int32_t SetFrameData(const uint8_t* data);
    int32_t SetFrameData(const uint8_t* data, uint32_t size);

    // Takes the area that holds the SEI messages: 512 bytes, or `size` bytes. Returns as above.
    int32_t SetSEIData(const uint8_t* data);
    int32_t SetSEIData(const uint8_t* data, uint32_t size);

    // The first or second timecode (4 bytes out), user bits (4 bytes out), and the UMID (64 bytes out).
    int32_t GetTimecode(uint8_t* timecode, eSEIDataType type) const;
    int32_t GetUsersBit(uint8_t* usersBit, eSEIDataType type) const;
    int32_t GetUMID(uint8_t* umid) const;

private:
    const uint8_t* data_ = nullptr;
    uint32_t size_ = 0;
};

// The SEI messages of a Long-GOP AVC picture: the user data that AVC-Intra frames carry, and picture timing (ITU-T
// H.264, D.1.3).
class KMXF_API CAVCSEIData {
public:
    CAVCSEIData();
    CAVCSEIData(const CAVCSEIData&) = delete;
    CAVCSEIData& operator=(const CAVCSEIData&) = delete;
    virtual ~CAVCSEIData();

    // Takes 512 bytes, or `size` bytes, that begin at a picture or at an SEI message; they are looked at up to the
    // first slice. Both values of the flag do the same. Returns kStatusOk, or kStatusInvalidArgument for a null
    // pointer.
    //
    // The layout of picture timing depends on the sequence parameter set. One that stands in the bytes holds for them
    // and for those that are set afterwards, as it does in a stream. Before any was seen, the layout is that of a
    // stream without HRD parameters.
    int32_t SetSEIData(const uint8_t* data, bool reserved);
    int32_t SetSEIData(const uint8_t* data, uint32_t size, bool reserved);

    // The first or second timecode (4 bytes out): of the user data; where that has none, the clock timestamp of the
    // picture timing, whose frames are counted at the timecode rate (below 30).
    int32_t GetTimecode(uint8_t* timecode, eSEIDataType type) const;

    // The first or second user bits (4 bytes out), and the UMID (64 bytes out), of the user data.
    int32_t GetUsersBit(uint8_t* usersBit, eSEIDataType type) const;
    int32_t GetUMID(uint8_t* umid) const;

private:
    const uint8_t* data_ = nullptr;
    uint32_t size_ = 0;
    std::unique_ptr<const PicTimingLayout> layout_;
};

}  // namespace kmxf
