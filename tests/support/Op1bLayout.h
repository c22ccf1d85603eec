#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/Hex.h"
#include "support/Op1bClip.h"
#include "support/Packets.h"

namespace kmxf::test {

// Walks an OP-1b file from its first byte to its last and holds each packet against what the layout says of this clip:
// partition packs, elements, index, random index, and the durations in the header. The essence is that of `clip`.
class Op1bLayout {
public:
    Op1bLayout(std::span<const uint8_t> file, const Op1bClip& clip)
        : file_(file), clip_(clip), standard_(clip.Standard()), packets_(Packets(file, 0, file.size())) {}

    void Check() {
        FindFooter();
        CheckHeader();
        uint64_t videoOffset = 0, soundOffset = 0;
        for (uint32_t first = 0, group = 0; first < clip_.frames; first += standard_.groupFrames, ++group) {
            SCOPED_TRACE("group " + std::to_string(group));
            const uint32_t frames = std::min(standard_.groupFrames, clip_.frames - first);
            CheckVideo(first, frames, videoOffset);
            CheckANC(first, frames);
            for (uint32_t c = 0; c < clip_.channels; ++c) CheckSound(group, first, frames, c, soundOffset);
            soundOffset += uint64_t{SamplesOf(standard_, frames)} * clip_.bytesPerSample;
            if (testing::Test::HasFailure()) return;
        }
        CheckFooter();
    }

private:
    static constexpr uint32_t kHeaderSize = 0x20000;

    uint32_t PackSize() const { return clip_.channels > 0 ? 156 : 140; }
    const Packet& Take() {
        if (next_ == packets_.size()) throw std::runtime_error("the file ends too early");
        return packets_[next_++];
    }
    std::span<const uint8_t> Whole(const Packet& packet) const {
        return file_.subspan(packet.offset, packet.End() - packet.offset);
    }
    static uint64_t Field(const Packet& pack, size_t offset, size_t size) {
        return BigEndian(std::span(pack.value).subspan(offset, size));
    }
    // Where the footer stands is known when the rest has been walked; the header names it before.
    void FindFooter() {
        const auto key = Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 04 04 00");
        for (const Packet& packet : packets_) {
            if (packet.key == key) footer_ = packet.offset;
        }
        ASSERT_NE(footer_, 0u);
    }

    // A partition pack of `kind` at this place, and its entry for the random index.
    struct Pack {
        uint8_t kind;
        uint64_t footer = 0, headerBytes = 0, indexBytes = 0;
        uint32_t indexSID = 0;
        uint64_t bodyOffset = 0;
        uint32_t bodySID = 0;
    };
    void CheckPack(const Pack& expected) {
        const Packet& pack = Take();
        SCOPED_TRACE("pack at " + std::to_string(pack.offset));
        auto key = Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 00 04 00");
        key[13] = expected.kind;
        ASSERT_EQ(pack.key, key);
        ASSERT_EQ(pack.End() - pack.offset, PackSize());
        EXPECT_EQ(file_[pack.offset + 16], 0x83);
        EXPECT_EQ(Field(pack, 0, 8), 0x0001'0003'0000'0001u);  // versions, KAGSize
        EXPECT_EQ(Field(pack, 8, 8), pack.offset) << "ThisPartition";
        EXPECT_EQ(Field(pack, 16, 8), entries_.empty() ? 0 : entries_.back().second) << "PreviousPartition";
        EXPECT_EQ(Field(pack, 24, 8), expected.footer) << "FooterPartition";
        EXPECT_EQ(Field(pack, 32, 8), expected.headerBytes) << "HeaderByteCount";
        EXPECT_EQ(Field(pack, 40, 8), expected.indexBytes) << "IndexByteCount";
        EXPECT_EQ(Field(pack, 48, 4), expected.indexSID) << "IndexSID";
        EXPECT_EQ(Field(pack, 52, 8), expected.bodyOffset) << "BodyOffset";
        EXPECT_EQ(Field(pack, 60, 4), expected.bodySID) << "BodySID";
        auto labels =
            Hex("06 0E 2B 34 04 01 01 01 0D 01 02 01 01 02 09 00  00 00 00 02 00 00 00 10"
                "06 0E 2B 34 04 01 01 0A 0D 01 03 01 02 10 60 01  06 0E 2B 34 04 01 01 09 0D 01 03 01 02 0E 00 00");
        if (clip_.channels > 0) {
            const auto sound = Hex("06 0E 2B 34 04 01 01 0D 0D 01 03 01 02 06 0B 00");
            labels[19] = 3;
            labels.insert(labels.end(), sound.begin(), sound.end());
        }
        EXPECT_TRUE(SameBytes(labels, std::span(pack.value).subspan(64)));
        entries_.push_back({expected.bodySID, pack.offset});
    }
    void CheckBodyPack(uint64_t bodyOffset, uint32_t bodySID) {
        Pack pack{0x03};
        pack.bodyOffset = bodyOffset;
        pack.bodySID = bodySID;
        CheckPack(pack);
    }

    // An index partition of the given stream: its pack, its segment, and the fill item to a multiple of 4 bytes.
    struct Segment {
        uint32_t rate[2];
        uint64_t start, duration;
        uint32_t unitSize, indexSID, bodySID;
        std::vector<uint8_t> entries;  // as in the file; none where edit units are all of one size
    };
    void CheckIndex(const Segment& expected) {
        const size_t segmentSize = expected.entries.empty() ? 100 : 130 + expected.entries.size();
        const size_t rest = (PackSize() + segmentSize) % 4;
        const size_t fill = rest == 0 ? 0 : 24 - rest;
        Pack pack{0x03};
        pack.indexBytes = segmentSize + fill;
        pack.indexSID = expected.indexSID;
        CheckPack(pack);

        const Packet& segment = Take();
        SCOPED_TRACE("index at " + std::to_string(segment.offset));
        ASSERT_EQ(segment.key, Hex("06 0E 2B 34 02 53 01 01 0D 01 02 01 01 10 01 00"));
        EXPECT_EQ(file_[segment.offset + 16], 0x83);
        EXPECT_EQ(segment.End() - segment.offset, segmentSize);
        const auto items = segment.Items();
        EXPECT_EQ(items.size(), expected.entries.empty() ? 7u : 9u);
        EXPECT_TRUE(uids_.insert(items.at(0x3C0A)).second) << "an InstanceUID comes twice";
        EXPECT_EQ(BigEndian(items.at(0x3F0B)), uint64_t{expected.rate[0]} << 32 | expected.rate[1]);
        EXPECT_EQ(BigEndian(items.at(0x3F0C)), expected.start);
        EXPECT_EQ(BigEndian(items.at(0x3F0D)), expected.duration);
        EXPECT_EQ(BigEndian(items.at(0x3F05)), expected.unitSize);
        EXPECT_EQ(BigEndian(items.at(0x3F06)), expected.indexSID);
        EXPECT_EQ(BigEndian(items.at(0x3F07)), expected.bodySID);
        if (!expected.entries.empty()) {
            EXPECT_EQ(items.at(0x3F09), Hex("00 00 00 01 00 00 00 06 FF 00 00 00 00 00"));
            auto array = Hex("00 00 00 00 00 00 00 0B");
            array[3] = static_cast<uint8_t>(expected.entries.size() / 11);
            array.insert(array.end(), expected.entries.begin(), expected.entries.end());
            EXPECT_TRUE(SameBytes(array, items.at(0x3F0A)));
        }
        segments_.insert(segments_.end(), Whole(segment).begin(), Whole(segment).end());
        if (fill > 0) CheckFill(fill);
    }
    // A fill item of that many bytes in all.
    void CheckFill(size_t size) {
        const Packet& fill = Take();
        EXPECT_EQ(fill.key, Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00"));
        EXPECT_EQ(file_[fill.offset + 16], 0x83);
        EXPECT_EQ(fill.End() - fill.offset, size);
        EXPECT_TRUE(SameBytes(std::vector<uint8_t>(fill.value.size()), fill.value));
    }

    void CheckVideo(uint32_t first, uint32_t frames, uint64_t& streamOffset) {
        CheckBodyPack(streamOffset, 1);
        Segment segment{{standard_.rate[0], standard_.rate[1]}, first, frames, 0, 101, 1, {}};
        for (uint32_t i = first; i < first + frames; ++i) {
            for (const uint8_t byte : {static_cast<uint8_t>(clip_.TemporalOffset(i)),
                                       static_cast<uint8_t>(clip_.KeyFrameOffset(i)), clip_.Flags(i)}) {
                segment.entries.push_back(byte);
            }
            for (int shift = 56; shift >= 0; shift -= 8) {
                segment.entries.push_back(static_cast<uint8_t>(streamOffset >> shift));
            }
            const Packet& element = Take();
            static const auto kKey = Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 15 01 05 01");
            ASSERT_EQ(element.key, kKey) << "frame " << i;
            EXPECT_EQ(file_[element.offset + 16], 0x83);
            auto stored = clip_.Frame(i);
            stored.resize((stored.size() + 3) / 4 * 4);  // zero bytes
            EXPECT_TRUE(SameBytes(stored, element.value)) << "frame " << i;
            streamOffset += 20 + stored.size();
        }
        CheckIndex(segment);
    }

    void CheckANC(uint32_t first, uint32_t frames) {
        static const auto kElement = [] {
            auto bytes =
                Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 17 01 02 01  83 00 00 02  00 00"
                    "06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00  83 00 01 D6");
            bytes.resize(512);
            return bytes;
        }();
        CheckBodyPack(uint64_t{512} * first, 2);
        for (uint32_t i = 0; i < frames; ++i) {
            EXPECT_TRUE(SameBytes(kElement, file_.subspan(Take().offset, 512)));
            Take();  // its fill item
        }
        CheckIndex({{standard_.rate[0], standard_.rate[1]}, first, frames, 512, 102, 2, {}});
    }

    void CheckSound(uint32_t group, uint32_t first, uint32_t frames, uint32_t channel, uint64_t streamOffset) {
        SCOPED_TRACE("channel " + std::to_string(channel));
        CheckBodyPack(streamOffset, 3 + channel);
        const Packet& element = Take();
        ASSERT_EQ(element.key, Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 16 01 0C 01"));
        EXPECT_EQ(file_[element.offset + 16], 0x87);
        EXPECT_EQ(element.valueOffset - element.offset, 24u);
        EXPECT_TRUE(SameBytes(clip_.Sound(group, frames, channel), element.value));
        CheckIndex({{48000, 1},
                    SamplesOf(standard_, first),
                    SamplesOf(standard_, frames),
                    clip_.bytesPerSample,
                    103 + channel,
                    3 + channel,
                    {}});
    }

    void CheckFooter() {
        Pack pack{0x04};
        pack.footer = footer_;
        pack.indexBytes = segments_.size();
        pack.indexSID = 101;
        CheckPack(pack);
        const size_t start = footer_ + PackSize();
        ASSERT_LE(start + segments_.size(), file_.size());
        EXPECT_TRUE(SameBytes(segments_, file_.subspan(start, segments_.size())));
        while (next_ < packets_.size() && packets_[next_].offset < start + segments_.size()) Take();

        const Packet& index = Take();
        EXPECT_EQ(index.key, Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 11 01 00"));
        EXPECT_EQ(file_[index.offset + 16], 0x83);
        EXPECT_EQ(index.offset, start + segments_.size());
        ASSERT_EQ(index.End() - index.offset, 12 * entries_.size() + 24);
        const uint32_t groups = (clip_.frames + standard_.groupFrames - 1) / standard_.groupFrames;
        EXPECT_EQ(entries_.size(), 2 + groups * (2 * clip_.channels + 4u));
        for (size_t i = 0; i < entries_.size(); ++i) {
            EXPECT_EQ(Field(index, 12 * i, 4), entries_[i].first) << "entry " << i;
            EXPECT_EQ(Field(index, 12 * i + 4, 8), entries_[i].second) << "entry " << i;
        }
        EXPECT_EQ(Field(index, 12 * entries_.size(), 4), 12 * entries_.size() + 24);
        EXPECT_EQ(next_, packets_.size()) << "something stands behind the random index";
    }

    // --- header ---

    void CheckHeader() {
        Pack pack{0x02};
        pack.footer = footer_;
        pack.headerBytes = kHeaderSize - PackSize();
        CheckPack(pack);
        EXPECT_EQ(Take().key, Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 05 01 00"));
        const uint32_t channels = clip_.channels;
        CheckSets({0x2F, 0x30, 0x18});
        for (uint32_t i = 0; i < 2 + channels; ++i) CheckContainer(i);
        CheckSets({0x36});
        CheckTrack(0, 0, false);
        for (uint32_t id = 2; id < 4 + channels; ++id) CheckTrack(id, 0, false);
        CheckSets({0x37});
        CheckTrack(0, 0, true);
        CheckTrack(2, 0x15010501, true);
        CheckTrack(3, 0x17010201, true);
        for (uint32_t c = 0; c < channels && !clip_.players; ++c) CheckTrack(4 + c, 0x16010C01, true);
        if (clip_.players) CheckDescriptor(0x44, clip_.frames);
        CheckDescriptor(0x28, clip_.frames);
        CheckSets({0x6E});
        CheckDescriptor(0x5C, clip_.frames);
        for (uint32_t c = 0; c < channels; ++c) CheckDescriptor(0x47, SamplesOf(standard_, clip_.frames));
        for (uint32_t c = 0; c < channels && clip_.players; ++c) {
            CheckSets({0x37});
            CheckTrack(4 + c, 0x16010C01, true);
        }
        ASSERT_LE(packets_[next_].offset, 32748u);
        CheckFill(32768 - packets_[next_].offset);
        // The placeholders: "Dummy" with its zero, and 10854 zero bytes.
        ASSERT_EQ(packets_[next_].offset, 32768u);
        next_ += 4;
        CheckFill(0x14000 - 299);
        ASSERT_EQ(packets_[next_].offset, 114688u);
        next_ += 4;
        CheckFill(16384 - 11207);
        ASSERT_EQ(packets_[next_].offset, 131072u);
    }
    const Packet& TakeSet(uint8_t kind) {
        const Packet& set = Take();
        auto key = Hex("06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01 00 00");
        key[14] = kind;
        EXPECT_EQ(set.key, key) << "at " << set.offset;
        return set;
    }
    void CheckSets(const std::vector<uint8_t>& kinds) {
        for (const uint8_t kind : kinds) TakeSet(kind);
    }
    void CheckContainer(uint32_t number) {
        const auto items = TakeSet(0x23).Items();
        EXPECT_EQ(BigEndian(items.at(0x3F06)), 101u + number);
        EXPECT_EQ(BigEndian(items.at(0x3F07)), 1u + number);
    }
    // Track, sequence and component; ID 0 stands for the timecode's.
    void CheckTrack(uint32_t id, uint32_t number, bool ofFile) {
        SCOPED_TRACE("track " + std::to_string(id) + (ofFile ? " of the file package" : " of the material package"));
        const bool timecode = id == 0, sound = id >= 4;
        const auto units = [&](uint32_t frames) -> uint64_t {
            if (timecode) return standard_.halfTimecode ? (frames + 1) / 2 : frames;
            return sound ? SamplesOf(standard_, frames) : frames;
        };
        const uint32_t hidden = ofFile ? std::min(clip_.hidden, clip_.frames - 1) : 0;
        const auto track = TakeSet(0x3B).Items();
        EXPECT_EQ(BigEndian(track.at(0x4801)), timecode ? 1 : id);
        EXPECT_EQ(BigEndian(track.at(0x4804)), number);
        const auto& rate = timecode ? standard_.timecodeRate : standard_.rate;
        const auto soundRate = uint64_t{48000} << 32 | 1;
        EXPECT_EQ(BigEndian(track.at(0x4B01)), sound ? soundRate : uint64_t{rate[0]} << 32 | rate[1]);
        EXPECT_EQ(BigEndian(track.at(0x4B02)), units(hidden)) << "Origin";
        const uint64_t duration = units(clip_.frames - hidden);
        EXPECT_EQ(BigEndian(TakeSet(0x0F).Item(0x0202)), duration) << "Duration";
        EXPECT_EQ(BigEndian(TakeSet(timecode ? 0x14 : 0x11).Item(0x0202)), duration) << "Duration";
    }
    void CheckDescriptor(uint8_t kind, uint64_t duration) {
        EXPECT_EQ(BigEndian(TakeSet(kind).Item(0x3002)), duration) << "ContainerDuration";
    }

    std::span<const uint8_t> file_;
    const Op1bClip& clip_;
    const Op1bStandard& standard_;
    std::vector<Packet> packets_;
    size_t next_ = 0;
    uint64_t footer_ = 0;
    std::vector<std::pair<uint32_t, uint64_t>> entries_;  // BodySID and offset, in the order of the file
    std::vector<uint8_t> segments_;                       // in the order of the file
    std::set<std::vector<uint8_t>> uids_;
};

}  // namespace kmxf::test
