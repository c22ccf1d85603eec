#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <utility>
#include <vector>

#include "Commands.h"
#include "Essence.h"
#include "FileInfo.h"
#include "MxfOutput.h"
#include "OutputFile.h"
#include "Progress.h"
#include "Sound.h"
#include "Text.h"
#include "kmxf/collaborators/Timecode.h"
#include "kmxf/collaborators/VideoFrame.h"
#include "kmxf/core/Convert.h"
#include "kmxf/core/VideoStandard.h"
#include "kmxf/structures/DescriptiveMetadata.h"
#include "kmxf/writer/CreateMXFAudio.h"
#include "kmxf/writer/CreateMXFVideo.h"
#include "kmxf/writer/OpAtomPictureAVCI.h"
#include "kmxf/writer/OpAtomPictureCDCI.h"
#include "kmxf/writer/OpAtomSound.h"

namespace kmxf::program {

namespace {

constexpr uint32_t kPieceSize = 1 << 20;  // about, in whole frames: what goes round stays in the processor's cache

constexpr uint32_t kLivePieceSize = 256 << 10;  // what a power cut can cost, and how often a live file grows

struct Options {
    std::string pattern = "op-atom";
    std::string video;
    std::vector<std::string> audio;
    std::string folder, name;
    FormatChoice choice;
    uint32_t bits = 0;
    std::optional<std::string> startTimecode, umid, shotUmid, title, creationDate;
    std::optional<std::string> jobFunction, familyName, givenName, projectNumber, projectName, scene;
    std::optional<uint32_t> take;
    std::optional<std::string> company, product, productVersion;
    bool wide = false, noHeaderRewrite = false, force = false;
};

// The values every file of the clip gets alike.
struct ClipValues {
    uint32_t videoStd = 0;
    uint32_t clipType = 0;
    CTimecode start;
    MXFUMIDTag materialUmid, firstFileUmid;
    bool firstFileUmidGiven = false;
    MXFTIMESTAMPTag creationDate;
    CDescriptiveMetadata metadata;
    uint32_t tracks = 0;
};

[[noreturn]] void Usage(const std::string& message) { throw Failure(ExitStatus::kUsage, message); }

void RequireText(const char* option, const std::optional<std::string>& text, size_t least, size_t most) {
    if (!text) return;
    const auto units = TextUnits(*text);
    if (!units)
        Usage(std::string(option) + ": is no UTF-8 text, or has characters beyond U+FFFF, which the file cannot carry");
    if (*units < least || *units > most) {
        Usage(std::string(option) + ": has " + std::to_string(*units) + " characters; " + std::to_string(least) +
              " to " + std::to_string(most) + " fit");
    }
}

void RequireBytes(const char* option, const std::optional<std::string>& text, size_t most) {
    if (text && text->size() > most) {
        Usage(std::string(option) + ": has " + std::to_string(text->size()) + " bytes; up to " + std::to_string(most) +
              " fit");
    }
}

void RequireFittingValues(const Options& o) {
    if (o.pattern != "op-atom") Usage("--pattern " + o.pattern + ": this version writes op-atom only");
    if (o.video.empty() && o.audio.empty()) Usage("nothing to wrap: give --video, --audio or both");
    if (o.name.empty() || o.name.find('/') != std::string::npos) Usage("--name: is no file name");
    RequireText("--title", o.title, 0, 200);
    RequireText("--job-function", o.jobFunction, 0, 60);
    RequireText("--family-name", o.familyName, 0, 60);
    RequireText("--given-name", o.givenName, 0, 60);
    RequireText("--project-name", o.projectName, 0, 200);
    RequireBytes("--project-number", o.projectNumber, 32);
    RequireBytes("--scene", o.scene, 32);
    for (const auto& [option, text, most] :
         {std::tuple{"--company", &o.company, size_t{16}}, std::tuple{"--product", &o.product, size_t{16}},
          std::tuple{"--product-version", &o.productVersion, size_t{4}}}) {
        RequireText(option, *text, 1, most);
        RequireBytes(option, *text, most);
    }
}

MXFUMIDTag UmidOption(const char* option, const std::string& hex) {
    const auto umid = ParseUmid(hex);
    if (!umid) Usage(std::string(option) + ": is no UMID; 64 hexadecimal digits are needed");
    return *umid;
}

CDescriptiveMetadata Metadata(const Options& o) {
    CDescriptiveMetadata metadata;
    if (o.jobFunction) metadata.SetJobFunction(*o.jobFunction);
    if (o.familyName) metadata.SetFamilyName(*o.familyName);
    if (o.givenName) metadata.SetFirstGivenName(*o.givenName);
    if (o.projectNumber) metadata.SetProjectNumber(*o.projectNumber);
    if (o.projectName) metadata.SetProjectName(*o.projectName);
    if (o.take) metadata.SetTakeNumber(static_cast<uint16_t>(*o.take));
    if (o.scene) metadata.SetSceneNumber(*o.scene);
    return metadata;
}

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

CTimecode StartTimecode(const Options& o, uint32_t videoStd, const EssenceInput* video) {
    if (!o.startTimecode) return video != nullptr ? TimecodeOf(video->Format(), video->FirstFrame()) : CTimecode();
    CTimecode timecode;
    timecode.SetVideoStd(videoStd);
    if (timecode.SetText(*o.startTimecode) != 0) {
        Usage("--start-timecode: " + *o.startTimecode + " is no timecode of " + StandardName(videoStd) +
              "; hh:mm:ss:ff is needed, hh:mm:ss;ff for drop frame");
    }
    // Drop frame is for 30 frames a second in name and 29.97 in truth; at 23.98 none are dropped (SMPTE ST 12-1).
    const bool drops = GetTimecodeEditRate(videoStd) == MXFRATIONALTag{30000, 1001};
    if (timecode.IsDrop() && !drops)
        Usage("--start-timecode: " + StandardName(videoStd) + " has no drop-frame timecode");
    return timecode;
}

// The clip's files are told apart by the last four bytes of the first one's UMID, counted up.
MXFUMIDTag FileUmid(const ClipValues& values, uint32_t file) {
    if (!values.firstFileUmidGiven) return NewUmid();
    MXFUMIDTag umid = values.firstFileUmid;
    for (size_t i = sizeof umid.bytes; i-- > sizeof umid.bytes - 4 && file != 0; file >>= 8) {
        const uint32_t sum = umid.bytes[i] + (file & 0xFF);
        umid.bytes[i] = static_cast<uint8_t>(sum);
        file += sum & ~uint32_t{0xFF};
    }
    return umid;
}

void SetValues(CCreateMXFBase& writer, const Options& o, const ClipValues& values, uint32_t file) {
    writer.SetVideoStandard(values.videoStd);
    writer.SetClipType(values.clipType);
    writer.SetUMID(FileUmid(values, file));
    writer.SetShotUMID(values.materialUmid);
    writer.SetStartTimecode(values.start);
    writer.SetPackageName(o.title.value_or(o.name));
    writer.SetDescriptiveMetadata(values.metadata);
    static constexpr uint8_t kProductUID[] = {0x06, 0x0E, 0x2B, 0x34, 0x04, 0x01, 0x01, 0x08,
                                              0x0E, 0x0E, 0x01, 0x01, 0x01, 0x00, 0x00, 0x01};
    writer.SetIdentification(o.company.value_or("Kestralin"), o.product.value_or("Jq"),
                             o.productVersion.value_or("2.0"), kProductUID);
}

// Header metadata that does not fit is found out before anything is written.
void RequireFittingHeader(const ClipValues& values, const VideoFormat* video, bool sound) {
    const auto require = [&](COpAtomBase&& builder) {
        uint8_t* header = nullptr;
        builder.Initialize();
        builder.SetDMS(values.metadata);
        if (builder.GetHeaderData(&header) != 0) {
            Usage("the header metadata of " + std::to_string(values.tracks) + " tracks does not fit the header area");
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

class Wrapping {
public:
    explicit Wrapping(const Options& options) : o_(options) {}
    ExitStatus Run();

private:
    OutputFile& NewOutput(const std::string& suffix);
    void WriteVideo(EssenceInput& input);
    void WriteSound(WavInput& input, uint32_t firstChannel);
    void Prove(const OutputFile& file, int64_t dataSize, const std::optional<VideoFormat>& format);

    const Options& o_;
    ClipValues values_;
    std::optional<uint64_t> frames_;  // of the picture, once known
    int64_t longestSound_ = 0;        // in samples of 96 kHz
    std::vector<std::unique_ptr<OutputFile>> outputs_;
    ExitStatus status_ = ExitStatus::kDone;
};

OutputFile& Wrapping::NewOutput(const std::string& suffix) {
    const auto path = std::filesystem::path(o_.folder) / (o_.name + suffix + ".mxf");
    return *outputs_.emplace_back(std::make_unique<OutputFile>(path.string(), o_.force));
}

void Wrapping::Prove(const OutputFile& file, int64_t dataSize, const std::optional<VideoFormat>& format) {
    const FileInfo info = ReadFileInfo(file.WorkPath());
    const bool sound = !format && !info.isVideo && info.samples * (info.bitsPerSample / 8) == dataSize;
    const bool picture = format && info.format == format && static_cast<uint64_t>(info.duration) == frames_;
    if (info.verdict.kind != Verdict::Kind::kClosed || info.dataSize != dataSize || !(sound || picture)) {
        Fail(ExitStatus::kFindings, file.FinalPath(),
             "reads back differently from what was written: " + info.verdict.Text());
    }
}

void Wrapping::WriteVideo(EssenceInput& input) {
    const VideoFormat& format = input.Format();
    OutputFile& file = NewOutput("");
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
    MxfOutput output(std::move(writer), file, pieceSize);
    output.Open(!o_.noHeaderRewrite);
    output.Writer().SetCreationDate(values_.creationDate);

    Progress progress(file.FinalPath(), input.Frames().value_or(0) * format.FrameSize(), format.FrameSize());
    uint64_t written = 0;
    const auto advance = [&](uint64_t bytes) {
        written += bytes;
        progress.Advance(bytes);
    };
    const bool mapped = input.CanMap();
    while (mapped && !interrupted) {
        auto piece = input.MapNext(pieceSize);
        if (!piece) break;
        const uint32_t size = piece->GetSize();
        output.Write(std::move(piece), input.Path());
        advance(size);
    }
    while (!mapped) {  // Ctrl-C makes a read short as well
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
        advance(whole);
        if (count < room.size()) break;
    }
    output.Close();
    if (interrupted && (!input.IsLive() || written == 0)) throw Failure(ExitStatus::kInterrupted, "interrupted");
    frames_ = written / format.FrameSize();
    Prove(file, static_cast<int64_t>(written + (format.IsAVCIntra() ? kParameterSetBlock : 0)), format);
}

void Wrapping::WriteSound(WavInput& input, uint32_t firstChannel) {
    struct Channel {
        std::unique_ptr<MxfOutput> output;
        const OutputFile* file;
    };
    constexpr int64_t kSamplesAtOnce = 32768;
    const uint32_t bytesPerSample = input.BytesPerSample();
    const int64_t wanted =
        frames_ ? DurationToAudioSample(values_.videoStd, static_cast<int64_t>(*frames_), input.SamplingRate())
                : longestSound_ * input.SamplingRate() / 96000;
    if (input.Samples() != wanted) {
        const int64_t difference = input.Samples() - wanted;
        const std::string other = frames_ ? "the picture" : "the longest sound";
        Say(input.Path() + ": " + std::to_string(std::abs(difference)) + " samples " +
            (difference > 0 ? "longer than " + other + "; they are cut"
                            : "shorter than " + other + "; they are filled with silence"));
    }
    std::vector<Channel> channels;
    for (uint32_t c = 0; c < input.Channels(); ++c) {
        const uint32_t number = firstChannel + c;
        auto writer = std::make_unique<CCreateMXFAudio>();
        SetValues(*writer, o_, values_, (o_.video.empty() ? 0 : 1) + number);
        writer->SetChannel(number);
        writer->SetSamplesPerSec(input.SamplingRate());
        writer->SetBytesPerSample(static_cast<uint16_t>(bytesPerSample));
        if (o_.noHeaderRewrite) writer->SetRenderingDataSize(wanted * bytesPerSample);
        const OutputFile& file = NewOutput((number < 10 ? "0" : "") + std::to_string(number));
        channels.push_back({std::make_unique<MxfOutput>(std::move(writer), file,
                                                        static_cast<uint32_t>(kSamplesAtOnce) * bytesPerSample),
                            &file});
        channels.back().output->Open(!o_.noHeaderRewrite);
        channels.back().output->Writer().SetCreationDate(values_.creationDate);
    }

    Progress progress(input.Path(), static_cast<uint64_t>(wanted) * bytesPerSample * channels.size(), 0);
    std::vector<std::vector<uint8_t>> samples(channels.size());
    for (int64_t done = 0; done < wanted && !interrupted;) {
        const int64_t chunk = std::min(kSamplesAtOnce, wanted - done);
        if (input.Read(chunk, samples) < std::min(chunk, input.Samples() - done)) {
            Fail(ExitStatus::kInput, input.Path(), "ends before its " + std::to_string(input.Samples()) + " samples");
        }
        for (size_t c = 0; c < channels.size(); ++c) {
            const auto room = channels[c].output->Room();
            const size_t size = static_cast<size_t>(chunk) * bytesPerSample;
            std::fill_n(std::copy(samples[c].begin(), samples[c].end(), room.begin()), size - samples[c].size(),
                        uint8_t{0});
            channels[c].output->Write(size);
            progress.Advance(size);
        }
        done += chunk;
    }
    for (Channel& channel : channels) channel.output->Close();
    if (interrupted) throw Failure(ExitStatus::kInterrupted, "interrupted");
    for (const Channel& channel : channels) Prove(*channel.file, wanted * bytesPerSample, std::nullopt);
}

ExitStatus Wrapping::Run() {
    RequireFittingValues(o_);
    if (o_.umid) values_.firstFileUmid = UmidOption("--umid", *o_.umid);
    values_.firstFileUmidGiven = o_.umid.has_value();
    values_.materialUmid = o_.shotUmid ? UmidOption("--shot-umid", *o_.shotUmid) : NewUmid();
    const auto creationDate = o_.creationDate ? ParseIsoDate(*o_.creationDate) : GetCurrentTimeMXF();
    if (!creationDate) Usage("--creation-date: " + *o_.creationDate + " is no date; YYYY-MM-DDThh:mm:ss is needed");
    values_.creationDate = *creationDate;
    values_.metadata = Metadata(o_);

    std::unique_ptr<EssenceInput> video;
    if (!o_.video.empty()) {
        video = std::make_unique<EssenceInput>(o_.video, o_.choice);
        values_.videoStd = video->Format().videoStd;
        if (o_.noHeaderRewrite && !video->Frames())
            Usage("--no-header-rewrite: the size of " + o_.video + " is not known in advance");
    } else {
        if (!o_.choice.standard) Usage("--standard is needed for sound without a picture");
        values_.videoStd = StandardFromName(*o_.choice.standard).value_or(0);
    }
    std::vector<std::unique_ptr<WavInput>> sounds;
    uint32_t channels = 0;
    for (const std::string& path : o_.audio) {
        sounds.push_back(std::make_unique<WavInput>(path, o_.bits));
        if (sounds.back()->Samples() == 0) Fail(ExitStatus::kInput, path, "holds no sound");
        channels += sounds.back()->Channels();
        longestSound_ = std::max(longestSound_, sounds.back()->Samples() * 96000 / sounds.back()->SamplingRate());
    }
    values_.tracks = channels + (video ? 1 : 0);
    if (channels > 99) Usage(std::to_string(channels) + " sound channels; up to 99 can be named");
    values_.clipType = (video ? 0x100U : 0U) | channels;
    values_.start = StartTimecode(o_, values_.videoStd, video.get());
    RequireFittingHeader(values_, video ? &video->Format() : nullptr, !sounds.empty());

    MakeFolder(o_.folder);
    if (video) WriteVideo(*video);
    // A live picture ends by Ctrl-C; its sound is still to be written.
    if (interrupted.exchange(false)) status_ = ExitStatus::kInterrupted;
    try {
        uint32_t channel = 0;
        for (auto& sound : sounds) {
            WriteSound(*sound, channel);
            channel += sound->Channels();
        }
    } catch (const Failure&) {
        if (video && video->IsLive()) {  // it cannot be had again: it is kept without its sound
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

Run AddWrap(CLI::App& app) {
    auto options = std::make_shared<Options>();
    Options& o = *options;
    CLI::App* wrap = app.add_subcommand("wrap", "Makes a clip of bare essence");
    wrap->add_option("--pattern", o.pattern, "Layout: op-atom")
        ->check(CLI::IsMember({"op-atom", "op-1b"}))
        ->capture_default_str();
    wrap->add_option("--video", o.video, "DIF frames or AVC-Intra frames; - for standard input");
    wrap->add_option("--audio", o.audio, "WAV of 48 or 96 kHz; each of its channels becomes a file");
    wrap->add_option("-o,--output", o.folder, "Folder for the clip")->required();
    wrap->add_option("--name", o.name, "Name of the clip's files")->required();
    wrap->add_option("--codec", o.choice.codec, "Codec of the picture, when it cannot be told")
        ->check(CLI::IsMember(CodecNames()));
    wrap->add_option("--raster", o.choice.raster, "Its raster")->check(CLI::IsMember({"525", "625", "720", "1080"}));
    wrap->add_option("--standard", o.choice.standard, "Its standard")->check(CLI::IsMember(StandardNames()));
    wrap->add_option("--bits", o.bits, "Bits per sample of sound")->check(CLI::IsMember({16, 24}));
    wrap->add_option("--start-timecode", o.startTimecode,
                     "hh:mm:ss:ff, hh:mm:ss;ff for drop frame; else that of the first frame");
    wrap->add_option("--umid", o.umid, "UMID of the first file; the others count up from it");
    wrap->add_option("--shot-umid", o.shotUmid, "Material UMID of the clip");
    wrap->add_option("--title", o.title, "Package name; else the clip's name");
    wrap->add_option("--creation-date", o.creationDate, "YYYY-MM-DDThh:mm:ss");
    wrap->add_option("--job-function", o.jobFunction, "Job function of the person below");
    wrap->add_option("--family-name", o.familyName, "Family name");
    wrap->add_option("--given-name", o.givenName, "First given name");
    wrap->add_option("--project-number", o.projectNumber, "Project number");
    wrap->add_option("--project-name", o.projectName, "Project name");
    wrap->add_option("--take", o.take, "Take number")->check(CLI::Range(0, 65535));
    wrap->add_option("--scene", o.scene, "Scene number");
    wrap->add_option("--company", o.company, "Company name of the writing device");
    wrap->add_option("--product", o.product, "Its product name");
    wrap->add_option("--product-version", o.productVersion, "Its version");
    wrap->add_flag("--wide", o.wide, "The picture of a standard-definition format is 16:9");
    wrap->add_flag("--no-header-rewrite", o.noHeaderRewrite,
                   "Write the final header first: sizes are known in advance");
    wrap->add_flag("--force", o.force, "Overwrite existing files");
    return [options] { return Wrapping(*options).Run(); };
}

}  // namespace kmxf::program
