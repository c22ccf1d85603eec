#include "kmxf/structures/DMSGroups.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <span>
#include <type_traits>

#include "core/Bytes.h"
#include "core/FieldText.h"
#include "core/HandOut.h"
#include "core/KLVPacket.h"
#include "core/Labels.h"
#include "core/Layout.h"
#include "core/LocalTags.h"
#include "core/Lookup.h"
#include "kmxf/core/KLV.h"
#include "kmxf/core/Status.h"

namespace kmxf {

namespace {

using Bytes = std::span<const uint8_t>;

constexpr uint32_t kClipTrackID = 101;
constexpr uint32_t kSceneTrackID = 102;
constexpr uint32_t kXMLTrackID = 1001;
constexpr uint32_t kThumbnailTrackID = 1002;

// Items by which each set of the chain leads to the next one; the framework is the last.
constexpr uint16_t kChainLinks[] = {kTagSequence, kTagStructuralComponents, kTagDMFramework};

// What the header keeps for the thumbnail group and the fill item behind it.
constexpr uint32_t kThumbnailAreaSize = kOp1bHeaderSize - kOp1bXMLEnd;

constexpr uint16_t kFirstDynamicTag = 0x8000;

uint32_t Size(Bytes bytes) { return static_cast<uint32_t>(bytes.size()); }

// The first packet with this key for which `fits` holds; one whose length leads outside reaches to the end.
template <class Fits>
Bytes FindPacket(Bytes metadata, const MXFKEYTag& key, Fits fits) {
    while (const auto head = ReadKLVHead(metadata)) {
        const auto value = KLVValue(metadata, *head);
        const Bytes packet = value ? metadata.first(head->size + value->size()) : metadata;
        if (head->key == key && fits(packet)) return packet;
        metadata = metadata.subspan(packet.size());
    }
    return {};
}

bool AnyPacket(Bytes) { return true; }

// Whether item `tag` of the set refers to `target`, alone or in a batch.
bool LeadsTo(Bytes set, const MXFKEYTag& key, uint16_t tag, const MXFKEYTag& target) {
    int64_t offset = 0;
    uint32_t length = 0;
    if (!GetKeyParam(set.data(), Size(set), key, tag, &offset, &length)) return false;
    ByteReader reader(set);
    reader.Skip(static_cast<uint64_t>(offset));
    const Bytes value = reader.Take(length);
    return std::search(value.begin(), value.end(), std::begin(target.bytes), std::end(target.bytes)) != value.end();
}

// Under which tag header metadata holds an item of ours: dynamic tags are those of its primer, when it has one. Each
// label is looked up once, however many items there are.
class FileTags {
public:
    explicit FileTags(Bytes metadata)
        : metadata_(metadata), hasPrimer_(!FindPacket(metadata, kPrimerPackKey, AnyPacket).empty()) {}

    uint16_t operator()(uint16_t tag) {
        if (tag < kFirstDynamicTag || !hasPrimer_) return tag;
        const auto [known, isNew] = known_.try_emplace(tag);
        if (isNew) {
            const PrimerRow* row = FindRow(kPrimerRows, &PrimerRow::tag, tag);
            known->second = GetLocalTag(metadata_.data(), Size(metadata_), row->ul);
        }
        return known->second;
    }

private:
    Bytes metadata_;
    bool hasPrimer_;
    std::map<uint16_t, uint16_t> known_;
};

template <class Chain>
std::vector<CMXFHeaderBase*> ChainSets(std::optional<Chain>& sets) {
    if (!sets) return {};
    return {&sets->track, &sets->sequence, &sets->segment, &sets->framework};
}

}  // namespace

CDMSGroup::CDMSGroup(uint32_t videoStd) : videoStd_(videoStd) {}
CDMSGroup::~CDMSGroup() = default;

template <class Segment, class Framework>
CDMSGroup::Chain<Segment, Framework>::Chain(uint32_t videoStd, uint32_t trackID, int64_t duration)
    : track(std::is_same_v<Segment, CEventSegment>, videoStd), sequence(duration) {
    track.SetTrackID(trackID);
    track.SetSequence(sequence.GetInstanceUID());
    sequence.SetSegment(segment.GetInstanceUID());
    segment.SetFramework(framework.GetInstanceUID());
}

std::vector<const CMXFHeaderBase*> CDMSGroup::ConstSets() const {
    const auto sets = const_cast<CDMSGroup*>(this)->Sets();  // hands out pointers and changes nothing
    return {sets.begin(), sets.end()};
}

uint32_t CDMSGroup::GetLength() const {
    uint32_t length = 0;
    for (const CMXFHeaderBase* set : ConstSets()) length += set->GetLength();
    return length;
}

int32_t CDMSGroup::GetData(uint8_t** data) {
    return HandOut(GetLength(), data, [this](ByteWriter& writer) {
        for (const CMXFHeaderBase* set : ConstSets()) set->Write(writer);
    });
}

uint32_t CDMSGroup::MemSetData(uint8_t* buffer, uint32_t offset) {
    if (buffer == nullptr) return offset;
    ByteWriter writer({buffer + offset, GetLength()});
    for (const CMXFHeaderBase* set : ConstSets()) set->Write(writer);
    return offset + GetLength();
}

MXFKEYTag CDMSGroup::GetTrackInstanceUID() const {
    const auto sets = ConstSets();
    return sets.empty() ? MXFKEYTag{} : sets.front()->GetInstanceUID();
}

int32_t CDMSGroup::Read(const uint8_t* headerMetadata, uint32_t size) {
    if (headerMetadata == nullptr) return kStatusInvalidArgument;
    Build();
    const Bytes metadata(headerMetadata, size);
    const auto sets = Sets();
    FileTags fileTags(metadata);
    const auto tagOf = [&](uint16_t tag) { return fileTags(tag); };
    const auto readSet = [&](size_t i) {
        const MXFKEYTag key = sets[i]->GetKey();
        const Bytes packet = FindPacket(metadata, key, [&](Bytes found) {
            return i >= std::size(kChainLinks) || LeadsTo(found, key, kChainLinks[i], sets[i + 1]->GetInstanceUID());
        });
        return packet.empty() ? kStatusNotFound : sets[i]->Parse(packet.data(), packet.size(), tagOf);
    };
    // From the last set to the first: the chain hangs on the framework, whose key no other group has, while segments
    // and sequences of all groups have one key.
    int32_t status = kStatusOk;
    for (size_t i = sets.size(); i-- > 0 && status == kStatusOk;) status = readSet(i);
    if (status != kStatusOk) Build();
    return status;
}

std::vector<uint8_t> CDMSGroup::Value(const MXFKEYTag& key, uint16_t tag) const {
    for (const CMXFHeaderBase* set : ConstSets()) {
        if (set->GetKey() == key) return set->Value(tag);
    }
    return {};
}

std::string CDMSGroup::Text(const MXFKEYTag& key, uint16_t tag) const { return UTF16FieldText(Value(key, tag)); }
std::string CDMSGroup::Raw(const MXFKEYTag& key, uint16_t tag) const { return RawFieldText(Value(key, tag)); }

CDMSClip::CDMSClip(uint32_t videoStd) : CDMSGroup(videoStd) {}

int32_t CDMSClip::Build() {
    ClipSets& sets = sets_.emplace(videoStd_, kClipTrackID);
    sets.framework.SetContactsList(sets.contactsList.GetInstanceUID());
    sets.framework.SetProject(sets.project.GetInstanceUID());
    sets.framework.SetParticipant(sets.participant.GetInstanceUID());
    sets.contactsList.SetPerson(sets.person.GetInstanceUID());
    sets.participant.SetPerson(sets.person.GetInstanceUID());
    return kStatusOk;
}

std::vector<CMXFHeaderBase*> CDMSClip::Sets() {
    auto sets = ChainSets(sets_);
    if (sets_) sets.insert(sets.end(), {&sets_->contactsList, &sets_->project, &sets_->participant, &sets_->person});
    return sets;
}

int32_t CDMSClip::SetData(const uint8_t* headerMetadata, uint32_t size) { return Read(headerMetadata, size); }
int32_t CDMSClip::SetTakeNumber(uint16_t takeNumber) {
    return sets_ ? sets_->framework.SetTakeNumber(takeNumber) : kStatusWrongState;
}
int32_t CDMSClip::SetProjectNumber(const std::string& bytes) {
    return sets_ ? sets_->project.SetProjectNumber(bytes) : kStatusWrongState;
}
int32_t CDMSClip::SetProjectName(const std::string& utf8) {
    return sets_ ? sets_->project.SetProjectName(utf8) : kStatusWrongState;
}
int32_t CDMSClip::SetJobFunction(const std::string& utf8) {
    return sets_ ? sets_->participant.SetJobFunction(utf8) : kStatusWrongState;
}
int32_t CDMSClip::SetFamilyName(const std::string& utf8) {
    return sets_ ? sets_->person.SetFamilyName(utf8) : kStatusWrongState;
}
int32_t CDMSClip::SetFirstGivenName(const std::string& utf8) {
    return sets_ ? sets_->person.SetFirstGivenName(utf8) : kStatusWrongState;
}
uint16_t CDMSClip::GetTakeNumber() const { return ByteReader(Value(kClipFrameworkKey, kTagTakeNumber)).U16(); }
std::string CDMSClip::GetProjectNumber() const { return Raw(kProjectKey, kTagProjectNumber); }
std::string CDMSClip::GetProjectName() const { return Text(kProjectKey, kTagProjectName); }
std::string CDMSClip::GetJobFunction() const { return Text(kParticipantKey, kTagJobFunction); }
std::string CDMSClip::GetFamilyName() const { return Text(kPersonKey, kTagFamilyName); }
std::string CDMSClip::GetFirstGivenName() const { return Text(kPersonKey, kTagFirstGivenName); }

CDMSScene::CDMSScene(uint32_t videoStd) : CDMSGroup(videoStd) {}
int32_t CDMSScene::Build() {
    sets_.emplace(videoStd_, kSceneTrackID);
    return kStatusOk;
}
std::vector<CMXFHeaderBase*> CDMSScene::Sets() { return ChainSets(sets_); }
int32_t CDMSScene::SetData(const uint8_t* headerMetadata, uint32_t size) { return Read(headerMetadata, size); }
int32_t CDMSScene::SetEventStartPosition(int64_t position) {
    return sets_ ? sets_->segment.SetEventStartPosition(position) : kStatusWrongState;
}
int32_t CDMSScene::SetSceneNumber(const std::string& bytes) {
    return sets_ ? sets_->framework.SetSceneNumber(bytes) : kStatusWrongState;
}
std::string CDMSScene::GetSceneNumber() const { return Raw(kSceneFrameworkKey, kTagSceneNumber); }

CDMSKestralinStatic::CDMSKestralinStatic(uint32_t videoStd) : CDMSGroup(videoStd) {}
int32_t CDMSKestralinStatic::Build() {
    sets_.emplace(videoStd_, kXMLTrackID);
    return kStatusOk;
}
std::vector<CMXFHeaderBase*> CDMSKestralinStatic::Sets() { return ChainSets(sets_); }
int32_t CDMSKestralinStatic::SetData(const uint8_t* headerMetadata, uint32_t size) {
    return Read(headerMetadata, size);
}
int32_t CDMSKestralinStatic::SetXMLData(const uint8_t* xml, uint16_t size) {
    return sets_ ? sets_->framework.SetXMLData(xml, size) : kStatusWrongState;
}
uint16_t CDMSKestralinStatic::GetXMLDataSize() const { return sets_ ? sets_->framework.GetXMLDataSize() : uint16_t{0}; }
const uint8_t* CDMSKestralinStatic::GetXMLData() const { return sets_ ? sets_->framework.GetXMLData() : nullptr; }

CDMSKestralinEvent::CDMSKestralinEvent(uint32_t videoStd) : CDMSGroup(videoStd) {}
int32_t CDMSKestralinEvent::Build() {
    sets_.emplace(videoStd_, kThumbnailTrackID, 1);
    return kStatusOk;
}
std::vector<CMXFHeaderBase*> CDMSKestralinEvent::Sets() { return ChainSets(sets_); }
int32_t CDMSKestralinEvent::SetData(const uint8_t* headerMetadata, uint32_t size) { return Read(headerMetadata, size); }
int32_t CDMSKestralinEvent::SetEventStartPosition(int64_t position) {
    return sets_ ? sets_->segment.SetEventStartPosition(position) : kStatusWrongState;
}
int32_t CDMSKestralinEvent::SetThumbnailData(const uint8_t* data, uint16_t size, uint16_t width, uint16_t height,
                                             uint8_t format) {
    if (!sets_) return kStatusWrongState;
    CKestralinFrameworkEvent& framework = sets_->framework;
    const uint32_t most = kThumbnailAreaSize - (GetLength() - framework.GetThumbnailDataSize());
    if (data == nullptr || (size > most - kKLVHeadSize && size != most)) return kStatusInvalidArgument;
    if (const int32_t status = framework.SetThumbnailFormat(format); status != kStatusOk) return status;
    framework.SetThumbnailWidth(width);
    framework.SetThumbnailHeight(height);
    return framework.SetThumbnailData(data, size);
}
int64_t CDMSKestralinEvent::GetEventStartPosition() const {
    return ByteReader(Value(kDMSegmentKey, kTagEventStartPosition)).I64();
}
uint8_t CDMSKestralinEvent::GetThumbnailFormat() const {
    return sets_ ? sets_->framework.GetThumbnailFormat() : uint8_t{0};
}
uint16_t CDMSKestralinEvent::GetThumbnailWidth() const {
    return sets_ ? sets_->framework.GetThumbnailWidth() : uint16_t{0};
}
uint16_t CDMSKestralinEvent::GetThumbnailHeight() const {
    return sets_ ? sets_->framework.GetThumbnailHeight() : uint16_t{0};
}
uint16_t CDMSKestralinEvent::GetThumbnailDataSize() const {
    return sets_ ? sets_->framework.GetThumbnailDataSize() : uint16_t{0};
}
const uint8_t* CDMSKestralinEvent::GetThumbnailData() const {
    return sets_ ? sets_->framework.GetThumbnailData() : nullptr;
}

}  // namespace kmxf
