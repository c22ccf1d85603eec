#include "kmxf/tools/SalvagePlan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/FailingDisk.h"
#include "support/Hex.h"
#include "support/TestData.h"
#include "tools/SalvageFiles.h"

namespace kmxf::test {
namespace {

namespace fs = std::filesystem;

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

// What is missing of its end can be no more than a table that was whole.
TEST(SalvagePlan, ClosedFileThatIsCutInItsFooterIsNotComplete) {
    for (const Family& family : {kFamilies[0], kFamilies[5]}) {
        SCOPED_TRACE(family.name);
        Clip clip;
        const Bytes essence = Frames(family, 2);
        const Bytes whole = Clip::Get(clip.Add(
            "C.mxf", {.videoStd = family.videoStd, .compType = family.compType, .clipType = 0x100}, essence, true));
        const size_t footer = kHeader + family.inFront + essence.size();
        // At the ends of the pack and of the index segments, and beside them
        for (const size_t there : {0u, 4u, 120u, 124u, 128u, 220u, 224u, 228u, 320u}) {
            const size_t size = footer + there;
            if (size >= whole.size()) break;
            SCOPED_TRACE(size);
            const std::string path =
                clip.Put("C.mxf", Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
            const SalvagePlan plan = ScanForSalvage({path});
            ASSERT_FALSE(plan.IsComplete());
            EXPECT_EQ(plan.duration, 2);
            EXPECT_FALSE(plan.LosesAnything());
            ExpectSalvaged(plan);
        }
    }
}

constexpr size_t kElement = kHeader - 24;   // where the element of the essence begins
constexpr size_t kPack = 124, kFill = 512;  // sizes of a body partition pack, and of a fill item behind it

Bytes BehindAFill(Bytes file) {
    Bytes fill = Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00 83 00 01 EC");
    fill.resize(kFill);
    file.insert(file.begin() + kElement, fill.begin(), fill.end());
    return file;
}

// To the 8 bytes of a number in a file.
void AddTo(Bytes& file, size_t at, uint64_t what) {
    for (size_t i = 8; i-- > 0; what >>= 8) {
        what += file[at + i];
        file[at + i] = static_cast<uint8_t>(what);
    }
}

TEST(SalvagePlan, FileWhoseEssenceBeginsElsewhereIsNotTouched) {
    Clip clip;
    const auto expectRefused = [&](const Bytes& file, const std::string& place) {
        SCOPED_TRACE(place);
        const std::string path = clip.Put("X.mxf", file);
        const SalvagePlan plan = ScanForSalvage({path});
        EXPECT_TRUE(plan.IsHopeless());
        EXPECT_EQ(plan.files[0].reason,
                  "its essence begins at byte " + place + ", not at 32768 as in the recordings that can be mended");
        EXPECT_TRUE(CarryOutSalvage(plan, InPlace(plan)).done);
        EXPECT_EQ(Clip::Get(path), file);
    };
    for (const bool close : {false, true}) {
        const Bytes whole = Clip::Get(clip.Add("C.mxf", {.clipType = 0x100}, DVFrames(120000, 2), close));
        Bytes behindRunIn(100, 0x20);
        behindRunIn.insert(behindRunIn.end(), whole.begin(), whole.end());
        expectRefused(behindRunIn, "32868");

        const Bytes fill = Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00 83");
        Bytes smaller = whole;
        const auto item = std::search(smaller.begin(), smaller.end(), fill.begin(), fill.end());
        ASSERT_LT(item - smaller.begin(), 20000);
        ASSERT_GE(item[18], 0x20);
        item[18] = static_cast<uint8_t>(item[18] - 0x20);
        smaller.erase(item + 20, item + 20 + 8192);
        expectRefused(smaller, "24576");
    }
    expectRefused(BehindAFill(Clip::Get(clip.Add("C.mxf", {.clipType = 0x100}, DVFrames(120000, 2)))), "33280");
}

TEST(SalvagePlan, CompleteFileWhoseEssenceBeginsElsewhereIsLeftAlone) {
    Clip clip;
    Bytes whole = Clip::Get(clip.Add("C.mxf", {.clipType = 0x101}, DVFrames(120000, 2), true));
    const size_t body = kElement - kPack, footer = kHeader + size_t{2} * 120000 + kFill;
    whole = BehindAFill(whole);
    // The packs tell of the footer where it is now, and it tells where it is itself.
    for (const size_t field : {size_t{44}, body + 44, footer + 28, footer + 44}) AddTo(whole, field, kFill);
    clip.Put("C.mxf", whole);
    clip.Add("C00.mxf", {.compType = 0, .clipType = 0x101}, Noise(22424, 3));
    const SalvagePlan plan = ScanForSalvage(FindSalvageFiles(clip.Path("C.mxf")));
    ASSERT_EQ(plan.files.size(), 2u);
    EXPECT_EQ(plan.files[0].reason, "it is complete");
    EXPECT_EQ(plan.files[0].action, SalvageAction::kLeave);
    EXPECT_EQ(plan.files[1].action, SalvageAction::kMend);
    EXPECT_EQ(plan.duration, 2);
}

TEST(SalvagePlan, ADamagedHeadOfTheEssenceCostsNoFrame) {
    Clip clip;
    const Bytes whole = Clip::Get(clip.Add("C.mxf", {.clipType = 0x100}, DVFrames(120000, 3)));
    for (size_t at = kElement; at < kHeader; ++at) {
        for (const uint8_t value : {uint8_t{0}, uint8_t{7}, uint8_t{0xFF}}) {
            SCOPED_TRACE(std::to_string(at) + " " + std::to_string(value));
            Bytes damaged = whole;
            damaged[at] = value;
            const SalvagePlan plan = ScanForSalvage({clip.Put("C.mxf", damaged)});
            ASSERT_EQ(plan.duration, 3) << plan.files[0].reason;
        }
    }
}

TEST(SalvagePlan, PicturesOfWhichNothingIsThereAreNoPartOfWhatIsLeft) {
    for (const size_t size : {size_t{0}, size_t{100}, kHeader, kHeader + 1000}) {
        SCOPED_TRACE(size);
        Clip clip;
        const Bytes picture = Clip::Get(clip.Add("C.mxf", {.clipType = 0x102}, DVFrames(120000, 1)));
        const std::string path =
            clip.Put("C.mxf", Bytes(picture.begin(), picture.begin() + static_cast<std::ptrdiff_t>(size)));
        clip.Add("C00.mxf", {.compType = 0, .clipType = 0x102}, Noise(22424, 3));
        clip.Add("C01.mxf", {.compType = 0, .clipType = 0x102, .channel = 1}, Noise(22424, 4));
        const SalvagePlan plan = ScanForSalvage(FindSalvageFiles(clip.Path("C.mxf")));
        ASSERT_EQ(plan.files.size(), 3u);
        EXPECT_EQ(plan.duration, 7);
        EXPECT_EQ(plan.clipType, 0x002u);
        ExpectSalvaged(plan);
        EXPECT_EQ(Clip::Get(path).size(), size) << "it is left as it is";
    }
}

TEST(SalvagePlan, NameThatEndsInDigitsIsNoSoundWhereItsHeaderTellsOfPictures) {
    Clip clip;
    fs::resize_file(clip.Add("C01.mxf", {.clipType = 0x101}, DVFrames(120000, 1)), 40000);
    clip.Add("C0100.mxf", {.compType = 0, .clipType = 0x101}, Noise(22424, 3));
    const SalvagePlan plan = ScanForSalvage(FindSalvageFiles(clip.Path("C01.mxf")));
    ASSERT_EQ(plan.files.size(), 2u);
    EXPECT_EQ(plan.clipType, 0x001u);
    ExpectSalvaged(plan);
}

TEST(SalvagePlan, PicturesThatAreThereStayInTheClipThoughTheirFormatIsNamedWrongly) {
    Clip clip;
    clip.Add("C.mxf", {.clipType = 0x101}, DVFrames(120000, 2));
    clip.Add("C00.mxf", {.compType = 0, .clipType = 0x101}, Noise(22424, 3));
    const SalvagePlan plan = ScanForSalvage(FindSalvageFiles(clip.Path("C.mxf")), {.compType = COMP_TYPE_DV100_720P});
    ASSERT_EQ(plan.files.size(), 2u);
    EXPECT_EQ(plan.files[0].reason, "its format has no frame size");
    EXPECT_EQ(plan.clipType, 0x101u);
}

TEST(SalvagePlan, ItIsToldWhetherNamingAFormatWouldHelp) {
    Clip clip;
    const auto wants = [&](const std::string& path) { return ScanForSalvage({path}).files[0].wantsFormat; };
    EXPECT_TRUE(wants(clip.Put("A.mxf", Noise(200000, 5))));
    EXPECT_FALSE(wants(clip.Put("B.mxf", {})));
    EXPECT_FALSE(wants(clip.Add("C.mxf", {.clipType = 0x100}, DVFrames(120000, 1))));
    EXPECT_TRUE(wants(clip.Put("D00.mxf", Noise(200000, 6)))) << "sound without pictures and header";
}

TEST(SalvagePlan, FilesTakenForThemselvesAreNotHeldAgainstTheirClip) {
    for (const bool alone : {false, true}) {
        Clip clip;
        const std::string path = clip.Add("C00.mxf", {.compType = 0, .clipType = 0x102}, Noise(3204, 3));
        const SalvagePlan plan = ScanForSalvage({path}, {.videoStd = VIDEO_STD_59_94I, .alone = alone});
        const SalvageResult result = CarryOutSalvage(plan, InPlace(plan));
        EXPECT_EQ(result.failure, "");
        const auto isOfTheClip = [](const CheckFinding& finding) { return finding.rule.starts_with("CL-"); };
        EXPECT_EQ(std::ranges::none_of(result.findings, isOfTheClip), alone);
        EXPECT_EQ(result.findings.empty(), alone);
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

// Whatever its header has lost, the pictures stay together with their sound, and get back what the others know.
TEST(SalvagePlan, DamageInTheHeaderOfThePicturesSplitsNoClip) {
    Clip clip;
    const auto with = [](uint8_t number) {
        return [number](CCreateMXFBase& writer) {
            writer.SetStartTimecode(107892, true);
            writer.SetUMID(TestUmid(number));
            writer.SetShotUMID(TestUmid(9));
        };
    };
    const auto sound = [&](uint8_t channel) {
        const auto number = static_cast<uint8_t>(channel + 2);
        return AtomFile{.compType = 0, .clipType = 0x102, .channel = channel, .with = with(number)};
    };
    const Bytes samples = Noise(3204 * 2, 3);  // 2 frames
    const Bytes picture = Clip::Get(
        clip.Add("C.mxf", {.clipType = 0x102, .with = with(1)}, LoadTestData("essence/dv25-5994i.dif"), true));
    clip.Add("C00.mxf", sound(0), samples, true);
    clip.Add("C01.mxf", sound(1), samples, true);
    ASSERT_TRUE(ScanForSalvage(FindSalvageFiles(clip.Path("C.mxf"))).IsComplete());
    for (size_t at = 0; at < kHeader; at += 512) {
        SCOPED_TRACE(at);
        Bytes damaged = picture;
        std::fill_n(damaged.begin() + static_cast<std::ptrdiff_t>(at), std::min<size_t>(4096, kHeader - at),
                    uint8_t{0});
        clip.Put("C.mxf", damaged);
        const SalvagePlan plan = ScanForSalvage(FindSalvageFiles(clip.Path("C00.mxf")));
        ASSERT_EQ(plan.files.size(), 3u);
        const Bytes first = Clip::Get(clip.Path("C00.mxf")), second = Clip::Get(clip.Path("C01.mxf"));
        if (plan.IsComplete()) {
            EXPECT_EQ(CheckedClip({damaged, first, second}), std::vector<std::string>());
            continue;
        }
        EXPECT_EQ(plan.duration, 2);
        EXPECT_EQ(plan.materialUMID, TestUmid(9));
        EXPECT_EQ(plan.startTimecode, 107892);
        EXPECT_TRUE(plan.startDrop);
        ExpectSalvaged(plan);
        EXPECT_EQ(Clip::Get(clip.Path("C00.mxf")), first);
        EXPECT_EQ(Clip::Get(clip.Path("C01.mxf")), second);
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
    std::rotate(found.begin(), found.begin() + 1, found.end());
    EXPECT_EQ(found, expected);
    EXPECT_EQ(ScanForSalvage({clip.Path(".TAKE03.mxf.part77")}).files[0].name, "TAKE03.mxf");
}

TEST(SalvagePlan, WhatAKilledWriterLeftIsNoPartOfAnotherClipOfItsName) {
    Clip clip;
    clip.Add("C.mxf", {.clipType = 0x100}, DVFrames(120000, 3), true);
    clip.Add("C00.mxf", {.compType = 0, .clipType = 0x101}, Noise(16016, 5), true);
    const Bytes open = Clip::Get(clip.Add("O.mxf", {.clipType = 0x100}, DVFrames(120000, 2)));
    fs::remove(clip.Path("O.mxf"));
    for (const char* name : {".C.mxf.part11", ".C.mxf.part12"}) clip.Put(name, open);
    clip.Add(".C00.mxf.part12", {.compType = 0, .clipType = 0x101}, Noise(8008, 5));
    EXPECT_EQ(GroupSalvageFiles(ListSalvageFiles(fs::path(clip.Path("x")).parent_path().string())),
              (std::vector<std::vector<std::string>>{{clip.Path(".C.mxf.part11")},
                                                     {clip.Path(".C.mxf.part12"), clip.Path(".C00.mxf.part12")},
                                                     {clip.Path("C.mxf"), clip.Path("C00.mxf")}}));
}

TEST(SalvagePlan, CompletePicturesStayAndCompleteSoundComesToBeAsLong) {
    Clip whole;
    const std::string picture = whole.Add("C.mxf", {.clipType = 0x101}, DVFrames(120000, 5), true);
    whole.Add("C00.mxf", {.compType = 0, .clipType = 0x101}, Noise(6408, 5));
    const SalvagePlan left = ScanForSalvage(FindSalvageFiles(picture));
    ASSERT_EQ(left.files.size(), 2u);
    EXPECT_EQ(left.files[0].action, SalvageAction::kLeave);
    EXPECT_EQ(left.files[0].framesKept, 5);
    const Bytes before = Clip::Get(picture);
    EXPECT_TRUE(CarryOutSalvage(left, InPlace(left)).done);
    EXPECT_EQ(Clip::Get(picture), before);

    Clip cut;
    const std::string sound = cut.Add("C00.mxf", {.compType = 0, .clipType = 0x101}, Noise(16016, 5), true);
    cut.Add("C.mxf", {.clipType = 0x101}, DVFrames(120000, 2));
    const SalvagePlan plan = ScanForSalvage(FindSalvageFiles(sound));
    ASSERT_EQ(plan.files.size(), 2u);
    EXPECT_EQ(plan.duration, 2);
    EXPECT_EQ(plan.files[1].action, SalvageAction::kMend);
    EXPECT_EQ(plan.files[1].framesKept, 2);
    const SalvagePlan kept = ScanForSalvage(FindSalvageFiles(sound), {.keepComplete = true});
    EXPECT_EQ(kept.files[1].action, SalvageAction::kLeave);
    EXPECT_EQ(kept.files[1].framesKept, 5);
}

TEST(SalvagePlan, WhatCannotBeReadIsNotMissingAndIsNotTouched) {
    Clip clip;
    const std::string path = clip.Add("C.mxf", {.clipType = 0x100}, DVFrames(120000, 3));
    const Bytes before = Clip::Get(path);
    const FailingDisk disk(kHeader + 2 * 120000 + 8192);
    const SalvagePlan plan = ScanForSalvage({path});
    ASSERT_NE(plan.Unreadable(), nullptr);
    EXPECT_EQ(plan.Unreadable()->reason, "cannot be read (offset 392256)") << "the end is looked at first";
    EXPECT_TRUE(plan.IsHopeless());
    ExpectBalanced(plan);
    EXPECT_TRUE(CarryOutSalvage(plan, InPlace(plan)).done);
    EXPECT_EQ(Clip::Get(path), before);
}

TEST(SalvagePlan, WhatCannotBeOpenedIsGivenUpAndSaid) {
    const SalvagePlan plan = ScanForSalvage({"/nowhere/C.mxf"});
    ASSERT_EQ(plan.files.size(), 1u);
    EXPECT_EQ(plan.files[0].reason, "it cannot be opened");
    EXPECT_TRUE(plan.IsHopeless());
}

TEST(SalvagePlan, AnOp1bClipIsSalvagedWhereverItIsCut) {
    for (const uint32_t channels : {0u, 1u, 2u}) {
        const Op1bClip op1b{VIDEO_STD_59_94I, COMP_TYPE_LONGG25_1080, static_cast<uint8_t>(channels), 2, 130};
        Clip clip;
        const Bytes whole = Record(op1b, {}, false);
        int64_t best = -1;
        for (size_t size = 0x20000; size <= whole.size(); size += whole.size() / 16) {
            SCOPED_TRACE(std::to_string(channels) + " channels, " + std::to_string(size));
            const std::string path =
                clip.Put("C.mxf", Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
            const SalvagePlan plan = ScanForSalvage({path}, {}, PlainEntries);
            ExpectBalanced(plan);
            EXPECT_GE(plan.duration, best) << "more of a file never gives fewer frames";
            best = std::max(best, plan.duration);
            if (plan.IsHopeless()) continue;
            const SalvageResult result = CarryOutSalvage(plan, {path});
            EXPECT_EQ(result.failure, "");
            EXPECT_EQ(Lines(result.findings), std::vector<std::string>());
            EXPECT_TRUE(ScanForSalvage({path}).IsComplete());
        }
        EXPECT_GT(best, 0);
    }
}

}  // namespace
}  // namespace kmxf::test
