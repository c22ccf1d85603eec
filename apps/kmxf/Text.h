#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kmxf/core/Records.h"

// Values as the user writes and reads them.
namespace kmxf::program {

std::string Hex(const uint8_t* bytes, size_t count);  // upper case, no spaces
std::string Hex(const MXFUMIDTag& umid);
std::string HexCode(uint32_t code);  // "0x0100007C"
std::optional<std::vector<uint8_t>> ParseHex(const std::string& hex);
std::optional<MXFUMIDTag> ParseUmid(const std::string& hex);

std::string IsoDate(const MXFTIMESTAMPTag& date);  // 2026-01-02T03:04:05
std::optional<MXFTIMESTAMPTag> ParseIsoDate(const std::string& text);

std::string RateText(const MXFRATIONALTag& rate);  // "30000/1001"

// UTF-16 units of a UTF-8 text; nothing when it is malformed or has characters outside the Basic Multilingual Plane,
// which the file's text fields do not carry through.
std::optional<size_t> TextUnits(const std::string& utf8);

std::string ErrorText(int error);             // what errno says
std::string WithSeparators(uint64_t number);  // 1 234 567

}  // namespace kmxf::program
