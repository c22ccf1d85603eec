#include "kmxf/collaborators/FileIO.h"

#include <algorithm>
#include <limits>
#include <mutex>
#include <new>
#include <utility>

#include "collaborators/FileStream.h"
#include "collaborators/NativeFile.h"
#include "collaborators/StreamRules.h"
#include "kmxf/core/Status.h"

namespace kmxf {

namespace {

class LocalFile final : public IFileIO {
public:
    bool Open(const char* fileName, uint32_t flags) override {
        if (file_.IsOpened() && !Close()) return false;
        position_ = 0;
        return file_.Open(fileName, flags);
    }
    bool Close() override { return file_.Close(); }
    int32_t Write(const void* buffer, uint32_t size) override {
        if (buffer == nullptr || size > kMaxCount || !file_.WriteAt(buffer, size, position_)) return kCountFailed;
        position_ += size;
        return static_cast<int32_t>(size);
    }
    int32_t Read(void* buffer, uint32_t size) override {
        if (buffer == nullptr) return kCountFailed;
        const auto count = static_cast<int32_t>(file_.ReadAt(buffer, std::min(size, kMaxCount), position_));
        if (count > 0) position_ += count;
        return count;
    }
    int64_t Seek(int64_t offset, int32_t origin) override {
        if (!file_.IsOpened()) return -1;
        const int64_t target = SeekTarget(offset, origin, position_, [&] { return file_.Size(); });
        if (target >= 0) position_ = target;
        return target;
    }
    void Release() override { delete this; }

private:
    static constexpr uint32_t kMaxCount = std::numeric_limits<int32_t>::max();

    NativeFile file_;
    int64_t position_ = 0;
};

// The local file system: the modes have nothing to choose between.
class LocalFactory final : public IFileIOFactory {
public:
    IFileIO* CreateFileIO(uint32_t) override { return new (std::nothrow) LocalFile; }
    IStreamFileIO* CreateStreamFileIO(uint32_t) override { return new (std::nothrow) FileStream; }
    void Release() override { delete this; }
};

struct Provider {
    std::mutex mutex;
    FactoryProvider function;

    static Provider& Instance() {
        static auto& provider = *new Provider;  // good for destructors of global objects
        return provider;
    }
};

}  // namespace

IFileIOFactory* CFileIOMain::GetFactory(uint32_t kind, const CNetworkInfo* network, uint32_t bufferUnit) try {
    std::unique_lock lock(Provider::Instance().mutex);
    const FactoryProvider provider = Provider::Instance().function;
    lock.unlock();
    if (provider) return provider(kind, network, bufferUnit);
    return kind == 0 ? new (std::nothrow) LocalFactory : nullptr;
} catch (const std::bad_alloc&) {
    return nullptr;
}

void CFileIOMain::SetFactoryProvider(FactoryProvider provider) {
    const std::lock_guard lock(Provider::Instance().mutex);
    Provider::Instance().function = std::move(provider);
}

}  // namespace kmxf
