#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>

#include "faults/Recordings.h"
#include "faults/StreamFaults.h"
#include "kmxf/tools/ModifyMXFHeader.h"
#include "kmxf/tools/ModifyMXFHeaderData.h"
#include "tools/StreamFactory.h"

namespace kmxf::test {
namespace {

// An edit of a file, by one and the same editor each time.
class Editing {
public:
    virtual ~Editing() = default;
    virtual void Edit(Play& play, FaultyStream& stream) = 0;
};

class StreamEditing final : public Editing {
    void Edit(Play& play, FaultyStream& stream) override {
        play("SetFilename", [&] { return editor_.SetFilename("clip.mxf"); });
        play("SetShotUMID", [&] { return editor_.SetShotUMID(SomeUMID(99)); });
        play("Save", [&] { return editor_.Save(&stream); });
    }
    CModifyMXFHeader editor_;
};

// The editor that takes files from the library's factory.
class FileEditing final : public Editing {
public:
    using Call = std::function<int32_t(CModifyMXFHeaderData&)>;
    FileEditing(Call call, Play::Failure openFailure) : call_(std::move(call)), openFailure_(openFailure) {}

private:
    void Edit(Play& play, FaultyStream& stream) override {
        const StreamFactory factory(&stream);
        play("SetShotUMID", [&] { return editor_.SetShotUMID(SomeUMID(99)); });
        // Opening, the first operation, may fail without a record.
        const auto failure = stream.FailsNthOfAll(1) ? openFailure_ : Play::Failure::kLogged;
        play(
            "the edit", [&] { return call_(editor_); }, failure);
        EXPECT_EQ(factory.Live(), 0);
    }
    Call call_;
    Play::Failure openFailure_;
    CModifyMXFHeaderData editor_;
};

using Make = std::function<std::unique_ptr<Editing>()>;

// The bytes that tell the states of a file apart: an edit has written all of them, none, or is torn within them.
struct Range {
    size_t begin, end;
};
Range Changed(const Bytes& before, const Bytes& after) {
    const auto first = std::ranges::mismatch(before, after).in1 - before.begin();
    const auto last = std::mismatch(before.rbegin(), before.rend(), after.rbegin()).first.base() - before.begin();
    return {static_cast<size_t>(first), static_cast<size_t>(last)};
}

void SweepEdit(const std::string& name, const Bytes& file, const Make& make, size_t most) {
    FaultyStream cleanStream(file);
    std::vector<Answer> answers;
    int requests = 0;
    {
        const FailingMemory counting;
        Play play;
        make()->Edit(play, cleanStream);
        requests = FailingMemory::Requests();
        answers = play.Answers();
        ASSERT_THAT(play.Log(), testing::IsEmpty());
    }
    const Bytes edited = cleanStream.Bytes();
    ASSERT_EQ(edited.size(), file.size());
    const Range range = Changed(file, edited);
    ASSERT_LE(range.end - range.begin, most);

    const auto editTwice = [&](const std::function<void(FaultyStream&)>& fail,
                               const std::function<std::unique_ptr<FailingMemory>()>& failMemory) {
        std::vector<std::string> faults;
        const auto editing = make();
        FaultyStream stream(file);
        fail(stream);
        {
            Play play(answers);
            auto memory = failMemory();
            editing->Edit(play, stream);
            memory.reset();
            faults = play.Faults();
            if (!play.Failed() && stream.Bytes() != edited) faults.push_back("it went well, but the file is another");
        }
        ExpectGivenBack(stream, faults);
        const Bytes& left = stream.Bytes();
        if (left.size() != file.size()) faults.push_back("the file has another size");
        if (left != file && left != edited) {
            // Torn: new up to some byte, and old from there on.
            const auto torn = std::ranges::mismatch(left, edited).in1 - left.begin();
            if (!std::equal(left.begin() + torn, left.end(), file.begin() + torn)) {
                faults.push_back("the file is neither old nor new from byte " + std::to_string(torn) + " on");
            }
        }
        FaultyStream again(stream.Shared());
        Play play(answers);
        editing->Edit(play, again);
        if (play.Failed()) faults.push_back("the editor does not edit again: " + play.FailedCall());
        if (again.Bytes() != edited) faults.push_back("the second edit does not complete the first");
        return faults;
    };
    {
        Sweep sweep(name + ", stream");
        SweepStream(sweep, cleanStream.Calls(), 1000, false,
                    [&](const std::string&, const auto& set) { return editTwice(set, [] { return nullptr; }); });
    }
    Sweep sweep(name + ", memory");
    SweepMemory(sweep, requests, 300, [&](int n, FailingMemory::Way way) {
        return editTwice([](FaultyStream&) {}, [&] { return std::make_unique<FailingMemory>(n, way); });
    });
}

TEST(EditFaults, ShotUMIDOnAStream) {
    SweepEdit(
        "shot UMID on a stream", FileOf<SoundRecording>(), [] { return std::make_unique<StreamEditing>(); }, 32);
}
TEST(EditFaults, ShotUMIDByName) {
    SweepEdit(
        "shot UMID by name", FileOf<SoundRecording>(),
        [] {
            return std::make_unique<FileEditing>([](auto& editor) { return editor.Save("clip.mxf"); },
                                                 Play::Failure::kLogged);
        },
        32);
}
TEST(EditFaults, XML) {
    static const Bytes xml = Noise(5000, 11);
    SweepEdit(
        "XML", FileOf<ClipRecording>(),
        [] {
            return std::make_unique<FileEditing>(
                [](auto& editor) { return editor.ModifyXMLData("clip.mxf", xml.data(), 5000); },
                Play::Failure::kSilent);
        },
        6000);
}
TEST(EditFaults, Thumbnail) {
    static const Bytes picture = Noise(10854, 12);
    SweepEdit(
        "thumbnail", FileOf<ClipRecording>(),
        [] {
            return std::make_unique<FileEditing>(
                [](auto& editor) { return editor.ModifyThumbnailData("clip.mxf", picture.data(), 7, 10854); },
                Play::Failure::kSilent);
        },
        11200);
}

}  // namespace
}  // namespace kmxf::test
