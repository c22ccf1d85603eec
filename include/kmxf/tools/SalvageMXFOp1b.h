#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "kmxf/collaborators/Common.h"
#include "kmxf/collaborators/Notify.h"
#include "kmxf/collaborators/Timecode.h"
#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"

namespace kmxf {

struct SalvagedClip;

// Repairs an OP-1b clip file (SMPTE ST 391) whose recording was cut off, in place and on a thread of its own. It keeps
// the groups of frames in front of the first one that is not whole. A whole group has the ANC elements, the sound and
// the index of its frames, none more and none less. Header, footer and random index are written anew, and the file is
// cut behind them. Format, UMID, names, dates, timecode, descriptive metadata, XML and thumbnail are those of the old
// header.
//
// A stream that fails to read, or reads less than the file has, fails the run: what is behind that place may be good.
// Nothing is written before everything that is to be written has been made and has its memory; a run that fails or is
// cancelled until then leaves the file as it is. Files come from CFileIOMain; cutting is done by name in the local file
// system. Every failure is logged.
class KMXF_API CSalvageMXFOp1b {
public:
    CSalvageMXFOp1b();
    CSalvageMXFOp1b(const CSalvageMXFOp1b&) = delete;
    CSalvageMXFOp1b& operator=(const CSalvageMXFOp1b&) = delete;
    // Cancels a run and waits for its end, and for that of one in whose final notification it was started; for the one
    // on whose thread it is called it does not wait.
    virtual ~CSalvageMXFOp1b();

    // The file of the next run and of IsCompletedFile. False for null, for an empty name, and without memory for it.
    bool SetFilename(const char* fileName);

    // Starts a run and returns 0 after a second, or when the run has finished before. `notify` is called on the run's
    // thread: kSalvageProgress with a percentage after each group and with 100 after success; at last
    // kSalvageFinished, with kSalvageCompleted, kSalvageCancelled or kSalvageFailed. Until that call has returned
    // `notify` must live. With that call the run is over, and the next one may be started, also within it; one that
    // another thread starts as soon as it is let can notify at the same time.
    //
    // kStatusInvalidArgument: null pointer. kStatusWrongState: a run is going on. kStatusNoMemory: none for the run.
    // Throws ThreadException when no thread can be started, or its starter throws.
    int32_t Salvage(ISalvageMXFNotify* notify);

    // Ends a run as soon as possible, from any thread; without a run it does nothing. Once writing has begun it is too
    // late.
    void Cancel();

    // Whether the header names a footer (FooterPartition is not 0), so that there is nothing to repair; false also for
    // a file that cannot be opened or is shorter than its header.
    bool IsCompletedFile();

    // Results of the last run that was started; 0 or empty unless it ended with kSalvageCompleted. They may be asked on
    // any thread.

    // Frames of the clip: those in the file, without those at the end that are missing the ones they wait for.
    int64_t GetDuration() const;
    int64_t GetVideoDataSize() const;  // bytes of the pictures, without keys and lengths
    int64_t GetAudioDataSize() const;  // bytes of one channel, for all frames in the file
    uint32_t GetVideoStandard() const;
    uint32_t GetCompType() const;
    uint8_t GetBytesPerSample() const;  // 2 or 3; 2 without sound
    uint32_t GetClipType() const;       // 0x10100 + number of sound channels
    int64_t GetOrigin() const;          // frames in front of the first one to be shown
    MXFTIMESTAMPTag GetCreationDate() const;
    MXFUMIDTag GetUMID() const;  // of the material package (SMPTE ST 330)
    // Timecode of the first picture, or that of the header where the picture has none.
    CTimecode GetStartTimecode() const;
    // Of the first picture; zero where it has none.
    CUsersBit GetStartUsersBit() const;
    MXFUMIDEXTag GetStartUMID() const;

private:
    struct Run;

    std::shared_ptr<Run> Current() const;
    SalvagedClip Clip() const;

    std::string fileName_;
    mutable Mutex lock_;        // of the pointer
    std::shared_ptr<Run> run_;  // shared with its thread
};

}  // namespace kmxf
