#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "collaborators/Guards.h"
#include "kmxf/collaborators/Timecode.h"
#include "kmxf/core/Records.h"
#include "kmxf/structures/IndexCommon.h"
#include "kmxf/writer/Op1bBase.h"
#include "reader/Op1bHeader.h"
#include "tools/Op1bScan.h"

namespace kmxf {

// What a salvage run finds of a clip.
struct SalvagedClip {
    int64_t duration = 0;  // frames
    int64_t origin = 0;
    int64_t videoDataSize = 0, audioDataSize = 0;  // bytes; of one channel
    uint32_t videoStd = 0, compType = 0, clipType = 0;
    uint8_t bytesPerSample = 0;
    MXFTIMESTAMPTag creationDate;
    MXFUMIDTag umid;
    CTimecode startTimecode;
    CUsersBit startUsersBit;
    MXFUMIDEXTag startUMID;
};

// What a run must come to.
struct Op1bExpected {
    int64_t frames = 0;
    uint64_t bodyEnd = 0;
};

// One salvage run over the file of an OP-1b clip, on the caller's thread. Every failure is logged.
class Op1bSalvage {
public:
    // `cancel` may be raised from any thread; `progress` is told percentages. Both must outlive the run. A run that
    // does not come to what is `expected` writes nothing.
    Op1bSalvage(const std::string& fileName, const std::atomic<bool>& cancel,
                const std::function<void(int32_t)>& progress, std::optional<Op1bExpected> expected = std::nullopt)
        : fileName_(fileName), cancel_(cancel), progress_(progress), expected_(expected) {}

    // All or nothing up to the first write; from there on it cannot be cancelled. kSalvageCompleted, kSalvageCancelled,
    // kSalvageFailed.
    int32_t Execute();
    const SalvagedClip& Clip() const { return clip_; }
    bool IsOtherThanExpected() const { return isOther_; }

private:
    bool Prepare();
    bool OpenFile();
    bool GetHeaderParam();
    bool CreateBuilder();
    bool GetFileParam();
    bool Follows(const Op1bGroup& group) const;
    bool Keep(const Op1bGroup& group);
    bool GetIndex();
    bool GetStartSEIParam();
    bool SetBuilderParam();
    bool SetDescriptiveMetadata();
    bool SetXMLData();
    bool SetThumbnailData();
    bool Write();

    HeaderBytes Header() const { return header_; }
    bool HasLargeThumbnail() const;
    int64_t GetOutOfRangeFrame() const;
    int64_t GetRollOutFrame() const;

    const std::string fileName_;
    const std::atomic<bool>& cancel_;
    const std::function<void(int32_t)>& progress_;
    const std::optional<Op1bExpected> expected_;
    bool isOther_ = false;

    FactoryStream file_;
    uint64_t fileSize_ = 0;
    std::vector<uint8_t> header_;
    uint32_t channels_ = 0;
    Op1bHeader sideData_;  // only XML and thumbnail
    std::optional<COp1bBase> builder_;
    uint32_t groupFrames_ = 0;  // of the first group
    int64_t frames_ = 0;        // all that are kept
    uint64_t bodyEnd_ = 0;      // behind the last whole group
    uint64_t firstPictureAt_ = 0, firstPictureSize_ = 0;
    std::optional<CIndexCommon> firstIndex_, lastIndex_;  // of the pictures
    SalvagedClip clip_;
};

}  // namespace kmxf
