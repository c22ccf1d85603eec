#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>

#include "kmxf/collaborators/Common.h"
#include "kmxf/collaborators/FileIO.h"

namespace kmxf {

struct Releaser {
    template <class Object>
    void operator()(Object* object) const {
        object->Release();
    }
};
// Owns an object that is destroyed through its Release slot.
template <class Object>
using Released = std::unique_ptr<Object, Releaser>;

// Holds a Mutex from here to the end of the scope.
class [[nodiscard]] ScopedLock {
public:
    explicit ScopedLock(Mutex& mutex) : mutex_(mutex) { mutex_.Lock(); }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;
    ~ScopedLock() { mutex_.Unlock(); }

private:
    Mutex& mutex_;
};

// A stream's piece allocator, released at the end of the scope. It stays usable when the stream was closed or forgotten
// meanwhile. Without a stream, or from a stream that has none, it allocates nothing.
class PieceAllocator {
public:
    explicit PieceAllocator(IStreamFileIO* stream) : allocator_(stream ? stream->GetPieceAllocator() : nullptr) {}

    explicit operator bool() const { return allocator_ != nullptr; }
    StreamPiece* Allocate(uint32_t size) { return allocator_ ? allocator_->Allocate(size) : nullptr; }
    void Free(StreamPiece* piece) {
        if (allocator_ && piece) allocator_->Free(piece);
    }

private:
    Released<IStreamPieceAllocator> allocator_;
};

// A piece that goes back to its allocator at the end of the scope, unless it is handed on with release(). The allocator
// must live longer.
class OwnedPiece {
public:
    OwnedPiece(PieceAllocator& allocator, uint32_t size) : piece_(allocator.Allocate(size), Freer{&allocator}) {}

    explicit operator bool() const { return piece_ != nullptr; }
    StreamPiece* get() const { return piece_.get(); }
    StreamPiece* operator->() const { return piece_.get(); }
    StreamPiece* release() { return piece_.release(); }
    void reset() { piece_.reset(); }  // gives it back at once
    std::span<uint8_t> Bytes() const { return {piece_->GetBuffer(), piece_->GetSize()}; }

private:
    struct Freer {
        PieceAllocator* allocator;
        void operator()(StreamPiece* piece) const { allocator->Free(piece); }
    };
    std::unique_ptr<StreamPiece, Freer> piece_;
};

// A file object of its own factory: the factory is asked for with the library's arguments, and the file is closed and
// everything released at the end of the scope, the factory last.
template <class File, File* (IFileIOFactory::*create)(uint32_t), uint32_t mode>
class FactoryObject {
public:
    FactoryObject() : factory_(CFileIOMain::GetFactory(0, nullptr, 32768)), file_(Create()) {}
    FactoryObject(const FactoryObject&) = delete;
    FactoryObject& operator=(const FactoryObject&) = delete;
    ~FactoryObject() { Close(); }

    explicit operator bool() const { return file_ != nullptr; }
    File* get() const { return file_.get(); }
    File* operator->() const { return file_.get(); }

    bool Open(const char* fileName, uint32_t flags) {
        Close();
        return opened_ = file_ && file_->Open(fileName, flags);
    }
    // True also when the file is not open.
    bool Close() { return !std::exchange(opened_, false) || file_->Close(); }

    // The stream's pieces; the allocator is released between the stream and the factory.
    PieceAllocator& Allocator() requires std::same_as<File, IStreamFileIO> {
        if (!allocator_) allocator_ = PieceAllocator(get());
        return allocator_;
    }

private:
    File* Create() { return factory_ ? (factory_.get()->*create)(mode) : nullptr; }

    // Destroyed from the last to the first.
    Released<IFileIOFactory> factory_;
    PieceAllocator allocator_{nullptr};
    Released<File> file_;
    bool opened_ = false;
};

using FactoryFile = FactoryObject<IFileIO, &IFileIOFactory::CreateFileIO, 1>;
using FactoryStream = FactoryObject<IStreamFileIO, &IFileIOFactory::CreateStreamFileIO, 0>;

}  // namespace kmxf
