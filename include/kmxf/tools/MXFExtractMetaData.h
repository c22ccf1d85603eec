#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kmxf/collaborators/FileIO.h"
#include "kmxf/collaborators/Timecode.h"
#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"

namespace kmxf {

class HeaderItems;
struct ClipMetadata;
struct FileMetadata;
struct VideoMetadata;
struct AudioMetadata;

// Gathers what the files of one clip say: one OP-Atom video file (SMPTE ST 390) and any number of sound files of one
// channel each, which stay in the order in which they are given. Values come from the header metadata (SMPTE ST 377-1),
// from descriptive metadata (SMPTE ST 380) with the local tags of each file's own primer, and from the first DIF unit
// of DV video. All of a file is read while ExtractMetaData runs; only GetDIFEndUMID goes back to the video file.
//
// An accessor returns
//   kStatusOk               the value was stored;
//   kStatusNotFound         nothing was extracted, or the pictures do not carry the value;
//   kStatusInvalidArgument  the pointer is null, or there is no such channel;
//   kStatusDisagree         the files of the clip differ (first block).
// The first that applies, in this order, counts, and the output is left untouched unless something else is said.
//
// One client thread at a time.
class KMXF_API CMXFExtractMetaData {
public:
    CMXFExtractMetaData();
    CMXFExtractMetaData(const CMXFExtractMetaData&) = delete;
    CMXFExtractMetaData& operator=(const CMXFExtractMetaData&) = delete;
    virtual ~CMXFExtractMetaData();

    // Forgets the clip before and reads the video file, then each sound file; none is a clip too. Returns 0, or the
    // failure of the first file that fails, with everything forgotten and a message logged: always kStatusIoError for
    // the video file; for a sound file kStatusIoError (it cannot be opened or ends too early), kStatusFailure (a value
    // is missing), kStatusInvalidArgument (no partition pack, or a value too long), kStatusNoMemory (no primer). No
    // memory is kStatusNoMemory for a sound file, and either of the two for the video file.
    //
    // A file may have no descriptive metadata; all of its texts are then "". A video file of DV without a whole DIF
    // unit fails.
    int32_t ExtractMetaData(const std::string& videoFile, const std::vector<std::string>& audioFiles);

    // Forgets everything.
    void ResetParam();

    // Without memory for a text all of these that give one return kStatusNoMemory.

    // --- the clip as a whole ---

    // Frames of the shortest file; of COMP_TYPE_DV100_720P an even number.
    int32_t GetClipDuration(uint32_t* frames);
    // The video file's name without its folder and without the four characters behind the first six: what a name of six
    // characters has for an extension.
    int32_t GetClipName(std::string* name);

    // Each of these is the video file's value if every sound file has the same. Otherwise kStatusDisagree, and a text
    // becomes "" and the take number 0. Two timecodes are the same when frame count and drop-frame flag are.
    int32_t GetPackageName(std::string* name);  // of the material package, UTF-8
    int32_t GetMXFStartTimecode(CTimecode* timecode);
    int32_t GetMaterialUMID(MXFUMIDTag* umid);
    int32_t GetJobFunction(std::string* text);
    int32_t GetFamilyName(std::string* text);
    int32_t GetFirstGivenName(std::string* text);
    int32_t GetProjectName(std::string* text);
    int32_t GetProjectNumber(std::string* text);  // bytes as they stand, up to the first that is 0
    int32_t GetSceneNumber(std::string* text);    // likewise
    int32_t GetTakeNumber(uint16_t* takeNumber);
    // "" or "moving pictures and sound"; any other kind counts as kStatusDisagree even when all files have it.
    int32_t GetClipKind(std::string* text);

    // --- the video file ---

    int32_t GetWideFlag(bool* wide);              // 16:9
    int32_t GetConsumerDVFlag(bool* consumerDV);  // IEC 61834
    int32_t GetVideoDuration(uint32_t* frames);
    // File offset of the essence in bytes. An offset that is no multiple of 4 is stored too, but with
    // kStatusInvalidArgument.
    int32_t GetVideoDataOffset(uint32_t* offset);
    // Bytes of essence as its element states them; 0 for a length in the short BER form.
    int32_t GetVideoDataSize(int64_t* size);
    int32_t GetVideoFileSize(int64_t* size);
    int32_t GetVideoCreationDate(MXFTIMESTAMPTag* date);  // of the material package
    int32_t GetVideoFileUMID(MXFUMIDTag* umid);           // of the file package
    int32_t GetVideoMaterialUMID(MXFUMIDTag* umid);
    int32_t GetVideoStartTimecode(CTimecode* timecode);
    int32_t GetVideoClipName(std::string* name);  // name of the material package, UTF-8
    // Codes of VideoStandard.h; 0 where the file does not tell.
    int32_t GetVideoStandard(uint32_t* videoStd);
    int32_t GetDVType(uint32_t* compType);

    // --- the first DIF unit; kStatusNotFound for what it does not carry, and for pictures that are not DV ---

    int32_t GetDIFStartTimecode(CTimecode* timecode);
    int32_t GetDIFStartUsersBit(CUsersBit* usersBit);
    int32_t GetDIFStartUMID(MXFUMIDEXTag* umid);
    int32_t GetDIFVideoStandard(uint32_t* videoStd);
    int32_t GetDIFDVType(uint32_t* compType);
    int32_t GetDIFConsumerDVFlag(bool* consumerDV);
    int32_t GetDIF2332PulldownFlag(bool* flag);
    int32_t GetDIFPulldownFrameRate(uint8_t* rate);

    // Extended UMID (SMPTE ST 330) of the last DIF unit within the clip duration, read from the video file now. -1 when
    // there is no such unit: the clip has no frame, is not DV, or the file cannot be opened or ends too early. A unit
    // without a UMID: kStatusFrameNoInfo.
    int32_t GetDIFEndUMID(MXFUMIDEXTag* umid);

    // --- one sound file ---

    // Whole video frames of the samples; 0xFFFFFFFF (0x7FFFFFFF at 96 kHz) when the video standard is unknown.
    int32_t GetAudioDuration(uint32_t channel, uint32_t* frames);
    // As for the video file.
    int32_t GetAudioDataOffset(uint32_t channel, uint32_t* offset);
    int32_t GetAudioDataSize(uint32_t channel, int64_t* size);
    int32_t GetAudioFileSize(uint32_t channel, int64_t* size);
    int32_t GetAudioFileUMID(uint32_t channel, MXFUMIDTag* umid);
    int32_t GetAudioMaterialUMID(uint32_t channel, MXFUMIDTag* umid);
    int32_t GetAudioBitsPerSample(uint32_t channel, uint32_t* bits);
    int32_t GetAudioSamplingRate(uint32_t channel, uint32_t* rate);  // Hz
    int32_t GetAudioClipName(uint32_t channel, std::string* name);   // name of the material package, UTF-8
    // A sound file does not tell its video standard: the timecode counts as 23.98p, 50i or 59.94i do.
    int32_t GetAudioStartTimecode(uint32_t channel, CTimecode* timecode);

protected:
    // The steps of ExtractMetaData. The first fails with kStatusIoError whatever the reason; both close the file.
    int32_t GetVideoInformation(const std::string& path);
    int32_t GetAudioInformation(const std::string& path);

    // What follows reads an open file, and logs nothing unless it is said. Null pointers are kStatusInvalidArgument; a
    // file that ends too early is kStatusIoError, also where a length in it leads outside; no partition pack where one
    // belongs is kStatusInvalidArgument; no memory is kStatusNoMemory.

    // Bytes of the KLV packet of any kind that begins in a buffer of 25 bytes, key and length included. 0 for null, and
    // for a length that 8 bytes do not hold or a size that 32 bits do not.
    uint32_t GetPartitionSize(const uint8_t* buffer);

    // File offset of the value of the essence element, which follows the body partition; 0 on failure.
    uint32_t GetDataOffset(IFileIO* file);
    // Bytes of that value; 0 for a length in the short BER form and on failure, which is logged.
    int64_t GetMXFBodyDataSize(IFileIO* file);

    // Finds an item of the header metadata by the key of its set and its local tag, as the free GetKeyParam does: the
    // offset of its value in the file and the length that it states. kStatusFailure when there is none.
    int32_t GetKeyInfo(IFileIO* file, MXFKEYTag key, uint16_t localTag, int64_t* offset, uint32_t* length);
    // Copies the value. A buffer too small for it, or of size 0: kStatusInvalidArgument, nothing is copied. Otherwise
    // as above.
    int32_t ReadMetadata(IFileIO* file, MXFKEYTag key, uint16_t localTag, void* buffer, uint32_t bufferSize);

    // The entries of the first primer pack in the file. kStatusNoMemory also when the file has none.
    int32_t GetPrimerPackData(IFileIO* file, std::vector<MXFLOCALTAGENTRYTag>& entries);
    // The local tag that the entries give to a label; 0 if none.
    uint16_t GetLocalTag(const std::vector<MXFLOCALTAGENTRYTag>& entries, MXFKEYTag ul);

    // What the first essence container label, and where it leaves that open the picture descriptor, says of the
    // pictures. kStatusFailure for a label that is not known and for a descriptor without the value; nothing is stored
    // then.
    int32_t GetPelmardFormat(IFileIO* file, uint32_t* fileType, uint32_t* videoStd, uint32_t* compType,
                             bool* consumerDV, bool* wide, bool* avci);
    // Whether the CDCI descriptor's aspect ratio is 16:9 and not anything else.
    int32_t GetDVWideFlag(IFileIO* file, bool* wide);
    // Video standard by the sample rate of the CDCI descriptor; 0 for a rate that is not known.
    int32_t Get720PFormat(IFileIO* file, uint32_t* videoStd);
    // By picture coding label (SMPTE RP 2027) and sample rate of the MPEG descriptor. kStatusFailure for another label.
    int32_t GetAVCIFormat(IFileIO* file, uint32_t* videoStd, uint32_t* compType);
    // Bytes of a DIF unit; 0 if there is none.
    uint32_t GetDIFSize(uint32_t videoStd, uint32_t compType);

    // The values of the descriptive metadata: "" and 0 for those that the file does not have. kStatusNoMemory also when
    // the file has no primer.
    int32_t GetDMSData(IFileIO* file, std::string* jobFunction, std::string* familyName, std::string* firstGivenName,
                       std::string* projectNumber, std::string* projectName, uint16_t* takeNumber,
                       std::string* clipKind, std::string* sceneNumber);

private:
    struct HeldFile;

    template <class Use>
    int32_t WithFile(const std::string& path, Use use);
    int32_t ReadVideo(IFileIO& file, VideoMetadata& video);
    int32_t ReadAudio(IFileIO& file, AudioMetadata& audio);
    int32_t ReadCommon(IFileIO& file, HeaderItems& items, const uint32_t* timecodeStd, FileMetadata& metadata);
    int32_t ReadDescriptive(IFileIO& file, FileMetadata& metadata);

    std::unique_ptr<HeldFile> file_;  // one for all files in turn, made when the first is opened
    std::unique_ptr<ClipMetadata> clip_;
};

}  // namespace kmxf
