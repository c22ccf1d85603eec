#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <span>
#include <string>
#include <vector>

#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"

namespace kmxf {

class ByteWriter;

// Base of every header metadata set, of the primer pack, the fill item and the index table segment: a KLV packet with a
// key, an InstanceUID and, for sets, local items in write order (SMPTE ST 377-1; local set coding of SMPTE ST 336 with
// 2-byte tags and 2-byte lengths). A value: copies are deep and keep the InstanceUID.
class KMXF_API CMXFHeaderBase {
public:
    CMXFHeaderBase(const CMXFHeaderBase&);
    CMXFHeaderBase& operator=(const CMXFHeaderBase&);
    virtual ~CMXFHeaderBase();  // slot 0

    // Serialises key, 4-byte length form and items into a new buffer of GetLength() bytes, which the caller gives to
    // free(). Returns 0, kStatusInvalidArgument (null pointer), kStatusNoMemory; `*data` is written on success only.
    virtual int32_t GetData(uint8_t** data);  // slot 1

    // Encoded size in bytes: key, length and items; current at all times.
    uint32_t GetLength() const;
    MXFKEYTag GetKey() const;
    // The value of a strong reference to this set.
    MXFKEYTag GetInstanceUID() const;

protected:
    // Makes the InstanceUID with CreateUUID.
    explicit CMXFHeaderBase(const MXFKEYTag& key);

    // One local item of a set: tag and value as on disk.
    struct Item {
        uint16_t tag;
        std::vector<uint8_t> value;  // its size is the field's width, unless the item is variable
        bool written = true;         // false: left out of the set, tag and length included
        uint32_t capacity = 0;       // of a variable item: most bytes it may hold; 0: fixed width
    };
    // Adds items in write order with their defaults: the one description that size, serialiser and parser work from.
    // They stand behind the InstanceUID and behind the items of the base class.
    void Declare(std::initializer_list<Item> items);

    bool Declares(uint16_t tag) const;

    // Access to declared items by tag. The stores keep the length and return 0.
    const std::vector<uint8_t>& Value(uint16_t tag) const;
    int32_t Store(uint16_t tag, std::vector<uint8_t> value);
    int32_t StoreWritten(uint16_t tag, bool written);
    // A batch of 16-byte elements: count and element size, 4 bytes each, in front. Only the lowest byte of the count is
    // kept, so that 256 elements count as none.
    static std::vector<uint8_t> Batch(std::initializer_list<MXFKEYTag> elements);
    int32_t AppendToBatch(uint16_t tag, const MXFKEYTag& element);
    // The same for elements of any size; those bits of the count are kept that are set in `countMask`.
    int32_t AppendToArray(uint16_t tag, std::span<const uint8_t> element, uint32_t countMask = 0xFFFFFFFF);
    // Fills a field of fixed width and pads it with zeros: UTF-8 text as big-endian UTF-16, or bytes as they are. Too
    // long or malformed: false, and the field is zero.
    bool StoreText(uint16_t tag, const std::string& utf8);
    bool StoreRaw(uint16_t tag, const std::string& bytes);
    // The length of a packet that has no items (primer pack, fill item).
    void StoreLength(uint32_t length);

    // Takes over the items found in `set`, a whole set with its key and length; items may come in any order, missing
    // ones keep their value. `tagOf` gives the tag under which the file holds one of ours, 0 when it has none for it.
    // kStatusInvalidArgument: null pointer. kStatusFailure: another key, a length that leads outside, a value wider
    // than its field, an item of another tag where those are refused. On failure nothing is taken over.
    enum class OtherItems { kPassOver, kRefuse };
    int32_t Parse(const uint8_t* set, size_t size, const std::function<uint16_t(uint16_t)>& tagOf,
                  OtherItems others = OtherItems::kPassOver);

private:
    MXFKEYTag key_;
    std::vector<Item> items_;  // InstanceUID first
    uint32_t length_;

    size_t IndexOf(uint16_t tag) const;
    void Measure();
    void Write(ByteWriter& writer) const;
    friend class CDMSGroup;  // writes, reads and parses its sets
};

}  // namespace kmxf
