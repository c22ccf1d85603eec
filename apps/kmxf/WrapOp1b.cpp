#include <algorithm>
#include <cstdlib>

#include "AccessUnits.h"
#include "Op1bOutput.h"
#include "Progress.h"
#include "SideFiles.h"
#include "Text.h"
#include "Wrap.h"
#include "core/NewUMID.h"
#include "kmxf/collaborators/VideoFrame.h"
#include "kmxf/core/Environment.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/reader/ReadMXFOp1b.h"
#include "kmxf/writer/Op1bBase.h"

namespace kmxf::program {

namespace {

constexpr uint32_t kSamplingRate = 48000;
constexpr size_t kInstanceNumber = 15;  // its lowest byte, in a UMID

// Sound in blocks for groups of frames.
class GroupedSound {
public:
    GroupedSound(const ClipInputs& inputs, uint32_t videoStd);

    uint8_t BytesPerSample() const { return static_cast<uint8_t>(bytesPerSample_); }
    // A block for each channel, from where the last ones ended to the end of frame `frames` - 1; behind its end a sound
    // is silence.
    std::vector<std::unique_ptr<OwnedPiece>> UpTo(uint64_t frames);
    int64_t Samples() const { return samples_; }  // given of each channel
    bool IsBroken() const { return broken_; }

private:
    const ClipInputs& inputs_;
    uint32_t videoStd_;
    uint32_t bytesPerSample_ = 2;
    int64_t samples_ = 0;
    bool broken_ = false;
};

GroupedSound::GroupedSound(const ClipInputs& inputs, uint32_t videoStd) : inputs_(inputs), videoStd_(videoStd) {
    if (!inputs.sounds.empty()) bytesPerSample_ = inputs.sounds.front()->BytesPerSample();
    for (const auto& sound : inputs.sounds) {
        if (sound->SamplingRate() != kSamplingRate) {
            Fail(ExitStatus::kInput, sound->Path(),
                 "has a sampling rate of " + std::to_string(sound->SamplingRate()) + " Hz; op-1b is for 48000");
        }
        if (sound->BytesPerSample() != bytesPerSample_) {
            Usage("sound of 16 and of 24 bits, and an op-1b clip has one kind: say which with --bits");
        }
    }
}

std::vector<std::unique_ptr<OwnedPiece>> GroupedSound::UpTo(uint64_t frames) {
    const int64_t count = DurationToAudioSample(videoStd_, static_cast<int64_t>(frames), kSamplingRate) - samples_;
    const size_t size = static_cast<size_t>(count) * bytesPerSample_;
    std::vector<std::unique_ptr<OwnedPiece>> blocks;
    std::vector<uint8_t*> rooms;
    for (const auto& sound : inputs_.sounds) {
        rooms.clear();
        for (uint32_t c = 0; c < sound->Channels(); ++c) {
            rooms.push_back(blocks.emplace_back(std::make_unique<HeapPiece>(static_cast<uint32_t>(size)))->GetBuffer());
        }
        size_t filled = 0;
        try {
            if (!broken_) filled = static_cast<size_t>(sound->Read(count, rooms)) * bytesPerSample_;
        } catch (const Failure& failure) {
            if (!inputs_.video->IsLive()) throw;
            Say(std::string(failure.what()) + "; the picture is kept, with silence from here on");
            broken_ = true;
        }
        for (uint8_t* room : rooms) std::fill(room + filled, room + size, uint8_t{0});
    }
    samples_ += count;
    return blocks;
}

// The timecode of the picture that is shown first; zero when it carries none.
CTimecode TimecodeOf(AccessUnits& units, uint32_t videoStd) {
    CTimecode timecode;
    timecode.SetVideoStd(videoStd);
    CAVCSEIData sei;
    const auto set = [&](std::span<const uint8_t> picture) {
        sei.SetSEIData(picture.data(), static_cast<uint32_t>(std::min<size_t>(picture.size(), 0xFFFF)), false);
    };
    set(units.FirstStored());  // its parameter sets tell how to read the other
    set(units.FirstShown());
    uint8_t packed[4];
    if (sei.GetTimecode(packed, SEI_DATA_TYPE1) == 0) timecode.SetData(packed);
    return timecode;
}

// The library dates a clip by the clock; here it shows the date that is wanted.
class FixedClock {
public:
    explicit FixedClock(const MXFTIMESTAMPTag& date) {
        LocalTime time;
        time.calendar.tm_year = date.year - 1900;
        time.calendar.tm_mon = date.month - 1;
        time.calendar.tm_mday = date.day;
        time.calendar.tm_hour = date.hour;
        time.calendar.tm_min = date.minute;
        time.calendar.tm_sec = date.second;
        SetNowSource([time] { return time; });
    }
    FixedClock(const FixedClock&) = delete;
    FixedClock& operator=(const FixedClock&) = delete;
    ~FixedClock() { SetNowSource({}); }
};

class Op1bWrapping {
public:
    Op1bWrapping(const WrapOptions& options, ClipInputs& inputs, const ClipValues& values)
        : o_(options),
          inputs_(inputs),
          values_(values),
          format_(inputs.video->Format()),
          sound_(inputs, format_.videoStd),
          units_(inputs.video->Stream(), o_.video) {}
    ExitStatus Run();

private:
    bool ForPlayers() const { return o_.layout != "strict"; }
    MXFUMIDTag MaterialUmid() const;
    bool Fits(uint32_t channels) const;
    void RequireFittingHeader() const;
    void Open(Op1bOutput& output);
    void Write(Op1bOutput& output, Progress& progress);
    void WriteSound(Op1bOutput& output);
    void SayWhatIsDifferent();
    void Prove(const OutputFile& file) const;

    struct WrittenFrame {
        uint32_t size;
        int8_t temporalOffset, keyFrameOffset;
        uint8_t flags;
    };

    const WrapOptions& o_;
    ClipInputs& inputs_;
    const ClipValues& values_;
    VideoFormat format_;
    GroupedSound sound_;
    AccessUnits units_;
    std::vector<uint8_t> xml_;
    ThumbnailFile thumbnail_;
    uint32_t groupFrames_ = 0;
    uint64_t frames_ = 0, cutOff_ = 0;
    WrittenFrame first_{}, last_{};
    uint64_t fileSize_ = 0;
    ExitStatus status_ = ExitStatus::kDone;
};

// The file package's UMID is that of the material package with the next instance number (SMPTE ST 330).
MXFUMIDTag Op1bWrapping::MaterialUmid() const {
    if (!values_.umid) return values_.shotUmid ? *values_.shotUmid : NewUMID();
    MXFUMIDTag material = *values_.umid;
    --material.bytes[kInstanceNumber];
    if (values_.shotUmid && *values_.shotUmid != material) {
        Usage("--umid: the UMID of an op-1b file is that of --shot-umid with one more in its 16th byte");
    }
    return material;
}

bool Op1bWrapping::Fits(uint32_t channels) const {
    if (channels > 0xFF) return false;
    COp1bBase builder(format_.videoStd, format_.compType, sound_.BytesPerSample(), channels);
    builder.SetPlayerLayout(ForPlayers());
    builder.Initialize();
    builder.SetDMS(values_.metadata);
    builder.SetXMLData(reinterpret_cast<const uint8_t*>("-"), 1);
    const uint8_t pixel = 0;
    builder.SetThumbnailData(&pixel, 1, 1, 1, 0);
    uint8_t* header = nullptr;
    const bool fits = builder.GetHeaderData(&header) == 0;
    std::free(header);
    return fits;
}

void Op1bWrapping::RequireFittingHeader() const {
    if (Fits(inputs_.channels)) return;
    uint32_t most = 0;
    while (Fits(most + 1)) ++most;
    Usage(std::to_string(inputs_.channels) + " sound channels do not fit the header of an op-1b clip; up to " +
          std::to_string(most) + " do" + (ForPlayers() ? ", and a few more with --layout strict" : ""));
}

void Op1bWrapping::Open(Op1bOutput& output) {
    CCreateMXFOp1b& writer = output.Writer();
    writer.SetVideoStandard(format_.videoStd);
    writer.SetCompType(format_.compType);
    writer.SetBytesPerSample(sound_.BytesPerSample());
    writer.SetClipType(values_.clipType);
    writer.SetUMID(MaterialUmid());
    writer.SetPackageName(o_.title.value_or(o_.name));
    writer.SetDescriptiveMetadata(values_.metadata);
    writer.SetStartTimecode(values_.startTimecode ? *values_.startTimecode : TimecodeOf(units_, format_.videoStd));
    static constexpr uint8_t kProductUID[] = {0x06, 0x0E, 0x2B, 0x34, 0x04, 0x01, 0x01, 0x08,
                                              0x0E, 0x0E, 0x01, 0x01, 0x01, 0x01, 0x00, 0x01};
    writer.SetIdentification(o_.company.value_or("Kestralin"), o_.product.value_or("Jq"),
                             o_.productVersion.value_or("3.0"), kProductUID);
    writer.SetPlayerLayout(ForPlayers());
    output.SetSource(o_.video);
    {
        const FixedClock clock(values_.creationDate);
        output.Open();
    }
    if (!xml_.empty()) writer.SetXMLData(xml_.data(), static_cast<uint16_t>(xml_.size()));
    if (!thumbnail_.bytes.empty() &&
        writer.SetThumbnailData(thumbnail_.bytes.data(), static_cast<uint16_t>(thumbnail_.bytes.size()),
                                thumbnail_.width, thumbnail_.height, 0) != 0) {
        Usage("--thumbnail: " + *o_.thumbnail + " has " + std::to_string(thumbnail_.bytes.size()) +
              " bytes, which do not fit");
    }
    if (o_.thumbnailPosition) writer.SetThumbnailPosition(*o_.thumbnailPosition);
    groupFrames_ = writer.GetPartitionFrame();
}

void Op1bWrapping::Write(Op1bOutput& output, Progress& progress) {
    while (auto unit = units_.Next()) {
        if (interrupted && !inputs_.video->IsLive()) throw Failure(ExitStatus::kInterrupted, "interrupted");
        last_ = {unit->piece->GetSize(), unit->temporalOffset, unit->keyFrameOffset, unit->flags};
        if (frames_ == 0) first_ = last_;
        if (unit->IsCutOff()) ++cutOff_;
        output.WriteVideo(std::move(*unit));
        ++frames_;
        progress.AdvanceFrame(last_.size);
        if (frames_ % groupFrames_ == 0) WriteSound(output);
    }
    if (frames_ % groupFrames_ != 0) WriteSound(output);
}

void Op1bWrapping::WriteSound(Op1bOutput& output) {
    uint8_t channel = 0;
    for (auto& block : sound_.UpTo(frames_)) output.WriteAudio(std::move(block), channel++);
}

void Op1bWrapping::SayWhatIsDifferent() {
    const auto leftOut = [&](uint64_t count, const std::string& where) {
        if (count == 0) return;
        Say(o_.video + ": the " + (where == "first" ? "first " : "last ") + std::to_string(count) +
            " bytes hold no picture that can be decoded; they are left out");
        status_ = ExitStatus::kFindings;
    };
    leftOut(units_.LeftOutInFront(), "first");
    if (!interrupted) leftOut(units_.LeftOutAtEnd(), "last");
    for (const auto& sound : inputs_.sounds) SayFitting(*sound, sound_.Samples(), "the picture");
    if (sound_.IsBroken()) status_ = ExitStatus::kFindings;
}

void Op1bWrapping::Prove(const OutputFile& file) const {
    CountingStream stream(file.WorkPath());
    CReadMXFOp1b reader;
    const auto require = [&](bool same, const char* what) {
        if (!same) {
            Fail(ExitStatus::kFindings, file.FinalPath(),
                 std::string("reads back differently from what was written: its ") + what);
        }
    };
    require(reader.Open("clip", &stream) == 0, "structure");
    require(static_cast<uint64_t>(stream.Seek(0, kSeekEnd)) == fileSize_, "size");
    require(static_cast<uint64_t>(reader.GetDuration()) == frames_ - cutOff_, "duration");
    require(reader.GetVideoStandard() == format_.videoStd && reader.GetCompressionType() == format_.compType, "format");
    require(reader.GetAudioCh() == inputs_.channels, "sound channels");
    for (const auto& [number, written] : {std::pair{uint64_t{0}, first_}, std::pair{frames_ - 1, last_}}) {
        VIDEOFRAMEINFOTag info;
        require(reader.GetVideoInfoFiller(static_cast<uint32_t>(number), info) == 0 &&
                    info.size == (written.size + 3) / 4 * 4 && info.temporalOffset == written.temporalOffset &&
                    info.keyFrameOffset == written.keyFrameOffset && info.flags == written.flags,
                number == 0 ? "first picture" : "last picture");
    }
    const auto lastHeard = static_cast<uint32_t>(reader.GetDuration() - 1);
    const int64_t groupBegin = int64_t{lastHeard / groupFrames_} * groupFrames_;
    const int64_t groupEnd = std::min<int64_t>(groupBegin + groupFrames_, static_cast<int64_t>(frames_));
    const int64_t samples = DurationToAudioSample(format_.videoStd, groupEnd, kSamplingRate) -
                            DurationToAudioSample(format_.videoStd, groupBegin, kSamplingRate);
    for (uint32_t channel = 0; channel < inputs_.channels; ++channel) {
        AUDIODATAINFOTag info;
        require(reader.GetAudioInfo(lastHeard, channel, info) == 0 && info.size == samples * sound_.BytesPerSample(),
                "sound");
    }
}

ExitStatus Op1bWrapping::Run() {
    if (o_.noHeaderRewrite) Usage("--no-header-rewrite: the sizes of Long-GOP pictures are not known in advance");
    if (o_.xml) xml_ = ReadSideFile("--xml", *o_.xml);
    if (o_.thumbnail) thumbnail_ = ReadThumbnailFile(*o_.thumbnail);
    RequireFittingHeader();
    if (units_.FirstStored().empty()) {
        if (interrupted) throw Failure(ExitStatus::kInterrupted, "interrupted");
        Fail(ExitStatus::kInput, o_.video, "holds no I picture with its parameter sets");
    }

    const OutputFolder folder(o_.folder);
    std::vector<std::unique_ptr<OutputFile>> outputs;
    const OutputFile& file = *outputs.emplace_back(NewOutput(o_, ""));
    {
        Op1bOutput output(file);
        Open(output);
        Progress progress(file.FinalPath(), inputs_.video->Size());
        Write(output, progress);
        if (o_.thumbnailPosition && *o_.thumbnailPosition >= frames_) {
            Usage("--thumbnail-position: the clip has " + std::to_string(frames_) + " frames");
        }
        output.Close();
        fileSize_ = static_cast<uint64_t>(output.Writer().GetCurrentOffset());
    }
    SayWhatIsDifferent();
    if (interrupted.exchange(false)) status_ = ExitStatus::kInterrupted;
    Prove(file);
    PublishAll(outputs);
    return status_;
}

}  // namespace

ExitStatus WrapOp1b(const WrapOptions& options, ClipInputs& inputs, const ClipValues& values) {
    return Op1bWrapping(options, inputs, values).Run();
}

}  // namespace kmxf::program
