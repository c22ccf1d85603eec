#include "kmxf/tools/ModifyMXFHeaderData.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <system_error>

#include "collaborators/Guards.h"
#include "collaborators/Report.h"
#include "core/Bytes.h"
#include "core/KLVPacket.h"
#include "core/Labels.h"
#include "core/Layout.h"
#include "core/LocalTags.h"
#include "core/Lookup.h"
#include "kmxf/core/KLV.h"
#include "kmxf/core/Status.h"
#include "kmxf/structures/DMSSets.h"
#include "reader/StreamRead.h"
#include "tools/StreamWrite.h"

namespace kmxf {

namespace {

using Bytes = std::span<uint8_t>;

constexpr size_t kFirstContainerLabel = kKLVHeadSize + kPackFieldsSize;  // in the header partition pack

// Which descriptor goes with an essence container; the other containers have CDCI pictures.
struct ContainerDescriptor {
    MXFKEYTag container;
    MXFKEYTag descriptor;
};
constexpr ContainerDescriptor kContainerDescriptors[] = {
    {kAES3ClipContainerLabel, kAES3DescriptorKey},
    {kAVCIntraContainerLabel, kMPEGDescriptorKey},
};

int32_t Fail(LogPlace place, const char* message, int32_t status) {
    return Failed(place, "ModifyMXFHeaderData", message, status);
}

// The value of an item in the first set with this key; empty unless there is one, and has this width.
Bytes FindItem(Bytes area, const MXFKEYTag& key, uint16_t tag, size_t width) {
    int64_t offset = 0;
    uint32_t length = 0;
    if (!GetKeyParam(area.data(), static_cast<uint32_t>(area.size()), key, tag, &offset, &length)) return {};
    const Bytes rest = area.subspan(static_cast<size_t>(offset));
    return length == width && rest.size() >= width ? rest.first(width) : Bytes{};
}

// Where the first set with this key begins, which has its InstanceUID in front, as ours do.
std::optional<size_t> FindSet(Bytes area, const MXFKEYTag& key) {
    constexpr ptrdiff_t kInFront = kKLVHeadSize + 4;  // tag and length of the item
    const Bytes value = FindItem(area, key, kTagInstanceUID, sizeof key.bytes);
    const ptrdiff_t start = value.empty() ? -1 : value.data() - area.data() - kInFront;
    return start < 0 ? std::nullopt : std::optional(static_cast<size_t>(start));
}

// Whether a fill item may cover these bytes: there is fill in them, or nothing that can be told for a packet, but no
// packet that anybody could miss.
bool MayBeFilled(std::span<const uint8_t> bytes) {
    constexpr size_t kLabelStart = 4;  // 06 0E 2B 34
    while (const auto head = ReadKLVHead(bytes)) {
        if (head->key != kFillKey) return !std::equal(kFillKey.bytes, kFillKey.bytes + kLabelStart, head->key.bytes);
        const auto value = KLVValue(bytes, *head);
        if (!value) break;
        bytes = bytes.subspan(head->size + value->size());
    }
    return true;
}

// When the fill item behind a set is written anew.
enum class Refill { kAlways, kNewSize };

// Has a private framework changed whose room ends with `area`, and the fill item behind it with the framework. `start`
// is where the framework's set begins. False, with nothing changed, unless that is such a set and the new one fits.
template <class Framework, class Change>
bool Rewrite(Bytes area, size_t start, Refill refill, Change change) {
    if (start > area.size()) return false;
    Framework framework;
    Bytes room = area.subspan(start);
    if (framework.SetData(room.data(), static_cast<uint32_t>(room.size())) != kStatusOk) return false;
    const auto head = ReadKLVHead(room);
    const size_t oldSize = head->size + static_cast<size_t>(head->length);

    change(framework);
    const size_t newSize = framework.GetLength();
    const bool fills = refill == Refill::kAlways || newSize != oldSize;
    if (newSize > room.size()) return false;
    const size_t fillSize = room.size() - newSize;
    if (fills && ((fillSize > 0 && fillSize < kKLVHeadSize) || !MayBeFilled(room.subspan(oldSize)))) return false;

    uint8_t* data = nullptr;
    if (framework.GetData(&data) != kStatusOk) throw std::bad_alloc();
    const std::unique_ptr<uint8_t, decltype(&std::free)> owner(data, &std::free);
    ByteWriter writer(room);
    writer.Bytes({data, newSize});
    // What the fill item covers stays as it is.
    if (fills && fillSize > 0) WriteKLVHead(writer, kFillKey, static_cast<uint32_t>(fillSize));
    return true;
}

// Opens the file, reads its first `size` bytes, has them changed and writes them back in one piece. `edit` returns what
// stands against it, or null. A file that cannot be opened is logged where the operation has a message for it.
template <class Edit>
int32_t EditStart(const char* fileName, const char* operation, const char* notOpen, uint32_t size, Edit edit) try {
    FactoryStream file;
    if (!file.Open(fileName, kOpenReadWrite)) {
        return notOpen ? Fail(operation, notOpen, kStatusIoError) : kStatusIoError;
    }
    const OwnedPiece piece(file.Allocator(), size);
    if (!piece) throw std::bad_alloc();
    if (!ReadWholeAt(*file.get(), 0, piece)) return Fail(operation, "Read Error.", kStatusIoError);
    if (const char* const fault = edit(piece.Bytes())) return Fail(operation, fault, kStatusFailure);
    if (!WriteWholeAt(*file.get(), 0, piece)) return Fail(operation, "Write Error.", kStatusIoError);
    return kStatusOk;
} catch (const std::bad_alloc&) {
    return Fail(operation, "Allocate Error.", kStatusNoMemory);
}

constexpr const char* kSilent = nullptr;  // deliberately: XML and thumbnail have no message
constexpr const char* kNotFound = "GetKeyParam Error.";
constexpr const char* kUnfit = "DMS SetData Error.";

}  // namespace

CModifyMXFHeaderData::CModifyMXFHeaderData() = default;
CModifyMXFHeaderData::~CModifyMXFHeaderData() = default;

int32_t CModifyMXFHeaderData::SetShotUMID(MXFUMIDTag umid) {
    shotUMID_ = umid;
    return kStatusOk;
}

int32_t CModifyMXFHeaderData::Save(const char* fileName) {
    if (fileName == nullptr) return kStatusInvalidArgument;
    return EditStart(fileName, "CModifyMXFHeaderData::Save", "Open Error.", kOpAtomHeaderSize, [&](Bytes header) {
        const Bytes umid = FindItem(header, kMaterialPackageKey, kTagPackageUID, sizeof shotUMID_.bytes);
        ByteWriter(umid).Umid(shotUMID_);
        return umid.empty() ? kNotFound : nullptr;
    });
}

int32_t CModifyMXFHeaderData::ModifyXMLData(const char* fileName, const uint8_t* xml, uint16_t length) {
    if (fileName == nullptr || xml == nullptr || length == 0) return kStatusInvalidArgument;
    return EditStart(fileName, "CModifyMXFHeaderData::ModifyXMLData", kSilent, kOp1bHeaderSize, [&](Bytes header) {
        const auto start = FindSet(header.subspan(kOp1bMetadataEnd), kXMLFrameworkKey);
        if (!start) return kNotFound;
        const Bytes room = header.first(kOp1bXMLEnd).subspan(kOp1bMetadataEnd);
        const bool done = Rewrite<CKestralinFrameworkStatic>(
            room, *start, Refill::kAlways, [&](auto& framework) { framework.SetXMLData(xml, length); });
        return done ? nullptr : kUnfit;
    });
}

int32_t CModifyMXFHeaderData::ModifyThumbnailData(const char* fileName, const uint8_t* thumbnail,
                                                  int64_t eventStartPosition, uint16_t length) {
    if (fileName == nullptr || thumbnail == nullptr || length != kOp1bThumbnailSize) return kStatusInvalidArgument;
    return EditStart(
        fileName, "CModifyMXFHeaderData::ModifyThumbnailData", kSilent, kOp1bHeaderSize, [&](Bytes header) {
            const Bytes room = header.subspan(kOp1bXMLEnd);
            const Bytes position = FindItem(room, kDMSegmentKey, kTagEventStartPosition, sizeof eventStartPosition);
            if (position.empty()) return kNotFound;
            ByteWriter(position).I64(eventStartPosition);
            const auto start = FindSet(room, kThumbnailFrameworkKey);
            if (!start) return kNotFound;
            const bool done = Rewrite<CKestralinFrameworkEvent>(room, *start, Refill::kNewSize, [&](auto& framework) {
                framework.SetThumbnailData(thumbnail, length);
            });
            return done ? nullptr : kUnfit;
        });
}

bool ModifyFilePackageDuration(uint8_t* header, uint32_t duration) {
    if (header == nullptr) return false;
    const Bytes area(header, kOpAtomHeaderSize);
    const MXFKEYTag container = ByteReader(area.subspan(kFirstContainerLabel)).Key();
    const auto* const row = FindRow(kContainerDescriptors, &ContainerDescriptor::container, container);

    const auto start = FindSet(area, kFilePackageKey);
    if (!start) return false;
    // The first of each behind the package; what stands in front of it belongs to the material package.
    const Bytes package = area.subspan(*start);
    const std::pair<MXFKEYTag, uint16_t> durations[] = {
        {kSequenceKey, kTagDuration},
        {kSourceClipKey, kTagDuration},
        {row ? row->descriptor : kCDCIDescriptorKey, kTagContainerDuration},
    };
    return std::ranges::all_of(durations, [&](const auto& item) {
        const Bytes value = FindItem(package, item.first, item.second, sizeof(int64_t));
        ByteWriter(value).I64(duration);
        return !value.empty();
    });
}

bool TruncatePelmard(const char* fileName, int64_t length) try {
    if (fileName == nullptr || length < 0) return false;
    std::error_code error;
    std::filesystem::resize_file(fileName, static_cast<uintmax_t>(length), error);
    return !error;
} catch (const std::bad_alloc&) {
    return false;
}

}  // namespace kmxf
