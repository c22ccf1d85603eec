#pragma once

#include <cstdint>

#include "kmxf/collaborators/FileIO.h"
#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"
#include "kmxf/reader/ReadMXFBase.h"

namespace kmxf {

// Gives an OP-Atom file (SMPTE ST 390) another shot UMID, in place: the PackageUID of its Material Package. Nothing
// else of the file changes. The file is named with SetFilename.
class KMXF_API CModifyMXFHeader : public CReadMXFBase {
public:
    CModifyMXFHeader();
    ~CModifyMXFHeader() override;

    // kOpenReadWrite: the file must exist and keeps what it holds.
    uint32_t GetOpenFlag() override;

    // The basic UMID (SMPTE ST 330) that Save writes; all zero at first. Returns 0.
    int32_t SetShotUMID(MXFUMIDTag umid);

    // Opens the named file on `stream`, which stays the caller's, writes the UMID, waits until it is on the medium and
    // closes the file. A recording that was cut off, whose header states an essence of 0 bytes, is edited like any
    // other.
    //
    // Returns 0; kStatusInvalidArgument for a null stream; the status of Open when the header cannot be read;
    // kStatusFailure when the file is not OP-Atom or its Material Package has no PackageUID of 32 bytes; kStatusIoError
    // when the UMID cannot be written; kStatusNoMemory. The file is closed in any case.
    int32_t Save(IStreamFileIO* stream);

private:
    bool WriteShotUMID(int64_t offset);

    MXFUMIDTag shotUMID_{};
};

}  // namespace kmxf
