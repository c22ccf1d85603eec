#pragma once

#include <cstdint>
#include <string>

#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"
#include "kmxf/structures/MXFHeaderBase.h"

namespace kmxf {

// The sets of descriptive metadata (SMPTE ST 380): tracks, sequences and segments that tie a framework to the material
// package, and the frameworks with what they refer to. Sizes are those of the whole set in bytes, key and length
// included. References take the InstanceUID of the set they refer to.
//
// Setters return 0 unless they say otherwise. A text is UTF-8 and is stored as big-endian UTF-16 in a field of fixed
// width; one that is malformed or too long gives -1. A number is stored byte by byte as it is; a longer one is dropped.
// Both leave the field all zero then.

// Descriptive metadata track: static (76 bytes), or for events (88), then with the video standard's edit rate. The rate
// of an event track stands under tag 4B 01, as in other tracks; of an unknown standard it is 0/0.
class KMXF_API CDMSTrack : public CMXFHeaderBase {
public:
    CDMSTrack(bool eventTrack, uint32_t videoStd);
    int32_t SetTrackID(uint32_t trackID);
    int32_t SetSequence(MXFKEYTag sequence);
};

// Sequence of one segment: 88 bytes, with a duration 100.
class KMXF_API CDMSSequence : public CMXFHeaderBase {
public:
    // `duration` in edit units; 0 leaves the item out.
    explicit CDMSSequence(int64_t duration = 0);
    int32_t SetDuration(int64_t duration);
    int32_t SetSegment(MXFKEYTag segment);
};

// Segment of a static track (80 bytes). The framework is a UUID of its own until one is set.
class KMXF_API CStaticSegment : public CMXFHeaderBase {
public:
    CStaticSegment();
    int32_t SetFramework(MXFKEYTag framework);
};

// Segment of an event track (104 bytes), of duration 1. The framework is as in the static segment.
class KMXF_API CEventSegment : public CMXFHeaderBase {
public:
    CEventSegment();
    // In edit units of the track; 0 at first.
    int32_t SetEventStartPosition(int64_t position);
    int32_t SetFramework(MXFKEYTag framework);
};

// Clip framework (185 bytes): English, clip kind "moving pictures and sound", take number 0.
class KMXF_API CClipFramework : public CMXFHeaderBase {
public:
    CClipFramework();
    int32_t SetContactsList(MXFKEYTag contactsList);
    int32_t SetProject(MXFKEYTag project);
    int32_t SetParticipant(MXFKEYTag participant);
    int32_t SetTakeNumber(uint16_t takeNumber);
};

// Contacts list of one person (68 bytes).
class KMXF_API CContactsList : public CMXFHeaderBase {
public:
    CContactsList();
    int32_t SetPerson(MXFKEYTag person);
};

// Project (480 bytes).
class KMXF_API CProject : public CMXFHeaderBase {
public:
    CProject();
    int32_t SetProjectNumber(const std::string& bytes);  // up to 32 bytes
    int32_t SetProjectName(const std::string& utf8);     // up to 200 units
};

// Participant with the job function of one person (212 bytes); its identifier is a fresh UUID.
class KMXF_API CParticipant : public CMXFHeaderBase {
public:
    CParticipant();
    int32_t SetJobFunction(const std::string& utf8);  // up to 60 units
    int32_t SetPerson(MXFKEYTag person);
};

// Person (308 bytes); its identifier is a fresh UUID.
class KMXF_API CPerson : public CMXFHeaderBase {
public:
    CPerson();
    int32_t SetFamilyName(const std::string& utf8);      // up to 60 units
    int32_t SetFirstGivenName(const std::string& utf8);  // up to 60 units
};

// Scene framework (83 bytes), English.
class KMXF_API CSceneFramework : public CMXFHeaderBase {
public:
    CSceneFramework();
    int32_t SetSceneNumber(const std::string& bytes);  // up to 32 bytes
};

// Private framework with the XML of a clip: 49 bytes and the XML.
class KMXF_API CKestralinFrameworkStatic : public CMXFHeaderBase {
public:
    // Empty.
    CKestralinFrameworkStatic();
    // Copies the XML, which may be empty. kStatusInvalidArgument: null pointer.
    int32_t SetXMLData(const uint8_t* xml, uint16_t size);
    uint16_t GetXMLDataSize() const;
    // Stays the set's; valid until the set changes.
    const uint8_t* GetXMLData() const;
    // Takes over the set at `buffer`, its items in any order; an item that it lacks stays as it is. Returns 0,
    // kStatusInvalidArgument (null pointer), or kStatusFailure: another key, an item with a tag that is not of this
    // set, a value too long for its field, or a set that does not lie within `size` bytes; nothing changes then. The
    // form without a size takes the set's own length for the size.
    int32_t SetData(const uint8_t* buffer);
    int32_t SetData(const uint8_t* buffer, uint32_t size);
};

// Private framework with the thumbnail of a clip: 61 bytes and the picture.
class KMXF_API CKestralinFrameworkEvent : public CMXFHeaderBase {
public:
    // No picture, format 0, 80 x 45 pixels.
    CKestralinFrameworkEvent();
    // 0 or 1, else kStatusInvalidArgument.
    int32_t SetThumbnailFormat(uint8_t format);
    int32_t SetThumbnailWidth(uint16_t pixels);
    int32_t SetThumbnailHeight(uint16_t pixels);
    // Copies the picture, which may be empty. kStatusInvalidArgument: null pointer or more than 16384 bytes.
    int32_t SetThumbnailData(const uint8_t* data, uint16_t size);
    uint8_t GetThumbnailFormat() const;
    uint16_t GetThumbnailWidth() const;
    uint16_t GetThumbnailHeight() const;
    uint16_t GetThumbnailDataSize() const;
    // Stays the set's; valid until the set changes.
    const uint8_t* GetThumbnailData() const;
    // As for the XML.
    int32_t SetData(const uint8_t* buffer);
    int32_t SetData(const uint8_t* buffer, uint32_t size);
};

}  // namespace kmxf
