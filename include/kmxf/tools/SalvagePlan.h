#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "kmxf/collaborators/Timecode.h"
#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"
#include "kmxf/structures/DescriptiveMetadata.h"
#include "kmxf/structures/IndexCommon.h"
#include "kmxf/tools/Check.h"
#include "kmxf/tools/Clip.h"

// Makes valid files of a recording that was cut off, all files of a clip together and in steps: a scan that only reads
// gives a plan, which says what would be kept, lost and rebuilt; carrying it out writes, and proves what it wrote.
// Without memory they throw std::bad_alloc, as the standard library does; what is left of a salvage that ended so can
// be salvaged again.
namespace kmxf {

// What the caller knows better than the files, or wants otherwise.
struct SalvageChoice {
    std::optional<uint32_t> videoStd{};        // codes of VideoStandard.h
    std::optional<uint32_t> compType{};        // of the pictures
    std::optional<uint16_t> bytesPerSample{};  // of the sound, 2 or 3
    bool trustTail = false;                    // frames at the end count as whole when all their bytes are there
    bool alone = false;                        // the files are taken for themselves: their clip may have others
    bool keepComplete = false;  // complete sound that is longer than the pictures stays; else it comes to be as long
    // The format of AVC Long-GOP pictures, told by themselves: asked when no header tells it. `pictures` are the first
    // ones of a clip as they are stored, one behind the other.
    std::function<std::optional<ClipPictureFormat>(std::span<const uint8_t> pictures)> lookAtPictures{};
};

// The index entries of the last `count` pictures (SMPTE ST 377-1, 11.2.3; stream offsets are not looked at), told by
// the pictures themselves. `pictures` are AVC Long-GOP pictures as they are stored, one behind the other, and begin
// with a group of a clip. Empty when they do not tell.
using SalvageIndexer = std::function<std::vector<MXFINDEXENTRYTag>(std::span<const uint8_t> pictures, size_t count)>;

enum class SalvageContent : uint8_t {
    kUnknown,
    kPicture,  // an OP-Atom file of pictures
    kSound,    // an OP-Atom file of one channel
    kClip      // an OP-1b file
};

enum class SalvageAction : uint8_t {
    kLeave,  // the file is complete, and nothing is done to it
    kMend,
    kGiveUp  // nothing of it can be kept
};

enum class SalvageOrigin : uint8_t { kHeader, kEssence, kSiblings, kCaller };

// Bytes that are not kept.
struct SalvageLoss {
    uint64_t offset = 0, size = 0;
    std::string why;
    bool operator==(const SalvageLoss&) const = default;
};

struct Op1bBody;

// What becomes of a file. Its bytes are `rebuiltSize`, `keptSize` and `lostSize` together.
struct SalvagedFile {
    std::string path;
    std::string name;  // the file's name in the clip, as "CLIP.mxf"; other than in the path where its writer was killed
    SalvageContent content = SalvageContent::kUnknown;
    SalvageAction action = SalvageAction::kGiveUp;
    std::string reason;        // why it is left or given up
    bool wantsFormat = false;  // it is given up for want of a format, which a SalvageChoice can name

    SalvageOrigin formatFrom = SalvageOrigin::kHeader;
    uint32_t videoStd = 0, compType = 0;
    bool wide = false;
    uint16_t bytesPerSample = 0;
    uint32_t samplesPerSec = 0;
    uint32_t channel = 0;       // OP-Atom: which track of its kind the file holds, from 0
    uint32_t channels = 0;      // of sound in the file
    bool playerLayout = false;  // OP-1b

    int64_t framesFound = 0;    // in the file, whole or not
    int64_t framesKept = 0;     // of these
    int64_t framesDamaged = 0;  // kept for the frames behind them, of those that were looked at
    uint64_t fileSize = 0;
    uint64_t rebuiltSize = 0;  // bytes that are made anew: the header area, old footers, tables of a group
    uint64_t keptSize = 0;     // bytes of essence that are kept as they are
    uint64_t lostSize = 0;     // the sum of the losses
    std::vector<SalvageLoss> losses;
    uint64_t cutSize = 0;              // of the losses: sound beyond the last picture, and frames beyond the common end
    uint64_t silenceSize = 0;          // bytes of silence that are added at the end of the sound
    std::vector<std::string> rebuilt;  // what is made anew, in words
    bool moves = false;                // some of what is kept comes to lie elsewhere: not to be done in place

    MXFUMIDTag umid;                         // of the file package
    uint64_t lastFrameHash = 0;              // of the last frame kept
    std::shared_ptr<const Op1bBody> body{};  // of an OP-1b file, as it was found and as it is to be
};

// What is to be done for a clip.
struct KMXF_API SalvagePlan {
    std::vector<SalvagedFile> files;  // pictures first, then sound by channels
    int64_t duration = 0;             // frames that all files have afterwards
    uint32_t clipType = 0;
    bool alone = false;  // as chosen
    MXFUMIDTag materialUMID;
    bool newMaterialUMID = false;  // no header holds one any more
    std::string packageName;
    int64_t startTimecode = 0;  // timecode frames
    bool startDrop = false;
    MXFTIMESTAMPTag creationDate;           // year 0: not known
    std::string company, product, version;  // company empty: not known
    MXFKEYTag productUID;
    CDescriptiveMetadata metadata;

    bool IsComplete() const;  // every file is left alone
    bool IsHopeless() const;  // nothing can be kept
    bool LosesAnything() const;
    // The file of which something could not be read, given up for it: its clip is better left as it is. Null: none.
    const SalvagedFile* Unreadable() const;
};

// All files in a folder that can be files of clips, by their names. Those that a killed writer has left under their
// working names (".NAME.mxf.part123") are among them, and count by their final names.
KMXF_API std::vector<std::string> ListSalvageFiles(const std::string& folder);
// Puts files together that are of one clip: those with one material UMID, and, because a recording that was cut off may
// have none yet, those that are named as the files of a clip are (NAME.mxf, NAME00.mxf, NAME01.mxf, ...), unless their
// material UMIDs differ. What a killed writer has left is no part of a clip of its name that was written before or
// after, and no two files of a clip are of one track. Reads each header once.
KMXF_API std::vector<std::vector<std::string>> GroupSalvageFiles(const std::vector<std::string>& paths);
// The files beside this one that are of its clip, the file itself among them.
KMXF_API std::vector<std::string> FindSalvageFiles(const std::string& path);

// Looks at the files of one clip, and opens them for reading only. A file that cannot be opened or read, or of which
// nothing can be kept, is given up and says why; the others are salvaged without it. A complete file is left as it is,
// also when the others come out shorter. Frames count as whole by their structure:
// DV by the ids of all DIF blocks (SMPTE ST 314), AVC-Intra by its slices; of these the last 4 MiB are looked at, or
// more back to the last whole frame. A bad frame in front of a whole one is kept. Of an OP-1b clip every group of
// frames is kept that can be told apart, whatever is damaged in front of it, and its packs, heads and tables are
// mended.
KMXF_API SalvagePlan ScanForSalvage(const std::vector<std::string>& paths, const SalvageChoice& choice = {},
                                    const SalvageIndexer& indexer = {});

// How it went.
struct SalvageResult {
    bool done = false;
    std::string failure;                 // "FILE: what went wrong", when it is not done
    bool unreadable = false;             // and that is that the file cannot be read
    std::vector<std::string> notes;      // what the plan could not know, in words
    std::vector<CheckFinding> findings;  // of a check of the written files, numbered as in the plan
    bool IsProven() const { return done && findings.empty(); }
};

// Carries a plan out: `targets` names a file for each of the plan's, the file itself to mend it in place. Any other is
// written as a copy, files that are left alone too; it must not exist. Files that are given up have none, and their
// names are not looked at. Nothing is written when a name is too long for a reader (255 bytes), or when a file that is
// to be mended in place has to be moved within. Afterwards all files are checked and their last frames read.
KMXF_API SalvageResult CarryOutSalvage(const SalvagePlan& plan, const std::vector<std::string>& targets);

}  // namespace kmxf
