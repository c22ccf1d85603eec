#include <gtest/gtest.h>

#include "collaborators/Given.h"
#include "kmxf/collaborators/VideoFrame.h"
#include "support/Hex.h"

namespace kmxf::test {

namespace {

constexpr uint32_t kAny = 0xFFFFFFFF;

// Offsets in a DIF sequence of 12000 bytes: the packs of the first subcode block, the VAUX blocks and the packs of the
// first one, the packs of the audio blocks.
constexpr size_t kSubcodePack = 86, kSubcodeStep = 8;
constexpr size_t kVAUXPack = 243, kVAUXBlock = 80, kPackSize = 5;
constexpr size_t kAAUXPack = 483, kAAUXStep = 1280;
constexpr size_t kSequence = 12000;

struct Values {
    Bytes timecode, usersBit1, usersBit2, umid;
};
Values ReadAll(const CDIFFrame& frame, uint32_t sequence = kAny) {
    return {
        Given(4, [&](uint8_t* out) { return frame.GetTimecode(out, sequence); }),
        Given(4, [&](uint8_t* out) { return frame.GetUsersBit(out, SEI_DATA_TYPE1, sequence); }),
        Given(4, [&](uint8_t* out) { return frame.GetUsersBit(out, SEI_DATA_TYPE2, sequence); }),
        Given(64, [&](uint8_t* out) { return frame.GetUMID(out); }),
    };
}
Bytes Timecode(const CDIFFrame& frame, uint32_t sequence = kAny) { return ReadAll(frame, sequence).timecode; }
Bytes UMID(const Bytes& bytes) {
    CDIFFrame frame;
    EXPECT_EQ(frame.SetDIFData(bytes.data(), static_cast<uint32_t>(bytes.size())), kStatusOk);
    return ReadAll(frame).umid;
}
Bytes CLF(const CDIFFrame& frame, uint32_t sequence = kAny) {
    return Given(1, [&](uint8_t* out) { return frame.GetCLF(out, sequence); });
}

// The codes of the signal, 0 for what is not there.
struct Signal {
    uint32_t videoStd = 0, compType = 0;
    bool operator==(const Signal&) const = default;
};
Signal ReadSignal(const CDIFFrame& frame) {
    Signal signal;
    const int32_t status = frame.GetVideoSystem(&signal.videoStd);
    EXPECT_TRUE(status == kStatusOk || (status == kStatusFrameNoInfo && signal.videoStd == 0));
    EXPECT_EQ(frame.GetCompType(&signal.compType), status);
    return signal;
}

// The blocks of a frame that carry packs, with their IDs, and nothing in them but one source pack.
Bytes BareFrame(uint8_t headerByte3, uint8_t sourcePC3, size_t sequences) {
    Bytes bytes(sequences * kSequence, 0xFF);
    for (size_t at = 0; at < bytes.size(); at += kSequence) {
        const auto putIDs = [&](uint8_t type, size_t offset, size_t step, uint8_t count) {
            for (uint8_t n = 0; n < count; ++n) Put(bytes, at + offset + step * n, {type, 0x07, n});
        };
        putIDs(0x1F, 0, 80, 1);  // header
        Put(bytes, at + 3, {headerByte3, 0xF9});
        putIDs(0x3F, 80, 80, 2);     // subcode
        putIDs(0x56, 240, 80, 3);    // VAUX
        putIDs(0x76, 480, 1280, 9);  // audio
    }
    Put(bytes, kVAUXPack, {0x60, 0xFF, 0xFF, sourcePC3, 0xFF});
    return bytes;
}
Bytes DV25Frame() { return Part(Essence("dv25-5994i.dif"), 0, 120000); }
Bytes Unit720() { return Essence("dv100-720-5994p.dif"); }

// ST 330: label, length, instance number, material number; extended with a source pack.
const Bytes kBasicUMID =
    Hex("06 0A 2B 34 01 01 01 05 01 01 0F 20 13 00 00 00"
        "F1 F2 F3 F4 F5 F6 F7 F8 F9 FA FB FC FD FE FF F0");
const Bytes kExtendedUMID =
    Hex("06 0A 2B 34 01 01 01 05 01 01 0F 20 33 00 00 01"
        "F1 F2 F3 F4 F5 F6 F7 F8 F9 FA FB FC FD FE FF F0"
        "01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10"
        "11 12 13 14 15 16 17 18 19 1A 1B 1C 1D 1E 1F 20");
Bytes BasicWithZeros() {
    Bytes umid = kBasicUMID;
    umid.resize(64, 0x00);
    return umid;
}

}  // namespace

TEST(DIFFrame, RealFramesGiveTheirTimecodes) {
    const struct {
        const char* file;
        size_t offset, size;
        Bytes timecode;
    } kFrames[] = {
        {"dv25-5994i.dif", 0, 120000, {0x44, 0x83, 0x82, 0xC1}},           // 01:02:03;04
        {"dv25-5994i.dif", 120000, 120000, {0x45, 0x83, 0x82, 0xC1}},      // 01:02:03;05
        {"dv25-50i-iec.dif", 0, 144000, {0x20, 0xD9, 0xD9, 0xE3}},         // 23:59:59:20
        {"dv25-50i-iec.dif", 144000, 144000, {0x21, 0xD9, 0xD9, 0xE3}},    // 23:59:59:21
        {"dv50-50i.dif", 0, 288000, {0x18, 0xD6, 0xB4, 0xD2}},             // 12:34:56:18
        {"dv50-50i.dif", 288000, 288000, {0x19, 0xD6, 0xB4, 0xD2}},        // 12:34:56:19
        {"dv100-720-5994p.dif", 0, 480000, {0x67, 0xD9, 0x88, 0xC0}},      // 00:08:59;27
        {"dv100-720-5994p.dif", 0, 240000, {0x67, 0xD9, 0x88, 0xC0}},      // the first frame alone
        {"dv100-720-5994p.dif", 240000, 240000, {0x67, 0xD9, 0x88, 0xC0}}  // the second frame alone
    };
    for (const auto& row : kFrames) {
        SCOPED_TRACE(row.file);
        const Bytes bytes = Part(Essence(row.file), row.offset, row.size);
        CDIFFrame frame;
        ASSERT_EQ(frame.SetDIFData(bytes.data(), static_cast<uint32_t>(bytes.size())), kStatusOk);
        EXPECT_EQ(Timecode(frame, 1), row.timecode);
        EXPECT_EQ(Timecode(frame, kAny), row.timecode);
    }
}

TEST(DIFFrame, RealFramesGiveTheirSignal) {
    const struct {
        const char* file;
        size_t unitSize;
        Signal signal;
        bool consumer;
    } kFiles[] = {
        {"dv25-5994i.dif", 120000, {0x0100007C, 0x0400}, false},
        {"dv25-50i-iec.dif", 144000, {0x010000B2, 0x0400}, true},
        {"dv50-50i.dif", 288000, {0x010000B2, 0x4800}, false},
        {"dv100-720-5994p.dif", 480000, {0x0200007C, 0x4E00}, false},
    };
    for (const auto& row : kFiles) {
        SCOPED_TRACE(row.file);
        // Without a size the frame says how long it is: this buffer ends there.
        const Bytes bytes = Part(Essence(row.file), 0, row.unitSize);
        CDIFFrame frame;
        ASSERT_EQ(frame.SetDIFData(bytes.data()), kStatusOk);
        EXPECT_EQ(ReadSignal(frame), row.signal);
        bool consumer = !row.consumer;
        EXPECT_EQ(frame.GetConsumerDVFlag(&consumer), kStatusOk);
        EXPECT_EQ(consumer, row.consumer);
        EXPECT_FALSE(Timecode(frame).empty());
    }
}

TEST(DIFFrame, RealFramesCarryNoUserBitsUMIDColourFrameOrPulldown) {
    for (const char* file : {"dv25-5994i.dif", "dv25-50i-iec.dif", "dv50-50i.dif", "dv100-720-5994p.dif"}) {
        SCOPED_TRACE(file);
        const Bytes& bytes = Essence(file);
        CDIFFrame frame;
        ASSERT_EQ(frame.SetDIFData(bytes.data(), static_cast<uint32_t>(bytes.size())), kStatusOk);
        const Values values = ReadAll(frame);
        EXPECT_EQ(values.usersBit1, Bytes());
        EXPECT_EQ(values.usersBit2, Bytes());
        EXPECT_EQ(values.umid, Bytes());
        EXPECT_EQ(CLF(frame), Bytes());  // the source pack says that its colour frame does not hold
        bool flag = true;
        EXPECT_EQ(frame.Get2332PulldownFlag(&flag), kStatusFrameNoInfo);
        EXPECT_TRUE(flag);
        EXPECT_EQ(Given(1, [&](uint8_t* out) { return frame.GetPulldownFrameRate(out); }), Bytes());
    }
}

TEST(DIFFrame, ObjectWithoutBytesCarriesNothing) {
    const auto expectNothing = [](const CDIFFrame& frame) {
        EXPECT_EQ(ReadAll(frame).timecode, Bytes());
        EXPECT_EQ(ReadAll(frame).usersBit1, Bytes());
        EXPECT_EQ(ReadAll(frame).usersBit2, Bytes());
        EXPECT_EQ(ReadAll(frame).umid, Bytes());
        EXPECT_EQ(Timecode(frame, 1), Bytes());
        EXPECT_EQ(CLF(frame), Bytes());
        EXPECT_EQ(ReadSignal(frame), Signal());
        bool flag = false;
        EXPECT_EQ(frame.GetConsumerDVFlag(&flag), kStatusFrameNoInfo);
    };
    CDIFFrame frame;
    expectNothing(frame);
    const Bytes bytes = DV25Frame();
    ASSERT_EQ(frame.SetDIFData(bytes.data()), kStatusOk);
    EXPECT_FALSE(Timecode(frame).empty());
    frame.ResetDIFData();
    expectNothing(frame);
    ASSERT_EQ(frame.SetDIFData(bytes.data(), 0), kStatusOk);
    expectNothing(frame);
}

TEST(DIFFrame, NullPointersAreInvalidArguments) {
    CDIFFrame frame;
    EXPECT_EQ(frame.SetDIFData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(frame.SetDIFData(nullptr, 120000), kStatusInvalidArgument);
    const Bytes bytes = DV25Frame();
    ASSERT_EQ(frame.SetDIFData(bytes.data()), kStatusOk);
    EXPECT_EQ(frame.GetTimecode(nullptr, 1), kStatusInvalidArgument);
    EXPECT_EQ(frame.GetUsersBit(nullptr, SEI_DATA_TYPE1, 1), kStatusInvalidArgument);
    EXPECT_EQ(frame.GetUMID(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(frame.GetVideoSystem(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(frame.GetCompType(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(frame.GetConsumerDVFlag(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(frame.Get2332PulldownFlag(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(frame.GetPulldownFrameRate(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(frame.GetCLF(nullptr, 1), kStatusInvalidArgument);
    EXPECT_EQ(frame.SetDIFData(nullptr), kStatusInvalidArgument);
    EXPECT_EQ(Timecode(frame), (Bytes{0x44, 0x83, 0x82, 0xC1}));  // what was set before stays
}

TEST(DIFFrame, SequenceChoosesTheFrameOfAUnit) {
    Bytes unit = Unit720();
    Put(unit, 240000 + kSubcodePack, {0x13, 0x28, 0x01, 0x02, 0x03});
    CDIFFrame frame;
    ASSERT_EQ(frame.SetDIFData(unit.data()), kStatusOk);
    EXPECT_EQ(Timecode(frame, 1), (Bytes{0x67, 0xD9, 0x88, 0xC0}));
    EXPECT_EQ(Timecode(frame, 2), (Bytes{0x28, 0x01, 0x02, 0x03}));
    EXPECT_EQ(Timecode(frame, kAny), (Bytes{0x67, 0xD9, 0x88, 0xC0}));
    EXPECT_EQ(Timecode(frame, 0), Bytes());
    EXPECT_EQ(Timecode(frame, 3), Bytes());
    EXPECT_EQ(Timecode(frame, 0xFFFFFFFE), Bytes());
}

TEST(DIFFrame, AnyFrameFallsBackOnTheSecond) {
    Bytes unit = Unit720();
    for (size_t sequence = 0; sequence < 20; ++sequence)
        for (size_t pack = 0; pack < 6; ++pack)
            for (size_t block = 0; block < 2; ++block)
                Put(unit, sequence * kSequence + block * 80 + kSubcodePack + pack * kSubcodeStep, {0xFF});
    CDIFFrame frame;
    ASSERT_EQ(frame.SetDIFData(unit.data()), kStatusOk);
    EXPECT_EQ(Timecode(frame, 1), Bytes());
    EXPECT_EQ(Timecode(frame, kAny), (Bytes{0x67, 0xD9, 0x88, 0xC0}));
}

TEST(DIFFrame, SingleFrameHasNoSecondFrame) {
    const Bytes& bytes = Essence("dv25-5994i.dif");  // another frame stands behind it
    CDIFFrame frame;
    ASSERT_EQ(frame.SetDIFData(bytes.data(), 240000), kStatusOk);
    EXPECT_EQ(Timecode(frame, 2), Bytes());
}

TEST(DIFFrame, UnitCutAfterItsFirstFrameHasNoSecond) {
    const Bytes bytes = Part(Unit720(), 0, 240000);
    CDIFFrame frame;
    ASSERT_EQ(frame.SetDIFData(bytes.data(), 240000), kStatusOk);
    EXPECT_EQ(Timecode(frame, 1), (Bytes{0x67, 0xD9, 0x88, 0xC0}));
    EXPECT_EQ(Timecode(frame, 2), Bytes());
}

TEST(DIFFrame, NothingBehindTheFrameIsLookedAt) {
    Bytes bytes = Essence("dv25-5994i.dif");
    for (size_t sequence = 0; sequence < 10; ++sequence)
        for (size_t block = 1; block <= 2; ++block)
            bytes[sequence * kSequence + block * 80] = 0x9F;  // a video block's ID
    CDIFFrame frame;
    ASSERT_EQ(frame.SetDIFData(bytes.data(), 240000), kStatusOk);
    EXPECT_EQ(Timecode(frame), Bytes());
}

TEST(DIFFrame, TimecodePackThatIsNoTimeIsPassedOver) {
    Bytes bytes = DV25Frame();
    Put(bytes, kSubcodePack, {0x13, 0xFF, 0xFF, 0xFF, 0xFF});
    Put(bytes, kSubcodePack + kSubcodeStep, {0x13, 0x30, 0x00, 0x00, 0x00});      // 30 frames
    Put(bytes, kSubcodePack + 2 * kSubcodeStep, {0x13, 0x00, 0x60, 0x00, 0x00});  // 60 seconds
    Put(bytes, kSubcodePack + 3 * kSubcodeStep, {0x13, 0x00, 0x00, 0x7A, 0x00});  // not BCD
    Put(bytes, kSubcodePack + 4 * kSubcodeStep, {0x13, 0x00, 0x00, 0x00, 0x24});  // 24 hours
    Put(bytes, kSubcodePack + 5 * kSubcodeStep, {0x13, 0x29, 0x59, 0x59, 0x23});
    CDIFFrame frame;
    ASSERT_EQ(frame.SetDIFData(bytes.data()), kStatusOk);
    EXPECT_EQ(Timecode(frame), (Bytes{0x29, 0x59, 0x59, 0x23}));
}

TEST(DIFFrame, FrameWithoutATimecodePackHasNoTimecode) {
    const Bytes bytes = BareFrame(0x3F, 0xC0, 10);
    CDIFFrame frame;
    ASSERT_EQ(frame.SetDIFData(bytes.data()), kStatusOk);
    EXPECT_EQ(Timecode(frame), Bytes());
    EXPECT_EQ(ReadSignal(frame), (Signal{0x0100007C, 0x0400}));
}

TEST(DIFFrame, UserBitsStandInTheSubcodeAndASecondPairInVAUX) {
    Bytes bytes = DV25Frame();
    Put(bytes, kSequence + kSubcodePack, {0x14, 0x12, 0x34, 0x56, 0x78});  // second sequence
    CDIFFrame frame;
    ASSERT_EQ(frame.SetDIFData(bytes.data()), kStatusOk);
    EXPECT_EQ(ReadAll(frame, 1).usersBit1, (Bytes{0x12, 0x34, 0x56, 0x78}));
    EXPECT_EQ(ReadAll(frame).usersBit2, Bytes());
    EXPECT_EQ(ReadAll(frame, 2).usersBit1, Bytes());

    Put(bytes, kVAUXPack + 4 * kPackSize, {0x64, 0x9A, 0xBC, 0xDE, 0xF0});
    EXPECT_EQ(ReadAll(frame).usersBit1, (Bytes{0x12, 0x34, 0x56, 0x78}));
    EXPECT_EQ(ReadAll(frame, 1).usersBit2, (Bytes{0x9A, 0xBC, 0xDE, 0xF0}));
    for (const int type : {0, 3, -1})
        EXPECT_EQ(Given(4, [&](uint8_t* out) { return frame.GetUsersBit(out, static_cast<eSEIDataType>(type), kAny); }),
                  Bytes());

    Put(bytes, kVAUXPack + 3 * kPackSize, {0x14, 0x01, 0x23, 0x45, 0x67});
    EXPECT_EQ(ReadAll(frame).usersBit2, (Bytes{0x01, 0x23, 0x45, 0x67}));
}

TEST(DIFFrame, UserBitsOfAUnitBelongToItsFrames) {
    Bytes unit = Unit720();
    Put(unit, kSubcodePack, {0x14, 0x11, 0x11, 0x11, 0x11});
    Put(unit, 240000 + kSubcodePack, {0x14, 0x22, 0x22, 0x22, 0x22});
    Put(unit, 240000 + kVAUXPack + 4 * kPackSize, {0x64, 0x33, 0x33, 0x33, 0x33});
    CDIFFrame frame;
    ASSERT_EQ(frame.SetDIFData(unit.data()), kStatusOk);
    EXPECT_EQ(ReadAll(frame, 1).usersBit1, (Bytes{0x11, 0x11, 0x11, 0x11}));
    EXPECT_EQ(ReadAll(frame, 2).usersBit1, (Bytes{0x22, 0x22, 0x22, 0x22}));
    EXPECT_EQ(ReadAll(frame, 1).usersBit2, Bytes());
    EXPECT_EQ(ReadAll(frame, 2).usersBit2, (Bytes{0x33, 0x33, 0x33, 0x33}));
}

TEST(DIFFrame, UMIDIsFoundAsItStandsInVAUX) {
    Bytes basic = DV25Frame();
    Put(basic, kVAUXPack + 1 * kVAUXBlock + 4 * kPackSize, kBasicUMID);
    EXPECT_EQ(UMID(basic), BasicWithZeros());
    Bytes extended = DV25Frame();
    Put(extended, kVAUXPack + 2 * kVAUXBlock + 7, kExtendedUMID);
    EXPECT_EQ(UMID(extended), kExtendedUMID);
}

TEST(DIFFrame, UMIDIsFoundInThePacksOfVAUX) {
    // Four bytes a pack, across the end of a block and around the packs that have a place of their own.
    Bytes bytes = BareFrame(0x3F, 0xC0, 10);
    for (size_t i = 0; i < 16; ++i) {
        const size_t place = i < 10 ? 5 + i : 15 + 4 + i - 10;  // packs 5 to 14 of the first block, 4 to 9 of the next
        Bytes pack = {0xF0};
        pack.insert(pack.end(), kExtendedUMID.begin() + static_cast<std::ptrdiff_t>(4 * i),
                    kExtendedUMID.begin() + static_cast<std::ptrdiff_t>(4 * i + 4));
        Put(bytes, kVAUXPack + place / 15 * kVAUXBlock + place % 15 * kPackSize, pack);
    }
    Put(bytes, kVAUXPack + kVAUXBlock, {0x60, 0xFF, 0xFF, 0xC0, 0xFF});
    EXPECT_EQ(UMID(bytes), kExtendedUMID);
}

TEST(DIFFrame, UMIDIsFoundInThePacksOfAAUX) {
    Bytes bytes = BareFrame(0x3F, 0xC0, 10);
    for (size_t i = 0; i < 8; ++i) {
        const size_t place = i < 3 ? i : i < 6 ? 3 + i : 9 + i - 6;  // 0 to 2, 6 to 8, and 0, 1 of the next sequence
        Bytes pack = {0xF0};
        pack.insert(pack.end(), kBasicUMID.begin() + static_cast<std::ptrdiff_t>(4 * i),
                    kBasicUMID.begin() + static_cast<std::ptrdiff_t>(4 * i + 4));
        Put(bytes, place / 9 * kSequence + kAAUXPack + place % 9 * kAAUXStep, pack);
    }
    for (size_t i = 3; i < 6; ++i)
        Put(bytes, kAAUXPack + i * kAAUXStep, {static_cast<uint8_t>(0x50 + i - 3), 0xD0, 0x30, 0xC0, 0xD0});
    EXPECT_EQ(UMID(bytes), BasicWithZeros());
}

TEST(DIFFrame, UMIDOfTheSecondFrameOfAUnitCountsToo) {
    Bytes unit = Unit720();
    Put(unit, 240000 + kVAUXPack + 4 * kPackSize, kBasicUMID);
    EXPECT_EQ(UMID(unit), BasicWithZeros());
}

TEST(DIFFrame, ColourFrameIsGivenWhereItHolds) {
    Bytes unit = Unit720();
    CDIFFrame frame;
    ASSERT_EQ(frame.SetDIFData(unit.data()), kStatusOk);
    Put(unit, kVAUXPack, {0x60, 0xFF, 0x9F, 0xD8, 0xFF});           // enable flag 0, colour frame 01
    Put(unit, 240000 + kVAUXPack, {0x60, 0xFF, 0xBF, 0xD8, 0xFF});  // 11
    EXPECT_EQ(CLF(frame, 1), Bytes{0x01});
    EXPECT_EQ(CLF(frame, 2), Bytes{0x03});
    EXPECT_EQ(CLF(frame, kAny), Bytes{0x01});
    EXPECT_EQ(CLF(frame, 3), Bytes());
    Put(unit, kVAUXPack, {0x60, 0xFF, 0x8F, 0xD8, 0xFF});
    EXPECT_EQ(CLF(frame, 1), Bytes{0x00});
    Put(unit, kVAUXPack, {0x60, 0xFF, 0xEF, 0xD8, 0xFF});  // enable flag 1
    EXPECT_EQ(CLF(frame, 1), Bytes());
}

TEST(DIFFrame, SignalTypesOfTheSourcePack) {
    const struct {
        uint8_t headerByte3, sourcePC3;
        size_t sequences;  // of a unit
        Signal signal;
    } kSignals[] = {
        {0x3F, 0xC0, 10, {0x0100007C, 0x0400}},
        {0xBF, 0xE0, 12, {0x010000B2, 0x0400}},
        {0x3F, 0xC4, 20, {0x0100007C, 0x4800}},
        {0xBF, 0xE4, 24, {0x010000B2, 0x4800}},
        {0x3F, 0xD4, 40, {0x0100007C, 0x4D00}},
        {0xBF, 0xF5, 48, {0x010000B2, 0x4D00}},
        {0xBF, 0xF4, 48, {0x010000B2, 0x4D00}},  // 1080 lines at 50 under the signal type of 60
        {0x3F, 0xD8, 40, {0x0200007C, 0x4E00}},
        {0xBF, 0xF8, 48, {0x020000B2, 0x4E00}},
        {0x3F, 0xD5, 10, {0, 0}},  // 1080 lines at 60 under the signal type of 50
        {0x3F, 0xC1, 10, {0, 0}},  // a type of other systems
        {0x3F, 0xFF, 10, {0, 0}},
    };
    for (const auto& row : kSignals) {
        SCOPED_TRACE(static_cast<int>(row.sourcePC3));
        Bytes bytes = BareFrame(row.headerByte3, row.sourcePC3, row.sequences);
        Put(bytes, bytes.size() - kSequence + kSubcodePack, {0x13, 0x01, 0x02, 0x03, 0x04});  // in the last sequence
        CDIFFrame frame;
        ASSERT_EQ(frame.SetDIFData(bytes.data()), kStatusOk);
        EXPECT_EQ(ReadSignal(frame), row.signal);
        EXPECT_EQ(Timecode(frame), (Bytes{0x01, 0x02, 0x03, 0x04}));
    }
}

TEST(DIFFrame, ApplicationIdTellsConsumerDV) {
    Bytes bytes = BareFrame(0x3F, 0xC0, 10);
    CDIFFrame frame;
    ASSERT_EQ(frame.SetDIFData(bytes.data()), kStatusOk);
    bool consumer = false;
    bytes[4] = 0xF8;
    EXPECT_EQ(frame.GetConsumerDVFlag(&consumer), kStatusOk);
    EXPECT_TRUE(consumer);
    bytes[4] = 0xF9;
    EXPECT_EQ(frame.GetConsumerDVFlag(&consumer), kStatusOk);
    EXPECT_FALSE(consumer);
    bytes[4] = 0xFA;
    EXPECT_EQ(frame.GetConsumerDVFlag(&consumer), kStatusFrameNoInfo);
    EXPECT_FALSE(consumer);
}

TEST(DIFFrame, DamagedBlocksArePassedOver) {
    Bytes bytes = DV25Frame();
    bytes[80] = 0x9F;       // first subcode block: type
    bytes[160 + 2] = 0x07;  // second: number
    bytes[240] = 0xF6;      // first VAUX block
    Put(bytes, kSequence + kSubcodePack, {0x13, 0x05, 0x06, 0x07, 0x08});
    CDIFFrame frame;
    ASSERT_EQ(frame.SetDIFData(bytes.data()), kStatusOk);
    EXPECT_EQ(Timecode(frame), (Bytes{0x05, 0x06, 0x07, 0x08}));
    EXPECT_EQ(ReadSignal(frame), (Signal{0x0100007C, 0x0400}));
}

TEST(DIFFrame, BytesThatAreNoDIFFrameAreNotLookedAtBehindTheFirstBlock) {
    Bytes block(80, 0xFF);
    CDIFFrame frame;
    ASSERT_EQ(frame.SetDIFData(block.data()), kStatusOk);
    EXPECT_EQ(Timecode(frame), Bytes());
    block[0] = 0x1F;  // a header block of another number
    ASSERT_EQ(frame.SetDIFData(block.data()), kStatusOk);
    EXPECT_EQ(Timecode(frame), Bytes());
}

TEST(DIFFrame, FrameCutAtEveryByteGivesWhatItsWholeBlocksCarry) {
    const Bytes whole = DV25Frame();
    for (size_t size = 0; size <= 512; ++size) {
        SCOPED_TRACE(size);
        const Bytes bytes = Part(whole, 0, size);
        CDIFFrame frame;
        const int32_t set = frame.SetDIFData(bytes.data(), static_cast<uint32_t>(size));
        EXPECT_EQ(set, bytes.data() == nullptr ? kStatusInvalidArgument : kStatusOk);
        EXPECT_EQ(Timecode(frame), size >= 160 ? (Bytes{0x44, 0x83, 0x82, 0xC1}) : Bytes());
        EXPECT_EQ(ReadSignal(frame), (size >= 320 ? Signal{0x0100007C, 0x0400} : Signal{}));
        bool consumer = true;
        EXPECT_EQ(frame.GetConsumerDVFlag(&consumer), size >= 80 ? kStatusOk : kStatusFrameNoInfo);
        EXPECT_EQ(ReadAll(frame).umid, Bytes());
        EXPECT_EQ(CLF(frame), Bytes());
    }
}

TEST(DIFFrame, NoiseIsHarmless) {
    std::mt19937 random(1);
    for (int i = 0; i < 300; ++i) {
        Bytes bytes = Noise(random, 1 + random() % 30000);
        if (i % 2 == 0 && bytes.size() > 4) Put(bytes, 0, {0x1F, 0x07, 0x00});
        CDIFFrame frame;
        ASSERT_EQ(frame.SetDIFData(bytes.data(), static_cast<uint32_t>(bytes.size())), kStatusOk);
        for (const uint32_t sequence : {1u, 2u, kAny}) {
            ReadAll(frame, sequence);
            CLF(frame, sequence);
        }
        ReadSignal(frame);
    }
}

TEST(DIFFrame, DamagedFramesAreHarmless) {
    std::mt19937 random(2);
    const Bytes whole = Part(Unit720(), 0, 480000);
    for (int i = 0; i < 20; ++i) {
        Bytes bytes = Part(whole, 0, 1 + random() % whole.size());
        // Most of the damage goes to the blocks that carry packs.
        for (int k = 0; k < 200; ++k)
            bytes[std::min<size_t>(random() % 40 * kSequence + random() % 480, bytes.size() - 1)] =
                static_cast<uint8_t>(random());
        CDIFFrame frame;
        ASSERT_EQ(frame.SetDIFData(bytes.data(), static_cast<uint32_t>(bytes.size())), kStatusOk);
        for (const uint32_t sequence : {1u, 2u, kAny}) ReadAll(frame, sequence);
        ReadSignal(frame);
    }
}

}  // namespace kmxf::test
