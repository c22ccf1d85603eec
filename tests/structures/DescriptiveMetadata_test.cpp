#include "kmxf/structures/DescriptiveMetadata.h"

#include <gtest/gtest.h>

#include <string>

#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"

namespace kmxf::test {
namespace {

void ExpectEmpty(const CDescriptiveMetadata& metadata) {
    EXPECT_EQ(metadata.GetJobFunction(), "");
    EXPECT_EQ(metadata.GetFamilyName(), "");
    EXPECT_EQ(metadata.GetFirstGivenName(), "");
    EXPECT_EQ(metadata.GetProjectNumber(), "");
    EXPECT_EQ(metadata.GetProjectName(), "");
    EXPECT_EQ(metadata.GetTakeNumber(), 0);
    EXPECT_EQ(metadata.GetSceneNumber(), "");
    EXPECT_EQ(metadata.GetVideoStd(), 0u);
    EXPECT_FALSE(metadata.IsSetStaticMetadata());
    EXPECT_FALSE(metadata.IsSetEventMetadata());
}

CDescriptiveMetadata Filled() {
    CDescriptiveMetadata metadata;
    EXPECT_EQ(metadata.SetJobFunction("Camera"), kStatusOk);
    EXPECT_EQ(metadata.SetFamilyName("M\xC3\xBCller"), kStatusOk);
    EXPECT_EQ(metadata.SetFirstGivenName("Ada"), kStatusOk);
    EXPECT_EQ(metadata.SetProjectNumber("P-17"), kStatusOk);
    EXPECT_EQ(metadata.SetProjectName("River"), kStatusOk);
    EXPECT_EQ(metadata.SetTakeNumber(65535), kStatusOk);
    EXPECT_EQ(metadata.SetSceneNumber("12A"), kStatusOk);
    EXPECT_EQ(metadata.SetVideoStd(VIDEO_STD_50I), kStatusOk);
    return metadata;
}

void ExpectFilled(const CDescriptiveMetadata& metadata) {
    EXPECT_EQ(metadata.GetJobFunction(), "Camera");
    EXPECT_EQ(metadata.GetFamilyName(), "M\xC3\xBCller");
    EXPECT_EQ(metadata.GetFirstGivenName(), "Ada");
    EXPECT_EQ(metadata.GetProjectNumber(), "P-17");
    EXPECT_EQ(metadata.GetProjectName(), "River");
    EXPECT_EQ(metadata.GetTakeNumber(), 65535);
    EXPECT_EQ(metadata.GetSceneNumber(), "12A");
    EXPECT_EQ(metadata.GetVideoStd(), 0x010000B2u);
    EXPECT_TRUE(metadata.IsSetStaticMetadata());
    EXPECT_TRUE(metadata.IsSetEventMetadata());
}

TEST(DescriptiveMetadata, StartsEmpty) { ExpectEmpty(CDescriptiveMetadata()); }

TEST(DescriptiveMetadata, KeepsEveryValue) { ExpectFilled(Filled()); }

TEST(DescriptiveMetadata, ResetEmptiesIt) {
    CDescriptiveMetadata metadata = Filled();
    metadata.ResetParam();
    ExpectEmpty(metadata);
}

TEST(DescriptiveMetadata, EveryValueOfTheClipRaisesTheStaticFlagOnly) {
    using Metadata = CDescriptiveMetadata;
    for (const auto set : {&Metadata::SetJobFunction, &Metadata::SetFamilyName, &Metadata::SetFirstGivenName,
                           &Metadata::SetProjectNumber, &Metadata::SetProjectName}) {
        Metadata metadata;
        EXPECT_EQ((metadata.*set)(""), kStatusOk);  // an empty text too
        EXPECT_TRUE(metadata.IsSetStaticMetadata());
        EXPECT_FALSE(metadata.IsSetEventMetadata());
    }
    Metadata metadata;
    EXPECT_EQ(metadata.SetTakeNumber(0), kStatusOk);
    EXPECT_TRUE(metadata.IsSetStaticMetadata());
    EXPECT_FALSE(metadata.IsSetEventMetadata());
}

TEST(DescriptiveMetadata, TheSceneNumberRaisesTheEventFlagOnly) {
    CDescriptiveMetadata metadata;
    EXPECT_EQ(metadata.SetSceneNumber(""), kStatusOk);
    EXPECT_FALSE(metadata.IsSetStaticMetadata());
    EXPECT_TRUE(metadata.IsSetEventMetadata());
}

TEST(DescriptiveMetadata, TheVideoStandardRaisesNoFlag) {
    CDescriptiveMetadata metadata;
    EXPECT_EQ(metadata.SetVideoStd(VIDEO_STD_25P), kStatusOk);
    EXPECT_FALSE(metadata.IsSetStaticMetadata());
    EXPECT_FALSE(metadata.IsSetEventMetadata());
}

TEST(DescriptiveMetadata, NothingIsValidated) {
    CDescriptiveMetadata metadata;
    const std::string longText(1000, 'x'), malformed("\xFF"), withZero("a\0b", 3);
    EXPECT_EQ(metadata.SetJobFunction(longText), kStatusOk);
    EXPECT_EQ(metadata.SetProjectName(malformed), kStatusOk);
    EXPECT_EQ(metadata.SetProjectNumber(withZero), kStatusOk);
    EXPECT_EQ(metadata.SetSceneNumber(longText), kStatusOk);
    EXPECT_EQ(metadata.GetJobFunction(), longText);
    EXPECT_EQ(metadata.GetProjectName(), malformed);
    EXPECT_EQ(metadata.GetProjectNumber(), withZero);
    EXPECT_EQ(metadata.GetSceneNumber(), longText);
}

TEST(DescriptiveMetadata, CopiesAreDeep) {
    CDescriptiveMetadata original = Filled();
    CDescriptiveMetadata copy(original), assigned;
    assigned = original;
    original.ResetParam();
    ExpectFilled(copy);
    ExpectFilled(assigned);
}

}  // namespace
}  // namespace kmxf::test
