#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "kmxf/collaborators/Common.h"
#include "kmxf/collaborators/FileIO.h"
#include "kmxf/collaborators/Notify.h"
#include "kmxf/collaborators/Timecode.h"
#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"
#include "kmxf/structures/DescriptiveMetadata.h"

namespace kmxf {

class COpAtomBase;
class OwnPieces;
class PieceAllocator;
struct LogPlace;

// Writes one OP-Atom file (SMPTE ST 390) while its essence is being produced: a header area of 32768 bytes, the essence
// as the client supplies it, the footer behind it; at the end the header is written once more with the final values.
//
// Calling order: setters, Open, RegisterCallback if wanted, Write again and again, Close. What belongs in the final
// header (creation date, package name, descriptive metadata, identification) may still be set while the file is open.
//
// After a failure all settings are back at their defaults and the file is closed: set everything again before the next
// Open. Every failure is logged.
//
// One client thread at a time. Stream operations hold the writer's Mutex for their whole run; completions arrive on the
// stream's thread and don't take it. The client's callback must not call the writer.
class KMXF_API CCreateMXFBase : protected IFileIOCallback {
public:
    CCreateMXFBase();
    CCreateMXFBase(const CCreateMXFBase&) = delete;
    CCreateMXFBase& operator=(const CCreateMXFBase&) = delete;

    // Slot 0. Closes the file as it is: a recording that Close was not called for keeps its first header and has no
    // footer.
    ~CCreateMXFBase() override;

    // Slot 1, called by the stream. Completions of the client's pieces go on to the client's callback unchanged; those
    // of the writer's own pieces free the oldest piece that is still pending. A status other than 0 is logged.
    void CallbackForWriteComplete(uint64_t id, int32_t status, int32_t tag) override;

    // Slot 2. Opens the named file through `stream`, which stays the client's and must outlive the recording. The
    // creation date becomes the current time. With rewriteHeaderAtClose the header is written again by Close; without
    // it the header written first is final, and SetRenderingDataSize must have said how much essence will come.
    // Returns 0 (also when already open, where it does nothing), kStatusInvalidArgument (null stream; nothing changes),
    // kStatusIoError or kStatusNoMemory.
    virtual int32_t Open(IStreamFileIO* stream, bool rewriteHeaderAtClose);

    // Slot 3. The flags for the stream's Open: kOpenCreate.
    virtual uint32_t GetOpenFlag();

    // Slot 4. Passes the settings with their final values to the builder. Returns the status of the failing step;
    // kStatusIoError without a builder.
    virtual int32_t SetMXFParam() = 0;

    // Slot 5. Puts every setting back to its default, bytes written included; not the file name. The file stays open.
    virtual void ResetParam();

    // Slot 6. Frames written so far; 0 in the base.
    virtual uint32_t GetDuration();

    // The setters store without checking anything but what is said here, take no lock and return 0. Those of texts and
    // of descriptive metadata return kStatusNoMemory when there is none for a copy, and nothing is stored.

    // Name for the stream's Open; kept by ResetParam. kStatusInvalidArgument: null, or longer than 255 bytes.
    int32_t SetFilename(const char* fileName);
    // A code of VideoStandard.h.
    int32_t SetVideoStandard(uint32_t videoStd);
    // Tracks of the whole clip: number of pictures in bits 8-11, of sounds in bits 0-7.
    int32_t SetClipType(uint32_t clipType);
    // Which picture or sound track of the clip this file holds, from 0.
    int32_t SetChannel(uint32_t channel);
    // 48000 or 96000; any other value stores 48000.
    int32_t SetSamplesPerSec(uint32_t samplesPerSec);
    // Basic UMID (SMPTE ST 330) of this file's package, and of the material package without a shot UMID.
    int32_t SetUMID(MXFUMIDTag umid);
    // UMID of the material package, the same in all files of a clip; all zero: none.
    int32_t SetShotUMID(MXFUMIDTag umid);
    // Frames recorded on earlier media; anything but 0 makes this a spanned clip.
    int32_t SetPrevDuration(int64_t duration);
    // Timecode frames since 00:00:00:00 and drop-frame flag (SMPTE ST 12-1).
    int32_t SetStartTimecode(int64_t totalFrames, bool drop);
    int32_t SetStartTimecode(const CTimecode& timecode);
    // Call it after Open, which replaces it with the current time.
    int32_t SetCreationDate(MXFTIMESTAMPTag date);
    // Name of the material package, up to 200 UTF-16 units.
    int32_t SetPackageName(const std::string& utf8);
    int32_t SetDescriptiveMetadata(const CDescriptiveMetadata& metadata);
    // What made the file: company and product of 1 to 16 bytes, version of 1 to 4, productUID points at 16 bytes.
    // Otherwise kStatusInvalidArgument, and nothing is stored.
    int32_t SetIdentification(const std::string& company, const std::string& product, const std::string& version,
                              const uint8_t* productUID);
    // Bytes of essence that will be written, for a file whose header is not written again at Close. The AVC-Intra
    // header is added here, by the compression type set at this moment: set that first.
    int32_t SetRenderingDataSize(int64_t size);
    // Does nothing: no write is ever tried again.
    int32_t SetWriteRetry(IMXFStatus* status);

    bool IsOpened() const;
    bool IsSpanned() const;

    // These store through the pointer and return 0; a null pointer is ignored.
    int32_t GetTotalDataSize(int64_t* size);       // bytes of essence written, AVC-Intra header included
    int32_t GetTotalDuration(uint32_t* duration);  // GetDuration()
    int32_t GetDataOffset(uint32_t* offset);       // file offset of the essence: 32768

    // Size of the last, incomplete 32768-byte unit of the essence: what ReadBack gives back.
    uint32_t GetReadBackSize();

    // Writes essence at the file's current position; the first call writes the header first (for AVC-Intra also the
    // 512-byte parameter set header). The piece stays the client's and must live until its completion, which carries
    // tag 0. Returns the piece's size, or -1: short writes are failures.
    int32_t Write(StreamPiece* piece, int32_t unused);

    // Reads from the file's current position and moves it. Returns the count read, or -1 on failure and at the end of
    // the file, both of which close.
    int32_t Read(StreamPiece* piece);

    // Takes the last, incomplete 32768-byte unit of the essence back into a piece of exactly GetReadBackSize() bytes,
    // so that it can be filled up and written again whole. Returns the count read, 0 if there is no incomplete unit,
    // or -1.
    int32_t ReadBack(StreamPiece* piece);

    // Waits until everything written is on the medium. kStatusWrongState, kStatusIoError.
    int32_t DataSync();

    // Who gets the completions of the client's own pieces, from now until the next Open, on the stream's thread. It
    // must live until the file is closed. kStatusWrongState: not open; kStatusInvalidArgument: null, which closes.
    int32_t RegisterCallback(IFileIOCallback* callback);

    // Writes the footer and the final header and closes; a file without essence is only closed. Not open: 0. Returns
    // the status of SetMXFParam or of the builder, kStatusNoMemory, kStatusIoError, or kStatusFailure when the essence
    // is not as long as SetRenderingDataSize said. Whatever it returns, the file is closed. That the stream's own Close
    // failed is only logged.
    int32_t Close();

protected:
    // What a piece is, as the stream's Write is told and its completion says.
    enum : int32_t { kEssencePiece = 0, kHeaderPiece = 1, kFooterPiece = 2 };

    // Everything that ResetParam resets.
    struct Settings {
        Settings();

        uint32_t videoStd = 0;
        uint32_t compType = 0x1FFFF;
        uint32_t clipType = 0;
        uint32_t channel = 0;
        uint32_t samplesPerSec = 48000;
        MXFUMIDTag umid;
        MXFUMIDTag shotUMID;
        int64_t startTimecode = 0;
        bool startDrop = false;
        MXFTIMESTAMPTag creationDate;
        int64_t prevDuration = 0;
        std::string packageName;
        CDescriptiveMetadata metadata;
        std::string company, product, version;
        MXFKEYTag productUID;
        bool rewriteHeader = true;
        int64_t renderingDataSize = 0;
        int64_t dataSize = 0;   // written so far
        uint32_t duration = 0;  // as last passed to the builder
    };

    // Passes the piece to the stream. Returns its size, or -1: "Write Error.", everything reset, the file closed (a
    // null piece or no stream: only -1). The piece may be gone when this returns.
    int32_t WriteStreamPiece(StreamPiece* piece, int32_t tag);
    // The same for a piece that the writer allocated: it is freed by its completion, or else when the file is closed.
    int32_t WriteOwnPiece(StreamPiece* piece, int32_t tag);

    // Closes the stream if open, frees what is still pending and destroys the builder. Returns 0. A concrete class
    // calls it in its destructor, while completions can still arrive at the whole object.
    int32_t FileClose();
    // ResetParam and FileClose; passes the status on.
    int32_t ResetAndClose(int32_t status);

    // The two halves of every SetMXFParam; the builder must be there. A failing step is logged as its own message at
    // `place` and its status returned; with `strict` false only SetDuration and SetDMS can fail.
    int32_t PassRecording(const LogPlace& place, const char* sourceFile, bool strict);
    int32_t PassTexts(const LogPlace& place, const char* sourceFile, bool strict);
    // What made the file; a text that does not fit leaves its field empty.
    int32_t PassIdentification();

    Settings settings_;
    std::string fileName_;
    IStreamFileIO* stream_ = nullptr;  // the client's; kept after the file was closed
    std::unique_ptr<COpAtomBase> builder_;
    bool hasPicture_ = true;  // false: never an AVC-Intra header in front, whatever the compression type

private:
    struct BuilderStep;

    bool HasAVCIHeader() const;
    int32_t Admit(const LogPlace& place, const void* argument);
    int32_t GiveUp(const LogPlace& place, const char* message, int32_t status);
    // For who has left the lock on the way.
    int32_t GiveUpWithoutMemory(const LogPlace& place, int32_t status);
    int32_t WriteHeader();
    int32_t WriteBytes(const LogPlace& place, PieceAllocator& allocator, const void* bytes, uint32_t size, int32_t tag);
    int32_t WriteFooter(PieceAllocator& allocator);
    int32_t RewriteHeader(PieceAllocator& allocator);
    int32_t ReadFirstUnit(StreamPiece* piece, uint32_t size);

    bool opened_ = false;
    bool headerWritten_ = false;  // not told by the data size, which ReadBack can bring back to 0
    std::atomic<IFileIOCallback*> callback_{nullptr};
    Mutex mutex_;
    std::unique_ptr<OwnPieces> ownPieces_;
};

}  // namespace kmxf
