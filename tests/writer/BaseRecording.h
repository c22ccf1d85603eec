#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "WriterDoubles.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/writer/CreateMXFBase.h"
#include "support/FaultyStream.h"
#include "support/LogRecorder.h"
#include "support/StreamChecks.h"

namespace kmxf::test {

// The writer with a scripted builder, and a compression type that needs no parameter set header.
class TestWriter final : public CCreateMXFBase {
public:
    TestWriter() { settings_.compType = COMP_TYPE_DV25; }
    ~TestWriter() override { FileClose(); }

    int32_t Open(IStreamFileIO* stream, bool rewriteHeaderAtClose) override {
        if (!IsOpened() && withBuilder_) {
            builder_ = std::make_unique<ScriptedBuilder<COpAtomBase>>(script_, 0u, 0u, 48000u, false);
        }
        return CCreateMXFBase::Open(stream, rewriteHeaderAtClose);
    }
    int32_t SetMXFParam() override { return script_.Answer("SetMXFParam", std::to_string(settings_.dataSize)); }
    uint32_t GetDuration() override { return 7; }

    using CCreateMXFBase::FileClose;
    using CCreateMXFBase::hasPicture_;
    using CCreateMXFBase::settings_;
    using CCreateMXFBase::WriteOwnPiece;
    using CCreateMXFBase::WriteStreamPiece;

    Script script_;
    bool withBuilder_ = true;
};

class CreateMXFBase : public testing::Test {
protected:
    void OpenForAVCIntra(bool rewrite = true) {
        writer.settings_.compType = COMP_TYPE_AVCI100_1080;
        writer.settings_.videoStd = VIDEO_STD_50I;
        ASSERT_EQ(writer.Open(&stream, rewrite), kStatusOk);
    }
    // A file of DV, up to Close.
    void RecordDV(FaultyStream& file, uint32_t size) {
        writer.settings_.compType = COMP_TYPE_DV25;
        ASSERT_EQ(writer.Open(&file, true), kStatusOk);
        ASSERT_EQ(writer.Write(Essence(size), 0), static_cast<int32_t>(size));
    }
    // Closed, nothing left behind, all settings at their defaults.
    void ExpectGivenUp() {
        EXPECT_FALSE(writer.IsOpened());
        ExpectClosedAndNothingHeld(stream);
        EXPECT_EQ(writer.script_.built, writer.script_.destroyed);
        EXPECT_EQ(writer.settings_.compType, 0x1FFFFu);
        EXPECT_EQ(writer.settings_.dataSize, 0);
    }

    LogRecorder log;
    FaultyStream stream;
    TestWriter writer;
};

}  // namespace kmxf::test
