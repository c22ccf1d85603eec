// Texts: between UTF-8 and UTF-16, out of fields of fixed width, timecodes.
#include <cstring>
#include <string>
#include <vector>

#include "core/FieldText.h"
#include "kmxf/collaborators/Timecode.h"
#include "kmxf/core/Convert.h"
#include "kmxf/core/Status.h"
#include "support/Target.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    const std::string utf8 = RawFieldText(input);
    if (const int32_t count = UTF8ToUTF16(utf8.c_str(), nullptr); count >= 0) {
        std::vector<uint16_t> units(static_cast<size_t>(count) / 2);
        Require(UTF8ToUTF16(utf8.c_str(), units.data()) == count, "as many bytes come as were counted");
    }
    std::vector<uint16_t> units(input.size() / 2 + 1);
    if (units.size() > 1) std::memcpy(units.data(), input.data(), (units.size() - 1) * 2);
    std::string text(static_cast<size_t>(UTF16ToUTF8(units.data(), nullptr)), '\0');
    Require(UTF16ToUTF8(units.data(), text.data()) == static_cast<int32_t>(text.size()),
            "as many bytes come as were counted");
    UTF16FieldText(input);

    CTimecode timecode;
    for (const uint32_t standard : {VIDEO_STD_59_94I, VIDEO_STD_50I, VIDEO_STD_23_98P, VIDEO_STD_59_94P}) {
        timecode.SetVideoStd(standard);
        if (timecode.SetText(utf8) == kStatusOk)
            Require(timecode.GetText() == utf8, "a timecode reads as it was written");
        if (input.size() >= 4 && timecode.SetData(input.data()) == kStatusOk) timecode.GetText();
    }
}

}  // namespace kmxf::fuzz
