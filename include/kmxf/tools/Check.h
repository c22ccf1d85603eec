#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kmxf/core/Export.h"
#include "kmxf/structures/Inspect.h"

// Holds files against the rules of their layout (docs/format.md, docs/format-op1b.md; SMPTE ST 377-1, ST 390, ST 391),
// and the files of a clip against each other. Without memory they throw std::bad_alloc, as the standard library does.
namespace kmxf {

// A rule with an id that stays its own: "OA-003". The letters tell what it is about: KLV packets, PP partition packs,
// HM header metadata, IX index tables, OA and OB the layouts of OP-Atom and OP-1b files, RI the random index, CL clips.
struct CheckRule {
    std::string_view id;
    std::string_view text;  // what holds in a good file, as a sentence
};

// Every rule, in the order of the documentation.
KMXF_API std::span<const CheckRule> GetCheckRules();

// A place where a rule does not hold.
struct CheckFinding {
    std::string_view rule;  // its id
    size_t file = 0;        // number of the file, in the order in which they were passed
    uint64_t offset = 0;    // in bytes from the start of that file
    std::string expected;
    std::string found;
    bool operator==(const CheckFinding&) const = default;
};

// The rule that a file without any partition pack breaks, and then no other: it is no MXF file.
inline constexpr std::string_view kCheckRuleNoMXF = "KLV-001";

// What a check has cost.
struct CheckCost {
    uint64_t reads = 0;
    uint64_t bytes = 0;
};

// Checks one file, of either layout, or what can be said of any other MXF file. Findings come in the order of their
// offsets; none: the file is as it should be. A recording that was cut off is one finding (PP-001), and what stands in
// front of the cut is held against the rules that do not ask for an end. Where bytes are damaged, only that is told and
// not what follows from it. Of the places where one rule does not hold 100 are told, and the last of them says how many
// more there are. Heads and tables are read, essence is not. `cost` may be null.
KMXF_API std::vector<CheckFinding> CheckFile(IByteSource& source, CheckCost* cost = nullptr);

// Checks files each by itself, whatever clips they are of. Findings come file by file. No source may be null.
KMXF_API std::vector<CheckFinding> CheckFiles(std::span<IByteSource* const> sources);

// Checks every file of a clip, and then what they must have in common: material UMID, package name, start timecode,
// descriptive metadata, length to the frame, no member missing or there twice. Findings come file by file. Files that
// were cut off have no part in the comparison. A source that is null could not be opened and is a finding.
KMXF_API std::vector<CheckFinding> CheckClip(std::span<IByteSource* const> sources, CheckCost* cost = nullptr);

}  // namespace kmxf
