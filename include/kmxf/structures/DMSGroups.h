#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kmxf/core/Export.h"
#include "kmxf/core/Records.h"
#include "kmxf/structures/DMSSets.h"

namespace kmxf {

// One group of descriptive metadata in the header of a file: a track of the material package with its sequence, its
// segment and the framework that it leads to, and the sets to which the framework refers (SMPTE ST 380). A group is a
// value: copies are deep and keep the InstanceUIDs.
//
// Until Build or SetData has made its sets a group is empty: its length is 0, getters return nothing, setters return
// kStatusWrongState. Setters return 0 otherwise, unless they say more; texts and numbers are as in the sets: a text
// that is malformed or too long gives -1, a number that is too long is dropped, and both leave their field empty.
class KMXF_API CDMSGroup {
public:
    virtual ~CDMSGroup();

    // Creates the sets, with fresh InstanceUIDs and no values, and links them. Returns 0.
    virtual int32_t Build() = 0;

    // Reads the group out of `size` bytes of header metadata, which start at a KLV key: the framework and what it
    // refers to by key, segment, sequence and track as those that lead to the framework. Items may come in any order,
    // those not known are passed over, those missing keep their default. Dynamic tags are those of the primer pack
    // among the bytes, or our own when there is none. Returns 0, kStatusInvalidArgument (null pointer, nothing
    // changes), kStatusNotFound (a set is missing) or kStatusFailure (a set leads outside the bytes, or a value is too
    // long for its field); the group is then as Build leaves it.
    virtual int32_t SetData(const uint8_t* headerMetadata, uint32_t size) = 0;

    // All sets together, in bytes.
    uint32_t GetLength() const;
    // Serialises the sets one behind the other into a new buffer of GetLength() bytes, which the caller gives to
    // free(). Returns 0, kStatusInvalidArgument (null pointer), kStatusNoMemory.
    int32_t GetData(uint8_t** data);
    // Serialises them to `buffer` + `offset`, where GetLength() bytes must be free, and returns the offset behind them;
    // with a null buffer it does nothing and returns `offset`.
    uint32_t MemSetData(uint8_t* buffer, uint32_t offset);
    // The track, for the tracks of the material package.
    MXFKEYTag GetTrackInstanceUID() const;

protected:
    // `videoStd`: code of the clip's video standard, which gives event tracks their edit rate.
    explicit CDMSGroup(uint32_t videoStd);

    // What every group begins with, linked.
    template <class Segment, class Framework>
    struct Chain {
        Chain(uint32_t videoStd, uint32_t trackID, int64_t duration = 0);
        CDMSTrack track;
        CDMSSequence sequence;
        Segment segment;
        Framework framework;
    };
    uint32_t videoStd_;

    // Builds the group and reads it, as SetData says.
    int32_t Read(const uint8_t* headerMetadata, uint32_t size);
    // An item of the set with this key, empty in an empty group: as the file has it, as UTF-8 text, as the bytes up to
    // the first zero byte.
    std::vector<uint8_t> Value(const MXFKEYTag& key, uint16_t tag) const;
    std::string Text(const MXFKEYTag& key, uint16_t tag) const;
    std::string Raw(const MXFKEYTag& key, uint16_t tag) const;

private:
    // The sets in write order, those of the chain first; none in an empty group.
    virtual std::vector<CMXFHeaderBase*> Sets() = 0;
    std::vector<const CMXFHeaderBase*> ConstSets() const;
};

// The clip as a whole: static track 101, clip framework, contacts list, project, participant and person; 1497 bytes.
class KMXF_API CDMSClip : public CDMSGroup {
public:
    explicit CDMSClip(uint32_t videoStd);
    int32_t Build() override;
    int32_t SetData(const uint8_t* headerMetadata, uint32_t size) override;

    int32_t SetTakeNumber(uint16_t takeNumber);
    int32_t SetProjectNumber(const std::string& bytes);  // up to 32 bytes
    int32_t SetProjectName(const std::string& utf8);     // up to 200 UTF-16 units
    int32_t SetJobFunction(const std::string& utf8);     // up to 60 units
    int32_t SetFamilyName(const std::string& utf8);      // up to 60 units
    int32_t SetFirstGivenName(const std::string& utf8);  // up to 60 units

    uint16_t GetTakeNumber() const;
    std::string GetProjectNumber() const;  // up to the first zero byte
    std::string GetProjectName() const;    // texts are UTF-8
    std::string GetJobFunction() const;
    std::string GetFamilyName() const;
    std::string GetFirstGivenName() const;

private:
    struct ClipSets : Chain<CStaticSegment, CClipFramework> {
        using Chain::Chain;
        CContactsList contactsList;
        CProject project;
        CParticipant participant;
        CPerson person;
    };
    std::optional<ClipSets> sets_;

    std::vector<CMXFHeaderBase*> Sets() override;
};

// The scene: event track 102 and scene framework; 363 bytes.
class KMXF_API CDMSScene : public CDMSGroup {
public:
    explicit CDMSScene(uint32_t videoStd);
    int32_t Build() override;
    int32_t SetData(const uint8_t* headerMetadata, uint32_t size) override;

    int32_t SetEventStartPosition(int64_t position);   // in video frames; 0 at first
    int32_t SetSceneNumber(const std::string& bytes);  // up to 32 bytes

    std::string GetSceneNumber() const;  // up to the first zero byte

private:
    std::optional<Chain<CEventSegment, CSceneFramework>> sets_;

    std::vector<CMXFHeaderBase*> Sets() override;
};

// The clip's XML: static track 1001 and private framework; 293 bytes and the XML.
class KMXF_API CDMSKestralinStatic : public CDMSGroup {
public:
    explicit CDMSKestralinStatic(uint32_t videoStd);
    int32_t Build() override;
    int32_t SetData(const uint8_t* headerMetadata, uint32_t size) override;

    // Copies the XML, which may be empty. kStatusInvalidArgument: null pointer.
    int32_t SetXMLData(const uint8_t* xml, uint16_t size);

    uint16_t GetXMLDataSize() const;
    const uint8_t* GetXMLData() const;  // stays the group's, until it changes

private:
    std::optional<Chain<CStaticSegment, CKestralinFrameworkStatic>> sets_;

    std::vector<CMXFHeaderBase*> Sets() override;
};

// The clip's thumbnail: event track 1002, sequence of duration 1, private framework; 353 bytes and the picture.
class KMXF_API CDMSKestralinEvent : public CDMSGroup {
public:
    explicit CDMSKestralinEvent(uint32_t videoStd);
    int32_t Build() override;
    int32_t SetData(const uint8_t* headerMetadata, uint32_t size) override;

    // The frame that the thumbnail shows; 0 at first.
    int32_t SetEventStartPosition(int64_t position);
    // Copies the picture, which may be empty; `width` and `height` in pixels, `format` 0 or 1. The group and the fill
    // item behind it share 16384 bytes of a header: the picture may have 16011 bytes, or 16031, which leave no room for
    // a fill item. kStatusInvalidArgument, with nothing changed: null pointer, another size, another format.
    int32_t SetThumbnailData(const uint8_t* data, uint16_t size, uint16_t width, uint16_t height, uint8_t format);

    int64_t GetEventStartPosition() const;
    uint8_t GetThumbnailFormat() const;
    uint16_t GetThumbnailWidth() const;
    uint16_t GetThumbnailHeight() const;
    uint16_t GetThumbnailDataSize() const;
    const uint8_t* GetThumbnailData() const;  // stays the group's, until it changes

private:
    std::optional<Chain<CEventSegment, CKestralinFrameworkEvent>> sets_;

    std::vector<CMXFHeaderBase*> Sets() override;
};

}  // namespace kmxf
