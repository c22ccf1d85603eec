#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "kmxf/core/Status.h"
#include "kmxf/writer/CreateMXFOp1b.h"
#include "support/FaultyStream.h"
#include "support/LogRecorder.h"
#include "support/Op1bClip.h"
#include "support/Packets.h"
#include "support/StreamChecks.h"

namespace kmxf::test {

inline constexpr size_t kOp1bHeaderSize = 0x20000;

// 29.97p, 25 Mbit/s: groups of 60 frames.
inline Op1bClip Clip(uint32_t frames, uint8_t channels = 0) { return {0x0200005E, 0x1000C100, channels, 2, frames}; }

inline std::vector<Packet> BodyOf(const std::vector<uint8_t>& file) {
    return Packets(file, kOp1bHeaderSize, file.size());
}
inline std::vector<Packet> HeaderOf(const std::vector<uint8_t>& file) { return Packets(file, 0, kOp1bHeaderSize); }

// The pieces that a client writes, kept until the end of the test.
class KeptPieces {
public:
    StreamPiece* Piece(const std::vector<uint8_t>& bytes) {
        pieces_.push_back(std::make_unique<CMemoryPiece>(bytes.data(), static_cast<uint32_t>(bytes.size())));
        return pieces_.back().get();
    }
    StreamPiece* Piece(uint32_t size) { return Piece(std::vector<uint8_t>(size, 0xA5)); }

private:
    std::vector<std::unique_ptr<CMemoryPiece>> pieces_;
};

class CreateMXFOp1b : public testing::Test {
protected:
    void Open(const Op1bClip& clip) {
        SetFormat(writer, clip);
        ASSERT_EQ(writer.Open("clip.mxf", &stream), kStatusOk);
    }
    int32_t WriteVideo(uint32_t size = 8, uint8_t flags = 0) {
        return writer.WriteVideo(client.Piece(size), 0, 0, flags);
    }
    int32_t WriteAudio(uint32_t size, uint8_t channel) { return writer.WriteAudio(client.Piece(size), channel); }
    // Closed, and nothing left behind.
    void ExpectClosed() {
        EXPECT_FALSE(writer.IsOpened());
        ExpectClosedAndNothingHeld(stream);
    }

    LogRecorder log;
    KeptPieces client;  // its pieces outlive the stream
    FaultyStream stream;
    CCreateMXFOp1b writer;
};

}  // namespace kmxf::test
