#include "kmxf/tools/Clip.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include "CheckFiles.h"
#include "support/TemporaryFolder.h"

namespace kmxf::test {

namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

ClipFile Told(const Bytes& bytes, const std::string& path = "clip.mxf") {
    MemorySource source(bytes);
    return ReadClipFile(source, path);
}
std::string Refusal(IByteSource& source) {
    try {
        ReadClipFile(source, "clip.mxf");
    } catch (const ClipError& error) {
        return error.what();
    }
    return "";
}
std::string Refusal(const Bytes& bytes) {
    MemorySource source(bytes);
    return Refusal(source);
}
Bytes CutTo(Bytes bytes, size_t size) {
    bytes.resize(size);
    return bytes;
}

// As a recorder that lost its power leaves the header: nothing is known yet that it writes at the end.
Bytes Open(AtomFile atom) {
    atom.close = false;
    return Record(atom);
}

class FileInMemory final : public IByteSource {
public:
    explicit FileInMemory(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        bytes_.assign(std::istreambuf_iterator<char>(file), {});
    }
    uint64_t GetSize() override { return bytes_.size(); }
    size_t Read(uint64_t offset, std::span<uint8_t> bytes) override {
        std::copy_n(bytes_.begin() + static_cast<ptrdiff_t>(offset), bytes.size(), bytes.begin());
        return bytes.size();
    }

private:
    std::vector<char> bytes_;
};

class ClipFolder : public ::testing::Test {
protected:
    void Put(const std::string& name, const Bytes& bytes) {
        fs::create_directories(fs::path(Path(name)).parent_path());
        std::ofstream(Path(name), std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
    std::string Path(const std::string& name) const { return folder_.File(name); }

    std::vector<Clip> Found(const Names& names, bool only = false) {
        Names paths;
        for (const auto& name : names) paths.push_back(Path(name));
        const auto open = [](const std::string& path) -> std::unique_ptr<IByteSource> {
            if (!fs::exists(path)) throw ClipError(path + ": cannot be opened");
            return std::make_unique<FileInMemory>(path);
        };
        return FindClips(paths, only, open, [&](const ClipError& error) { reports_.push_back(error.what()); });
    }
    // The file names of each clip that is found.
    std::vector<Names> FoundNames(const Names& names, bool only = false) {
        std::vector<Names> found;
        for (const Clip& clip : Found(names, only)) {
            found.emplace_back();
            for (const ClipFile& file : clip.files) found.back().push_back(fs::path(file.path).filename().string());
        }
        return found;
    }
    std::string Refused(const Names& names) {
        try {
            Found(names);
        } catch (const ClipError& error) {
            return error.what();
        }
        return "";
    }

    TemporaryFolder folder_;
    Names reports_;
};

const Op1bClip kOneFile{.videoStd = VIDEO_STD_59_94I, .compType = COMP_TYPE_LONGG25_1080, .channels = 2};
const AtomFile kSound{.compType = 0};
const AtomFile kSecondSound{.compType = 0, .channel = 1};

}  // namespace

TEST(ClipFileTells, OfAPicture) {
    const ClipFile file =
        Told(Record(AtomFile{.with = [](CCreateMXFBase& writer) { writer.SetDescriptiveMetadata(TestMetadata()); }}));
    EXPECT_EQ(file.verdict.Text(), "closed");
    EXPECT_EQ(file.recording, "060A2B340101010501010F2013" + std::string(36, '0') + "C1");
    EXPECT_TRUE(file.isVideo);
    EXPECT_FALSE(file.isAudio || file.isOp1b);
    ASSERT_TRUE(file.format);
    EXPECT_EQ(file.format->videoStd, VIDEO_STD_59_94I);
    EXPECT_EQ(file.format->compType, COMP_TYPE_DV25);
    EXPECT_EQ(file.dataOffset, 32768u);
    EXPECT_EQ(file.dataSize, 240000);
    EXPECT_EQ(file.duration, 2);
    EXPECT_EQ(file.FrameOffset(1), 152768u);
    EXPECT_EQ(file.frameRate, (MXFRATIONALTag{30000, 1001}));
    EXPECT_EQ(file.startTimecode, 107892);
    EXPECT_TRUE(file.dropFrame);
    EXPECT_EQ(file.materialUmid, TestUmid(0xC1));
    EXPECT_EQ(file.fileUmid, TestUmid(1));
    EXPECT_EQ(file.packageName, "A001C007");
    EXPECT_EQ(file.description.jobFunction, "Camera");
    EXPECT_EQ(file.description.familyName, "Doe");
    EXPECT_EQ(file.description.firstGivenName, "Jo");
    EXPECT_EQ(file.description.projectNumber, "P1");
    EXPECT_EQ(file.description.projectName, "River");
    EXPECT_EQ(file.description.takeNumber, 3u);
    EXPECT_EQ(file.description.sceneNumber, "12A");
    EXPECT_EQ(file.tracks.size(), 2u);
    EXPECT_EQ(file.heldTracks, std::vector{file.tracks[0]});
}

TEST(ClipFileTells, OfASound) {
    const ClipFile file = Told(Record(kSound));
    EXPECT_TRUE(file.isAudio);
    EXPECT_EQ(file.channels, 1u);
    EXPECT_EQ(file.samplingRate, 48000u);
    EXPECT_EQ(file.bitsPerSample, 16u);
    EXPECT_EQ(file.samples, 3204);
    EXPECT_EQ(file.FirstSample(1), 1600);
    EXPECT_EQ(file.duration, 2);
    EXPECT_FALSE(file.description.takeNumber);
    EXPECT_EQ(file.heldTracks, std::vector{file.tracks[1]});
}

TEST(ClipFileTells, OfAWholeClipInOneFile) {
    const ClipFile file = Told(Record(kOneFile));
    EXPECT_EQ(file.verdict.Text(), "closed");
    EXPECT_TRUE(file.isOp1b && file.isVideo);
    EXPECT_TRUE(file.recording.ends_with("/clip.mxf"));
    EXPECT_EQ(file.heldTracks, file.tracks);
    ASSERT_FALSE(file.groups.empty());
    EXPECT_EQ(file.dataOffset, file.groups.front().pictures.begin);
    EXPECT_EQ(file.groups.front().sound.size(), file.channels);
}

TEST(ClipFileTells, OfTheEssenceThatIsThereWhenItWasCutOff) {
    const Bytes whole = Record(AtomFile{});
    const ClipFile file = Told(CutTo(whole, 32768 + 130000));
    EXPECT_EQ(file.verdict, (ClipVerdict{ClipVerdict::Kind::kCutOff, 1}));
    EXPECT_EQ(file.verdict.Text(), "cut off at frame 1");
    EXPECT_EQ(file.duration, 1);
    EXPECT_EQ(file.dataSize, 120000);
}

TEST(ClipFileTells, WhereItIsDamaged) {
    const Bytes whole = Record(AtomFile{});
    const uint64_t primer = Nth(whole, "PrimerPack").offset;
    EXPECT_EQ(Told(At(whole, primer, "FF")).verdict.Text(), "damaged at offset " + std::to_string(primer));
    EXPECT_EQ(Told(CutTo(whole, 2000)).verdict.Text(), "damaged at offset 2000");
    // More index than there can be in front of the essence, up to the most that a number can say
    for (const char* const count : {"0000000000007FFF", "7FFFFFFFFFFFFFFF", "FFFFFFFFFFFFFFFF"})
        EXPECT_EQ(Told(With(whole, "HeaderPartitionPack", 0, "IndexByteCount", count)).verdict.Text(),
                  "damaged at offset 0");
}

TEST(ClipFileTells, SomethingWhateverItsNumbersAre) {
    for (const Bytes& file : {Record(AtomFile{}), Record(AtomFile{.compType = 0}), Record(kOneFile)}) {
        WithExtremeNumbers(file, [](const Bytes& extreme) {
            try {
                const ClipFile told = Told(extreme);
                EXPECT_GE(told.duration, 0);
                EXPECT_LE(told.duration, told.frames);
            } catch (const ClipError&) {  // they may be of what tells that it is such a file
            }
        });
    }
    const Bytes clip = Record(kOneFile);
    size_t n = 0;
    while (Nth(clip, "SourceClip", n).offset < Nth(clip, "SourcePackage").offset) ++n;
    for (const char* const duration : {"8000000000000000", "0000000000000400"})
        EXPECT_EQ(Told(With(clip, "SourceClip", n, "Duration", duration)).verdict.Text(),
                  "damaged at offset " + std::to_string(Nth(clip, "SourceClip", n).Item("Duration")->offset));
    for (const char* const bits : {"00000000", "00000008", "00000020"})
        EXPECT_EQ(Told(WithAll(clip, "AES3Descriptor", "QuantizationBits", bits)).verdict.kind,
                  ClipVerdict::Kind::kDamaged);
    // A timecode that is none
    EXPECT_NE(Told(clip).timecodeBase, 0u);
    EXPECT_EQ(Told(WithAll(clip, "TimecodeComponent", "StartTimecode", "0000000100000000")).timecodeBase, 0u);
}

TEST(ClipFileTells, EachTrackOnceHoweverOftenItIsNamed) {
    const Bytes clip = Record(kOneFile);
    const InspectedItem tracks = *Nth(clip, "MaterialPackage").Item("PackageTracks");
    ASSERT_EQ(Told(clip).tracks.size(), 3u);
    Bytes one = clip;
    // The second is that of the pictures.
    for (size_t at = 8; at < tracks.value.size(); at += 16)
        std::copy_n(clip.begin() + static_cast<std::ptrdiff_t>(tracks.offset + 24), 16,
                    one.begin() + static_cast<std::ptrdiff_t>(tracks.offset + at));
    EXPECT_EQ(Told(one).tracks.size(), 1u);
}

TEST(ClipFileTells, ThatItIsNoSuchFile) {
    EXPECT_EQ(Refusal(Bytes{}), "clip.mxf: is not an MXF file: it does not begin with a partition pack (offset 0)");
    const Bytes whole = Record(AtomFile{});
    EXPECT_EQ(Refusal(CutTo(whole, 100)), "clip.mxf: ends within its first partition pack (offset 100)");
    EXPECT_EQ(Refusal(At(whole, 96, "0B")),
              "clip.mxf: is an MXF file of another operational pattern than OP-Atom and OP-1b (offset 84)");
    EXPECT_EQ(Refusal(At(whole, 121, "7F")), "clip.mxf: holds essence of a kind not known here (offset 108)");
}

TEST(ClipFileTells, ThatItCannotBeRead) {
    class Failing final : public IByteSource {
    public:
        uint64_t GetSize() override { return 100000; }
        size_t Read(uint64_t, std::span<uint8_t>) override { return 5000; }
    } source;
    EXPECT_EQ(Refusal(source), "clip.mxf: cannot be read (offset 5000)");
}

TEST(ClipFileTells, SomethingWhereverItsHeaderEnds) {
    const Bytes whole = Record(AtomFile{});
    const size_t body = Nth(whole, "BodyPartitionPack").offset;
    for (size_t size = 124; size < body; size += size < 600 ? 1 : 61)
        EXPECT_EQ(Told(CutTo(whole, size)).verdict.kind, ClipVerdict::Kind::kDamaged) << size;
}

TEST_F(ClipFolder, AnyMemberLeadsToAllByTheMaterialUmid) {
    Put("A.mxf", Record(AtomFile{}));
    Put("other.mxf", Record(kSound));
    Put("notes.txt", {});
    const std::vector<Names> clip{{"A.mxf", "other.mxf"}};
    EXPECT_EQ(FoundNames({"A.mxf"}), clip);
    EXPECT_EQ(FoundNames({"other.mxf"}), clip);
    EXPECT_EQ(FoundNames({"."}), clip);
    EXPECT_EQ(FoundNames({"A.mxf", ".", "other.mxf"}), clip);
    EXPECT_EQ(FoundNames({"other.mxf"}, true), (std::vector<Names>{{"other.mxf"}}));
    EXPECT_FALSE(Found({"."}).front().IsByName());
}

TEST_F(ClipFolder, NamesDoNotPutRecordingsTogether) {
    Put("A.mxf", Record(AtomFile{}));
    AtomFile other = kSound;
    other.with = [](CCreateMXFBase& writer) { writer.SetShotUMID(TestUmid(0xC2)); };
    Put("A00.mxf", Record(other));
    EXPECT_EQ(FoundNames({"A.mxf"}), (std::vector<Names>{{"A.mxf"}}));
    EXPECT_EQ(FoundNames({"."}), (std::vector<Names>{{"A.mxf"}, {"A00.mxf"}}));
}

TEST_F(ClipFolder, OneFileClipsStandAlone) {
    Put("A.mxf", Record(kOneFile));
    Put("B.mxf", Record(kOneFile));
    EXPECT_EQ(FoundNames({"A.mxf"}), (std::vector<Names>{{"A.mxf"}}));
    EXPECT_EQ(FoundNames({"."}), (std::vector<Names>{{"A.mxf"}, {"B.mxf"}}));
}

TEST_F(ClipFolder, WhatWasCutOffBelongsTogetherByName) {
    Put("A.mxf", Open({}));
    Put("A00.mxf", Open(kSound));
    Put("A01.mxf", Open(kSecondSound));
    Put("A99.mxf", Open({}));  // a picture that is called like a sound of A
    Put("B00.mxf", Open(kSound));
    Put("deeper/A02.mxf", Open(kSound));
    const std::vector<Names> clip{{"A.mxf", "A00.mxf", "A01.mxf"}};
    EXPECT_EQ(FoundNames({"A01.mxf"}), clip);
    const auto clips = Found({"."});
    ASSERT_EQ(clips.size(), 3u);
    EXPECT_TRUE(clips[0].IsByName());
    EXPECT_FALSE(clips[1].IsByName());
}

TEST_F(ClipFolder, MissingAndDoubleMembersAreTold) {
    Put("A.mxf", Record(AtomFile{}));
    const auto tracks = Found({"."}).front().files.front().tracks;
    ASSERT_EQ(tracks.size(), 2u);
    EXPECT_EQ(Found({"."}).front().MissingTracks(), std::vector{tracks[1]});
    Put("A00.mxf", Record(kSound));
    EXPECT_TRUE(Found({"."}).front().MissingTracks().empty());
    EXPECT_TRUE(Found({"."}).front().DoubleTracks().empty());
    Put("copy.mxf", Record(kSound));
    EXPECT_EQ(Found({"."}).front().DoubleTracks(), std::vector{tracks[1]});
}

TEST_F(ClipFolder, FilesDisagree) {
    Put("A.mxf", Record(AtomFile{}));
    Put("A00.mxf", Record(kSound));
    EXPECT_TRUE(Found({"."}).front().Disagreements().empty());
    AtomFile other = kSound;
    other.frames = 3;
    other.with = [](CCreateMXFBase& writer) {
        writer.SetPackageName("other");
        writer.SetStartTimecode(107892, false);
    };
    Put("A00.mxf", Record(other));
    EXPECT_EQ(Found({"."}).front().Disagreements(),
              (std::vector<std::string_view>{"package_name", "start_timecode", "drop_frame", "duration"}));
}

TEST(ClipProperties, HaveTheirNames) {
    EXPECT_EQ(GetSharedProperties().size(), 12u);
    EXPECT_EQ(GetSharedProperties().front(), "material_umid");
    EXPECT_EQ(GetSharedProperties().back(), "descriptive_metadata");
}

TEST_F(ClipFolder, UnreadableFilesOfAFolderAreReported) {
    Put("A.mxf", Record(AtomFile{}));
    Put("B.mxf", Bytes(100));
    EXPECT_EQ(FoundNames({"."}), (std::vector<Names>{{"A.mxf"}}));
    EXPECT_EQ(reports_,
              Names{Path("./B.mxf") + ": is not an MXF file: it does not begin with a partition pack (offset 0)"});
}

TEST_F(ClipFolder, WhatCannotBeNamed) {
    EXPECT_EQ(Refused({"."}), Path(".") + ": holds no MXF files");
    EXPECT_EQ(Refused({"none.mxf"}), Path("none.mxf") + ": cannot be opened");
    Put("B.mxf", Bytes(100));
    EXPECT_EQ(Refused({"."}),
              Path("./B.mxf") + ": is not an MXF file: it does not begin with a partition pack (offset 0)");
}

}  // namespace kmxf::test
