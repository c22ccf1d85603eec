#include <cstdlib>

#include "salvage/Recordings.h"

namespace kmxf::test {
namespace {

// Cuts a file shorter and shorter: every place is looked at, without writing the file anew.
class Shortened {
public:
    Shortened(Clip& clip, const Bytes& whole) : path_(clip.Put("C.mxf", whole)) {}
    const std::string& At(size_t size) {
        std::filesystem::resize_file(path_, size);
        return path_;
    }

private:
    std::string path_;
};

// KMXF_CUTS_ALL=1: every place in the headers, and more in the bodies of clips.
bool IsFull() {
    static const bool full = std::getenv("KMXF_CUTS_ALL") != nullptr;
    return full;
}

// Every byte of the pack and of what is in front of the essence, places in all sets, and some among the zeros.
bool IsTried(size_t size, size_t header) {
    if (IsFull() || size < 400 || size + 30 > header || (size + 30 > kHeader && size <= kHeader)) return true;
    return size % (size < 9000 ? 41 : 4093) == 0;
}

TEST(SalvageCuts, ACutInTheHeaderAreaLeavesNothing) {
    const Family& dv = kFamilies[0];
    const Family& intra = kFamilies[4];
    Clip clip;
    const auto begun = [&](const char* name, const AtomFile& atom, const Bytes& essence) {
        return std::pair(Beginning(Clip::Get(clip.Add(name, atom, essence)), kHeader), kHeader);
    };
    const std::pair<Bytes, size_t> recordings[] = {
        begun("V.mxf", {.videoStd = dv.videoStd, .compType = dv.compType, .clipType = 0x100}, Frames(dv, 1)),
        begun("I.mxf", {.videoStd = intra.videoStd, .compType = intra.compType, .clipType = 0x100}, Frames(intra, 1)),
        begun("S.mxf", SoundFile(kSoundKinds[1]), Noise(9000, 2)),
        {Beginning(CutClip(2), kClipHeader), kClipHeader}};
    for (const auto& [whole, header] : recordings) {
        Shortened file(clip, whole);
        for (size_t size = header + 1; size-- > 0;) {
            if (!IsTried(size, header)) continue;
            const SalvagePlan plan = ScanForSalvage({file.At(size)});
            ASSERT_TRUE(plan.IsHopeless()) << size;
            ASSERT_EQ(plan.files[0].fileSize, size);
            ASSERT_FALSE(plan.files[0].reason.empty()) << size;
            ExpectBalanced(plan);
        }
    }
}

std::vector<size_t> Places(size_t from, size_t to, const std::vector<size_t>& boundaries, size_t seeded = 200) {
    std::set<size_t> places;
    for (const size_t boundary : boundaries) {
        for (const size_t place : {boundary - 1, boundary})
            if (place > from && place <= to) places.insert(place);
    }
    std::mt19937 random(20);
    const size_t most = places.size() + seeded;
    while (places.size() < most) places.insert(from + 1 + random() % (to - from));
    return {places.rbegin(), places.rend()};  // the largest first
}

class SalvageCutsOfFamily : public testing::TestWithParam<Family> {};
INSTANTIATE_TEST_SUITE_P(All, SalvageCutsOfFamily, testing::ValuesIn(kFamilies),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_P(SalvageCutsOfFamily, EveryWholeFrameIsKept) {
    const Family& family = GetParam();
    Clip clip;
    const size_t count = family.compType == COMP_TYPE_DV100_720P ? 4 : 3;
    const Bytes essence = Frames(family, count);
    const Bytes whole = Clip::Get(
        clip.Add("C.mxf", {.videoStd = family.videoStd, .compType = family.compType, .clipType = 0x100}, essence));
    const size_t first = kHeader + family.inFront;
    std::vector<size_t> boundaries;
    for (size_t i = 0; i <= count; ++i) boundaries.push_back(first + i * family.frameSize);
    std::set<int64_t> carriedOut;
    Shortened file(clip, whole);
    for (const size_t size : Places(kHeader, whole.size(), boundaries)) {
        SCOPED_TRACE(size);
        const SalvagePlan plan = ScanForSalvage({file.At(size)});
        size_t kept = (std::max(size, first) - first) / family.frameSize;
        if (family.compType == COMP_TYPE_DV100_720P) kept -= kept % 2;
        ASSERT_EQ(plan.duration, static_cast<int64_t>(kept));
        ExpectBalanced(plan);
        if (kept == 0) continue;
        ASSERT_EQ(plan.files[0].lostSize, size - first - kept * family.frameSize);
        if (!carriedOut.insert(plan.duration).second) continue;
        Clip copies;
        const std::string copy = copies.Put("C.mxf", Beginning(whole, size));
        const Bytes salvaged = Salvaged(ScanForSalvage({copy}));
        EXPECT_TRUE(std::equal(whole.begin() + kHeader,
                               whole.begin() + static_cast<std::ptrdiff_t>(first + kept * family.frameSize),
                               salvaged.begin() + kHeader));
    }
}

TEST(SalvageCuts, EveryFrameThatIsFullIsKeptOfSound) {
    for (const SoundKind& kind : kSoundKinds) {
        SCOPED_TRACE(std::to_string(kind.bytesPerSample) + " " + std::to_string(kind.samplesPerSec));
        const auto bytes = [&](int64_t frames) {
            return static_cast<size_t>(DurationToAudioSample(VIDEO_STD_59_94I, frames, kind.samplesPerSec)) *
                   kind.bytesPerSample;
        };
        Clip clip;
        const Bytes whole = Clip::Get(clip.Add("C.mxf", SoundFile(kind), Noise(bytes(12), 4)));
        std::vector<size_t> boundaries;
        for (int64_t i = 0; i <= 12; ++i) boundaries.push_back(kHeader + bytes(i));
        std::set<int64_t> carriedOut;
        Shortened file(clip, whole);
        for (const size_t size : Places(kHeader, whole.size(), boundaries)) {
            SCOPED_TRACE(size);
            const SalvagePlan plan = ScanForSalvage({file.At(size)});
            ExpectBalanced(plan);
            const auto kept = plan.duration;
            // Up to 4 samples that lack to a frame are filled up.
            const size_t spare = size_t{4} * kind.bytesPerSample + kind.bytesPerSample - 1;
            ASSERT_LE(kHeader + bytes(kept), size + spare);
            ASSERT_GT(kHeader + bytes(kept + 1), size);
            if (kept == 0 || !carriedOut.insert(kept).second) continue;
            Clip copies;
            const Bytes salvaged = Salvaged(ScanForSalvage({copies.Put("C.mxf", Beginning(whole, size))}));
            const size_t same = std::min(size - size % kind.bytesPerSample, kHeader + bytes(kept)) - 3;
            EXPECT_TRUE(std::equal(whole.begin() + kHeader, whole.begin() + static_cast<std::ptrdiff_t>(same),
                                   salvaged.begin() + kHeader));
        }
    }
}

class SalvageCutsOfClip : public testing::TestWithParam<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Channels, SalvageCutsOfClip, testing::Values(0u, 2u, 4u), testing::PrintToStringParamName());

TEST_P(SalvageCutsOfClip, GroupsAndTheWholeFramesOfTheLastAreKept) {
    const auto channels = static_cast<uint8_t>(GetParam());
    const Bytes& whole = CutClip(channels);
    Clip clip;
    std::vector<size_t> boundaries;
    for (const InspectedPacket& packet : Walk(whole))
        if (packet.offset > kClipHeader && packet.name != "ANCElement") boundaries.push_back(packet.offset);
    const auto pictures = Elements(whole, "AVCLongGOPElement"), sounds = Elements(whole, "PCMBlockElement");
    ASSERT_EQ(pictures.size(), kClipFrames);
    std::set<int64_t> carriedOut;
    int64_t least = kClipFrames;
    Shortened file(clip, whole);
    size_t number = 0;
    for (const size_t size : Places(kClipHeader, whole.size(), boundaries, IsFull() ? 200 : 40)) {
        SCOPED_TRACE(size);
        const SalvagePlan plan = ScanForSalvage({file.At(size)}, {}, PlainEntries);
        ExpectBalanced(plan);
        const auto there = std::ranges::count_if(pictures, [&](const auto& each) { return each.End() <= size; });
        const size_t last = channels == 0 ? 0 : static_cast<size_t>(plan.duration) / kClipGroupFrames * channels;
        if (channels == 0) {
            ASSERT_EQ(plan.duration, there);
        } else {
            ASSERT_LE(plan.duration, there);
            // A frame more has no sound any more in one of the channels.
            if (plan.duration < there) {
                const WalkedPacket& sound = sounds.at(last + channels - 1);
                const auto frames = static_cast<uint32_t>(plan.duration % kClipGroupFrames) + 1;
                ASSERT_GT(sound.ValueOffset() + SamplesOf(Op1bStandardOf(kClipStandard), frames) * 2, size);
            }
        }
        ASSERT_LE(plan.duration, least) << "less of a file never gives more frames";
        least = plan.duration;
        if (plan.duration == 0 || (!carriedOut.insert(plan.duration).second && ++number % 40 != 0)) continue;
        if (carriedOut.size() > 5 && plan.duration % 20 != 0) continue;
        Clip copies;
        const Bytes salvaged =
            Salvaged(ScanForSalvage({copies.Put("C.mxf", Beginning(whole, size))}, {}, PlainEntries));
        const auto kept = Elements(salvaged, "AVCLongGOPElement");
        ASSERT_EQ(kept.size(), static_cast<size_t>(plan.duration));
        for (size_t i = 0; i < kept.size(); ++i) {
            ASSERT_EQ(kept[i].offset, pictures[i].offset) << "nothing moves";
            ASSERT_EQ(Part(salvaged, kept[i]), Part(whole, pictures[i])) << i;
        }
        const auto keptSound = Elements(salvaged, "PCMBlockElement");
        for (size_t i = 0; i < keptSound.size(); ++i) {
            const Bytes samples = Part(salvaged, keptSound[i]), old = Part(whole, sounds[i]);
            ASSERT_LE(samples.size(), old.size());
            ASSERT_TRUE(std::equal(samples.begin(), samples.end(), old.begin())) << i;
        }
    }
}

}  // namespace
}  // namespace kmxf::test
