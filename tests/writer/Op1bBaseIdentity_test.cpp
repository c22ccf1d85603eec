#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Op1bBuilder.h"

namespace kmxf::test {
namespace {

TEST(Op1bBase, PackagesHaveTheUMIDAndItsNextInstance) {
    auto builder = Builder();
    EXPECT_EQ(builder->SetUMID(Umid(0xFF)), kStatusOk);
    const auto packets = PacketsOf(*builder);
    const auto packages = PackagesOf(packets);
    const auto file = BytesOf(Umid(0x00));  // the count begins anew
    EXPECT_EQ(packages[0].set.Item(0x4401), BytesOf(Umid(0xFF)));
    EXPECT_EQ(packages[1].set.Item(0x4401), file);
    const auto containers = SetsOfKind(packets, 0x23);
    EXPECT_EQ(containers.size(), 4u);  // of picture, ANC and two sounds
    for (const Packet& container : containers) EXPECT_EQ(container.Item(0x2701), file);
    for (size_t i = 1; i < 5; ++i) {
        EXPECT_EQ(packages[0].chains[i].component.Item(0x1101), file);
        EXPECT_EQ(packages[1].chains[i].component.Item(0x1101), std::vector<uint8_t>(32));
    }
}

TEST(Op1bBase, AnAllZeroUMIDIsReplacedByOneForGood) {
    auto builder = Builder();
    builder->SetUMID({});
    const auto umid = PackagesOf(PacketsOf(*builder))[0].set.Item(0x4401);
    EXPECT_TRUE(SameBytes(Hex("06 0A 2B 34 01 01 01 05 01 01 0F 20 13 00 00 00"), std::span(umid).first(16)));
    EXPECT_NE(std::vector<uint8_t>(umid.begin() + 16, umid.end()), std::vector<uint8_t>(16));
    builder->SetUMID(Umid(1));
    EXPECT_EQ(PackagesOf(PacketsOf(*builder))[0].set.Item(0x4401), BytesOf(Umid(1)));
    builder->SetUMID({});
    EXPECT_EQ(PackagesOf(PacketsOf(*builder))[0].set.Item(0x4401), umid);
    auto other = Builder();
    other->SetUMID({});
    EXPECT_NE(PackagesOf(PacketsOf(*other))[0].set.Item(0x4401), umid);
}

TEST(Op1bBase, NameAndDatesAndIdentification) {
    auto builder = Builder(1, VIDEO_STD_59_94I, 2, true);
    EXPECT_EQ(builder->SetPackageName("Fjörd"), kStatusOk);
    EXPECT_EQ(builder->SetCreationDate({2031, 11, 29, 22, 58, 57, 1}), kStatusOk);
    EXPECT_EQ(builder->SetModifiedDate({2032, 12, 30, 23, 59, 58, 2}), kStatusOk);
    const auto uid = Hex("F0 F1 F2 F3 F4 F5 F6 F7 F8 F9 FA FB FC FD FE FF");
    EXPECT_EQ(builder->SetIdentification("SIXTEEN LETTERS!", "Recorder", "1.23", uid.data()), kStatusOk);
    const auto packets = PacketsOf(*builder);
    const auto created = Hex("07 EF 0B 1D 16 3A 39 01"), modified = Hex("07 F0 0C 1E 17 3B 3A 02");
    auto name = Hex("00 46 00 6A 00 F6 00 72 00 64");
    name.resize(400);
    const auto packages = PackagesOf(packets);
    ASSERT_EQ(packages.size(), 3u);  // material, file, sound
    EXPECT_EQ(packages[0].set.Item(0x4402), name);
    for (const Package& package : packages) {
        EXPECT_EQ(package.set.Item(0x4405), created);
        EXPECT_EQ(package.set.Item(0x4404), modified);
    }
    EXPECT_EQ(SetsOfKind(packets, 0x2F).front().Item(0x3B02), modified);
    const auto identification = SetsOfKind(packets, 0x30).front();
    EXPECT_EQ(identification.Item(0x3C06), modified);
    EXPECT_EQ(identification.Item(0x3C01), Hex("00 53 00 49 00 58 00 54 00 45 00 45 00 4E 00 20"
                                               "00 4C 00 45 00 54 00 54 00 45 00 52 00 53 00 21"));
    EXPECT_EQ(identification.Item(0x3C04), Hex("00 31 00 2E 00 32 00 33"));
    EXPECT_EQ(identification.Item(0x3C05), uid);
}

TEST(Op1bBase, NamesThatDoNotFitLeaveTheFieldZero) {
    auto builder = Builder();
    const auto name = [&] { return PackagesOf(PacketsOf(*builder))[0].set.Item(0x4402); };
    EXPECT_EQ(builder->SetPackageName(std::string(200, 'n')), kStatusOk);
    EXPECT_EQ(name()[399], 'n');
    EXPECT_EQ(builder->SetPackageName(std::string(201, 'n')), kStatusInvalidArgument);
    EXPECT_EQ(name(), std::vector<uint8_t>(400));
    builder->SetPackageName("good");
    EXPECT_EQ(builder->SetPackageName("\xFF"), kStatusInvalidArgument);
    EXPECT_EQ(name(), std::vector<uint8_t>(400));
    const uint8_t uid[16] = {};
    EXPECT_EQ(builder->SetIdentification(std::string(17, 'c'), "p", "v", uid), kStatusInvalidArgument);
    const auto identification = SetsOfKind(PacketsOf(*builder), 0x30).front();
    EXPECT_EQ(identification.Item(0x3C01), std::vector<uint8_t>(32));
    EXPECT_EQ(identification.Item(0x3C02)[1], 'p');
}

}  // namespace
}  // namespace kmxf::test
