#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "kmxf/tools/SalvagePlan.h"
#include "tools/EssenceFrames.h"
#include "tools/SalvageHeader.h"
#include "tools/SalvageInput.h"

// The part of a salvage plan that is about OP-Atom files.
namespace kmxf {

// A file while its plan is made.
struct ScannedFile {
    SalvagedFile& file;
    std::unique_ptr<SalvageInput> source;
    SalvageHeader header;
    // OP-Atom
    EssenceFormat format{};
    uint64_t essenceEnd = 0;
    bool isWhole = false;  // closed, and nothing of its structure is damaged

    bool IsGivenUp() const { return file.action == SalvageAction::kGiveUp; }
    // A file that has its footer is closed as long as its header tells what it is.
    bool IsClosed() const { return header.footer && header.IsFinal() && (header.IsPicture() || header.IsSound()); }
    // Bytes between the header and the footer, or the end.
    uint64_t EssenceSize() const;
};

// The format of pictures that begin where OP-Atom essence does, told by themselves.
std::optional<EssenceFormat> FindEssenceFormat(SalvageInput& source);

// Tells what the file is, or gives it up. `beside`: pictures of its name are there, so that two digits at the end of it
// name a channel.
void RecogniseOpAtom(ScannedFile& scanned, const SalvageChoice& choice, bool beside);

// Finds the whole frames of pictures, or gives the file up.
void ScanPictures(ScannedFile& scanned, const SalvageChoice& choice);

// Finds the format of sound and the frames that it is enough for, or gives the file up. `pictures` is the number of the
// clip's whole pictures, -1 when it has none; `videoStd` their standard, 0 when nobody tells.
void ScanSound(ScannedFile& scanned, const SalvageChoice& choice, const std::vector<ScannedFile>& all, int64_t pictures,
               uint32_t videoStd);

// Settles what is kept of a scanned file for a clip of `duration` frames: of neither pictures nor sound more, and of
// sound not less, which silence makes up for.
void FitOpAtom(ScannedFile& scanned, int64_t duration);

// Whether pictures were recorded into the file of which none came to the medium: not for want of reading it or of
// knowing their format.
bool HoldsNoPicture(const ScannedFile& scanned);

// The first timecode that the pictures themselves carry.
std::optional<CTimecode> FirstTimecode(const ScannedFile& scanned);

}  // namespace kmxf
