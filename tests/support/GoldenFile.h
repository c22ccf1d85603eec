#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/Hex.h"
#include "support/TestData.h"

namespace kmxf::test {

// A whole file as annotated hex (tests/data/golden): the notation of Hex, line by line, and `fill COUNT BYTE` for a run
// of equal bytes. A comment that begins with an offset must have the right one.
class GoldenFile {
public:
    explicit GoldenFile(const std::string& name) {
        std::ifstream file(TestDataPath("golden/" + name));
        if (!file) throw std::runtime_error("cannot open " + name);
        for (std::string line; std::getline(file, line);) AddLine(line);
    }

    // Names the line that the first difference falls into.
    testing::AssertionResult Is(const std::vector<uint8_t>& actual) const {
        auto result = SameBytes(bytes_, actual);
        if (result) return result;
        const auto difference = static_cast<size_t>(
            std::mismatch(bytes_.begin(), bytes_.end(), actual.begin(), actual.end()).first - bytes_.begin());
        const auto line =
            std::find_if(lines_.rbegin(), lines_.rend(), [&](const Line& each) { return each.offset <= difference; });
        return line == lines_.rend() ? result : result << "in the line: " << line->text;
    }

private:
    struct Line {
        size_t offset;
        std::string text;
    };

    void AddLine(const std::string& line) {
        const size_t offset = bytes_.size(), comment = line.find('#');
        std::istringstream words(line.substr(0, comment));
        if (std::string word; words >> word && word == "fill") {
            size_t count = 0;
            if (!(words >> count >> word) || Hex(word).size() != 1)
                throw std::invalid_argument("fill wants a count and a byte: " + line);
            bytes_.insert(bytes_.end(), count, Hex(word)[0]);
        } else {
            const auto bytes = Hex(line);
            bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
        }
        if (bytes_.size() == offset) return;
        lines_.push_back({offset, line});
        if (comment != line.npos && line.substr(comment).starts_with("# 0x")) {
            size_t stated = 0;
            std::from_chars(line.data() + comment + 4, line.data() + line.size(), stated, 16);
            EXPECT_EQ(stated, offset) << line;
        }
    }

    std::vector<uint8_t> bytes_;
    std::vector<Line> lines_;
};

}  // namespace kmxf::test
