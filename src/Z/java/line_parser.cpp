#include "line_parser.h"

#include <algorithm>
#include <array>
#include <bit>

#include "../zqvrutil.h"
#include "byte_source.h"
#include "byte_vector.h"
#include "characters.h"

namespace zjava {

namespace {

constexpr uint32_t kFirstHash = 5381;

constexpr uint32_t hashedWith(uint32_t hash, char c)
{
    return (hash * 33) ^ static_cast<unsigned char>(c);
}

constexpr std::array<bool, 256> makeKeyEnds()
{
    std::array<bool, 256> ends = {};
    for (size_t c = 0; c < ends.size(); ++c)
        ends[c] = c == 0 || (kRunEnds[c] & kEndsKey) != 0;
    return ends;
}

constexpr std::array<bool, 256> kKeyEnds = makeKeyEnds();

bool endsKey(char c)
{
    return kKeyEnds[static_cast<unsigned char>(c)];
}

constexpr std::array<signed char, 256> makeDigits()
{
    std::array<signed char, 256> digits = {};
    digits.fill(-1);
    for (int i = 0; i < 10; ++i)
        digits[static_cast<size_t>('0' + i)] = static_cast<signed char>(i);
    for (int i = 0; i < 6; ++i) {
        digits[static_cast<size_t>('a' + i)] = static_cast<signed char>(10 + i);
        digits[static_cast<size_t>('A' + i)] = static_cast<signed char>(10 + i);
    }
    return digits;
}

constexpr std::array<signed char, 256> kDigits = makeDigits();

int digitAt(char const* at)
{
    return kDigits[static_cast<unsigned char>(*at)];
}

// Returns the first line ending or `other` from `at` on; `end` without one.
template <char other>
inline char const* endOfRun(char const* at, char const* end)
{
    constexpr ptrdiff_t kSize = sizeof(ByteVector);
    for (; end - at >= kSize; at += kSize) {
        ByteVector const bytes = loadVector(at);
        ptrdiff_t const first = firstFound((bytes == other) | (bytes == '\n') | (bytes == '\r'));
        if (first != kSize)
            return at + first;
    }
    while (at != end && *at != other && !isLineEnd(*at))
        ++at;
    return at;
}

inline char const* endOfComment(char const* at, char const* end)
{
    return endOfRun<'\n'>(at, end);
}

inline char const* endOfValueRun(char const* at, char const* end)
{
    return endOfRun<'\\'>(at, end);
}

inline char const* endOfSpaces(char const* at, char const* end)
{
    while (at != end && isSpace(*at))
        ++at;
    return at;
}

}  // namespace

void LineParser::Decoded::grow(size_t count)
{
    constexpr size_t kFirstCapacity = 256;
    size_t const capacity = std::max(2 * (length_ + count), kFirstCapacity);
    std::unique_ptr<char[]> chars(new char[capacity]);
    std::copy_n(chars_.get(), length_, chars.get());
    chars_.swap(chars);
    capacity_ = capacity;
}

// Returns the byte after the line ending before `at` and the line endings that pair with it. Each
// of them pairs with the byte before it.
inline char const* LineParser::endOfPair(char const* at) const
{
    while (at != end_ && at != begin_ && isLineEnd(*at) && isLineEnd(at[-1]) && *at != at[-1])
        ++at;
    return at;
}

inline LineParser::Line LineParser::skipTo(char const* at)
{
    at_ = endOfPair(at);
    return Line::empty;
}

// Returns the length of the common prefix of the key at `at` and the key before. None of its bytes
// ends a key, and their hashes are known.
inline uint32_t LineParser::commonPrefix(char const* at) const
{
    size_t const most = std::min(prefix_.size(), static_cast<size_t>(end_ - at));
    size_t common = 0;
    if constexpr (std::endian::native == std::endian::little) {
        for (uint64_t words[2]; most - common >= sizeof words[0]; common += sizeof words[0]) {
            memcpy(&words[0], at + common, sizeof words[0]);
            memcpy(&words[1], prefix_.data() + common, sizeof words[1]);
            if (words[0] != words[1])
                return static_cast<uint32_t>(common) +
                       static_cast<uint32_t>(std::countr_zero(words[0] ^ words[1])) / 8;
        }
    }
    while (common < most && at[common] == prefix_[common])
        ++common;
    return static_cast<uint32_t>(common);
}

LineParser::Line LineParser::readKey()
{
    at_ = endOfPair(at_);
    char const* at = endOfSpaces(at_, end_);
    if (at == end_)
        return Line::refused;
    if (isLineEnd(*at))
        return skipTo(at + 1);
    if (isComment(*at)) {
        at = endOfComment(at, end_);
        return at == end_ ? Line::refused : skipTo(at + 1);
    }
    if (*at == '\0' || (at != at_ && isSeparator(*at)))
        return Line::refused;

    char const* begin = at;
    uint32_t hash = kFirstHash;
    uint32_t const common = commonPrefix(at);
    if (common > 0)
        hash = prefixHashes_[common - 1];
    else
        hash = prefixHashes_[0] = hashedWith(hash, *at);
    at += std::max(common, 1u);
    bool isDecoded = false;
    for (;;) {
        char const* const end = end_;
        if (!isDecoded) {
            char const* const last = begin + std::min<ptrdiff_t>(end - begin, kMaxPrefix);
            for (; at < last && !endsKey(*at); ++at)
                prefixHashes_[at - begin] = hash = hashedWith(hash, *at);
            prefix_ = {begin, static_cast<size_t>(std::min(at, last) - begin)};
        }
        for (; at != end && !endsKey(*at); ++at)
            hash = hashedWith(hash, *at);
        if (at == end_)
            return Line::refused;
        if (*at != '\\')
            break;
        if (!isDecoded)
            decodedKey_.clear();
        isDecoded = true;
        decodedKey_.appendRun(begin, static_cast<size_t>(at - begin), end_);
        begin = ++at;
        if (at == end_ || (*at != '\\' && !isSpace(*at) && !isSeparator(*at)))
            return Line::refused;
        hash = hashedWith(hash, *at++);
    }
    auto const length = static_cast<size_t>(at - begin);
    if (isDecoded)
        decodedKey_.appendRun(begin, length, end_);

    at = endOfSpaces(at, end_);
    if (at == end_ || isLineEnd(*at) || *at == '\0')
        return Line::refused;
    if (isSeparator(*at))
        at = endOfSpaces(at + 1, end_);
    valueAt_ = at;
    key_ = isDecoded ? decodedKey_.view() : std::string_view(begin, length);
    hash_ = hash;
    return Line::entry;
}

// Decodes the unit after "u" at `at`. Returns the byte after the unit; null if it is invalid.
inline char const* LineParser::appendUnit(char const* at)
{
    constexpr int kDigitCount = 4;
    constexpr ptrdiff_t kMaxUnit = 3;  // bytes of UTF-8 for 16 bits
    if (end_ - at <= kDigitCount)
        return nullptr;
    ++at;
    int const digits[] = {digitAt(at), digitAt(at + 1), digitAt(at + 2), digitAt(at + 3)};
    if ((digits[0] | digits[1] | digits[2] | digits[3]) < 0)
        return nullptr;
    auto const unit =
        static_cast<uint16_t>(digits[0] << 12 | digits[1] << 8 | digits[2] << 4 | digits[3]);
    uint16_t const* from = &unit;
    char text[kMaxUnit];
    char* end = text;
    if (zconvert_UTF16_to_UTF8_6_0(&from, &unit + 1, &end, text + kMaxUnit) != 0)
        return nullptr;
    if (unit != 0)  // adds nothing, as it ends a string
        decodedValue_.append(text, static_cast<size_t>(end - text));
    return at + kDigitCount;
}

bool LineParser::readValue()
{
    constexpr ptrdiff_t kMaxLine = 1 << 30;  // the length of a string has 32 bits
    endsInEmptyLine_ = false;
    char const* begin = valueAt_;
    char const* at = endOfValueRun(begin, end_);
    if (at == end_ || at - at_ > kMaxLine)
        return false;
    if (*at != '\\') {
        value_ = {begin, static_cast<size_t>(at - begin)};
        skipTo(at + 1);
        return true;
    }
    decodedValue_.clear();
    for (;;) {
        decodedValue_.appendRun(begin, static_cast<size_t>(at - begin), end_);
        if (at == end_ || at - at_ > kMaxLine)
            return false;
        if (*at != '\\')
            break;
        if (++at == end_)
            return false;
        char const c = *at;
        if (c == 'u' || c == 'U') {
            at = appendUnit(at);
            if (at == nullptr)
                return false;
            begin = at;
        } else if (isLineEnd(c)) {
            at = endOfSpaces(endOfPair(at + 1), end_);
            if (at != end_ && isLineEnd(*at)) {
                endsInEmptyLine_ = true;
                break;
            }
            begin = at;
        } else if (c == '\\' || isSpace(c) || c == ':' || c == '"' || c == '\'') {
            begin = at++;
        } else {
            return false;
        }
        at = endOfValueRun(at, end_);
    }
    value_ = decodedValue_.view();
    skipTo(at + 1);
    return true;
}

}  // namespace zjava
