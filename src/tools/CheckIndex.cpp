#include <algorithm>

#include "core/Bytes.h"
#include "core/Layout.h"
#include "tools/CheckRule.h"

// IX: index table segments. What is expected of one follows from the essence that it belongs to.
namespace kmxf {

namespace {

using File = CheckedFile;
using Partition = CheckedPartition;
using Set = CheckedSet;

// What a segment covers and says; what cannot be told is left open.
struct Expected {
    uint64_t indexSID = 0, bodySID = 0;
    MXFRATIONALTag editRate{};
    std::optional<int64_t> unitSize{}, start{}, duration{};
    bool entries = false;
};

Expected ExpectedOfOpAtom(const File& file, size_t number) {
    const CheckedMetadata& metadata = file.metadata;
    Expected expected{.indexSID = 1, .bodySID = 2, .editRate = metadata.pictureRate};
    auto stored = file.StoredFrames();
    if (file.IsSound()) {
        expected.editRate = GetAudioEditRate(metadata.samplesPerSec);
        expected.unitSize = metadata.bytesPerSample;
        expected.start = 0;
        if (stored) expected.duration = metadata.EditUnits("SoundTrack", *stored);
        return expected;
    }
    if (!metadata.picture || !stored) return expected;
    const uint32_t compType = metadata.picture->compType;
    const int64_t frameSize = GetFrameDataSize(metadata.picture->videoStd, compType);
    if (!IsAVCI(compType)) {
        expected.unitSize = frameSize;
        expected.start = 0;
        expected.duration = *stored & ~int64_t{1};
        return expected;
    }
    // The first frame, which parameter sets precede, has a segment of its own.
    const int64_t first = std::min<int64_t>(*stored, 1);
    expected.unitSize = number == 0 ? frameSize + kParameterSetBlock : frameSize;
    expected.start = number == 0 ? 0 : 1;
    expected.duration = number == 0 ? first : *stored - first;
    return expected;
}

Expected ExpectedOfOp1b(const File& file, const Partition& partition) {
    const CheckedMetadata& metadata = file.metadata;
    const uint64_t indexSID = partition.Field("IndexSID").value_or(kPictureIndexSID);
    Expected expected{
        .indexSID = indexSID, .bodySID = indexSID - kPictureIndexSID + kPictureSID, .editRate = metadata.pictureRate};
    const bool sound = expected.bodySID > kANCSID;
    expected.entries = expected.bodySID == kPictureSID;
    expected.unitSize = sound ? metadata.bytesPerSample : expected.bodySID == kANCSID ? kANCElementSize : 0;
    if (sound) expected.editRate = GetAudioEditRate(metadata.samplesPerSec);
    if (metadata.videoStd == 0 || !file.group.first || !file.group.frames) return expected;
    const std::string_view kind = sound ? "SoundTrack" : "PictureTrack";
    expected.start = metadata.EditUnits(kind, static_cast<int64_t>(*file.group.first));
    expected.duration = metadata.EditUnits(kind, static_cast<int64_t>(*file.group.frames));
    return expected;
}

// Runs on the segments of a partition, together with what is expected of them. The footer of an OP-1b file repeats
// those of the body, which is a rule of its own.
template <class Visit>
void VisitSegments(const File& file, const Partition& partition, Visit visit) {
    if (!file.headerWhole || partition.damaged) return;
    if (file.layout == kOpAtom && partition.IsHeader()) return;  // the element is not known yet
    if (file.layout == kOp1b && partition.IsFooter()) return;
    for (size_t i = 0; i < partition.segments.size(); ++i)
        visit(partition.segments[i],
              file.layout == kOp1b ? ExpectedOfOp1b(file, partition) : ExpectedOfOpAtom(file, i));
}

size_t ElementsOf(const Set& segment, std::string_view array) {
    const InspectedItem* item = segment.Item(array);
    return item == nullptr ? 0 : item->Elements().size();
}

constexpr Rule kRules[] = {
    {"IX-001", "IndexEditRate is the picture rate, of sound the sampling rate.", kOurs | kWhileOpen,
     [](const File& file, const Partition& partition, const CheckReport& report) {
         VisitSegments(file, partition, [&](const Set& segment, const Expected& expected) {
             report.Expect(segment.items, "IndexEditRate", expected.editRate);
         });
     }},
    {"IX-002", "IndexStartPosition counts the edit units in front of the segment.", kOurs | kWhileOpen,
     [](const File& file, const Partition& partition, const CheckReport& report) {
         VisitSegments(file, partition, [&](const Set& segment, const Expected& expected) {
             if (expected.start) report.Expect(segment.items, "IndexStartPosition", *expected.start);
         });
     }},
    {"IX-003", "IndexDuration counts the edit units that the segment covers.", kOurs | kWhileOpen,
     [](const File& file, const Partition& partition, const CheckReport& report) {
         VisitSegments(file, partition, [&](const Set& segment, const Expected& expected) {
             if (expected.duration) report.Expect(segment.items, "IndexDuration", *expected.duration);
         });
     }},
    {"IX-004",
     "EditUnitByteCount is the size of a frame, of a sample, of an ANC element with its fill; of pictures of all sizes "
     "0. "
     "The first AVC-Intra frame takes in the 512 bytes in front of it.",
     kOurs | kWhileOpen,
     [](const File& file, const Partition& partition, const CheckReport& report) {
         VisitSegments(file, partition, [&](const Set& segment, const Expected& expected) {
             if (expected.unitSize) report.Expect(segment.items, "EditUnitByteCount", *expected.unitSize);
         });
     }},
    {"IX-005", "IndexSID and BodySID are those of the essence.", kOurs | kWhileOpen,
     [](const File& file, const Partition& partition, const CheckReport& report) {
         VisitSegments(file, partition, [&](const Set& segment, const Expected& expected) {
             report.Expect(segment.items, "IndexSID", expected.indexSID);
             report.Expect(segment.items, "BodySID", expected.bodySID);
         });
     }},
    {"IX-006",
     "Edit units of one size have no entries; those of OP-1b pictures have one delta entry (-1, 0, 0) and an index "
     "entry "
     "each.",
     kOurs | kWhileOpen,
     [](const File& file, const Partition& partition, const CheckReport& report) {
         VisitSegments(file, partition, [&](const Set& segment, const Expected& expected) {
             const auto text = [](uint64_t deltas, uint64_t entries) {
                 return std::to_string(deltas) + " of deltas, " + std::to_string(entries) + " of the index";
             };
             const auto stated = segment.Number("IndexDuration").value_or(0);
             const auto units = static_cast<uint64_t>(expected.duration.value_or(stated));
             const size_t deltas = ElementsOf(segment, "DeltaEntryArray"),
                          entries = ElementsOf(segment, "IndexEntryArray");
             const std::string wanted = expected.entries ? text(1, units) : text(0, 0);
             if (text(deltas, entries) != wanted) report(segment.offset, wanted, text(deltas, entries));
             if (expected.entries) report.ExpectText(segment.items, "DeltaEntryArray", "[(-1, 0, 0)]");
         });
     }},
    {"IX-007", "The stream offset of an index entry is that of its picture.", kOp1b | kWhileOpen,
     [](const File& file, const Partition& partition, const CheckReport& report) {
         if (!file.pictureStarts) return;
         VisitSegments(file, partition, [&](const Set& segment, const Expected& expected) {
             const InspectedItem* array = expected.entries ? segment.Item("IndexEntryArray") : nullptr;
             if (array == nullptr) return;
             const auto entries = array->Elements();
             for (size_t i = 0; i < std::min(entries.size(), file.pictureStarts->size()); ++i) {
                 ByteReader reader(entries[i]);
                 reader.Skip(3);
                 const uint64_t found = reader.U64(), wanted = (*file.pictureStarts)[i];
                 const auto at = static_cast<uint64_t>(entries[i].data() - array->value.data());
                 if (found != wanted)
                     report(array->offset + at, "StreamOffset " + TextOf(wanted), "StreamOffset " + TextOf(found));
             }
         });
     }},
    {"IX-008",
     "The footer repeats the index: in OP-Atom files that of the header first, in OP-1b files all segments of the body "
     "in their order.",
     kOurs,
     [](const File& file, const CheckReport& report) {
         if (file.damaged) return;
         if (file.otherSegment) report(*file.otherSegment, "the segment of the body", "another one");
         const size_t expected = file.segmentMarks.size();
         const bool all =
             file.layout == kOpAtom ? file.repeatedSegments >= expected : file.repeatedSegments == expected;
         if (!all)
             report(file.current.pack.offset, Counted(expected, "index segment"),
                    std::to_string(file.repeatedSegments));
     }},
};

}  // namespace

std::span<const Rule> IndexRules() { return kRules; }

}  // namespace kmxf
