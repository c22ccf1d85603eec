#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Essence.h"
#include "OutputFile.h"
#include "Program.h"
#include "Sound.h"
#include "kmxf/collaborators/Timecode.h"
#include "kmxf/structures/DescriptiveMetadata.h"

namespace CLI {
class App;
}

// The command wrap: its options, what they come to for a clip, and the two layouts a clip is written in.
namespace kmxf::program {

struct WrapOptions {
    std::optional<std::string> pattern;
    std::string video;
    std::vector<std::string> audio;
    std::string folder, name;
    FormatChoice choice;
    uint32_t bits = 0;
    std::optional<std::string> startTimecode, umid, shotUmid, title, creationDate;
    std::optional<std::string> jobFunction, familyName, givenName, projectNumber, projectName, scene;
    std::optional<uint32_t> take;
    std::optional<std::string> company, product, productVersion;
    bool wide = false, noHeaderRewrite = false, force = false;
    // OP-1b
    std::optional<std::string> xml, thumbnail, layout;
    std::optional<uint32_t> thumbnailPosition;
};

void AddWrapOptions(CLI::App& command, WrapOptions& options);

// Ends the command as wrong usage, with one line.
[[noreturn]] void Usage(const std::string& message);

// What goes into a clip.
struct ClipInputs {
    std::unique_ptr<EssenceInput> video;
    std::vector<std::unique_ptr<WavInput>> sounds;
    uint32_t channels = 0;  // of all sounds
};

// What is said of a clip.
struct ClipValues {
    uint32_t videoStd = 0;
    uint32_t clipType = 0;
    std::optional<CTimecode> startTimecode;  // nothing: that of the picture
    std::optional<MXFUMIDTag> umid, shotUmid;
    MXFTIMESTAMPTag creationDate;
    CDescriptiveMetadata metadata;
};

// The values of the options; those that depend on the essence are set when it is open. Both throw Failure for a value
// that does not fit where it belongs.
ClipValues ValuesOf(const WrapOptions& options);
void SetFormat(ClipValues& values, const WrapOptions& options, const ClipInputs& inputs);

// The file NAME`suffix`.mxf of the clip.
std::unique_ptr<OutputFile> NewOutput(const WrapOptions& options, const std::string& suffix);

// Says so, if sound is longer or shorter than it is to be; `other` is what decides that.
void SayFitting(const WavInput& sound, int64_t wanted, const std::string& other);

// SMPTE ST 390: a file for the picture, and one for each channel of sound.
ExitStatus WrapOpAtom(const WrapOptions& options, ClipInputs& inputs, const ClipValues& values);
// SMPTE ST 391: one file, for Long-GOP pictures.
ExitStatus WrapOp1b(const WrapOptions& options, ClipInputs& inputs, const ClipValues& values);

}  // namespace kmxf::program
