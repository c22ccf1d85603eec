// What reading and recording OP-1b clips costs, in reads and in memory.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <numeric>
#include <vector>

#include "kmxf/writer/Op1bBase.h"
#include "roundtrip/Op1bRecording.h"
#include "support/FaultyStream.h"
#include "support/HeapUse.h"
#include "support/LogRecorder.h"
#include "support/SparseStream.h"

namespace kmxf::test {
namespace {

TEST(Op1bCost, AFrameOfTheGroupThatIsHeldCostsNothingAndAnyOtherTwoReads) {
    const Op1bClip clip{0x0200005E, 0x1000C100, 2, 2, 130};
    const auto file = RecordClip(clip);
    FaultyStream stream(file);
    CReadMXFOp1b reader;
    ASSERT_EQ(reader.Open("clip.mxf", &stream), kStatusOk);
    VIDEOFRAMEINFOTag info;
    AUDIODATAINFOTag sound;
    uint32_t group = 0;
    // Forth, back, and across.
    std::vector<uint32_t> order(130);
    std::iota(order.begin(), order.end(), 0);
    order.insert(order.end(), order.rbegin(), order.rend());
    for (uint32_t i = 0; i < 130; ++i) order.push_back(i * 61 % 130);
    for (const uint32_t frame : order) {
        const int all = stream.CountOfAll(), reads = stream.Count(Op::kRead);
        ASSERT_EQ(reader.GetVideoInfo(frame, info), kStatusOk);
        if (frame / 60 == group) {
            ASSERT_EQ(stream.CountOfAll(), all) << frame;
        } else {
            ASSERT_EQ(stream.Count(Op::kRead), reads + 2) << frame;
        }
        group = frame / 60;
        const int then = stream.CountOfAll();
        ASSERT_EQ(reader.GetAudioInfo(frame, 1, sound), kStatusOk);
        ASSERT_GE(reader.GetCodingPosition(frame), -1);
        ASSERT_EQ(stream.CountOfAll(), then) << frame;
    }
}

TEST(Op1bCost, TenHoursOpenInAFewReads) {
    constexpr uint32_t kFrames = 10 * 3600 * 60, kGroups = kFrames / 120, kChannels = 4;
    constexpr int64_t kPack = 156, kPictures = 120 * 24;
    // As the writer has it, but all groups are of one size, and only what opening needs is there.
    COp1bBase builder(0x0200007C, 0x2000C100, 3, kChannels);
    ASSERT_EQ(builder.Initialize(), kStatusOk);
    builder.SetDuration(kFrames);
    builder.SetContainerDuration(kFrames);
    SparseStream stream;
    uint8_t* bytes = nullptr;
    const auto put = [&](int64_t offset, uint32_t size) {
        stream.Put(static_cast<uint64_t>(offset), {bytes, size});
        std::free(bytes);
    };
    ASSERT_EQ(builder.GetHeaderData(&bytes), kStatusOk);
    put(0, builder.GetHeaderSize());

    for (uint32_t i = 0; i < 120; ++i) builder.AddIndexEntry(0, 0, 0x22, i * 24);
    ASSERT_EQ(builder.SetBodyPartitionParamVideo(131072, 0, 120, false, true), kStatusOk);
    const int64_t index = 131072 + kPack + kPictures;
    ASSERT_EQ(builder.SetBodyPartitionParamVideo(index, 0, 120, true, false), kStatusOk);
    const uint32_t indexSize = builder.GetBodyPartitionSize(true, false);
    ASSERT_EQ(builder.GetBodyPartitionDataVideo(&bytes, true), kStatusOk);
    put(index, indexSize);

    constexpr int64_t kSound = 24 + 12 * 8008 * 3;  // 120 frames
    int64_t offset = index + indexSize;
    const auto enter = [&](uint32_t bodySID, int64_t size) {
        builder.AddPartitionInfo({static_cast<uint64_t>(offset), bodySID});
        offset += size;
    };
    for (uint32_t group = 0; group < kGroups; ++group) {
        if (group > 0) {
            enter(1, kPack + kPictures);
            enter(0, indexSize);
        }
        enter(2, kPack + 120 * 512);
        enter(0, kPack + 100);
        for (uint32_t c = 0; c < kChannels; ++c) {
            enter(3 + c, kPack + kSound);
            enter(0, kPack + 100);
        }
    }
    enter(0, kPack);  // the footer
    ASSERT_EQ(builder.GetRandomIndexData(&bytes), kStatusOk);
    put(offset, builder.GetRandomIndexSize());
    ASSERT_GT(stream.Size(), uint64_t{20} << 30);

    CReadMXFOp1b reader;
    ASSERT_EQ(reader.Open("clip.mxf", &stream), kStatusOk);
    const int reads = stream.Reads();
    EXPECT_LE(reads, 10);
    EXPECT_EQ(reader.GetDuration(), kFrames);
    EXPECT_EQ(reader.GetAudioCh(), 4u);
    VIDEOFRAMEINFOTag video;
    ASSERT_EQ(reader.GetVideoInfo(119, video), kStatusOk);
    EXPECT_EQ(video.offset, 131072u + 156 + 119 * 24 + 20);
    AUDIODATAINFOTag sound;
    ASSERT_EQ(reader.GetAudioInfo(kFrames - 1, 3, sound), kStatusOk);
    EXPECT_EQ(sound.offset + sound.size + 2 * 156 + 100 - 156, static_cast<uint64_t>(offset) - 156);
    EXPECT_EQ(sound.size, 12u * 8008 * 3);
    EXPECT_EQ(sound.position, (11u * 8008 + 7208) * 3);
    EXPECT_EQ(stream.Reads(), reads);
    const LogRecorder quiet;
    EXPECT_EQ(reader.GetVideoInfo(kFrames - 1, video), kStatusFailure) << "its index is not there";
    EXPECT_LE(stream.Reads(), reads + 3);
}

// Frames of one byte and sound that costs the writer nothing: what it holds is what it must remember of a frame.
TEST(Op1bCost, ALongRecordingHoldsAtMost32BytesAFrame) {
    constexpr uint32_t kFrames = 100000;
    constexpr size_t kConstant = 512 * 1024;  // builder, header, pieces
    const Op1bClip clip{0x0200005E, 0x1000C100, 4};
    CMemoryPiece frame("x", 1), block(SamplesOf(clip.Standard(), 60) * 2);
    SparseStream stream(131072);
    CCreateMXFOp1b writer;
    SetFormat(writer, clip);
    const size_t before = HeapBytes();
    uint32_t writes = 0;
    size_t most = 0;
    stream.OnWrite([&] {
        if (++writes % 16 != 0) return;
        const size_t allowed = kConstant + size_t{32} * writer.GetDuration();
        most = std::max(most, HeapBytes() - before);
        ASSERT_LE(HeapBytes() - before, allowed) << "after " << writer.GetDuration() << " frames";
    });
    ASSERT_EQ(writer.Open("long.mxf", &stream), kStatusOk);
    for (uint32_t i = 0; i < kFrames; ++i) {
        ASSERT_EQ(writer.WriteVideo(&frame, 0, 0, 0x22), 4);
        if ((i + 1) % 60 != 0) continue;
        for (uint8_t c = 0; c < 4; ++c) ASSERT_EQ(writer.WriteAudio(&block, c), static_cast<int32_t>(block.GetSize()));
        if (HasFailure()) return;
    }
    RecordProperty("BytesHeld", static_cast<int>(most));
    EXPECT_GT(most, size_t{11} * kFrames) << "the index of every frame is kept for the footer";
    stream.OnWrite({});  // at the end the footer is built from what was held
    const LogRecorder log;
    ASSERT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(log.Lines().size(), 1u) << "the sound of the last group is missing";
}

}  // namespace
}  // namespace kmxf::test
