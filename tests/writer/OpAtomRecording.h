#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "WriterDoubles.h"
#include "kmxf/core/Records.h"
#include "kmxf/core/Status.h"
#include "support/FaultyStream.h"
#include "support/LogRecorder.h"
#include "support/StreamChecks.h"

namespace kmxf::test {

inline constexpr uint8_t kProductUID[16] = {0x06, 0x0E, 0x2B, 0x34, 0x04, 0x01, 0x01, 0x08,
                                            0x0E, 0x0E, 0x01, 0x01, 0x01, 0x00, 0x00, 0x01};
inline constexpr MXFTIMESTAMPTag kNow{2026, 1, 2, 3, 4, 5, 0};  // of the fixed environment

// A writer of one kind of essence, with a real builder or a scripted one.
template <class Writer>
class OpAtomRecording : public testing::Test {
protected:
    int64_t TotalDataSize() {
        int64_t size = -1;
        writer.GetTotalDataSize(&size);
        return size;
    }
    // A failing setter of the builder ends SetMXFParam with its status, as the last of so many calls.
    void ExpectReported(const char* operation, const char* line, const char* sourceFile, size_t calls) {
        SCOPED_TRACE(operation);
        log.Clear();
        script.calls.clear();
        script.answers = {{operation, kStatusUnexpectedKind}};
        writer.UseScript(script);
        EXPECT_EQ(writer.SetMXFParam(), kStatusUnexpectedKind);
        EXPECT_EQ(script.calls.size(), calls);
        ASSERT_THAT(log.Lines(), testing::ElementsAre(line));
        EXPECT_EQ(log.Records()[0].sourceFile, sourceFile);
        writer.builder_.reset();
    }

    // The settings of the second part of a spanned clip, and what a builder is told of it.
    void SetSpanned() {
        writer.SetUMID({{7}});
        writer.SetShotUMID({{8}});
        writer.SetPrevDuration(25);
        writer.SetStartTimecode(1800, true);
    }
    static void SetSpanned(COpAtomBase& builder, const MXFTIMESTAMPTag& date, int64_t duration, int64_t size,
                           const CDescriptiveMetadata& metadata) {
        builder.SetStartTimecode(1800, true);
        builder.SetCreationDate(date);
        builder.SetModifiedDate(date);
        builder.SetUMID({{7}});
        builder.ChangeMaterialUMID({{8}});
        builder.SetFillerDuration(25);
        builder.SetDuration(duration);
        builder.SetDataSize(size);
        builder.SetPackageName("take");
        builder.SetDMS(metadata);
    }
    // What a builder is told of a clip with no settings but its format and UMID.
    static void SetPlain(COpAtomBase& builder, int64_t duration, int64_t size) {
        builder.SetStartTimecode(0, false);
        builder.SetCreationDate(kNow);
        builder.SetModifiedDate(kNow);
        builder.SetUMID({{1}});
        builder.SetDuration(duration);
        builder.SetDataSize(size);
        builder.SetPackageName("");
        builder.SetDMS({});
    }

    LogRecorder log;
    FaultyStream stream;
    Script script;
    Writer writer;
};

}  // namespace kmxf::test
