#pragma once

#include <cstdint>
#include <span>

#include "kmxf/collaborators/Common.h"
#include "kmxf/collaborators/FileIO.h"
#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"

namespace kmxf {

// Reads one OP-Atom file (SMPTE ST 390): one essence stream, clip-wrapped in a single element behind a header area of
// 32768 bytes. It finds the essence, hands out its bytes piece by piece and answers questions about single items of
// the header metadata. The stream belongs to the caller and must outlive its use here; the reader opens and closes it.
//
// One reader serves one thread at a time: Open, Close, Read and the readers' Seek lock, everything else does not.
class KMXF_API CReadMXFBase {
public:
    CReadMXFBase();
    CReadMXFBase(const CReadMXFBase&) = delete;
    CReadMXFBase& operator=(const CReadMXFBase&) = delete;
    // Closes the file.
    virtual ~CReadMXFBase();

    // Opens the named file (SetFilename) on `stream` and, if asked to, reads its header. A file that is open already
    // is left to its stream as it is.
    //
    // Returns 0; kStatusInvalidArgument for a null stream; kStatusIoError when the file cannot be opened;
    // kStatusNotFound for a file without essence, which stays open with its header read; or another failure of
    // ReadHeader, with the file closed. A file that is not OP-Atom gives 0, and is closed: ask IsOpened.
    virtual int32_t Open(IStreamFileIO* stream, bool readHeader);

    // Closes the file, if one is open. Always 0.
    virtual int32_t Close();

    // Reads the next bytes of the file into `piece` and returns their count, which is smaller than the piece at the
    // end of the file. Reading is not limited to the essence: it is for the caller to stop at GetDataSize.
    //
    // Returns -1, and closes the file, at its end, for a null piece and when the stream fails; -1 when not open.
    virtual int32_t Read(StreamPiece* piece);

    // Finds the essence from the first 32768 bytes, in which the header partition, its metadata and index, the body
    // partition pack (SMPTE ST 377-1) and the essence element's key and length must lie, and leaves the stream at the
    // first byte of the essence.
    //
    // Returns 0, also when there is nothing to do (not open, already read) and for a file that is not OP-Atom, which
    // is closed; kStatusNotFound for an essence of 0 bytes. The other failures close the file: kStatusIoError for a
    // file shorter than the header area, a failing stream or no piece; kStatusInvalidArgument for a header that is no
    // partition pack or leads out of the header area; kStatusNoMemory.
    virtual int32_t ReadHeader();

    // The mode in which Open opens the file: kOpenRead.
    virtual uint32_t GetOpenFlag();

    // The file that Open will open; it outlives Close. kStatusInvalidArgument for null and for names over 255 bytes.
    int32_t SetFilename(const char* fileName);

    // Whether a file is open.
    bool IsOpened() const;
    // Whether the header of the open file has been read.
    bool IsReadHeader() const;

    // File offset in bytes of the first byte of the essence.
    // kStatusInvalidArgument for null, kStatusWrongState before the header is read.
    int32_t GetDataOffset(uint32_t* offset) const;

    // Bytes of the essence, as its length field states.
    // kStatusInvalidArgument for null, kStatusWrongState before the header is read.
    int32_t GetDataSize(int64_t* size) const;

    // Bytes of the file; the stream is left at its end.
    // kStatusInvalidArgument for null, kStatusWrongState when not open, kStatusIoError when the stream fails.
    int32_t GetFileSize(int64_t* size);

    // The stream's position in bytes from the start of the file.
    // kStatusInvalidArgument for null, kStatusWrongState when not open, kStatusIoError when the stream fails.
    int32_t GetFileOffset(int64_t* offset);

    // kFileTypeVideo or kFileTypeAudio by the label of the essence container, all 16 bytes of it (SMPTE ST 383,
    // ST 381-3, ST 382), and kFileTypeUnknown for any other label.
    // kStatusInvalidArgument for null, kStatusWrongState before the header is read.
    int32_t GetFileType(uint32_t* fileType) const;

    // Looks for an item by its local tag in the first set with `key`, and behind that set if it has no such item. Tags
    // are compared as numbers, the primer pack is not asked. The stream is left at the first byte of the essence.
    //
    // With a null `buffer` the length of the value goes to `size` and its file offset to `offset`, each unless null.
    // With a buffer, which must hold the whole value (at most 65535 bytes), only the value is stored.
    //
    // Returns 0; kStatusWrongState before the header is read; kStatusIoError when the bytes in front of the essence
    // cannot be read or no piece can be had; kStatusNotFound without key or tag. The file stays open.
    int32_t ReadMetadata(MXFKEYTag key, uint16_t localTag, void* buffer, uint32_t* size, int64_t* offset);

    // Whether the file carries descriptive metadata: a clip or a scene framework (SMPTE ST 380).
    bool IsValidDMS();

protected:
    // Closes the file and forgets the stream and the essence. Takes no lock. Always 0.
    int32_t FileClose();

    // As the public form, but stores no more of the value than `buffer` holds.
    int32_t ReadMetadata(const MXFKEYTag& key, uint16_t localTag, std::span<uint8_t> buffer);

    char fileName_[256]{};
    IStreamFileIO* stream_ = nullptr;
    bool headerRead_ = false;
    bool opened_ = false;
    uint32_t dataOffset_ = 0;
    int64_t dataSize_ = 0;
    MXFKEYTag essenceContainer_;
    Mutex lock_;

private:
    template <class Take>
    int32_t FindMetadata(const MXFKEYTag& key, uint16_t localTag, Take take);
};

}  // namespace kmxf
