#include "ZBuffer.h"

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <typeinfo>
#include <utility>

#include "ZException.h"
#include "memory/malloc_ptr.h"

namespace {

constexpr char kSource[] = "src/Z/ZBuffer";
constexpr size_t kForeign = SIZE_MAX;

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseInSetLength = 143 };

}  // namespace

ZAbstractBuffer_6_0::~ZAbstractBuffer_6_0() = default;

int ZAbstractBuffer_6_0::compare(ZObject_6_0 const& other) const
{
    auto const* const buffer = dynamic_cast<ZAbstractBuffer_6_0 const*>(&other);
    if (buffer == nullptr)
        return ZObject_6_0::compare(other);
    unsigned long const length = getLength();
    unsigned long const theirLength = buffer->getLength();
    if (length != theirLength)
        return length < theirLength ? -1 : 1;
    void const* const data = getBuffer();
    void const* const theirData = buffer->getBuffer();
    return length == 0 || data == theirData ? 0 : memcmp(data, theirData, length);
}

ZConstBuffer_6_0::ZConstBuffer_6_0() : length_(0), data_(nullptr)
{
}

ZConstBuffer_6_0::ZConstBuffer_6_0(unsigned long length, void* data) : length_(length), data_(data)
{
}

ZConstBuffer_6_0::ZConstBuffer_6_0(ZConstBuffer_6_0 const& source) = default;

ZConstBuffer_6_0& ZConstBuffer_6_0::operator=(ZConstBuffer_6_0 const& source)
{
    setBuffer(source.length_, source.data_);
    return *this;
}

ZConstBuffer_6_0::~ZConstBuffer_6_0() = default;

ZObject_6_0* ZConstBuffer_6_0::clone() const
{
    return new ZConstBuffer_6_0(*this);
}

void ZConstBuffer_6_0::setLength(unsigned long length)
{
    length_ = length;
}

void ZConstBuffer_6_0::setBuffer(unsigned long length, void* data)
{
    length_ = length;
    data_ = data;
}

unsigned long ZConstBuffer_6_0::getLength() const
{
    return length_;
}

void* ZConstBuffer_6_0::getBuffer() const
{
    return data_;
}

void ZConstBuffer_6_0::takeBuffer(unsigned long& length, void*& data)
{
    length = std::exchange(length_, 0);
    data = std::exchange(data_, nullptr);
}

ZBuffer_6_0::ZBuffer_6_0() : length_(0), data_(nullptr), room_(0)
{
}

ZBuffer_6_0::ZBuffer_6_0(unsigned long length, void* data) : ZBuffer_6_0()
{
    ZBuffer_6_0::setBuffer(length, data);
}

ZBuffer_6_0::ZBuffer_6_0(char const* text) : ZBuffer_6_0()
{
    ZBuffer_6_0::setBuffer(const_cast<char*>(text));
}

ZBuffer_6_0::ZBuffer_6_0(ZBuffer_6_0 const& source) : ZBuffer_6_0(source.length_, source.data_)
{
}

ZBuffer_6_0& ZBuffer_6_0::operator=(ZBuffer_6_0 const& source)
{
    setBuffer(source.length_, source.data_);
    return *this;
}

ZBuffer_6_0::~ZBuffer_6_0()
{
    free(data_);
}

ZObject_6_0* ZBuffer_6_0::clone() const
{
    return new ZBuffer_6_0(*this);
}

void ZBuffer_6_0::setLength(unsigned long length)
{
    if (length == 0) {
        free(std::exchange(data_, nullptr));
        room_ = 0;
    } else if (length > length_) {
        // Buffers are written to files, which must not contain stale bytes of the heap.
        memset(static_cast<char*>(roomFor(length)) + length_, 0, length - length_);
    }
    length_ = length;
}

void ZBuffer_6_0::setBuffer(unsigned long length, void* data)
{
    // The offset of `data` in the block, which stays valid if growing moves the block.
    uintptr_t const offset = reinterpret_cast<uintptr_t>(data) - reinterpret_cast<uintptr_t>(data_);
    bool const inside = data != nullptr && data_ != nullptr && offset < room_;
    unsigned long const given = inside ? std::min(length, room_ - offset) : length;

    if (typeid(*this) != typeid(ZBuffer_6_0)) {
        setBufferOfDerived(length, data, inside ? offset : kForeign);
        return;
    }
    if (length == 0) {
        setLength(0);
        return;
    }
    char* const bytes = static_cast<char*>(roomFor(length));
    length_ = length;
    if (inside) {
        memmove(bytes, bytes + offset, given);
        memset(bytes + given, 0, length - given);
    } else if (data != nullptr) {
        memcpy(bytes, data, length);
    } else {
        memset(bytes, 0, length);
    }
}

void ZBuffer_6_0::setBuffer(char* text)
{
    if (text == nullptr)
        setLength(0);
    else
        setBuffer(strlen(text) + 1, text);
}

void ZBuffer_6_0::setBufferNoCopy(unsigned long length, void* data)
{
    if (data != data_)
        setLength(0);
    data_ = data;
    length_ = data != nullptr ? length : 0;
    room_ = std::max(room_, length_);  // room_ is not 0 if `data` is this buffer's own block
}

unsigned long ZBuffer_6_0::getLength() const
{
    return length_;
}

void* ZBuffer_6_0::getBuffer() const
{
    return data_;
}

void ZBuffer_6_0::takeBuffer(unsigned long& length, void*& data)
{
    length = std::exchange(length_, 0);
    data = std::exchange(data_, nullptr);
    room_ = 0;
}

// setBuffer() for a derived class, whose setLength() decides the length and may move or clear the
// block: copies bytes of the own block, at `offset`, before it calls setLength().
void ZBuffer_6_0::setBufferOfDerived(unsigned long length, void const* data, size_t offset)
{
    zmemory::MallocPtr<void> own;
    unsigned long given = length;
    if (offset != kForeign && length != 0) {
        given = std::min(length, room_ - offset);
        own.reset(malloc(given));
        if (own == nullptr)
            ZOutOfMemoryException_6_0().throwException(kSource, raiseInSetLength);
        data = memcpy(own.get(), data, given);
    }
    setLength(length);
    if (length_ == 0)
        return;
    given = data != nullptr ? std::min(given, length_) : 0;
    if (given != 0)
        memcpy(data_, data, given);
    memset(static_cast<char*>(data_) + given, 0, length_ - given);
}

// Returns the block, reallocated if it has less than `length` bytes. Keeps its contents.
void* ZBuffer_6_0::roomFor(unsigned long length)
{
    if (length > room_) {
        void* const grown = realloc(data_, length);
        if (grown == nullptr)
            ZOutOfMemoryException_6_0().throwException(kSource, raiseInSetLength);
        data_ = grown;
        room_ = length;
    }
    return data_;
}
