#include <CLI/CLI.hpp>
#include <tuple>

#include "Text.h"
#include "Wrap.h"
#include "kmxf/core/Convert.h"
#include "kmxf/core/VideoStandard.h"

namespace kmxf::program {

namespace {

void RequireText(const char* option, const std::optional<std::string>& text, size_t least, size_t most) {
    if (!text) return;
    const auto units = TextUnits(*text);
    if (!units)
        Usage(std::string(option) + ": is no UTF-8 text, or has characters beyond U+FFFF, which the file cannot carry");
    if (*units < least || *units > most) {
        Usage(std::string(option) + ": has " + std::to_string(*units) + " characters; " + std::to_string(least) +
              " to " + std::to_string(most) + " fit");
    }
}

void RequireBytes(const char* option, const std::optional<std::string>& text, size_t most) {
    if (text && text->size() > most) {
        Usage(std::string(option) + ": has " + std::to_string(text->size()) + " bytes; up to " + std::to_string(most) +
              " fit");
    }
}

void RequireFittingValues(const WrapOptions& o) {
    if (o.video.empty() && o.audio.empty()) Usage("nothing to wrap: give --video, --audio or both");
    if (o.name.empty() || o.name.find('/') != std::string::npos) Usage("--name: is no file name");
    RequireText("--title", o.title, 0, 200);
    RequireText("--job-function", o.jobFunction, 0, 60);
    RequireText("--family-name", o.familyName, 0, 60);
    RequireText("--given-name", o.givenName, 0, 60);
    RequireText("--project-name", o.projectName, 0, 200);
    RequireBytes("--project-number", o.projectNumber, 32);
    RequireBytes("--scene", o.scene, 32);
    for (const auto& [option, text, most] :
         {std::tuple{"--company", &o.company, size_t{16}}, std::tuple{"--product", &o.product, size_t{16}},
          std::tuple{"--product-version", &o.productVersion, size_t{4}}}) {
        RequireText(option, *text, 1, most);
        RequireBytes(option, *text, most);
    }
}

MXFUMIDTag UmidOption(const char* option, const std::string& hex) {
    const auto umid = ParseUmid(hex);
    if (!umid) Usage(std::string(option) + ": is no UMID; 64 hexadecimal digits are needed");
    return *umid;
}

CDescriptiveMetadata Metadata(const WrapOptions& o) {
    CDescriptiveMetadata metadata;
    if (o.jobFunction) metadata.SetJobFunction(*o.jobFunction);
    if (o.familyName) metadata.SetFamilyName(*o.familyName);
    if (o.givenName) metadata.SetFirstGivenName(*o.givenName);
    if (o.projectNumber) metadata.SetProjectNumber(*o.projectNumber);
    if (o.projectName) metadata.SetProjectName(*o.projectName);
    if (o.take) metadata.SetTakeNumber(static_cast<uint16_t>(*o.take));
    if (o.scene) metadata.SetSceneNumber(*o.scene);
    return metadata;
}

std::optional<CTimecode> StartTimecode(const WrapOptions& o, uint32_t videoStd) {
    if (!o.startTimecode) return std::nullopt;
    CTimecode timecode;
    timecode.SetVideoStd(videoStd);
    if (timecode.SetText(*o.startTimecode) != 0) {
        Usage("--start-timecode: " + *o.startTimecode + " is no timecode of " + StandardName(videoStd) +
              "; hh:mm:ss:ff is needed, hh:mm:ss;ff for drop frame");
    }
    // Drop frame is for 30 frames a second in name and 29.97 in truth; at 23.98 none are dropped (SMPTE ST 12-1).
    const bool drops = GetTimecodeEditRate(videoStd) == MXFRATIONALTag{30000, 1001};
    if (timecode.IsDrop() && !drops)
        Usage("--start-timecode: " + StandardName(videoStd) + " has no drop-frame timecode");
    return timecode;
}

}  // namespace

[[noreturn]] void Usage(const std::string& message) { throw Failure(ExitStatus::kUsage, message); }

ClipValues ValuesOf(const WrapOptions& o) {
    RequireFittingValues(o);
    ClipValues values;
    if (o.umid) values.umid = UmidOption("--umid", *o.umid);
    if (o.shotUmid) values.shotUmid = UmidOption("--shot-umid", *o.shotUmid);
    const auto creationDate = o.creationDate ? ParseIsoDate(*o.creationDate) : GetCurrentTimeMXF();
    if (!creationDate) Usage("--creation-date: " + *o.creationDate + " is no date; YYYY-MM-DDThh:mm:ss is needed");
    values.creationDate = *creationDate;
    values.metadata = Metadata(o);
    return values;
}

void SetFormat(ClipValues& values, const WrapOptions& o, const ClipInputs& inputs) {
    values.videoStd = inputs.video ? inputs.video->Format().videoStd : StandardFromName(*o.choice.standard).value_or(0);
    values.clipType = (inputs.video ? 0x100U : 0U) | inputs.channels;
    values.startTimecode = StartTimecode(o, values.videoStd);
}

void AddWrapOptions(CLI::App& command, WrapOptions& options) {
    command.add_option("--pattern", options.pattern, "Layout: op-1b for Long-GOP, op-atom for all else")
        ->check(CLI::IsMember({"op-atom", "op-1b"}));
    command.add_option("--video", options.video,
                       "DIF frames, AVC-Intra frames or a Long-GOP stream (Annex B); - for standard input");
    command.add_option("--audio", options.audio, "WAV of 48 or 96 kHz; OP-Atom: each of its channels becomes a file");
    command.add_option("-o,--output", options.folder, "Folder for the clip")->required();
    command.add_option("--name", options.name, "Name of the clip's files")->required();
    command.add_option("--codec", options.choice.codec, "Codec of the picture, when it cannot be told")
        ->check(CLI::IsMember(CodecNames()));
    command.add_option("--raster", options.choice.raster, "Its raster")
        ->check(CLI::IsMember({"525", "625", "720", "1080"}));
    command.add_option("--standard", options.choice.standard, "Its standard")->check(CLI::IsMember(StandardNames()));
    command.add_option("--bits", options.bits, "Bits per sample of sound")->check(CLI::IsMember({16, 24}));
    command.add_option("--start-timecode", options.startTimecode,
                       "hh:mm:ss:ff, hh:mm:ss;ff for drop frame; else that of the first frame");
    command.add_option("--umid", options.umid, "UMID of the first file; the others count up from it");
    command.add_option("--shot-umid", options.shotUmid, "Material UMID of the clip");
    command.add_option("--title", options.title, "Package name; else the clip's name");
    command.add_option("--creation-date", options.creationDate, "YYYY-MM-DDThh:mm:ss");
    command.add_option("--job-function", options.jobFunction, "Job function of the person below");
    command.add_option("--family-name", options.familyName, "Family name");
    command.add_option("--given-name", options.givenName, "First given name");
    command.add_option("--project-number", options.projectNumber, "Project number");
    command.add_option("--project-name", options.projectName, "Project name");
    command.add_option("--take", options.take, "Take number")->check(CLI::Range(0, 65535));
    command.add_option("--scene", options.scene, "Scene number");
    command.add_option("--company", options.company, "Company name of the writing device");
    command.add_option("--product", options.product, "Its product name");
    command.add_option("--product-version", options.productVersion, "Its version");
    auto* const thumbnail = command.add_option("--thumbnail", options.thumbnail, "OP-1b: picture of the clip, a BMP");
    command.add_option("--xml", options.xml, "OP-1b: XML of the clip");
    command.add_option("--thumbnail-position", options.thumbnailPosition, "Frame that the thumbnail shows")
        ->needs(thumbnail);
    command
        .add_option("--layout", options.layout, "OP-1b: players (what other programs can open; the default) or strict")
        ->check(CLI::IsMember({"players", "strict"}));
    command.add_flag("--wide", options.wide, "The picture of a standard-definition format is 16:9");
    command.add_flag("--no-header-rewrite", options.noHeaderRewrite,
                     "Write the final header first: sizes are known in advance");
    command.add_flag("--force", options.force, "Overwrite existing files");
}

}  // namespace kmxf::program
