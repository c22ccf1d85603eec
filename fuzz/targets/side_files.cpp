// What a user gives besides essence: sound files, bitmaps, values on the command line, the undo file of an edit.
#include <array>
#include <string>
#include <vector>

#include "Program.h"
#include "SideFiles.h"
#include "Sound.h"
#include "Text.h"
#include "UndoFile.h"
#include "support/FileOnTmpfs.h"

namespace kmxf::fuzz {

namespace {

void ReadSound(const std::string& path) {
    program::WavInput wav(path, 0);
    std::vector<std::vector<uint8_t>> samples(wav.Channels(), std::vector<uint8_t>(512 * 3));
    std::vector<uint8_t*> channels;
    for (auto& each : samples) channels.push_back(each.data());
    Require(wav.Read(512, channels) <= 512, "no more samples come than were asked for");
}

template <class Use>
void Try(Use use) {
    try {
        use();
    } catch (const program::Failure&) {
    }
}

}  // namespace

void Run(Bytes input) {
    const FileOnTmpfs file(input, "clip.mxf.undo");
    Try([&] { ReadSound(file.Path()); });
    Try([&] { program::ReadThumbnailFile(file.Path()); });
    Try([&] {
        const auto undo = program::ReadUndoFile(file.Folder() + "/clip.mxf");
        if (!undo) return;
        undo->Text();
        const program::HeaderBytes header{"clip.mxf", undo->fileSize, std::vector<uint8_t>(4096)};
        undo->PutBack(header);
    });
    const std::string text(input.begin(), input.end());
    program::ParseHex(text);
    program::ParseUmid(text);
    program::ParseIsoDate(text);
    program::TextUnits(text);
}

}  // namespace kmxf::fuzz
