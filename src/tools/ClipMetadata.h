#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kmxf/collaborators/Timecode.h"
#include "kmxf/core/Records.h"

// What is gathered of the files of a clip.
namespace kmxf {

struct FileMetadata {
    uint32_t dataOffset = 0;
    int64_t dataSize = 0, fileSize = 0;
    std::string packageName;
    CTimecode startTimecode;
    MXFUMIDTag fileUMID, materialUMID;
    std::string jobFunction, familyName, firstGivenName, projectNumber, projectName, clipKind, sceneNumber;
    uint16_t takeNumber = 0;
};

// A DIF unit; nothing stands for what it does not carry.
struct DIFMetadata {
    std::optional<uint32_t> videoStd, compType;
    std::optional<bool> consumerDV, pulldown2332;
    std::optional<uint8_t> pulldownFrameRate;
    std::optional<CTimecode> timecode;
    std::optional<CUsersBit> usersBit;
    std::optional<MXFUMIDEXTag> umid;
};

struct VideoMetadata : FileMetadata {
    uint32_t videoStd = 0, compType = 0;
    bool consumerDV = false, wide = false, avcIntra = false;
    uint32_t duration = 0;
    MXFTIMESTAMPTag creationDate;
    DIFMetadata dif;
};

struct AudioMetadata : FileMetadata {
    uint64_t samples = 0;
    uint32_t bitsPerSample = 0, samplingRate = 0;
};

struct ClipMetadata {
    bool extracted = false;
    std::string videoPath, name;
    VideoMetadata video;
    std::vector<AudioMetadata> audio;
};

}  // namespace kmxf
