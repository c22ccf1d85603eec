#include "tools/CheckRule.h"

#include <algorithm>
#include <utility>

#include "core/Bytes.h"
#include "core/HexText.h"

namespace kmxf {

namespace {

constexpr uint64_t kMostOfARule = 100;
constexpr size_t kMostText = 200;  // of a value

}  // namespace

std::string TextOf(int64_t number) { return std::to_string(number); }
std::string TextOf(uint64_t number) { return std::to_string(number); }
std::string TextOf(const MXFKEYTag& key) { return HexText(key.bytes); }
std::string TextOf(const MXFUMIDTag& umid) { return HexText(umid.bytes); }
std::string TextOf(const MXFRATIONALTag& rational) {
    return std::to_string(rational.numerator) + "/" + std::to_string(rational.denominator);
}

std::string Described(const InspectedItem& item) {
    std::string text = item.Text();
    if (text.size() > kMostText) text.replace(kMostText, std::string::npos, "...");
    return std::string(item.name) + " " + text;
}

std::string Counted(uint64_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

ArrayHead ArrayHeadOf(const InspectedItem& array) {
    ByteReader reader(array.value);
    const uint64_t count = reader.U32();
    return {count, reader.U32()};
}

void CheckFindings::Add(std::string_view rule, uint64_t offset, std::string expected, std::string found) {
    if (++counts_[rule] <= kMostOfARule) findings_.push_back({rule, 0, offset, std::move(expected), std::move(found)});
}

std::vector<CheckFinding> CheckFindings::Take(size_t file) {
    std::ranges::stable_sort(findings_, {}, &CheckFinding::offset);
    for (auto finding = findings_.rbegin(); finding != findings_.rend(); ++finding) {
        finding->file = file;
        uint64_t& count = counts_[finding->rule];
        if (count > kMostOfARule) finding->found += " (and " + Counted(count - kMostOfARule, "more place") + ")";
        count = 0;
    }
    return std::move(findings_);
}

void CheckReport::ExpectText(const InspectedItems& items, std::string_view name, const std::string& expected) const {
    const InspectedItem* item = FindItem(items, name);
    if (item == nullptr || item->Text() == expected) return;
    (*this)(item->offset, std::string(name) + " " + expected, Described(*item));
}

void CheckReport::ExpectItems(const InspectedItems& items, const InspectedItems& expected,
                              std::initializer_list<std::string_view> except) const {
    for (const InspectedItem& item : expected)
        if (std::ranges::find(except, item.name) == except.end()) ExpectText(items, item.name, item.Text());
}

}  // namespace kmxf
