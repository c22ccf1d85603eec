#include "tools/ClipSets.h"

#include <algorithm>

#include "core/LocalTags.h"

namespace kmxf {

namespace {

class HeaderSource final : public IByteSource {
public:
    explicit HeaderSource(std::span<const uint8_t> header) : header_(header) {}
    uint64_t GetSize() override { return header_.size(); }
    size_t Read(uint64_t offset, std::span<uint8_t> bytes) override {
        std::ranges::copy(header_.subspan(static_cast<size_t>(offset), bytes.size()), bytes.begin());
        return bytes.size();
    }

private:
    std::span<const uint8_t> header_;
};

const ClipSet kNoSet{};

template <class Sets>
auto FindNamed(const Sets& sets, std::string_view name) {
    return std::ranges::find(sets, name, &ClipSet::name);
}

std::vector<const ClipSet*> AllNamed(std::span<const ClipSet> sets, std::string_view name) {
    std::vector<const ClipSet*> found;
    for (const ClipSet& set : sets)
        if (set.name == name) found.push_back(&set);
    return found;
}

template <class T>
T Value(const ClipSet& set, std::string_view itemName, std::optional<T> (InspectedItem::*value)() const) {
    const InspectedItem* item = set.Item(itemName);
    return item == nullptr ? T{} : (item->*value)().value_or(T{});
}

}  // namespace

uint64_t ClipSet::Number(std::string_view itemName) const { return Value(*this, itemName, &InspectedItem::Unsigned); }
MXFRATIONALTag ClipSet::Rational(std::string_view itemName) const {
    return Value(*this, itemName, &InspectedItem::Rational);
}
MXFUMIDTag ClipSet::Umid(std::string_view itemName) const { return Value(*this, itemName, &InspectedItem::Umid); }
MXFTIMESTAMPTag ClipSet::Timestamp(std::string_view itemName) const {
    return Value(*this, itemName, &InspectedItem::Timestamp);
}
std::vector<MXFKEYTag> ClipSet::Keys(std::string_view itemName) const {
    const InspectedItem* item = Item(itemName);
    return item == nullptr ? std::vector<MXFKEYTag>{} : item->Keys();
}

std::string ClipSet::Text(std::string_view itemName) const {
    const InspectedItem* item = Item(itemName);
    if (item == nullptr) return "";
    if (item->kind != ValueKind::kText) return item->Text();
    return {item->value.begin(), std::ranges::find(item->value, uint8_t{0})};
}

ClipSets::ClipSets(std::span<const uint8_t> header) {
    HeaderSource source(header);
    CInspector inspector(source);
    while (const auto packet = inspector.Next()) {
        if (!packet->whole || packet->kind == PacketKind::kDamage) {
            broken_ = packet->offset;
            break;
        }
        sets_.push_back({*packet, inspector.Items(*packet)});
        const auto own = sets_.back().Keys("InstanceUID");
        if (!own.empty()) byUID_.emplace(std::to_array(own.front().bytes), sets_.size() - 1);
    }
}

std::vector<const ClipSet*> ClipSets::All(std::string_view name) const { return AllNamed(sets_, name); }

const ClipSet& ClipSets::First(std::string_view name) const {
    const auto found = FindNamed(sets_, name);
    return found == sets_.end() ? kNoSet : *found;
}

const ClipSet& ClipSets::FirstBehind(std::string_view front, std::string_view name) const {
    const auto found = AllBehind(front, name);
    return found.empty() ? kNoSet : *found.front();
}

std::vector<const ClipSet*> ClipSets::AllBehind(std::string_view front, std::string_view name) const {
    return AllNamed({FindNamed(sets_, front), sets_.end()}, name);
}

const ClipSet& ClipSets::Find(const MXFKEYTag& uid) const {
    const auto found = byUID_.find(std::to_array(uid.bytes));
    return found == byUID_.end() ? kNoSet : sets_[found->second];
}

}  // namespace kmxf
