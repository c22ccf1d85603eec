#include "kmxf/tools/Check.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <utility>

#include "core/Bytes.h"
#include "core/KLVPacket.h"
#include "core/Labels.h"
#include "core/Layout.h"
#include "kmxf/core/Status.h"
#include "kmxf/structures/RandomIndex.h"
#include "tools/CheckRule.h"

namespace kmxf {

namespace {

constexpr uint64_t kMostRandomIndex = 64 << 20;
constexpr size_t kMostSegments = 2;  // that a partition keeps with its items

const std::vector<Rule>& Table() {
    static const std::vector<Rule> kTable = [] {
        std::vector<Rule> all;
        for (const std::span<const Rule> family :
             {PacketRules(), PackRules(), SetRules(), MetadataRules(), DescriptorRules(), IndexRules(), OpAtomRules(),
              Op1bRules(), RandomIndexRules(), ClipRules()})
            all.insert(all.end(), family.begin(), family.end());
        return all;
    }();
    return kTable;
}

// Those that run on one kind of subject.
template <class Kind>
const std::vector<const Rule*>& RulesOf() {
    static const std::vector<const Rule*> kRules = [] {
        std::vector<const Rule*> rules;
        for (const Rule& rule : Table())
            if (std::holds_alternative<Kind>(rule.run)) rules.push_back(&rule);
        return rules;
    }();
    return kRules;
}

// Counts what is read.
class CountedSource final : public IByteSource {
public:
    explicit CountedSource(IByteSource& source) : source_(source), size_(source.GetSize()) {}
    uint64_t GetSize() override { return size_; }
    size_t Read(uint64_t offset, std::span<uint8_t> bytes) override {
        const size_t read = source_.Read(offset, bytes);
        ++cost.reads;
        cost.bytes += read;
        return read;
    }
    // As many as there are.
    std::vector<uint8_t> Copy(uint64_t offset, uint64_t count) {
        std::vector<uint8_t> bytes(static_cast<size_t>(offset >= size_ ? 0 : std::min(count, size_ - offset)));
        if (!bytes.empty()) bytes.resize(std::min(Read(offset, bytes), bytes.size()));
        return bytes;
    }

    CheckCost cost;

private:
    IByteSource& source_;
    uint64_t size_;
};

// Tells segments apart without keeping them: a hash (FNV-1a) over their items.
uint64_t Mark(const InspectedItems& items) {
    uint64_t mark = 0xCBF29CE484222325;
    const auto add = [&](uint64_t byte) { mark = (mark ^ byte) * 0x100000001B3; };
    for (const InspectedItem& item : items) {
        add(item.tag >> 8);
        add(item.tag & 0xFF);
        add(item.length);
        for (const uint8_t byte : item.value) add(byte);
    }
    return mark;
}

// Walks over a file, keeps what the rules ask for, and runs them as soon as they can be.
class Checker {
public:
    Checker(IByteSource& source, CheckedFile& file, CheckFindings& findings)
        : source_(source), inspector_(source_), file_(file), findings_(findings) {
        file_.size = source_.GetSize();
    }

    void Run() {
        while (const auto packet = inspector_.Next()) {
            Take(*packet);
            // Behind the head of the element of a recording that was cut off is essence.
            if (file_.open && file_.layout == kOpAtom && packet->kind == PacketKind::kEssence) break;
        }
        if (file_.partitions.empty()) {
            findings_ = {};
            const Rule& noMXF = Table().front();
            std::get<FileRule>(noMXF.run)(file_, CheckReport(findings_, noMXF.id));
            return;
        }
        EndPartition(true);
        RunRules<FileRule>();
    }
    const CheckCost& Cost() const { return source_.cost; }

private:
    template <class Kind, class... Subject>
    void RunRules(const Subject&... subject) {
        for (const Rule* rule : RulesOf<Kind>()) {
            if ((rule->scope & file_.layout) == 0 || (file_.open && (rule->scope & kWhileOpen) == 0)) continue;
            std::get<Kind>(rule->run)(file_, subject..., CheckReport(findings_, rule->id));
        }
    }

    void Take(const InspectedPacket& packet) {
        if (!file_.firstPacket) file_.firstPacket = packet;
        file_.lastPacket = packet;
        if (packet.kind == PacketKind::kRunIn) file_.runIn = packet.length;
        if (packet.kind == PacketKind::kPartition) {
            EndPartition(false);
            BeginPartition(packet);
        } else {
            AddToPartition(packet);
        }
        RunRules<PacketRule>(packet);
    }

    void BeginPartition(const InspectedPacket& packet) {
        CheckedPartition& partition = file_.current;
        partition = {};
        partition.pack = packet;
        partition.fields = inspector_.Items(packet);
        partition.number = file_.partitions.size();
        partition.end = packet.End();
        partition.damaged = !packet.whole;
        file_.damaged = file_.damaged || partition.damaged;
        if (file_.partitions.empty()) Recognise(partition);
        file_.partitions.push_back(
            {packet.offset - file_.runIn, static_cast<uint32_t>(partition.Field("BodySID").value_or(0))});
    }

    // What the first pack tells of the file.
    void Recognise(const CheckedPartition& partition) {
        const auto pattern = partition.Label("OperationalPattern");
        if (pattern == kOpAtomLabel || pattern == kOpAtomLabel3) file_.layout = kOpAtom;
        if (pattern == kOp1bLabel) file_.layout = kOp1b;
        file_.header = partition;
        if (!partition.IsHeader()) return;
        file_.hasHeader = true;
        file_.namedFooter = partition.Field("FooterPartition").value_or(0);
        file_.missingFooter = MissingFooter();
        file_.open = !file_.missingFooter.empty();
    }

    // What is where the footer should be; nothing if it is there.
    std::string MissingFooter() {
        const uint64_t place = file_.namedFooter + file_.runIn;
        if (file_.namedFooter == 0) return "FooterPartition 0: the recording was cut off";
        const std::string named = "FooterPartition " + TextOf(file_.namedFooter) + ": ";
        if (place < file_.runIn || place >= file_.size) return named + "the file ends at " + TextOf(file_.size);
        const auto head = ReadKLVHead(source_.Copy(place, kMostKLVHead));
        if (!head || KeyName(head->key) != "FooterPartitionPack") return named + "no footer partition stands there";
        return head->length > file_.size - place - head->size ? named + "it is cut off" : "";
    }

    void AddToPartition(const InspectedPacket& packet) {
        CheckedPartition& partition = file_.current;
        partition.end = packet.End();
        const bool bad = !packet.whole || packet.kind == PacketKind::kDamage;
        partition.damaged = partition.damaged || bad;
        file_.damaged = file_.damaged || bad;
        if (partition.packets.size() < kMostPackets) partition.packets.push_back(packet);
        Count(partition, packet.name.empty() ? KindName(packet.kind) : packet.name);
        switch (packet.kind) {
            case PacketKind::kPrimer:
            case PacketKind::kSet:
            case PacketKind::kIndexSegment:
                AddSet(packet);
                break;
            case PacketKind::kEssence:
                AddElement(packet);
                break;
            case PacketKind::kFill:
                if (partition.indexEnd == packet.offset) partition.indexEnd = packet.End();
                break;
            case PacketKind::kRandomIndex:
                ReadRandomIndex(packet);
                break;
            default:
                break;
        }
    }

    static void Count(CheckedPartition& partition, std::string_view name) {
        const auto count = std::ranges::find(partition.counts, name, &std::pair<std::string_view, uint64_t>::first);
        if (count == partition.counts.end()) {
            partition.counts.emplace_back(name, 1);
        } else {
            ++count->second;
        }
    }

    void AddSet(const InspectedPacket& packet) {
        CheckedPartition& partition = file_.current;
        CheckedSet set{packet, inspector_.Items(packet)};
        if (packet.whole) RunRules<SetRule>(set);
        if (packet.kind == PacketKind::kIndexSegment) {
            if (partition.indexEnd == 0) partition.indexFrom = packet.offset;
            partition.indexEnd = packet.End();
            MarkSegment(set);
            if (partition.segments.size() < kMostSegments) partition.segments.push_back(std::move(set));
        } else if (packet.kind == PacketKind::kSet && partition.number == 0 && file_.hasHeader) {
            file_.tooManySets = file_.metadata.sets.size() == kMostPackets;
            if (!file_.tooManySets) file_.metadata.sets.push_back(std::move(set));
        }
    }

    void MarkSegment(const CheckedSet& segment) {
        const uint64_t mark = Mark(segment.items);
        if (!file_.current.IsFooter()) {
            file_.segmentMarks.push_back(mark);
            return;
        }
        const size_t number = file_.repeatedSegments++;
        const bool same = number < file_.segmentMarks.size() && file_.segmentMarks[number] == mark;
        // The second one of AVC-Intra stands in the footer alone.
        const bool own = file_.layout == kOpAtom && number > 0;
        if (!same && !own && !file_.otherSegment && number < file_.segmentMarks.size())
            file_.otherSegment = segment.offset;
    }

    void AddElement(const InspectedPacket& packet) {
        CheckedPartition& partition = file_.current;
        ++partition.elements;
        if (file_.layout == kOpAtom && !file_.element) file_.element = packet;
    }

    void ReadRandomIndex(const InspectedPacket& packet) {
        file_.randomIndex = packet;
        if (!packet.whole || packet.length > kMostRandomIndex) return;
        const auto bytes = source_.Copy(packet.offset, packet.End() - packet.offset);
        CRandomIndex index;
        if (index.SetData(bytes.data(), static_cast<uint32_t>(bytes.size())) != kStatusOk) return;
        for (uint32_t i = 0; i < index.GetPartitionNum(); ++i)
            file_.randomIndexEntries.push_back(
                {static_cast<uint64_t>(index.GetPartitionOffset(i)), index.GetBodySID(i)});
        if (packet.length >= sizeof(uint32_t))
            file_.overallLength = ByteReader(std::span(bytes).last(sizeof(uint32_t))).U32();
    }

    void EndPartition(bool last) {
        CheckedPartition& partition = file_.current;
        if (file_.partitions.empty()) {
            partition = {};  // what stands in front of the first pack
            return;
        }
        // Where a recording was cut off, something is always missing.
        partition.damaged = partition.damaged || (last && file_.open);
        if (partition.number == 0 && file_.hasHeader) {
            file_.header = partition;
            file_.headerWhole = !partition.damaged && !file_.tooManySets;
            if (file_.headerWhole) file_.metadata.Follow();
        }
        if (file_.layout == kOp1b) FollowGroup(partition);
        if (partition.number == 0 && file_.headerWhole) RunRules<MetadataRule>(file_.metadata);
        if (partition.pack.whole) RunRules<PartitionRule>(partition);
        if (file_.layout == kOp1b) PassGroup(partition);
        partition.packets.clear();
        file_.previous = partition;
    }

    // A partition of pictures begins a group. Behind damage its index says where the group is.
    void FollowGroup(const CheckedPartition& partition) {
        CheckedGroup& group = file_.group;
        if (partition.Field("BodySID") == kPictureSID) {
            file_.groupBefore = group;
            group.number += 1;
            group.first = group.first && group.frames ? std::optional(*group.first + *group.frames) : std::nullopt;
            group.frames = partition.elements;
            FollowPictures(partition);
        }
        if (group.first && group.frames) return;
        if (partition.Field("IndexSID") == kPictureIndexSID && !partition.segments.empty() && !partition.damaged) {
            const auto start = partition.segments[0].Number("IndexStartPosition");
            const auto duration = partition.segments[0].Number("IndexDuration");
            if (start) group.first = static_cast<uint64_t>(*start);
            if (duration) group.frames = static_cast<uint64_t>(*duration);
        }
    }

    void FollowPictures(const CheckedPartition& partition) {
        file_.pictureStarts.reset();
        if (!file_.pictureBytes) file_.pictureBytes = partition.Field("BodyOffset");
        if (partition.damaged || !file_.pictureBytes) return;
        std::vector<uint64_t>& starts = file_.pictureStarts.emplace();
        for (const InspectedPacket& packet : partition.packets)
            if (packet.kind == PacketKind::kEssence)
                starts.push_back(*file_.pictureBytes + packet.offset - partition.pack.End());
    }

    void PassGroup(const CheckedPartition& partition) {
        if (partition.damaged) {
            // With a pack that was lost in it, a group may be.
            file_.group.first.reset();
            file_.group.frames.reset();
            file_.pictureBytes.reset();
        } else if (partition.Field("BodySID") == kPictureSID && file_.pictureBytes) {
            *file_.pictureBytes += partition.ContentSize();
        }
    }

    CountedSource source_;
    CInspector inspector_;
    CheckedFile& file_;
    CheckFindings& findings_;
};

void Add(CheckCost* cost, const CheckCost& more) {
    if (cost == nullptr) return;
    cost->reads += more.reads;
    cost->bytes += more.bytes;
}

std::vector<CheckFinding> TakeAll(std::vector<CheckFindings>& findings) {
    std::vector<CheckFinding> all;
    for (size_t i = 0; i < findings.size(); ++i) std::ranges::move(findings[i].Take(i), std::back_inserter(all));
    return all;
}

}  // namespace

std::span<const CheckRule> GetCheckRules() {
    static const std::vector<CheckRule> kRules = [] {
        std::vector<CheckRule> rules;
        for (const Rule& rule : Table()) rules.push_back({rule.id, rule.text});
        return rules;
    }();
    return kRules;
}

std::vector<CheckFinding> CheckFile(IByteSource& source, CheckCost* cost) {
    CheckedFile file;
    CheckFindings findings;
    Checker checker(source, file, findings);
    checker.Run();
    if (cost != nullptr) *cost = checker.Cost();
    return findings.Take(0);
}

std::vector<CheckFinding> CheckFiles(std::span<IByteSource* const> sources) {
    std::vector<CheckFinding> all;
    for (size_t i = 0; i < sources.size(); ++i) {
        CheckedFile file;
        CheckFindings findings;
        Checker(*sources[i], file, findings).Run();
        std::ranges::move(findings.Take(i), std::back_inserter(all));
    }
    return all;
}

std::vector<CheckFinding> CheckClip(std::span<IByteSource* const> sources, CheckCost* cost) {
    if (cost != nullptr) *cost = {};
    std::vector<CheckFindings> findings(sources.size());
    std::vector<std::unique_ptr<CheckedFile>> files;
    std::vector<const CheckedFile*> pointers;
    for (size_t i = 0; i < sources.size(); ++i) {
        files.push_back(sources[i] == nullptr ? nullptr : std::make_unique<CheckedFile>());
        pointers.push_back(files.back().get());
        if (sources[i] == nullptr) continue;
        Checker checker(*sources[i], *files.back(), findings[i]);
        checker.Run();
        Add(cost, checker.Cost());
    }
    for (const Rule* rule : RulesOf<ClipRule>())
        std::get<ClipRule>(rule->run)(pointers, ClipReport(findings, rule->id));
    return TakeAll(findings);
}

}  // namespace kmxf
