#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/reader/ReadMXFBase.h"
#include "reader/HeaderFixture.h"
#include "support/FaultyStream.h"
#include "support/Hex.h"
#include "support/LogRecorder.h"
#include "support/StreamChecks.h"

namespace kmxf::test {

inline OpAtomFile FileWith(ByteVector essence, ByteVector sets = {}) {
    OpAtomFile file;
    file.sets = std::move(sets);
    file.essence = std::move(essence);
    return file;
}

// 10 bytes of essence behind a header without sets.
inline ByteVector PlainFile() { return FileWith(Hex("A0 A1 A2 A3 A4 A5 A6 A7 A8 A9")).Bytes(); }

class ReadMXFBase : public testing::Test {
protected:
    // Opens `bytes` with its header and returns what Open returned.
    int32_t Open(ByteVector bytes) {
        reader.Close();
        stream = std::make_unique<FaultyStream>(std::move(bytes));
        return reader.Open(stream.get(), true);
    }
    // Opens the plain file with bytes of its header replaced.
    int32_t OpenPatched(size_t offset, std::string_view patch) {
        auto bytes = PlainFile();
        Patch(bytes, offset, Hex(patch));
        return Open(std::move(bytes));
    }
    void ExpectClosedWith(int32_t expected, int32_t status, std::string_view message) {
        EXPECT_EQ(expected, status);
        EXPECT_FALSE(reader.IsOpened());
        EXPECT_FALSE(reader.IsReadHeader());
        EXPECT_FALSE(stream->IsOpened());
        EXPECT_THAT(log.Lines(), testing::ElementsAre("CReadMXFBase::ReadHeader: " + std::string(message),
                                                      "CReadMXFBase::Open: ReadHeader Error."));
        ExpectNothingHeld();
    }
    void ExpectNothingHeld() { test::ExpectNothingHeld(*stream); }
    void ExpectEssence(uint32_t expectedOffset, int64_t expectedSize) {
        uint32_t offset = 0;
        int64_t size = -1;
        EXPECT_EQ(0, reader.GetDataOffset(&offset));
        EXPECT_EQ(0, reader.GetDataSize(&size));
        EXPECT_EQ(expectedOffset, offset);
        EXPECT_EQ(expectedSize, size);
    }

    LogRecorder log;
    std::unique_ptr<FaultyStream> stream;
    CReadMXFBase reader;
};

}  // namespace kmxf::test
