// What a file says of itself, and clips put together.
#include "kmxf/tools/Clip.h"

#include "support/Target.h"
#include "support/Walk.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    test::MemorySource source(input);
    try {
        const ClipFile file = ReadClipFile(source, "clip.mxf");
        Require(file.fileSize == input.size(), "the file has its size");
        for (const ClipGroup& group : file.groups) {
            Require(group.pictures.begin <= group.pictures.end && group.end <= input.size(), "groups lie in the file");
        }
        file.verdict.Text();
        const Clip clip{{file, file}};
        clip.Disagreements();
        clip.MissingTracks();
        clip.DoubleTracks();
        if (file.isVideo && !file.isOp1b) file.FrameOffset(1);
        if (file.isAudio) file.FirstSample(1);
    } catch (const ClipError&) {
    }
}

}  // namespace kmxf::fuzz
