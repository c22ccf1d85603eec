#include <gtest/gtest.h>

#include <charconv>
#include <sstream>
#include <string>
#include <vector>

#include "roundtrip/Op1bFormats.h"
#include "support/LogRecorder.h"
#include "support/Op1bClip.h"
#include "support/Op1bLayout.h"
#include "support/Packets.h"
#include "support/TestData.h"
#include "support/Walk.h"

namespace kmxf::test {
namespace {

// The Long-GOP types that a clip of this standard can have: 1080 lines at every standard, 720 at the progressive ones.
std::vector<uint32_t> TypesOf(uint32_t videoStd) {
    std::vector<uint32_t> types = {0x0400C100, 0x0C00C100, 0x1000C100, 0x2000C100};
    if (videoStd >> 24 == 2) types.insert(types.end(), {0x0400C200, 0x0C00C200, 0x1000C200, 0x2000C200});
    return types;
}

void CheckClip(const Op1bClip& clip) {
    SCOPED_TRACE(Name(clip));
    const auto file = RecordClip(clip);
    Op1bLayout(file, clip).Check();
}

class Op1bLayoutOf : public testing::TestWithParam<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(EachStandard, Op1bLayoutOf, testing::ValuesIn(Op1bStandardCodes()));

// Sample sizes and layouts take turns: each number of channels meets all four.
TEST_P(Op1bLayoutOf, EveryTypeWithEveryNumberOfChannelsHoldsForOneFrame) {
    const LogRecorder log;
    size_t turn = 0;
    for (const uint32_t type : TypesOf(GetParam())) {
        for (const uint8_t channels : kChannelCounts) {
            CheckClip({GetParam(), type, channels, static_cast<uint8_t>(2 + turn % 2), 1, turn / 2 % 2 == 1});
            if (HasFailure()) return;
            ++turn;
        }
    }
    EXPECT_EQ(log.Lines(), std::vector<std::string>());
}

// Types and hidden frames take turns as well; all numbers of frames meet all numbers of channels.
TEST_P(Op1bLayoutOf, EveryNumberOfFramesWithEveryNumberOfChannelsHolds) {
    const LogRecorder log;
    const auto types = TypesOf(GetParam());
    const uint32_t group = Op1bStandardOf(GetParam()).groupFrames;
    size_t turn = 0;
    for (const uint32_t frames : {1u, group - 1, group, group + 1, 2 * group + 10}) {
        for (const uint8_t channels : kChannelCounts) {
            const uint32_t turns = frames * channels > 300 ? 1 : 2;  // much sound is written once only
            for (uint32_t i = 0; i < turns; ++i, ++turn) {
                CheckClip({GetParam(), types[turn % types.size()], channels, static_cast<uint8_t>(2 + turn % 2), frames,
                           turn / 2 % 2 == 1, static_cast<uint32_t>(turn % 3)});
                if (HasFailure()) return;
            }
        }
    }
    EXPECT_EQ(log.Lines(), std::vector<std::string>());
}

// The library's own walk finds the packets of the independent one, all of them whole.
TEST_P(Op1bLayoutOf, InspectingFindsEveryPacketInItsPlace) {
    for (const bool players : {false, true}) {
        const auto file =
            RecordClip({GetParam(), 0x2000C100, 2, 3, Op1bStandardOf(GetParam()).groupFrames + 1, players});
        const auto expected = Packets(file, 0, file.size());
        const auto walked = Walk(file);
        ASSERT_EQ(walked.size(), expected.size());
        for (size_t i = 0; i < walked.size(); ++i) {
            EXPECT_EQ(walked[i].offset, expected[i].offset);
            EXPECT_EQ(walked[i].ValueOffset(), expected[i].valueOffset);
            EXPECT_EQ(walked[i].length, expected[i].value.size());
            EXPECT_TRUE(walked[i].whole);
            EXPECT_NE(walked[i].kind, PacketKind::kDark);
            EXPECT_FALSE(walked[i].name.empty()) << "packet at " << walked[i].offset;
        }
        const auto packs = Named(walked, "BodyPartitionPack");
        ASSERT_EQ(packs.size(), 16u);  // picture, ANC and two sounds with their index, in two groups
        EXPECT_EQ(packs[4].pack->GetBodySID(), 3u);
        EXPECT_EQ(packs[5].pack->GetIndexSID(), 103u);
    }
}

// --- real pictures ---

// One access unit as the side file of a stream describes it: a line each.
struct AccessUnit {
    size_t offset = 0, size = 0;
    int temporalOffset = 0, keyFrameOffset = 0, flags = 0;
};
std::vector<AccessUnit> AccessUnits(const std::string& sideFile) {
    const auto bytes = LoadTestData(sideFile);
    std::istringstream lines(std::string(bytes.begin(), bytes.end()));
    std::vector<AccessUnit> units;
    for (std::string line; std::getline(lines, line);) {
        if (line.find("{\"index\": ") == line.npos) continue;
        const auto number = [&](const std::string& name) {
            const size_t at = line.find('"' + name + "\": ");
            if (at == line.npos) throw std::runtime_error("an access unit without " + name);
            int value = 0;
            std::from_chars(line.data() + at + name.size() + 4, line.data() + line.size(), value);
            return value;
        };
        units.push_back({static_cast<size_t>(number("offset")), static_cast<size_t>(number("size")),
                         number("temporal_offset"), number("key_frame_offset"), number("flags_with_sequence_bit")});
    }
    return units;
}

TEST(Op1bLayout, ARealStreamIsStoredUnitByUnitWithItsIndex) {
    const auto stream = LoadTestData("essence/longg25-1080-5994i.264");
    const auto units = AccessUnits("essence/longg25-1080-5994i.au.json");
    const auto wave = LoadTestData("essence/tone-16bit-mono.wav");
    const std::vector<uint8_t> sound(wave.end() - 38440 * 2, wave.end());  // behind a header of 44 bytes
    ASSERT_EQ(units.size(), 24u);

    CMemoryFileIO file;
    CCreateMXFOp1b writer;
    SetFormat(writer, {0x0100007C, 0x1000C100, 1});
    ASSERT_EQ(writer.Open("real.mxf", &file), kStatusOk);
    for (const AccessUnit& unit : units) {
        CMemoryPiece piece(stream.data() + unit.offset, static_cast<uint32_t>(unit.size));
        ASSERT_EQ(writer.WriteVideo(&piece, static_cast<int8_t>(unit.temporalOffset),
                                    static_cast<int8_t>(unit.keyFrameOffset), static_cast<uint8_t>(unit.flags)),
                  static_cast<int32_t>((unit.size + 3) / 4 * 4));
    }
    CMemoryPiece block(sound.data(), static_cast<uint32_t>(sound.size()));
    ASSERT_EQ(writer.WriteAudio(&block, 0), 76880);
    const LogRecorder log;
    ASSERT_EQ(writer.Close(), kStatusOk);
    EXPECT_EQ(log.Lines(), std::vector<std::string>());  // the sound has the length that belongs to the frames

    const auto& bytes = file.GetContents();
    const auto packets = Packets(bytes, 0x20000, bytes.size());
    ASSERT_GT(packets.size(), 27u);
    std::vector<uint8_t> stored;
    auto entries = Hex("00 00 00 18 00 00 00 0B");
    uint64_t streamOffset = 0;
    for (size_t i = 0; i < units.size(); ++i) {
        const Packet& element = packets[1 + i];
        ASSERT_EQ(element.key, Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 15 01 05 01")) << i;
        ASSERT_EQ(element.value.size(), (units[i].size + 3) / 4 * 4) << i;
        stored.insert(stored.end(), element.value.begin(),
                      element.value.begin() + static_cast<std::ptrdiff_t>(units[i].size));
        for (size_t rest = units[i].size; rest < element.value.size(); ++rest) EXPECT_EQ(element.value[rest], 0) << i;
        for (const int number : {units[i].temporalOffset, units[i].keyFrameOffset, units[i].flags}) {
            entries.push_back(static_cast<uint8_t>(number));
        }
        for (int shift = 56; shift >= 0; shift -= 8) entries.push_back(static_cast<uint8_t>(streamOffset >> shift));
        streamOffset += element.End() - element.offset;
    }
    EXPECT_TRUE(SameBytes(stream, stored));
    EXPECT_TRUE(SameBytes(entries, packets[26].Item(0x3F0A)));
    EXPECT_EQ(packets[26].Item(0x3F0D), Hex("00 00 00 00 00 00 00 18"));
    const auto element = std::find_if(packets.begin(), packets.end(), [](const Packet& packet) {
        return packet.key == Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 16 01 0C 01");
    });
    ASSERT_NE(element, packets.end());
    EXPECT_TRUE(SameBytes(sound, element->value));
}

}  // namespace
}  // namespace kmxf::test
