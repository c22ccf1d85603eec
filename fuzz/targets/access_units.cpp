// A stream of H.264 split into frames: no byte is lost, and none comes twice.
#include "AccessUnits.h"

#include <algorithm>

#include "Program.h"
#include "support/Target.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    using namespace program;
    size_t given = 0;
    AccessUnits units(PipedStream([&](std::span<uint8_t> room) {
                          const size_t count = std::min(room.size(), input.size() - given);
                          std::copy_n(input.begin() + static_cast<std::ptrdiff_t>(given), count, room.begin());
                          given += count;
                          return count;
                      }),
                      "stream");
    try {
        units.FirstStored();
        units.FirstShown();
        uint64_t size = 0, before = 0;
        while (const auto unit = units.Next()) {
            Require(size == 0 || unit->offset == before + size, "frames follow each other");
            before = unit->offset;
            size = unit->piece->GetSize();
        }
        const Bytes rest = input.subspan(size == 0 ? input.size() : static_cast<size_t>(before + size));
        Require(units.LeftOutAtEnd() == rest.size() || SizeWithoutZeros(rest) == 0, "all bytes are accounted for");
    } catch (const Failure&) {
    }
}

}  // namespace kmxf::fuzz
