#pragma once

#include <cstdint>

#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"

namespace kmxf {

// Edits the headers of existing files by name, in place: shot UMID, XML, thumbnail. Each operation reads the start of
// the file, changes it in memory, and only when nothing stands against it writes it back, in one piece. The layout of
// the file stays as it is.
//
// Files come from CFileIOMain, as streams opened with kOpenReadWrite, and are closed when an operation returns. All
// operations return 0; kStatusInvalidArgument (null pointer, wrong length) before the file is opened; kStatusIoError
// when the file cannot be opened, is shorter than what is read, or a read or write fails; kStatusFailure when what is
// to be changed is not there or does not fit; kStatusNoMemory. After a failure other than that of the write the file is
// unchanged.
class KMXF_API CModifyMXFHeaderData {
public:
    CModifyMXFHeaderData();
    CModifyMXFHeaderData(const CModifyMXFHeaderData&) = delete;
    CModifyMXFHeaderData& operator=(const CModifyMXFHeaderData&) = delete;
    ~CModifyMXFHeaderData();

    // The basic UMID (SMPTE ST 330) that Save writes; all zero at first. Returns 0.
    int32_t SetShotUMID(MXFUMIDTag umid);

    // Writes the shot UMID over the PackageUID of the Material Package, which is looked for in the first 32768 bytes.
    int32_t Save(const char* fileName);

    // Replaces the XML of an OP-1b clip (SMPTE ST 391) by `length` bytes at `xml`, which are copied; `length` is not 0.
    // A fill item behind the XML takes what is left of its room in the header, which ends at byte 0x1C000: what follows
    // never moves. Bytes of the old XML may stay inside the fill item. kStatusFailure: there is no XML to replace, the
    // set that holds it has items of other kinds, the XML does not fit, or sets of other writers stand in its room.
    int32_t ModifyXMLData(const char* fileName, const uint8_t* xml, uint16_t length);

    // Replaces the thumbnail of an OP-1b clip, and the frame that it shows. The picture has exactly 10854 bytes, those
    // of a 24-bit bitmap of 80 x 45 pixels with its headers, and is copied; the picture's format, width and height in
    // the header stay as they are. `eventStartPosition` is in video frames. kStatusFailure: as for the XML; the room
    // ends at byte 0x20000, and the fill item behind the thumbnail is rewritten when the old picture had another size.
    int32_t ModifyThumbnailData(const char* fileName, const uint8_t* thumbnail, int64_t eventStartPosition,
                                uint16_t length);

private:
    MXFUMIDTag shotUMID_{};
};

// Writes `duration` into an OP-Atom header in memory: 32768 bytes at `header`, from the header partition pack on. It
// goes into the first Sequence and the first Source Clip behind the file package, and into the ContainerDuration of the
// essence descriptor (SMPTE ST 377-1). The number is written as it is: for sound it counts samples, for pictures
// frames. Material package and index table stay as they are.
//
// False: null pointer, or something is missing, or is not 8 bytes long; what was changed before stays changed.
KMXF_API bool ModifyFilePackageDuration(uint8_t* header, uint32_t duration);

// Makes the named file `length` bytes long: it is cut, or grows with zeros. False: null pointer, no such file, a
// negative length, or the system refuses.
KMXF_API bool TruncatePelmard(const char* fileName, int64_t length);

}  // namespace kmxf
