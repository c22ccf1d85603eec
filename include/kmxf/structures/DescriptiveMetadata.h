#pragma once

#include <cstdint>
#include <string>

#include "kmxf/core/Export.h"

namespace kmxf {

// The descriptive metadata of a clip as an application sets it and hands it to a writer. It holds whatever it is given:
// what is too long or malformed for the file shows only when the sets are filled. Setters return 0.
class KMXF_API CDescriptiveMetadata {
public:
    // As after ResetParam.
    CDescriptiveMetadata();
    CDescriptiveMetadata(const CDescriptiveMetadata&);
    CDescriptiveMetadata& operator=(const CDescriptiveMetadata&);
    virtual ~CDescriptiveMetadata();

    // Every text becomes "", every number 0, both flags false.
    void ResetParam();

    // Values of the clip as a whole. Each of these raises the static flag, an empty text too.
    int32_t SetJobFunction(const std::string& utf8);     // the file holds up to 60 UTF-16 units
    int32_t SetFamilyName(const std::string& utf8);      // 60 units
    int32_t SetFirstGivenName(const std::string& utf8);  // 60 units
    int32_t SetProjectNumber(const std::string& bytes);  // 32 bytes, not converted
    int32_t SetProjectName(const std::string& utf8);     // 200 units
    int32_t SetTakeNumber(uint16_t takeNumber);

    // Number of the scene, raises the event flag: 32 bytes, not converted.
    int32_t SetSceneNumber(const std::string& bytes);

    // Code of the clip's video standard; raises no flag.
    int32_t SetVideoStd(uint32_t videoStd);

    // The values as they were set.
    std::string GetJobFunction() const;
    std::string GetFamilyName() const;
    std::string GetFirstGivenName() const;
    std::string GetProjectNumber() const;
    std::string GetProjectName() const;
    uint16_t GetTakeNumber() const;
    std::string GetSceneNumber() const;
    uint32_t GetVideoStd() const;

    // Whether a value of the clip, or the scene number, has been set since the last reset.
    bool IsSetStaticMetadata() const;
    bool IsSetEventMetadata() const;

private:
    struct Values {
        std::string jobFunction, familyName, firstGivenName, projectNumber, projectName, sceneNumber;
        uint16_t takeNumber = 0;
        uint32_t videoStd = 0;
        bool isStatic = false, isEvent = false;
    };
    Values values_;

    template <class Value>
    int32_t Store(Value Values::*field, const Value& value, bool Values::*flag);
};

}  // namespace kmxf
