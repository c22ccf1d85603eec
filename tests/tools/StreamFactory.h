#pragma once

#include <gtest/gtest.h>

#include "support/FaultyStream.h"

namespace kmxf::test {

// While it lives the library opens this one stream for every name, and none without one. The stream is the test's.
class StreamFactory final : public IFileIOFactory {
public:
    explicit StreamFactory(FaultyStream* stream) : stream_(stream) {
        CFileIOMain::SetFactoryProvider(
            [this](uint32_t kind, const CNetworkInfo* network, uint32_t bufferUnit) -> IFileIOFactory* {
                EXPECT_EQ(kind, 0u);
                EXPECT_EQ(network, nullptr);
                EXPECT_EQ(bufferUnit, 32768u);
                ++live_;
                return this;
            });
    }
    StreamFactory(const StreamFactory&) = delete;
    StreamFactory& operator=(const StreamFactory&) = delete;
    ~StreamFactory() { CFileIOMain::SetFactoryProvider({}); }

    int Live() const { return live_; }  // asked for and not yet released

    IFileIO* CreateFileIO(uint32_t) override { return nullptr; }
    IStreamFileIO* CreateStreamFileIO(uint32_t mode) override {
        EXPECT_EQ(mode, 0u);
        return stream_;
    }
    void Release() override { --live_; }

private:
    FaultyStream* stream_;
    int live_ = 0;
};

}  // namespace kmxf::test
