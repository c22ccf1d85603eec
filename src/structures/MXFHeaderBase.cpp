#include "kmxf/structures/MXFHeaderBase.h"

#include <algorithm>
#include <utility>

#include "core/Bytes.h"
#include "core/HandOut.h"
#include "core/KLVPacket.h"
#include "core/LocalTags.h"
#include "kmxf/core/Convert.h"

namespace kmxf {

namespace {

constexpr size_t kItemHeadSize = 4;   // tag and length, 2 bytes each
constexpr size_t kBatchHeadSize = 8;  // count and element size, 4 bytes each

// An item's length field has 16 bits: what does not fit into it is not written.
size_t WrittenSize(const std::vector<uint8_t>& value) { return value.size() & 0xFFFF; }

}  // namespace

CMXFHeaderBase::CMXFHeaderBase(const MXFKEYTag& key) : key_(key) {
    MXFKEYTag instanceUID;
    CreateUUID(&instanceUID);
    Declare({{kTagInstanceUID, Encoded(instanceUID)}});
}
CMXFHeaderBase::CMXFHeaderBase(const CMXFHeaderBase&) = default;
CMXFHeaderBase& CMXFHeaderBase::operator=(const CMXFHeaderBase&) = default;
CMXFHeaderBase::~CMXFHeaderBase() = default;

uint32_t CMXFHeaderBase::GetLength() const { return length_; }
MXFKEYTag CMXFHeaderBase::GetKey() const { return key_; }
MXFKEYTag CMXFHeaderBase::GetInstanceUID() const { return ByteReader(Value(kTagInstanceUID)).Key(); }

int32_t CMXFHeaderBase::GetData(uint8_t** data) {
    return HandOut(length_, data, [this](ByteWriter& writer) { Write(writer); });
}

void CMXFHeaderBase::Write(ByteWriter& writer) const {
    WriteKLVHead(writer, key_, length_);
    for (const Item& item : items_) {
        if (!item.written) continue;
        const size_t size = WrittenSize(item.value);
        writer.U16(item.tag);
        writer.U16(static_cast<uint16_t>(size));
        writer.Bytes(std::span(item.value).first(size));
    }
}

void CMXFHeaderBase::Declare(std::initializer_list<Item> items) {
    items_.insert(items_.end(), items);
    Measure();
}

void CMXFHeaderBase::Measure() {
    size_t length = kKLVHeadSize;
    for (const Item& item : items_) {
        if (item.written) length += kItemHeadSize + WrittenSize(item.value);
    }
    length_ = static_cast<uint32_t>(length);
}

size_t CMXFHeaderBase::IndexOf(uint16_t tag) const {
    const auto found = std::find_if(items_.begin(), items_.end(), [tag](const Item& item) { return item.tag == tag; });
    return static_cast<size_t>(found - items_.begin());
}

bool CMXFHeaderBase::Declares(uint16_t tag) const { return IndexOf(tag) < items_.size(); }

const std::vector<uint8_t>& CMXFHeaderBase::Value(uint16_t tag) const { return items_[IndexOf(tag)].value; }

int32_t CMXFHeaderBase::Store(uint16_t tag, std::vector<uint8_t> value) {
    items_[IndexOf(tag)].value = std::move(value);
    Measure();
    return kStatusOk;
}

int32_t CMXFHeaderBase::StoreWritten(uint16_t tag, bool written) {
    items_[IndexOf(tag)].written = written;
    Measure();
    return kStatusOk;
}

std::vector<uint8_t> CMXFHeaderBase::Batch(std::initializer_list<MXFKEYTag> elements) {
    return EncodedBytes(kBatchHeadSize + elements.size() * sizeof(MXFKEYTag), [&](ByteWriter& writer) {
        writer.U32(static_cast<uint8_t>(elements.size()));
        writer.U32(sizeof(MXFKEYTag));
        for (const MXFKEYTag& element : elements) writer.Key(element);
    });
}

int32_t CMXFHeaderBase::AppendToBatch(uint16_t tag, const MXFKEYTag& element) {
    return AppendToArray(tag, element.bytes, 0xFF);
}

int32_t CMXFHeaderBase::AppendToArray(uint16_t tag, std::span<const uint8_t> element, uint32_t countMask) {
    std::vector<uint8_t>& array = items_[IndexOf(tag)].value;
    array.insert(array.end(), element.begin(), element.end());
    const auto count = static_cast<uint32_t>((array.size() - kBatchHeadSize) / element.size());
    ByteWriter head{std::span(array).first(kBatchHeadSize)};
    head.U32(count & countMask);
    head.U32(static_cast<uint32_t>(element.size()));
    Measure();
    return kStatusOk;
}

bool CMXFHeaderBase::StoreText(uint16_t tag, const std::string& utf8) {
    std::vector<uint8_t>& field = items_[IndexOf(tag)].value;
    std::fill(field.begin(), field.end(), uint8_t{0});
    const int32_t size = UTF8ToUTF16(utf8.c_str(), nullptr);
    if (size < 0 || static_cast<size_t>(size) > field.size()) return false;
    std::vector<uint16_t> units(static_cast<size_t>(size) / 2);
    if (size > 0) UTF8ToUTF16(utf8.c_str(), units.data());
    ByteWriter writer(field);
    for (const uint16_t unit : units) writer.U16(unit);
    return true;
}

bool CMXFHeaderBase::StoreRaw(uint16_t tag, const std::string& bytes) {
    std::vector<uint8_t>& field = items_[IndexOf(tag)].value;
    std::fill(field.begin(), field.end(), uint8_t{0});
    if (bytes.size() > field.size()) return false;
    std::copy(bytes.begin(), bytes.end(), field.begin());
    return true;
}

void CMXFHeaderBase::StoreLength(uint32_t length) { length_ = length; }

int32_t CMXFHeaderBase::Parse(const uint8_t* set, size_t size, const std::function<uint16_t(uint16_t)>& tagOf,
                              OtherItems others) {
    if (set == nullptr) return kStatusInvalidArgument;
    const std::span<const uint8_t> packet(set, size);
    const auto head = ReadKLVHead(packet);
    if (!head || head->key != key_) return kStatusFailure;
    const auto value = KLVValue(packet, *head);
    if (!value) return kStatusFailure;

    std::vector<Item> items = items_;
    ByteReader reader(*value);
    while (reader.Remaining() >= kItemHeadSize) {
        const uint16_t fileTag = reader.U16();
        const auto found = reader.Take(reader.U16());
        if (!reader.Ok()) return kStatusFailure;
        const auto item = std::find_if(items.begin(), items.end(), [&](const Item& candidate) {
            return fileTag != 0 && tagOf(candidate.tag) == fileTag;
        });
        if (item == items.end()) {
            if (others == OtherItems::kRefuse) return kStatusFailure;
            continue;
        }
        const bool variable = item->capacity != 0;
        if (found.size() > (variable ? item->capacity : item->value.size())) return kStatusFailure;
        if (variable) {
            item->value.assign(found.begin(), found.end());
        } else {
            std::fill(std::copy(found.begin(), found.end(), item->value.begin()), item->value.end(), uint8_t{0});
        }
        // An optional item that says nothing is still left out.
        item->written =
            item->written || std::any_of(found.begin(), found.end(), [](uint8_t byte) { return byte != 0; });
    }
    items_ = std::move(items);
    Measure();
    return kStatusOk;
}

}  // namespace kmxf
