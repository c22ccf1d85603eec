#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"
#include "kmxf/structures/DescriptiveMetadata.h"

namespace kmxf {

// Builds, in memory, what surrounds the essence of one OP-Atom file (SMPTE ST 390): the header area of 32768 bytes in
// front of it and the footer behind it. It never touches a stream. Construct, call Initialize once, then the setters
// and the data operations any number of times. Before Initialize every setter and data operation returns
// kStatusWrongState. Copies are deep and keep all InstanceUIDs.
class KMXF_API COpAtomBase {
public:
    // clipType says which tracks the clip has: bits 8-11 count its picture tracks, bits 0-7 its sound tracks.
    // samplesPerSec: 48000 or 96000; any other value becomes 48000. spanned: the clip goes on from earlier media, and
    // every essence track of the material package begins with a filler component for what is there.
    COpAtomBase(uint32_t videoStd, uint32_t clipType, uint32_t samplesPerSec, bool spanned);
    COpAtomBase(const COpAtomBase&);
    COpAtomBase& operator=(const COpAtomBase&);
    virtual ~COpAtomBase();  // slot 0

    // Builds the partition packs and all sets. Returns 0; kStatusInvalidArgument for a format that has no description.
    virtual int32_t Initialize() = 0;  // slot 1

    // Duration in video frames, written into every duration of tracks, descriptor and index; sound takes the samples of
    // that many frames, timecode the frames it counts. Filler components keep theirs. Returns 0.
    virtual int32_t SetDuration(int64_t duration);  // slot 2

    // Bytes of the essence element's value; places body and footer partition accordingly. Returns 0.
    virtual int32_t SetDataSize(int64_t size);  // slot 3

    // Start timecode in timecode frames; drop frame is off at 50i, 25p and 50p whatever is asked. Returns 0.
    virtual int32_t SetStartTimecode(int64_t frames, bool drop);  // slot 4

    // Creation date of both packages. Returns 0.
    virtual int32_t SetCreationDate(MXFTIMESTAMPTag date);  // slot 5

    // Modification date of preface, identification and both packages. Returns 0.
    virtual int32_t SetModifiedDate(MXFTIMESTAMPTag date);  // slot 6

    // Name of the material package, UTF-8. Malformed or over 200 UTF-16 units: kStatusInvalidArgument, and no name.
    virtual int32_t SetPackageName(const std::string& utf8);  // slot 7

    // UMID (SMPTE ST 330) of the file package and of every reference to it. The material package carries it too, until
    // ChangeMaterialUMID gives that one its own. Returns 0.
    virtual int32_t SetUMID(MXFUMIDTag umid);  // slot 8

    // The same as SetDuration.
    virtual int32_t SetMaterialDuration(int64_t duration);  // slot 9

    // UMID of the material package only. Returns 0.
    virtual int32_t ChangeMaterialUMID(MXFUMIDTag umid);  // slot 10

    // Video frames on earlier media: the length of the filler components of a spanned clip. Returns 0.
    virtual int32_t SetFillerDuration(int64_t duration);  // slot 11

    // Builds the descriptive metadata groups (SMPTE ST 380) that the holder has values for. A text that does not fit
    // its field leaves the field empty. Returns 0 or a group's status.
    virtual int32_t SetDMS(const CDescriptiveMetadata& metadata);  // slot 12

    // Hands out the header area, GetHeaderSize() bytes, for the caller to free().
    // kStatusInvalidArgument: null pointer. kStatusNoMemory: a piece fails to serialise, or the header metadata does
    // not fit.
    virtual int32_t GetHeaderData(uint8_t** data);  // slot 13
    virtual uint32_t GetHeaderSize();               // slot 14: always 32768 bytes

    // Hands out the footer, GetFooterSize() bytes, for the caller to free(). Statuses as GetHeaderData.
    virtual int32_t GetFooterData(uint8_t** data);  // slot 15
    virtual uint32_t GetFooterSize();               // slot 16: bytes

    // Who wrote the file: UTF-8 texts of up to 16, 16 and 4 UTF-16 units and the 16 bytes of a product UID.
    // kStatusInvalidArgument: null pointer, or a text that does not fit (its field is then empty).
    int32_t SetIdentification(const std::string& company, const std::string& product, const std::string& version,
                              const uint8_t* productUID);

    // Says that the recording is under way: the footer's place is 0, not yet known, in header and body pack until the
    // next SetDataSize. A recording that is cut off shows by it.
    void MarkOpen();

protected:
    struct Parts;

    // Clip tracks, packages and partition packs; the concrete class adds its essence.
    Parts& BuildClip();
    // Lets the clip's picture or sound track of this number, counted from 0, refer to the file package. A clip without
    // that track has none that does.
    enum class Kind { kPicture, kSound };
    void ReferToFilePackage(Kind kind, uint32_t channel, const MXFUMIDTag& umid);
    int32_t WriteFooter(uint8_t** data, size_t segments);
    uint32_t FooterSize(size_t segments) const;

    uint32_t videoStd_;
    uint32_t clipType_;
    uint32_t samplesPerSec_;
    bool spanned_;
    std::unique_ptr<Parts> parts_;  // null before Initialize

private:
    friend class CCreateMXFBase;
    // Whether the header will fit with this descriptive metadata: 0, kStatusNoMemory.
    int32_t CheckRoom(const CDescriptiveMetadata& metadata) const;
};

}  // namespace kmxf
