#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "kmxf/collaborators/Common.h"
#include "kmxf/collaborators/FileIO.h"
#include "kmxf/collaborators/Timecode.h"
#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"
#include "kmxf/structures/DescriptiveMetadata.h"

namespace kmxf {

class COp1bBase;
class OwnPieces;
struct BuiltBytes;
struct LogPlace;

// Writes one OP-1b clip file (SMPTE ST 391) of AVC Long-GOP pictures and PCM sound while they come in: a header of
// 131072 bytes, then groups of frames, each with its ANC elements, its sound and its index; at the end the footer, the
// random index, and the header once more with the final values.
//
// Calling order: setters, Open, XML and thumbnail, RegisterCallback if wanted; then for each group its frames with
// WriteVideo, GetPartitionFrame() of them, and one block of sound for each channel, in order, with WriteAudio; the last
// group may be shorter. Close ends it. Settings that belong in the final header may still change while the file is
// open.
//
// Settings go back to their defaults only when Close succeeds. Every failure is logged. A failed write closes the file;
// what is on the medium then is a recording that was cut off.
//
// One client thread at a time. Stream operations hold the writer's Mutex for their whole run; completions arrive on the
// stream's thread and don't take it. The client's callback must not call the writer.
class KMXF_API CCreateMXFOp1b : public IFileIOCallback {
public:
    CCreateMXFOp1b();
    CCreateMXFOp1b(const CCreateMXFOp1b&) = delete;
    CCreateMXFOp1b& operator=(const CCreateMXFOp1b&) = delete;
    // Closes the file as it is: a recording that Close was not called for keeps its first header and has no footer.
    ~CCreateMXFOp1b() override;

    // Called by the stream. Completions of the client's pieces (kind 4) go on to the client's callback unchanged; those
    // of the writer's own pieces (1 and 2) free the oldest piece that is still pending. An error is logged.
    void CallbackForWriteComplete(uint64_t offset, int32_t error, int32_t kind) override;

    // The setters take no lock. Those that have no status of their own below return 0. Those of texts, descriptive
    // metadata, XML and thumbnail return kStatusNoMemory when there is none, and what was set before stays.

    // A code of VideoStandard.h; also sets the number of frames in a group, 0 for a code without groups.
    int32_t SetVideoStandard(uint32_t videoStandard);
    int32_t SetCompType(uint32_t compressionType);
    // 2 or 3; otherwise kStatusInvalidArgument, and the setting stays.
    int32_t SetBytesPerSample(uint8_t bytes);
    // Number of pictures in bits 8-11, of sound channels in bits 0-7. kStatusUnexpectedKind, with everything stored all
    // the same, when there is not exactly one picture.
    int32_t SetClipType(uint32_t clipType);
    // Basic UMID (SMPTE ST 330) of the material package; all zero: a new one.
    int32_t SetUMID(MXFUMIDTag umid);
    // Name of the material package, up to 200 UTF-16 units. A name that does not fit is left out of the file.
    int32_t SetPackageName(const std::string& utf8);
    int32_t SetDescriptiveMetadata(const CDescriptiveMetadata& metadata);
    int32_t SetStartTimecode(const CTimecode& timecode);
    // What made the file: company and product of 1 to 16 bytes, version of 1 to 4, productUID points at 16 bytes.
    // Otherwise kStatusInvalidArgument, and nothing is stored.
    int32_t SetIdentification(const std::string& company, const std::string& product, const std::string& version,
                              const uint8_t* productUID);
    // The clip's XML and thumbnail, for the open file; bytes are copied. kStatusWrongState: not open, or a position
    // without a thumbnail. kStatusUnexpectedKind: a format other than 0. kStatusInvalidArgument: null pointer, or a
    // thumbnail that does not fit the header.
    int32_t SetXMLData(const uint8_t* xml, uint16_t length);
    int32_t SetThumbnailData(const uint8_t* data, uint16_t size, uint16_t width, uint16_t height, uint8_t format);
    int32_t SetThumbnailPosition(uint32_t position);  // the frame that it shows
    // False, the default: the bare list of sets. True: packages and descriptors as other players need them; see
    // COp1bBase::SetPlayerLayout. Taken at Open.
    int32_t SetPlayerLayout(bool on);
    // Puts every setting back to its default. The file stays open.
    void ResetParam();

    // Opens the named file through `stream`, which stays the client's and must outlive the recording; nothing is
    // written yet. XML and thumbnail are placeholders until they are set. Returns 0 (also when already open, where it
    // does nothing), kStatusInvalidArgument (null pointer; or a format without a builder), kStatusIoError,
    // kStatusNoMemory, or kStatusFailure: CheckFormat is false. The stream then stays open, and closing it is the
    // client's.
    int32_t Open(const char* fileName, IStreamFileIO* stream);
    // Who gets the completions of the client's own pieces, on the stream's thread; null for nobody. Returns 0.
    int32_t RegisterCallback(IFileIOCallback* callback);
    // Writes one access unit, in coding order, with what its index entry says (SMPTE ST 377-1, 11.2.3): offset from
    // display to coding position, offset to the key frame, flags. 0x3B marks a frame that cannot be shown, because one
    // of its references was cut off: such frames count for the origin. The piece stays the client's and must live until
    // its completion. Returns its size, rounded up to a multiple of 4, or -1, also for a frame of more than 16777212
    // bytes. A frame that follows a short group whose sound was written is refused, and the file stays open.
    int32_t WriteVideo(StreamPiece* frame, int8_t temporalOffset, int8_t keyFrameOffset, uint8_t flags);
    // Writes the sound of one channel for the frames of the group: DurationToAudioSample of them, at 48 kHz. Returns
    // its size or -1.
    int32_t WriteAudio(StreamPiece* block, uint8_t channel);
    // Ends the last group, writes footer, random index and the final header, and closes; a file without frames is only
    // closed. Not open: 0. Returns a builder's status, kStatusNoMemory or kStatusIoError. Whatever it returns, the file
    // is closed. That the stream's own Close failed is only logged.
    int32_t Close();

    bool IsOpened() const;
    uint32_t GetDuration() const;        // frames written
    int64_t GetCurrentOffset() const;    // bytes written
    uint32_t GetPartitionFrame() const;  // frames in a group, of the open file or else of the settings
    // Whether a file can be of this format: true without bit 0x200 of the compression type, else for 23.98p, 29.97p,
    // 59.94p, 25p and 50p only.
    static bool CheckFormat(uint32_t videoStandard, uint32_t compressionType);

protected:
    // Writes the header of a recording that begins: no durations, no descriptive metadata, no footer.
    int32_t WriteHeader();
    // Passes the settings to the builder; `full` for the final header.
    int32_t SetMXFParam(bool full);
    // Closes the stream and destroys the builder. Returns 0.
    int32_t FileClose();

private:
    // What decides the layout of a file; taken over by Open.
    struct Format {
        uint32_t videoStd = 0;
        uint32_t compType = 0;
        uint8_t bytesPerSample = 2;
        uint8_t channels = 0;
        uint32_t groupFrames = 0;
    };

    // Everything that ResetParam resets.
    struct Settings {
        Settings();

        Format format;
        uint32_t clipType = 0x1FFFF;  // says nothing of the channels until it is set
        MXFUMIDTag umid;
        std::string packageName;
        CDescriptiveMetadata metadata;
        int64_t startTimecode = 0;
        bool startDrop = false;
        std::string company, product, version;
        MXFKEYTag productUID;
        bool playerLayout = false;
    };

    // What a piece is, as the stream's Write is told and its completion says.
    enum : int32_t { kBodyPiece = 1, kFooterPiece = 2, kEssencePiece = 4 };

    bool IsReady(const StreamPiece* piece) const;
    bool IsGroupEnded() const { return framesIndexed_ == frames_; }
    uint32_t GroupSize() const;
    int32_t GiveUp(const LogPlace& place, const char* message, int32_t status);
    // For who has left the lock on the way.
    int32_t GiveUpWithoutMemory(const LogPlace& place, int32_t status);

    int32_t WriteBytes(std::span<const uint8_t> bytes, int32_t kind);
    int32_t WriteBuilt(int32_t builderStatus, const BuiltBytes& built, uint32_t size, int32_t kind);
    int32_t WriteKL(uint32_t trackCode, int64_t length, uint32_t size);
    int32_t WriteEssence(StreamPiece* piece);
    int32_t WriteVideoPartition(bool withIndex);
    int32_t WriteAudioPartition(uint8_t channel, bool withIndex);
    int32_t WriteANCPartition();
    int32_t EndGroup(const LogPlace& place);
    int32_t WriteFooter();
    int32_t RewriteHeader();

    Settings settings_;
    Format format_;
    MXFTIMESTAMPTag creationDate_;
    IStreamFileIO* stream_ = nullptr;  // the client's; kept after the file was closed
    std::unique_ptr<COp1bBase> builder_;
    bool opened_ = false;
    uint32_t frames_ = 0;         // written
    uint32_t framesIndexed_ = 0;  // of these, in groups that have their index
    int64_t origin_ = 0;
    int64_t offset_ = 0;       // in the file
    int64_t videoOffset_ = 0;  // in the essence streams
    int64_t audioOffset_ = 0;
    std::atomic<IFileIOCallback*> callback_{nullptr};
    Mutex mutex_;
    std::unique_ptr<OwnPieces> ownPieces_;
};

}  // namespace kmxf
