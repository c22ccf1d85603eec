#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "faults/Recordings.h"
#include "faults/StreamFaults.h"
#include "kmxf/reader/ReadMXFAudio.h"
#include "kmxf/reader/ReadMXFOp1b.h"
#include "kmxf/reader/ReadMXFVideo.h"

namespace kmxf::test {
namespace {

constexpr auto kSilent = Play::Failure::kSilent;

// A reader with its client, who asks one and the same each time.
class Reading {
public:
    virtual ~Reading() = default;
    virtual void Read(Play& play, IStreamFileIO& stream) = 0;
};

template <class Value>
int32_t Put(Bytes& out, int32_t status, const Value& value) {
    if (status == kStatusOk) Append(out, static_cast<int64_t>(value));
    return status;
}
int32_t PutTimecode(Bytes& out, int32_t status, const CTimecode& timecode) {
    return Put(out, status, timecode.GetTotalFrame());
}
int32_t PutUsersBit(Bytes& out, int32_t status, const CUsersBit& usersBit) {
    uint8_t bits[4] = {};
    usersBit.GetData(bits);
    if (status == kStatusOk) Append(out, bits);
    return status;
}
int32_t PutFrame(Bytes& out, int32_t status, uint8_t* const& data, size_t size) {
    if (status == kStatusOk) {
        // The ends tell whether it is the frame.
        Append(out, std::span(data, 256));
        Append(out, std::span(data, size).last(256));
    }
    std::free(data);
    return status;
}

class VideoReading final : public Reading {
public:
    explicit VideoReading(uint32_t frames) : frames_(frames) {}
    void Read(Play& play, IStreamFileIO& stream) override {
        static CMemoryPiece piece(100000);
        play("SetFilename", [&] { return reader_.SetFilename("clip.mxf"); });
        play("Open", [&] { return reader_.Open(&stream, true); });
        play(
            "GetFileSize",
            [&](Bytes& out) {
                int64_t size = 0;
                return Put(out, reader_.GetFileSize(&size), size);
            },
            kSilent);
        play("GetTotalFrame", [&](Bytes& out) {
            uint32_t frames = 0;
            return Put(out, reader_.GetTotalFrame(&frames), frames);
        });
        for (uint32_t frame = 0; frame < frames_; ++frame) {
            play("GetFrameData", [&](Bytes& out) {
                uint8_t* data = nullptr;
                return PutFrame(out, reader_.GetFrameData(frame, &data), data, reader_.GetFrameDataSize());
            });
            play("GetTimecode", [&](Bytes& out) {
                CTimecode timecode;
                return PutTimecode(out, reader_.GetTimecode(frame, &timecode), timecode);
            });
        }
        play("GetStartTimecode", [&](Bytes& out) {
            CTimecode timecode;
            return PutTimecode(out, reader_.GetStartTimecode(&timecode), timecode);
        });
        play("GetEndUsersBit", [&](Bytes& out) {
            CUsersBit usersBit;
            return PutUsersBit(out, reader_.GetEndUsersBit(&usersBit, SEI_DATA_TYPE1), usersBit);
        });
        play("GetEndUMID", [&](Bytes& out) {
            MXFUMIDEXTag umid;
            const int32_t status = reader_.GetEndUMID(&umid);
            if (status == kStatusOk) Append(out, umid.bytes);
            return status;
        });
        play("GetEndCLF", [&](Bytes& out) {
            uint8_t clf = 0;
            return Put(out, reader_.GetEndCLF(&clf), clf);
        });
        play("IsValidDMS", [&] { return reader_.IsValidDMS(); });
        play("Seek", [&] { return reader_.Seek(0); });
        play(
            "Read",
            [&](Bytes& out) {
                const int32_t count = reader_.Read(&piece);
                if (count == 100000) Append(out, std::span(piece.GetBuffer(), 256));
                return count == 100000 ? count : kCountFailed;  // a short one says so by its count
            },
            kSilent);
        play.Always("Close", [&] { reader_.Close(); });
    }

private:
    uint32_t frames_;
    CReadMXFVideo reader_;
};

class SoundReading final : public Reading {
public:
    void Read(Play& play, IStreamFileIO& stream) override {
        static CMemoryPiece piece(4804);
        play("SetFilename", [&] { return reader_.SetFilename("clip.mxf"); });
        play("Open", [&] { return reader_.Open(&stream, true); });
        play(
            "GetSamplingRate", [&] { return reader_.GetSamplingRate(); }, Play::Failure::kByValue);
        play(
            "GetBitsPerSample", [&] { return reader_.GetBitsPerSample(); }, Play::Failure::kByValue);
        play(
            "Seek", [&] { return reader_.Seek(32768, kSeekBegin); }, kSilent);
        for (int i = 0; i < 3; ++i) {
            play(
                "Read",
                [&](Bytes& out) {
                    const int32_t count = reader_.Read(&piece);
                    if (count == 4804) Append(out, std::span(piece.GetBuffer(), 256));
                    return count == 4804 ? count : kCountFailed;
                },
                kSilent);
        }
        play(
            "GetFileOffset",
            [&](Bytes& out) {
                int64_t offset = 0;
                return Put(out, reader_.GetFileOffset(&offset), offset);
            },
            kSilent);
        play.Always("Close", [&] { reader_.Close(); });
    }

private:
    CReadMXFAudio reader_;
};

class ClipReading final : public Reading {
public:
    void Read(Play& play, IStreamFileIO& stream) override {
        play("Open", [&] { return reader_.Open("clip.mxf", &stream); });
        for (const uint32_t frame : {0u, 47u, 48u, 50u, 1u}) {
            play("GetVideoInfoFiller", [&](Bytes& out) {
                VIDEOFRAMEINFOTag info;
                const int32_t status = reader_.GetVideoInfoFiller(frame, info);
                Put(out, status, uint64_t{info.offset});
                return Put(out, status, uint32_t{info.size});
            });
            play("GetAudioInfo", [&](Bytes& out) {
                AUDIODATAINFOTag info;
                const int32_t status = reader_.GetAudioInfo(frame, 1, info);
                Put(out, status, uint64_t{info.offset});
                Put(out, status, uint32_t{info.size});
                return Put(out, status, uint32_t{info.position});
            });
            play("GetANCInfo", [&](Bytes& out) {
                ANCDATAINFOTag info;
                const int32_t status = reader_.GetANCInfo(frame, info);
                Put(out, status, uint64_t{info.offset});
                return Put(out, status, uint32_t{info.size});
            });
            play("GetCodingPosition", [&] { return reader_.GetCodingPosition(frame); });
            play("GetSEIType1", [&](Bytes& out) {
                uint8_t area[512] = {};
                const int32_t status = reader_.GetSEIType1(frame, area);
                if (status == kStatusOk) Append(out, area);
                return status;
            });
            play("GetTimecode", [&](Bytes& out) {
                CTimecode timecode;
                return PutTimecode(out, reader_.GetTimecode(frame, timecode, SEI_DATA_TYPE1), timecode);
            });
            play("GetUsersBit", [&](Bytes& out) {
                CUsersBit usersBit;
                return PutUsersBit(out, reader_.GetUsersBit(frame, usersBit, SEI_DATA_TYPE1), usersBit);
            });
        }
        play("GetXMLData", [&](Bytes& out) {
            out.resize(reader_.GetXMLDataSize());
            return reader_.GetXMLData(out.data());
        });
        play.Always("Close", [&] { reader_.Close(); });
    }

private:
    CReadMXFOp1b reader_;
};

using Make = std::function<std::unique_ptr<Reading>()>;

class Readers {
public:
    Readers(std::string name, const Bytes& file, Make make) : name_(std::move(name)), file_(file), make_(make) {
        FaultyStream stream(file_);
        const FailingMemory counting;
        Play play;
        make_()->Read(play, stream);
        requests_ = FailingMemory::Requests();
        EXPECT_THAT(play.Faults(), testing::IsEmpty());
        answers_ = play.Answers();
        calls_ = stream.Calls();
    }

    void SweepAll(int mostOperations, int mostRequests) {
        {
            Sweep sweep(name_ + " reading, stream");
            SweepStream(sweep, calls_, mostOperations, false,
                        [&](const std::string&, const auto& set) { return ReadTwice(set, [] { return nullptr; }); });
        }
        Sweep sweep(name_ + " reading, memory");
        SweepMemory(sweep, requests_, mostRequests, [&](int n, FailingMemory::Way way) {
            return ReadTwice([](FaultyStream&) {}, [&] { return std::make_unique<FailingMemory>(n, way); });
        });
    }

private:
    // Once with a failure, and once more without by the same reader.
    std::vector<std::string> ReadTwice(const std::function<void(FaultyStream&)>& fail,
                                       const std::function<std::unique_ptr<FailingMemory>()>& failMemory) {
        std::vector<std::string> faults;
        const auto reading = make_();
        FaultyStream stream(file_);
        fail(stream);
        {
            Play play(answers_);
            auto memory = failMemory();
            reading->Read(play, stream);
            memory.reset();
            faults = play.Faults();
        }
        ExpectGivenBack(stream, faults);
        if (stream.Bytes() != file_) faults.push_back("the file is changed");
        FaultyStream again(file_);
        Play play(answers_);
        reading->Read(play, again);
        if (play.Failed()) faults.push_back("the reader does not read again: " + play.FailedCall());
        return faults;
    }

    std::string name_;
    Bytes file_;
    Make make_;
    int requests_ = 0;
    std::vector<Answer> answers_;
    std::vector<std::string> calls_;
};

TEST(ReadFaults, EveryOperationAndRequestForMemoryOfDV) {
    Readers("DV", FileOf<DVRecording>(), [] { return std::make_unique<VideoReading>(2); }).SweepAll(1000, 60);
}
TEST(ReadFaults, EveryOperationAndRequestForMemoryOfAVCIntra) {
    Readers("AVC-Intra", FileOf<AVCIntraRecording>(), [] {
        return std::make_unique<VideoReading>(3);
    }).SweepAll(1000, 60);
}
TEST(ReadFaults, EveryOperationAndRequestForMemoryOfSound) {
    Readers("sound", FileOf<SoundRecording>(), [] { return std::make_unique<SoundReading>(); }).SweepAll(1000, 60);
}
TEST(ReadFaults, EveryOperationAndRequestForMemoryOfAClip) {
    Readers("OP-1b", FileOf<ClipRecording>(), [] { return std::make_unique<ClipReading>(); }).SweepAll(60, 40);
}

}  // namespace
}  // namespace kmxf::test
