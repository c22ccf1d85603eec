#pragma once

#include <cstdint>
#include <string>

#include "kmxf/core/Export.h"
#include "kmxf/core/VideoStandard.h"

namespace kmxf {

// A timecode as SMPTE ST 12-1 defines it: a count of frames since 00:00:00:00, a drop-frame flag and a video standard.
//
// Timecode counts 30 frames a second at 59.94i, 29.97p and 59.94p, 25 at 50i, 25p and 50p (one for two frames at 59.94p
// and 50p), 24 at 23.98p. With the flag set, counting by 30 leaves out frames 0 and 1 of every minute but each tenth.
// By 24 and 25 nothing is ever left out, but the flag is kept. A count of a day or more stands for the rest after whole
// days.
class KMXF_API CTimecode {
public:
    CTimecode();  // frame 0, non-drop, 59.94i
    CTimecode(uint32_t totalFrames, bool dropFrame);
    CTimecode(const CTimecode&) = default;
    CTimecode& operator=(const CTimecode&) = default;
    virtual ~CTimecode();

    // Sets the video standard; the frame count stays. kStatusOk, or kStatusInvalidArgument with nothing changed if the
    // code is not one of the seven, such as the 0xFFFFFFFF of ConvertTCVideoStd.
    int32_t SetVideoStd(uint32_t videoStd);
    uint32_t GetVideoStd() const;

    // The packed form of a timecode pack (IEC 61834, SMPTE ST 314): 4 bytes in binary-coded decimal, frames, seconds,
    // minutes, hours; bit 6 of the frames is the drop-frame flag, and the other bits above the tens are ignored by
    // SetData and 0 from GetData. kStatusOk, or kStatusInvalidArgument with nothing changed for a null pointer, a digit
    // above 9 or a value that the rate or the clock does not have. A label that drop-frame counting leaves out is not
    // refused; it counts as two frames less, as the formula has it.
    int32_t SetData(const uint8_t* data);
    int32_t GetData(uint8_t* data) const;

    // Frames since 00:00:00:00. Always kStatusOk.
    int32_t SetTotalFrame(uint32_t totalFrames);
    uint32_t GetTotalFrame() const;

    // Any value but 0 means drop frame. keepText false keeps the frame count, true the hh:mm:ss:ff. Always kStatusOk.
    int32_t SetDropFlag(uint8_t dropFlag, bool keepText);
    // The flag as it was set, at any video standard.
    bool IsDrop() const;

    // hh:mm:ss:ff, with `;` before the frames for drop frame. SetText sets count and flag; kStatusInvalidArgument with
    // nothing changed for any other form and for a label that does not exist at the rate, as 00:01:00;00.
    std::string GetText() const;
    int32_t SetText(const std::string& text);

private:
    uint32_t total_ = 0;
    bool drop_ = false;
    uint32_t videoStd_ = VIDEO_STD_59_94I;
};

// The 4 bytes of user bits (binary groups, SMPTE ST 12-1) that go with a timecode; how they are packed is not looked
// at.
class KMXF_API CUsersBit {
public:
    CUsersBit();  // zero
    ~CUsersBit();

    // Copy 4 bytes in and out; kStatusInvalidArgument for a null pointer.
    int32_t SetData(const uint8_t* data);
    int32_t GetData(uint8_t* data) const;

private:
    uint8_t data_[4] = {};
};

}  // namespace kmxf
