#pragma once

#include <atomic>
#include <deque>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "faults/Sweep.h"
#include "kmxf/collaborators/MemoryFileIO.h"
#include "kmxf/core/Status.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/writer/CreateMXFAudio.h"
#include "kmxf/writer/CreateMXFOp1b.h"
#include "kmxf/writer/CreateMXFVideo.h"
#include "roundtrip/Recording.h"
#include "support/FaultyStream.h"
#include "support/FixedEnvironment.h"
#include "support/TestData.h"

namespace kmxf::test {

// A writer with its client, who makes one and the same recording each time.
class Recording {
public:
    virtual ~Recording() = default;
    // Sets everything anew, records and closes.
    virtual void Record(Play& play, IStreamFileIO& stream) = 0;
    // Frames of the recording made last that are in the file for certain.
    virtual uint32_t FramesConfirmed() = 0;
};

inline MXFUMIDTag SomeUMID(uint8_t last) {
    MXFUMIDTag umid;
    for (size_t i = 0; i < 32; ++i) umid.bytes[i] = static_cast<uint8_t>(0xA0 + i);
    umid.bytes[31] = last;
    return umid;
}
inline const CDescriptiveMetadata& SomeMetadata() {
    static const CDescriptiveMetadata kMetadata = [] {
        CDescriptiveMetadata metadata;
        metadata.SetJobFunction("Caméra, and a long one");
        metadata.SetFamilyName("Nowak");
        metadata.SetProjectName("北 river, a name beyond what fits into a short string");
        metadata.SetTakeNumber(5);
        metadata.SetSceneNumber("12B");
        return metadata;
    }();
    return kMetadata;
}
inline const std::string kLongName = "A001C007, with a name that no string holds without memory";
inline const std::string kCompany = "A company of 16.", kProduct = "A product of 16.", kVersion = "1.0";
inline constexpr uint8_t kProductUID[16] = {7, 7, 7, 7};

// The settings that take memory for their text.
template <class Writer>
void SetTexts(Play& play, Writer& writer) {
    const auto set = [&](const char* name, const auto& call) { play(name, call, Play::Failure::kSilent); };
    set("SetPackageName", [&] { return writer.SetPackageName(kLongName); });
    set("SetDescriptiveMetadata", [&] { return writer.SetDescriptiveMetadata(SomeMetadata()); });
    set("SetIdentification", [&] { return writer.SetIdentification(kCompany, kProduct, kVersion, kProductUID); });
}

// Essence in pieces that stay as long as the program runs: no stream outlives them.
class Essence {
public:
    Essence(const Bytes& bytes, size_t pieceSize) {
        for (size_t at = 0; at < bytes.size(); at += pieceSize) {
            pieces_.emplace_back(bytes.data() + at, static_cast<uint32_t>(std::min(pieceSize, bytes.size() - at)));
        }
    }
    std::deque<CMemoryPiece>& Pieces() { return pieces_; }

private:
    std::deque<CMemoryPiece> pieces_;
};

// Counts the client's pieces that are in the file, up to the first that is not.
class Confirmation final : public IFileIOCallback {
public:
    void Begin() {
        pieces_ = 0;
        lost_ = false;
    }
    void CallbackForWriteComplete(uint64_t, int32_t status, int32_t) override {
        if (status != 0) lost_ = true;
        if (!lost_) ++pieces_;
    }
    size_t Pieces() const { return pieces_; }

private:
    std::atomic<size_t> pieces_ = 0;
    std::atomic<bool> lost_ = false;
};

// OP-Atom.
template <class Writer>
class AtomRecording : public Recording {
public:
    AtomRecording(Essence& essence, size_t frameSize) : essence_(essence), frameSize_(frameSize) {}

    void Record(Play& play, IStreamFileIO& stream) override {
        const FixedEnvironment environment;
        confirmation_.Begin();
        play(
            "SetFilename", [&] { return writer_.SetFilename("a name that no string holds without memory.mxf"); },
            Play::Failure::kSilent);
        SetFormat(play, writer_);
        play("SetUMID", [&] { return writer_.SetUMID(SomeUMID(1)); });
        play("SetShotUMID", [&] { return writer_.SetShotUMID(SomeUMID(2)); });
        play("SetStartTimecode", [&] { return writer_.SetStartTimecode(107892, true); });
        SetTexts(play, writer_);
        play("Open", [&] {
            const int32_t status = writer_.Open(&stream, true);
            return status == kStatusOk && !writer_.IsOpened() ? kStatusIoError : status;  // the video writer's
        });
        play("RegisterCallback", [&] { return writer_.RegisterCallback(&confirmation_); });
        size_t number = 0;
        for (CMemoryPiece& piece : essence_.Pieces()) {
            play("Write", [&] { return writer_.Write(&piece, 0); });
            if (++number == 2) play("DataSync", [&] { return writer_.DataSync(); });
        }
        play("Close", [&] { return writer_.Close(); });
        play.Always("Close", [&] { writer_.Close(); });
    }
    uint32_t FramesConfirmed() override {
        size_t bytes = 0;
        for (size_t i = 0; i < confirmation_.Pieces(); ++i) bytes += essence_.Pieces()[i].GetSize();
        return static_cast<uint32_t>(bytes / frameSize_);
    }

protected:
    virtual void SetFormat(Play& play, Writer& writer) = 0;

private:
    Essence& essence_;
    size_t frameSize_;
    Confirmation confirmation_;
    Writer writer_;
};

class PictureRecording : public AtomRecording<CCreateMXFVideo> {
protected:
    PictureRecording(Essence& essence, size_t frameSize, uint32_t videoStd, uint32_t type)
        : AtomRecording(essence, frameSize), videoStd_(videoStd), type_(type) {}

private:
    void SetFormat(Play& play, CCreateMXFVideo& writer) override {
        play("SetVideoStandard", [&] { return writer.SetVideoStandard(videoStd_); });
        play("SetDVType", [&] { return writer.SetDVType(type_); });
        play("SetClipType", [&] { return writer.SetClipType(0x100); });
    }
    const uint32_t videoStd_, type_;
};

class DVRecording final : public PictureRecording {
public:
    DVRecording() : PictureRecording(TheEssence(), 120000, VIDEO_STD_59_94I, COMP_TYPE_DV25) {}

private:
    static Essence& TheEssence() {
        static Essence essence(LoadTestData("essence/dv25-5994i.dif"), 100000);
        return essence;
    }
};

class AVCIntraRecording final : public PictureRecording {
public:
    AVCIntraRecording() : PictureRecording(TheEssence(), 116224, VIDEO_STD_59_94P, COMP_TYPE_AVCI50_720) {}

private:
    static Essence& TheEssence() {
        static Essence essence(LoadTestData("essence/avci50-720-5994p.raw"), 116224);
        return essence;
    }
};

class SoundRecording final : public AtomRecording<CCreateMXFAudio> {
public:
    SoundRecording() : AtomRecording(TheEssence(), 1602 * 3) {}

private:
    static Essence& TheEssence() {
        static Essence essence(Noise(size_t{8008} * 3 * 2, 3), 10000);
        return essence;
    }
    void SetFormat(Play& play, CCreateMXFAudio& writer) override {
        play("SetVideoStandard", [&] { return writer.SetVideoStandard(VIDEO_STD_59_94I); });
        play("SetClipType", [&] { return writer.SetClipType(1); });
        play("SetBytesPerSample", [&] { return writer.SetBytesPerSample(3); });
    }
};

// OP-1b: two groups, of which the last is short, two channels, XML and thumbnail.
class ClipRecording final : public Recording {
public:
    void Record(Play& play, IStreamFileIO& stream) override {
        const FixedEnvironment environment;
        static Essence pictures(Noise(size_t{kFrames} * kPicture, 5), kPicture);
        static Essence sound(Noise(size_t{48} * 2002 * 3, 6), size_t{48} * 2002 * 3);
        static Essence lastSound(Noise(size_t{6008} * 3, 7), size_t{6008} * 3);
        static const Bytes xml = LoadTestData("essence/clip.xml"), thumbnail = LoadTestData("essence/thumbnail.bmp");
        confirmation_.Begin();
        closed_ = false;
        play("SetVideoStandard", [&] { return writer_.SetVideoStandard(VIDEO_STD_23_98P); });
        play("SetCompType", [&] { return writer_.SetCompType(COMP_TYPE_LONGG25_1080); });
        play("SetBytesPerSample", [&] { return writer_.SetBytesPerSample(3); });
        play("SetClipType", [&] { return writer_.SetClipType(0x102); });
        play("SetUMID", [&] { return writer_.SetUMID(SomeUMID(1)); });
        SetTexts(play, writer_);
        play("Open", [&] { return writer_.Open("clip.mxf", &stream); });
        play("RegisterCallback", [&] { return writer_.RegisterCallback(&confirmation_); });
        play(
            "SetXMLData", [&] { return writer_.SetXMLData(xml.data(), static_cast<uint16_t>(xml.size())); },
            Play::Failure::kSilent);
        play(
            "SetThumbnailData",
            [&] {
                return writer_.SetThumbnailData(thumbnail.data(), static_cast<uint16_t>(thumbnail.size()), 80, 45, 0);
            },
            Play::Failure::kSilent);
        uint32_t number = 0;
        for (CMemoryPiece& piece : pictures.Pieces()) {
            play("WriteVideo", [&] { return writer_.WriteVideo(&piece, 0, 0, 0xC0); });
            if (++number != kGroup && number != kFrames) continue;
            auto& blocks = number == kGroup ? sound : lastSound;
            for (uint8_t c = 0; c < 2; ++c) {
                play("WriteAudio", [&] { return writer_.WriteAudio(&blocks.Pieces()[0], c); });
            }
        }
        closed_ = play("Close", [&] { return writer_.Close(); });
        play.Always("Close", [&] { writer_.Close(); });
    }
    // A group is whole when the next one has begun.
    uint32_t FramesConfirmed() override {
        constexpr size_t kAll = kFrames + 4;
        const size_t pieces = confirmation_.Pieces();
        return pieces == kAll && closed_ ? kFrames : pieces > kGroup + 2 ? kGroup : 0;
    }

private:
    static constexpr uint32_t kGroup = 48, kFrames = 51, kPicture = 31;

    bool closed_ = false;
    Confirmation confirmation_;
    CCreateMXFOp1b writer_;
};

// The file of a recording in which nothing fails.
template <class Recorded>
Bytes FileOf() {
    FaultyStream stream;
    Play play;
    Recorded().Record(play, stream);
    return stream.Bytes();
}

}  // namespace kmxf::test
