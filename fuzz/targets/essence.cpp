// What bare essence is told to be, by itself and with what the user says.
#include "Essence.h"

#include "Program.h"
#include "support/Target.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    using namespace program;
    Choices choices(input);
    static const auto kCodecs = CodecNames(), kStandards = StandardNames();
    FormatChoice choice;
    if (choices.Below(3) == 0) choice.codec = choices.Of(kCodecs);
    if (choices.Below(3) == 0) choice.standard = choices.Of(kStandards);
    for (const FormatChoice& each : {FormatChoice{}, choice}) {
        try {
            DetectEssence(input, choices.Flip() ? input.size() : 0, each, "essence");
        } catch (const Failure&) {
        }
    }
}

}  // namespace kmxf::fuzz
