#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace kmxf::fuzz {

// Changes an input, of which the first `size` bytes of `room` are used, at one place, and returns its new size.
//
// It knows how files are built (SMPTE ST 377-1, ST 336) and byte streams of H.264 (Annex B): keys and BER lengths of
// packets, items of sets, entries of primers, fields of partition packs, arrays of index tables, NAL units. Every third
// time, and where there is nothing of that kind, it changes bytes as the driver would, but no fill.
size_t Mutate(std::span<uint8_t> room, size_t size, uint32_t seed);

}  // namespace kmxf::fuzz
