#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "OpAtomFixture.h"
#include "kmxf/collaborators/FileIO.h"
#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"
#include "kmxf/writer/OpAtomBase.h"

namespace kmxf::test {

// What a test tells a builder to answer, and what it was asked; it outlives the builder.
struct Script {
    std::map<std::string, int32_t> answers;  // by operation; the others answer 0
    std::vector<std::string> calls;          // "SetDuration 5"
    int built = 0, destroyed = 0;

    int32_t Answer(const std::string& operation, const std::string& arguments = {}) {
        calls.push_back(arguments.empty() ? operation : operation + " " + arguments);
        const auto found = answers.find(operation);
        return found == answers.end() ? kStatusOk : found->second;
    }
};

// A builder of the kind `Builder` that answers by its script. Its header is 32768 bytes of 'H', or of 'h' when it was
// not the first it built; its footer is `footerSize` bytes of 'F'.
template <class Builder>
class ScriptedBuilder final : public Builder {
public:
    static constexpr uint32_t kFooterSize = 224;

    template <class... Arguments>
    explicit ScriptedBuilder(Script& script, Arguments... arguments) : Builder(arguments...), script_(script) {
        ++script_.built;
    }
    ~ScriptedBuilder() override { ++script_.destroyed; }

    int32_t Initialize() override { return script_.Answer("Initialize"); }
    int32_t SetDuration(int64_t duration) override { return script_.Answer("SetDuration", std::to_string(duration)); }
    int32_t SetDataSize(int64_t size) override { return script_.Answer("SetDataSize", std::to_string(size)); }
    int32_t SetStartTimecode(int64_t frames, bool drop) override {
        return script_.Answer("SetStartTimecode", std::to_string(frames) + (drop ? " drop" : ""));
    }
    int32_t SetCreationDate(MXFTIMESTAMPTag date) override {
        return script_.Answer("SetCreationDate", std::to_string(date.year));
    }
    int32_t SetModifiedDate(MXFTIMESTAMPTag date) override {
        return script_.Answer("SetModifiedDate", std::to_string(date.year));
    }
    int32_t SetPackageName(const std::string& name) override { return script_.Answer("SetPackageName", name); }
    int32_t SetUMID(MXFUMIDTag umid) override { return script_.Answer("SetUMID", std::to_string(umid.bytes[0])); }
    int32_t ChangeMaterialUMID(MXFUMIDTag umid) override {
        return script_.Answer("ChangeMaterialUMID", std::to_string(umid.bytes[0]));
    }
    int32_t SetFillerDuration(int64_t duration) override {
        return script_.Answer("SetFillerDuration", std::to_string(duration));
    }
    int32_t SetDMS(const CDescriptiveMetadata& metadata) override {
        return script_.Answer("SetDMS", metadata.GetSceneNumber());
    }
    int32_t GetHeaderData(uint8_t** data) override {
        const int32_t status = script_.Answer("GetHeaderData");
        if (status == kStatusOk) *data = Filled(32768, headers_++ == 0 ? 'H' : 'h');
        return status;
    }
    uint32_t GetHeaderSize() override { return 32768; }
    int32_t GetFooterData(uint8_t** data) override {
        const int32_t status = script_.Answer("GetFooterData");
        if (status == kStatusOk) *data = Filled(kFooterSize, 'F');
        return status;
    }
    uint32_t GetFooterSize() override { return kFooterSize; }

private:
    static uint8_t* Filled(size_t size, int byte) {
        return static_cast<uint8_t*>(std::memset(std::malloc(size), byte, size));
    }

    Script& script_;
    int headers_ = 0;
};

// A client's piece of `size` equal bytes. It must live until its completion.
class Essence final {
public:
    explicit Essence(uint32_t size, int byte = 'e') : piece_(std::vector<uint8_t>(size, Byte(byte)).data(), size) {}
    operator StreamPiece*() { return &piece_; }
    std::span<const uint8_t> Bytes() { return {piece_.GetBuffer(), piece_.GetSize()}; }

private:
    static uint8_t Byte(int byte) { return static_cast<uint8_t>(byte); }
    CMemoryPiece piece_;
};

// Bytes as runs of equal bytes: "H*32768 e*10".
inline std::string Runs(std::span<const uint8_t> bytes) {
    std::string text;
    for (size_t i = 0; i < bytes.size();) {
        const size_t end = static_cast<size_t>(std::find_if(bytes.begin() + static_cast<std::ptrdiff_t>(i), bytes.end(),
                                                            [&](uint8_t byte) { return byte != bytes[i]; }) -
                                               bytes.begin());
        if (!text.empty()) text += ' ';
        text += std::string(1, static_cast<char>(bytes[i])) + '*' + std::to_string(end - i);
        i = end;
    }
    return text;
}

inline bool Contains(std::span<const uint8_t> bytes, std::span<const uint8_t> part) {
    return std::search(bytes.begin(), bytes.end(), part.begin(), part.end()) != bytes.end();
}

}  // namespace kmxf::test
