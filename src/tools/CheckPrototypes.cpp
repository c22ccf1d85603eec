#include "tools/CheckPrototypes.h"

#include <algorithm>
#include <cstdlib>
#include <initializer_list>
#include <map>
#include <memory>
#include <new>

#include "core/KLVPacket.h"
#include "core/Labels.h"
#include "kmxf/core/Status.h"
#include "kmxf/structures/DMSSets.h"
#include "kmxf/structures/Descriptors.h"
#include "kmxf/structures/IndexCommon.h"
#include "kmxf/structures/Sets.h"
#include "structures/AVCIntraPicture.h"
#include "structures/InspectItems.h"
#include "structures/MultipleDescriptor.h"
#include "structures/PictureFormat.h"

namespace kmxf {

namespace {

constexpr uint32_t kCompTypes[] = {
    COMP_TYPE_DV25,         COMP_TYPE_DV50,        COMP_TYPE_DV100_1080I,  COMP_TYPE_DV100_720P,
    COMP_TYPE_AVCI50_1080,  COMP_TYPE_AVCI50_720,  COMP_TYPE_AVCI100_1080, COMP_TYPE_AVCI100_720,
    COMP_TYPE_AVCI200_1080, COMP_TYPE_AVCI200_720, COMP_TYPE_LONGG6_1080,  COMP_TYPE_LONGG6_720,
    COMP_TYPE_LONGG12_1080, COMP_TYPE_LONGG12_720, COMP_TYPE_LONGG25_1080, COMP_TYPE_LONGG25_720,
    COMP_TYPE_LONGG50_1080, COMP_TYPE_LONGG50_720,
};

using Names = std::initializer_list<std::string_view>;
bool IsAmong(Names names, std::string_view name) { return std::ranges::find(names, name) != names.end(); }

using Prototypes = std::map<std::string_view, std::vector<PrototypeItem>>;

Prototypes MakePrototypes() {
    Prototypes prototypes;
    const auto add = [&](CMXFHeaderBase&& set, Names optional = {}, Names variable = {}) {
        std::vector<PrototypeItem>& items = prototypes[KeyName(set.GetKey())];
        for (InspectedItem& item : ItemsOf(set))
            items.push_back({item, IsAmong(optional, item.name), IsAmong(variable, item.name)});
    };
    CPreface preface;
    preface.SetPrimaryPackageFlag(true);
    add(std::move(preface), {"PrimaryPackage"});
    add(CIndexCommon(0, 0, 0, 1), {"DeltaEntryArray", "IndexEntryArray"});
    add(CIdentification());
    add(CContentStorage());
    add(CEssenceContainerData());
    add(CMaterialPackage());
    add(CFilePackage());
    add(CTrack());
    add(CSequence(kTrackCodePicture), {"Duration"});  // see CheckedSet::IsDescriptive
    add(CSourceComponent(kTrackCodePicture));
    add(CTimecodeComponent(VIDEO_STD_50I));
    add(CFillerComponent(VIDEO_STD_50I, kTrackCodePicture, 48000));
    add(CCDCIEssenceDescriptor(VIDEO_STD_50I, COMP_TYPE_DV25, false));
    add(CMPEGEssenceDescriptor(VIDEO_STD_50I, COMP_TYPE_AVCI50_1080));
    add(CH264EssenceSubDescriptor(VIDEO_STD_50I, COMP_TYPE_AVCI50_1080));
    add(CAESEssenceDescriptor());
    add(CDataEssenceDescriptor({25, 1}));
    add(MultipleDescriptor());
    add(CDMSTrack(false, VIDEO_STD_50I));
    add(CDMSTrack(true, VIDEO_STD_50I));
    add(CEventSegment(), {"Duration", "EventStartPosition"});
    add(CClipFramework());
    add(CContactsList());
    add(CProject());
    add(CParticipant());
    add(CPerson());
    add(CSceneFramework());
    add(CKestralinFrameworkStatic(), {}, {"XMLData"});
    add(CKestralinFrameworkEvent(), {}, {"ThumbnailData"});
    return prototypes;
}

size_t CountEqual(const InspectedItems& items, const CheckedSet* set) {
    if (set == nullptr) return 0;
    return static_cast<size_t>(
        std::ranges::count_if(items, [&](const InspectedItem& item) { return set->Text(item.name) == item.Text(); }));
}

// Nothing for a format that does not exist.
std::optional<InspectedItems> PictureItems(uint32_t videoStd, uint32_t compType, bool consumerDV) {
    if (IsAVCI(compType)) {
        CMPEGEssenceDescriptor descriptor(videoStd, compType);
        if (DescribeAVCIntraPicture(descriptor, videoStd, compType) != kStatusOk) return std::nullopt;
        return ItemsOf(descriptor);
    }
    CCDCIEssenceDescriptor descriptor(videoStd, compType, consumerDV);
    if (descriptor.SetVideoFormat(videoStd, compType, consumerDV) != kStatusOk) return std::nullopt;
    return ItemsOf(descriptor);
}

}  // namespace

InspectedItems ItemsOf(CMXFHeaderBase& set) {
    uint8_t* data = nullptr;
    if (set.GetData(&data) != kStatusOk) throw std::bad_alloc();  // it fails for nothing else
    const std::unique_ptr<uint8_t, decltype(&std::free)> owner(data, &std::free);
    const std::span<const uint8_t> value(data + kKLVHeadSize, set.GetLength() - kKLVHeadSize);
    InspectedPacket packet;
    packet.headSize = kKLVHeadSize;
    packet.length = packet.available = value.size();
    packet.kind = PacketKind::kSet;
    return DecodeItems(packet, value, nullptr);
}

const std::vector<PrototypeItem>* PrototypeOf(std::string_view setName) {
    static const Prototypes kPrototypes = MakePrototypes();
    const auto found = kPrototypes.find(setName);
    return found == kPrototypes.end() ? nullptr : &found->second;
}

std::optional<CheckedPicture> FindPicture(const CheckedSet& descriptor, const CheckedSet* subDescriptor) {
    std::optional<CheckedPicture> best;
    size_t most = 0;
    const auto consider = [&](uint32_t videoStd, uint32_t compType, bool consumerDV) {
        auto items = PictureItems(videoStd, compType, consumerDV);
        if (!items || FindItem(*items, "PictureEssenceCoding")->Text() != descriptor.Text("PictureEssenceCoding"))
            return;
        InspectedItems subItems;
        if (!IsDV(compType)) {
            CH264EssenceSubDescriptor sub(videoStd, compType);
            subItems = ItemsOf(sub);
        }
        const size_t equal = CountEqual(*items, &descriptor) + CountEqual(subItems, subDescriptor);
        if (best && equal <= most) return;
        most = equal;
        best = CheckedPicture{videoStd, compType, *std::move(items), std::move(subItems)};
    };
    const auto rate = descriptor.Rational("SampleRate");
    for (const StandardBit& standard : kStandardBits) {
        if (!rate || GetVideoEditRate(standard.videoStd) != *rate) continue;
        for (const uint32_t compType : kCompTypes) {
            consider(standard.videoStd, compType, false);
            if (compType == COMP_TYPE_DV25) consider(standard.videoStd, compType, true);
        }
    }
    return best;
}

InspectedItems SoundDescriptorItems(const CheckedMetadata& metadata, bool clipWrapped) {
    const MXFRATIONALTag rate = GetAudioEditRate(metadata.samplesPerSec);
    const uint32_t bytes = metadata.bytesPerSample == 3 ? 3 : 2;
    CAESEssenceDescriptor descriptor;
    descriptor.SetSampleRate(rate);
    descriptor.SetEssenceContainer(clipWrapped ? kAES3ClipContainerLabel : kPCMCustomContainerLabel);
    descriptor.SetAudioSamplingRate(rate);
    descriptor.SetQuantizationBits(8 * bytes);
    descriptor.SetBlockAlign(static_cast<uint16_t>(bytes));
    descriptor.SetAverageBytesPerSecond(static_cast<uint32_t>(rate.numerator) * bytes);
    return ItemsOf(descriptor);
}

InspectedItems ANCDescriptorItems(const MXFRATIONALTag& rate) {
    CDataEssenceDescriptor descriptor(rate);
    return ItemsOf(descriptor);
}

InspectedItems MultipleDescriptorItems(const MXFRATIONALTag& rate) {
    MultipleDescriptor descriptor;
    descriptor.SetSampleRate(rate);
    return ItemsOf(descriptor);
}

}  // namespace kmxf
