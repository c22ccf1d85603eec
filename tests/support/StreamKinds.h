#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "kmxf/collaborators/MemoryFileIO.h"
#include "support/FaultyStream.h"
#include "support/TemporaryFolder.h"

namespace kmxf::test {

struct StreamKind {
    const char* name;
    // Calls `use` with a stream to write on and a stream that reads what was written, and the file's name.
    std::function<void(const std::function<void(IStreamFileIO&, IStreamFileIO&, const char*)>&)> with;
};

inline std::vector<StreamKind> StreamKinds() {
    return {{"synchronous",
             [](const auto& use) {
                 CMemoryFileIO stream;
                 use(stream, stream, "memory");
             }},
            {"asynchronous",
             [](const auto& use) {
                 FaultyStream stream;
                 stream.CompleteAsynchronously();
                 FaultyStream reading(stream.Shared());
                 use(stream, reading, "memory");
                 EXPECT_EQ(stream.LivePieces(), 0);
                 EXPECT_EQ(stream.LiveAllocators(), 0);
             }},
            {"slow",
             [](const auto& use) {
                 FaultyStream stream;
                 stream.CompleteAsynchronously(std::chrono::milliseconds(1));
                 stream.SetClusterSize(262144);
                 FaultyStream reading(stream.Shared());
                 use(stream, reading, "memory");
                 EXPECT_EQ(stream.LivePieces(), 0);
             }},
            {"file", [](const auto& use) {
                 const TemporaryFolder folder;
                 const std::string name = folder.File("clip.mxf");
                 IFileIOFactory* factory = CFileIOMain::GetFactory(0, nullptr, 32768);
                 IStreamFileIO* writing = factory->CreateStreamFileIO(0);
                 IStreamFileIO* reading = factory->CreateStreamFileIO(0);
                 use(*writing, *reading, name.c_str());
                 writing->Release();
                 reading->Release();
                 factory->Release();
             }}};
}

}  // namespace kmxf::test
