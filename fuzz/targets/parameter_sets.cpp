// Parameter sets and slice headers of H.264.
#include "ParameterSets.h"

#include "SliceHeader.h"
#include "support/Target.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    using namespace program;
    ParameterSets sets;
    for (Bytes rest = input; !rest.empty();) {
        const size_t start = FindStartCode(rest);
        const Bytes nal = rest.first(std::min(start, rest.size()));
        sets.Take(nal);
        ParseSequenceParameterSet(nal);
        ParsePictureParameterSet(nal);
        if (const auto slice = ParseSliceHeader(nal, sets)) {
            const auto* picture = sets.Picture(slice->pictureSet);
            Require(picture != nullptr && sets.SequenceOf(*picture) != nullptr, "a slice has its parameter sets");
        }
        WithoutEmulationPrevention(nal);
        rest = start == kNotFound ? Bytes() : rest.subspan(start + 3);
    }
    FindNal(input, 7);
    SizeWithoutZeros(input);
}

}  // namespace kmxf::fuzz
