// fuzz_seeds FOLDER: writes the inputs from which fuzzing begins, a folder for each family. Files are recorded by this
// library's writers, whole and cut off, from the essence of the tests; it is shortened where its bytes do not matter.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/Labels.h"
#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/structures/DescriptiveMetadata.h"
#include "kmxf/writer/CreateMXFAudio.h"
#include "kmxf/writer/CreateMXFOp1b.h"
#include "kmxf/writer/CreateMXFVideo.h"
#include "support/FixedEnvironment.h"
#include "support/TestData.h"
#include "support/Walk.h"

namespace {

using namespace kmxf;
using Bytes = std::vector<uint8_t>;

Bytes First(const Bytes& bytes, size_t count) {
    return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(std::min(count, bytes.size()))};
}
void Append(Bytes& to, const Bytes& bytes) { to.insert(to.end(), bytes.begin(), bytes.end()); }
Bytes Essence(const std::string& name) { return test::LoadTestData("essence/" + name); }

void Done(int32_t status) {
    if (status < 0) throw std::runtime_error("a recording failed with " + std::to_string(status));
}

CDescriptiveMetadata SomeMetadata() {
    CDescriptiveMetadata metadata;
    metadata.SetJobFunction("Camera");
    metadata.SetFamilyName("Family");
    metadata.SetFirstGivenName("Given");
    metadata.SetProjectNumber("P-17");
    metadata.SetProjectName("Project \xC3\xA4");
    metadata.SetTakeNumber(3);
    metadata.SetSceneNumber("12A");
    return metadata;
}

// Both ends of a recording: closed, and as its writer would leave it when it is killed.
struct Recorded {
    Bytes closed, cutOff;
};

Recorded RecordAtom(CCreateMXFBase& writer, uint32_t videoStd, const Bytes& essence) {
    CMemoryFileIO stream;
    writer.SetFilename("clip.mxf");
    writer.SetVideoStandard(videoStd);
    writer.SetClipType(0x102);
    writer.SetPackageName("CLIP01");
    writer.SetDescriptiveMetadata(SomeMetadata());
    Done(writer.Open(&stream, true));
    CMemoryPiece piece(essence.data(), static_cast<uint32_t>(essence.size()));
    Done(writer.Write(&piece, 0));
    Recorded recorded;
    recorded.cutOff = stream.GetContents();
    Done(writer.Close());
    recorded.closed = stream.GetContents();
    return recorded;
}
Recorded RecordVideo(uint32_t videoStd, uint32_t compType, const Bytes& essence, bool consumer = false) {
    CCreateMXFVideo writer;
    writer.SetDVType(compType);
    writer.SetConsumerDV(consumer);
    return RecordAtom(writer, videoStd, essence);
}
Recorded RecordAudio(uint32_t videoStd, uint16_t bytesPerSample, size_t samples) {
    CCreateMXFAudio writer;
    writer.SetBytesPerSample(bytesPerSample);
    writer.SetChannel(1);
    return RecordAtom(writer, videoStd, Bytes(samples * bytesPerSample, 0x11));
}

// The access units of the Long-GOP stream, their slices cut behind their heads.
std::vector<Bytes> ShortAccessUnits() {
    constexpr size_t kSlice = 40;
    const Bytes stream = Essence("longg25-1080-5994i.264");
    const Bytes startCode{0, 0, 1};
    std::vector<Bytes> units;
    for (auto at = std::search(stream.begin(), stream.end(), startCode.begin(), startCode.end()); at != stream.end();) {
        const auto next = std::search(at + 3, stream.end(), startCode.begin(), startCode.end());
        const int type = at[3] & 0x1F;
        if (type == 9) units.push_back({0});
        Bytes nal(at, next);
        while (nal.back() == 0) nal.pop_back();
        if (type == 1 || type == 5) {
            nal.resize(std::min(nal.size(), kSlice));
            nal.push_back(0x80);
        }
        Append(units.back(), nal);
        at = next;
    }
    return units;
}

struct Clip {
    uint32_t videoStd, compType;
    uint32_t channels, frames;
    uint8_t bytesPerSample = 2;
    bool players = false, sideData = true;
};
Recorded RecordClip(const Clip& clip) {
    static const auto kUnits = ShortAccessUnits();
    CMemoryFileIO stream;
    CCreateMXFOp1b writer;
    writer.SetVideoStandard(clip.videoStd);
    writer.SetCompType(clip.compType);
    writer.SetBytesPerSample(clip.bytesPerSample);
    writer.SetClipType(0x100 + clip.channels);
    writer.SetPackageName("CLIP01");
    writer.SetPlayerLayout(clip.players);
    if (clip.sideData) writer.SetDescriptiveMetadata(SomeMetadata());
    Done(writer.Open("clip.mxf", &stream));
    if (clip.sideData) {
        const Bytes xml = Essence("clip.xml"), thumbnail = Essence("thumbnail.bmp");
        Done(writer.SetXMLData(xml.data(), static_cast<uint16_t>(xml.size())));
        Done(writer.SetThumbnailData(thumbnail.data(), static_cast<uint16_t>(thumbnail.size()), 80, 45, 0));
    }
    const uint32_t group = VideoStandardToPartitionFrame(clip.videoStd);
    for (uint32_t frame = 0; frame < clip.frames; ++frame) {
        const Bytes& unit = kUnits[frame % kUnits.size()];
        CMemoryPiece picture(unit.data(), static_cast<uint32_t>(unit.size()));
        Done(writer.WriteVideo(&picture, 0, 0, frame % 12 == 0 ? 0xC0 : 0x22));
        if ((frame + 1) % group != 0 && frame + 1 != clip.frames) continue;
        const auto samples = DurationToAudioSample(clip.videoStd, frame % group + 1, 48000);
        for (uint32_t channel = 0; channel < clip.channels; ++channel) {
            CMemoryPiece sound(static_cast<uint32_t>(samples) * clip.bytesPerSample);
            Done(writer.WriteAudio(&sound, static_cast<uint8_t>(channel)));
        }
    }
    Recorded recorded;
    recorded.cutOff = stream.GetContents();
    Done(writer.Close());
    recorded.closed = stream.GetContents();
    return recorded;
}

class Seeds {
public:
    explicit Seeds(std::filesystem::path folder) : folder_(std::move(folder)) {}

    void Put(const std::string& family, const Bytes& bytes) {
        const auto place = folder_ / family;
        std::filesystem::create_directories(place);
        std::ofstream file(place / std::to_string(++count_), std::ios::binary);
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        if (!file.flush()) throw std::runtime_error("cannot write to " + place.string());
    }
    void Put(const std::string& family, std::string_view text) { Put(family, Bytes(text.begin(), text.end())); }
    void Put(const std::string& family, const Recorded& recorded) {
        Put(family, recorded.closed);
        Put(family + "_cut_off", recorded.cutOff);
        PutHeader(recorded.closed);
    }
    size_t Count() const { return count_; }

private:
    // The header without its fill, and every kind of packet by itself.
    void PutHeader(const Bytes& file) {
        test::MemorySource source(file);
        CInspector inspector(source);
        Bytes header;
        while (const auto packet = inspector.Next()) {
            const auto begin = file.begin() + static_cast<std::ptrdiff_t>(packet->offset);
            const auto end = file.begin() + static_cast<std::ptrdiff_t>(packet->End());
            const bool counts = packet->kind != PacketKind::kFill && packet->kind != PacketKind::kEssence;
            if (packet->partition == 1 && counts) header.insert(header.end(), begin, end);
            if (!counts || packet->length > 4096) continue;
            const char* const family = packet->kind == PacketKind::kPartition      ? "partition"
                                       : packet->kind == PacketKind::kIndexSegment ? "index_segment"
                                       : packet->kind == PacketKind::kRandomIndex  ? "random_index"
                                                                                   : "set";
            const Bytes bytes(begin, end);
            if (known_.insert(First(bytes, 24)).second) Put(family, bytes);
        }
        Put("header", header);
    }

    std::filesystem::path folder_;
    size_t count_ = 0;
    std::set<Bytes> known_;
};

void PutFiles(Seeds& seeds) {
    const Bytes dv = First(Essence("dv25-5994i.dif"), 240000), iec = First(Essence("dv25-50i-iec.dif"), 144000);
    const Bytes dv100 = Essence("dv100-720-5994p.dif"), intra = First(Essence("avci50-720-5994p.raw"), 116224);
    seeds.Put("atom_video", RecordVideo(VIDEO_STD_59_94I, COMP_TYPE_DV25, dv));
    seeds.Put("atom_video", RecordVideo(VIDEO_STD_50I, COMP_TYPE_DV25, iec, true));
    seeds.Put("atom_video", RecordVideo(VIDEO_STD_59_94P, COMP_TYPE_DV100_720P, dv100));
    seeds.Put("atom_video", RecordVideo(VIDEO_STD_59_94P, COMP_TYPE_AVCI50_720, intra));
    seeds.Put("atom_audio", RecordAudio(VIDEO_STD_59_94I, 2, 3204));
    seeds.Put("atom_audio", RecordAudio(VIDEO_STD_50I, 3, 1920));
    seeds.Put("clip", RecordClip({VIDEO_STD_59_94I, COMP_TYPE_LONGG25_1080, 2, 3}));
    seeds.Put("clip", RecordClip({VIDEO_STD_23_98P, COMP_TYPE_LONGG50_1080, 0, 50}));
    seeds.Put("clip", RecordClip({VIDEO_STD_23_98P, COMP_TYPE_LONGG25_1080, 1, 50, 3, true, false}));
    seeds.Put("clip", RecordClip({VIDEO_STD_50P, COMP_TYPE_LONGG25_720, 1, 5, 2, false, false}));
}

// As many packets as a file can hold, each as small as it can be: what is done for every one of them must not depend on
// how many there are. Their lengths say 0, or lead out of the file.
void PutCrowds(Seeds& seeds) {
    const Bytes clip = RecordClip({VIDEO_STD_59_94I, COMP_TYPE_LONGG25_1080, 0, 1}).closed;
    for (const MXFKEYTag& key : {kPrimerPackKey, kTrackKey, kIndexSegmentKey, kAVCLongGOPElementKey, kFillKey}) {
        for (const Bytes& length : {Bytes{0}, Bytes{0x84, 0x7F, 0xFF, 0xFF, 0xFF}}) {
            Bytes crowd = First(clip, 140);  // the header partition pack
            while (crowd.size() < 40000) {
                crowd.insert(crowd.end(), std::begin(key.bytes), std::end(key.bytes));
                Append(crowd, length);
            }
            seeds.Put("crowd", crowd);
        }
    }
}

void PutEssence(Seeds& seeds) {
    const auto units = ShortAccessUnits();
    Bytes stream;
    for (const Bytes& unit : units) {
        Append(stream, unit);
        if (stream.size() < 2000) seeds.Put("sei", First(unit, 512));
    }
    seeds.Put("h264", stream);
    seeds.Put("h264", First(stream, 3000));
    seeds.Put("essence", stream);
    for (const char* name : {"avci100-1080-5994i.raw", "avci50-720-5994p.raw"}) {
        seeds.Put("sei", First(Essence(name), 512));
        seeds.Put("h264", First(Essence(name), 2000));
    }
    seeds.Put("essence", First(Essence("avci50-720-5994p-header.raw"), 512 + 116224));
    for (const char* name : {"dv25-5994i.dif", "dv25-50i-iec.dif", "dv50-50i.dif", "dv100-720-5994p.dif"}) {
        seeds.Put("dif", First(Essence(name), 12000));
        seeds.Put("essence", First(Essence(name), 24000));
    }
    seeds.Put("dif", First(Essence("dv25-5994i.dif"), 120000));
}

void PutSideFiles(Seeds& seeds) {
    for (const char* name : {"tone-16bit-mono.wav", "tone-24bit-stereo.wav", "thumbnail.bmp", "clip.xml"})
        seeds.Put("side_file", First(Essence(name), 4096));
    seeds.Put("side_file", std::string_view("2026-01-02T03:04:05"));
    seeds.Put("side_file", std::string_view("060A2B340101010501010D43130000000102030405060708090A0B0C0D0E0F10"));
    seeds.Put("side_file", std::string_view(R"({"undo": "kmxf/1", "clip": ["clip.mxf"], "file_size": 4096,
 "before": "0123456789ABCDEF", "after": "FEDCBA9876543210", "changes": [{"offset": 16, "old": "00FF"}]})"));
    seeds.Put("text", std::string_view("01:02:03;04"));
    seeds.Put("text", std::string_view("23:59:59:29"));
    seeds.Put("text", std::string_view("A\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"));
    seeds.Put("text", Bytes{0x00, 0x41, 0xD8, 0x3D, 0xDE, 0x00, 0xDC, 0x00, 0xD8, 0x00, 0x00, 0x00});
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 2) throw std::runtime_error("usage: fuzz_seeds FOLDER");
    const test::FixedEnvironment environment;
    std::filesystem::remove_all(argv[1]);
    Seeds seeds(argv[1]);
    PutFiles(seeds);
    PutCrowds(seeds);
    PutEssence(seeds);
    PutSideFiles(seeds);
    std::printf("%zu inputs in %s\n", seeds.Count(), argv[1]);
} catch (const std::exception& error) {
    std::fprintf(stderr, "fuzz_seeds: %s\n", error.what());
    return 1;
}
