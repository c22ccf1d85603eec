#pragma once

#include <cstdint>
#include <vector>

#include "kmxf/collaborators/Common.h"
#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"

namespace kmxf {

// Reads the header of an MXF file of any operational pattern, and no more: the header partition pack (SMPTE ST 377-1)
// and the bytes of header metadata that it counts. The file is opened by name, in the local file system or whatever
// CFileIOMain was given, and is closed again before ReadHeader returns.
//
// ReadHeader locks; the other functions answer from memory.
class KMXF_API CReadMXFHeader {
public:
    CReadMXFHeader();
    CReadMXFHeader(const CReadMXFHeader&) = delete;
    CReadMXFHeader& operator=(const CReadMXFHeader&) = delete;
    virtual ~CReadMXFHeader();  // the only virtual

    // Forgets the header read before and reads that of the named file, in one read up to 32768 bytes and in a second
    // one beyond. What the file lacks of its header counts as zeros.
    //
    // Returns 0; kStatusInvalidArgument for a null name and for a file that does not begin with a partition pack;
    // kStatusIoError when the file cannot be opened; kStatusNoMemory when there is no memory for the header, when its
    // size is negative, or when it is over 32768 bytes and over the size of the file.
    int32_t ReadHeader(const char* fileName);

    // Whether the pictures are IEC (consumer) DV of 525 lines, by their picture coding label.
    bool IsConsumerDV() const;
    // Whether there is descriptive metadata: a clip or scene framework with a language code (SMPTE ST 380).
    bool IsValidDMS() const;
    // Bytes of header partition pack and header metadata; 0 when no header is held.
    uint32_t GetHeaderSize() const;
    // 0 and 1 for the two labels of OP-Atom (SMPTE ST 390), 2 for OP1a, 3 for OP1b, -1 for any other and when no header
    // is held. Not the numbers of the function GetOperationPattern below.
    int32_t GetOperationalPattern() const;
    // Copies GetHeaderSize() bytes, from the first byte of the file, to the caller's buffer. False for null and when no
    // header is held.
    bool GetHeaderData(uint8_t* buffer) const;

private:
    int32_t Read(const char* fileName);

    Mutex lock_;
    bool consumerDV_ = false;
    bool validDMS_ = false;
    std::vector<uint8_t> header_;  // empty when none is held
    int32_t operationalPattern_ = -1;
};

// Single values out of a header in memory. `header` starts at the first byte of the file and is 131072 bytes long,
// whatever the size of the header: zeros behind a shorter one. Each value is that of the first set of its kind (SMPTE
// ST 377-1), and one of another width than the standard's counts as absent. The functions hold no state and log
// nothing; null counts as a header without any value.

// Operational pattern by two bytes of its label: 0 for OP-Atom, 1 for OP1a, 2 for OP1b, -1 for any other.
KMXF_API int32_t GetOperationPattern(const uint8_t* header);
// Video-standard code by sample rate and frame layout of the CDCI descriptor; 0 if none.
KMXF_API uint32_t GetVideoStandardFromHeader(const uint8_t* header);
// Compression-type code of AVC Long-GOP pictures, by stored height and by the bit rate in the AVC sub-descriptor (SMPTE
// ST 381-3), which at 1080/59.94p and 1080/50p is twice that of the type; 0 if none.
KMXF_API uint32_t GetCompTypeLongGFromHeader(const uint8_t* header);
// Samples of one sound channel: the duration of the first sound clip without a source; 0 if none.
KMXF_API int64_t GetSampleNumFromHeader(const uint8_t* header);
// Samples per second of the AES3 descriptor: 48000 or 96000; 0 for any other and if none.
KMXF_API uint32_t GetSamplingRateFromHeader(const uint8_t* header);
// Bytes of one sample, from the AES3 descriptor's bits: 2 or 3; 0 for any other and if none.
KMXF_API uint8_t GetBytesPerSampleFromHeader(const uint8_t* header);
// Start of the first timecode component in timecode frames; -1 if none.
KMXF_API int64_t GetStartTimecodeFromHeader(const uint8_t* header);
// Frames per second that the timecode counts; 0 if none.
KMXF_API uint16_t GetRoundedTCBaseFromHeader(const uint8_t* header);
// Whether the timecode drops frames (SMPTE ST 12-1); false if none.
KMXF_API bool GetDropFlagFromHeader(const uint8_t* header);
// UMID of the material package; zeros if none.
KMXF_API MXFUMIDTag GetMaterialUIDFromHeader(const uint8_t* header);

}  // namespace kmxf
