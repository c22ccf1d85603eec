#include "tools/Op1bSalvage.h"

#include <algorithm>
#include <limits>
#include <new>

#include "collaborators/Report.h"
#include "collaborators/SEI.h"
#include "core/FieldText.h"
#include "core/Labels.h"
#include "core/Layout.h"
#include "core/LocalTags.h"
#include "kmxf/collaborators/Notify.h"
#include "kmxf/collaborators/VideoFrame.h"
#include "kmxf/core/KLV.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/structures/DMSGroups.h"
#include "kmxf/structures/Partition.h"
#include "kmxf/tools/ModifyMXFHeaderData.h"
#include "reader/StreamRead.h"
#include "tools/SalvageHeader.h"
#include "tools/StreamWrite.h"
#include "writer/OwnPieces.h"

namespace kmxf {

namespace {

constexpr uint32_t kOnePicture = 0x10100;  // clip type of one picture and no sound
constexpr uint8_t kDefaultBytesPerSample = 2;

// A frame that cannot be shown, because what it refers to was cut off.
constexpr uint8_t kNotShownFlags = 0x3B;
// As many frames in front of a clip, or behind it, are too many to be true.
constexpr int64_t kTooMany = 4;

bool Fail(const char* message, LogPlace place = "CSalvageMXFOp1b::Salvage") {
    Report(place, "SalvageMXFOp1b", "%s", message);
    return false;
}
bool HeaderFault(const char* message, LogPlace place = "CSalvageMXFOp1b::GetHeaderParam") {
    return Fail(message, place);
}
bool FileFault(const char* message, LogPlace place = "CSalvageMXFOp1b::GetFileParam") { return Fail(message, place); }

int64_t Plausible(int64_t frames, const char* message, const LogPlace& place) {
    if (frames < kTooMany) return frames;
    Fail(message, place);
    return 0;
}

// The value of an item, of whatever length; empty when there is none.
HeaderBytes Value(HeaderBytes header, const MXFKEYTag& key, uint16_t tag) {
    int64_t offset = 0;
    uint32_t length = 0;
    if (!GetKeyParam(header.data(), static_cast<uint32_t>(header.size()), key, tag, &offset, &length)) return {};
    ByteReader reader(header);
    reader.Skip(static_cast<uint64_t>(offset));
    return reader.Take(length);
}

// One piece of the parts, one behind the other.
OwnedPiece PieceOf(PieceAllocator& allocator, std::initializer_list<HeaderBytes> parts) {
    size_t size = 0;
    for (const HeaderBytes part : parts) size += part.size();
    if (size > std::numeric_limits<int32_t>::max()) throw std::bad_alloc();  // more than a stream takes at once
    OwnedPiece piece(allocator, static_cast<uint32_t>(size));
    if (!piece) throw std::bad_alloc();
    uint32_t at = 0;
    for (const HeaderBytes part : parts) {
        piece->CopyIn(at, part.data(), static_cast<uint32_t>(part.size()));
        at += static_cast<uint32_t>(part.size());
    }
    return piece;
}

}  // namespace

int32_t Op1bSalvage::Execute() try {
    const bool ready = Prepare();
    if (cancel_) return kSalvageCancelled;
    if (!ready || !Write()) return kSalvageFailed;
    progress_(100);
    return kSalvageCompleted;
} catch (const std::bad_alloc&) {
    Fail("Allocate Error.");
    return kSalvageFailed;
}

// Everything that leaves the file alone.
bool Op1bSalvage::Prepare() {
    using Step = bool (Op1bSalvage::*)();
    constexpr Step kSteps[] = {
        &Op1bSalvage::OpenFile,        &Op1bSalvage::GetHeaderParam,
        &Op1bSalvage::CreateBuilder,   &Op1bSalvage::GetFileParam,
        &Op1bSalvage::GetIndex,        &Op1bSalvage::GetStartSEIParam,
        &Op1bSalvage::SetBuilderParam, &Op1bSalvage::SetDescriptiveMetadata,
        &Op1bSalvage::SetXMLData,      &Op1bSalvage::SetThumbnailData,
    };
    return std::ranges::all_of(kSteps, [this](Step step) { return !cancel_ && (this->*step)(); });
}

bool Op1bSalvage::OpenFile() {
    if (!file_.Open(fileName_.c_str(), kOpenRead)) return Fail("Open Error.");
    const int64_t size = file_->Seek(0, kSeekEnd);
    if (size < 0) return Fail("Seek Error.");
    fileSize_ = static_cast<uint64_t>(size);
    if (expected_) fileSize_ = std::min(fileSize_, expected_->bodyEnd);
    return true;
}

bool Op1bSalvage::GetHeaderParam() {
    const OwnedPiece piece(file_.Allocator(), kOp1bHeaderSize);
    if (!piece || !ReadWholeAt(*file_.get(), 0, piece)) return HeaderFault("Read Error.");
    header_.assign(piece.Bytes().begin(), piece.Bytes().end());
    CPartition pack;
    if (pack.SetData(header_.data(), kOp1bHeaderSize) != kStatusOk || !pack.IsOp1b()) {
        return HeaderFault("Invalid FileType.");
    }
    clip_.videoStd = GetVideoStandardFromHeader(Header());
    if (clip_.videoStd == 0) return HeaderFault("GetVideoStandard Error.");
    clip_.compType = GetCompTypeLongGFromHeader(Header());
    if (clip_.compType == 0) return HeaderFault("GetCompType Error.");

    channels_ = GetKeyNum(header_.data(), kOp1bHeaderSize, kAES3DescriptorKey);
    if (channels_ > 0xFF) return HeaderFault("Invalid FileType.");
    clip_.clipType = kOnePicture + channels_;
    clip_.bytesPerSample = channels_ == 0 ? kDefaultBytesPerSample : GetBytesPerSampleFromHeader(Header());
    if (clip_.bytesPerSample == 0) return HeaderFault("GetBytesPerSample Error.");

    auto created = FindItem(Header(), kMaterialPackageKey, kTagPackageCreationDate, sizeof(MXFTIMESTAMPTag));
    if (!created) return HeaderFault("GetCreationTime Error.");
    clip_.creationDate = created->Timestamp();
    auto umid = FindItem(Header(), kMaterialPackageKey, kTagPackageUID, sizeof(MXFUMIDTag));
    if (!umid) return HeaderFault("GetUMID Error.");
    clip_.umid = umid->Umid();

    clip_.startTimecode.SetVideoStd(clip_.videoStd);
    clip_.startTimecode.SetDropFlag(GetDropFlagFromHeader(Header()), false);
    clip_.startTimecode.SetTotalFrame(
        static_cast<uint32_t>(std::max<int64_t>(GetStartTimecodeFromHeader(Header()), 0)));
    // Readers refuse a thumbnail that is too large; here that is said later, in its own words.
    return GetMetadata(Header(), sideData_) || HasLargeThumbnail() || HeaderFault("GetMetadata Error.");
}

bool Op1bSalvage::CreateBuilder() {
    builder_.emplace(clip_.videoStd, clip_.compType, clip_.bytesPerSample, channels_);
    builder_->SetPlayerLayout(FindPacket(Header(), kMultipleDescriptorKey).has_value());
    return builder_->Initialize() == kStatusOk || Fail("Initialize Error.");
}

bool Op1bSalvage::GetFileParam() {
    builder_->AddPartitionInfo({0, 0});
    // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): it is open, so it is there
    Op1bScan scan(*file_.get(), file_.Allocator(), kOp1bHeaderSize, fileSize_,
                  {clip_.videoStd, channels_, clip_.bytesPerSample});
    for (Op1bGroup group; !cancel_;) {
        const Op1bScan::Found found = scan.Next(group);
        if (found == Op1bScan::Found::kTooManyFrames) return FileFault("Invalid Partition Frame.");
        // What cannot be read now may be read another time; to cut it off would lose it for good.
        if (found == Op1bScan::Found::kReadError) return FileFault("Read Error.");
        if (found != Op1bScan::Found::kGroup || !Follows(group)) break;
        // A damaged header tells of too few channels: to go by it would cut off everything behind the first group.
        if (frames_ == 0 && scan.HasMoreSound()) break;
        if (!Keep(group)) return FileFault("AddFooterIndex Error.");
        progress_(static_cast<int32_t>(90 * bodyEnd_ / fileSize_));
        if (group.frames < groupFrames_) break;
    }
    if (frames_ == 0 && !cancel_) return FileFault("Duration is 0.");
    isOther_ = expected_ && !cancel_ && (frames_ != expected_->frames || bodyEnd_ != expected_->bodyEnd);
    if (isOther_) return FileFault("Other Frames than expected.");
    return true;
}

// All groups but the last are as long as the first: by that the frames of a clip are found. Their index counts through.
bool Op1bSalvage::Follows(const Op1bGroup& group) const {
    return group.index.front().GetStartPosition() == frames_ && (frames_ == 0 || group.frames <= groupFrames_);
}

bool Op1bSalvage::Keep(const Op1bGroup& group) {
    if (frames_ == 0) {
        groupFrames_ = group.frames;
        firstPictureAt_ = group.firstPictureAt;
        firstPictureSize_ = group.firstPictureSize;
        firstIndex_ = group.index.front();
    }
    lastIndex_ = group.index.front();
    for (const MXF_PARTITION_INFOTag& partition : group.partitions) builder_->AddPartitionInfo(partition);
    frames_ += group.frames;
    clip_.videoDataSize += static_cast<int64_t>(group.pictureSize);
    bodyEnd_ = group.end;
    return std::ranges::all_of(
        group.index, [&](const CIndexCommon& segment) { return builder_->AddFooterIndex(segment) == kStatusOk; });
}

bool Op1bSalvage::GetIndex() {
    clip_.origin = GetOutOfRangeFrame();
    clip_.duration = frames_ - GetRollOutFrame();
    if (clip_.duration <= clip_.origin) return Fail("Duration is 0.");  // no reader would open it
    if (channels_ > 0) {
        clip_.audioDataSize = DurationToAudioSample(clip_.videoStd, frames_, kOp1bSamplesPerSec) * clip_.bytesPerSample;
    }
    return true;
}

// Frames of the first group in front of the first one to be shown.
int64_t Op1bSalvage::GetOutOfRangeFrame() const {
    int64_t frames = 0;
    MXFINDEXENTRYTag entry;
    for (uint32_t i = 0; firstIndex_->GetIndexEntry(i, &entry) == kStatusOk; ++i)
        frames += entry.flags == kNotShownFlags;
    return Plausible(frames, "Invalid  OutOfRangeFrame.", "CSalvageMXFOp1b::GetOutOfRangeFrame");
}

// Places at the end in which no picture is shown: it would have come later.
int64_t Op1bSalvage::GetRollOutFrame() const {
    int64_t frames = 0;
    MXFINDEXENTRYTag entry;
    for (uint32_t i = lastIndex_->GetIndexEntryNum(); i-- > 0; ++frames) {
        if (lastIndex_->GetIndexEntry(i, &entry) != kStatusOk || entry.temporalOffset < 1) break;
    }
    return Plausible(frames, "Invalid RollOutFrame.", "CSalvageMXFOp1b::GetRollOutFrame");
}

// What the picture does not carry stays as the header has it. A picture that cannot be read does not cost the clip.
bool Op1bSalvage::GetStartSEIParam() {
    const auto size = static_cast<uint32_t>(std::min<uint64_t>(firstPictureSize_, kSEIAreaSize));
    const OwnedPiece piece(file_.Allocator(), size);
    if (!piece || !ReadWholeAt(*file_.get(), firstPictureAt_, piece)) {
        Fail("Read Error.", "CSalvageMXFOp1b::GetStartSEIParam");
        return true;
    }
    CAVCSEIData parser;
    parser.SetSEIData(piece.Bytes().data(), size, false);
    uint8_t bytes[4];
    if (parser.GetTimecode(bytes, SEI_DATA_TYPE1) == kStatusOk) clip_.startTimecode.SetData(bytes);
    if (parser.GetUsersBit(bytes, SEI_DATA_TYPE1) == kStatusOk) clip_.startUsersBit.SetData(bytes);
    parser.GetUMID(clip_.startUMID.bytes);
    return true;
}

bool Op1bSalvage::SetBuilderParam() {
    COp1bBase& builder = *builder_;
    builder.SetCreationDate(clip_.creationDate);
    builder.SetModifiedDate(clip_.creationDate);
    const std::string name = UTF16FieldText(Value(Header(), kMaterialPackageKey, kTagPackageName));
    if (builder.SetPackageName(name) != kStatusOk) return Fail("SetPackageName Error.");
    builder.SetUMID(clip_.umid);
    if (auto product = FindItem(Header(), kIdentificationKey, kTagProductUID, sizeof(MXFKEYTag))) {
        const auto text = [&](uint16_t tag) { return UTF16FieldText(Value(Header(), kIdentificationKey, tag)); };
        builder.SetIdentification(text(kTagCompanyName), text(kTagProductName), text(kTagVersionString),
                                  product->Key().bytes);
    }
    builder.SetOrigin(clip_.origin);
    builder.SetDuration(clip_.duration);
    builder.SetStartTimecode(clip_.startTimecode.GetTotalFrame(), clip_.startTimecode.IsDrop());
    builder.SetFooterPartitionParam(static_cast<int64_t>(bodyEnd_));
    builder.SetContainerDuration(frames_);
    return true;
}

// A header that was finished may have clip and scene metadata.
bool Op1bSalvage::SetDescriptiveMetadata() {
    return builder_->SetDMS(DescriptiveMetadataOf(Header(), clip_.videoStd)) == kStatusOk || Fail("SetDMS Error.");
}

bool Op1bSalvage::SetXMLData() {
    if (!sideData_.xml) return true;
    const SideData& xml = *sideData_.xml;  // an item has up to 65535 bytes, and these always fit
    return builder_->SetXMLData(header_.data() + xml.offset, static_cast<uint16_t>(xml.size)) == kStatusOk ||
           Fail("SetXMLData Error.");
}

bool Op1bSalvage::HasLargeThumbnail() const {
    return sideData_.thumbnail && !HasOp1bThumbnailRoom(sideData_.thumbnail->picture.size);
}

bool Op1bSalvage::SetThumbnailData() {
    if (!sideData_.thumbnail) return true;
    if (HasLargeThumbnail()) return Fail("ThumbnailSize Size Invalid.");
    const Thumbnail& thumbnail = *sideData_.thumbnail;
    const SideData& picture = thumbnail.picture;
    if (builder_->SetThumbnailData(header_.data() + picture.offset, static_cast<uint16_t>(picture.size),
                                   thumbnail.width, thumbnail.height, thumbnail.format) != kStatusOk) {
        return Fail("SetThumbnailData Error.");
    }
    if (CDMSKestralinEvent group(clip_.videoStd); group.SetData(header_.data(), kOp1bHeaderSize) == kStatusOk) {
        builder_->SetThumbnailPosition(static_cast<uint32_t>(group.GetEventStartPosition()));
    }
    return true;
}

bool Op1bSalvage::Write() {
    BuiltBytes header, footer, randomIndex;
    if (builder_->GetHeaderData(&header.data) != kStatusOk) return Fail("GetHeaderData Error.");
    if (builder_->GetFooterData(&footer.data) != kStatusOk) return Fail("GetFooterData Error.");
    if (builder_->GetRandomIndexData(&randomIndex.data) != kStatusOk) return Fail("GetRandomIndexData Error.");
    if (!file_.Open(fileName_.c_str(), kOpenReadWrite)) return Fail("Open Error.");

    // Both pieces before the first is written: until then memory that runs out costs nothing.
    const OwnedPiece start = PieceOf(file_.Allocator(), {{header.data, kOp1bHeaderSize}});
    const OwnedPiece rest = PieceOf(file_.Allocator(), {{footer.data, builder_->GetFooterSize()},
                                                        {randomIndex.data, builder_->GetRandomIndexSize()}});
    if (!WriteWholeAt(*file_.get(), 0, start)) return Fail("Write Header Error.");
    if (!WriteWholeAt(*file_.get(), static_cast<int64_t>(bodyEnd_), rest)) return Fail("Write Footer Error.");
    const int64_t written = file_->Seek(0, kSeekCurrent), end = file_->Seek(0, kSeekEnd);
    if (written < 0 || end < 0) return Fail("Seek Error.");
    if (!file_.Close()) return Fail("Close Error.");
    return written == end || TruncatePelmard(fileName_.c_str(), written) || Fail("Truncate Error.");
}

}  // namespace kmxf
