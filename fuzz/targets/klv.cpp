// The scanners of packets and sets: keys, BER lengths, local tags.
#include "kmxf/core/KLV.h"
#include "core/KLVPacket.h"
#include "core/Labels.h"
#include "core/LocalTags.h"
#include "support/Target.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    for (const BERForm form : {BERForm::kAny, BERForm::kLongOnly}) {
        if (const auto head = ReadKLVHead(input, form)) KLVValue(input, *head);
    }
    if (!input.empty()) BERtoSize(input.data(), static_cast<uint8_t>(input.size() - 1));
    if (input.size() < 16) return;  // the first key is looked at whatever the size

    const auto size = static_cast<uint32_t>(input.size());
    MXFKEYTag first;
    std::copy_n(input.begin(), 16, first.bytes);
    for (const MXFKEYTag& key : {first, kTrackKey, kPrimerPackKey, kIndexSegmentKey}) {
        GetKeyNum(input.data(), size, key);
        for (const uint16_t tag : {kTagInstanceUID, kTagTrackID, kTagIndexEntryArray, kTagXMLData}) {
            int64_t offset = -1;
            uint32_t length = 0;
            if (GetKeyParam(input.data(), size, key, tag, &offset, &length))
                Require(offset > 16 && offset <= int64_t{size}, "an item begins behind its key and in the buffer");
        }
    }
    for (const size_t row : {size_t{0}, std::size(kPrimerRows) - 1})
        GetLocalTag(input.data(), size, kPrimerRows[row].ul);
}

}  // namespace kmxf::fuzz
