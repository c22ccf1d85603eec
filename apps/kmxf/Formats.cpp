#include "Formats.h"

#include "kmxf/core/VideoStandard.h"
#include "kmxf/writer/CreateMXFOp1b.h"

namespace kmxf::program {

namespace {

struct CodecRow {
    const char* codec;
    const char* raster;  // null: it follows from the standard
    uint32_t compType;
    bool consumerDV;
};
constexpr CodecRow kCodecs[] = {
    {"dv25", nullptr, COMP_TYPE_DV25, false},         {"dv25-iec", nullptr, COMP_TYPE_DV25, true},
    {"dv50", nullptr, COMP_TYPE_DV50, false},         {"dv100", "1080", COMP_TYPE_DV100_1080I, false},
    {"dv100", "720", COMP_TYPE_DV100_720P, false},    {"avci50", "1080", COMP_TYPE_AVCI50_1080, false},
    {"avci50", "720", COMP_TYPE_AVCI50_720, false},   {"avci100", "1080", COMP_TYPE_AVCI100_1080, false},
    {"avci100", "720", COMP_TYPE_AVCI100_720, false}, {"avci200", "1080", COMP_TYPE_AVCI200_1080, false},
    {"avci200", "720", COMP_TYPE_AVCI200_720, false}, {"avclg6", "1080", COMP_TYPE_LONGG6_1080, false},
    {"avclg6", "720", COMP_TYPE_LONGG6_720, false},   {"avclg12", "1080", COMP_TYPE_LONGG12_1080, false},
    {"avclg12", "720", COMP_TYPE_LONGG12_720, false}, {"avclg25", "1080", COMP_TYPE_LONGG25_1080, false},
    {"avclg25", "720", COMP_TYPE_LONGG25_720, false}, {"avclg50", "1080", COMP_TYPE_LONGG50_1080, false},
    {"avclg50", "720", COMP_TYPE_LONGG50_720, false},
};

struct StandardRow {
    const char* name;
    uint32_t videoStd;
};
constexpr StandardRow kStandards[] = {
    {"59.94i", VIDEO_STD_59_94I}, {"50i", VIDEO_STD_50I}, {"23.98p", VIDEO_STD_23_98P}, {"29.97p", VIDEO_STD_29_97P},
    {"59.94p", VIDEO_STD_59_94P}, {"25p", VIDEO_STD_25P}, {"50p", VIDEO_STD_50P},
};

const CodecRow* FindCodec(const VideoFormat& format) {
    for (const CodecRow& row : kCodecs) {
        if (row.compType == format.compType && row.consumerDV == format.consumerDV) return &row;
    }
    return nullptr;
}

std::vector<VideoFormat> FormatsThat(bool (*accepted)(const VideoFormat&)) {
    std::vector<VideoFormat> formats;
    for (const CodecRow& codec : kCodecs) {
        for (const StandardRow& standard : kStandards) {
            const VideoFormat format{standard.videoStd, codec.compType, codec.consumerDV};
            if (accepted(format)) formats.push_back(format);
        }
    }
    return formats;
}

}  // namespace

uint32_t VideoFormat::FrameSize() const { return GetFrameDataSize(videoStd, compType); }
bool VideoFormat::IsAVCIntra() const { return IsAVCI(compType); }
bool VideoFormat::IsLongGOP() const { return GetAVCBitRate(compType) != 0; }

std::string VideoFormat::Codec() const {
    const CodecRow* row = FindCodec(*this);
    return row != nullptr ? row->codec : "unknown";
}

std::string VideoFormat::Raster() const {
    const CodecRow* row = FindCodec(*this);
    if (row == nullptr) return "unknown";
    if (row->raster != nullptr) return row->raster;
    return videoStd == VIDEO_STD_50I ? "625" : "525";
}

std::string VideoFormat::Standard() const { return StandardName(videoStd); }
std::string VideoFormat::Text() const { return Codec() + " " + Raster() + " " + Standard(); }

const std::vector<VideoFormat>& AllVideoFormats() {
    static const auto all = FormatsThat([](const VideoFormat& format) { return format.FrameSize() != 0; });
    return all;
}

const std::vector<VideoFormat>& AllLongGOPFormats() {
    static const auto all = FormatsThat([](const VideoFormat& format) {
        return format.IsLongGOP() && CCreateMXFOp1b::CheckFormat(format.videoStd, format.compType);
    });
    return all;
}

std::optional<uint32_t> StandardFromName(const std::string& name) {
    for (const StandardRow& row : kStandards) {
        if (name == row.name) return row.videoStd;
    }
    return std::nullopt;
}

std::string StandardName(uint32_t videoStd) {
    for (const StandardRow& row : kStandards) {
        if (videoStd == row.videoStd) return row.name;
    }
    return "unknown";
}

std::vector<std::string> CodecNames() {
    std::vector<std::string> names;
    for (const CodecRow& row : kCodecs) {
        if (names.empty() || names.back() != row.codec) names.emplace_back(row.codec);
    }
    return names;
}

std::vector<std::string> StandardNames() {
    std::vector<std::string> names;
    for (const StandardRow& row : kStandards) names.emplace_back(row.name);
    return names;
}

}  // namespace kmxf::program
