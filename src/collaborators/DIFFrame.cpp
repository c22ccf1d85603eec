#include <algorithm>
#include <iterator>
#include <limits>

#include "collaborators/FramePacks.h"
#include "core/Bytes.h"
#include "kmxf/collaborators/VideoFrame.h"
#include "kmxf/core/VideoStandard.h"

namespace kmxf {

namespace {

using Bytes = std::span<const uint8_t>;

constexpr size_t kBlockSize = 80, kSequenceSize = 150 * kBlockSize;
constexpr uint32_t kAnyFrame = 0xFFFFFFFF;
constexpr uint8_t kSectionHeader = 0;

// Where the packs of a section stand in a DIF sequence: blocks (the n-th has the block number n), packs in a block.
struct Section {
    uint8_t type;
    uint8_t firstBlock, blockStep, blocks;
    uint8_t firstPack, packStep, packs;
};
constexpr Section kSubcode = {1, 1, 1, 2, 6, 8, 6};  // each pack behind the 3 bytes ID of its sync block
constexpr Section kVAUX = {2, 3, 1, 3, 3, 5, 15};
constexpr Section kAAUX = {3, 6, 16, 9, 3, 5, 1};

// The signals by field frequency and signal type of the VAUX source pack.
struct Signal {
    bool fifty;
    uint8_t type;
    uint32_t videoStd, compType;
    uint8_t channels;
    uint8_t frames;  // in a unit
};
constexpr Signal kSignals[] = {
    {false, 0x00, VIDEO_STD_59_94I, COMP_TYPE_DV25, 1, 1},
    {true, 0x00, VIDEO_STD_50I, COMP_TYPE_DV25, 1, 1},
    {false, 0x04, VIDEO_STD_59_94I, COMP_TYPE_DV50, 2, 1},
    {true, 0x04, VIDEO_STD_50I, COMP_TYPE_DV50, 2, 1},
    {false, 0x14, VIDEO_STD_59_94I, COMP_TYPE_DV100_1080I, 4, 1},
    {true, 0x14, VIDEO_STD_50I, COMP_TYPE_DV100_1080I, 4, 1},  // as some coders have it
    {true, 0x15, VIDEO_STD_50I, COMP_TYPE_DV100_1080I, 4, 1},
    {false, 0x18, VIDEO_STD_59_94P, COMP_TYPE_DV100_720P, 2, 2},
    {true, 0x18, VIDEO_STD_50P, COMP_TYPE_DV100_720P, 2, 2},
};

// The data of a DIF block, if it is the one of this section and number.
std::optional<Bytes> DIFBlock(Bytes bytes, size_t offset, uint8_t section, uint8_t number) {
    if (offset > bytes.size() || bytes.size() - offset < kBlockSize) return {};
    const Bytes block = bytes.subspan(offset, kBlockSize);
    if (block[0] >> 5 != section || block[2] != number) return {};
    return block;
}

// What the header block at the start of a frame says.
struct Header {
    size_t channelSize;   // bytes of one channel of a frame: 10 sequences for 525 lines, 12 for 625
    uint8_t application;  // 0: IEC 61834, 1: SMPTE ST 314
};
std::optional<Header> ReadHeader(Bytes bytes) {
    const auto block = DIFBlock(bytes, 0, kSectionHeader, 0);
    if (!block) return {};
    const bool lines625 = ((*block)[3] & 0x80) != 0;
    return Header{(lines625 ? 12 : 10) * kSequenceSize, static_cast<uint8_t>((*block)[4] & 0x07)};
}

// The packs of one section, in the order of the frame.
std::vector<FramePack> ReadPacks(Bytes bytes, const Section& section) {
    std::vector<FramePack> packs;
    for (size_t sequence = 0; sequence < bytes.size(); sequence += kSequenceSize) {
        for (uint8_t number = 0; number < section.blocks; ++number) {
            const size_t index = section.firstBlock + size_t{section.blockStep} * number;
            const auto block = DIFBlock(bytes, sequence + index * kBlockSize, section.type, number);
            if (!block) continue;
            for (size_t i = 0; i < section.packs; ++i) {
                const Bytes pack = block->subspan(section.firstPack + section.packStep * i, 5);
                packs.push_back({pack[0], {pack[1], pack[2], pack[3], pack[4]}});
            }
        }
    }
    return packs;
}

// The first thing that `pick` makes of a pack.
template <class Pick>
auto FirstOf(const std::vector<FramePack>& packs, Pick pick) {
    for (const FramePack& pack : packs)
        if (const auto picked = pick(pack)) return picked;
    return decltype(pick(packs[0])){};
}

const Signal* FindSignal(Bytes bytes) {
    return FirstOf(ReadPacks(bytes, kVAUX), [](const FramePack& pack) -> const Signal* {
        const bool fifty = (pack.data[2] & 0x20) != 0;
        const uint8_t type = pack.data[2] & 0x1F;
        const auto row = std::find_if(std::begin(kSignals), std::end(kSignals), [&](const Signal& signal) {
            return signal.fifty == fifty && signal.type == type;
        });
        return pack.id == kPackVAUXSource && row != std::end(kSignals) ? row : nullptr;
    });
}

// The first channel tells the signal, and so the length of the rest. A frame of an unknown signal is one channel.
struct Extent {
    size_t frameSize, unitSize;
};
Extent FindExtent(Bytes bytes) {
    const auto header = ReadHeader(bytes);
    if (!header) return {0, 0};
    const Signal* signal = FindSignal(bytes.first(std::min(header->channelSize, bytes.size())));
    const size_t frameSize = header->channelSize * (signal ? signal->channels : 1);
    return {frameSize, frameSize * (signal ? signal->frames : 1)};
}

// Frame 1 or 2 of a unit, or all of it, as far as it is there.
Bytes FrameBytes(Bytes unit, uint32_t sequence) {
    if (sequence == kAnyFrame) return unit;
    const uint64_t frameSize = FindExtent(unit).frameSize;
    if (sequence == 0 || (sequence - 1) * frameSize >= unit.size()) return {};
    const Bytes rest = unit.subspan(static_cast<size_t>((sequence - 1) * frameSize));
    return rest.first(static_cast<size_t>(std::min<uint64_t>(frameSize, rest.size())));
}

}  // namespace

CDIFFrame::CDIFFrame() = default;
CDIFFrame::~CDIFFrame() = default;

int32_t CDIFFrame::SetDIFData(const uint8_t* data) { return SetDIFData(data, std::numeric_limits<uint32_t>::max()); }

int32_t CDIFFrame::SetDIFData(const uint8_t* data, uint32_t size) {
    if (data == nullptr) return kStatusInvalidArgument;
    data_ = data;
    size_ = static_cast<uint32_t>(std::min<size_t>(size, FindExtent({data, size}).unitSize));
    return kStatusOk;
}

void CDIFFrame::ResetDIFData() {
    data_ = nullptr;
    size_ = 0;
}

int32_t CDIFFrame::GetTimecode(uint8_t* timecode, uint32_t sequence) const {
    const auto found = FirstOf(ReadPacks(FrameBytes({data_, size_}, sequence), kSubcode), [](const FramePack& pack) {
        return pack.id == kPackTimecode ? CheckedTimecode(pack.data) : std::nullopt;
    });
    return GiveOut(found, timecode);
}

int32_t CDIFFrame::GetUsersBit(uint8_t* usersBit, eSEIDataType type, uint32_t sequence) const {
    const auto pick = [&](const FramePack& pack) {
        const bool inVAUX = type == SEI_DATA_TYPE2 && pack.id == kPackVAUXUsersBit;
        return pack.id == kPackUsersBit || inVAUX ? std::optional(pack.data) : std::nullopt;
    };
    // A section carries its packs many times over: the second pair is not a second pack but that of the other section.
    const Bytes frame = FrameBytes({data_, size_}, sequence);
    std::optional<PackData> found;
    if (type == SEI_DATA_TYPE1) found = FirstOf(ReadPacks(frame, kSubcode), pick);
    if (type == SEI_DATA_TYPE2) found = FirstOf(ReadPacks(frame, kVAUX), pick);
    return GiveOut(found, usersBit);
}

int32_t CDIFFrame::GetUMID(uint8_t* umid) const {
    const auto found = FindUMID(ReadPacks({data_, size_}, kVAUX));
    return GiveOut(found ? found : FindUMID(ReadPacks({data_, size_}, kAAUX)), umid);
}

int32_t CDIFFrame::GetVideoSystem(uint32_t* videoStd) const {
    const Signal* signal = FindSignal({data_, size_});
    return GiveOut(signal ? std::optional(signal->videoStd) : std::nullopt, videoStd);
}

int32_t CDIFFrame::GetCompType(uint32_t* compType) const {
    const Signal* signal = FindSignal({data_, size_});
    return GiveOut(signal ? std::optional(signal->compType) : std::nullopt, compType);
}

int32_t CDIFFrame::GetConsumerDVFlag(bool* flag) const {
    const auto header = ReadHeader({data_, size_});
    return GiveOut(header && header->application <= 1 ? std::optional(header->application == 0) : std::nullopt, flag);
}

int32_t CDIFFrame::Get2332PulldownFlag(bool* flag) const { return GiveOut(std::optional<bool>(), flag); }

int32_t CDIFFrame::GetPulldownFrameRate(uint8_t* rate) const { return GiveOut(std::optional<uint8_t>(), rate); }

int32_t CDIFFrame::GetCLF(uint8_t* clf, uint32_t sequence) const {
    const auto found = FirstOf(ReadPacks(FrameBytes({data_, size_}, sequence), kVAUX), [](const FramePack& pack) {
        const bool valid = (pack.data[1] & 0x40) == 0;  // the enable flag: 0 when the colour frame holds
        const auto colourFrame = static_cast<uint8_t>(pack.data[1] >> 4 & 0x03);
        return pack.id == kPackVAUXSource && valid ? std::optional(colourFrame) : std::nullopt;
    });
    return GiveOut(found, clf);
}

}  // namespace kmxf
