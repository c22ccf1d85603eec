#include "kmxf/structures/DescriptiveMetadata.h"

#include "kmxf/core/Status.h"

namespace kmxf {

CDescriptiveMetadata::CDescriptiveMetadata() = default;
CDescriptiveMetadata::CDescriptiveMetadata(const CDescriptiveMetadata&) = default;
CDescriptiveMetadata& CDescriptiveMetadata::operator=(const CDescriptiveMetadata&) = default;
CDescriptiveMetadata::~CDescriptiveMetadata() = default;

void CDescriptiveMetadata::ResetParam() { values_ = {}; }

template <class Value>
int32_t CDescriptiveMetadata::Store(Value Values::*field, const Value& value, bool Values::*flag) {
    values_.*field = value;
    values_.*flag = true;
    return kStatusOk;
}

int32_t CDescriptiveMetadata::SetJobFunction(const std::string& utf8) {
    return Store(&Values::jobFunction, utf8, &Values::isStatic);
}
int32_t CDescriptiveMetadata::SetFamilyName(const std::string& utf8) {
    return Store(&Values::familyName, utf8, &Values::isStatic);
}
int32_t CDescriptiveMetadata::SetFirstGivenName(const std::string& utf8) {
    return Store(&Values::firstGivenName, utf8, &Values::isStatic);
}
int32_t CDescriptiveMetadata::SetProjectNumber(const std::string& bytes) {
    return Store(&Values::projectNumber, bytes, &Values::isStatic);
}
int32_t CDescriptiveMetadata::SetProjectName(const std::string& utf8) {
    return Store(&Values::projectName, utf8, &Values::isStatic);
}
int32_t CDescriptiveMetadata::SetTakeNumber(uint16_t takeNumber) {
    return Store(&Values::takeNumber, takeNumber, &Values::isStatic);
}
int32_t CDescriptiveMetadata::SetSceneNumber(const std::string& bytes) {
    return Store(&Values::sceneNumber, bytes, &Values::isEvent);
}
int32_t CDescriptiveMetadata::SetVideoStd(uint32_t videoStd) {
    values_.videoStd = videoStd;
    return kStatusOk;
}

std::string CDescriptiveMetadata::GetJobFunction() const { return values_.jobFunction; }
std::string CDescriptiveMetadata::GetFamilyName() const { return values_.familyName; }
std::string CDescriptiveMetadata::GetFirstGivenName() const { return values_.firstGivenName; }
std::string CDescriptiveMetadata::GetProjectNumber() const { return values_.projectNumber; }
std::string CDescriptiveMetadata::GetProjectName() const { return values_.projectName; }
uint16_t CDescriptiveMetadata::GetTakeNumber() const { return values_.takeNumber; }
std::string CDescriptiveMetadata::GetSceneNumber() const { return values_.sceneNumber; }
uint32_t CDescriptiveMetadata::GetVideoStd() const { return values_.videoStd; }
bool CDescriptiveMetadata::IsSetStaticMetadata() const { return values_.isStatic; }
bool CDescriptiveMetadata::IsSetEventMetadata() const { return values_.isEvent; }

}  // namespace kmxf
