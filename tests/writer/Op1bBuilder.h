#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <utility>
#include <vector>

#include "BuilderBytes.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/writer/Op1bBase.h"
#include "support/Hex.h"
#include "support/Packets.h"

namespace kmxf::test {

inline constexpr uint32_t kOp1bStandards[] = {VIDEO_STD_59_94I, VIDEO_STD_50I, VIDEO_STD_23_98P, VIDEO_STD_29_97P,
                                              VIDEO_STD_59_94P, VIDEO_STD_25P, VIDEO_STD_50P};

inline std::unique_ptr<COp1bBase> Builder(uint32_t channels = 2, uint32_t videoStd = VIDEO_STD_59_94I,
                                          uint8_t bytesPerSample = 2, bool players = false,
                                          uint32_t compType = COMP_TYPE_LONGG25_1080) {
    auto builder = std::make_unique<COp1bBase>(videoStd, compType, bytesPerSample, channels);
    EXPECT_EQ(builder->SetPlayerLayout(players), kStatusOk);
    EXPECT_EQ(builder->Initialize(), kStatusOk);
    return builder;
}

inline std::vector<uint8_t> HeaderOf(COp1bBase& builder) {
    return Made(0x20000, [&](uint8_t** data) { return builder.GetHeaderData(data); });
}
inline std::vector<Packet> PacketsOf(COp1bBase& builder) {
    const auto header = HeaderOf(builder);
    return header.empty() ? std::vector<Packet>{} : Packets(header, 0, header.size());
}
inline std::vector<uint8_t> FooterOf(COp1bBase& builder) {
    return Made(builder.GetFooterSize(), [&](uint8_t** data) { return builder.GetFooterData(data); });
}
inline std::vector<uint8_t> RandomIndexOf(COp1bBase& builder) {
    return Made(builder.GetRandomIndexSize(), [&](uint8_t** data) { return builder.GetRandomIndexData(data); });
}
inline std::vector<uint8_t> VideoPartitionOf(COp1bBase& builder, bool withIndex) {
    return Made(builder.GetBodyPartitionSize(withIndex, false),
                [&](uint8_t** data) { return builder.GetBodyPartitionDataVideo(data, withIndex); });
}
inline std::vector<uint8_t> AudioPartitionOf(COp1bBase& builder, bool withIndex, uint8_t channel) {
    return Made(builder.GetBodyPartitionSize(withIndex, true),
                [&](uint8_t** data) { return builder.GetBodyPartitionDataAudio(data, withIndex, channel); });
}
inline std::vector<uint8_t> ANCBlockOf(COp1bBase& builder, int64_t offset, uint32_t frames) {
    return Made(builder.GetBodyPartitionSizeANCData(frames),
                [&](uint8_t** data) { return builder.GetBodyPartitionDataANCData(data, offset, frames); });
}

// `size` bytes from `offset`.
inline std::vector<uint8_t> Cut(const std::vector<uint8_t>& bytes, size_t offset, size_t size) {
    if (offset + size > bytes.size()) return {};
    const auto start = bytes.begin() + static_cast<std::ptrdiff_t>(offset);
    return {start, start + static_cast<std::ptrdiff_t>(size)};
}
using Uids = std::vector<std::vector<uint8_t>>;

inline MXFUMIDTag Umid(uint8_t instance) {
    MXFUMIDTag umid{{0x06, 0x0A, 0x2B, 0x34, 0x01, 0x01, 0x01, 0x05, 0x01, 0x01, 0x0F, 0x20, 0x13, 0, 0, instance}};
    for (size_t i = 16; i < 32; ++i) umid.bytes[i] = static_cast<uint8_t>(0x90 + i);
    return umid;
}
inline std::vector<uint8_t> UidOf(const Packet& set) { return set.Item(0x3C0A); }
// The elements of a batch item, 16 bytes each.
inline Uids Batch(const Packet& set, uint16_t tag) {
    const auto value = set.Item(tag);
    Uids elements;
    for (auto at = value.begin() + 8; at < value.end(); at += 16) elements.emplace_back(at, at + 16);
    return elements;
}

// A package with its chains, in the order of the file.
struct Chain {
    Packet track, sequence, component;
};
struct Package {
    Packet set;
    std::vector<Chain> chains;
};
inline std::vector<Package> PackagesOf(const std::vector<Packet>& packets) {
    std::vector<Package> packages;
    for (size_t i = 0; i < packets.size() && packets[i].offset < 32768; ++i) {
        const std::vector<Packet> one = {packets[i]};
        if (!SetsOfKind(one, 0x36).empty() || !SetsOfKind(one, 0x37).empty()) packages.push_back({packets[i], {}});
        if (!SetsOfKind(one, 0x3B).empty()) {
            packages.back().chains.push_back({packets[i], packets[i + 1], packets[i + 2]});
        }
    }
    return packages;
}

// Byte 14 of the sets between the primer pack and the fill item behind the metadata.
inline std::vector<uint8_t> KindsOf(const std::vector<Packet>& packets) {
    std::vector<uint8_t> kinds;
    for (size_t i = 2; packets[i].key[4] == 0x02; ++i) kinds.push_back(packets[i].Kind());
    return kinds;
}

inline CDescriptiveMetadata StaticMetadata() {
    CDescriptiveMetadata metadata;
    metadata.SetTakeNumber(7);
    return metadata;
}
inline CDescriptiveMetadata SceneMetadata() {
    CDescriptiveMetadata metadata;
    metadata.SetSceneNumber("S-1");
    return metadata;
}
inline CDescriptiveMetadata AllMetadata() {
    CDescriptiveMetadata metadata = StaticMetadata();
    metadata.SetSceneNumber("S-1");
    return metadata;
}

// XML of one byte and a thumbnail of one.
inline void AddSideData(COp1bBase& builder) {
    const uint8_t bytes[1] = {};
    EXPECT_EQ(builder.SetXMLData(bytes, 1), kStatusOk);
    EXPECT_EQ(builder.SetThumbnailData(bytes, 1, 1, 1, 0), kStatusOk);
}

}  // namespace kmxf::test
