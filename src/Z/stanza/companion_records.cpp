#include "companion_records.h"

#include "raise_sites.h"

namespace zstanza {

namespace {

// zlib expands a stream to at most 1,032 times its size, and a little for its header. A stream that
// expands to more than 256 MiB is treated as an attack.
constexpr size_t kMaxExpansion = 1032;
constexpr size_t kExpansionSlack = 4096;
constexpr size_t kMaxExpandedSize = size_t{256} << 20;

constexpr int kNoMemory = -4;  // codes of ZSqueeze_6_0
constexpr int kBufferTooSmall = -5;

size_t maxExpandedSize(size_t compressed)
{
    size_t const maximum = compressed * kMaxExpansion + kExpansionSlack;
    return maximum < kMaxExpandedSize ? maximum : kMaxExpandedSize;
}

// Counts the records in `length` bytes. Returns false if the bytes are not a sequence of records.
bool countRecords(char const* text, size_t length, size_t& records)
{
    char const* at = text;
    char const* const end = text + length;
    for (records = 0; at != end; ++records) {
        for (int i = 0; i < 3; ++i) {  // category, key, value
            auto const* const zero =
                static_cast<char const*>(memchr(at, '\0', static_cast<size_t>(end - at)));
            if (zero == nullptr)
                return false;
            at = zero + 1;
        }
        if (at == end || *at != '\0')
            return false;
        ++at;
    }
    return true;
}

}  // namespace

CompanionReader::CompanionReader(char const* path, ZBuffer_6_0& buffer) : refusal_(path, "", 0)
{
    unsigned long const compressed = buffer.getLength();
    squeeze_.setSource(static_cast<unsigned char*>(buffer.getBuffer()), compressed);
    maxSize_ = maxExpandedSize(compressed);
    // Not 0, because expandInto() doubles it.
    capacity_ =
        compressed < (maxSize_ - kExpansionSlack) / 8 ? compressed * 8 + kExpansionSlack : maxSize_;
}

// Decompresses into `bytes`. If capacity_ is too small, increases it and returns false.
bool CompanionReader::expandInto(char* bytes)
{
    int const length = squeeze_.unsqueeze(reinterpret_cast<unsigned char*>(bytes), capacity_);
    if (length == kBufferTooSmall && capacity_ != maxSize_) {
        capacity_ = capacity_ < maxSize_ / 2 ? capacity_ * 2 : maxSize_;
        return false;
    }
    if (length == kNoMemory)
        throwOutOfMemory();
    if (length < 0)
        refusal_.throwException(kSource, raiseInExpand);
    length_ = static_cast<size_t>(length);
    return true;
}

size_t CompanionReader::countRecords(char* bytes, size_t& records)
{
    bytes[length_] = '\0';
    // Some writers do not omit the last zero byte. The bytes cannot be valid records both with and
    // without the appended byte.
    if (!zstanza::countRecords(bytes, length_ + 1, records) &&
        !zstanza::countRecords(bytes, length_, records))
        refusal_.throwException(kSource, raiseAtRecord);
    return length_ + 1;
}

void CompanionWriter::add(std::string_view category, std::string_view key, std::string_view value)
{
    records_.add(category);
    records_.add("\0");
    records_.add(key);
    records_.add("\0");
    records_.add(value);
    records_.add("\0\0");
    if (records_.length() - 1 > kMaxExpandedSize)
        refusal_.throwException(kSource, raiseInCompress);
}

void CompanionWriter::compress(ZBuffer_6_0& buffer)
{
    if (records_.length() == 0) {
        buffer.setLength(0);
        return;
    }
    size_t const length = records_.length() - 1;

    ZSqueeze_6_0 squeeze;
    squeeze.setSource(
        const_cast<unsigned char*>(reinterpret_cast<unsigned char const*>(records_.chars())),
        length);
    ZBuffer_6_0 compressed;
    int result = kBufferTooSmall;
    for (size_t capacity = length * 2;
         result == kBufferTooSmall && capacity <= kMaxExpandedSize * 4; capacity *= 2) {
        compressed.setLength(capacity);
        result = squeeze.squeeze(static_cast<unsigned char*>(compressed.getBuffer()), capacity);
    }
    if (result == kNoMemory)
        throwOutOfMemory();
    if (result < 0)
        refusal_.throwException(kSource, raiseInCompress);
    compressed.setLength(static_cast<unsigned long>(result));
    unsigned long taken = 0;
    void* bytes = nullptr;
    compressed.takeBuffer(taken, bytes);
    buffer.setBufferNoCopy(taken, bytes);
}

}  // namespace zstanza
