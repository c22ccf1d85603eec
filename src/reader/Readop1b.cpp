#include <cstring>
#include <optional>

#include "collaborators/Guards.h"
#include "kmxf/core/Status.h"
#include "kmxf/reader/ReadMXFOp1b.h"

namespace kmxf {

namespace {

constexpr int32_t kOpen = 1, kLookUp = 2, kInfo = 3, kClose = 4, kUnknown = 5;
constexpr int32_t kBeyond = -20, kNoFrame = -21, kNoPicture = -22;

// The reader of the process, with the stream that it reads.
class SharedReader {
public:
    static SharedReader& Instance() {
        static auto& reader = *new SharedReader;  // good for destructors of global objects
        return reader;
    }

    bool Open(const READOP1BREQUESTTag& request) {
        Close();
        if (std::memchr(request.fileName, 0, sizeof request.fileName) == nullptr) return false;
        stream_.emplace();
        const bool opened = reader.Open(request.fileName, stream_->get()) == kStatusOk;
        if (!opened) stream_.reset();
        return opened;
    }
    void Close() {
        reader.Close();
        stream_.reset();
    }

    Mutex lock;
    CReadMXFOp1b reader;

private:
    std::optional<FactoryStream> stream_;
};

int32_t LookUp(SharedReader& shared, READOP1BREQUESTTag& request, VIDEOFRAMEINFOTag* info) {
    CReadMXFOp1b& reader = shared.reader;
    // The frame just behind the last one is not beyond; whether the file has it shows below.
    if (reader.GetDuration() == 0 || request.frame > reader.GetDuration()) {
        shared.Close();
        return kBeyond;
    }
    VIDEOFRAMEINFOTag found;
    if (info == nullptr || reader.GetVideoInfo(request.frame, found) != kStatusOk) return kNoFrame;
    const int64_t position = int64_t{request.frame} + found.temporalOffset;
    const auto picture = static_cast<uint32_t>(position);
    if (position < 0 || reader.GetVideoInfo(picture, found) != kStatusOk) return kNoPicture;
    const int64_t key = position + found.keyFrameOffset;
    if (key < 0) return kNoPicture;
    const uint32_t step = request.mode == 1 ? 4 : 3;
    *info = found;
    request.keyFrame = static_cast<uint32_t>(key);
    request.nextAnchorFrame = (picture / step + 1) * step;
    return kLookUp;
}

}  // namespace

extern "C" int32_t Readop1b(READOP1BREQUESTTag* request, VIDEOFRAMEINFOTag* info, int32_t command) {
    if (request == nullptr) return -1;
    SharedReader& shared = SharedReader::Instance();
    const ScopedLock lock(shared.lock);
    const auto tellDuration = [&] { request->duration = static_cast<uint32_t>(shared.reader.GetDuration()); };
    switch (command) {
        case kOpen:
            if (!shared.Open(*request)) return -kOpen;
            tellDuration();
            return kOpen;
        case kLookUp:
            tellDuration();
            return LookUp(shared, *request, info);
        case kInfo: {
            tellDuration();
            VIDEOFRAMEINFOTag found;
            if (info == nullptr || shared.reader.GetVideoInfo(request->frame, found) != kStatusOk) return -kInfo;
            *info = found;
            return kInfo;
        }
        case kClose:
            shared.Close();
            return kClose;
        default:
            return kUnknown;
    }
}

extern "C" uint32_t Readop1bHeaderSize() {
    SharedReader& shared = SharedReader::Instance();
    const ScopedLock lock(shared.lock);
    return shared.reader.GetHeaderSize();
}

extern "C" bool Readop1bHeader(uint8_t* buffer) {
    SharedReader& shared = SharedReader::Instance();
    const ScopedLock lock(shared.lock);
    return shared.reader.GetHeaderData(buffer);
}

}  // namespace kmxf
