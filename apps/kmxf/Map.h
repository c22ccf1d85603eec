#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kmxf/structures/Inspect.h"

namespace kmxf::program {

// A picture of a file, to scale: the whole of it, and larger its beginning and its end, each with a row for every kind
// of content. Its size is that of the picture, however many packets there are.
class FileMap {
public:
    FileMap(std::string path, uint64_t fileSize);

    // A packet or stretch, in the order of the file; of essence also the stream that it belongs to.
    void Add(const InspectedPacket& packet, uint64_t bodySID);

    std::string Svg() const;
    // The picture with a table of what it shows, in one page that needs nothing else.
    std::string Html() const;

private:
    // Neighbours that belong together, or that the picture cannot tell apart.
    struct Block {
        uint64_t from, to, packets;
        std::string name;  // empty when there are several
        uint64_t key;      // of what belongs together
    };
    struct Strip {
        std::string title;
        uint64_t from, to;
        std::vector<std::vector<Block>> blocks;  // by row

        double Left(uint64_t offset) const;
        void Add(size_t row, const Block& block);
        bool IsSameColumn(uint64_t a, uint64_t b) const;
    };
    struct Row {
        std::string name;
        const char* colour;
        uint64_t packets = 0, bytes = 0;
    };

    size_t RowOf(const std::string& name, const char* colour);
    void Add(size_t row, const Block& block);
    void AppendStrip(std::string& svg, const Strip& strip, double top) const;

    std::string path_;
    uint64_t fileSize_;
    std::vector<Row> rows_;
    std::vector<Strip> strips_;
};

}  // namespace kmxf::program
