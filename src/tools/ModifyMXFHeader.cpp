#include "kmxf/tools/ModifyMXFHeader.h"

#include <new>

#include "collaborators/Guards.h"
#include "collaborators/Report.h"
#include "core/Labels.h"
#include "core/LocalTags.h"
#include "kmxf/core/Status.h"
#include "tools/StreamWrite.h"

namespace kmxf {

namespace {

int32_t SaveError(int32_t status, LogPlace place = "CModifyMXFHeader::Save") {
    return Failed(place, "ModifyMXFHeader", "Save Error", status);
}

}  // namespace

CModifyMXFHeader::CModifyMXFHeader() = default;
CModifyMXFHeader::~CModifyMXFHeader() = default;

uint32_t CModifyMXFHeader::GetOpenFlag() { return kOpenReadWrite; }

int32_t CModifyMXFHeader::SetShotUMID(MXFUMIDTag umid) {
    shotUMID_ = umid;
    return kStatusOk;
}

int32_t CModifyMXFHeader::Save(IStreamFileIO* stream) try {
    if (stream == nullptr) return kStatusInvalidArgument;
    // A file without essence is open all the same.
    const int32_t opened = Open(stream, true);
    if (opened != kStatusOk && opened != kStatusNotFound) return SaveError(opened);

    uint32_t length = 0;
    int64_t offset = 0;
    const bool found = ReadMetadata(kMaterialPackageKey, kTagPackageUID, nullptr, &length, &offset) == kStatusOk &&
                       length == sizeof(MXFUMIDTag);
    const bool written = found && WriteShotUMID(offset);
    Close();
    if (!found) return SaveError(kStatusFailure);
    return written ? kStatusOk : SaveError(kStatusIoError);
} catch (const std::bad_alloc&) {
    Close();
    return SaveError(kStatusNoMemory);
}

bool CModifyMXFHeader::WriteShotUMID(int64_t offset) {
    const ScopedLock lock(lock_);
    PieceAllocator allocator(stream_);
    const OwnedPiece piece(allocator, sizeof shotUMID_.bytes);
    if (!piece) return false;
    piece->CopyIn(0, shotUMID_.bytes, sizeof shotUMID_.bytes);
    return WriteWholeAt(*stream_, offset, piece);
}

}  // namespace kmxf
