#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "reader/HeaderFixture.h"

// OP-1b clips put together from hex text, without any of the library's own code.
namespace kmxf::test {

// A structural set with an InstanceUID in front of its items.
inline ByteVector StructuralSet(std::string_view kind, std::initializer_list<ByteVector> items) {
    const auto id = LocalItem("3C 0A", "11 22 33 44 55 66 77 88 99 AA BB CC DD EE FF " + std::string(kind));
    return Packet("06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 " + std::string(kind) + " 00", Join({id, Join(items)}));
}
inline ByteVector NumberItem(std::string_view tag, uint64_t value, size_t width) {
    return Join({Hex(tag), BigEndian(width, 2), BigEndian(value, width)});
}
inline ByteVector Fill(size_t total) { return Packet(kFillItemKey, ByteVector(total - 20)); }

inline constexpr std::string_view kPictureDefinition = "06 0E 2B 34 04 01 01 01 01 03 02 02 01 00 00 00";
inline constexpr std::string_view kSoundDefinition = "06 0E 2B 34 04 01 01 01 01 03 02 02 02 00 00 00";
inline constexpr std::string_view kSomeUMID =
    "06 0A 2B 34 01 01 01 05 01 01 0F 20 13 00 00 00 A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE AF";
inline constexpr std::string_view kNoUMID =
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";
// A primer that gives the bit rate of the AVC sub-descriptor the tag 90 14
inline constexpr std::string_view kBitRatePrimer =
    "00 00 00 01 00 00 00 12 90 14 06 0E 2B 34 01 01 01 0E 04 01 06 06 01 14 00 00";
inline constexpr std::string_view kRandomIndexKey = "06 0E 2B 34 02 05 01 01 0D 01 02 01 01 11 01 00";

inline ByteVector SourceClip(std::string_view definition, std::string_view package, uint64_t duration) {
    return StructuralSet(
        "11", {LocalItem("02 01", definition), NumberItem("02 02", duration, 8), LocalItem("11 01", package)});
}

struct Picture {
    ByteVector bytes;  // without alignment
    std::string_view entry = "00 00 80";
};

// A clip at 23.98p, 48 frames a group. Fields are set, then Bytes() makes the file and notes where things are in it.
struct Op1bClip {
    std::string_view rate = "00 00 5D C0 00 00 03 E9";
    std::string_view layout = "00";
    uint64_t storedHeight = 1080, bitRate = 25000000;
    size_t groupFrames = 48;
    std::vector<Picture> pictures;
    size_t channels = 2, bytesPerSample = 2;
    uint64_t samplesPerSecond = 48000;
    uint64_t origin = 0;    // as it stands in the track
    int64_t duration = -1;  // of the file package's clips; -1: all pictures
    std::string_view pattern = kOp1b;
    ByteVector moreSets;  // behind the structural ones
    size_t headerSize = 131072;
    bool players = false;  // sound in packages of its own, a multiple descriptor
    bool soundInLastGroup = true;

    // Made by Bytes()
    struct Entry {
        size_t offset;
        uint32_t bodySID;
    };
    std::vector<Entry> partitions;
    std::vector<size_t> pictureAt, ancAt;      // of the values
    std::vector<std::vector<size_t>> soundAt;  // by group and channel, of the samples
    std::vector<size_t> moreSetsAt;
    size_t packSize = 0;

    void AddPictures(size_t count) {
        for (size_t i = 0; i < count; ++i)
            pictures.push_back({ByteVector(600 + pictures.size() % 9, static_cast<uint8_t>(pictures.size()))});
    }
    size_t Groups() const { return (pictures.size() + groupFrames - 1) / groupFrames; }
    // First sample of a frame at 23.98p.
    static size_t SampleOf(size_t frame) {
        constexpr size_t kStarts[] = {0, 2004, 4004, 6008};
        return frame / 4 * 8008 + kStarts[frame % 4];
    }
    size_t BlockSize(size_t group) const {
        const size_t frames = std::min(groupFrames, pictures.size() - group * groupFrames);
        return SampleOf(frames) * bytesPerSample;
    }

    ByteVector Pack(std::string_view kind, size_t headerBytes, size_t indexBytes, uint32_t indexSID, uint32_t bodySID,
                    size_t at) const {
        const ByteVector containers = channels == 0 ? ByteVector(32) : ByteVector(48);
        return Join({Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01"), Hex(kind), Hex("00"), Hex("83"),
                     BigEndian(88 + containers.size(), 3), Hex("00 01 00 03 00 00 00 01"), BigEndian(at, 8),
                     BigEndian(0, 8), BigEndian(0, 8), BigEndian(headerBytes, 8), BigEndian(indexBytes, 8),
                     BigEndian(indexSID, 4), BigEndian(0, 8), BigEndian(bodySID, 4), Hex(pattern),
                     BigEndian(containers.size() / 16, 4), BigEndian(16, 4), containers});
    }

    ByteVector Sets() const {
        const uint64_t frames = duration < 0 ? pictures.size() : static_cast<uint64_t>(duration);
        const uint64_t samples = SampleOf(static_cast<size_t>(frames));
        const auto soundClip = SourceClip(kSoundDefinition, kNoUMID, samples);
        ByteVector sets = Join({
            StructuralSet("36", {LocalItem("44 01", kSomeUMID)}),
            StructuralSet("3B", {NumberItem("4B 02", 0, 8)}),
            StructuralSet("14", {LocalItem("15 02", "00 18"), NumberItem("15 01", 86400, 8), LocalItem("15 03", "01")}),
            SourceClip(kPictureDefinition, kSomeUMID, frames + 100),
            SourceClip(kSoundDefinition, kSomeUMID, samples + 100),
            StructuralSet("37", {LocalItem("44 01", kSomeUMID)}),
            StructuralSet("3B", {NumberItem("4B 02", origin, 8)}),
            StructuralSet("14", {LocalItem("15 02", "00 18"), NumberItem("15 01", 5, 8), LocalItem("15 03", "01")}),
            StructuralSet("3B", {NumberItem("4B 02", origin + 1000, 8)}),
            SourceClip(kPictureDefinition, kNoUMID, frames),
        });
        const auto add = [&](const ByteVector& set) { sets = Join({sets, set}); };
        for (size_t c = 0; c < channels && !players; ++c) add(soundClip);
        if (players) add(StructuralSet("44", {LocalItem("30 01", rate), NumberItem("30 02", pictures.size() + 7, 8)}));
        add(StructuralSet("28", {LocalItem("30 01", rate), NumberItem("30 02", pictures.size(), 8),
                                 LocalItem("32 0C", layout), NumberItem("32 02", storedHeight, 4)}));
        add(StructuralSet("6E", {NumberItem("90 14", bitRate, 4)}));
        for (size_t c = 0; c < channels; ++c)
            add(StructuralSet("47", {Join({NumberItem("3D 03", samplesPerSecond << 32 | 1, 8)}),
                                     NumberItem("3D 01", bytesPerSample * 8, 4)}));
        for (size_t c = 0; c < channels && players; ++c) {
            add(StructuralSet("37", {LocalItem("44 01", kSomeUMID)}));
            add(StructuralSet("3B", {NumberItem("4B 02", origin + 2000, 8)}));
            add(soundClip);
        }
        return sets;
    }

    static ByteVector Segment(size_t group, std::string_view indexSID, std::string_view bodySID, ByteVector entries,
                              size_t count) {
        ByteVector value = Join({LocalItem("3C 0A", "00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F"),
                                 LocalItem("3F 0B", "00 00 5D C0 00 00 03 E9"), NumberItem("3F 0C", group, 8),
                                 NumberItem("3F 0D", count, 8), NumberItem("3F 05", entries.empty() ? 512 : 0, 4),
                                 LocalItem("3F 06", indexSID), LocalItem("3F 07", bodySID)});
        if (!entries.empty()) {
            const ByteVector array = Join({BigEndian(count, 4), BigEndian(11, 4), entries});
            value = Join({value, LocalItem("3F 09", "00 00 00 01 00 00 00 06 FF 00 00 00 00 00"), Hex("3F 0A"),
                          BigEndian(array.size(), 2), array});
        }
        return Packet("06 0E 2B 34 02 53 01 01 0D 01 02 01 01 10 01 00", value);
    }

    static ByteVector ANCElement(const ByteVector& payload) {
        return Join({Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 17 01 02 01 83"), BigEndian(payload.size() + 2, 3),
                     Hex("01 00"), payload, Fill(490 - payload.size())});
    }
    // The payload of a frame's ANC element: nothing, but for every tenth frame.
    static ByteVector ANCPayload(size_t frame) { return ByteVector(frame % 10 == 9 ? frame : 0, 0xAC); }

    ByteVector Bytes() {
        partitions.clear();
        pictureAt.clear();
        ancAt.clear();
        soundAt.clear();
        packSize = Pack("02 04", 0, 0, 0, 0, 0).size();
        const auto metadata = Join({Packet(kPrimerKey, Hex(kBitRatePrimer)), Sets()});
        ByteVector file = Join({Pack("02 04", headerSize - packSize, 0, 0, 0, 0), metadata, moreSets});
        moreSetsAt = {packSize + metadata.size()};
        file = Join({file, Fill(headerSize - file.size())});
        partitions.push_back({0, 0});

        const auto put = [&](const ByteVector& bytes) { file.insert(file.end(), bytes.begin(), bytes.end()); };
        const auto putPack = [&](uint32_t bodySID, uint32_t indexSID, size_t indexBytes) {
            partitions.push_back({file.size(), bodySID});
            put(Pack("03 04", 0, indexBytes, indexSID, bodySID, file.size()));
        };
        uint64_t streamOffset = 0;
        for (size_t group = 0; group < Groups(); ++group) {
            const size_t first = group * groupFrames, end = std::min(first + groupFrames, pictures.size());
            putPack(1, 0, 0);
            ByteVector entries;
            for (size_t i = first; i < end; ++i) {
                const ByteVector aligned =
                    Join({pictures[i].bytes, ByteVector((4 - pictures[i].bytes.size() % 4) % 4)});
                entries = Join({entries, Hex(pictures[i].entry), BigEndian(streamOffset, 8)});
                put(Packet("06 0E 2B 34 01 02 01 01 0D 01 03 01 15 01 05 01", aligned));
                pictureAt.push_back(file.size() - aligned.size());
                streamOffset += 20 + aligned.size();
            }
            const ByteVector segment = Segment(first, "00 00 00 65", "00 00 00 01", entries, end - first);
            const ByteVector fill =
                (packSize + segment.size()) % 4 == 0 ? ByteVector() : Fill(24 - (packSize + segment.size()) % 4);
            putPack(0, 101, segment.size() + fill.size());
            put(Join({segment, fill}));

            putPack(2, 0, 0);
            for (size_t i = first; i < end; ++i) {
                ancAt.push_back(file.size() + 20);
                put(ANCElement(ANCPayload(i)));
            }
            putPack(0, 102, 100);
            put(Segment(first, "00 00 00 66", "00 00 00 02", {}, end - first));

            soundAt.emplace_back();
            if (group + 1 == Groups() && !soundInLastGroup) continue;
            for (size_t c = 0; c < channels; ++c) {
                putPack(static_cast<uint32_t>(3 + c), 0, 0);
                put(Join({Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 16 01 0C 01 87"), BigEndian(BlockSize(group), 7)}));
                soundAt.back().push_back(file.size());
                put(ByteVector(BlockSize(group), static_cast<uint8_t>(0x50 + c)));
                putPack(0, static_cast<uint32_t>(103 + c), 100);
                put(Segment(first, "00 00 00 67", "00 00 00 03", {}, end - first));
            }
        }
        partitions.push_back({file.size(), 0});
        put(Pack("04 04", 0, 0, 0, 0, file.size()));
        put(RandomIndex());
        return file;
    }

    ByteVector RandomIndex() const {
        ByteVector entries;
        for (const Entry& entry : partitions)
            entries = Join({entries, BigEndian(entry.bodySID, 4), BigEndian(entry.offset, 8)});
        return Join({Packet(kRandomIndexKey, Join({entries, BigEndian(entries.size() + 24, 4)}))});
    }
};

}  // namespace kmxf::test
