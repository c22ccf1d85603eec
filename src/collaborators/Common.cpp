#include "kmxf/collaborators/Common.h"

#include "core/EnvironmentSources.h"
#include "kmxf/core/Status.h"

namespace kmxf {

Mutex::Mutex() = default;
Mutex::~Mutex() = default;
void Mutex::Lock() { mutex_.lock(); }
void Mutex::Unlock() { mutex_.unlock(); }

CDateTime::CDateTime() = default;
CDateTime::~CDateTime() = default;

int32_t CDateTime::SetCurrentTime() {
    time_ = Now();
    return kStatusOk;
}

int32_t CDateTime::GetLocalTime(std::tm* local, int32_t* fraction) const {
    if (local == nullptr) return kStatusInvalidArgument;
    *local = time_.calendar;
    if (fraction != nullptr) *fraction = time_.fraction;
    return kStatusOk;
}

}  // namespace kmxf
