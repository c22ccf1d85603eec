#include <algorithm>
#include <cstdlib>

#include "FileInfo.h"
#include "OpAtomOutput.h"
#include "Progress.h"
#include "Text.h"
#include "Wrap.h"
#include "core/NewUMID.h"
#include "kmxf/collaborators/VideoFrame.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/writer/CreateMXFAudio.h"
#include "kmxf/writer/CreateMXFVideo.h"
#include "kmxf/writer/OpAtomPictureAVCI.h"
#include "kmxf/writer/OpAtomPictureCDCI.h"
#include "kmxf/writer/OpAtomSound.h"

namespace kmxf::program {

namespace {

// About, in whole frames. Reading one and writing the one before go on at the same time; what goes round stays in the
// processor's cache.
constexpr uint32_t kPieceSize = 512 << 10;

constexpr uint32_t kLivePieceSize = 256 << 10;  // what a power cut can cost, and how often a live file grows

// The timecode the first frame carries; zero when it carries none.
CTimecode TimecodeOf(const VideoFormat& format, std::span<const uint8_t> frame) {
    CTimecode timecode;
    timecode.SetVideoStd(format.videoStd);
    uint8_t packed[4];
    const auto size = static_cast<uint32_t>(frame.size());
    bool found = false;
    if (format.IsAVCIntra()) {
        CAVCIFrame picture;
        found = picture.SetFrameData(frame.data(), size) == 0 && picture.GetTimecode(packed, SEI_DATA_TYPE1) == 0;
    } else {
        CDIFFrame picture;
        found = picture.SetDIFData(frame.data(), size) == 0 && picture.GetTimecode(packed, 1) == 0;
    }
    if (found) timecode.SetData(packed);
    return timecode;
}

// The clip's files are told apart by the last four bytes of the first one's UMID, counted up.
MXFUMIDTag FileUmid(const ClipValues& values, uint32_t file) {
    if (!values.umid) return NewUMID();
    MXFUMIDTag umid = *values.umid;
    for (size_t i = sizeof umid.bytes; i-- > sizeof umid.bytes - 4 && file != 0; file >>= 8) {
        const uint32_t sum = umid.bytes[i] + (file & 0xFF);
        umid.bytes[i] = static_cast<uint8_t>(sum);
        file += sum & ~uint32_t{0xFF};
    }
    return umid;
}

void SetValues(CCreateMXFBase& writer, const WrapOptions& o, const ClipValues& values, uint32_t file) {
    writer.SetVideoStandard(values.videoStd);
    writer.SetClipType(values.clipType);
    writer.SetUMID(FileUmid(values, file));
    writer.SetShotUMID(*values.shotUmid);
    writer.SetStartTimecode(*values.startTimecode);
    writer.SetPackageName(o.title.value_or(o.name));
    writer.SetDescriptiveMetadata(values.metadata);
    static constexpr uint8_t kProductUID[] = {0x06, 0x0E, 0x2B, 0x34, 0x04, 0x01, 0x01, 0x08,
                                              0x0E, 0x0E, 0x01, 0x01, 0x01, 0x00, 0x00, 0x01};
    writer.SetIdentification(o.company.value_or("Kestralin"), o.product.value_or("Jq"),
                             o.productVersion.value_or("2.0"), kProductUID);
}

// Header metadata that does not fit is found out before anything is written.
void RequireFittingHeader(const ClipValues& values, const VideoFormat* video, bool sound) {
    const uint32_t tracks = GetPictureTrackNum(values.clipType) + GetSoundTrackNum(values.clipType);
    const auto require = [&](COpAtomBase&& builder) {
        uint8_t* header = nullptr;
        builder.Initialize();
        builder.SetDMS(values.metadata);
        if (builder.GetHeaderData(&header) != 0) {
            Usage("the header metadata of " + std::to_string(tracks) + " tracks does not fit the header area");
        }
        std::free(header);
    };
    const uint32_t clipType = values.clipType;
    if (video != nullptr && video->IsAVCIntra()) {
        require(COpAtomPictureAVCI(video->videoStd, video->compType, clipType, 0, 48000, false));
    } else if (video != nullptr) {
        require(COpAtomPictureCDCI(video->videoStd, video->compType, clipType, 0, 48000, false, video->consumerDV, 0));
    }
    if (sound) require(COpAtomSound(values.videoStd, clipType, 48000, 0, 16, false));
}

class OpAtomWrapping {
public:
    OpAtomWrapping(const WrapOptions& options, ClipInputs& inputs, const ClipValues& values)
        : o_(options), inputs_(inputs), values_(values) {}
    ExitStatus Run();

private:
    OutputFile& Add(const std::string& suffix) { return *outputs_.emplace_back(NewOutput(o_, suffix)); }
    void WriteVideo(EssenceInput& input);
    void WriteSound(WavInput& input, uint32_t firstChannel);
    void Prove(const OutputFile& file, int64_t dataSize, const std::optional<VideoFormat>& format);

    const WrapOptions& o_;
    ClipInputs& inputs_;
    ClipValues values_;
    std::optional<uint64_t> frames_;  // of the picture, once known
    int64_t longestSound_ = 0;        // in samples of 96 kHz
    std::optional<OutputFolder> folder_;
    std::vector<std::unique_ptr<OutputFile>> outputs_;
    ExitStatus status_ = ExitStatus::kDone;
};

void OpAtomWrapping::Prove(const OutputFile& file, int64_t dataSize, const std::optional<VideoFormat>& format) {
    const FileInfo info = ReadFileInfo(file.WorkPath());
    const bool sound = !format && !info.isVideo && info.samples * (info.bitsPerSample / 8) == dataSize;
    const bool picture = format && FormatOf(info) == *format && static_cast<uint64_t>(info.duration) == frames_;
    if (info.verdict.kind != Verdict::Kind::kClosed || info.dataSize != dataSize || !(sound || picture)) {
        Fail(ExitStatus::kFindings, file.FinalPath(),
             "reads back differently from what was written: " + info.verdict.Text());
    }
}

void OpAtomWrapping::WriteVideo(EssenceInput& input) {
    const VideoFormat& format = input.Format();
    OutputFile& file = Add("");
    auto writer = std::make_unique<CCreateMXFVideo>();
    SetValues(*writer, o_, values_, 0);
    writer->SetDVType(format.compType);
    writer->SetConsumerDV(format.consumerDV);
    if (o_.wide) writer->SetWide(true);
    // Frames of 720-line DIF come in pairs; a piece holds whole ones.
    const uint32_t unit = format.FrameSize() * (format.compType == COMP_TYPE_DV100_720P ? 2 : 1);
    const uint32_t pieceSize = std::max((input.IsLive() ? kLivePieceSize : kPieceSize) / unit, 1U) * unit;
    if (o_.noHeaderRewrite) {
        writer->SetRenderingDataSize(static_cast<int64_t>(*input.Frames() * format.FrameSize()));
    }
    OpAtomOutput output(std::move(writer), file, pieceSize);
    output.Open(!o_.noHeaderRewrite);
    output.Writer().SetCreationDate(values_.creationDate);

    Progress progress(file.FinalPath(), input.Frames().value_or(0) * format.FrameSize(), format.FrameSize());
    uint64_t written = 0;
    while (true) {  // Ctrl-C makes a read short as well
        const auto room = output.Room();
        const size_t count = input.Read(room);
        const size_t whole = count - count % unit;
        output.Write(whole);
        if (whole != count && !interrupted) {
            const std::string end =
                (unit == format.FrameSize() ? "ends within frame " : "ends within the pair of frame ") +
                std::to_string((written + whole) / format.FrameSize());
            if (!input.IsLive() || written + whole == 0) Fail(ExitStatus::kInput, input.Path(), end);
            Say(input.Path() + ": " + end + "; what is before it is kept");
            status_ = ExitStatus::kFindings;
        }
        written += whole;
        progress.Advance(whole);
        if (count < room.size()) break;
    }
    output.Close();
    if (interrupted && (!input.IsLive() || written == 0)) throw Failure(ExitStatus::kInterrupted, "interrupted");
    frames_ = written / format.FrameSize();
    Prove(file, static_cast<int64_t>(written + (format.IsAVCIntra() ? kParameterSetBlock : 0)), format);
}

void OpAtomWrapping::WriteSound(WavInput& input, uint32_t firstChannel) {
    struct Channel {
        std::unique_ptr<OpAtomOutput> output;
        const OutputFile* file;
    };
    constexpr int64_t kSamplesAtOnce = 32768;
    const uint32_t bytesPerSample = input.BytesPerSample();
    const int64_t wanted =
        frames_ ? DurationToAudioSample(values_.videoStd, static_cast<int64_t>(*frames_), input.SamplingRate())
                : longestSound_ * input.SamplingRate() / 96000;
    SayFitting(input, wanted, frames_ ? "the picture" : "the longest sound");
    std::vector<Channel> channels;
    for (uint32_t c = 0; c < input.Channels(); ++c) {
        const uint32_t number = firstChannel + c;
        auto writer = std::make_unique<CCreateMXFAudio>();
        SetValues(*writer, o_, values_, (o_.video.empty() ? 0 : 1) + number);
        writer->SetChannel(number);
        writer->SetSamplesPerSec(input.SamplingRate());
        writer->SetBytesPerSample(static_cast<uint16_t>(bytesPerSample));
        if (o_.noHeaderRewrite) writer->SetRenderingDataSize(wanted * bytesPerSample);
        const OutputFile& file = Add((number < 10 ? "0" : "") + std::to_string(number));
        channels.push_back({std::make_unique<OpAtomOutput>(std::move(writer), file,
                                                           static_cast<uint32_t>(kSamplesAtOnce) * bytesPerSample),
                            &file});
        channels.back().output->Open(!o_.noHeaderRewrite);
        channels.back().output->Writer().SetCreationDate(values_.creationDate);
    }

    Progress progress(input.Path(), static_cast<uint64_t>(wanted) * bytesPerSample * channels.size(), 0);
    std::vector<uint8_t*> rooms(channels.size());
    for (int64_t done = 0; done < wanted && !interrupted;) {
        const int64_t chunk = std::min(kSamplesAtOnce, wanted - done);
        const size_t size = static_cast<size_t>(chunk) * bytesPerSample;
        for (size_t c = 0; c < channels.size(); ++c) rooms[c] = channels[c].output->Room().data();
        const size_t filled = static_cast<size_t>(input.Read(chunk, rooms)) * bytesPerSample;
        for (size_t c = 0; c < channels.size(); ++c) {
            std::fill_n(rooms[c] + filled, size - filled, uint8_t{0});
            channels[c].output->Write(size);
            progress.Advance(size);
        }
        done += chunk;
    }
    for (Channel& channel : channels) channel.output->Close();
    if (interrupted) throw Failure(ExitStatus::kInterrupted, "interrupted");
    for (const Channel& channel : channels) Prove(*channel.file, wanted * bytesPerSample, std::nullopt);
}

ExitStatus OpAtomWrapping::Run() {
    EssenceInput* const video = inputs_.video.get();
    if (o_.noHeaderRewrite && video != nullptr && !video->Frames())
        Usage("--no-header-rewrite: the size of " + o_.video + " is not known in advance");
    if (inputs_.channels > 99) Usage(std::to_string(inputs_.channels) + " sound channels; up to 99 can be named");
    for (const auto& sound : inputs_.sounds) {
        longestSound_ = std::max(longestSound_, sound->Samples() * 96000 / sound->SamplingRate());
    }
    if (!values_.shotUmid) values_.shotUmid = NewUMID();
    if (!values_.startTimecode) {
        values_.startTimecode = video != nullptr ? TimecodeOf(video->Format(), video->FirstFrame()) : CTimecode();
    }
    RequireFittingHeader(values_, video != nullptr ? &video->Format() : nullptr, inputs_.channels != 0);

    folder_.emplace(o_.folder);
    if (video != nullptr) WriteVideo(*video);
    // A live picture ends by Ctrl-C; its sound is still to be written.
    if (interrupted.exchange(false)) status_ = ExitStatus::kInterrupted;
    try {
        uint32_t channel = 0;
        for (auto& sound : inputs_.sounds) {
            WriteSound(*sound, channel);
            channel += sound->Channels();
        }
    } catch (const Failure&) {
        if (video != nullptr && video->IsLive()) {  // it cannot be had again: it is kept without its sound
            outputs_.resize(1);
            PublishAll(outputs_);
            Say(outputs_.front()->FinalPath() + ": the picture is kept, without the sound");
        }
        throw;
    }
    PublishAll(outputs_);
    return status_;
}

}  // namespace

ExitStatus WrapOpAtom(const WrapOptions& options, ClipInputs& inputs, const ClipValues& values) {
    return OpAtomWrapping(options, inputs, values).Run();
}

}  // namespace kmxf::program
