#include "kmxf/tools/SalvagePlan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/TemporaryFolder.h"
#include "tools/CheckFiles.h"

namespace kmxf::test {
namespace {

namespace fs = std::filesystem;

constexpr size_t kHeader = 32768;

// The ids of all DIF blocks of a frame, with a picture that tells frames apart (SMPTE ST 314).
Bytes DVFrames(size_t frameSize, size_t count) {
    Bytes all = Noise(frameSize * count, 7);
    const size_t sequences = frameSize % 144000 == 0 ? 12 : 10;
    for (size_t block = 0; block < all.size() / 80; ++block) {
        const size_t at = block % (frameSize / 80), place = at % 150;
        size_t section = 4, number = 0;
        if (place == 0) {
            section = 0;
        } else if (place < 3) {
            section = 1, number = place - 1;
        } else if (place < 6) {
            section = 2, number = place - 3;
        } else if ((place - 6) % 16 == 0) {
            section = 3, number = (place - 6) / 16;
        } else {
            number = place - 6 - (place - 6) / 16 - 1;
        }
        uint8_t* const id = all.data() + block * 80;
        id[0] = static_cast<uint8_t>(section << 5 | 0x1F);
        id[1] = static_cast<uint8_t>(at / 150 % sequences << 4 | 7);
        id[2] = static_cast<uint8_t>(number);
    }
    return all;
}

// AVC-Intra frames: a delimiter and ten slices each.
Bytes IntraFrames(size_t frameSize, size_t count) {
    Bytes all = Noise(frameSize * count, 9);
    std::ranges::replace(all, uint8_t{0}, uint8_t{1});
    for (size_t frame = 0; frame < count; ++frame) {
        for (size_t slice = 0; slice < 11; ++slice) {
            const uint8_t nal[] = {0, 0, 0, 1, static_cast<uint8_t>(slice == 0 ? 0x09 : 0x65)};
            std::ranges::copy(nal,
                              all.begin() + static_cast<std::ptrdiff_t>(frame * frameSize + slice * (frameSize / 11)));
        }
    }
    return all;
}

class Clip {
public:
    // A recording that was cut off, unless it is closed.
    std::string Add(const std::string& name, AtomFile atom, const Bytes& essence, bool close = false) {
        atom.close = close;
        CMemoryFileIO stream;
        Feeder feeder;
        const auto record = [&](CCreateMXFBase& writer) {
            writer.SetFilename("clip.mxf");
            writer.SetVideoStandard(atom.videoStd);
            writer.SetClipType(atom.clipType);
            writer.SetChannel(atom.channel);
            writer.SetSamplesPerSec(atom.samplesPerSec);
            writer.SetUMID(TestUmid(static_cast<uint8_t>(atom.IsSound() ? 2 + atom.channel : 1)));
            writer.SetShotUMID(TestUmid(0xC1));
            writer.SetPackageName("A001C007");
            writer.SetStartTimecode(107892, true);
            EXPECT_EQ(writer.Open(&stream, true), kStatusOk);
            feeder.Write(writer, essence, {400000});
            if (close) {
                EXPECT_EQ(writer.Close(), kStatusOk);
            }
        };
        if (atom.IsSound()) {
            CCreateMXFAudio writer;
            writer.SetBytesPerSample(atom.bytesPerSample);
            record(writer);
        } else {
            CCreateMXFVideo writer;
            writer.SetDVType(atom.compType);
            record(writer);
        }
        return Put(name, stream.GetContents());
    }
    std::string Put(const std::string& name, const Bytes& content) {
        const std::string path = (folder_.Path() / name).string();
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
        return path;
    }
    static Bytes Get(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    std::string Path(const std::string& name) const { return (folder_.Path() / name).string(); }

private:
    TemporaryFolder folder_;
};

std::vector<std::string> InPlace(const SalvagePlan& plan) {
    std::vector<std::string> targets;
    for (const SalvagedFile& file : plan.files) targets.push_back(file.path);
    return targets;
}

void ExpectBalanced(const SalvagePlan& plan) {
    for (const SalvagedFile& file : plan.files) {
        uint64_t lost = 0;
        for (const SalvageLoss& loss : file.losses) lost += loss.size;
        EXPECT_EQ(file.lostSize, lost);
        if (file.action != SalvageAction::kGiveUp) {
            EXPECT_EQ(file.fileSize, file.keptSize + file.lostSize + file.rebuiltSize) << file.path;
        }
    }
}

void ExpectSalvaged(const SalvagePlan& plan) {
    ExpectBalanced(plan);
    const SalvageResult result = CarryOutSalvage(plan, InPlace(plan));
    EXPECT_EQ(result.failure, "");
    EXPECT_EQ(Lines(result.findings), std::vector<std::string>());
}

struct Family {
    const char* name;
    uint32_t videoStd, compType;
    size_t frameSize, inFront;
};
constexpr Family kFamilies[] = {
    {"DV25", VIDEO_STD_59_94I, COMP_TYPE_DV25, 120000, 0},
    {"DV50", VIDEO_STD_50I, COMP_TYPE_DV50, 288000, 0},
    {"DV100", VIDEO_STD_59_94I, COMP_TYPE_DV100_1080I, 480000, 0},
    {"DV100p", VIDEO_STD_59_94P, COMP_TYPE_DV100_720P, 240000, 0},
    {"AVCI50", VIDEO_STD_59_94P, COMP_TYPE_AVCI50_720, 116224, 512},
    {"AVCI100", VIDEO_STD_50I, COMP_TYPE_AVCI100_1080, 568320, 512},
};

Bytes Frames(const Family& family, size_t count) {
    return family.inFront == 0 ? DVFrames(family.frameSize, count) : IntraFrames(family.frameSize, count);
}

TEST(SalvagePlan, EveryFamilyKeepsEveryWholeFrameWhereverItIsCut) {
    for (const Family& family : kFamilies) {
        SCOPED_TRACE(family.name);
        Clip clip;
        const Bytes essence = Frames(family, 4);
        const std::string path =
            clip.Add("C.mxf", {.videoStd = family.videoStd, .compType = family.compType, .clipType = 0x100}, essence);
        const Bytes whole = Clip::Get(path);
        const size_t first = kHeader + family.inFront;
        ASSERT_EQ(whole.size(), first + essence.size());
        for (const size_t cut : {size_t{1}, family.frameSize / 2, family.frameSize + 80, 2 * family.frameSize}) {
            SCOPED_TRACE(cut);
            const size_t size = whole.size() - cut;
            clip.Put("C.mxf", Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
            const SalvagePlan plan = ScanForSalvage({path});
            size_t kept = (size - first) / family.frameSize;
            if (family.compType == COMP_TYPE_DV100_720P) kept -= kept % 2;
            ASSERT_EQ(plan.duration, static_cast<int64_t>(kept));
            EXPECT_EQ(plan.files[0].lostSize, size - first - kept * family.frameSize);
            ExpectSalvaged(plan);
            const Bytes salvaged = Clip::Get(path);
            EXPECT_TRUE(std::equal(essence.begin(),
                                   essence.begin() + static_cast<std::ptrdiff_t>(kept * family.frameSize),
                                   salvaged.begin() + static_cast<std::ptrdiff_t>(first)));
            const SalvagePlan again = ScanForSalvage({path});
            EXPECT_TRUE(again.IsComplete());
            EXPECT_FALSE(again.LosesAnything());
        }
    }
}

TEST(SalvagePlan, ACutInTheHeaderAreaLeavesNothing) {
    Clip clip;
    const Bytes whole = Clip::Get(clip.Add("C.mxf", {.clipType = 0x100}, DVFrames(120000, 1)));
    for (size_t size = 0; size <= kHeader; size += size < 6000 ? 97 : 4001) {
        const Bytes part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        const std::string path = clip.Put("C.mxf", part);
        const SalvagePlan plan = ScanForSalvage({path});
        EXPECT_TRUE(plan.IsHopeless()) << size;
        ExpectBalanced(plan);
        EXPECT_TRUE(CarryOutSalvage(plan, InPlace(plan)).done);
        EXPECT_EQ(Clip::Get(path), part);
    }
}

TEST(SalvagePlan, SoundIsCutOrFilledToThePicture) {
    for (const uint16_t bytesPerSample : {uint16_t{2}, uint16_t{3}}) {
        for (const uint32_t rate : {48000u, 96000u}) {
            SCOPED_TRACE(std::to_string(bytesPerSample) + " " + std::to_string(rate));
            Clip clip;
            const auto bytes = [&](int64_t frames) {
                return static_cast<size_t>(DurationToAudioSample(VIDEO_STD_59_94I, frames, rate)) * bytesPerSample;
            };
            const AtomFile sound{
                .compType = 0, .clipType = 0x102, .samplesPerSec = rate, .bytesPerSample = bytesPerSample};
            clip.Add("C.mxf", {.clipType = 0x102}, DVFrames(120000, 3));
            const Bytes samples = Noise(bytes(5), 3);
            clip.Add("C00.mxf", sound, samples);
            AtomFile second = sound;
            second.channel = 1;
            clip.Add("C01.mxf", second,
                     Bytes(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(bytes(2))));

            const SalvagePlan plan = ScanForSalvage(FindSalvageFiles(clip.Path("C01.mxf")));
            ASSERT_EQ(plan.files.size(), 3u);
            EXPECT_EQ(plan.duration, 3);
            EXPECT_EQ(plan.files[1].cutSize, bytes(5) - bytes(3));
            EXPECT_EQ(plan.files[1].silenceSize, 0u);
            EXPECT_EQ(plan.files[2].silenceSize, bytes(3) - bytes(2));
            EXPECT_EQ(plan.files[2].lostSize, 0u);
            ExpectSalvaged(plan);
            const Bytes salvaged = Clip::Get(clip.Path("C01.mxf"));
            EXPECT_TRUE(std::equal(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(bytes(2)),
                                   salvaged.begin() + kHeader));
        }
    }
}

TEST(SalvagePlan, DamageInTheMiddleCostsNoFrameBehindIt) {
    for (const bool zeros : {true, false}) {
        for (const Family& family : {kFamilies[0], kFamilies[4]}) {
            SCOPED_TRACE(family.name);
            Clip clip;
            const Bytes essence = Frames(family, 4);
            const std::string path = clip.Add(
                "C.mxf", {.videoStd = family.videoStd, .compType = family.compType, .clipType = 0x100}, essence);
            const Bytes whole = Clip::Get(path);
            for (size_t at = kHeader; at + 4096 <= whole.size() - family.frameSize; at += 50021) {
                Bytes damaged = whole;
                const Bytes noise = zeros ? Bytes(4096) : Noise(4096, static_cast<uint32_t>(at));
                std::ranges::copy(noise, damaged.begin() + static_cast<std::ptrdiff_t>(at));
                clip.Put("C.mxf", damaged);
                EXPECT_EQ(ScanForSalvage({path}).duration, 4) << at;
            }
        }
    }
}

TEST(SalvagePlan, AFrameOfZerosAtTheEndIsNoneUnlessTheTailIsTrusted) {
    Clip clip;
    Bytes essence = DVFrames(120000, 60);  // more than is looked at in one step
    std::fill(essence.begin() + 10 * 120000 + 800, essence.end(), uint8_t{0});
    const std::string path = clip.Add("C.mxf", {.clipType = 0x100}, essence);
    const SalvagePlan plan = ScanForSalvage({path});
    EXPECT_EQ(plan.duration, 10);
    EXPECT_EQ(plan.files[0].losses, (std::vector<SalvageLoss>{{kHeader + 1200000, 6000000, "no whole frame"}}));
    EXPECT_EQ(ScanForSalvage({path}, {.trustTail = true}).duration, 60);
}

TEST(SalvagePlan, ValuesOfAFinishedHeaderSurvive) {
    Clip clip;
    const std::string path = clip.Add("C.mxf", {.clipType = 0x100}, DVFrames(120000, 4), true);
    Bytes file = Clip::Get(path);
    file.resize(kHeader + 2 * 120000 + 5);
    clip.Put("C.mxf", file);
    const SalvagePlan plan = ScanForSalvage({path});
    EXPECT_EQ(plan.materialUMID, TestUmid(0xC1));
    EXPECT_FALSE(plan.newMaterialUMID);
    EXPECT_EQ(plan.files[0].umid, TestUmid(1));
    EXPECT_EQ(plan.packageName, "A001C007");
    EXPECT_EQ(plan.startTimecode, 107892);
    EXPECT_TRUE(plan.startDrop);
    ExpectSalvaged(plan);
}

TEST(SalvagePlan, AFooterThatNobodyNamesIsNoEssence) {
    Clip clip;
    for (const bool sound : {false, true}) {
        const AtomFile atom{.compType = sound ? 0u : uint32_t{COMP_TYPE_DV25}, .clipType = sound ? 0x001u : 0x100u};
        const Bytes essence = sound ? Noise(8008 * 2, 5) : DVFrames(120000, 2);
        const std::string path = clip.Add("C.mxf", atom, essence, true);
        Bytes file = Clip::Get(path);
        std::fill_n(file.begin() + 44, 8, uint8_t{0});
        for (const size_t cut : {size_t{0}, size_t{100}}) {
            clip.Put("C.mxf", Bytes(file.begin(), file.end() - static_cast<std::ptrdiff_t>(cut)));
            const SalvagePlan plan = ScanForSalvage({path});
            EXPECT_EQ(plan.files[0].keptSize, essence.size());
            EXPECT_EQ(plan.files[0].lostSize, 0u);
            ExpectSalvaged(plan);
        }
    }
}

TEST(SalvagePlan, ACopyLeavesTheInputAlone) {
    Clip clip;
    const std::string path = clip.Add("C.mxf", {.clipType = 0x100}, DVFrames(120000, 2));
    const Bytes before = Clip::Get(path);
    fs::permissions(path, fs::perms::owner_read);
    const SalvagePlan plan = ScanForSalvage({path});
    const SalvageResult result = CarryOutSalvage(plan, {clip.Path("copy.mxf")});
    EXPECT_TRUE(result.IsProven()) << result.failure;
    EXPECT_EQ(Clip::Get(path), before);
    EXPECT_EQ(Checked(Clip::Get(clip.Path("copy.mxf"))), std::vector<std::string>());
    EXPECT_FALSE(CarryOutSalvage(plan, {clip.Path("copy.mxf")}).done) << "it exists";
}

TEST(SalvagePlan, FilesOfAnotherClipWithSuchANameStayOut) {
    Clip clip;
    clip.Add("C.mxf", {.clipType = 0x100}, DVFrames(120000, 2));
    clip.Add("D.mxf", {.clipType = 0x100}, DVFrames(120000, 2));
    clip.Add("C00.mxf", {.compType = 0, .clipType = 0x101}, Noise(8008, 5));
    EXPECT_EQ(FindSalvageFiles(clip.Path("C.mxf")),
              (std::vector<std::string>{clip.Path("C.mxf"), clip.Path("C00.mxf")}));
    EXPECT_EQ(FindSalvageFiles(clip.Path("C00.mxf")),
              (std::vector<std::string>{clip.Path("C.mxf"), clip.Path("C00.mxf")}));
    EXPECT_EQ(FindSalvageFiles(clip.Path("D.mxf")), std::vector<std::string>{clip.Path("D.mxf")});
}

TEST(SalvagePlan, RecordingsWithNumbersForNamesAreNoSoundOfEachOther) {
    Clip clip;
    clip.Add("TAKE01.mxf", {.clipType = 0x100}, DVFrames(120000, 1));
    clip.Add("TAKE02.mxf", {.clipType = 0x100}, DVFrames(120000, 1));
    clip.Add("TAKE0200.mxf", {.compType = 0, .clipType = 0x101}, Noise(3200, 5));
    clip.Put(".TAKE03.mxf.part77", Clip::Get(clip.Path("TAKE01.mxf")));
    const std::vector<std::vector<std::string>> expected = {{clip.Path("TAKE01.mxf")},
                                                            {clip.Path("TAKE02.mxf"), clip.Path("TAKE0200.mxf")},
                                                            {clip.Path(".TAKE03.mxf.part77")}};
    auto found = GroupSalvageFiles(ListSalvageFiles(fs::path(clip.Path("x")).parent_path().string()));
    std::ranges::sort(found, {}, [](const auto& files) { return fs::path(files[0]).filename().string().substr(0, 7); });
    std::ranges::rotate(found, found.begin() + 1);
    EXPECT_EQ(found, expected);
    EXPECT_EQ(ScanForSalvage({clip.Path(".TAKE03.mxf.part77")}).files[0].name, "TAKE03.mxf");
}

TEST(SalvagePlan, WhatCannotBeOpenedIsGivenUpAndSaid) {
    const SalvagePlan plan = ScanForSalvage({"/nowhere/C.mxf"});
    ASSERT_EQ(plan.files.size(), 1u);
    EXPECT_EQ(plan.files[0].reason, "it cannot be opened");
    EXPECT_TRUE(plan.IsHopeless());
}

// The clips of the tests have one key frame in front and nothing that is shown out of order.
std::vector<MXFINDEXENTRYTag> PlainEntries(std::span<const uint8_t>, size_t count) {
    std::vector<MXFINDEXENTRYTag> entries(count);
    for (MXFINDEXENTRYTag& entry : entries) entry.flags = 0x80;
    return entries;
}

TEST(SalvagePlan, AnOp1bClipIsSalvagedWhereverItIsCut) {
    for (const uint32_t channels : {0u, 1u, 2u}) {
        const Op1bClip op1b{VIDEO_STD_59_94I, COMP_TYPE_LONGG25_1080, static_cast<uint8_t>(channels), 2, 130};
        Clip clip;
        const Bytes whole = Record(op1b, {}, false);
        int64_t best = -1;
        for (size_t size = 0x20000; size <= whole.size(); size += whole.size() / 40) {
            SCOPED_TRACE(std::to_string(channels) + " channels, " + std::to_string(size));
            const std::string path =
                clip.Put("C.mxf", Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
            const SalvagePlan plan = ScanForSalvage({path}, {}, PlainEntries);
            ExpectBalanced(plan);
            EXPECT_GE(plan.duration, best) << "more of a file never gives fewer frames";
            best = std::max(best, plan.duration);
            if (plan.IsHopeless()) continue;
            const SalvageResult result = CarryOutSalvage(plan, {path}, PlainEntries);
            EXPECT_EQ(result.failure, "");
            EXPECT_EQ(Lines(result.findings), std::vector<std::string>());
            EXPECT_TRUE(ScanForSalvage({path}).IsComplete());
        }
        EXPECT_GT(best, 0);
    }
}

}  // namespace
}  // namespace kmxf::test
