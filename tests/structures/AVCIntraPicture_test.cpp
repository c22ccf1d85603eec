#include "structures/AVCIntraPicture.h"

#include <gtest/gtest.h>

#include <string>

#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "structures/PictureDescriptor.h"
#include "structures/Serialised.h"
#include "support/FixedEnvironment.h"
#include "support/Hex.h"

namespace kmxf::test {
namespace {

const std::string k960 = "00 00 03 C0", k1440 = "00 00 05 A0";

struct Raster {
    uint32_t videoStd;
    std::string codingEnd, rate, layout, height, lineMap;
};
const Raster kRasters1080[] = {
    {0x0100007C, "01", k30000, "01", k540, kLines21And584}, {0x010000B2, "02", k25, "01", k540, kLines21And584},
    {0x02000058, "03", k24000, "00", k1080, kLines42},      {0x0200005E, "03", k30000, "00", k1080, kLines42},
    {0x0200007C, "03", k60000, "00", k1080, kLines42},      {0x02000099, "04", k25, "00", k1080, kLines42},
    {0x020000B2, "04", k50, "00", k1080, kLines42},
};
const Raster kRasters720[] = {
    {0x02000058, "08", k24000, "00", k720, kLines26}, {0x0200005E, "08", k30000, "00", k720, kLines26},
    {0x0200007C, "08", k60000, "00", k720, kLines26}, {0x02000099, "09", k25, "00", k720, kLines26},
    {0x020000B2, "09", k50, "00", k720, kLines26},
};

void ExpectPicture(uint32_t compType, const Raster& raster, const std::string& codingClass, const std::string& width,
                   const std::string& vertical) {
    const FixedEnvironment environment;
    CMPEGEssenceDescriptor descriptor(raster.videoStd, compType);
    EXPECT_EQ(DescribeAVCIntraPicture(descriptor, raster.videoStd, compType), kStatusOk);
    EXPECT_TRUE(SameBytes(
        PictureDescriptor(
            "51", {raster.rate, "06 0E 2B 34 04 01 01 01 0D 01 03 01 02 10 60 02",
                   "06 0E 2B 34 04 01 01 0A 04 01 02 02 01 32" + codingClass + raster.codingEnd, raster.layout, width,
                   raster.height, "00 00 00 10 00 00 00 09", raster.lineMap, "00 00 00 0A", k2, vertical}),
        Serialised(descriptor)))
        << std::hex << compType << ' ' << raster.videoStd;
}

TEST(AVCIntraPicture, Class50Is420OfThreeQuartersTheWidth) {
    for (const Raster& raster : kRasters1080) ExpectPicture(0xC900, raster, "21", k1440, k2);
    for (const Raster& raster : kRasters720) ExpectPicture(0xCA00, raster, "21", k960, k2);
}

TEST(AVCIntraPicture, Class100Is422OfFullWidth) {
    for (const Raster& raster : kRasters1080) ExpectPicture(0xCD00, raster, "31", k1920, k1);
    for (const Raster& raster : kRasters720) ExpectPicture(0xCE00, raster, "31", k1280, k1);
}

TEST(AVCIntraPicture, Class200Is422OfFullWidth) {
    for (const Raster& raster : kRasters1080) ExpectPicture(0xD100, raster, "32", k1920, k1);
    for (const Raster& raster : kRasters720) ExpectPicture(0xD200, raster, "32", k1280, k1);
}

TEST(AVCIntraPicture, FormatsWithoutAFrameSizeAreRefusedAndChangeNothing) {
    CMPEGEssenceDescriptor descriptor(VIDEO_STD_50I, COMP_TYPE_AVCI100_1080);
    const auto before = Serialised(descriptor);
    for (const uint32_t videoStd : {0x0100007Cu, 0x010000B2u}) {
        for (const uint32_t compType : {0xCA00u, 0xCE00u, 0xD200u})
            EXPECT_EQ(DescribeAVCIntraPicture(descriptor, videoStd, compType), kStatusInvalidArgument);
    }
    for (const uint32_t compType : {0x0400u, 0x4E00u, 0xC100u, 0x1FFFFu, 0x1000C100u, 0u})
        EXPECT_EQ(DescribeAVCIntraPicture(descriptor, VIDEO_STD_50P, compType), kStatusInvalidArgument);
    for (const uint32_t videoStd : {0u, 0x02000059u, 0xFFFFFFFFu})
        EXPECT_EQ(DescribeAVCIntraPicture(descriptor, videoStd, COMP_TYPE_AVCI100_1080), kStatusInvalidArgument);
    EXPECT_TRUE(SameBytes(before, Serialised(descriptor)));
}

TEST(AVCIntraPicture, ExactlyTheFormatsWithAFrameSizeAreDescribed) {
    for (const uint32_t compType : {0xC900u, 0xCA00u, 0xCD00u, 0xCE00u, 0xD100u, 0xD200u}) {
        for (const Raster& raster : kRasters1080) {
            CMPEGEssenceDescriptor descriptor(raster.videoStd, compType);
            EXPECT_EQ(DescribeAVCIntraPicture(descriptor, raster.videoStd, compType) == kStatusOk,
                      GetFrameDataSize(raster.videoStd, compType) != 0)
                << std::hex << compType << ' ' << raster.videoStd;
        }
    }
}

}  // namespace
}  // namespace kmxf::test
