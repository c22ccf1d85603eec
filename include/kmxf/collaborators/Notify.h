#pragma once

#include <cstdint>

#include "kmxf/core/Export.h"

namespace kmxf {

// What clients implement to be told by the library. The order of the virtual functions is part of the binary interface.

// Accepted by a writer's SetWriteRetry.
class KMXF_API IMXFStatus {
public:
    IMXFStatus() = default;
    IMXFStatus(const IMXFStatus&) = default;
    IMXFStatus& operator=(const IMXFStatus&) = default;
    virtual ~IMXFStatus() = default;  // slot 0

    // Slot 1: the library never calls it.
    virtual void NotifyStatus(int32_t status) = 0;
};

// Kinds of a salvage notification, and the values of the last one.
inline constexpr int32_t kSalvageFinished = 1, kSalvageProgress = 2;
inline constexpr int32_t kSalvageCompleted = 0, kSalvageCancelled = -1, kSalvageFailed = -2;

// Follows an OP-1b salvage run. It must live until the run has finished.
class KMXF_API ISalvageMXFNotify {
public:
    ISalvageMXFNotify() = default;
    ISalvageMXFNotify(const ISalvageMXFNotify&) = default;
    ISalvageMXFNotify& operator=(const ISalvageMXFNotify&) = default;
    virtual ~ISalvageMXFNotify() = default;  // slot 0

    // Slot 1: called on the run's thread. kSalvageProgress with the percentage done; at last kSalvageFinished with
    // kSalvageCompleted, kSalvageCancelled or kSalvageFailed.
    virtual void Notify(int32_t kind, int32_t value) = 0;
};

}  // namespace kmxf
