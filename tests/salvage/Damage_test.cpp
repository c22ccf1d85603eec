#include "salvage/Recordings.h"

namespace kmxf::test {
namespace {

constexpr size_t kDamage = 4096;

Bytes Damaged(Bytes file, size_t at, bool zeros, uint32_t seed) {
    const size_t size = std::min(kDamage, file.size() - at);
    const Bytes noise = zeros ? Bytes(size) : Noise(size, seed);
    std::ranges::copy(noise, file.begin() + static_cast<std::ptrdiff_t>(at));
    return file;
}

class SalvageDamageOfFamily : public testing::TestWithParam<Family> {};
INSTANTIATE_TEST_SUITE_P(All, SalvageDamageOfFamily, testing::ValuesIn(kFamilies),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_P(SalvageDamageOfFamily, NoFrameIsGivenUpForDamageInFrontOfIt) {
    const Family& family = GetParam();
    Clip clip;
    const size_t count = family.compType == COMP_TYPE_DV100_720P ? 4 : 3;
    const Bytes whole = Clip::Get(clip.Add(
        "C.mxf", {.videoStd = family.videoStd, .compType = family.compType, .clipType = 0x100}, Frames(family, count)));
    const size_t first = kHeader + family.inFront;
    std::mt19937 random(3);
    for (uint32_t i = 0; i < 50; ++i) {
        const size_t at = i < 25 ? random() % (whole.size() - family.frameSize - kDamage) : random() % kHeader;
        SCOPED_TRACE(std::to_string(at) + (i % 2 == 0 ? " zeros" : " noise"));
        const Bytes damaged = Damaged(whole, at, i % 2 == 0, i);
        Clip copies;
        const std::string path = copies.Put("C.mxf", damaged);
        const SalvagePlan plan = ScanForSalvage({path}, {.videoStd = family.videoStd, .compType = family.compType});
        ExpectBalanced(plan);
        ASSERT_EQ(plan.duration, static_cast<int64_t>(count));
        if (i % 5 != 0) continue;
        const Bytes salvaged = Salvaged(plan);
        EXPECT_TRUE(std::equal(damaged.begin() + static_cast<std::ptrdiff_t>(first), damaged.end(),
                               salvaged.begin() + static_cast<std::ptrdiff_t>(first)));
    }
}

TEST(SalvageDamage, SoundIsKeptWholeWithWhatIsDamagedInIt) {
    Clip clip;
    const AtomFile sound = SoundFile(kSoundKinds[0]);
    const Bytes whole = Clip::Get(clip.Add("C.mxf", sound, Noise(32032, 4)));
    for (uint32_t i = 0; i < 50; ++i) {
        const size_t at = i * (whole.size() - kDamage) / 50;
        SCOPED_TRACE(at);
        const Bytes damaged = Damaged(whole, at, i % 2 == 0, i);
        Clip copies;
        copies.Put("C00.mxf", damaged);
        const SalvagePlan plan =
            ScanForSalvage({copies.Path("C00.mxf")}, {.videoStd = VIDEO_STD_59_94I, .bytesPerSample = uint16_t{2}});
        ExpectBalanced(plan);
        ASSERT_EQ(plan.duration, 10);
        if (i % 5 == 0) {
            EXPECT_TRUE(std::equal(damaged.begin() + kHeader, damaged.end(), Salvaged(plan).begin() + kHeader));
        }
    }
}

// A clip keeps all its groups, and of them everything that is not damaged itself.
void ExpectAllKept(const Bytes& whole, const Bytes& damaged, size_t at) {
    Clip copies;
    const std::string path = copies.Put("C.mxf", damaged);
    const SalvagePlan plan = ScanForSalvage({path}, {}, PlainEntries);
    ExpectBalanced(plan);
    ASSERT_EQ(plan.duration, kClipFrames);
    ASSERT_EQ(plan.files[0].lostSize, 0u);
    ASSERT_FALSE(plan.files[0].moves);
    const Bytes salvaged = Salvaged(plan);
    for (const char* const kind : {"AVCLongGOPElement", "PCMBlockElement"}) {
        const auto before = Elements(whole, kind), after = Elements(salvaged, kind);
        ASSERT_EQ(after.size(), before.size());
        for (size_t i = 0; i < before.size(); ++i) {
            const bool hit = before[i].End() > at && before[i].ValueOffset() < at + kDamage;
            if (!hit) {
                ASSERT_EQ(after[i].offset, before[i].offset) << i;
                ASSERT_EQ(Part(salvaged, after[i]), Part(whole, before[i])) << i;
            }
        }
    }
}

class SalvageDamageOfClip : public testing::TestWithParam<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Channels, SalvageDamageOfClip, testing::Values(0u, 2u, 4u), testing::PrintToStringParamName());

TEST_P(SalvageDamageOfClip, ItKeepsItsGroupsWhateverIsDamagedInOne) {
    const auto channels = static_cast<uint8_t>(GetParam());
    const Bytes& whole = CutClip(channels);
    std::mt19937 random(11);
    std::vector<size_t> places;
    for (const char* const name : {"BodyPartitionPack", "PCMBlockElement"}) {
        for (const InspectedPacket& packet : Elements(whole, name)) places.push_back(packet.offset - 10);
    }
    for (int i = 0; i < 10; ++i) places.push_back(kClipHeader + random() % (whole.size() - kClipHeader - kDamage));
    const size_t lastGroup = Elements(whole, "AVCLongGOPElement")[2 * kClipGroupFrames].offset;
    for (uint32_t i = 0; i < places.size(); ++i) {
        const size_t at = places[i];
        if (at < kClipHeader || at + kDamage > lastGroup - 1000) continue;
        SCOPED_TRACE(std::to_string(channels) + " channels, " + std::to_string(at) + (i % 2 ? " zeros" : " noise"));
        ExpectAllKept(whole, Damaged(whole, at, i % 2 != 0, i), at);
    }
}

// Where the table of the last group's pictures is gone, that of its ANC elements tells how many there are.
TEST_P(SalvageDamageOfClip, ItKeepsItsLastGroupWithoutTheIndexOfItsPictures) {
    const auto channels = static_cast<uint8_t>(GetParam());
    for (const bool close : {false, true}) {
        if (channels == 0 && !close) continue;  // without sound the tables of the last group come with Close
        const Bytes whole = RecordGroups(channels, close);
        const auto pictures = Elements(whole, "AVCLongGOPElement");
        const size_t index = pictures.back().End();
        for (const size_t size : {size_t{200}, size_t{900}}) {
            SCOPED_TRACE(std::to_string(size) + (close ? " bytes of a closed clip" : " bytes of an open clip"));
            Bytes damaged = whole;
            std::fill_n(damaged.begin() + static_cast<std::ptrdiff_t>(index), size, uint8_t{0});
            Clip copies;
            const SalvagePlan plan = ScanForSalvage({copies.Put("C.mxf", damaged)}, {}, PlainEntries);
            ExpectBalanced(plan);
            ASSERT_EQ(plan.duration, kClipFrames);
            EXPECT_EQ(plan.files[0].framesFound, kClipFrames);
            EXPECT_EQ(plan.files[0].lostSize, 0u);
            const Bytes salvaged = Salvaged(plan);
            for (const char* const kind : {"AVCLongGOPElement", "PCMBlockElement"}) {
                const auto before = Elements(whole, kind), after = Elements(salvaged, kind);
                ASSERT_EQ(after.size(), before.size());
                for (size_t i = 0; i < before.size(); ++i)
                    ASSERT_EQ(Part(salvaged, after[i]), Part(whole, before[i])) << kind << i;
            }
        }
    }
}

TEST(SalvageDamage, AClipIsKeptThoughItsHeaderIsDamagedOrGone) {
    const Bytes& whole = CutClip(2);
    const SalvageChoice choice{.lookAtPictures = [](std::span<const uint8_t> pictures) {
        const Bytes first = ClipPicture(0);
        EXPECT_TRUE(std::equal(first.begin(), first.end(), pictures.begin()));
        return std::optional(ClipPictureFormat{kClipStandard, COMP_TYPE_LONGG25_1080, false});
    }};
    const auto pictures = Elements(whole, "AVCLongGOPElement");
    for (uint32_t i = 0; i <= 24; ++i) {
        const size_t at = i < 16 ? i * 500 : i * 5000;
        SCOPED_TRACE(at);
        Bytes damaged = Damaged(whole, at, i % 2 == 0, i);
        if (i == 24) std::fill_n(damaged.begin(), kClipHeader, uint8_t{0});
        Clip copies;
        const std::string path = copies.Put("C.mxf", damaged);
        const SalvagePlan plan = ScanForSalvage({path}, choice, PlainEntries);
        ExpectBalanced(plan);
        ASSERT_EQ(plan.duration, kClipFrames);
        EXPECT_EQ(plan.files[0].channels, 2u);
        const Bytes salvaged = Salvaged(plan);
        const auto difference =
            std::mismatch(damaged.begin() + kClipHeader, damaged.end(), salvaged.begin() + kClipHeader);
        EXPECT_EQ(difference.first - damaged.begin(), static_cast<std::ptrdiff_t>(damaged.size()));
    }
}

TEST(SalvageDamage, AHeaderThatIsGoneNeedsSomebodyWhoKnowsTheFormat) {
    Bytes damaged = CutClip(0);
    std::fill_n(damaged.begin(), kClipHeader, uint8_t{0});
    Clip clip;
    const std::string path = clip.Put("C.mxf", damaged);
    const SalvagePlan plan = ScanForSalvage({path}, {}, PlainEntries);
    EXPECT_TRUE(plan.IsHopeless());
    EXPECT_EQ(plan.files[0].reason, "neither its header nor its essence tells its format, which can be named");
    const SalvageChoice choice{.videoStd = kClipStandard, .compType = COMP_TYPE_LONGG25_1080};
    EXPECT_EQ(ScanForSalvage({path}, choice, PlainEntries).duration, kClipFrames);
}

// Bytes that are missing cannot be made up for: the group is lost, and what is behind it moves.
TEST(SalvageDamage, AGroupThatCannotBeToldApartIsLostAlone) {
    for (const uint8_t channels : {uint8_t{0}, uint8_t{2}}) {
        const Bytes& whole = CutClip(channels);
        const auto pictures = Elements(whole, "AVCLongGOPElement");
        const auto packs = Named(Walk(whole), "BodyPartitionPack");
        const auto begin = [&](size_t group) {
            return std::ranges::find_if(packs,
                                        [&](const WalkedPacket& pack) {
                                            return pack.End() == pictures[group * kClipGroupFrames].offset;
                                        })
                ->offset;
        };
        for (const size_t lost : {size_t{0}, size_t{1}}) {
            SCOPED_TRACE(std::to_string(channels) + " channels, group " + std::to_string(lost));
            Bytes damaged = whole;
            std::fill(damaged.begin() + static_cast<std::ptrdiff_t>(begin(lost)),
                      damaged.begin() + static_cast<std::ptrdiff_t>(begin(lost + 1)), uint8_t{0});
            Clip copies;
            const std::string path = copies.Put("C.mxf", damaged);
            const SalvagePlan plan = ScanForSalvage({path}, {}, PlainEntries);
            ExpectBalanced(plan);
            ASSERT_EQ(plan.duration, kClipFrames - kClipGroupFrames);
            EXPECT_EQ(plan.files[0].lostSize, begin(lost + 1) - begin(lost));
            EXPECT_TRUE(plan.files[0].moves);
            EXPECT_EQ(CarryOutSalvage(plan, {path}).failure,
                      path + ": has groups of frames that have to move, which can be done in a copy only");
            EXPECT_EQ(Clip::Get(path), damaged);
            const std::string copy = copies.Path("copy.mxf");
            const SalvageResult result = CarryOutSalvage(plan, {copy});
            EXPECT_EQ(result.failure, "");
            EXPECT_EQ(Lines(result.findings), std::vector<std::string>());
            const Bytes salvaged = Clip::Get(copy);
            const auto kept = Elements(salvaged, "AVCLongGOPElement");
            ASSERT_EQ(kept.size(), kClipFrames - kClipGroupFrames);
            for (size_t i = 0; i < kept.size(); ++i) {
                const size_t old = i < lost * kClipGroupFrames ? i : i + kClipGroupFrames;
                ASSERT_EQ(Part(salvaged, kept[i]), Part(whole, pictures[old])) << i;
            }
        }
    }
}

TEST(SalvageDamage, GroupsWhosePacksAreSwallowedAreNotTakenForOne) {
    const Bytes& whole = CutClip(2);
    const auto pictures = Elements(whole, "AVCLongGOPElement");
    Bytes damaged = whole;
    std::fill(damaged.begin() + static_cast<std::ptrdiff_t>(pictures[10].offset),
              damaged.begin() + static_cast<std::ptrdiff_t>(pictures[kClipGroupFrames + 40].offset), uint8_t{0});
    // The index of the second group, too.
    const size_t end = pictures[2 * kClipGroupFrames - 1].End();
    std::fill_n(damaged.begin() + static_cast<std::ptrdiff_t>(end), 200, uint8_t{0});
    Clip clip;
    const SalvagePlan plan = ScanForSalvage({clip.Put("C.mxf", damaged)}, {}, PlainEntries);
    ExpectBalanced(plan);
    EXPECT_EQ(plan.duration, kClipFrames - 2 * kClipGroupFrames);
    EXPECT_EQ(plan.files[0].framesFound, kClipFrames);
    EXPECT_TRUE(plan.files[0].moves);
}

TEST(SalvageDamage, AFileOfAnotherPatternIsNotTouched) {
    for (const char* const pattern : {"01", "02"}) {
        Clip clip;
        const Bytes whole = Clip::Get(clip.Add("C.mxf", {.clipType = 0x100}, DVFrames(120000, 2)));
        const Bytes other = With(whole, "HeaderPartitionPack", 0, "OperationalPattern",
                                 std::string("060E2B34040101010D010201") + pattern + "010900");
        const std::string path = clip.Put("C.mxf", other);
        const SalvagePlan plan = ScanForSalvage({path});
        EXPECT_TRUE(plan.IsHopeless());
        EXPECT_EQ(plan.files[0].reason, "it is an MXF file of another operational pattern than OP-Atom and OP-1b");
        EXPECT_TRUE(CarryOutSalvage(plan, {path}).done);
        EXPECT_EQ(Clip::Get(path), other);
    }
}

TEST(SalvageDamage, APathThatNoReaderTakesIsRefusedBeforeAnythingIsWritten) {
    Clip clip;
    const std::string path = clip.Put("C.mxf", Beginning(CutClip(0), CutClip(0).size() - 5));
    const SalvagePlan plan = ScanForSalvage({path}, {}, PlainEntries);
    const std::string target = clip.Path(std::string(256 - clip.Path("").size(), 'x'));
    ASSERT_EQ(target.size(), 256u);
    EXPECT_EQ(CarryOutSalvage(plan, {target}).failure, path + ": its path is too long for a reader");
    EXPECT_FALSE(std::filesystem::exists(target));
}

}  // namespace
}  // namespace kmxf::test
