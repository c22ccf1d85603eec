#include "kmxf/structures/DMSSets.h"

#include "core/Bytes.h"
#include "core/Labels.h"
#include "core/LocalTags.h"
#include "kmxf/core/Convert.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "structures/StatedSize.h"

namespace kmxf {

namespace {

constexpr uint16_t kNumberSize = 32;  // project and scene numbers
constexpr uint16_t kNameSize = 120;   // job function and names of a person
constexpr uint16_t kProjectNameSize = 400;
constexpr uint16_t kClipKindSize = 60;
constexpr uint32_t kXMLCapacity = 65536;
constexpr uint32_t kThumbnailCapacity = 16384;

std::vector<uint8_t> Zeros(size_t size) { return std::vector<uint8_t>(size); }
std::vector<uint8_t> English() { return {'e', 'n', 0}; }

std::vector<uint8_t> FreshUUID() {
    MXFKEYTag uuid;
    CreateUUID(&uuid);
    return Encoded(uuid);
}

int32_t TextStatus(bool stored) { return stored ? kStatusOk : -1; }

// The private frameworks bring no primer along: their tags are taken as they are.
uint16_t SameTag(uint16_t tag) { return tag; }

}  // namespace

CDMSTrack::CDMSTrack(bool eventTrack, uint32_t videoStd)
    : CMXFHeaderBase(eventTrack ? kEventTrackKey : kStaticTrackKey) {
    Declare({
        {kTagTrackID, Encoded(uint32_t{0})},
        {kTagTrackNumber, Encoded(uint32_t{0})},
        // Deliberately not EventEditRate (4901), which SMPTE ST 377-1 has here: files in use carry 4B01.
        {kTagEditRate, Encoded(GetVideoEditRate(videoStd)), eventTrack},
        {kTagSequence, Encoded(MXFKEYTag{})},
    });
}
int32_t CDMSTrack::SetTrackID(uint32_t trackID) { return Store(kTagTrackID, Encoded(trackID)); }
int32_t CDMSTrack::SetSequence(MXFKEYTag sequence) { return Store(kTagSequence, Encoded(sequence)); }

CDMSSequence::CDMSSequence(int64_t duration) : CMXFHeaderBase(kSequenceKey) {
    Declare({
        {kTagDataDefinition, Encoded(kDescriptiveDataDefinition)},
        {kTagDuration, Encoded(duration), duration != 0},
        {kTagStructuralComponents, Batch({MXFKEYTag{}})},
    });
}
int32_t CDMSSequence::SetDuration(int64_t duration) {
    Store(kTagDuration, Encoded(duration));
    return StoreWritten(kTagDuration, duration != 0);
}
int32_t CDMSSequence::SetSegment(MXFKEYTag segment) { return Store(kTagStructuralComponents, Batch({segment})); }

CStaticSegment::CStaticSegment() : CMXFHeaderBase(kDMSegmentKey) {
    Declare({
        {kTagDataDefinition, Encoded(kDescriptiveDataDefinition)},
        {kTagDMFramework, FreshUUID()},
    });
}
int32_t CStaticSegment::SetFramework(MXFKEYTag framework) { return Store(kTagDMFramework, Encoded(framework)); }

CEventSegment::CEventSegment() : CMXFHeaderBase(kDMSegmentKey) {
    Declare({
        {kTagDataDefinition, Encoded(kDescriptiveDataDefinition)},
        {kTagDuration, Encoded(int64_t{1})},
        {kTagEventStartPosition, Encoded(int64_t{0})},
        {kTagDMFramework, FreshUUID()},
    });
}
int32_t CEventSegment::SetEventStartPosition(int64_t position) {
    return Store(kTagEventStartPosition, Encoded(position));
}
int32_t CEventSegment::SetFramework(MXFKEYTag framework) { return Store(kTagDMFramework, Encoded(framework)); }

CClipFramework::CClipFramework() : CMXFHeaderBase(kClipFrameworkKey) {
    Declare({
        {kTagFrameworkLanguageCode, English()},
        {kTagClipKind, Zeros(kClipKindSize)},
        {kTagContactsListReference, Encoded(MXFKEYTag{})},
        {kTagProjectReference, Encoded(MXFKEYTag{})},
        {kTagParticipants, Batch({MXFKEYTag{}})},
        {kTagTakeNumber, Encoded(uint16_t{0})},
    });
    StoreText(kTagClipKind, "moving pictures and sound");
}
int32_t CClipFramework::SetContactsList(MXFKEYTag contactsList) {
    return Store(kTagContactsListReference, Encoded(contactsList));
}
int32_t CClipFramework::SetProject(MXFKEYTag project) { return Store(kTagProjectReference, Encoded(project)); }
int32_t CClipFramework::SetParticipant(MXFKEYTag participant) { return Store(kTagParticipants, Batch({participant})); }
int32_t CClipFramework::SetTakeNumber(uint16_t takeNumber) { return Store(kTagTakeNumber, Encoded(takeNumber)); }

CContactsList::CContactsList() : CMXFHeaderBase(kContactsListKey) {
    Declare({{kTagContactsListPersons, Batch({MXFKEYTag{}})}});
}
int32_t CContactsList::SetPerson(MXFKEYTag person) { return Store(kTagContactsListPersons, Batch({person})); }

CProject::CProject() : CMXFHeaderBase(kProjectKey) {
    Declare({
        {kTagProjectNumber, Zeros(kNumberSize)},
        {kTagProjectName, Zeros(kProjectNameSize)},
    });
}
int32_t CProject::SetProjectNumber(const std::string& bytes) {
    StoreRaw(kTagProjectNumber, bytes);
    return kStatusOk;
}
int32_t CProject::SetProjectName(const std::string& utf8) { return TextStatus(StoreText(kTagProjectName, utf8)); }

CParticipant::CParticipant() : CMXFHeaderBase(kParticipantKey) {
    Declare({
        {kTagParticipantIdentifier, FreshUUID()},
        {kTagJobFunction, Zeros(kNameSize)},
        {kTagParticipantPersons, Batch({MXFKEYTag{}})},
    });
}
int32_t CParticipant::SetJobFunction(const std::string& utf8) { return TextStatus(StoreText(kTagJobFunction, utf8)); }
int32_t CParticipant::SetPerson(MXFKEYTag person) { return Store(kTagParticipantPersons, Batch({person})); }

CPerson::CPerson() : CMXFHeaderBase(kPersonKey) {
    Declare({
        {kTagPersonIdentifier, FreshUUID()},
        {kTagFamilyName, Zeros(kNameSize)},
        {kTagFirstGivenName, Zeros(kNameSize)},
    });
}
int32_t CPerson::SetFamilyName(const std::string& utf8) { return TextStatus(StoreText(kTagFamilyName, utf8)); }
int32_t CPerson::SetFirstGivenName(const std::string& utf8) { return TextStatus(StoreText(kTagFirstGivenName, utf8)); }

CSceneFramework::CSceneFramework() : CMXFHeaderBase(kSceneFrameworkKey) {
    Declare({
        {kTagFrameworkLanguageCode, English()},
        {kTagSceneNumber, Zeros(kNumberSize)},
    });
}
int32_t CSceneFramework::SetSceneNumber(const std::string& bytes) {
    StoreRaw(kTagSceneNumber, bytes);
    return kStatusOk;
}

CKestralinFrameworkStatic::CKestralinFrameworkStatic() : CMXFHeaderBase(kXMLFrameworkKey) {
    Declare({
        {kTagXMLType, Encoded(uint8_t{0})},
        {kTagXMLData, {}, true, kXMLCapacity},
    });
}
int32_t CKestralinFrameworkStatic::SetXMLData(const uint8_t* xml, uint16_t size) {
    if (xml == nullptr) return kStatusInvalidArgument;
    return Store(kTagXMLData, {xml, xml + size});
}
uint16_t CKestralinFrameworkStatic::GetXMLDataSize() const { return static_cast<uint16_t>(Value(kTagXMLData).size()); }
const uint8_t* CKestralinFrameworkStatic::GetXMLData() const { return Value(kTagXMLData).data(); }
int32_t CKestralinFrameworkStatic::SetData(const uint8_t* buffer) {
    return SetData(buffer, StatedSize(buffer, kXMLFrameworkKey.bytes));
}
int32_t CKestralinFrameworkStatic::SetData(const uint8_t* buffer, uint32_t size) {
    return Parse(buffer, size, SameTag, OtherItems::kRefuse);
}

CKestralinFrameworkEvent::CKestralinFrameworkEvent() : CMXFHeaderBase(kThumbnailFrameworkKey) {
    Declare({
        {kTagThumbnailFormat, Encoded(uint8_t{0})},
        {kTagThumbnailWidth, Encoded(uint16_t{80})},
        {kTagThumbnailHeight, Encoded(uint16_t{45})},
        {kTagThumbnailData, {}, true, kThumbnailCapacity},
    });
}
int32_t CKestralinFrameworkEvent::SetThumbnailFormat(uint8_t format) {
    return format <= 1 ? Store(kTagThumbnailFormat, Encoded(format)) : kStatusInvalidArgument;
}
int32_t CKestralinFrameworkEvent::SetThumbnailWidth(uint16_t pixels) {
    return Store(kTagThumbnailWidth, Encoded(pixels));
}
int32_t CKestralinFrameworkEvent::SetThumbnailHeight(uint16_t pixels) {
    return Store(kTagThumbnailHeight, Encoded(pixels));
}
int32_t CKestralinFrameworkEvent::SetThumbnailData(const uint8_t* data, uint16_t size) {
    if (data == nullptr || size > kThumbnailCapacity) return kStatusInvalidArgument;
    return Store(kTagThumbnailData, {data, data + size});
}
uint8_t CKestralinFrameworkEvent::GetThumbnailFormat() const { return ByteReader(Value(kTagThumbnailFormat)).U8(); }
uint16_t CKestralinFrameworkEvent::GetThumbnailWidth() const { return ByteReader(Value(kTagThumbnailWidth)).U16(); }
uint16_t CKestralinFrameworkEvent::GetThumbnailHeight() const { return ByteReader(Value(kTagThumbnailHeight)).U16(); }
uint16_t CKestralinFrameworkEvent::GetThumbnailDataSize() const {
    return static_cast<uint16_t>(Value(kTagThumbnailData).size());
}
const uint8_t* CKestralinFrameworkEvent::GetThumbnailData() const { return Value(kTagThumbnailData).data(); }
int32_t CKestralinFrameworkEvent::SetData(const uint8_t* buffer) {
    return SetData(buffer, StatedSize(buffer, kThumbnailFrameworkKey.bytes));
}
int32_t CKestralinFrameworkEvent::SetData(const uint8_t* buffer, uint32_t size) {
    return Parse(buffer, size, SameTag, OtherItems::kRefuse);
}

}  // namespace kmxf
