#pragma once

#include <charconv>
#include <cstddef>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/TestData.h"

namespace kmxf::test {

// One access unit as the side file of a stream describes it: a line each.
struct AccessUnit {
    size_t offset = 0, size = 0;
    size_t displayIndex = 0;
    int temporalOffset = 0, keyFrameOffset = 0, flags = 0;
    std::string timecode;
};

inline std::vector<AccessUnit> AccessUnits(const std::string& sideFile) {
    const auto bytes = LoadTestData(sideFile);
    std::istringstream lines(std::string(bytes.begin(), bytes.end()));
    std::vector<AccessUnit> units;
    for (std::string line; std::getline(lines, line);) {
        if (line.find("{\"index\": ") == line.npos) continue;
        const auto at = [&](const std::string& name) {
            const size_t found = line.find('"' + name + "\": ");
            if (found == line.npos) throw std::runtime_error("an access unit without " + name);
            return found + name.size() + 4;
        };
        const auto number = [&](const std::string& name) {
            int value = 0;
            std::from_chars(line.data() + at(name), line.data() + line.size(), value);
            return value;
        };
        units.push_back({static_cast<size_t>(number("offset")), static_cast<size_t>(number("size")),
                         static_cast<size_t>(number("display_index")), number("temporal_offset"),
                         number("key_frame_offset"), number("flags_with_sequence_bit"),
                         line.substr(at("timecode") + 1, 11)});
    }
    return units;
}

}  // namespace kmxf::test
