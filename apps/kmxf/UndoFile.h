#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "HeaderEdit.h"
#include "OutputFile.h"

// The file beside an edited one that tells what was there before. It is on the medium before the edit begins, so that
// it leads back from whatever the edit left, also where the power failed.
namespace kmxf::program {

struct UndoFile {
    struct Piece {
        uint64_t offset;
        std::vector<uint8_t> bytes;
    };
    std::vector<std::string> clip;  // names of the files edited together, in one folder
    uint64_t fileSize = 0;
    std::string before, after;  // fingerprints of the header
    std::vector<Piece> pieces;  // of the header before

    // The header as it was; nothing when these are not bytes of the file, or something else changed them as well.
    std::optional<std::vector<uint8_t>> PutBack(const HeaderBytes& now) const;
    // Whether the edit was carried out, nothing happened to the header since, and it can be put back.
    bool IsComplete(const HeaderBytes& now) const;

    std::string Text() const;
};

std::string UndoPath(const std::string& path);

// The undo file of a file, if there is one. Throws Failure when it cannot be read or is something else.
std::optional<UndoFile> ReadUndoFile(const std::string& path);

// What undoes an edit, and the earlier one if there was one, which must be complete: it leads back to where the undo
// file of that one led.
UndoFile MakeUndoFile(const HeaderEdit& edit, const std::optional<UndoFile>& earlier, std::vector<std::string> clip);

// Puts undo files beside their files, all or none, in place of earlier ones.
struct NewUndoFile {
    std::string path;  // of the file that is edited
    UndoFile content;
};
void WriteUndoFiles(const std::vector<NewUndoFile>& files);

void RemoveUndoFile(const std::string& path);

}  // namespace kmxf::program
