#pragma once

#include <cstdint>
#include <memory>

#include "kmxf/collaborators/Common.h"
#include "kmxf/collaborators/FileIO.h"
#include "kmxf/collaborators/Timecode.h"
#include "kmxf/collaborators/VideoFrame.h"
#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"

namespace kmxf {

struct Op1bHeader;
struct SideData;

// Where a frame's picture lies in the file, and what the index says of it (edit unit flags and offsets of SMPTE
// ST 377-1).
struct [[gnu::packed]] VIDEOFRAMEINFOTag {
    uint64_t offset{};        // file offset of the picture, behind key and length of its element
    uint32_t size{};          // bytes, with the 0 to 3 bytes that align it
    int8_t temporalOffset{};  // to the stored place of the picture that is shown in this place
    int8_t keyFrameOffset{};  // to the key frame of this picture
    uint8_t flags{};
    bool operator==(const VIDEOFRAMEINFOTag&) const = default;
};

// Where a frame's sound of one channel lies in the file.
struct [[gnu::packed]] AUDIODATAINFOTag {
    uint64_t offset{};    // file offset of the samples of the frame's group
    uint32_t size{};      // bytes of the group's samples
    uint32_t position{};  // of the frame's first sample among them, in bytes
    bool operator==(const AUDIODATAINFOTag&) const = default;
};

// Where a frame's ancillary data lie in the file.
struct [[gnu::packed]] ANCDATAINFOTag {
    uint64_t offset{};  // file offset of the element's value, behind key and length
    uint32_t size{};    // bytes of the value, as the length in the file states
    uint8_t hasData{};  // 1 when the size is over 8, so that there is more than an empty packet
    bool operator==(const ANCDATAINFOTag&) const = default;
};

static_assert(sizeof(VIDEOFRAMEINFOTag) == 15 && sizeof(AUDIODATAINFOTag) == 16 && sizeof(ANCDATAINFOTag) == 13);

// Reads an OP-1b clip: AVC Long-GOP pictures, ancillary data and sound in groups of body partitions, each with its
// index table segment behind it, and a random index pack at the end of the file (SMPTE ST 377-1, ST 381-3, ST 436,
// ST 382). It tells where the data of a frame lie; the caller reads them from the stream that it lent.
//
// Frames are counted from 0 as they are stored, those in front of the clip (GetOrigin) and behind it included. Only the
// index of one group is held; asking for a frame of another group reads that group's index, in two reads.
//
// One reader serves one thread at a time: Open and Close lock, everything else does not. The stream belongs to the
// caller and must outlive its use here; the reader opens and closes it.
class KMXF_API CReadMXFOp1b {
public:
    CReadMXFOp1b();
    CReadMXFOp1b(const CReadMXFOp1b&) = delete;
    CReadMXFOp1b& operator=(const CReadMXFOp1b&) = delete;
    // Closes the file.
    virtual ~CReadMXFOp1b();

    // Opens the named file on `stream`, reads header, random index and the index of the first group. A file that is
    // open already is closed first. On failure the file is closed, and may be opened again.
    //
    // Returns 0; kStatusInvalidArgument for null and for a header that is no partition pack; kStatusIoError when the
    // stream does not open or the header cannot be read whole; kStatusFailure for a file under 80 bytes, of another
    // operational pattern, with a format or metadata that cannot be used, or whose random index or first index is not
    // there or cannot be read; kStatusNotFound for a clip of no frames, as an interrupted recording is;
    // kStatusNoMemory.
    int32_t Open(const char* fileName, IStreamFileIO* stream);
    // Closes the file, if one is open, and forgets all that it said. Always 0.
    int32_t Close();

    // Place, size and index entry of a frame. Reads nothing while the index of its group is held.
    // kStatusWrongState when not open, kStatusNotFound at or beyond the frames of the file, kStatusFailure when the
    // group's index is missing, cannot be read or says what cannot be.
    int32_t GetVideoInfo(uint32_t frame, VIDEOFRAMEINFOTag& info);
    // The same with the size from the length field of the element itself; also kStatusIoError.
    int32_t GetVideoInfoFiller(uint32_t frame, VIDEOFRAMEINFOTag& info);
    // The index entry as it stands. Fails as GetVideoInfo.
    int32_t GetVideoIndexEntry(uint32_t frame, MXFINDEXENTRYTag& entry);
    // Place of the group's samples of one channel (from 0), and of the frame's first one among them. Reads nothing.
    // kStatusWrongState when not open; kStatusFailure for a clip without sound, and when the group has none or its
    // place cannot be; kStatusInvalidArgument for a channel or, at or beyond the duration, a frame that there is not.
    int32_t GetAudioInfo(uint32_t frame, uint32_t channel, AUDIODATAINFOTag& info);
    // Place and size of a frame's ancillary element; its length is read from the file.
    // kStatusWrongState when not open, kStatusInvalidArgument at or beyond the frames of the file, kStatusFailure when
    // the group's place cannot be, kStatusIoError.
    int32_t GetANCInfo(uint32_t frame, ANCDATAINFOTag& info);
    // The stored place of the picture that is shown in place `frame`: the frame plus the temporal offset of its index
    // entry. -1 when there is no entry, and for a place before the first.
    int64_t GetCodingPosition(uint32_t frame);

    // The first 512 bytes of a stored picture, where its SEI messages are (ITU-T H.264), zeros behind a shorter one.
    // kStatusInvalidArgument for null, kStatusIoError, and the failures of GetVideoInfo.
    int32_t GetSEIType1(uint32_t frame, uint8_t* buffer);
    // Timecode and user bits (SMPTE ST 12-1) that a stored picture carries; `type` chooses among the pairs that there
    // may be. Where the picture alone does not tell, its key frame is looked at for the parameter set that does.
    // kStatusNotFound when it carries none, kStatusNoMemory, and the failures of GetSEIType1.
    int32_t GetTimecode(uint32_t frame, CTimecode& timecode, eSEIDataType type);
    int32_t GetUsersBit(uint32_t frame, CUsersBit& usersBit, eSEIDataType type);

    // What the header says; 0 when not open.
    int64_t GetDuration() const;          // frames of the clip
    int64_t GetOrigin() const;            // frames stored in front of it
    uint32_t GetPartitionFrame() const;   // frames of one group
    uint32_t GetVideoStandard() const;    // code, as VIDEO_STD_59_94I
    uint32_t GetCompressionType() const;  // code, as COMP_TYPE_LONGG25_1080
    uint32_t GetAudioCh() const;          // channels
    int64_t GetAudioDataSize() const;     // bytes of one channel
    uint32_t GetSamplingRate() const;     // samples per second
    uint8_t GetBytesPerSample() const;    // 2 or 3
    bool IsValidDMS() const;              // whether there is descriptive metadata (SMPTE ST 380)
    // The first timecode of the header. kStatusWrongState when not open, kStatusNotFound when there is none.
    int32_t GetStartTimecode(CTimecode& timecode) const;
    // UMID of the material package, zeros if there is none. kStatusWrongState when not open.
    int32_t GetMaterialUID(MXFUMIDTag& umid) const;

    // The XML that the header carries: bytes, and file offset of the first; 0 when there is none.
    uint32_t GetXMLDataSize() const;
    int64_t GetXMLOffset() const;
    // Copies GetXMLDataSize() bytes. kStatusInvalidArgument for null, kStatusNotFound when there is none.
    int32_t GetXMLData(uint8_t* buffer);

    // The thumbnail that the header carries: format 0 or 1, -1 when there is none; pixels and bytes, 0 when there is
    // none.
    int32_t GetThumbnailType() const;
    uint16_t GetThumbnailWidth() const;
    uint16_t GetThumbnailHeight() const;
    uint32_t GetThumbnailDataSize() const;
    // Copies GetThumbnailDataSize() bytes. kStatusInvalidArgument for null, kStatusNotFound when there is none.
    int32_t GetThumbnailData(uint8_t* buffer);

    // Bytes of header partition pack and header metadata, rounded up to a multiple of 4; 0 when not open.
    uint32_t GetHeaderSize() const;
    // Copies GetHeaderSize() bytes from the start of the file; false for null and when not open.
    bool GetHeaderData(uint8_t* buffer) const;

    // Logs 16 bytes as information (level 1), in three records. Nothing for null.
    void DebugDump(const uint8_t* bytes);

protected:
    // Offset of the first set with this key within the GetHeaderSize() bytes of a header; -1 when there is none, for
    // null and when not open.
    int64_t GetFrameworkOffset(const uint8_t* header, MXFKEYTag frameworkKey);

private:
    struct File;
    int32_t Load(File& file);
    const Op1bHeader& Clip() const;
    int32_t CopyOut(bool there, const SideData& data, uint8_t* buffer) const;
    // Shows the parser the parameter sets that a picture refers to.
    int32_t FeedKeyPicture(uint32_t frame, CAVCSEIData& parser);

    Mutex lock_;
    std::unique_ptr<File> file_;  // null when not open
};

// What a caller asks of the process-wide reader, and what it is told.
struct READOP1BREQUESTTag {
    char fileName[256]{};        // in: of command 1, with a terminating zero
    uint32_t frame{};            // in: of commands 2 and 3
    uint32_t duration{};         // out, of commands 1 to 3: frames of the clip
    uint32_t nextAnchorFrame{};  // out, of command 2: first frame of the next step
    uint32_t keyFrame{};         // out, of command 2: key frame of the picture shown in place of the frame
    uint32_t mode{};             // in: 1 steps by 4 frames, any other by 3
};

// One clip reader for the whole process, for callers that cannot use the class; from any thread. Commands:
//   1  opens the file of the request, in place of one that is open: 1, or -1 when that fails;
//   2  looks up the picture that is shown in place of the frame and stores where it lies: 2; -21 when there is no such
//      frame or `info` is null, -22 when there is no such picture; -20, with the file closed, when the frame is beyond
//      the duration or no file is open;
//   3  stores where the frame lies: 3, or -3;
//   4  closes the file: 4.
// Any other command does nothing and returns 5. A null request gives -1. The file comes from CFileIOMain.
extern "C" KMXF_API int32_t Readop1b(READOP1BREQUESTTag* request, VIDEOFRAMEINFOTag* info, int32_t command);
// Bytes of the header of the file that is open; 0 when none is.
extern "C" KMXF_API uint32_t Readop1bHeaderSize();
// Copies as many bytes of that header; false for null and when no file is open.
extern "C" KMXF_API bool Readop1bHeader(uint8_t* buffer);

}  // namespace kmxf
