#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <span>
#include <string>
#include <vector>

#include "kmxf/tools/SalvagePlan.h"
#include "support/TemporaryFolder.h"
#include "tools/CheckFiles.h"

// Recordings that were cut off, and what is expected of their salvage.
namespace kmxf::test {

inline constexpr size_t kHeader = 32768;

// The ids of all DIF blocks of a frame, with a picture that tells frames apart (SMPTE ST 314).
inline Bytes DVFrames(size_t frameSize, size_t count) {
    Bytes all = Noise(frameSize * count, 7);
    const size_t sequences = frameSize % 144000 == 0 ? 12 : 10;
    for (size_t block = 0; block < all.size() / 80; ++block) {
        const size_t at = block % (frameSize / 80), place = at % 150;
        size_t section = 4, number = 0;
        if (place == 0) {
            section = 0;
        } else if (place < 3) {
            section = 1, number = place - 1;
        } else if (place < 6) {
            section = 2, number = place - 3;
        } else if ((place - 6) % 16 == 0) {
            section = 3, number = (place - 6) / 16;
        } else {
            number = place - 6 - (place - 6) / 16 - 1;
        }
        uint8_t* const id = all.data() + block * 80;
        id[0] = static_cast<uint8_t>(section << 5 | 0x1F);
        id[1] = static_cast<uint8_t>(at / 150 % sequences << 4 | 7);
        id[2] = static_cast<uint8_t>(number);
    }
    return all;
}

// AVC-Intra frames: a delimiter and ten slices each.
inline Bytes IntraFrames(size_t frameSize, size_t count) {
    Bytes all = Noise(frameSize * count, 9);
    std::ranges::replace(all, uint8_t{0}, uint8_t{1});
    for (size_t frame = 0; frame < count; ++frame) {
        for (size_t slice = 0; slice < 11; ++slice) {
            const uint8_t nal[] = {0, 0, 0, 1, static_cast<uint8_t>(slice == 0 ? 0x09 : 0x65)};
            std::ranges::copy(nal,
                              all.begin() + static_cast<std::ptrdiff_t>(frame * frameSize + slice * (frameSize / 11)));
        }
    }
    return all;
}

class Clip {
public:
    // A recording that was cut off, unless it is closed.
    std::string Add(const std::string& name, AtomFile atom, const Bytes& essence, bool close = false) {
        atom.close = close;
        return Put(name, Record(atom, essence));
    }
    std::string Put(const std::string& name, const Bytes& content) {
        const std::string path = (folder_.Path() / name).string();
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
        return path;
    }
    static Bytes Get(const std::string& path) {
        Bytes content(std::filesystem::file_size(path));
        std::ifstream(path, std::ios::binary)
            .read(reinterpret_cast<char*>(content.data()), static_cast<std::streamsize>(content.size()));
        return content;
    }
    std::string Path(const std::string& name) const { return (folder_.Path() / name).string(); }

private:
    TemporaryFolder folder_;
};

inline std::vector<std::string> InPlace(const SalvagePlan& plan) {
    std::vector<std::string> targets;
    for (const SalvagedFile& file : plan.files) targets.push_back(file.path);
    return targets;
}

inline void ExpectBalanced(const SalvagePlan& plan) {
    for (const SalvagedFile& file : plan.files) {
        uint64_t lost = 0;
        for (const SalvageLoss& loss : file.losses) lost += loss.size;
        EXPECT_EQ(file.lostSize, lost);
        if (file.action != SalvageAction::kGiveUp) {
            EXPECT_EQ(file.fileSize, file.keptSize + file.lostSize + file.rebuiltSize) << file.path;
        }
    }
}

inline void ExpectSalvaged(const SalvagePlan& plan) {
    ExpectBalanced(plan);
    const SalvageResult result = CarryOutSalvage(plan, InPlace(plan));
    EXPECT_EQ(result.failure, "");
    EXPECT_EQ(Lines(result.findings), std::vector<std::string>());
}

struct Family {
    const char* name;
    uint32_t videoStd, compType;
    size_t frameSize, inFront;
};
inline constexpr Family kFamilies[] = {
    {"DV25", VIDEO_STD_59_94I, COMP_TYPE_DV25, 120000, 0},
    {"DV50", VIDEO_STD_50I, COMP_TYPE_DV50, 288000, 0},
    {"DV100", VIDEO_STD_59_94I, COMP_TYPE_DV100_1080I, 480000, 0},
    {"DV100p", VIDEO_STD_59_94P, COMP_TYPE_DV100_720P, 240000, 0},
    {"AVCI50", VIDEO_STD_59_94P, COMP_TYPE_AVCI50_720, 116224, 512},
    {"AVCI100", VIDEO_STD_50I, COMP_TYPE_AVCI100_1080, 568320, 512},
};

inline Bytes Frames(const Family& family, size_t count) {
    return family.inFront == 0 ? DVFrames(family.frameSize, count) : IntraFrames(family.frameSize, count);
}

// The clips of the tests have one key frame in front and nothing that is shown out of order.
inline std::vector<MXFINDEXENTRYTag> PlainEntries(std::span<const uint8_t>, size_t count) {
    std::vector<MXFINDEXENTRYTag> entries(count);
    for (MXFINDEXENTRYTag& entry : entries) entry.flags = 0x80;
    return entries;
}

}  // namespace kmxf::test
