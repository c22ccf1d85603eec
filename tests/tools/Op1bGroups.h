#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "roundtrip/Recording.h"
#include "support/Hex.h"
#include "support/Op1bClip.h"
#include "support/Packets.h"
#include "support/TemporaryFolder.h"

namespace kmxf::test {

using Bytes = std::vector<uint8_t>;

inline constexpr size_t kHeader = 131072, kPackSize = 156;
inline constexpr std::string_view kPictureKey = "06 0E 2B 34 01 02 01 01 0D 01 03 01 15 01 05 01";
inline constexpr std::string_view kBodyPackKey = "06 0E 2B 34 02 05 01 01 0D 01 02 01 01 03 04 00";

inline std::ptrdiff_t At(size_t offset) { return static_cast<std::ptrdiff_t>(offset); }

// Three groups of 50 frames and one of 10, with a channel of sound each.
class Op1bGroups : public testing::Test {
protected:
    Op1bGroups() {
        for (size_t at = kHeader; (at = Find(kBodyPackKey, at)) < file.size(); ++at) {
            if (BigEndian(std::span(file).subspan(at + 80, 4)) == 1) starts.push_back(at);
        }
        EXPECT_EQ(starts.size(), 4u);
    }

    size_t Find(std::string_view hex, size_t from) const {
        const Bytes what = Hex(hex);
        return static_cast<size_t>(std::search(file.begin() + At(from), file.end(), what.begin(), what.end()) -
                                   file.begin());
    }
    void Damage(size_t at, const Bytes& bytes) { std::ranges::copy(bytes, file.begin() + At(at)); }
    // The name of the file as it is now.
    std::string Written() const {
        std::string path = folder_.File("clip.mxf");
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(file.data()), static_cast<std::streamsize>(file.size()));
        return path;
    }

    Bytes file = RecordClip({.videoStd = 0x02000099, .compType = 0x1000C100, .channels = 1, .frames = 160});
    std::vector<size_t> starts;

private:
    TemporaryFolder folder_;
};

}  // namespace kmxf::test
