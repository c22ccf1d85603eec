#include "kmxf/reader/ReadMXFHeader.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <new>
#include <utility>

#include "collaborators/Guards.h"
#include "collaborators/Report.h"
#include "core/KLVPacket.h"
#include "core/Labels.h"
#include "core/Layout.h"
#include "core/LocalTags.h"
#include "kmxf/core/Status.h"
#include "kmxf/structures/Partition.h"
#include "reader/HeaderFields.h"

namespace kmxf {

namespace {

constexpr uint32_t kFirstRead = 32768;
constexpr size_t kPatternAt = 84;  // in a pack with a 4-byte length, as which it is taken

constexpr MXFKEYTag WithByte13(MXFKEYTag label, uint8_t byte) {
    label.bytes[13] = byte;
    return label;
}
constexpr MXFKEYTag kOp1aLabel = WithByte13(kOp1bLabel, 0x01);
// By their code
constexpr MXFKEYTag kPatterns[] = {kOpAtomLabel, kOpAtomLabel3, kOp1aLabel, kOp1bLabel};

// IEC 61834 of 525 lines; the label of 625 lines, ... 02 01 02 00, is not looked for.
constexpr MXFKEYTag ConsumerDVCoding() {
    MXFKEYTag label = WithByte13(kDVPictureCoding, 0x01);
    label.bytes[14] = 0x01;
    return label;
}

int32_t PatternCode(HeaderBytes header) {
    ByteReader reader(header);
    reader.Skip(kPatternAt);
    const auto found = std::ranges::find(kPatterns, reader.Key());
    return found == std::end(kPatterns) ? -1 : static_cast<int32_t>(found - kPatterns);
}

// Whether a header of this size is worth the memory. One of the size of an OP-1b clip's always is: of a file that was
// cut short in it the rest counts as zeros.
bool IsPlausible(IFileIO& file, uint64_t size) {
    if (size <= kOp1bHeaderSize) return true;
    constexpr uint64_t kMost = std::min<uint64_t>(std::numeric_limits<uint32_t>::max(), PTRDIFF_MAX);
    return size <= kMost && std::cmp_less_equal(size, file.Seek(0, kSeekEnd));
}

int32_t Fail(const char* message, int32_t status) {
    return Failed("CReadMXFHeader::ReadHeader", "ReadMXFHeader", message, status);
}

}  // namespace

CReadMXFHeader::CReadMXFHeader() = default;
CReadMXFHeader::~CReadMXFHeader() = default;

int32_t CReadMXFHeader::ReadHeader(const char* fileName) {
    const ScopedLock lock(lock_);
    consumerDV_ = validDMS_ = false;
    header_.clear();
    operationalPattern_ = -1;
    if (fileName == nullptr) return kStatusInvalidArgument;
    try {
        return Read(fileName);
    } catch (const std::bad_alloc&) {
        return Fail("Error.", kStatusNoMemory);
    }
}

int32_t CReadMXFHeader::Read(const char* fileName) {
    std::vector<uint8_t> header(kFirstRead);
    FactoryFile file;
    if (!file.Open(fileName, kOpenRead)) return Fail("Open Error.", kStatusIoError);
    // The counts of reads are not looked at: what does not come stays as it is, and a file of no use shows in its pack.
    file->Read(header.data(), kFirstRead);

    CPartition pack;
    if (const int32_t status = pack.SetData(header.data(), kFirstRead); status != kStatusOk)
        return Fail("SetData Error.", status);
    int64_t byteCount = 0;
    pack.GetHeaderByteCount(byteCount);
    const auto head = ReadKLVHead(header);
    const uint64_t size = head->size + head->length + static_cast<uint64_t>(byteCount);
    if (byteCount < 0 || !IsPlausible(*file.get(), size)) return Fail("Error.", kStatusNoMemory);
    if (size > kFirstRead) {
        header.resize(static_cast<size_t>(size));
        file->Seek(0, kSeekBegin);
        file->Read(header.data(), static_cast<uint32_t>(size));
    }

    operationalPattern_ = PatternCode(header);
    header.resize(static_cast<size_t>(size));
    validDMS_ = HasDescriptiveMetadata(header);
    auto coding = FindItem(header, kCDCIDescriptorKey, kTagPictureEssenceCoding, sizeof(MXFKEYTag));
    consumerDV_ = coding && coding->Key() == ConsumerDVCoding();
    header_ = std::move(header);
    return kStatusOk;
}

bool CReadMXFHeader::IsConsumerDV() const { return consumerDV_; }
bool CReadMXFHeader::IsValidDMS() const { return validDMS_; }
uint32_t CReadMXFHeader::GetHeaderSize() const { return static_cast<uint32_t>(header_.size()); }
int32_t CReadMXFHeader::GetOperationalPattern() const { return operationalPattern_; }

bool CReadMXFHeader::GetHeaderData(uint8_t* buffer) const {
    if (header_.empty() || buffer == nullptr) return false;
    std::ranges::copy(header_, buffer);
    return true;
}

}  // namespace kmxf
