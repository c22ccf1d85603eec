#include "kmxf/core/Convert.h"

#include <algorithm>
#include <iterator>

#include "core/EnvironmentSources.h"

namespace kmxf {

namespace {

// Counts what a conversion produces, and stores it where there is a destination.
template <class Unit>
class Output {
public:
    explicit Output(Unit* destination) : destination_(destination) {}
    void Put(uint32_t unit) {
        if (destination_ != nullptr) destination_[count_] = static_cast<Unit>(unit);
        ++count_;
    }
    int32_t Bytes() const { return static_cast<int32_t>(count_ * sizeof(Unit)); }

private:
    Unit* destination_;
    size_t count_ = 0;
};

// The forms of a UTF-8 sequence, by its first byte.
struct UTF8Form {
    uint8_t mask, lead;
    uint32_t trailing;  // continuation bytes
};
constexpr UTF8Form kUTF8Forms[] = {
    {0x80, 0x00, 0},
    {0xE0, 0xC0, 1},
    {0xF0, 0xE0, 2},
    {0xF8, 0xF0, 3},
};

}  // namespace

bool CreateUUID(MXFKEYTag* uuid) {
    if (uuid != nullptr) *uuid = NewUUID();
    return true;
}

MXFTIMESTAMPTag GetCurrentTimeMXF() {
    const std::tm now = Now().calendar;
    return {.year = static_cast<uint16_t>(now.tm_year + 1900),
            .month = static_cast<uint8_t>(now.tm_mon + 1),
            .day = static_cast<uint8_t>(now.tm_mday),
            .hour = static_cast<uint8_t>(now.tm_hour),
            .minute = static_cast<uint8_t>(now.tm_min),
            .second = static_cast<uint8_t>(now.tm_sec),
            .quarterMillisecond = 0};
}

int32_t UTF8ToUTF16(const char* source, uint16_t* destination) {
    if (source == nullptr) return -1;
    Output<uint16_t> output(destination);
    while (*source != 0) {
        uint32_t b[4] = {static_cast<uint8_t>(*source++)};
        const auto* form = std::find_if(std::begin(kUTF8Forms), std::end(kUTF8Forms),
                                        [&](const UTF8Form& f) { return (b[0] & f.mask) == f.lead; });
        if (form == std::end(kUTF8Forms)) return -1;
        for (uint32_t i = 1; i <= form->trailing; ++i) {
            b[i] = static_cast<uint8_t>(*source);
            if ((b[i] & 0xC0) != 0x80) return -1;  // also the terminator: nothing behind it is read
            ++source;
        }
        switch (form->trailing) {
            case 0:
                output.Put(b[0]);
                break;
            case 1:
                output.Put(((b[0] & 0x1F) << 6) + (b[1] & 0x3F));
                break;
            case 2:
                output.Put((b[0] << 12) + ((b[1] & 0x3F) << 6) + (b[2] & 0x3F));
                break;
            default:
                // Deliberately not the surrogates of the coded character: the plane comes from the low bits of the
                // second byte, and files in use are written so.
                output.Put(0xD800 + ((((b[0] & 7) << 2) + (b[1] & 3) - 1) << 6) + ((b[1] & 0x0F) << 2) + (b[2] & 0x30));
                output.Put(0xDC00 + ((b[2] & 0x0F) << 6) + (b[3] & 0x3F));
        }
    }
    return output.Bytes();
}

int32_t UTF16ToUTF8(const uint16_t* source, char* destination) {
    if (source == nullptr) return -1;
    Output<char> output(destination);
    while (*source != 0) {
        const uint32_t u = *source++;
        if (u < 0x80) {
            output.Put(u);
        } else if (u <= 0x7FF) {
            output.Put(0xC0 + (u >> 6));
            output.Put(0x80 + (u & 0x3F));
        } else if (u < 0xD800 || u > 0xDFFF) {
            output.Put(0xE0 + (u >> 12));
            output.Put(0x80 + ((u >> 6) & 0x3F));
            output.Put(0x80 + (u & 0x3F));
        } else {
            // Any unit makes the pair, whether a low surrogate or not; the terminator counts as 0 and is left in place.
            const uint32_t next = *source;
            if (next != 0) ++source;
            const uint32_t plane = ((u >> 6) & 0x0F) + 1;
            output.Put(0xF0 + (plane >> 2));
            output.Put(0x80 + ((plane & 3) << 4) + ((u >> 2) & 0x0F));
            output.Put(0x80 + ((u & 3) << 4) + ((next >> 6) & 0x0F));
            output.Put(0x80 + (next & 0x3F));
        }
    }
    return output.Bytes();
}

}  // namespace kmxf
