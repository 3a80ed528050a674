#include "companion_records.h"

#include "raise_sites.h"

namespace zstanza {

namespace {

// A zlib stream expands to at most 1,032 times its size, and a little for its head. What expands to
// more than the limit is taken for an attack.
constexpr size_t kMostExpansion = 1032;
constexpr size_t kExpansionSlack = 4096;
constexpr size_t kMostUnpacked = size_t{256} << 20;

constexpr int kNoMemory = -4;  // codes of ZSqueeze_6_0
constexpr int kNoRoom = -5;

// Returns how many bytes `packed` may expand to.
size_t mostUnpacked(size_t packed)
{
    size_t const most = packed * kMostExpansion + kExpansionSlack;
    return most < kMostUnpacked ? most : kMostUnpacked;
}

// Counts the records that fill the first `length` bytes of `text`. Returns false if other bytes are
// among them.
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
    unsigned long const packed = buffer.getLength();
    squeeze_.setSource(static_cast<unsigned char*>(buffer.getBuffer()), packed);
    most_ = mostUnpacked(packed);
    // Never 0, which doubling would leave at 0.
    room_ = packed < (most_ - kExpansionSlack) / 8 ? packed * 8 + kExpansionSlack : most_;
}

// Expands into `bytes`. Returns false when they are too few and more may be tried.
bool CompanionReader::expandInto(char* bytes)
{
    int const length = squeeze_.unsqueeze(reinterpret_cast<unsigned char*>(bytes), room_);
    if (length == kNoRoom && room_ != most_) {
        room_ = room_ < most_ / 2 ? room_ * 2 : most_;
        return false;
    }
    if (length == kNoMemory)
        raiseOutOfMemory();
    if (length < 0)
        refusal_.throwException(kSource, raiseInUnpack);
    length_ = static_cast<size_t>(length);
    return true;
}

size_t CompanionReader::countRecords(char* bytes, size_t& records)
{
    bytes[length_] = '\0';
    // Other writers may write the last zero byte. The same bytes are never records with the byte
    // that was put behind them and without it.
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
    if (records_.length() - 1 > kMostUnpacked)
        refusal_.throwException(kSource, raiseInPack);
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
    ZBuffer_6_0 packed;
    int result = kNoRoom;
    for (size_t room = length * 2; result == kNoRoom && room <= kMostUnpacked * 4; room *= 2) {
        packed.setLength(room);
        result = squeeze.squeeze(static_cast<unsigned char*>(packed.getBuffer()), room);
    }
    if (result == kNoMemory)
        raiseOutOfMemory();
    if (result < 0)
        refusal_.throwException(kSource, raiseInPack);
    packed.setLength(static_cast<unsigned long>(result));
    unsigned long taken = 0;
    void* bytes = nullptr;
    packed.takeBuffer(taken, bytes);
    buffer.setBufferNoCopy(taken, bytes);
}

}  // namespace zstanza
