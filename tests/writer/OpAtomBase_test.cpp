#include "kmxf/writer/OpAtomBase.h"

#include <gtest/gtest.h>

#include <set>

#include "kmxf/core/VideoStandard.h"
#include "kmxf/writer/OpAtomPictureCDCI.h"
#include "kmxf/writer/OpAtomSound.h"
#include "support/FixedEnvironment.h"
#include "support/Hex.h"
#include "writer/OpAtomFixture.h"

namespace kmxf::test {
namespace {

constexpr uint32_t kOnePictureTwoSounds = 0x102;

std::unique_ptr<COpAtomPictureCDCI> Dv25(uint32_t clipType = kOnePictureTwoSounds, uint32_t channel = 0,
                                         bool spanned = false, uint32_t videoStd = VIDEO_STD_59_94I) {
    auto builder =
        std::make_unique<COpAtomPictureCDCI>(videoStd, COMP_TYPE_DV25, clipType, channel, 48000, spanned, false, 0);
    EXPECT_EQ(builder->Initialize(), kStatusOk);
    return builder;
}

// Track, sequence and component sets of the material package, in the order of the file.
struct Chain {
    Packet track, sequence, component;
    std::vector<Packet> components;
};
std::vector<Chain> MaterialChains(const std::vector<Packet>& packets) {
    std::vector<Chain> chains;
    for (size_t i = 0; i < packets.size() && packets[i].Kind() != 0x37; ++i) {
        if (SetsOfKind({packets[i]}, 0x3B).empty()) continue;
        Chain chain{packets[i], packets[i + 1], packets[i + 2], {}};
        for (size_t j = i + 2; j < packets.size(); ++j) {
            const uint8_t kind = packets[j].Kind();
            if (kind != 0x09 && kind != 0x11 && kind != 0x14) break;
            chain.components.push_back(packets[j]);
        }
        chains.push_back(std::move(chain));
    }
    return chains;
}

TEST(OpAtomBase, NothingWorksBeforeInitialize) {
    COpAtomSound builder(VIDEO_STD_50I, 1, 48000, 0, 16, false);
    uint8_t* data = nullptr;
    EXPECT_EQ(builder.SetDuration(1), kStatusWrongState);
    EXPECT_EQ(builder.SetDataSize(1), kStatusWrongState);
    EXPECT_EQ(builder.SetStartTimecode(0, false), kStatusWrongState);
    EXPECT_EQ(builder.SetCreationDate({}), kStatusWrongState);
    EXPECT_EQ(builder.SetModifiedDate({}), kStatusWrongState);
    EXPECT_EQ(builder.SetPackageName("x"), kStatusWrongState);
    EXPECT_EQ(builder.SetUMID({}), kStatusWrongState);
    EXPECT_EQ(builder.SetMaterialDuration(1), kStatusWrongState);
    EXPECT_EQ(builder.ChangeMaterialUMID({}), kStatusWrongState);
    EXPECT_EQ(builder.SetFillerDuration(1), kStatusWrongState);
    EXPECT_EQ(builder.SetDMS({}), kStatusWrongState);
    EXPECT_EQ(builder.GetHeaderData(&data), kStatusWrongState);
    EXPECT_EQ(builder.GetFooterData(&data), kStatusWrongState);
    EXPECT_EQ(builder.GetHeaderSize(), 32768u);
    EXPECT_EQ(builder.GetFooterSize(), 0u);
    builder.MarkOpen();
    EXPECT_EQ(data, nullptr);
}

TEST(OpAtomBase, NullPointersAreInvalid) {
    auto builder = Dv25();
    EXPECT_EQ(builder->GetHeaderData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(builder->GetFooterData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(builder->SetIdentification("a", "b", "c", nullptr), kStatusInvalidArgument);
}

TEST(OpAtomBase, HeaderAreaIsPackMetadataIndexFillBodyPackAndEssenceHead) {
    auto builder = Dv25();
    builder->SetDataSize(240000);
    const auto header = HeaderOf(*builder);
    ASSERT_EQ(header.size(), 32768u);
    const auto packets = Packets(header, 0, 32744);

    EXPECT_EQ(packets.front().key, Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 02 04 00"));
    EXPECT_EQ(packets[1].key, Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 05 01 00"));
    EXPECT_EQ(packets[1].offset, 124u);
    const std::vector<uint8_t> order = {0x2F, 0x30, 0x18, 0x23, 0x36,  // preface to material package
                                        0x3B, 0x0F, 0x14,              // timecode
                                        0x3B, 0x0F, 0x11, 0x3B, 0x0F, 0x11, 0x3B,
                                        0x0F, 0x11, 0x37, 0x3B, 0x0F, 0x11, 0x28};  // file package to descriptor
    const size_t index = 2 + order.size();
    ASSERT_EQ(packets.size(), index + 3);
    for (size_t i = 0; i < order.size(); ++i) {
        auto key = Hex("06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01");
        key.push_back(order[i]);
        key.push_back(0);
        EXPECT_EQ(packets[2 + i].key, key) << "set " << i;
    }
    EXPECT_EQ(packets[index].key, Hex("06 0E 2B 34 02 53 01 01 0D 01 02 01 01 10 01 00"));
    EXPECT_EQ(packets[index].End() - packets[index].offset, 100u);
    EXPECT_EQ(packets[index + 1].key, Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00"));
    EXPECT_EQ(packets[index + 2].key, Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 03 04 00"));
    EXPECT_EQ(packets[index + 2].offset, 32620u);

    const auto metadataSize = packets[index].offset - 124;
    const auto indexSize = packets[index + 2].offset - packets[index].offset;
    EXPECT_EQ(std::vector<uint8_t>(header.begin() + 52, header.begin() + 60),
              Bytes64(static_cast<int64_t>(metadataSize)));
    EXPECT_EQ(std::vector<uint8_t>(header.begin() + 60, header.begin() + 68), Bytes64(static_cast<int64_t>(indexSize)));
    EXPECT_EQ(std::vector<uint8_t>(header.begin() + 32744, header.end()),
              Hex("06 0E 2B 34 01 02 01 01 0D 01 03 01 18 01 02 01  87 00 00 00 00 03 A9 80"));
}

TEST(OpAtomBase, PacksNameTheirPlacesAndStreams) {
    auto builder = Dv25();
    builder->SetDataSize(240000);
    const auto header = HeaderOf(*builder);
    const auto footer = FooterOf(*builder);
    // This, previous and footer partition; the footer lies at 32768 + 240000 = 0x42980.
    EXPECT_TRUE(SameBytes(Hex("00 01 00 03 00 00 00 01"
                              "00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00  00 00 00 00 00 04 29 80"),
                          std::span(header).subspan(20, 32)));
    // Index SID 1, body offset 0, body SID 0.
    EXPECT_TRUE(SameBytes(Hex("00 00 00 01  00 00 00 00 00 00 00 00  00 00 00 00"), std::span(header).subspan(68, 16)));
    // The body pack: at 32620, no byte counts, index SID 0, body SID 2.
    EXPECT_TRUE(SameBytes(Hex("00 01 00 03 00 00 00 01"
                              "00 00 00 00 00 00 7F 6C  00 00 00 00 00 00 00 00  00 00 00 00 00 04 29 80"
                              "00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00"
                              "00 00 00 00  00 00 00 00 00 00 00 00  00 00 00 02"
                              "06 0E 2B 34 04 01 01 02 0D 01 02 01 10 02 00 00"
                              "00 00 00 01 00 00 00 10  06 0E 2B 34 04 01 01 01 0D 01 03 01 02 02 40 02"),
                          std::span(header).subspan(32640, 104)));
    ASSERT_EQ(footer.size(), 224u);
    EXPECT_TRUE(SameBytes(Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 04 04 00 83 00 00 68"
                              "00 01 00 03 00 00 00 01"
                              "00 00 00 00 00 04 29 80  00 00 00 00 00 00 7F 6C  00 00 00 00 00 04 29 80"
                              "00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 64"
                              "00 00 00 01  00 00 00 00 00 00 00 00  00 00 00 00"),
                          std::span(footer).first(84)));
    EXPECT_TRUE(SameBytes(std::span(header).subspan(SetsOfKind(Packets(header, 0, 32744), 0x28).front().End(), 100),
                          std::span(footer).subspan(124)))
        << "the footer repeats the header's index segment";
}

TEST(OpAtomBase, DataSizeZeroPutsTheFooterBehindTheHeaderArea) {
    auto builder = Dv25();
    builder->SetDataSize(0);
    const auto header = HeaderOf(*builder);
    EXPECT_EQ(std::vector<uint8_t>(header.begin() + 44, header.begin() + 52), Bytes64(32768));
    EXPECT_EQ(std::vector<uint8_t>(header.begin() + 32760, header.end()), Hex("87 00 00 00 00 00 00 00"));
    EXPECT_EQ(std::vector<uint8_t>(header.begin() + 32648, header.begin() + 32656), Bytes64(32620));
}

TEST(OpAtomBase, MarkOpenHidesTheFooterUntilTheNextDataSize) {
    auto builder = Dv25();
    builder->SetDataSize(0);
    builder->MarkOpen();
    const auto open = HeaderOf(*builder);
    EXPECT_EQ(std::vector<uint8_t>(open.begin() + 44, open.begin() + 52), Bytes64(0));
    EXPECT_EQ(std::vector<uint8_t>(open.begin() + 32664, open.begin() + 32672), Bytes64(0));
    builder->SetDataSize(120000);
    const auto closed = HeaderOf(*builder);
    EXPECT_EQ(std::vector<uint8_t>(closed.begin() + 44, closed.begin() + 52), Bytes64(152768));
    EXPECT_EQ(std::vector<uint8_t>(closed.begin() + 32664, closed.begin() + 32672), Bytes64(152768));
}

TEST(OpAtomBase, DataSizesBeyond32BitsFit) {
    auto builder = Dv25();
    builder->SetDataSize(0x0123456789ABCD);
    const auto header = HeaderOf(*builder);
    EXPECT_EQ(std::vector<uint8_t>(header.begin() + 32760, header.end()), Hex("87 01 23 45 67 89 AB CD"));
    EXPECT_EQ(std::vector<uint8_t>(header.begin() + 44, header.begin() + 52), Bytes64(0x0123456789ABCD + 32768));
}

TEST(OpAtomBase, ClipTypeMakesTheTracks) {
    auto builder = Dv25(0x203);
    const auto chains = MaterialChains(PacketsOf(*builder));
    ASSERT_EQ(chains.size(), 6u);
    const std::vector<std::vector<uint8_t>> definitions = {Hex("02 01 01"), Hex("02 02 01"), Hex("02 02 01"),
                                                           Hex("02 02 02"), Hex("02 02 02"), Hex("02 02 02")};
    const std::vector<std::vector<uint8_t>> rates = {Hex("00 00 75 30 00 00 03 E9"), Hex("00 00 75 30 00 00 03 E9"),
                                                     Hex("00 00 75 30 00 00 03 E9"), Hex("00 00 BB 80 00 00 00 01"),
                                                     Hex("00 00 BB 80 00 00 00 01"), Hex("00 00 BB 80 00 00 00 01")};
    for (size_t i = 0; i < chains.size(); ++i) {
        EXPECT_EQ(BigEndian(chains[i].track.Item(0x4801)), i + 1);
        EXPECT_EQ(BigEndian(chains[i].track.Item(0x4804)), 0u);
        EXPECT_EQ(chains[i].track.Item(0x4B01), rates[i]);
        EXPECT_EQ(chains[i].track.Item(0x4803), chains[i].sequence.Item(0x3C0A));
        const auto definition = chains[i].sequence.Item(0x0201);
        EXPECT_EQ(std::vector<uint8_t>(definition.begin() + 10, definition.begin() + 13), definitions[i]);
        const auto components = chains[i].sequence.Item(0x1001);
        EXPECT_EQ(std::vector<uint8_t>(components.begin() + 8, components.end()), chains[i].component.Item(0x3C0A));
    }
}

TEST(OpAtomBase, ProgressiveDoubleRatesCountTimecodeAtHalfTheRate) {
    COpAtomPictureCDCI builder(VIDEO_STD_59_94P, COMP_TYPE_DV100_720P, 0x101, 0, 48000, false, false, 0);
    ASSERT_EQ(builder.Initialize(), kStatusOk);
    builder.SetDuration(7);
    const auto chains = MaterialChains(PacketsOf(builder));
    EXPECT_EQ(chains[0].track.Item(0x4B01), Hex("00 00 75 30 00 00 03 E9"));
    EXPECT_EQ(chains[0].sequence.Item(0x0202), Bytes64(4));
    EXPECT_EQ(chains[0].component.Item(0x0202), Bytes64(4));
    EXPECT_EQ(chains[1].track.Item(0x4B01), Hex("00 00 EA 60 00 00 03 E9"));
    EXPECT_EQ(chains[1].component.Item(0x0202), Bytes64(7));
    EXPECT_EQ(chains[2].component.Item(0x0202), Bytes64(5608));
}

TEST(OpAtomBase, SetMaterialDurationIsSetDuration) {
    auto one = Dv25();
    COpAtomPictureCDCI copy(*one);
    one->SetDuration(11);
    copy.SetMaterialDuration(11);
    EXPECT_TRUE(SameBytes(HeaderOf(*one), HeaderOf(copy)));
}

TEST(OpAtomBase, SpannedClipsBeginWithAFillerOnEveryEssenceTrack) {
    auto builder = Dv25(kOnePictureTwoSounds, 0, true);
    builder->SetFillerDuration(5);
    builder->SetDuration(10);
    const auto chains = MaterialChains(PacketsOf(*builder));
    ASSERT_EQ(chains.size(), 4u);
    EXPECT_EQ(chains[0].components.size(), 1u);
    EXPECT_EQ(chains[0].sequence.Item(0x0202), Bytes64(15));
    EXPECT_EQ(chains[0].component.Item(0x0202), Bytes64(15));
    const int64_t filler[] = {0, 5, 8008, 8008}, clip[] = {0, 10, 16016, 16016};
    for (size_t i = 1; i < 4; ++i) {
        ASSERT_EQ(chains[i].components.size(), 2u);
        EXPECT_EQ(chains[i].components[0].Kind(), 0x09);
        EXPECT_EQ(chains[i].components[0].Item(0x0202), Bytes64(filler[i]));
        EXPECT_EQ(chains[i].components[1].Kind(), 0x11);
        EXPECT_EQ(chains[i].components[1].Item(0x0202), Bytes64(clip[i]));
        EXPECT_EQ(chains[i].components[1].Item(0x1201), Bytes64(0));
        EXPECT_EQ(chains[i].sequence.Item(0x0202), Bytes64(filler[i] + clip[i]));
        const auto links = chains[i].sequence.Item(0x1001);
        ASSERT_EQ(links.size(), 40u);
        EXPECT_EQ(std::vector<uint8_t>(links.begin() + 8, links.begin() + 24), chains[i].components[0].Item(0x3C0A));
    }
}

TEST(OpAtomBase, WithoutSpanningAFillerDurationChangesNothing) {
    auto builder = Dv25();
    builder->SetDuration(10);
    const auto before = HeaderOf(*builder);
    builder->SetFillerDuration(5);
    EXPECT_TRUE(SameBytes(before, HeaderOf(*builder)));
}

TEST(OpAtomBase, DropFrameIsForcedOffWhereTheRateHasNone) {
    const auto dropOf = [](uint32_t videoStd, uint32_t compType) {
        COpAtomPictureCDCI builder(videoStd, compType, 0x100, 0, 48000, false, false, 0);
        EXPECT_EQ(builder.Initialize(), kStatusOk);
        builder.SetStartTimecode(1800, true);
        const auto component = MaterialChains(PacketsOf(builder)).front().component;
        EXPECT_EQ(component.Item(0x1501), Bytes64(1800));
        return component.Item(0x1503).front();
    };
    EXPECT_EQ(dropOf(VIDEO_STD_59_94I, COMP_TYPE_DV25), 1);
    EXPECT_EQ(dropOf(VIDEO_STD_29_97P, COMP_TYPE_DV100_720P), 1);
    EXPECT_EQ(dropOf(VIDEO_STD_59_94P, COMP_TYPE_DV100_720P), 1);
    EXPECT_EQ(dropOf(VIDEO_STD_23_98P, COMP_TYPE_DV100_720P), 1);
    EXPECT_EQ(dropOf(VIDEO_STD_50I, COMP_TYPE_DV25), 0);
    EXPECT_EQ(dropOf(VIDEO_STD_25P, COMP_TYPE_DV100_720P), 0);
    EXPECT_EQ(dropOf(VIDEO_STD_50P, COMP_TYPE_DV100_720P), 0);
}

TEST(OpAtomBase, OneUmidUntilTheMaterialPackageGetsItsOwn) {
    auto builder = Dv25();
    builder->SetUMID(UmidOf(0x11));
    const auto shared = PacketsOf(*builder);
    EXPECT_EQ(SetsOfKind(shared, 0x36).front().Item(0x4401), BytesOf(UmidOf(0x11)));
    EXPECT_EQ(SetsOfKind(shared, 0x37).front().Item(0x4401), BytesOf(UmidOf(0x11)));
    EXPECT_EQ(SetsOfKind(shared, 0x23).front().Item(0x2701), BytesOf(UmidOf(0x11)));

    builder->ChangeMaterialUMID(UmidOf(0x22));
    builder->SetUMID(UmidOf(0x33));
    const auto own = PacketsOf(*builder);
    EXPECT_EQ(SetsOfKind(own, 0x36).front().Item(0x4401), BytesOf(UmidOf(0x22)));
    EXPECT_EQ(SetsOfKind(own, 0x37).front().Item(0x4401), BytesOf(UmidOf(0x33)));
    EXPECT_EQ(SetsOfKind(own, 0x23).front().Item(0x2701), BytesOf(UmidOf(0x33)));
}

// Which source clips of the material package refer to the file package: SourcePackageID and SourceTrackID of each.
std::vector<std::pair<std::vector<uint8_t>, uint64_t>> Sources(COpAtomBase& builder) {
    builder.SetUMID(UmidOf(0x44));
    std::vector<std::pair<std::vector<uint8_t>, uint64_t>> sources;
    for (const Packet& clip : SetsOfKind(PacketsOf(builder), 0x11)) {
        sources.emplace_back(clip.Item(0x1101), BigEndian(clip.Item(0x1102)));
    }
    return sources;  // the last is the file package's own: the end of the chain
}

TEST(OpAtomBase, OnlyTheFilesOwnTrackRefersToIt) {
    const std::pair<std::vector<uint8_t>, uint64_t> own{BytesOf(UmidOf(0x44)), 1}, none{BytesOf(MXFUMIDTag{}), 0};
    auto picture = Dv25(0x202, 1);
    EXPECT_EQ(Sources(*picture), (std::vector{none, own, none, none, none}));
    COpAtomSound sound(VIDEO_STD_59_94I, 0x102, 48000, 1, 16, false);
    ASSERT_EQ(sound.Initialize(), kStatusOk);
    EXPECT_EQ(Sources(sound), (std::vector{none, none, own, none}));
    auto outside = Dv25(0x102, 1);
    EXPECT_EQ(Sources(*outside), (std::vector{none, none, none, none}));
    // Channels whose number, added to a track code, would be that of another kind of track, or wrap.
    auto wrapped = Dv25(0x102, 0x01000000);
    EXPECT_EQ(Sources(*wrapped), (std::vector{none, none, none, none}));
    COpAtomSound picturesCode(VIDEO_STD_59_94I, 0x102, 48000, 255, 16, false);
    ASSERT_EQ(picturesCode.Initialize(), kStatusOk);
    EXPECT_EQ(Sources(picturesCode), (std::vector{none, none, none, none}));
    auto noTracks = Dv25(0, 0);
    EXPECT_EQ(Sources(*noTracks), (std::vector{none}));
}

TEST(OpAtomBase, DatesGoToTheSetsTheyBelongTo) {
    auto builder = Dv25();
    const MXFTIMESTAMPTag created{2026, 1, 2, 3, 4, 5, 0}, modified{2027, 12, 31, 23, 59, 58, 0};
    builder->SetCreationDate(created);
    builder->SetModifiedDate(modified);
    const auto packets = PacketsOf(*builder);
    const auto createdBytes = Hex("07 EA 01 02 03 04 05 00"), modifiedBytes = Hex("07 EB 0C 1F 17 3B 3A 00");
    for (const uint8_t package : {uint8_t{0x36}, uint8_t{0x37}}) {
        EXPECT_EQ(SetsOfKind(packets, package).front().Item(0x4405), createdBytes);
        EXPECT_EQ(SetsOfKind(packets, package).front().Item(0x4404), modifiedBytes);
    }
    EXPECT_EQ(SetsOfKind(packets, 0x2F).front().Item(0x3B02), modifiedBytes);
    EXPECT_EQ(SetsOfKind(packets, 0x30).front().Item(0x3C06), modifiedBytes);
}

TEST(OpAtomBase, PackageNamesOf200UnitsFitAndLongerOnesAreRefused) {
    auto builder = Dv25();
    EXPECT_EQ(builder->SetPackageName(std::string(200, 'n')), kStatusOk);
    EXPECT_EQ(SetsOfKind(PacketsOf(*builder), 0x36).front().Item(0x4402)[399], 'n');
    EXPECT_EQ(builder->SetPackageName(std::string(201, 'n')), kStatusInvalidArgument);
    EXPECT_EQ(SetsOfKind(PacketsOf(*builder), 0x36).front().Item(0x4402), std::vector<uint8_t>(400));
    EXPECT_EQ(builder->SetPackageName("\xFF"), kStatusInvalidArgument);
}

TEST(OpAtomBase, IdentificationHasDefaultsAndTakesOthers) {
    auto builder = Dv25();
    const auto before = SetsOfKind(PacketsOf(*builder), 0x30).front();
    EXPECT_EQ(before.Item(0x3C01),
              Hex("00 4B 00 65 00 73 00 74 00 72 00 61 00 6C 00 69 00 6E 00 00 00 00 00 00 00 00 00 00 00 00 00 00"));
    EXPECT_EQ(before.Item(0x3C05), Hex("06 0E 2B 34 04 01 01 08 0E 0E 01 01 01 00 00 01"));
    const auto uid = Hex("00 11 22 33 44 55 66 77 88 99 AA BB CC DD EE FF");
    EXPECT_EQ(builder->SetIdentification("Company of 16 ch", "P", "1.23", uid.data()), kStatusOk);
    const auto after = SetsOfKind(PacketsOf(*builder), 0x30).front();
    EXPECT_EQ(after.Item(0x3C01)[31], 'h');
    EXPECT_EQ(after.Item(0x3C04), Hex("00 31 00 2E 00 32 00 33"));
    EXPECT_EQ(after.Item(0x3C05), uid);
    EXPECT_EQ(builder->SetIdentification("Company of 17 chr", "P", "1", uid.data()), kStatusInvalidArgument);
}

TEST(OpAtomBase, DescriptiveMetadataHangsOnTheMaterialPackageOnce) {
    auto builder = Dv25();
    CDescriptiveMetadata metadata;
    metadata.SetJobFunction("Camera");
    metadata.SetSceneNumber("7");
    builder->SetDMS(metadata);
    builder->SetDMS(metadata);
    HeaderOf(*builder);
    const auto packets = PacketsOf(*builder);

    const auto schemes = SetsOfKind(packets, 0x2F).front().Item(0x3B0B);
    EXPECT_EQ(schemes, Hex("00 00 00 02 00 00 00 10  06 0E 2B 34 04 01 01 04 0D 01 04 01 01 02 02 01"
                           "06 0E 2B 34 04 01 01 04 0D 01 04 01 01 02 03 01"));
    const auto tracks = SetsOfKind(packets, 0x36).front().Item(0x4403);
    ASSERT_EQ(tracks.size(), 8u + 6 * 16) << "four tracks of the clip and two of its descriptive metadata";
    const auto staticTrack = SetsOfKind(packets, 0x3A), eventTrack = SetsOfKind(packets, 0x39);
    ASSERT_EQ(staticTrack.size(), 1u);
    ASSERT_EQ(eventTrack.size(), 1u);
    EXPECT_EQ(BigEndian(staticTrack.front().Item(0x4801)), 101u);
    EXPECT_EQ(BigEndian(eventTrack.front().Item(0x4801)), 102u);
    EXPECT_EQ(std::vector<uint8_t>(tracks.begin() + 72, tracks.begin() + 88), staticTrack.front().Item(0x3C0A));
    EXPECT_EQ(std::vector<uint8_t>(tracks.begin() + 88, tracks.end()), eventTrack.front().Item(0x3C0A));
    EXPECT_LT(eventTrack.front().offset, SetsOfKind(packets, 0x37).front().offset);
    EXPECT_GT(staticTrack.front().offset, SetsOfKind(packets, 0x36).front().offset);
}

TEST(OpAtomBase, ReferencesResolveAndInstanceUIDsAreUnique) {
    auto builder = Dv25();
    CDescriptiveMetadata metadata;
    metadata.SetTakeNumber(3);
    metadata.SetSceneNumber("7");
    builder->SetDMS(metadata);
    const auto packets = PacketsOf(*builder);
    std::set<std::vector<uint8_t>> uids;
    std::vector<std::vector<uint8_t>> references;
    for (const Packet& packet : packets) {
        if (packet.key[5] != 0x53) continue;
        const auto items = packet.Items();
        EXPECT_TRUE(uids.insert(items.at(0x3C0A)).second);
        for (const uint16_t tag :
             std::initializer_list<uint16_t>{0x3B03, 0x3B08, 0x4803, 0x4701, 0x6101, 0x8004, 0x800D}) {
            if (items.contains(tag)) references.push_back(items.at(tag));
        }
        for (const uint16_t tag :
             std::initializer_list<uint16_t>{0x3B06, 0x1901, 0x1902, 0x4403, 0x1001, 0x8005, 0x8008, 0x800C, 0x9001}) {
            if (!items.contains(tag)) continue;
            const auto& batch = items.at(tag);
            for (size_t at = 8; at < batch.size(); at += 16) {
                references.emplace_back(batch.begin() + static_cast<std::ptrdiff_t>(at),
                                        batch.begin() + static_cast<std::ptrdiff_t>(at + 16));
            }
        }
    }
    EXPECT_GT(references.size(), 20u);
    for (const auto& reference : references) EXPECT_TRUE(uids.contains(reference));
    const auto preface = SetsOfKind(packets, 0x2F).front();
    EXPECT_EQ(preface.Item(0x3B08), SetsOfKind(packets, 0x37).front().Item(0x3C0A));
}

TEST(OpAtomBase, MetadataThatDoesNotFitIsRefused) {
    const auto statusOf = [](COpAtomBase& builder) {
        uint8_t* data = nullptr;
        EXPECT_EQ(builder.Initialize(), kStatusOk);
        const int32_t status = builder.GetHeaderData(&data);
        std::free(data);
        EXPECT_EQ(builder.GetHeaderSize(), 32768u);
        return status;
    };
    const auto picture = [&](uint32_t sounds) {
        COpAtomPictureCDCI builder(VIDEO_STD_59_94I, COMP_TYPE_DV25, 0x100 | sounds, 0, 48000, false, false, 0);
        return statusOf(builder);
    };
    const auto sound = [&](uint32_t sounds) {
        COpAtomSound builder(VIDEO_STD_59_94I, sounds, 48000, 0, 16, false);
        return statusOf(builder);
    };
    EXPECT_EQ(picture(80), kStatusOk);
    EXPECT_EQ(picture(81), kStatusNoMemory);
    EXPECT_EQ(sound(81), kStatusOk);
    EXPECT_EQ(sound(82), kStatusNoMemory) << "8 bytes are left, which no fill item can take";
}

TEST(OpAtomBase, SceneOrClipMetadataAloneMakesOneGroup) {
    CDescriptiveMetadata scene, clip;
    scene.SetSceneNumber("7");
    clip.SetTakeNumber(1);
    auto withScene = Dv25(), withClip = Dv25();
    EXPECT_EQ(withScene->SetDMS(scene), kStatusOk);
    EXPECT_EQ(withClip->SetDMS(clip), kStatusOk);
    const auto scenePackets = PacketsOf(*withScene), clipPackets = PacketsOf(*withClip);
    EXPECT_EQ(SetsOfKind(scenePackets, 0x39).size(), 1u);
    EXPECT_EQ(SetsOfKind(scenePackets, 0x3A).size(), 0u);
    EXPECT_EQ(SetsOfKind(scenePackets, 0x2F).front().Item(0x3B0B),
              Hex("00 00 00 01 00 00 00 10  06 0E 2B 34 04 01 01 04 0D 01 04 01 01 02 03 01"));
    EXPECT_EQ(SetsOfKind(clipPackets, 0x39).size(), 0u);
    EXPECT_EQ(SetsOfKind(clipPackets, 0x3A).size(), 1u);
    EXPECT_EQ(SetsOfKind(clipPackets, 0x2F).front().Item(0x3B0B),
              Hex("00 00 00 01 00 00 00 10  06 0E 2B 34 04 01 01 04 0D 01 04 01 01 02 02 01"));
    auto withNone = Dv25();
    EXPECT_EQ(withNone->SetDMS({}), kStatusOk);
    EXPECT_EQ(SetsOfKind(PacketsOf(*withNone), 0x2F).front().Item(0x3B0B), std::vector<uint8_t>(8));
}

TEST(OpAtomBase, TextsThatDoNotFitLeaveTheirFieldsEmptyAndAreNoError) {
    auto builder = Dv25();
    CDescriptiveMetadata metadata;
    metadata.SetJobFunction(std::string(61, 'j'));
    metadata.SetFamilyName(std::string(60, 'f'));
    metadata.SetProjectNumber(std::string(33, 'p'));
    metadata.SetSceneNumber(std::string(33, 's'));
    EXPECT_EQ(builder->SetDMS(metadata), kStatusOk);
    std::vector<uint8_t> job, family, project, scene;
    for (const Packet& packet : PacketsOf(*builder)) {
        if (packet.key[5] != 0x53 || packet.key[10] != 0x04) continue;  // descriptive metadata sets
        const auto items = packet.Items();
        if (items.contains(0x8007)) job = items.at(0x8007);
        if (items.contains(0x800A)) family = items.at(0x800A);
        if (items.contains(0x800E)) project = items.at(0x800E);
        if (items.contains(0x8011)) scene = items.at(0x8011);
    }
    EXPECT_EQ(job, std::vector<uint8_t>(120));
    ASSERT_EQ(family.size(), 120u);
    EXPECT_EQ(family[119], 'f');
    EXPECT_EQ(project, std::vector<uint8_t>(32));
    EXPECT_EQ(scene, std::vector<uint8_t>(32));
}

TEST(OpAtomBase, AbsurdDurationsAndSizesDoNoHarm) {
    auto builder = Dv25(kOnePictureTwoSounds, 0, true);
    for (const int64_t value : {INT64_MAX, INT64_MIN, int64_t{-1}}) {
        builder->SetFillerDuration(value);
        builder->SetDuration(value);
        builder->SetDataSize(value);
        EXPECT_EQ(HeaderOf(*builder).size(), 32768u);
    }
}

TEST(OpAtomBase, CopiesAreDeepAndKeepInstanceUIDs) {
    auto builder = Dv25();
    builder->SetDataSize(120000);
    COpAtomPictureCDCI copy(*builder);
    EXPECT_TRUE(SameBytes(HeaderOf(*builder), HeaderOf(copy)));
    const auto before = HeaderOf(copy);
    builder->SetDataSize(240000);
    builder->SetPackageName("changed");
    EXPECT_TRUE(SameBytes(before, HeaderOf(copy)));
    copy = *builder;
    EXPECT_TRUE(SameBytes(HeaderOf(*builder), HeaderOf(copy)));
    COpAtomPictureCDCI fresh(VIDEO_STD_50I, COMP_TYPE_DV25, 0, 0, 48000, false, false, 0);
    copy = fresh;
    EXPECT_EQ(copy.SetDuration(1), kStatusWrongState);
}

TEST(OpAtomBase, BuildingTwiceGivesTheSameBytes) {
    auto builder = Dv25();
    CDescriptiveMetadata metadata;
    metadata.SetTakeNumber(3);
    builder->SetDMS(metadata);
    EXPECT_TRUE(SameBytes(HeaderOf(*builder), HeaderOf(*builder)));
    EXPECT_TRUE(SameBytes(FooterOf(*builder), FooterOf(*builder)));
}

}  // namespace
}  // namespace kmxf::test
