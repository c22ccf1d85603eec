#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "tools/CheckModel.h"

// A rule, how it is run, and how it tells where it does not hold.
namespace kmxf {

std::string TextOf(int64_t number);
std::string TextOf(uint64_t number);
std::string TextOf(const MXFKEYTag& key);
std::string TextOf(const MXFUMIDTag& umid);
std::string TextOf(const MXFRATIONALTag& rational);
// "EditRate 25/1"
std::string Described(const InspectedItem& item);
// "1 byte", "2 bytes"
std::string Counted(uint64_t count, const std::string& what);

// What an array states of itself; zeros where it is cut short.
struct ArrayHead {
    uint64_t count = 0, size = 0;
};
ArrayHead ArrayHeadOf(const InspectedItem& array);

// The findings of one file.
class CheckFindings {
public:
    void Add(std::string_view rule, uint64_t offset, std::string expected, std::string found);
    // By their offsets, each rule with those of its places that are told.
    std::vector<CheckFinding> Take(size_t file);

private:
    std::vector<CheckFinding> findings_;
    std::map<std::string_view, uint64_t> counts_;
};

// What a rule tells its findings to.
class CheckReport {
public:
    CheckReport(CheckFindings& findings, std::string_view rule) : findings_(findings), rule_(rule) {}

    void operator()(uint64_t offset, std::string expected, std::string found) const {
        findings_.Add(rule_, offset, std::move(expected), std::move(found));
    }
    // The item of this name says this, if it is there.
    void ExpectText(const InspectedItems& items, std::string_view name, const std::string& expected) const;
    template <class Value>
    void Expect(const InspectedItems& items, std::string_view name, const Value& expected) const {
        ExpectText(items, name, TextOf(expected));
    }
    // All of these items but for some.
    void ExpectItems(const InspectedItems& items, const InspectedItems& expected,
                     std::initializer_list<std::string_view> except) const;

private:
    CheckFindings& findings_;
    std::string_view rule_;
};

// Finds faults between the files of a clip, and says in which of them.
class ClipReport {
public:
    ClipReport(std::vector<CheckFindings>& findings, std::string_view rule) : findings_(findings), rule_(rule) {}
    void operator()(size_t file, uint64_t offset, std::string expected, std::string found) const {
        findings_[file].Add(rule_, offset, std::move(expected), std::move(found));
    }

private:
    std::vector<CheckFindings>& findings_;
    std::string_view rule_;
};

// A file of a clip; null: it could not be opened.
using CheckedFiles = std::span<const CheckedFile* const>;

// When a rule is run: on each packet as it comes, on each set and index segment, on each partition when it is over, on
// the header metadata when it is there, on the whole file, on a clip.
using PacketRule = void (*)(const CheckedFile&, const InspectedPacket&, const CheckReport&);
using SetRule = void (*)(const CheckedFile&, const CheckedSet&, const CheckReport&);
using PartitionRule = void (*)(const CheckedFile&, const CheckedPartition&, const CheckReport&);
using MetadataRule = void (*)(const CheckedFile&, const CheckedMetadata&, const CheckReport&);
using FileRule = void (*)(const CheckedFile&, const CheckReport&);
using ClipRule = void (*)(CheckedFiles, const ClipReport&);

struct Rule {
    std::string_view id;
    std::string_view text;
    int scope;  // of CheckScope
    std::variant<PacketRule, SetRule, PartitionRule, MetadataRule, FileRule, ClipRule> run;
};

// The table, family by family.
std::span<const Rule> PacketRules();       // KLV
std::span<const Rule> PackRules();         // PP
std::span<const Rule> SetRules();          // HM: coding and references
std::span<const Rule> MetadataRules();     // HM: values
std::span<const Rule> DescriptorRules();   // HM: descriptors
std::span<const Rule> IndexRules();        // IX
std::span<const Rule> OpAtomRules();       // OA
std::span<const Rule> Op1bRules();         // OB
std::span<const Rule> RandomIndexRules();  // RI
std::span<const Rule> ClipRules();         // CL

}  // namespace kmxf
