#include "kmxf/tools/SalvageMXFOp1b.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kmxf/collaborators/Log.h"
#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Environment.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/reader/ReadMXFOp1b.h"
#include "kmxf/writer/CreateMXFAudio.h"
#include "kmxf/writer/CreateMXFOp1b.h"
#include "reader/FailingAllocation.h"
#include "roundtrip/Recording.h"
#include "support/FaultyStream.h"
#include "support/FixedEnvironment.h"
#include "support/Hex.h"
#include "support/LogRecorder.h"
#include "support/Packets.h"
#include "support/TemporaryFolder.h"
#include "support/TestData.h"
#include "tools/StreamFactory.h"

namespace kmxf::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Bytes = std::vector<uint8_t>;
using Note = std::pair<int32_t, int32_t>;

constexpr size_t kHeader = 131072;
constexpr std::string_view kPictureKey = "06 0E 2B 34 01 02 01 01 0D 01 03 01 15 01 05 01";
constexpr std::string_view kSoundKey = "06 0E 2B 34 01 02 01 01 0D 01 03 01 16 01 0C 01";
constexpr std::string_view kStartItem = "3F 0C 00 08";  // of an index segment, with its length
constexpr std::string_view kFooterKey = "06 0E 2B 34 02 05 01 01 0D 01 02 01 01 04 04 00";
const Note kCompleted{1, 0}, kCancelled{1, -1}, kFailed{1, -2};

std::ptrdiff_t At(size_t offset) { return static_cast<std::ptrdiff_t>(offset); }
Bytes First(const Bytes& bytes, size_t count) { return {bytes.begin(), bytes.begin() + At(count)}; }
void Put(Bytes& bytes, size_t at, const Bytes& what) { std::ranges::copy(what, bytes.begin() + At(at)); }
uint64_t NumberAt(const Bytes& bytes, size_t at, size_t width) {
    return BigEndian(std::span(bytes).subspan(at, width));
}
// Where these bytes are first found; the end if they are not.
size_t Find(const Bytes& bytes, const Bytes& what, size_t from = 0) {
    return static_cast<size_t>(std::search(bytes.begin() + At(from), bytes.end(), what.begin(), what.end()) -
                               bytes.begin());
}

// A recording to be made.
struct Clip {
    uint32_t videoStd = VIDEO_STD_25P;  // groups of 50
    uint32_t compType = COMP_TYPE_LONGG25_1080;
    uint32_t channels = 2;
    uint8_t bytesPerSample = 2;
    uint32_t frames = 110;
    bool players = false;
    std::map<uint32_t, std::pair<int8_t, uint8_t>> entries{};  // temporal offset and flags of some frames
    Bytes firstPicture{};                                      // instead of noise

    uint32_t Group() const { return VideoStandardToPartitionFrame(videoStd); }
    Bytes Picture(uint32_t frame) const {
        if (frame == 0 && !firstPicture.empty()) return firstPicture;
        return Noise(30 + frame % 7, frame + 1);
    }
    Bytes Sound(uint32_t group, uint32_t channel) const {
        const uint32_t count = std::min(Group(), frames - group * Group());
        const auto samples = static_cast<size_t>(DurationToAudioSample(videoStd, count, 48000));
        return Noise(samples * bytesPerSample, 1000 + group * 16 + channel);
    }
};

MXFUMIDTag SomeUMID() {
    MXFUMIDTag umid;
    for (size_t i = 0; i < 32; ++i) umid.bytes[i] = static_cast<uint8_t>(0xA0 + i);
    return umid;
}

// The file that a recording leaves behind: whole, or as it is when the writer goes away.
Bytes Record(const Clip& clip, bool close, const CDescriptiveMetadata& metadata = {}) {
    CMemoryFileIO stream;
    CCreateMXFOp1b writer;
    const Bytes product(16, 0x77);
    writer.SetVideoStandard(clip.videoStd);
    writer.SetCompType(clip.compType);
    writer.SetBytesPerSample(clip.bytesPerSample);
    writer.SetClipType(0x100 + clip.channels);
    writer.SetUMID(SomeUMID());
    writer.SetPackageName("A001C007");
    writer.SetStartTimecode(CTimecode(90000, true));
    writer.SetIdentification("Company", "Product", "9.87", product.data());
    writer.SetPlayerLayout(clip.players);
    writer.SetDescriptiveMetadata(metadata);
    EXPECT_EQ(writer.Open("clip.mxf", &stream), kStatusOk);
    const Bytes xml = LoadTestData("essence/clip.xml"), thumbnail = LoadTestData("essence/thumbnail.bmp");
    EXPECT_EQ(writer.SetXMLData(xml.data(), static_cast<uint16_t>(xml.size())), kStatusOk);
    EXPECT_EQ(writer.SetThumbnailData(thumbnail.data(), static_cast<uint16_t>(thumbnail.size()), 80, 45, 0), kStatusOk);
    EXPECT_EQ(writer.SetThumbnailPosition(33), kStatusOk);
    for (uint32_t frame = 0; frame < clip.frames; ++frame) {
        const Bytes picture = clip.Picture(frame);
        CMemoryPiece piece(picture.data(), static_cast<uint32_t>(picture.size()));
        const auto found = clip.entries.find(frame);
        const auto entry = found == clip.entries.end() ? std::pair<int8_t, uint8_t>{0, 0x80} : found->second;
        EXPECT_GT(writer.WriteVideo(&piece, entry.first, 0, entry.second), 0);
        const bool ends = (frame + 1) % clip.Group() == 0 || frame + 1 == clip.frames;
        for (uint32_t channel = 0; ends && channel < clip.channels; ++channel) {
            const Bytes sound = clip.Sound(frame / clip.Group(), channel);
            CMemoryPiece block(sound.data(), static_cast<uint32_t>(sound.size()));
            EXPECT_GT(writer.WriteAudio(&block, static_cast<uint8_t>(channel)), 0);
        }
    }
    if (close) {
        EXPECT_EQ(writer.Close(), kStatusOk);
    }
    return stream.GetContents();
}

// Where each group of a closed file begins, and at last the footer: by its random index.
std::vector<size_t> GroupStarts(const Bytes& closed, uint32_t channels) {
    const size_t overall = NumberAt(closed, closed.size() - 4, 4), entries = (overall - 24) / 12;
    std::vector<size_t> starts;
    for (size_t entry = 1; entry < entries; entry += 4 + 2 * channels) {
        starts.push_back(NumberAt(closed, closed.size() - overall + 20 + 12 * entry + 4, 8));
    }
    return starts;
}

// The UUIDs of FixedEnvironment, numbered anew in the order in which they are met.
Bytes Renumbered(Bytes bytes) {
    const Bytes prefix = Hex("00 00 00 00 00 00 40 00 80 00 00 00");
    std::map<uint64_t, uint32_t> numbers;
    for (size_t at = 0; (at = Find(bytes, prefix, at)) < bytes.size(); at += 16) {
        const uint32_t number =
            numbers.try_emplace(NumberAt(bytes, at + 12, 4), static_cast<uint32_t>(numbers.size())).first->second;
        for (size_t i = 0; i < 4; ++i) bytes[at + 15 - i] = static_cast<uint8_t>(number >> (8 * i));
    }
    return bytes;
}

// Keeps what it is told, and calls `on` each time.
class Notes final : public ISalvageMXFNotify {
public:
    explicit Notes(std::function<void(Note)> on = {}) : on_(std::move(on)) {}
    void Notify(int32_t kind, int32_t value) override {
        if (on_) on_({kind, value});
        const std::lock_guard lock(mutex_);
        notes_.emplace_back(kind, value);
        changed_.notify_all();
    }
    std::vector<Note> UntilTheEnd() {
        std::unique_lock lock(mutex_);
        const bool ended = changed_.wait_for(lock, std::chrono::seconds(60),
                                             [this] { return !notes_.empty() && notes_.back().first == 1; });
        EXPECT_TRUE(ended);
        return notes_;
    }

private:
    std::function<void(Note)> on_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Note> notes_;
};

class SalvageMXFOp1b : public testing::Test {
protected:
    SalvageMXFOp1b() : name(folder.File("clip.mxf")) {}

    // A run over these bytes in memory. Cutting needs a file on the medium: an empty one of the same name stands in
    // for it, and its size says where the cut was.
    Note Run(Bytes file) { return RunOn(std::make_unique<FaultyStream>(std::move(file))); }
    Note RunOn(std::unique_ptr<FaultyStream> on) {
        stream = std::move(on);
        log.Clear();
        std::ofstream(name, std::ios::trunc);
        salvager = std::make_unique<CSalvageMXFOp1b>();
        EXPECT_TRUE(salvager->SetFilename(name.c_str()));
        const StreamFactory factory(stream.get());
        Notes told;
        EXPECT_EQ(salvager->Salvage(&told), kStatusOk);
        notes = told.UntilTheEnd();
        EXPECT_TRUE(stream->Released());
        EXPECT_FALSE(stream->IsOpened());
        EXPECT_EQ(stream->LivePieces() + stream->LiveAllocators() + factory.Live(), 0);
        if (const size_t cut = std::filesystem::file_size(name); cut > 0) {
            EXPECT_LT(cut, stream->Bytes().size());
            stream->Bytes().resize(cut);
        }
        return notes.back();
    }
    const Bytes& After() const { return stream->Bytes(); }

    // A run that fails with these lines and leaves the file alone.
    void ExpectRefused(const Bytes& file, const std::vector<std::string>& lines) {
        EXPECT_EQ(Run(file), kFailed);
        EXPECT_EQ(log.Lines(), lines);
        EXPECT_TRUE(SameBytes(file, After()));
        EXPECT_EQ(salvager->GetDuration(), 0);
        EXPECT_EQ(salvager->GetVideoStandard(), 0u);
    }

    // The file is whole and holds the first frames of the clip, in order, with their sound.
    void ExpectFrames(const Clip& clip, uint32_t frames) {
        CMemoryFileIO reading(After());
        CReadMXFOp1b reader;
        ASSERT_EQ(reader.Open("clip.mxf", &reading), kStatusOk);
        ASSERT_EQ(reader.GetDuration() + reader.GetOrigin(), salvager->GetDuration());
        EXPECT_EQ(reader.GetOrigin(), salvager->GetOrigin());
        for (uint32_t frame = 0; frame < frames; ++frame) {
            VIDEOFRAMEINFOTag info;
            ASSERT_EQ(reader.GetVideoInfo(frame, info), kStatusOk) << frame;
            const Bytes picture = clip.Picture(frame);
            ASSERT_EQ(info.size, (picture.size() + 3) / 4 * 4);
            EXPECT_TRUE(SameBytes(picture, std::span(After()).subspan(info.offset, picture.size()))) << frame;
        }
        VIDEOFRAMEINFOTag none;
        EXPECT_EQ(reader.GetVideoInfo(frames, none), kStatusNotFound);
        for (uint32_t group = 0; group * clip.Group() < frames; ++group) {
            for (uint32_t channel = 0; channel < clip.channels; ++channel) {
                AUDIODATAINFOTag info;
                ASSERT_EQ(reader.GetAudioInfo(group * clip.Group(), channel, info), kStatusOk);
                EXPECT_TRUE(SameBytes(clip.Sound(group, channel), std::span(After()).subspan(info.offset, info.size)));
            }
        }
        Bytes xml(reader.GetXMLDataSize()), thumbnail(reader.GetThumbnailDataSize());
        EXPECT_EQ(reader.GetXMLData(xml.data()), kStatusOk);
        EXPECT_EQ(reader.GetThumbnailData(thumbnail.data()), kStatusOk);
        EXPECT_EQ(xml, LoadTestData("essence/clip.xml"));
        EXPECT_EQ(thumbnail, LoadTestData("essence/thumbnail.bmp"));
    }

    LogRecorder log;
    const TemporaryFolder folder;
    const std::string name;
    std::unique_ptr<FaultyStream> stream;
    std::unique_ptr<CSalvageMXFOp1b> salvager;
    std::vector<Note> notes;
};

// --- what is kept ---

TEST_F(SalvageMXFOp1b, SalvagedFileIsTheOneThatCloseWouldHaveWritten) {
    for (const Clip& clip :
         {Clip{}, Clip{.channels = 4, .bytesPerSample = 3, .frames = 50},
          Clip{.videoStd = VIDEO_STD_59_94P, .compType = COMP_TYPE_LONGG50_720, .channels = 1, .frames = 240},
          Clip{.videoStd = VIDEO_STD_59_94I, .frames = 61, .players = true}, Clip{.channels = 0, .frames = 100},
          Clip{.videoStd = VIDEO_STD_23_98P, .compType = COMP_TYPE_LONGG6_1080, .channels = 8, .frames = 96},
          Clip{.frames = 7}}) {
        SCOPED_TRACE(testing::Message() << clip.videoStd << " " << clip.frames);
        Bytes closed;
        {
            const FixedEnvironment environment;
            closed = Record(clip, true);
        }
        Bytes cut;
        {
            const FixedEnvironment environment;
            cut = Record(clip, false);
        }
        EXPECT_LT(cut.size(), closed.size());
        EXPECT_EQ(NumberAt(cut, 44, 8), 0u);
        {
            const FixedEnvironment environment;
            ASSERT_EQ(Run(cut), kCompleted);
        }
        EXPECT_THAT(log.Lines(), IsEmpty());
        EXPECT_TRUE(SameBytes(Renumbered(closed), Renumbered(After())));
        ExpectFrames(clip, clip.frames);
        // And again: nothing changes.
        const Bytes once = After();
        {
            const FixedEnvironment environment;
            ASSERT_EQ(Run(once), kCompleted);
        }
        EXPECT_TRUE(SameBytes(Renumbered(once), Renumbered(After())));
    }
}

TEST_F(SalvageMXFOp1b, RecordingCutAnywhereKeepsItsWholeGroups) {
    const Clip clip{.channels = 1, .frames = 110};
    const Bytes closed = Record(clip, true), whole = Record(clip, false);
    const auto starts = GroupStarts(closed, 1);
    ASSERT_EQ(starts.size(), 4u);  // of three groups and the footer
    std::vector<size_t> sizes = {kHeader, kHeader + 1, whole.size()};
    for (const Packet& packet : Packets(whole, starts[1], whole.size())) {
        for (const size_t size : {packet.offset - 1, packet.offset, packet.offset + 20, packet.End() - 1}) {
            if (sizes.back() != size && Noise(1, static_cast<uint32_t>(size))[0] < 100) sizes.push_back(size);
        }
    }
    for (size_t i = 1; i < starts.size(); ++i) sizes.insert(sizes.end(), {starts[i] - 1, starts[i]});
    for (const size_t size : sizes) {
        SCOPED_TRACE(size);
        const Bytes cut = First(whole, size);
        const auto groups = static_cast<size_t>(
            std::ranges::count_if(starts, [&](size_t start) { return start <= size && start > kHeader; }));
        if (groups == 0) {
            ExpectRefused(cut, {"CSalvageMXFOp1b::GetFileParam: Duration is 0."});
            continue;
        }
        ASSERT_EQ(Run(cut), kCompleted);
        EXPECT_THAT(log.Lines(), IsEmpty());
        const uint32_t frames = std::min<uint32_t>(110, static_cast<uint32_t>(groups) * 50);
        EXPECT_EQ(salvager->GetDuration(), frames);
        EXPECT_EQ(NumberAt(After(), 44, 8), starts[groups]);
        EXPECT_TRUE(SameBytes(Hex(kFooterKey), std::span(After()).subspan(starts[groups], 16)));
        EXPECT_TRUE(SameBytes(std::span(whole).subspan(kHeader, starts[groups] - kHeader),
                              std::span(After()).subspan(kHeader, starts[groups] - kHeader)));
        // The random index is the last packet, right behind the footer.
        const size_t overall = NumberAt(After(), After().size() - 4, 4);
        EXPECT_EQ(overall, 24 + 12 * (2 + 6 * groups));
        if (size % 5 == 0) ExpectFrames(clip, frames);
    }
}

TEST_F(SalvageMXFOp1b, HeaderAloneOrLessIsNotSalvaged) {
    const Bytes whole = Record(Clip{}, false);
    ExpectRefused(First(whole, kHeader), {"CSalvageMXFOp1b::GetFileParam: Duration is 0."});
    for (const size_t size : {size_t{0}, size_t{1}, size_t{32768}, kHeader - 1}) {
        ExpectRefused(First(whole, size), {"CSalvageMXFOp1b::GetHeaderParam: Read Error."});
    }
}

TEST_F(SalvageMXFOp1b, LastGroupMayBeShorter) {
    const Clip clip{.videoStd = VIDEO_STD_29_97P, .frames = 130};
    ASSERT_EQ(Run(Record(clip, false)), kCompleted);
    EXPECT_EQ(salvager->GetDuration(), 130);
    ExpectFrames(clip, 130);
}

TEST_F(SalvageMXFOp1b, NothingFollowsAShortGroup) {
    const Clip clip{.channels = 0, .frames = 107};
    Bytes file = Record(clip, true);
    const auto starts = GroupStarts(file, 0);
    // A group by its bytes, with another number of its first frame
    const auto group = [&](size_t number, uint8_t first) {
        Bytes bytes(file.begin() + At(starts[number]), file.begin() + At(starts[number + 1]));
        for (size_t at = 0; (at = Find(bytes, Hex(kStartItem), at)) < bytes.size(); at += 12) bytes[at + 11] = first;
        return bytes;
    };
    const auto joined = [](Bytes front, const std::vector<Bytes>& groups) {
        for (const Bytes& each : groups) front.insert(front.end(), each.begin(), each.end());
        return front;
    };
    ASSERT_EQ(Run(joined(First(file, starts[3]), {group(2, 107)})), kCompleted);
    EXPECT_EQ(salvager->GetDuration(), 107);
    ExpectFrames(clip, 107);
    // A short one in front: by its number of frames the others could not be found.
    ASSERT_EQ(Run(joined(First(file, kHeader), {group(2, 0), group(0, 7)})), kCompleted);
    EXPECT_EQ(salvager->GetDuration(), 7);
    // As short as the first is long enough.
    ASSERT_EQ(Run(joined(First(file, kHeader), {group(2, 0), group(2, 7), group(0, 14)})), kCompleted);
    EXPECT_EQ(salvager->GetDuration(), 14);
}

TEST_F(SalvageMXFOp1b, GroupWithTheSoundOfAnotherIsNotKept) {
    const Clip clip{.frames = 100};
    const Bytes closed = Record(clip, true);
    const auto starts = GroupStarts(closed, 2);
    Bytes file = First(closed, starts[2]);
    // The second channel of the last group is another one's.
    const size_t pack = Find(file, Hex("00 00 00 04 06 0E 2B 34"), starts[1]);  // BodySID 4
    ASSERT_LT(pack, file.size());
    file[pack + 3] = 5;
    ASSERT_EQ(Run(file), kCompleted);
    EXPECT_EQ(salvager->GetDuration(), 50);
    ExpectFrames(clip, 50);
}

// The sound of 50 frames, and with it a group, has 50 x 1920 x 2 bytes.
TEST_F(SalvageMXFOp1b, GroupWithoutAChannelsSoundOrWithMoreOrLessOfItIsNotKept) {
    const Clip clip{.frames = 100};
    const Bytes closed = Record(clip, true);
    const auto starts = GroupStarts(closed, 2);
    const Bytes file = First(closed, starts[2]);
    const Bytes head = Hex(std::string(kSoundKey) + "87 00 00 00 00 02 EE 00");
    for (const size_t group : {size_t{0}, size_t{1}}) {
        const size_t first = Find(file, head, starts[group]), second = Find(file, head, first + 1);
        ASSERT_LT(second, starts[group + 1]);
        for (const size_t element : {first, second}) {
            SCOPED_TRACE(element);
            const auto expectNotKept = [&](const Bytes& damaged) {
                if (group == 0) {
                    ExpectRefused(damaged, {"CSalvageMXFOp1b::GetFileParam: Duration is 0."});
                    return;
                }
                ASSERT_EQ(Run(damaged), kCompleted);
                EXPECT_THAT(log.Lines(), IsEmpty());
                EXPECT_EQ(salvager->GetDuration(), 50);
                ExpectFrames(clip, 50);
            };
            Bytes none = file;
            none.erase(none.begin() + At(element), none.begin() + At(element + 24 + 192000));
            expectNotKept(none);
            Bytes empty = none;
            const Bytes emptyHead = Hex(std::string(kSoundKey) + "87 00 00 00 00 00 00 00");
            empty.insert(empty.begin() + At(element), emptyHead.begin(), emptyHead.end());
            expectNotKept(empty);
            Bytes less = file;
            Put(less, element + 20, Hex("00 02 ED FE"));
            less.erase(less.begin() + At(element + 24), less.begin() + At(element + 26));
            expectNotKept(less);
            Bytes more = file;
            Put(more, element + 20, Hex("00 02 EE 02"));
            more.insert(more.begin() + At(element + 24), 2, uint8_t{0});
            expectNotKept(more);
        }
    }
}

// What an index says of its group is copied into the footer, and frames are found by it.
TEST_F(SalvageMXFOp1b, GroupWithTheIndexOfAnotherIsNotKept) {
    const Clip clip{.channels = 1, .frames = 100};
    const Bytes closed = Record(clip, true);
    const auto starts = GroupStarts(closed, 1);
    const Bytes file = First(closed, starts[2]);
    ASSERT_EQ(Run(file), kCompleted);
    EXPECT_EQ(salvager->GetDuration(), 100);
    const auto expectNotKept = [&](size_t at, std::string_view before, std::string_view after) {
        SCOPED_TRACE(testing::Message() << at << " " << after);
        const Bytes old = Hex(before);
        ASSERT_TRUE(SameBytes(old, std::span(file).subspan(at, old.size())));
        Bytes damaged = file;
        Put(damaged, at, Hex(after));
        ASSERT_EQ(Run(damaged), kCompleted);
        EXPECT_THAT(log.Lines(), IsEmpty());
        EXPECT_EQ(salvager->GetDuration(), 50);
        ExpectFrames(clip, 50);
    };
    // Of pictures, ANC elements and sound; these count samples.
    struct Segment {
        std::string_view start, duration, bodySID;
    };
    size_t at = starts[1];
    for (const Segment& segment :
         {Segment{"32", "32", "01"}, Segment{"32", "32", "02"}, Segment{"01 77 00", "01 77 00", "03"}}) {
        const auto item = [&](std::string_view tag) { return Find(file, Hex(tag), at) + 4; };
        const auto last = [&](std::string_view tag, std::string_view bytes) {
            return item(tag) + NumberAt(file, item(tag) - 2, 2) - Hex(bytes).size();
        };
        at = Find(file, Hex("06 0E 2B 34 02 53 01 01 0D 01 02 01 01 10 01 00"), at + 1);
        ASSERT_LT(at, file.size());
        expectNotKept(last(kStartItem, segment.start), segment.start, "31");
        expectNotKept(last("3F 0D 00 08", segment.duration), segment.duration, "31");
        expectNotKept(item("3F 07 00 04") + 3, segment.bodySID, "07");
    }
    // 50 entries of 11 bytes, each with a place in its last 8
    const size_t entries = Find(file, Hex("3F 0A 02 2E 00 00 00 32 00 00 00 0B"), starts[1]);
    ASSERT_LT(entries, file.size());
    expectNotKept(entries + 7, "32", "31");
    expectNotKept(entries + 7, "32", "00");
    for (const size_t entry : {size_t{0}, size_t{1}, size_t{49}}) {
        const size_t place = entries + 12 + 11 * entry + 10;
        const uint8_t byte = file[place];
        Bytes damaged = file;
        damaged[place] = static_cast<uint8_t>(byte ^ 4);
        ASSERT_EQ(Run(damaged), kCompleted);
        EXPECT_EQ(salvager->GetDuration(), 50) << entry;
    }
    // No group has less than its first frame, and the first one begins with 0.
    Bytes later = First(file, kHeader);
    later.insert(later.end(), file.begin() + At(starts[1]), file.end());
    ExpectRefused(later, {"CSalvageMXFOp1b::GetFileParam: Duration is 0."});
}

TEST_F(SalvageMXFOp1b, FillBehindAnIndexNeedNotBeCounted) {
    const Clip clip{.videoStd = VIDEO_STD_59_94I, .channels = 0, .frames = 61};
    Bytes file = Record(clip, false);
    // The index of 60 pictures has 790 bytes, and the fill behind it 22.
    const size_t count = Find(file, Hex("00 00 00 00 00 00 03 2C 00 00 00 65"));  // of bytes, and the index SID
    ASSERT_LT(count, file.size());
    std::ranges::copy(Hex("03 16"), file.begin() + At(count + 6));
    ASSERT_EQ(Run(file), kCompleted);
    EXPECT_EQ(salvager->GetDuration(), 60) << "the last group was not written";
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(SalvageMXFOp1b, IndexThatCannotBeKeptFailsTheRun) {
    const Bytes file = Record(Clip{.channels = 0, .frames = 50}, false);
    const FailingAllocation none(FailingAllocation::By::kMalloc, 130 + 11 * 50);
    ExpectRefused(file, {"CSalvageMXFOp1b::GetFileParam: AddFooterIndex Error."});
}

TEST_F(SalvageMXFOp1b, BodyThatCannotBeReadIsNotCut) {
    const Clip clip{.channels = 1, .frames = 110};
    const Bytes file = Record(clip, false);
    const auto starts = GroupStarts(Record(clip, true), 1);
    ASSERT_EQ(Run(file), kCompleted);
    const auto calls = stream->Calls();
    size_t inGroup[] = {0, 0, 0};
    for (size_t call = 6; call < calls.size() && calls[call] != "Close"; ++call) {
        const std::string seek = "Seek ";
        if (!calls[call - 1].starts_with(seek) || !calls[call].starts_with("Read ")) continue;
        const size_t offset = std::stoul(calls[call - 1].substr(seek.size()));
        const auto group = static_cast<size_t>(std::ranges::count_if(starts, [&](size_t at) { return at <= offset; }));
        // The pictures of the first group are read once more, behind the body.
        if (group == 0 || (group == 1 && inGroup[1] > 0)) continue;
        // Of each group some places, and the first
        if (inGroup[group - 1]++ % 16 != 0) continue;
        SCOPED_TRACE(testing::Message() << call << " " << calls[call - 1]);
        auto failing = std::make_unique<FaultyStream>(file);
        failing->FailNthOfAll(static_cast<int>(call + 1));
        const Note end = RunOn(std::move(failing));
        EXPECT_EQ(end, kFailed);
        EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXFOp1b::GetFileParam: Read Error."));
        EXPECT_TRUE(SameBytes(file, After()));
    }
    for (const size_t count : inGroup) EXPECT_GT(count, 20u);
}

TEST_F(SalvageMXFOp1b, ClipWithoutSoundIsSalvaged) {
    const Clip clip{.channels = 0, .frames = 60};
    const Bytes file = Record(clip, false);  // the second group has no index
    ASSERT_EQ(Run(file), kCompleted);
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(salvager->GetDuration(), 50);
    EXPECT_EQ(salvager->GetBytesPerSample(), 2);
    EXPECT_EQ(salvager->GetAudioDataSize(), 0);
    EXPECT_EQ(salvager->GetClipType(), 0x10100u);
    ExpectFrames(clip, 50);
}

TEST_F(SalvageMXFOp1b, ResultsAreThoseOfTheHeaderAndTheGroupsKept) {
    const FixedEnvironment environment;
    const Clip clip{.bytesPerSample = 3, .frames = 100};
    ASSERT_EQ(Run(Record(clip, false)), kCompleted);
    EXPECT_EQ(salvager->GetDuration(), 100);
    int64_t pictures = 0;
    for (uint32_t frame = 0; frame < 100; ++frame) pictures += static_cast<int64_t>((30 + frame % 7 + 3) / 4 * 4);
    EXPECT_EQ(salvager->GetVideoDataSize(), pictures);
    EXPECT_EQ(salvager->GetAudioDataSize(), 100 * 1920 * 3);
    EXPECT_EQ(salvager->GetVideoStandard(), 0x02000099u);
    EXPECT_EQ(salvager->GetCompType(), 0x1000C100u);
    EXPECT_EQ(salvager->GetBytesPerSample(), 3);
    EXPECT_EQ(salvager->GetClipType(), 0x10102u);
    EXPECT_EQ(salvager->GetOrigin(), 0);
    EXPECT_EQ(salvager->GetCreationDate(), (MXFTIMESTAMPTag{2026, 1, 2, 3, 4, 5, 0}));
    EXPECT_EQ(salvager->GetUMID(), SomeUMID());
    EXPECT_EQ(salvager->GetStartTimecode().GetTotalFrame(), 90000u);
    EXPECT_FALSE(salvager->GetStartTimecode().IsDrop()) << "never at 25p";
    uint8_t bits[4]{1, 1, 1, 1};
    salvager->GetStartUsersBit().GetData(bits);
    EXPECT_THAT(bits, ElementsAre(0, 0, 0, 0));
    EXPECT_EQ(salvager->GetStartUMID(), MXFUMIDEXTag());
}

TEST_F(SalvageMXFOp1b, BeforeARunResultsAreEmpty) {
    const CSalvageMXFOp1b fresh;
    EXPECT_EQ(fresh.GetDuration() + fresh.GetVideoDataSize() + fresh.GetAudioDataSize() + fresh.GetOrigin(), 0);
    EXPECT_EQ(fresh.GetVideoStandard() + fresh.GetCompType() + fresh.GetClipType() + fresh.GetBytesPerSample(), 0u);
    EXPECT_EQ(fresh.GetUMID(), MXFUMIDTag());
    EXPECT_EQ(fresh.GetStartUMID(), MXFUMIDEXTag());
    EXPECT_EQ(fresh.GetCreationDate(), MXFTIMESTAMPTag());
    EXPECT_EQ(fresh.GetStartTimecode().GetTotalFrame(), 0u);
}

TEST_F(SalvageMXFOp1b, MetadataOfAFinishedHeaderSurvives) {
    CDescriptiveMetadata metadata;
    metadata.SetJobFunction("Reporter");
    metadata.SetFamilyName("Family");
    metadata.SetFirstGivenName("Given");
    metadata.SetProjectNumber("P-17");
    metadata.SetProjectName("Project");
    metadata.SetTakeNumber(5);
    metadata.SetSceneNumber("42b");
    for (const bool players : {false, true}) {
        const Clip clip{.frames = 50, .players = players};
        Bytes closed;
        {
            const FixedEnvironment environment;
            closed = Record(clip, true, metadata);
        }
        Bytes cut = closed;
        cut.resize(GroupStarts(closed, 2).back() + 100);  // the copy ended in the footer
        {
            const FixedEnvironment environment;
            ASSERT_EQ(Run(cut), kCompleted);
        }
        EXPECT_TRUE(SameBytes(Renumbered(closed), Renumbered(After())));
    }
}

// --- frames that cannot be shown ---

TEST_F(SalvageMXFOp1b, FramesInFrontCountForTheOrigin) {
    Clip clip{.frames = 100};
    for (const uint32_t frame : {1u, 2u, 3u, 60u}) clip.entries[frame] = {0, 0x3B};  // only the first group's count
    ASSERT_EQ(Run(Record(clip, false)), kCompleted);
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(salvager->GetOrigin(), 3);
    EXPECT_EQ(salvager->GetDuration(), 100);
    ExpectFrames(clip, 100);
    clip.entries[4] = {0, 0x3B};
    ASSERT_EQ(Run(Record(clip, false)), kCompleted);
    EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXFOp1b::GetOutOfRangeFrame: Invalid  OutOfRangeFrame."));
    EXPECT_EQ(log.Records().front().level, kLogError);
    EXPECT_EQ(log.Records().front().sourceFile, "SalvageMXFOp1b");
    EXPECT_EQ(salvager->GetOrigin(), 0);
}

TEST_F(SalvageMXFOp1b, FramesAtTheEndThatWaitForOthersAreRolledOut) {
    Clip clip{.frames = 100};
    for (const uint32_t frame : {49u, 90u, 97u, 98u, 99u}) clip.entries[frame] = {1, 0x00};
    ASSERT_EQ(Run(Record(clip, false)), kCompleted);
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(salvager->GetDuration(), 97);
    EXPECT_EQ(salvager->GetAudioDataSize(), 100 * 1920 * 2);
    ExpectFrames(clip, 100);
    // A negative offset, or 0, ends the count.
    clip.entries[98] = {-1, 0x00};
    ASSERT_EQ(Run(Record(clip, false)), kCompleted);
    EXPECT_EQ(salvager->GetDuration(), 99);
    // Of the first group alone, those of the first group
    const Bytes closed = Record(clip, true);
    ASSERT_EQ(Run(First(closed, GroupStarts(closed, 2)[1])), kCompleted);
    EXPECT_EQ(salvager->GetDuration(), 49);
}

TEST_F(SalvageMXFOp1b, TooManyFramesToRollOutAreNone) {
    Clip clip{.frames = 50};
    for (const uint32_t frame : {45u, 46u, 47u, 48u, 49u}) clip.entries[frame] = {2, 0x00};
    ASSERT_EQ(Run(Record(clip, false)), kCompleted);
    EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXFOp1b::GetRollOutFrame: Invalid RollOutFrame."));
    EXPECT_EQ(salvager->GetDuration(), 50);
    ExpectFrames(clip, 50);
}

// --- what the first picture says ---

TEST_F(SalvageMXFOp1b, TimecodeIsThatOfTheFirstPicture) {
    Clip clip{.videoStd = VIDEO_STD_59_94I, .frames = 60};
    clip.firstPicture = First(LoadTestData("essence/longg25-1080-5994i.264"), 20000);
    ASSERT_EQ(Run(Record(clip, false)), kCompleted);
    EXPECT_EQ(salvager->GetStartTimecode().GetText(), "03:04:59;25");
    EXPECT_EQ(salvager->GetStartTimecode().GetVideoStd(), VIDEO_STD_59_94I);
    CMemoryFileIO reading(After());
    CReadMXFOp1b reader;
    ASSERT_EQ(reader.Open("clip.mxf", &reading), kStatusOk);
    CTimecode timecode;
    ASSERT_EQ(reader.GetStartTimecode(timecode), kStatusOk);
    EXPECT_EQ(timecode.GetText(), "03:04:59;25");
}

TEST_F(SalvageMXFOp1b, UserBitsAndUMIDAreThoseOfTheFirstPicture) {
    Clip clip{.videoStd = VIDEO_STD_59_94I, .frames = 60};
    // The SEI message of intra frames, which Long-GOP pictures may carry too
    clip.firstPicture = First(LoadTestData("essence/avci100-1080-5994i.raw"), 2000);
    const Bytes umid =
        Hex("06 0A 2B 34 01 01 01 05 01 01 0F 20 13 11 22 33 F1 F2 F3 F4 F5 F6 F7 F8 F9 FA FB FC FD FE FF F0");
    Put(clip.firstPicture, 58, umid);
    ASSERT_EQ(Run(Record(clip, false)), kCompleted);
    EXPECT_EQ(salvager->GetStartTimecode().GetText(), "02:03:59;25");
    uint8_t bits[4]{};
    salvager->GetStartUsersBit().GetData(bits);
    EXPECT_THAT(bits, ElementsAre(0x12, 0x34, 0x56, 0x78));
    const MXFUMIDEXTag found = salvager->GetStartUMID();
    EXPECT_TRUE(SameBytes(umid, std::span(found.bytes).first(32)));
    // Less than the 512 bytes that are looked at: the timecode is there, and then not any more.
    clip.firstPicture.resize(60);
    ASSERT_EQ(Run(Record(clip, false)), kCompleted);
    EXPECT_EQ(salvager->GetStartTimecode().GetText(), "02:03:59;25");
    EXPECT_EQ(salvager->GetStartUMID(), MXFUMIDEXTag());
    clip.firstPicture.resize(30);
    ASSERT_EQ(Run(Record(clip, false)), kCompleted);
    EXPECT_EQ(salvager->GetStartTimecode().GetTotalFrame(), 90000u);
}

// --- headers that do not tell ---

TEST_F(SalvageMXFOp1b, HeaderThatDoesNotTellIsRefused) {
    const Bytes file = Record(Clip{.frames = 50}, false);
    const Bytes set = Hex("06 0E 2B 34 02 53 01 01 0D 01 01 01 01 01");
    const auto setAt = [&](std::string_view kind) {
        Bytes key = set;
        for (const uint8_t byte : Hex(kind)) key.push_back(byte);
        return Find(file, key);
    };
    const auto refused = [&](size_t at, std::string_view bytes, const std::string& message) {
        SCOPED_TRACE(message);
        ASSERT_LT(at, kHeader);
        Bytes damaged = file;
        Put(damaged, at, Hex(bytes));
        ExpectRefused(damaged, {"CSalvageMXFOp1b::GetHeaderParam: " + message});
    };
    const auto itemAt = [&](std::string_view kind, std::string_view item) {
        return Find(file, Hex(item), setAt(kind));
    };
    refused(0, "00", "Invalid FileType.");
    refused(Find(file, Hex("0D 01 02 01 01 02 09 00")) + 5, "01", "Invalid FileType.");  // OP-1a
    refused(setAt("28 00"), "00", "GetVideoStandard Error.");
    refused(itemAt("28 00", "30 01 00 08") + 4, "00 00 00 07", "GetVideoStandard Error.");
    refused(setAt("6E 00"), "00", "GetCompType Error.");
    refused(itemAt("28 00", "32 02 00 04") + 4, "00 00 00 07", "GetCompType Error.");
    refused(itemAt("47 00", "3D 01 00 04") + 4, "00 00 00 07", "GetBytesPerSample Error.");
    refused(itemAt("36 00", "44 05 00 08"), "99 99", "GetCreationTime Error.");
    refused(itemAt("36 00", "44 05 00 08"), "44 05 00 07", "GetCreationTime Error.");
    refused(itemAt("36 00", "44 01 00 20"), "99 99", "GetUMID Error.");
    // The last item of the XML set leads out of it.
    const size_t xml = Find(file, LoadTestData("essence/clip.xml"));
    ASSERT_LT(xml, kHeader);
    refused(xml - 2, "FF FF", "GetMetadata Error.");
}

TEST_F(SalvageMXFOp1b, FileOfAnotherPatternIsRefused) {
    CMemoryFileIO atom;
    {
        CCreateMXFAudio writer;
        Feeder feeder;
        writer.SetFilename("a.mxf");
        writer.SetVideoStandard(VIDEO_STD_25P);
        ASSERT_EQ(writer.Open(&atom, true), kStatusOk);
        feeder.Write(writer, Noise(200000, 1), {50000});
    }
    ExpectRefused(atom.GetContents(), {"CSalvageMXFOp1b::GetHeaderParam: Invalid FileType."});
}

TEST_F(SalvageMXFOp1b, NameThatIsTooLongIsRefused) {
    Bytes file = Record(Clip{.frames = 50}, false);
    const size_t item = Find(file, Hex("44 02 01 90"));
    ASSERT_LT(item, kHeader);
    for (size_t i = 0; i < 200; ++i) Put(file, item + 4 + 2 * i, Hex("00 41"));
    ASSERT_EQ(Run(file), kCompleted) << "200 letters fit";
    // With the creation date in front of it the name takes 6 more: the item of the modification date.
    std::rotate(file.begin() + At(item), file.begin() + At(item + 404), file.begin() + At(item + 416));
    ASSERT_TRUE(SameBytes(Hex("44 02 01 90"), std::span(file).subspan(item + 12, 4)));
    file[item + 15] = 0x9C;
    EXPECT_EQ(Run(file), kFailed);
    EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXFOp1b::Salvage: SetPackageName Error."));
    EXPECT_TRUE(SameBytes(file, After()));
}

// A thumbnail of `size` bytes in place of the one that is there
Bytes WithThumbnail(Bytes file, uint16_t size) {
    const Bytes old = LoadTestData("essence/thumbnail.bmp");
    const size_t picture = Find(file, old);
    const size_t set = Find(file, Hex("83 00 2A 8F"), 0x1C000);  // 41 + 10854 bytes
    EXPECT_LT(set, kHeader);
    const uint32_t length = 41u + size;
    Put(file, set, {0x83, 0, static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)});
    Put(file, picture - 2, {static_cast<uint8_t>(size >> 8), static_cast<uint8_t>(size)});
    std::fill(file.begin() + At(picture), file.begin() + At(kHeader), uint8_t{0x5A});
    return file;
}

TEST_F(SalvageMXFOp1b, ThumbnailThatLeavesNoRoomIsRefused) {
    const Bytes file = Record(Clip{.frames = 50}, false);
    for (const uint16_t size : {uint16_t{16012}, uint16_t{16030}}) {
        ExpectRefused(WithThumbnail(file, size), {"CSalvageMXFOp1b::Salvage: ThumbnailSize Size Invalid."});
    }
    for (const uint16_t size : {uint16_t{0}, uint16_t{16011}, uint16_t{16031}}) {
        ASSERT_EQ(Run(WithThumbnail(file, size)), kCompleted) << size;
        EXPECT_THAT(log.Lines(), IsEmpty());
        CMemoryFileIO reading(After());
        CReadMXFOp1b reader;
        ASSERT_EQ(reader.Open("clip.mxf", &reading), kStatusOk);
        EXPECT_EQ(reader.GetThumbnailDataSize(), size);
    }
}

// One that the area of thumbnails could not take at all, in the area of the XML
TEST_F(SalvageMXFOp1b, ThumbnailThatNoAreaHasRoomForIsRefused) {
    const Bytes file = Record(Clip{.frames = 50}, false);
    const Bytes xml = LoadTestData("essence/clip.xml"), old = LoadTestData("essence/thumbnail.bmp");
    const size_t set = Find(file, Hex("06 0E 2B 34 01 01 01 09 0E 0E 01 01 11 01 02 00"), 0x1C000);
    const size_t picture = Find(file, old);
    ASSERT_LT(picture, kHeader);
    const size_t start = Find(file, xml) + xml.size();
    const auto withSize = [&](size_t size) {
        Bytes larger = file;
        Put(larger, start, Bytes(file.begin() + At(set), file.begin() + At(picture)));
        const size_t value = start + (picture - set), end = value + size, length = 41 + size;
        Put(larger, start + 17,
            {static_cast<uint8_t>(length >> 16), static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)});
        Put(larger, value - 2, {static_cast<uint8_t>(size >> 8), static_cast<uint8_t>(size)});
        std::fill(larger.begin() + At(value), larger.begin() + At(end), uint8_t{0x5A});
        const size_t fill = 0x1C000 - end - 20;
        Put(larger, end, Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00 83"));
        Put(larger, end + 17,
            {static_cast<uint8_t>(fill >> 16), static_cast<uint8_t>(fill >> 8), static_cast<uint8_t>(fill)});
        return larger;
    };
    for (const size_t size : {size_t{16384}, size_t{16385}, size_t{65535}}) {
        ExpectRefused(withSize(size), {"CSalvageMXFOp1b::Salvage: ThumbnailSize Size Invalid."});
    }
    ASSERT_EQ(Run(withSize(16011)), kCompleted);
    Bytes outside = withSize(16385);
    Put(outside, start + (picture - set) - 2, Hex("FF FF"));
    ExpectRefused(outside, {"CSalvageMXFOp1b::GetHeaderParam: GetMetadata Error."});
}

// The longest that an item can have
TEST_F(SalvageMXFOp1b, XMLOfAnySizeFits) {
    const Bytes file = Record(Clip{.frames = 50}, false);
    const Bytes xml = LoadTestData("essence/clip.xml");
    const size_t start = Find(file, xml);
    for (const size_t size : {size_t{0}, size_t{65535}}) {
        Bytes other = file;
        const size_t set = Find(file, Hex("06 0E 2B 34 01 01 01 09 0E 0E 01 01 11 01 01 00")), length = 29 + size;
        Put(other, set + 17,
            {static_cast<uint8_t>(length >> 16), static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)});
        Put(other, start - 2, {static_cast<uint8_t>(size >> 8), static_cast<uint8_t>(size)});
        std::fill(other.begin() + At(start), other.begin() + At(start + size), uint8_t{0x5A});
        const size_t fill = 0x1C000 - start - size - 20;
        Put(other, start + size, Hex("06 0E 2B 34 01 01 01 02 03 01 02 10 01 00 00 00 83"));
        Put(other, start + size + 17,
            {static_cast<uint8_t>(fill >> 16), static_cast<uint8_t>(fill >> 8), static_cast<uint8_t>(fill)});
        ASSERT_EQ(Run(other), kCompleted) << size;
        EXPECT_THAT(log.Lines(), IsEmpty());
        CMemoryFileIO reading(After());
        CReadMXFOp1b reader;
        ASSERT_EQ(reader.Open("clip.mxf", &reading), kStatusOk);
        EXPECT_EQ(reader.GetXMLDataSize(), size);
    }
}

TEST_F(SalvageMXFOp1b, ThumbnailOfAnotherFormatIsRefused) {
    Bytes file = Record(Clip{.frames = 50}, false);
    // Format, width and height stand in front of the picture.
    const size_t width = Find(file, Hex("00 02 00 50"), 0x1C000);
    ASSERT_LT(width, kHeader);
    file[width - 3] = 7;
    EXPECT_EQ(Run(file), kFailed);
    EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXFOp1b::Salvage: SetThumbnailData Error."));
}

// --- bodies that are none ---

TEST_F(SalvageMXFOp1b, GroupOfMoreThan120FramesFailsTheRun) {
    const Clip clip{.channels = 0, .frames = 50};
    const Bytes file = Record(clip, false);
    const auto withFrames = [&](size_t count) {
        Bytes long1 = First(file, kHeader + 140);  // and the body partition pack
        const Bytes element = Hex(std::string(kPictureKey) + "83 00 00 04 01 02 03 04");
        for (size_t i = 0; i < count; ++i) long1.insert(long1.end(), element.begin(), element.end());
        return long1;
    };
    ASSERT_TRUE(SameBytes(Hex(kPictureKey), std::span(file).subspan(kHeader + 140, 16)));
    ExpectRefused(withFrames(121), {"CSalvageMXFOp1b::GetFileParam: Invalid Partition Frame."});
    ExpectRefused(withFrames(120), {"CSalvageMXFOp1b::GetFileParam: Duration is 0."});
}

TEST_F(SalvageMXFOp1b, BodyThatBeginsWithAnythingElseHasNoFrames) {
    const Bytes file = Record(Clip{.channels = 0, .frames = 50}, false);
    const std::vector<std::string> nothing = {"CSalvageMXFOp1b::GetFileParam: Duration is 0."};
    for (const auto& [at, byte] :
         std::vector<std::pair<size_t, uint8_t>>{{0, 0}, {13, 4}, {13, 2}, {17, 0xFF}, {71 + 12, 2}, {140, 0}}) {
        SCOPED_TRACE(at);
        Bytes damaged = file;
        damaged[kHeader + at] = byte;
        ExpectRefused(damaged, nothing);
    }
    Bytes noise = file;
    Put(noise, kHeader, Noise(noise.size() - kHeader, 4));
    ExpectRefused(noise, nothing);
}

TEST_F(SalvageMXFOp1b, IndexThatLeadsOutOfTheFileEndsTheBody) {
    const Clip clip{.channels = 0, .frames = 100};
    const Bytes closed = Record(clip, true);
    const auto starts = GroupStarts(closed, 0);
    const Bytes file = First(closed, starts[2]);
    // IndexByteCount of the second group's first index pack
    const size_t pack = Find(file, Hex("06 0E 2B 34 02 05 01 01 0D 01 02 01 01 03"), starts[1] + 140);
    for (const std::string_view count :
         {"00 00 00 00 7F FF FF FF", "7F FF FF FF FF FF FF FF", "FF FF FF FF FF FF FF FF", "80 00 00 00 00 00 00 00",
          "00 00 00 00 00 00 00 00", "00 00 00 00 00 00 00 40"}) {
        Bytes damaged = file;
        Put(damaged, pack + 60, Hex(count));
        ASSERT_EQ(Run(damaged), kCompleted) << count;
        EXPECT_EQ(salvager->GetDuration(), 50);
        ExpectFrames(clip, 50);
    }
}

TEST_F(SalvageMXFOp1b, ElementThatLeadsOutOfTheFileEndsTheBody) {
    const Clip clip{.frames = 100};
    const Bytes closed = Record(clip, true);
    const auto starts = GroupStarts(closed, 2);
    const Bytes file = First(closed, starts[2]);
    for (const std::string_view key : {kPictureKey, kSoundKey}) {
        Bytes damaged = file;
        const size_t element = Find(damaged, Hex(key), starts[1]);
        ASSERT_LT(element, file.size());
        damaged[element + 17] = 0xFF;
        ASSERT_EQ(Run(damaged), kCompleted);
        EXPECT_EQ(salvager->GetDuration(), 50);
        ExpectFrames(clip, 50);
    }
}

TEST_F(SalvageMXFOp1b, DamageNeverLeadsAstray) {
    const Clip clip{.channels = 1, .frames = 150};
    const Bytes file = Record(clip, false);
    for (uint32_t seed = 1; seed <= 40; ++seed) {
        Bytes damaged = file;
        const Bytes place = Noise(4, seed);
        const size_t at = BigEndian(place) % (file.size() - 4096);
        Put(damaged, at, seed % 2 == 0 ? Bytes(4096) : Noise(4096, seed));
        const Note end = Run(damaged);
        if (end == kFailed) {
            EXPECT_TRUE(SameBytes(damaged, After())) << at;
            continue;
        }
        ASSERT_EQ(end, kCompleted);
        CMemoryFileIO reading(After());
        CReadMXFOp1b reader;
        EXPECT_EQ(reader.Open("clip.mxf", &reading), kStatusOk) << at;
        reader.Close();
    }
}

// --- notifications, cancelling, threads ---

TEST_F(SalvageMXFOp1b, ProgressIsToldAfterEachGroupAndAtTheEnd) {
    const Clip clip{.channels = 0, .frames = 150};
    const Bytes closed = Record(clip, true);
    const auto starts = GroupStarts(closed, 0);
    const Bytes file = First(closed, starts[3] - 1);
    ASSERT_EQ(Run(file), kCompleted);
    const auto percent = [&](size_t at) { return static_cast<int32_t>(90 * at / file.size()); };
    EXPECT_THAT(notes, ElementsAre(Note{2, percent(starts[1])}, Note{2, percent(starts[2])}, Note{2, 100}, kCompleted));
    EXPECT_EQ(Run(First(closed, 500)), kFailed);
    EXPECT_THAT(notes, ElementsAre(kFailed));
}

TEST_F(SalvageMXFOp1b, CancelledRunLeavesTheFileAlone) {
    const Bytes file = Record(Clip{.channels = 0, .frames = 150}, false);
    for (const size_t at : {size_t{1}, size_t{2}, size_t{3}}) {
        FaultyStream reading(file);
        const StreamFactory factory(&reading);
        CSalvageMXFOp1b cancelled;
        cancelled.SetFilename(name.c_str());
        cancelled.Cancel();  // nothing to cancel yet
        size_t count = 0;
        Notes told([&](Note) {
            if (++count == at) cancelled.Cancel();
        });
        ASSERT_EQ(cancelled.Salvage(&told), kStatusOk);
        const auto all = told.UntilTheEnd();
        EXPECT_EQ(all.size(), at + 1);
        EXPECT_EQ(all.back(), kCancelled);
        EXPECT_TRUE(SameBytes(file, reading.Bytes()));
        EXPECT_EQ(cancelled.GetDuration(), 0);
        EXPECT_TRUE(reading.Released());
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(SalvageMXFOp1b, CancellingIsTooLateWhenEverythingIsWritten) {
    FaultyStream reading(Record(Clip{.frames = 50}, false));
    const StreamFactory factory(&reading);
    CSalvageMXFOp1b late;
    late.SetFilename(name.c_str());
    Notes told([&](Note note) {
        if (note == Note{2, 100}) late.Cancel();
    });
    ASSERT_EQ(late.Salvage(&told), kStatusOk);
    EXPECT_EQ(told.UntilTheEnd().back(), kCompleted);
    EXPECT_EQ(late.GetDuration(), 50);
}

TEST_F(SalvageMXFOp1b, CancelWinsOverAFailure) {
    FaultyStream reading(Record(Clip{.channels = 0, .frames = 100}, false));
    const StreamFactory factory(&reading);
    CSalvageMXFOp1b both;
    both.SetFilename(name.c_str());
    // Behind the first group the stream fails, and the client cancels.
    Notes told([&](Note) {
        reading.FailAll(Op::kRead);
        both.Cancel();
    });
    ASSERT_EQ(both.Salvage(&told), kStatusOk);
    EXPECT_EQ(told.UntilTheEnd().back(), kCancelled);
}

// Lets a run wait in its first notification until it is let go.
class Gate {
public:
    void Wait() {
        std::unique_lock lock(mutex_);
        reached_ = true;
        changed_.notify_all();
        changed_.wait(lock, [this] { return open_; });
    }
    void UntilReached() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return reached_; });
    }
    void Open() {
        const std::lock_guard lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool reached_ = false, open_ = false;
};

TEST_F(SalvageMXFOp1b, RunGoesOnBehindTheCallAndRefusesAnother) {
    FaultyStream reading(Record(Clip{.frames = 50}, false));
    const StreamFactory factory(&reading);
    CSalvageMXFOp1b slow;
    slow.SetFilename(name.c_str());
    Gate gate;
    Notes told([&](Note) { gate.Wait(); });
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(slow.Salvage(&told), kStatusOk);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
    Notes other;
    EXPECT_EQ(slow.Salvage(&other), kStatusWrongState);
    EXPECT_EQ(slow.GetDuration(), 0);
    gate.Open();
    EXPECT_EQ(told.UntilTheEnd().back(), kCompleted);
    EXPECT_EQ(slow.GetDuration(), 50);
}

TEST_F(SalvageMXFOp1b, DestructorCancelsAndWaits) {
    const Bytes file = Record(Clip{.channels = 0, .frames = 150}, false);
    FaultyStream reading(file);
    const StreamFactory factory(&reading);
    auto dying = std::make_unique<CSalvageMXFOp1b>();
    dying->SetFilename(name.c_str());
    Gate gate;
    Notes told([&](Note) { gate.Wait(); });
    std::thread caller([&] { EXPECT_EQ(dying->Salvage(&told), kStatusOk); });
    gate.UntilReached();
    caller.join();  // the call has given up waiting
    std::thread opener([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        gate.Open();
    });
    dying.reset();
    EXPECT_EQ(told.UntilTheEnd(), (std::vector<Note>{told.UntilTheEnd().front(), kCancelled}));
    EXPECT_TRUE(reading.Released());
    EXPECT_TRUE(SameBytes(file, reading.Bytes()));
    opener.join();
}

TEST_F(SalvageMXFOp1b, DestroyedInItsOwnNotificationItDoesNotWaitForItself) {
    FaultyStream reading(Record(Clip{.frames = 50}, false));
    const StreamFactory factory(&reading);
    Gate gate;
    std::unique_ptr<CSalvageMXFOp1b> own = std::make_unique<CSalvageMXFOp1b>();
    own->SetFilename(name.c_str());
    Notes told([&](Note note) {
        gate.Wait();
        if (note.first == 1) own.reset();
    });
    ASSERT_EQ(own->Salvage(&told), kStatusOk);  // gives up waiting at the gate
    gate.Open();
    EXPECT_EQ(told.UntilTheEnd().back(), kCompleted);
    EXPECT_EQ(own, nullptr);
}

TEST_F(SalvageMXFOp1b, ThreadThatCannotBeStartedIsThrown) {
    const Bytes file = Record(Clip{.frames = 50}, false);
    FaultyStream reading(file);
    const StreamFactory factory(&reading);
    CSalvageMXFOp1b refused;
    refused.SetFilename(name.c_str());
    Notes told;
    SetThreadStarter([](const std::function<void()>&) { return 1; });
    for (int i = 0; i < 2; ++i) {
        try {
            refused.Salvage(&told);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const jq_middle_common::ThreadException& exception) {
            EXPECT_EQ(exception.GetValue(), 0);
        }
    }
    // Nor one that throws instead: nothing runs, and nothing is waited for.
    SetThreadStarter([](const std::function<void()>&) -> int32_t { throw std::runtime_error("no thread"); });
    EXPECT_THROW(refused.Salvage(&told), jq_middle_common::ThreadException);
    {
        CSalvageMXFOp1b dying;
        dying.SetFilename(name.c_str());
        EXPECT_THROW(dying.Salvage(&told), jq_middle_common::ThreadException);
    }
    EXPECT_EQ(reading.CountOfAll(), 0);
    // A thread of the caller's own does as well.
    std::thread thread;
    SetThreadStarter([&](std::function<void()> run) {
        thread = std::thread(std::move(run));
        return 0;
    });
    EXPECT_EQ(refused.Salvage(&told), kStatusOk);
    SetThreadStarter({});
    EXPECT_EQ(told.UntilTheEnd().back(), kCompleted);
    thread.join();
    EXPECT_EQ(refused.GetDuration(), 50);
}

TEST_F(SalvageMXFOp1b, ArgumentsAreChecked) {
    CSalvageMXFOp1b asked;
    EXPECT_EQ(asked.Salvage(nullptr), kStatusInvalidArgument);
    EXPECT_FALSE(asked.SetFilename(nullptr));
    EXPECT_FALSE(asked.SetFilename(""));
    EXPECT_TRUE(asked.SetFilename("x"));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

// --- is it complete? ---

TEST_F(SalvageMXFOp1b, FileIsCompleteWhenItsHeaderNamesAFooter) {
    const Clip clip{.frames = 50};
    const auto isCompleted = [&](const Bytes& file) {
        FaultyStream reading(file);
        const StreamFactory factory(&reading);
        CSalvageMXFOp1b asked;
        asked.SetFilename("clip.mxf");
        const bool completed = asked.IsCompletedFile();
        EXPECT_EQ(reading.Calls().front(), "Open clip.mxf 0x0");
        EXPECT_TRUE(reading.Released());
        EXPECT_EQ(reading.LivePieces() + reading.LiveAllocators() + factory.Live(), 0);
        return completed;
    };
    const Bytes closed = Record(clip, true), cut = Record(clip, false);
    EXPECT_TRUE(isCompleted(closed));
    EXPECT_FALSE(isCompleted(cut));
    EXPECT_FALSE(isCompleted({}));
    EXPECT_FALSE(isCompleted(First(closed, kHeader - 1)));
    ASSERT_EQ(Run(cut), kCompleted);
    EXPECT_TRUE(isCompleted(After()));
    const StreamFactory none(nullptr);
    CSalvageMXFOp1b asked;
    EXPECT_FALSE(asked.IsCompletedFile());
}

// --- failures of the stream ---

TEST_F(SalvageMXFOp1b, EveryFailureOfTheStreamIsReportedAndLeavesNothingBehind) {
    const Clip clip{.channels = 1, .frames = 2};
    const Bytes file = Record(clip, false);
    ASSERT_EQ(Run(file), kCompleted);
    const auto calls = stream->Calls();
    const std::string open = "Open " + name;
    const auto writes = static_cast<size_t>(std::ranges::find(calls, open + " 0x2") - calls.begin());
    const std::vector<std::string> end(calls.begin() + At(writes), calls.end());
    const auto footer = std::to_string(GroupStarts(Record(clip, true), 1).back());
    ASSERT_EQ(end.size(), 12u);
    EXPECT_TRUE(end[1].starts_with("Allocate ") && end[2].starts_with("Allocate ")) << "everything before it writes";
    EXPECT_EQ(end[3], "Seek 0 0");
    EXPECT_EQ(end[4], "Write 131072 tag 0");
    EXPECT_EQ(end[6], "Seek " + footer + " 0");

    using Lines = std::vector<std::string>;
    const auto linesOf = [&](size_t call) -> Lines {
        const std::string run = "CSalvageMXFOp1b::Salvage: ", header = "CSalvageMXFOp1b::GetHeaderParam: ";
        const std::string body = "CSalvageMXFOp1b::GetFileParam: ";
        if (call == 0 || call == writes) return {run + "Open Error."};
        if (call == 1) return {run + "Seek Error."};
        if (call <= 5) return {header + "Read Error."};
        if (call + 4 >= writes && call + 1 < writes) return {"CSalvageMXFOp1b::GetStartSEIParam: Read Error."};
        if (call + 1 == writes) return {};  // closed after reading
        if (calls[call].starts_with("Allocate ")) return {run + "Allocate Error."};
        if (call < writes) return {body + "Read Error."};
        if (call < writes + 6) return {run + "Write Header Error."};
        if (call < writes + 9) return {run + "Write Footer Error."};
        return {run + (call < writes + 11 ? "Seek Error." : "Close Error.")};
    };
    for (const Fault fault : {Fault::kFail, Fault::kShort}) {
        for (size_t call = 0; call < calls.size(); ++call) {
            SCOPED_TRACE(testing::Message() << call << " " << calls[call]);
            auto failing = std::make_unique<FaultyStream>(file);
            failing->FailNthOfAll(static_cast<int>(call + 1), fault);
            const Lines lines = linesOf(call);
            const bool goesOn = lines.empty() || lines[0].find("GetStartSEIParam") != std::string::npos;
            EXPECT_EQ(RunOn(std::move(failing)), goesOn ? kCompleted : kFailed);
            EXPECT_EQ(log.Lines(), lines);
            if (call < writes + 4 && !goesOn) {
                EXPECT_TRUE(SameBytes(file, After()));
            }
            EXPECT_TRUE(SameBytes(std::span(file).subspan(kHeader),
                                  std::span(After()).subspan(kHeader, file.size() - kHeader)));
        }
    }
}

TEST_F(SalvageMXFOp1b, WithoutAStreamNothingIsOpened) {
    CSalvageMXFOp1b asked;
    asked.SetFilename("clip.mxf");
    const auto run = [&] {
        Notes told;
        EXPECT_EQ(asked.Salvage(&told), kStatusOk);
        EXPECT_THAT(told.UntilTheEnd(), ElementsAre(kFailed));
        EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXFOp1b::Salvage: Open Error."));
        log.Clear();
    };
    {
        const StreamFactory factory(nullptr);
        run();
        EXPECT_EQ(factory.Live(), 0);
    }
    CFileIOMain::SetFactoryProvider([](uint32_t, const CNetworkInfo*, uint32_t) { return nullptr; });
    run();
    CFileIOMain::SetFactoryProvider({});
}

TEST_F(SalvageMXFOp1b, CutThatFailsIsReported) {
    const Clip clip{.frames = 100};
    Bytes file = Record(clip, false);
    file.resize(file.size() - 3);
    FaultyStream reading(file);
    const StreamFactory factory(&reading);
    CSalvageMXFOp1b asked;
    asked.SetFilename(folder.File("no such file").c_str());
    Notes told;
    ASSERT_EQ(asked.Salvage(&told), kStatusOk);
    EXPECT_EQ(told.UntilTheEnd().back(), kFailed);
    EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXFOp1b::Salvage: Truncate Error."));
}

TEST_F(SalvageMXFOp1b, WaitsForAStreamThatWritesLater) {
    const Clip clip{.frames = 50};
    auto slow = std::make_unique<FaultyStream>(Record(clip, false));
    slow->CompleteAsynchronously(std::chrono::milliseconds(20));
    ASSERT_EQ(RunOn(std::move(slow)), kCompleted);
    ExpectFrames(clip, 50);
}

// --- on disk ---

TEST_F(SalvageMXFOp1b, SalvagesAndCutsAFileOnDisk) {
    const Clip clip{.frames = 100};
    const Bytes closed = Record(clip, true);
    const auto starts = GroupStarts(closed, 2);
    const Bytes cut = First(closed, starts[2] - 5000);
    std::ofstream(name, std::ios::binary)
        .write(reinterpret_cast<const char*>(cut.data()), static_cast<std::streamsize>(cut.size()));
    salvager = std::make_unique<CSalvageMXFOp1b>();
    ASSERT_TRUE(salvager->SetFilename(name.c_str()));
    Notes told;
    ASSERT_EQ(salvager->Salvage(&told), kStatusOk);
    EXPECT_EQ(told.UntilTheEnd().back(), kCompleted);
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_TRUE(salvager->IsCompletedFile());
    const Bytes after = LoadFile(name);
    EXPECT_LT(after.size(), cut.size());
    EXPECT_EQ(NumberAt(after, 44, 8), starts[1]);
    const size_t overall = NumberAt(after, after.size() - 4, 4);
    EXPECT_EQ(overall, 24u + 12 * (2 + 8));
    stream = std::make_unique<FaultyStream>(after);
    ExpectFrames(clip, 50);

    Notes again;
    ASSERT_TRUE(salvager->SetFilename(folder.File("no such file").c_str()));
    ASSERT_EQ(salvager->Salvage(&again), kStatusOk);
    EXPECT_EQ(again.UntilTheEnd().back(), kFailed);
    EXPECT_THAT(log.Lines(), ElementsAre("CSalvageMXFOp1b::Salvage: Open Error."));
    EXPECT_EQ(salvager->GetDuration(), 0) << "of the last run";
}

}  // namespace
}  // namespace kmxf::test
