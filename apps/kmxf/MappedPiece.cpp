#include "MappedPiece.h"

#include <sys/mman.h>
#include <unistd.h>

#include "Program.h"

namespace kmxf::program {

std::unique_ptr<MappedPiece> MappedPiece::Map(int descriptor, uint64_t offset, uint32_t size) {
    static const auto page = static_cast<uint64_t>(::sysconf(_SC_PAGESIZE));
    const auto lead = static_cast<uint32_t>(offset % page);
    const size_t mappingSize = size_t{lead} + size;
    // Populated at once: page by page it would cost a fault each.
    void* mapping = ::mmap(nullptr, mappingSize, PROT_READ, MAP_SHARED | MAP_POPULATE, descriptor,
                           static_cast<off_t>(offset - lead));
    if (mapping == MAP_FAILED) return nullptr;
    ++statistics.reads;
    statistics.bytesRead += size;
    return std::unique_ptr<MappedPiece>(new MappedPiece(mapping, mappingSize, lead, size));
}

MappedPiece::MappedPiece(void* mapping, size_t mappingSize, uint32_t lead, uint32_t size)
    : mapping_(mapping), mappingSize_(mappingSize), bytes_(static_cast<uint8_t*>(mapping) + lead), size_(size) {}

MappedPiece::~MappedPiece() { ::munmap(mapping_, mappingSize_); }

}  // namespace kmxf::program
