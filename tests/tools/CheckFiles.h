#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/collaborators/Timecode.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/structures/DescriptiveMetadata.h"
#include "kmxf/tools/Check.h"
#include "kmxf/writer/CreateMXFAudio.h"
#include "kmxf/writer/CreateMXFOp1b.h"
#include "kmxf/writer/CreateMXFVideo.h"
#include "roundtrip/Recording.h"
#include "support/FixedEnvironment.h"
#include "support/Hex.h"
#include "support/Op1bClip.h"
#include "support/Walk.h"

// Files of the writers, whole and cut off, and what a check finds in them.
namespace kmxf::test {

using Bytes = std::vector<uint8_t>;

// "PP-003 20: expected MajorVersion 1, found MajorVersion 2", with the number of the file in front behind the first.
inline std::string Line(const CheckFinding& finding) {
    return (finding.file == 0 ? "" : "file " + std::to_string(finding.file) + " ") + std::string(finding.rule) + " " +
           std::to_string(finding.offset) + ": expected " + finding.expected + ", found " + finding.found;
}
inline std::vector<std::string> Lines(const std::vector<CheckFinding>& findings) {
    std::vector<std::string> lines;
    for (const CheckFinding& finding : findings) lines.push_back(Line(finding));
    return lines;
}
inline std::vector<std::string> Checked(const Bytes& file) {
    MemorySource source(file);
    return Lines(CheckFile(source));
}
// Of several files; an empty one could not be opened.
inline std::vector<std::string> CheckedClip(const std::vector<Bytes>& files) {
    std::vector<MemorySource> sources(files.begin(), files.end());
    std::vector<IByteSource*> pointers;
    for (MemorySource& source : sources) pointers.push_back(source.GetSize() == 0 ? nullptr : &source);
    return Lines(CheckClip(pointers));
}

inline MXFUMIDTag TestUmid(uint8_t number) {
    MXFUMIDTag umid{{0x06, 0x0A, 0x2B, 0x34, 0x01, 0x01, 0x01, 0x05, 0x01, 0x01, 0x0F, 0x20, 0x13}};
    umid.bytes[31] = number;
    return umid;
}

inline CDescriptiveMetadata TestMetadata() {
    CDescriptiveMetadata metadata;
    metadata.SetJobFunction("Camera");
    metadata.SetFamilyName("Doe");
    metadata.SetFirstGivenName("Jo");
    metadata.SetProjectNumber("P1");
    metadata.SetProjectName("River");
    metadata.SetTakeNumber(3);
    metadata.SetSceneNumber("12A");
    return metadata;
}

// An OP-Atom file of a clip; essence that nobody looks at.
struct AtomFile {
    uint32_t videoStd = VIDEO_STD_59_94I;
    uint32_t compType = COMP_TYPE_DV25;  // 0: sound
    uint32_t clipType = 0x10101;
    uint32_t channel = 0;
    int64_t frames = 2;
    size_t rest = 0;  // bytes of essence behind the last frame
    uint32_t samplesPerSec = 48000;
    uint16_t bytesPerSample = 2;
    std::function<void(CCreateMXFBase&)> with{};  // further settings
    bool consumerDV = false;
    bool close = true;

    bool IsSound() const { return compType == 0; }
    size_t EssenceSize() const {
        if (!IsSound()) return static_cast<size_t>(frames) * GetFrameDataSize(videoStd, compType) + rest;
        return rest + static_cast<size_t>(DurationToAudioSample(videoStd, frames, samplesPerSec)) * bytesPerSample;
    }
};

inline Bytes Record(const AtomFile& atom, std::span<const uint8_t> essence) {
    CMemoryFileIO stream;
    Feeder feeder;
    const auto record = [&](CCreateMXFBase& writer) {
        writer.SetFilename("clip.mxf");
        writer.SetVideoStandard(atom.videoStd);
        writer.SetClipType(atom.clipType);
        writer.SetChannel(atom.channel);
        writer.SetSamplesPerSec(atom.samplesPerSec);
        writer.SetUMID(TestUmid(static_cast<uint8_t>(atom.IsSound() ? 2 + atom.channel : 1)));
        writer.SetShotUMID(TestUmid(0xC1));
        writer.SetPackageName("A001C007");
        writer.SetStartTimecode(107892, true);
        if (atom.with) atom.with(writer);
        EXPECT_EQ(writer.Open(&stream, true), kStatusOk);
        feeder.Write(writer, essence, {400000});
        if (atom.close) {
            EXPECT_EQ(writer.Close(), kStatusOk);
        }
    };
    if (atom.IsSound()) {
        CCreateMXFAudio writer;
        writer.SetBytesPerSample(atom.bytesPerSample);
        record(writer);
    } else {
        CCreateMXFVideo writer;
        writer.SetDVType(atom.compType);
        writer.SetConsumerDV(atom.consumerDV);
        record(writer);
    }
    return stream.GetContents();
}
inline Bytes Record(const AtomFile& atom) {
    const FixedEnvironment environment;
    return Record(atom, Bytes(atom.EssenceSize(), 0x55));
}

inline Bytes Record(const Op1bClip& clip, const std::function<void(CCreateMXFOp1b&)>& with = {}, bool close = true) {
    const FixedEnvironment environment;
    CMemoryFileIO file;
    CCreateMXFOp1b writer;
    SetFormat(writer, clip);
    writer.SetUMID(TestUmid(0xC1));
    writer.SetPackageName("A001C007");
    CTimecode start;
    start.SetVideoStd(clip.videoStd);
    start.SetTotalFrame(107892);
    writer.SetStartTimecode(start);
    EXPECT_EQ(writer.Open("clip.mxf", &file), kStatusOk);
    if (with) with(writer);
    WriteClip(writer, clip);
    if (close) {
        EXPECT_EQ(writer.Close(), kStatusOk);
    }
    return file.GetContents();
}

// --- changes ---

inline Bytes At(Bytes file, uint64_t offset, const std::string& hex) {
    const Bytes bytes = Hex(hex);
    std::ranges::copy(bytes, file.begin() + static_cast<std::ptrdiff_t>(offset));
    return file;
}

// The nth packet of a name, from 0.
inline WalkedPacket Nth(const Bytes& file, std::string_view name, size_t n = 0) {
    return Named(Walk(file), name).at(n);
}

// The first bytes of an item, or of a field of a pack.
inline Bytes With(const Bytes& file, std::string_view name, size_t n, std::string_view item, const std::string& hex) {
    return At(file, Nth(file, name, n).Item(item)->offset, hex);
}
inline Bytes WithAll(Bytes file, std::string_view name, std::string_view item, const std::string& hex) {
    for (const WalkedPacket& packet : Named(Walk(file), name))
        if (packet.Item(item) != nullptr) file = At(std::move(file), packet.Item(item)->offset, hex);
    return file;
}

// A file again and again: all numbers of 8 bytes of one name, in sets and packs, and at last all of them, are the most
// or the least that there can be.
inline void WithExtremeNumbers(const Bytes& file, const std::function<void(const Bytes&)>& look) {
    const std::vector<WalkedPacket> packets = Walk(file);
    std::map<std::string, std::vector<uint64_t>> places;
    for (const WalkedPacket& packet : packets) {
        for (const InspectedItem& item : packet.items) {
            if (item.value.size() != 8) continue;
            places[std::string(packet.name) + "." + std::string(item.name)].push_back(item.offset);
            places["all"].push_back(item.offset);
        }
    }
    ASSERT_GT(places.size(), 20u);
    for (const auto& [name, offsets] : places) {
        SCOPED_TRACE(name);
        for (const char* const value : {"7FFFFFFFFFFFFFFF", "8000000000000000", "FFFFFFFFFFFFFFFF"}) {
            Bytes extreme = file;
            for (const uint64_t offset : offsets) extreme = At(std::move(extreme), offset, value);
            look(extreme);
        }
    }
}

inline std::string Number(uint64_t value, int bytes) {
    char text[20];
    std::snprintf(text, sizeof text, "%0*llX", 2 * bytes, static_cast<unsigned long long>(value));
    return text;
}

// Bytes taken out in front of `place`, or put in (zeros), and all that names a place behind it set right.
inline Bytes Resized(Bytes file, uint64_t place, int64_t by) {
    const auto moved = [&](const InspectedItem& item) {
        const uint64_t value = item.Unsigned().value_or(0);
        if (value >= place) file = At(std::move(file), item.offset, Number(value + static_cast<uint64_t>(by), 8));
    };
    for (const WalkedPacket& packet : Walk(file)) {
        for (const InspectedItem& item : packet.items) {
            const bool isPlace = packet.kind == PacketKind::kPartition
                                     ? item.name.ends_with("Partition")
                                     : packet.kind == PacketKind::kRandomIndex && item.name == "ByteOffset";
            if (isPlace) moved(item);
        }
    }
    const auto at = file.begin() + static_cast<std::ptrdiff_t>(place);
    if (by < 0) {
        file.erase(at + by, at);
    } else {
        file.insert(at, static_cast<size_t>(by), uint8_t{0});
    }
    return file;
}
// The same, for bytes of the value of a packet, at its end.
inline Bytes Resized(const Bytes& file, const WalkedPacket& packet, int64_t by) {
    const int width = static_cast<int>(packet.headSize) - 17;
    const Bytes patched = At(file, packet.ValueOffset() - static_cast<uint64_t>(width),
                             Number(packet.length + static_cast<uint64_t>(by), width));
    return Resized(patched, packet.End(), by);
}

inline Bytes Replaced(Bytes file, const std::string& from, const std::string& to) {
    const Bytes old = Hex(from), fresh = Hex(to);
    for (auto at = file.begin();; at += static_cast<std::ptrdiff_t>(fresh.size())) {
        at = std::search(at, file.end(), old.begin(), old.end());
        if (at == file.end()) return file;
        std::ranges::copy(fresh, at);
    }
}

}  // namespace kmxf::test
