// The rules of the layouts: a file by itself, and as two files of one clip.
#include "kmxf/tools/Check.h"

#include "support/Target.h"
#include "support/Walk.h"

namespace kmxf::fuzz {

void Run(Bytes input) {
    test::MemorySource source(input);
    for (const CheckFinding& finding : CheckFile(source))
        Require(finding.offset <= input.size(), "a finding is of a place in the file");
    if (input.size() > 1 << 18) return;  // more of the same
    IByteSource* const clip[] = {&source, &source, nullptr};
    Require(!CheckClip(clip).empty(), "a file that cannot be opened is a finding");
}

}  // namespace kmxf::fuzz
