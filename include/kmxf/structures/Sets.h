#pragma once

#include <cstdint>
#include <string>

#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"
#include "kmxf/structures/MXFHeaderBase.h"

// The structural header metadata sets (SMPTE ST 377-1, annexes A and B). Each is made with its key, a new InstanceUID
// and defaults for all its items. Setters and adders return 0 unless they say otherwise. A reference to a set is its
// InstanceUID. An adder appends 16 bytes to a batch; batches are in the order of the calls.
namespace kmxf {

// Primer pack: the table of local tags, the same 118 entries in every file, 2152 bytes.
class KMXF_API CPrimer : public CMXFHeaderBase {
public:
    CPrimer();
    // As CMXFHeaderBase::GetData.
    int32_t GetData(uint8_t** data) override;
};

// Preface: the root of the header metadata. Version 1.3, operational pattern OP-Atom.
class KMXF_API CPreface : public CMXFHeaderBase {
public:
    CPreface();
    int32_t SetLastModifiedDate(MXFTIMESTAMPTag date);
    int32_t SetVersion(uint16_t version);  // major version in the high byte
    // The PrimaryPackage item, 20 bytes, is in the set only when `written` is true; false by default.
    int32_t SetPrimaryPackageFlag(bool written);
    int32_t SetPrimaryPackage(MXFKEYTag package);
    int32_t SetIdentification(MXFKEYTag identification);
    int32_t SetContentStorage(MXFKEYTag contentStorage);
    int32_t SetOperationalPattern(MXFKEYTag label);
    int32_t AddEssenceContainer(MXFKEYTag label);
    int32_t AddDMScheme(MXFKEYTag label);
};

// Identification: the application that wrote the file. The texts are UTF-8 here and UTF-16 of fixed width in the set;
// one that is malformed or too long leaves its field zero and gives kStatusInvalidArgument.
class KMXF_API CIdentification : public CMXFHeaderBase {
public:
    CIdentification();
    int32_t SetThisGenerationUID(MXFKEYTag uid);
    int32_t SetCompanyName(const std::string& utf8);    // at most 16 units
    int32_t SetProductName(const std::string& utf8);    // at most 16 units
    int32_t SetVersionString(const std::string& utf8);  // at most 4 units
    int32_t SetProductUID(MXFKEYTag uid);
    int32_t SetModificationDate(MXFTIMESTAMPTag date);
};

// Content Storage: the packages of the file and its essence containers.
class KMXF_API CContentStorage : public CMXFHeaderBase {
public:
    CContentStorage();
    int32_t AddPackage(MXFKEYTag package);
    int32_t AddEssenceContainerData(MXFKEYTag data);
};

// Essence Container Data: which stream holds the essence of a file package. IndexSID 1, BodySID 2.
class KMXF_API CEssenceContainerData : public CMXFHeaderBase {
public:
    CEssenceContainerData();
    int32_t SetLinkedPackageUID(MXFUMIDTag umid);
    int32_t SetIndexSID(uint32_t sid);
    int32_t SetBodySID(uint32_t sid);
};

// Material Package: the clip as it is to be played.
class KMXF_API CMaterialPackage : public CMXFHeaderBase {
public:
    CMaterialPackage();
    int32_t SetPackageUID(MXFUMIDTag umid);
    // UTF-8, at most 200 units of UTF-16; malformed or too long: the name is empty, kStatusInvalidArgument.
    int32_t SetName(const std::string& utf8);
    int32_t SetPackageCreationDate(MXFTIMESTAMPTag date);
    int32_t SetPackageModifiedDate(MXFTIMESTAMPTag date);
    int32_t AddTrack(MXFKEYTag track);
};

// Source Package that stands for the essence of this file (a file package).
class KMXF_API CFilePackage : public CMXFHeaderBase {
public:
    CFilePackage();
    int32_t SetPackageUID(MXFUMIDTag umid);
    int32_t SetPackageCreationDate(MXFTIMESTAMPTag date);
    int32_t SetPackageModifiedDate(MXFTIMESTAMPTag date);
    int32_t AddTrack(MXFKEYTag track);
    int32_t SetDescriptor(MXFKEYTag descriptor);
};

// Timeline Track. All values 0.
class KMXF_API CTrack : public CMXFHeaderBase {
public:
    CTrack();
    int32_t SetTrackID(uint32_t trackID);
    int32_t SetTrackNumber(uint32_t trackNumber);
    int32_t SetEditRate(MXFRATIONALTag editRate);
    int32_t SetOrigin(int64_t origin);  // edit units
    int32_t SetSequence(MXFKEYTag sequence);
};

// Sequence. Its data definition follows from the track code (kmxf/core/VideoStandard.h): timecode, picture, sound or
// data; zero for a code of no kind.
class KMXF_API CSequence : public CMXFHeaderBase {
public:
    explicit CSequence(uint32_t trackCode);
    int32_t SetDuration(int64_t duration);  // edit units
    int32_t AddStructuralComponent(MXFKEYTag component);
};

// Source Clip. Its data definition follows from the track code: picture, sound or data; zero for a code of no kind.
// Positions and durations are in edit units of the track and 0 by default.
class KMXF_API CSourceComponent : public CMXFHeaderBase {
public:
    explicit CSourceComponent(uint32_t trackCode);
    int32_t SetStartPosition(int64_t position);
    int32_t SetDuration(int64_t duration);
    int32_t SetSourcePackageID(MXFUMIDTag umid);  // zero: the essence comes from nowhere else
    int32_t SetSourceTrackID(uint32_t trackID);
};

// Timecode Component. Base and drop flag follow from the video standard: 25 without drop for 50i, 25p and 50p, 24 with
// drop for 23.98p, 30 with drop for all others.
class KMXF_API CTimecodeComponent : public CMXFHeaderBase {
public:
    explicit CTimecodeComponent(uint32_t videoStd);
    int32_t SetDuration(int64_t duration);  // timecode frames
    int32_t SetRoundedTimecodeBase(uint16_t base);
    int32_t SetStartTimecode(int64_t frames);  // timecode frames
    int32_t SetDropFrame(bool drop);
};

// Filler: a stretch of a track without essence. Its data definition is that of a source clip with this track code.
class KMXF_API CFillerComponent : public CMXFHeaderBase {
public:
    CFillerComponent(uint32_t videoStd, uint32_t trackCode, uint32_t samplesPerSec);
    int32_t SetDuration(int64_t duration);  // edit units of the track: samples on sound tracks
    uint32_t GetTrackCode() const;

private:
    uint32_t trackCode_;
};

}  // namespace kmxf
