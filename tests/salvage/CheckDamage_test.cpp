#include "salvage/Recordings.h"

namespace kmxf::test {
namespace {

constexpr size_t kDamage = 4096;

// 4 KiB of zeros or noise over the key of a packet, anywhere in a closed file. What is inside of a picture or a sound
// leaves no trace in the structure.
void ExpectNamed(const Bytes& whole, uint32_t places) {
    ASSERT_EQ(Checked(whole), std::vector<std::string>());
    const auto packets = Walk(whole);
    std::mt19937 random(23);
    for (uint32_t i = 0; i < places; ++i) {
        const InspectedPacket& packet = packets[random() % packets.size()];
        const size_t before = std::min<size_t>(packet.offset, random() % (kDamage - sizeof(MXFKEYTag)));
        const size_t at = std::min(static_cast<size_t>(packet.offset) - before, whole.size() - kDamage);
        SCOPED_TRACE(std::string(packet.name) + " at " + std::to_string(packet.offset) + ", damage at " +
                     std::to_string(at) + (i % 2 == 0 ? " zeros" : " noise"));
        Bytes damaged = whole;
        const Bytes noise = i % 2 == 0 ? Bytes(kDamage) : Noise(kDamage, i);
        std::ranges::copy(noise, damaged.begin() + static_cast<std::ptrdiff_t>(at));
        ASSERT_FALSE(Checked(damaged).empty());
    }
}

TEST(CheckDamage, IsNamedInFilesOfPictures) {
    for (const Family& family : kFamilies) {
        SCOPED_TRACE(family.name);
        Clip clip;
        ExpectNamed(
            Clip::Get(clip.Add("C.mxf", {.videoStd = family.videoStd, .compType = family.compType, .clipType = 0x100},
                               Frames(family, 2), true)),
            30);
    }
}
TEST(CheckDamage, IsNamedInFilesOfSound) {
    Clip clip;
    ExpectNamed(Clip::Get(clip.Add("C.mxf", SoundFile(kSoundKinds[0]), Noise(32032, 4), true)), 30);
}
TEST(CheckDamage, IsNamedInClips) {
    for (const uint8_t channels : {uint8_t{0}, uint8_t{2}}) {
        SCOPED_TRACE(int{channels});
        ExpectNamed(RecordGroups(channels, true), 60);
    }
}

}  // namespace
}  // namespace kmxf::test
