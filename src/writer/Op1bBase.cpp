#include "kmxf/writer/Op1bBase.h"

#include <algorithm>
#include <deque>
#include <iterator>
#include <span>
#include <utility>
#include <vector>

#include "core/HandOut.h"
#include "core/KLVPacket.h"
#include "core/Labels.h"
#include "core/Layout.h"
#include "core/NewUMID.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/structures/Filler.h"
#include "kmxf/structures/Partition.h"
#include "kmxf/structures/RandomIndex.h"
#include "writer/HeaderMetadata.h"

namespace kmxf {

namespace {

constexpr uint32_t kMostANCData = 470;
constexpr uint32_t kTimecodeTrackID = 1;

// A kind of essence. All channels of sound have one key; their BodySIDs tell them apart.
struct EssenceKind {
    uint32_t trackCode;
    uint32_t codeMask;  // track codes of this kind lie within
    MXFKEYTag elementKey;
    uint8_t lengthWidth;  // of an element's BER length behind its first byte
    MXFKEYTag container;
};
constexpr EssenceKind kKinds[] = {
    {kTrackCodePicture, 0x30F00, kAVCLongGOPElementKey, 3, kAVCLongGOPContainerLabel},
    {kTrackCodeSound, 0x300FF, kPCMBlockElementKey, 7, kPCMCustomContainerLabel},
    {kTrackCodeData, 0x32000, kANCElementKey, 3, kANCContainerLabel},
};
constexpr const EssenceKind& kPicture = kKinds[0];
constexpr const EssenceKind& kSound = kKinds[1];
constexpr const EssenceKind& kANC = kKinds[2];

// One stream of the clip: 0 the picture, 1 ANC, from 2 on the sound of each channel. Its numbers follow from that.
struct Stream {
    const EssenceKind* kind;
    uint32_t number;
    uint32_t trackCode;
    uint32_t unitSize;                 // bytes of an edit unit; 0 where they differ
    CIndexCommon segment{0, 0, 0, 0};  // the one that is being filled

    bool IsSound() const { return kind == &kSound; }
    uint32_t BodySID() const { return kPictureSID + number; }
    uint32_t IndexSID() const { return kPictureIndexSID + number; }
    uint32_t TrackID() const { return 2 + number; }
    uint32_t TrackNumber() const { return ByteReader(std::span(kind->elementKey.bytes).last(4)).U32(); }
};
constexpr size_t kPictureStream = 0, kANCStream = 1, kFirstSoundStream = 2;

MXFUMIDTag WithInstance(MXFUMIDTag umid, size_t count) {
    // The instance number is bytes 13 to 15 (SMPTE ST 330); its lowest byte counts.
    umid.bytes[15] = static_cast<uint8_t>(umid.bytes[15] + count);
    return umid;
}

// The first of an area's bytes are `used`: the rest is one fill item, or none. A rest that no item can have is left
// over, and the caller's buffer is then not full.
void PutFill(ByteWriter& writer, uint32_t area, uint64_t used) {
    if (used >= area) return;
    CFiller fill;
    fill.SetLength(static_cast<uint32_t>(area - used));
    Put(writer, fill);
}

}  // namespace

struct COp1bBase::Parts {
    Parts(const ClipFormat& clip, uint8_t channels, uint8_t bytesPerSample);

    int64_t EditUnits(const Stream& stream, int64_t frames) const;
    Stream* Sound(uint8_t channel);
    void OpenSegment(Stream& stream);
    // The fill item that brings a pack with its segment to a multiple of 4 bytes.
    uint32_t IndexFill(const Stream& stream) const;
    int32_t SetBodyPartition(Stream& stream, int64_t thisPartition, int64_t bodyOffset, uint32_t frames, bool withIndex,
                             bool withBody);
    void PutBodyPartition(ByteWriter& writer, Stream& stream, bool withIndex);
    // For the footer, and the next segment begins.
    int32_t FinishSegment(Stream& stream);
    int32_t GetBodyPartition(uint8_t** data, Stream* stream, bool withIndex);
    int32_t KeepForFooter(CIndexCommon segment);

    void EnterPartition(int64_t offset, uint32_t bodySID) {
        randomIndex.AddPartitionInfo({static_cast<uint64_t>(offset), bodySID});
    }
    int64_t LastPartition() const { return randomIndex.GetPartitionOffset(randomIndex.GetPartitionNum() - 1); }
    // What depends on duration, origin and start timecode together.
    void UpdateTracks();

    ClipFormat format;
    HeaderMetadata metadata;
    CFiller metadataFill;
    CPartition headerPartition{1};
    CPartition bodyPartition{2};
    CPartition footerPartition{3};
    CRandomIndex randomIndex;
    std::vector<Stream> streams;

    bool keepForFooter = true;
    // Finished segments as the footer has them. It grows with the recording, so it must grow without copies of itself.
    std::deque<uint8_t> footerIndex;
    int64_t framesWritten = 0;
    int64_t duration = 0, origin = 0;
    int64_t startTimecode = 0;
    bool drop;
    uint32_t thumbnailPosition = 0;
    int64_t footerEntry = -1;  // where the random index has the footer
    bool hasUMID = false;
    MXFUMIDTag ownUMID;  // for who gives none
};

COp1bBase::Parts::Parts(const ClipFormat& clip, uint8_t channels, uint8_t bytesPerSample)
    : format(clip), metadata(clip), drop(!NeverDrops(clip.videoStd)) {  // as a new timecode component has it
    streams.reserve(kFirstSoundStream + channels);
    const auto add = [&](const EssenceKind& kind, uint32_t trackCode, uint32_t unitSize) {
        streams.push_back({&kind, static_cast<uint32_t>(streams.size()), trackCode, unitSize});
    };
    add(kPicture, kTrackCodePicture, 0);
    add(kANC, kTrackCodeData, kANCElementSize);
    for (uint32_t channel = 0; channel < channels; ++channel) add(kSound, kTrackCodeSound + channel, bytesPerSample);
}

int64_t COp1bBase::Parts::EditUnits(const Stream& stream, int64_t frames) const {
    return stream.IsSound() ? DurationToAudioSample(format.videoStd, frames, kOp1bSamplesPerSec) : frames;
}

Stream* COp1bBase::Parts::Sound(uint8_t channel) {
    const size_t number = kFirstSoundStream + channel;
    return number < streams.size() ? &streams[number] : nullptr;
}

void COp1bBase::Parts::OpenSegment(Stream& stream) {
    const bool variable = stream.unitSize == 0;
    CIndexCommon segment(0, 0, 0, variable);
    segment.SetEditRate(stream.IsSound() ? GetAudioEditRate(kOp1bSamplesPerSec) : GetVideoEditRate(format.videoStd));
    segment.SetStartPosition(EditUnits(stream, framesWritten));
    segment.SetEditUnitByteCount(stream.unitSize);
    segment.SetIndexSID(stream.IndexSID());
    segment.SetBodySID(stream.BodySID());
    if (variable) segment.AddDeltaEntry(0, 0, 0);
    stream.segment = segment;
}

uint32_t COp1bBase::Parts::IndexFill(const Stream& stream) const {
    const uint32_t rest = (bodyPartition.GetLength() + stream.segment.GetLength()) % 4;
    return rest == 0 ? 0 : kKLVHeadSize + 4 - rest;
}

int32_t COp1bBase::Parts::SetBodyPartition(Stream& stream, int64_t thisPartition, int64_t bodyOffset, uint32_t frames,
                                           bool withIndex, bool withBody) {
    if (randomIndex.GetPartitionNum() == 0) return kStatusFailure;
    if (withIndex) stream.segment.SetDuration(EditUnits(stream, frames));
    bodyPartition.SetThisPartition(thisPartition);
    bodyPartition.SetPreviousPartition(LastPartition());
    bodyPartition.SetIndexSID(withIndex ? stream.IndexSID() : 0);
    bodyPartition.SetIndexByteCount(withIndex ? int64_t{stream.segment.GetLength()} + IndexFill(stream) : 0);
    bodyPartition.SetBodySID(withBody ? stream.BodySID() : 0);
    bodyPartition.SetBodyOffset(withBody ? bodyOffset : 0);
    EnterPartition(thisPartition, withBody ? stream.BodySID() : 0);
    return kStatusOk;
}

void COp1bBase::Parts::PutBodyPartition(ByteWriter& writer, Stream& stream, bool withIndex) {
    Put(writer, bodyPartition);
    if (!withIndex) return;
    Put(writer, stream.segment);
    PutFill(writer, IndexFill(stream), 0);
}

int32_t COp1bBase::Parts::KeepForFooter(CIndexCommon segment) {
    std::vector<uint8_t> bytes(segment.GetLength());
    ByteWriter writer(bytes);
    if (!Put(writer, segment)) return kStatusNoMemory;
    footerIndex.insert(footerIndex.end(), bytes.begin(), bytes.end());
    return kStatusOk;
}

int32_t COp1bBase::Parts::FinishSegment(Stream& stream) {
    const int32_t status = keepForFooter ? KeepForFooter(stream.segment) : kStatusOk;
    OpenSegment(stream);
    return status;
}

int32_t COp1bBase::Parts::GetBodyPartition(uint8_t** data, Stream* stream, bool withIndex) {
    if (stream == nullptr) return kStatusFailure;
    const uint32_t indexSize = withIndex ? stream->segment.GetLength() + IndexFill(*stream) : 0;
    const int32_t status = HandOut(bodyPartition.GetLength() + indexSize, data,
                                   [&](ByteWriter& writer) { PutBodyPartition(writer, *stream, withIndex); });
    return status == kStatusOk && withIndex ? FinishSegment(*stream) : status;
}

void COp1bBase::Parts::UpdateTracks() {
    for (PackageTrack& track : metadata.materialTracks) {
        track.SetDuration(duration);
        track.SetStartTimecode(startTimecode, drop);
    }
    const auto update = [this](EssencePackage& package) {
        for (PackageTrack& track : package.tracks) {
            track.SetOrigin(origin);
            track.SetDuration(Difference(duration, origin));
            // The origin is not halved where the timecode counts half the frames.
            track.SetStartTimecode(Sum(startTimecode, origin), drop);
        }
    };
    update(metadata.filePackage);
    for (EssencePackage& package : metadata.soundPackages) update(package);
}

COp1bBase::COp1bBase(uint32_t videoStandard, uint32_t compressionType, uint8_t bytesPerSample, uint32_t audioChannels)
    : videoStd_(videoStandard),
      compType_(compressionType),
      bytesPerSample_(bytesPerSample),
      channels_(static_cast<uint8_t>(audioChannels)) {}
COp1bBase::~COp1bBase() = default;

int32_t COp1bBase::SetPlayerLayout(bool on) {
    if (parts_) return kStatusWrongState;
    playerLayout_ = on;
    return kStatusOk;
}

int32_t COp1bBase::Initialize(bool keepForFooter) {
    using Step = int32_t (COp1bBase::*)();
    for (const Step step :
         {&COp1bBase::CreateInstance, &COp1bBase::InitPartition, &COp1bBase::InitPackage, &COp1bBase::InitIndex}) {
        if (const int32_t status = (this->*step)(); status != kStatusOk) {
            parts_.reset();
            return status;
        }
    }
    parts_->keepForFooter = keepForFooter;
    return kStatusOk;
}

int32_t COp1bBase::CreateInstance() {
    parts_ = std::make_unique<Parts>(ClipFormat{videoStd_, kOp1bSamplesPerSec}, channels_, bytesPerSample_);
    // The one descriptor that not every format has.
    CCDCIEssenceDescriptor picture(videoStd_, compType_, false);
    if (const int32_t status = picture.SetVideoFormat(videoStd_, compType_, false); status != kStatusOk) return status;
    if (GetAVCBitRate(compType_) == 0) return kStatusInvalidArgument;

    std::vector<EssenceDescriptor>& descriptors = parts_->metadata.descriptors;
    descriptors.emplace_back(std::move(picture), CH264EssenceSubDescriptor(videoStd_, compType_));
    for (size_t i = kANCStream; i < parts_->streams.size(); ++i) {
        if (!parts_->streams[i].IsSound()) {
            descriptors.emplace_back(CDataEssenceDescriptor(GetVideoEditRate(videoStd_)));
            continue;
        }
        CAESEssenceDescriptor sound;
        sound.SetQuantizationBits(bytesPerSample_ * 8U);
        sound.SetBlockAlign(bytesPerSample_);
        sound.SetAverageBytesPerSecond(kOp1bSamplesPerSec * bytesPerSample_);
        descriptors.emplace_back(std::move(sound));
    }
    return kStatusOk;
}

int32_t COp1bBase::InitPartition() {
    CPreface& preface = parts_->metadata.preface;
    preface.SetOperationalPattern(kOp1bLabel);
    std::vector<MXFKEYTag> containers = {kPicture.container, kANC.container};
    if (channels_ > 0) containers.push_back(kSound.container);
    for (const MXFKEYTag& label : containers) preface.AddEssenceContainer(label);
    for (CPartition* pack : {&parts_->headerPartition, &parts_->bodyPartition, &parts_->footerPartition}) {
        pack->SetOperationPattern(kOp1bLabel);
        for (const MXFKEYTag& label : containers) pack->AddEssenceContainer(label);
    }
    return kStatusOk;
}

int32_t COp1bBase::InitPackage() {
    const ClipFormat& format = parts_->format;
    HeaderMetadata& metadata = parts_->metadata;
    metadata.AddMaterialTrack(PackageTrack(format, kTrackCodeTimecode, kTimecodeTrackID, 0, false));
    metadata.filePackage.AddTrack(PackageTrack(format, kTrackCodeTimecode, kTimecodeTrackID, 0, false));

    for (size_t i = 0; i < parts_->streams.size(); ++i) {
        const Stream& stream = parts_->streams[i];
        CEssenceContainerData& container = i == 0 ? metadata.essenceContainers.front() : metadata.AddEssenceContainer();
        container.SetIndexSID(stream.IndexSID());
        container.SetBodySID(stream.BodySID());

        CFileDescriptor& descriptor = metadata.descriptors[i].Common();
        descriptor.SetLinkedTrackID(stream.TrackID());
        descriptor.SetEssenceContainer(stream.kind->container);

        metadata.AddMaterialTrack(PackageTrack(format, stream.trackCode, stream.TrackID(), 0, false));
        const bool apart = playerLayout_ && stream.IsSound();
        EssencePackage& package = apart ? metadata.AddSoundPackage() : metadata.filePackage;
        package.AddTrack(PackageTrack(format, stream.trackCode, stream.TrackID(), stream.TrackNumber(), false));
        if (apart) package.package.SetDescriptor(metadata.descriptors[i].InstanceUID());
    }

    if (playerLayout_) {
        MultipleDescriptor both;
        both.SetSampleRate(GetVideoEditRate(videoStd_));
        for (const size_t i : {kPictureStream, kANCStream}) both.AddDescriptor(metadata.descriptors[i].InstanceUID());
        metadata.descriptors.insert(metadata.descriptors.begin(), EssenceDescriptor(std::move(both)));
    }
    metadata.filePackage.package.SetDescriptor(metadata.descriptors.front().InstanceUID());
    return kStatusOk;
}

int32_t COp1bBase::InitIndex() {
    for (Stream& stream : parts_->streams) parts_->OpenSegment(stream);
    return kStatusOk;
}

int32_t COp1bBase::CheckRoom(const CDescriptiveMetadata& metadata) const {
    if (!parts_) return kStatusWrongState;
    HeaderMetadata trial = parts_->metadata;
    if (const int32_t status = trial.SetDescriptiveMetadata(metadata, kDMSchemeSceneOp1b); status != kStatusOk) {
        return status;
    }
    const int64_t room = int64_t{kOp1bMetadataEnd} - parts_->headerPartition.GetLength() - trial.GetLength();
    return room == 0 || room >= kKLVHeadSize ? kStatusOk : kStatusNoMemory;
}

int32_t COp1bBase::GetHeaderData(uint8_t** data) {
    if (data == nullptr) return kStatusInvalidArgument;
    if (!parts_) return kStatusWrongState;
    if (!parts_->hasUMID) SetUMID({});  // packages need one
    HeaderMetadata& metadata = parts_->metadata;
    CPartition& header = parts_->headerPartition;
    header.SetHeaderByteCount(int64_t{kOp1bHeaderSize} - header.GetLength());
    const uint64_t used = uint64_t{header.GetLength()} + metadata.GetLength();
    parts_->metadataFill.SetLength(
        static_cast<uint32_t>(kOp1bMetadataEnd - std::min<uint64_t>(used, kOp1bMetadataEnd)));

    // HandOut answers kStatusNoMemory when the pieces do not make up exactly the header.
    const int32_t status = HandOut(kOp1bHeaderSize, data, [&](ByteWriter& writer) {
        if (used > kOp1bMetadataEnd || !Put(writer, header) || metadata.Write(writer) != kStatusOk) return;
        if (used < kOp1bMetadataEnd) Put(writer, parts_->metadataFill);
        const auto putArea = [&](uint32_t area, auto& group) {
            if (group) Put(writer, *group);
            PutFill(writer, area, group ? group->GetLength() : 0);
        };
        putArea(kOp1bXMLEnd - kOp1bMetadataEnd, metadata.xml);
        putArea(kOp1bHeaderSize - kOp1bXMLEnd, metadata.thumbnail);
    });
    if (status == kStatusOk && parts_->randomIndex.GetPartitionNum() == 0) parts_->EnterPartition(0, 0);
    return status;
}

uint32_t COp1bBase::GetHeaderSize() { return kOp1bHeaderSize; }

uint32_t COp1bBase::GetHeaderMetadataSize() { return parts_ ? parts_->metadata.GetLength() : 0; }

uint32_t COp1bBase::MXFMemSetHeaderMetadata(uint8_t* buffer, uint32_t offset) {
    if (buffer == nullptr || !parts_) return offset;
    const uint32_t size = GetHeaderMetadataSize();
    ByteWriter writer({buffer + offset, size});
    return parts_->metadata.Write(writer) == kStatusOk ? offset + size : offset;
}

int32_t COp1bBase::GetKLData(uint32_t type, int64_t length, uint8_t* out) {
    if (out == nullptr) return kStatusInvalidArgument;
    const auto* kind = std::find_if(std::begin(kKinds), std::end(kKinds),
                                    [type](const EssenceKind& each) { return (type & each.codeMask) == type; });
    if (kind == std::end(kKinds)) return kStatusOk;
    ByteWriter writer({out, sizeof kind->elementKey.bytes + 1 + kind->lengthWidth});
    writer.Key(kind->elementKey);
    writer.BER(static_cast<uint64_t>(length), kind->lengthWidth);
    return kStatusOk;
}

namespace {

void PutANC(ByteWriter& writer, uint8_t marker, std::span<const uint8_t> payload) {
    const size_t size = payload.size();
    writer.Key(kANC.elementKey);
    writer.BER(size + 2, kANC.lengthWidth);
    writer.U8(marker);  // the count of packets, low byte first, unlike every other number
    writer.U8(0);
    writer.Bytes(payload);
    writer.Key(kFillKey);
    writer.BER(kMostANCData - size, 3);
    writer.Zeros(kMostANCData - size);
}

}  // namespace

bool COp1bBase::CreateDummyANC(uint8_t* out) {
    if (out == nullptr) return false;
    ByteWriter writer({out, kANCElementSize});
    PutANC(writer, 0, {});
    return writer.Ok();
}

bool COp1bBase::CreateANCData(const uint8_t* data, uint32_t size, uint8_t* out) {
    if (data == nullptr || out == nullptr || size > kMostANCData) return false;
    ByteWriter writer({out, kANCElementSize});
    PutANC(writer, 1, {data, size});
    return writer.Ok();
}

int32_t COp1bBase::SetBodyPartitionParamVideo(int64_t thisPartition, int64_t bodyOffset, uint32_t frames,
                                              bool withIndex, bool withBody) {
    if (!parts_) return kStatusFailure;
    return parts_->SetBodyPartition(parts_->streams[kPictureStream], thisPartition, bodyOffset, frames, withIndex,
                                    withBody);
}

int32_t COp1bBase::SetBodyPartitionParamAudio(int64_t thisPartition, int64_t bodyOffset, uint32_t frames,
                                              uint8_t channel, bool withIndex, bool withBody) {
    Stream* stream = parts_ ? parts_->Sound(channel) : nullptr;
    if (stream == nullptr) return kStatusFailure;
    return parts_->SetBodyPartition(*stream, thisPartition, bodyOffset, frames, withIndex, withBody);
}

uint32_t COp1bBase::GetBodyPartitionSize(bool withIndex, bool audio) {
    if (!parts_) return 0;
    // Segments of constant edit units are all of one size.
    const Stream& stream = parts_->streams[audio ? kANCStream : kPictureStream];
    const uint32_t indexSize = withIndex ? stream.segment.GetLength() + parts_->IndexFill(stream) : 0;
    return parts_->bodyPartition.GetLength() + indexSize;
}

int32_t COp1bBase::GetBodyPartitionDataVideo(uint8_t** data, bool withIndex) {
    if (data == nullptr) return kStatusInvalidArgument;
    if (!parts_) return kStatusFailure;
    return parts_->GetBodyPartition(data, &parts_->streams[kPictureStream], withIndex);
}

int32_t COp1bBase::GetBodyPartitionDataAudio(uint8_t** data, bool withIndex, uint8_t channel) {
    if (data == nullptr) return kStatusInvalidArgument;
    if (!parts_) return kStatusFailure;
    return parts_->GetBodyPartition(data, parts_->Sound(channel), withIndex);
}

uint32_t COp1bBase::GetBodyPartitionSizeANCData(uint32_t frames) {
    if (!parts_) return 0;
    return GetBodyPartitionSize(false, false) + kANCElementSize * frames + GetBodyPartitionSize(true, true);
}

int32_t COp1bBase::GetBodyPartitionDataANCData(uint8_t** data, int64_t thisPartition, uint32_t frames) {
    if (data == nullptr) return kStatusInvalidArgument;
    if (!parts_) return kStatusFailure;
    Stream& anc = parts_->streams[kANCStream];
    const uint32_t packSize = parts_->bodyPartition.GetLength();
    const int64_t bodySize = int64_t{packSize} + int64_t{kANCElementSize} * frames;
    const int64_t bodyOffset = kANCElementSize * (parts_->framesWritten - frames);
    if (const int32_t status = parts_->SetBodyPartition(anc, thisPartition, bodyOffset, frames, false, true);
        status != kStatusOk) {
        return status;
    }
    const uint32_t size = GetBodyPartitionSizeANCData(frames);
    if (size < bodySize) return kStatusNoMemory;  // a number of frames beyond what 32 bits can size
    const int32_t status = HandOut(size, data, [&](ByteWriter& writer) {
        parts_->PutBodyPartition(writer, anc, false);
        for (uint32_t i = 0; i < frames; ++i) PutANC(writer, 0, {});
        parts_->SetBodyPartition(anc, thisPartition + bodySize, 0, frames, true, false);
        parts_->PutBodyPartition(writer, anc, true);
    });
    return status == kStatusOk ? parts_->FinishSegment(anc) : status;
}

int32_t COp1bBase::AddIndexEntry(int8_t temporalOffset, int8_t keyFrameOffset, uint8_t flags, int64_t streamOffset) {
    if (!parts_) return kStatusFailure;
    ++parts_->framesWritten;
    return parts_->streams[kPictureStream].segment.AddIndexEntry(temporalOffset, keyFrameOffset, flags,
                                                                 static_cast<uint64_t>(streamOffset));
}

int32_t COp1bBase::AddFillerSize(uint32_t size) {
    if (!parts_) return kStatusWrongState;
    // The next header takes what is left, whatever this says.
    return parts_->metadataFill.SetLength(parts_->metadataFill.GetLength() + size);
}

int32_t COp1bBase::AddPartitionInfo(MXF_PARTITION_INFOTag info) {
    return parts_ ? parts_->randomIndex.AddPartitionInfo(info) : kStatusFailure;
}

int32_t COp1bBase::AddFooterIndex(const CIndexCommon& segment) {
    if (!parts_) return kStatusFailure;
    return parts_->KeepForFooter(segment);
}

int32_t COp1bBase::SetDuration(int64_t duration) {
    if (!parts_) return kStatusWrongState;
    parts_->duration = duration;
    parts_->UpdateTracks();
    return kStatusOk;
}

int32_t COp1bBase::SetContainerDuration(int64_t duration) {
    if (!parts_) return kStatusWrongState;
    std::vector<EssenceDescriptor>& descriptors = parts_->metadata.descriptors;
    for (EssenceDescriptor& each : descriptors) {
        const bool sound = std::holds_alternative<CAESEssenceDescriptor>(each.descriptor);
        const int64_t samples = sound ? DurationToAudioSample(videoStd_, duration, kOp1bSamplesPerSec) : duration;
        each.Common().SetContainerDuration(samples);
    }
    return kStatusOk;
}

int32_t COp1bBase::SetOrigin(int64_t origin) {
    if (!parts_) return kStatusWrongState;
    parts_->origin = origin;
    parts_->UpdateTracks();
    return kStatusOk;
}

int32_t COp1bBase::SetStartTimecode(int64_t frames, bool drop) {
    if (!parts_) return kStatusWrongState;
    parts_->startTimecode = frames;
    parts_->drop = drop && !NeverDrops(videoStd_);
    parts_->UpdateTracks();
    return kStatusOk;
}

int32_t COp1bBase::SetDMS(const CDescriptiveMetadata& metadata) {
    return parts_ ? parts_->metadata.SetDescriptiveMetadata(metadata, kDMSchemeSceneOp1b) : kStatusWrongState;
}

int32_t COp1bBase::SetXMLData(const uint8_t* xml, uint16_t size) {
    if (!parts_) return kStatusWrongState;
    if (xml == nullptr) return kStatusInvalidArgument;
    std::optional<CDMSKestralinStatic>& group = parts_->metadata.xml;
    if (!group) {
        CDMSKestralinStatic built(videoStd_);  // whole before it is taken
        built.Build();
        group = std::move(built);
    }
    return group->SetXMLData(xml, size);
}

int32_t COp1bBase::SetThumbnailData(const uint8_t* data, uint16_t size, uint16_t width, uint16_t height,
                                    uint8_t format) {
    if (!parts_) return kStatusWrongState;
    CDMSKestralinEvent trial(videoStd_);  // a refused picture leaves no group behind
    trial.Build();
    std::optional<CDMSKestralinEvent>& group = parts_->metadata.thumbnail;
    const int32_t status = (group ? *group : trial).SetThumbnailData(data, size, width, height, format);
    if (status != kStatusOk) return status;
    if (!group) group = trial;
    return group->SetEventStartPosition(parts_->thumbnailPosition);
}

int32_t COp1bBase::SetThumbnailPosition(uint32_t position) {
    if (!parts_) return kStatusWrongState;
    parts_->thumbnailPosition = position;
    std::optional<CDMSKestralinEvent>& group = parts_->metadata.thumbnail;
    return group ? group->SetEventStartPosition(position) : kStatusOk;
}

int32_t COp1bBase::SetUMID(MXFUMIDTag umid) {
    if (!parts_) return kStatusWrongState;
    if (umid == MXFUMIDTag()) {
        if (parts_->ownUMID == MXFUMIDTag()) parts_->ownUMID = NewUMID();
        umid = parts_->ownUMID;
    }
    parts_->hasUMID = true;
    HeaderMetadata& metadata = parts_->metadata;
    metadata.materialPackage.SetPackageUID(umid);
    const MXFUMIDTag file = WithInstance(umid, 1);
    metadata.filePackage.package.SetPackageUID(file);
    for (size_t c = 0; c < metadata.soundPackages.size(); ++c) {
        metadata.soundPackages[c].package.SetPackageUID(WithInstance(file, c + 1));
    }
    for (const Stream& stream : parts_->streams) {
        const bool apart = playerLayout_ && stream.IsSound();
        const MXFUMIDTag source = apart ? WithInstance(file, stream.number - kFirstSoundStream + 1) : file;
        metadata.essenceContainers[stream.number].SetLinkedPackageUID(source);
        metadata.materialTracks[1 + stream.number].SetSource(source, stream.TrackID());
    }
    return kStatusOk;
}

int32_t COp1bBase::SetPackageName(const std::string& utf8) {
    return parts_ ? parts_->metadata.materialPackage.SetName(utf8) : kStatusWrongState;
}

int32_t COp1bBase::SetIdentification(const std::string& company, const std::string& product, const std::string& version,
                                     const uint8_t* productUID) {
    if (productUID == nullptr) return kStatusInvalidArgument;
    if (!parts_) return kStatusWrongState;
    return parts_->metadata.SetIdentification(company, product, version, productUID);
}

int32_t COp1bBase::SetCreationDate(MXFTIMESTAMPTag date) {
    if (!parts_) return kStatusWrongState;
    parts_->metadata.SetCreationDate(date);
    return kStatusOk;
}

int32_t COp1bBase::SetModifiedDate(MXFTIMESTAMPTag date) {
    if (!parts_) return kStatusWrongState;
    parts_->metadata.SetModifiedDate(date);
    return kStatusOk;
}

int32_t COp1bBase::SetFooterPartitionParam(int64_t footerOffset) {
    if (!parts_ || parts_->randomIndex.GetPartitionNum() == 0) return kStatusFailure;
    SetFooterPartitionPos(footerOffset);
    if (footerOffset == parts_->footerEntry) return kStatusOk;
    SetFooterPrevPartitionPos(parts_->LastPartition());
    parts_->EnterPartition(footerOffset, 0);
    parts_->footerEntry = footerOffset;
    return kStatusOk;
}

int32_t COp1bBase::SetFooterPartitionPos(int64_t offset) {
    if (!parts_) return kStatusFailure;
    parts_->headerPartition.SetFooterPartition(offset);
    parts_->footerPartition.SetFooterPartition(offset);
    parts_->footerPartition.SetThisPartition(offset);
    return kStatusOk;
}

int32_t COp1bBase::SetFooterPrevPartitionPos(int64_t offset) {
    return parts_ ? parts_->footerPartition.SetPreviousPartition(offset) : kStatusFailure;
}

uint32_t COp1bBase::GetFooterSize() {
    if (!parts_) return 0;
    return parts_->footerPartition.GetLength() + static_cast<uint32_t>(parts_->footerIndex.size());
}

int32_t COp1bBase::GetFooterData(uint8_t** data) {
    if (data == nullptr) return kStatusInvalidArgument;
    if (GetFooterSize() == 0) return kStatusFailure;
    CPartition& footer = parts_->footerPartition;
    footer.SetIndexByteCount(static_cast<int64_t>(parts_->footerIndex.size()));
    // Segments of every stream are here; a partition that has index needs one of their SIDs.
    footer.SetIndexSID(parts_->footerIndex.empty() ? 0 : parts_->streams[kPictureStream].IndexSID());
    return HandOut(GetFooterSize(), data, [&](ByteWriter& writer) {
        Put(writer, footer);
        for (const uint8_t byte : parts_->footerIndex) writer.U8(byte);
    });
}

uint32_t COp1bBase::GetRandomIndexSize() { return parts_ ? parts_->randomIndex.GetLength() : 0; }

int32_t COp1bBase::GetRandomIndexData(uint8_t** data) {
    if (data == nullptr) return kStatusInvalidArgument;
    if (!parts_ || parts_->randomIndex.GetPartitionNum() == 0) return kStatusFailure;
    return parts_->randomIndex.GetData(data);
}

}  // namespace kmxf
