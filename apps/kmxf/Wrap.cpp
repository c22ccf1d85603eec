#include "Wrap.h"

#include <malloc.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <filesystem>

#include "Commands.h"

namespace kmxf::program {

namespace {

ClipInputs OpenInputs(const WrapOptions& o) {
    ClipInputs inputs;
    if (!o.video.empty()) {
        inputs.video = std::make_unique<EssenceInput>(o.video, o.choice);
    } else if (!o.choice.standard) {
        Usage("--standard is needed for sound without a picture");
    }
    for (const std::string& path : o.audio) {
        inputs.sounds.push_back(std::make_unique<WavInput>(path, o.bits));
        if (inputs.sounds.back()->Samples() == 0) Fail(ExitStatus::kInput, path, "holds no sound");
        inputs.channels += inputs.sounds.back()->Channels();
    }
    return inputs;
}

// Whether the clip is one of OP-1b; the essence decides it.
bool IsOp1b(const WrapOptions& o, const EssenceInput* video) {
    const bool longGOP = video != nullptr && video->Format().IsLongGOP();
    const std::string what = video != nullptr ? o.video + " is " + video->Format().Text() : "sound without a picture";
    if (longGOP && o.pattern == "op-atom") Usage("--pattern op-atom: " + what + "; Long-GOP pictures go with op-1b");
    if (!longGOP && o.pattern == "op-1b") Usage("--pattern op-1b: " + what + "; op-1b is for Long-GOP pictures");
    for (const auto& [option, given] :
         {std::pair{"--xml", o.xml.has_value()}, std::pair{"--thumbnail", o.thumbnail.has_value()},
          std::pair{"--layout", o.layout.has_value()}}) {
        if (given && !longGOP) Usage(std::string(option) + ": " + what + "; op-atom has no place for it");
    }
    return longGOP;
}

// Pieces of memory come and go all the time: given back to the system in between, they would cost fresh pages each
// time.
void KeepFreedMemory() {
    ::mallopt(M_MMAP_THRESHOLD, 4 << 20);
    ::mallopt(M_TRIM_THRESHOLD, 32 << 20);
}

ExitStatus RunWrap(const WrapOptions& options) {
    KeepFreedMemory();
    ClipValues values = ValuesOf(options);
    ClipInputs inputs = OpenInputs(options);
    const bool op1b = IsOp1b(options, inputs.video.get());
    SetFormat(values, options, inputs);
    return op1b ? WrapOp1b(options, inputs, values) : WrapOpAtom(options, inputs, values);
}

}  // namespace

std::unique_ptr<OutputFile> NewOutput(const WrapOptions& options, const std::string& suffix) {
    const auto path = std::filesystem::path(options.folder) / (options.name + suffix + ".mxf");
    return std::make_unique<OutputFile>(path.string(), options.force);
}

void SayFitting(const WavInput& sound, int64_t wanted, const std::string& other) {
    const int64_t difference = sound.Samples() - wanted;
    if (difference == 0) return;
    Say(sound.Path() + ": " + std::to_string(std::abs(difference)) + " samples " +
        (difference > 0 ? "longer than " + other + "; they are cut"
                        : "shorter than " + other + "; they are filled with silence"));
}

Run AddWrap(CLI::App& app) {
    auto options = std::make_shared<WrapOptions>();
    AddWrapOptions(*app.add_subcommand("wrap", "Makes a clip of bare essence"), *options);
    return [options] { return RunWrap(*options); };
}

}  // namespace kmxf::program
