#include "journal.h"

#include <string.h>

#include <algorithm>

namespace zstore {

namespace {

constexpr char kMagic[] = "ZSTORE2\n";
constexpr size_t kHeaderSize = 80;
constexpr uint64_t kNone = ~uint64_t{0};

void putNumber(std::string& out, uint64_t number, size_t bytes)
{
    for (size_t i = 0; i < bytes; ++i)
        out += static_cast<char>(number >> (8 * i));
}

uint64_t getNumber(char const* from, size_t bytes)
{
    uint64_t number = 0;
    for (size_t i = bytes; i-- > 0;)
        number = number << 8 | static_cast<unsigned char>(from[i]);
    return number;
}

uint32_t storedChecksum(uint32_t crc)
{
    return crc != 0 ? crc : 1;
}

bool consistsOf(std::string_view text, std::string_view front, std::string_view back)
{
    return text.size() == front.size() + back.size() && text.starts_with(front) &&
           text.ends_with(back);
}

// Splits a buffer into views, from its start.
class Reader {
public:
    explicit Reader(std::string_view rest) : rest_(rest) {}

    bool take(uint64_t length, std::string_view& view)
    {
        if (length > rest_.size())
            return false;
        view = rest_.substr(0, static_cast<size_t>(length));
        rest_ = dropPrefix(rest_, view.size());
        return true;
    }

    bool isAtEnd() const { return rest_.empty(); }

private:
    std::string_view rest_;
};

}  // namespace

std::string Journal::header() const
{
    std::string out(kMagic, sizeof kMagic - 1);
    putNumber(out, diff.prefix, 8);
    putNumber(out, diff.suffix, 8);
    putNumber(out, diff.oldMiddle.size(), 8);
    putNumber(out, diff.newMiddle.size(), 8);
    putNumber(out, diff.moved.size(), 8);
    putNumber(out, newIsNone ? kNone : newCompanion.size(), 8);
    putNumber(out, oldIsNone ? kNone : oldLength, 8);
    putNumber(out, oldChecksum, 4);
    putNumber(out, prefixChecksum, 4);
    putNumber(out, suffixChecksum, 4);
    putNumber(out, companion.size(), 4);
    return out + companion;
}

std::string Journal::trailer(uint32_t crc)
{
    std::string out;
    putNumber(out, storedChecksum(crc), kChecksumSize);
    return out;
}

bool Journal::parse()
{
    char const* const data = bytes.data();
    size_t length = bytes.length();
    if (length < kHeaderSize + kChecksumSize || memcmp(data, kMagic, sizeof kMagic - 1) != 0)
        return false;
    length -= kChecksumSize;
    if (getNumber(data + length, kChecksumSize) != storedChecksum(checksum({data, length})))
        return false;
    diff.prefix = getNumber(data + 8, 8);
    diff.suffix = getNumber(data + 16, 8);
    uint64_t const oldSize = getNumber(data + 24, 8);
    uint64_t const newSize = getNumber(data + 32, 8);
    uint64_t const movedSize = getNumber(data + 40, 8);
    uint64_t const companionSize = getNumber(data + 48, 8);
    oldLength = getNumber(data + 56, 8);
    oldChecksum = static_cast<uint32_t>(getNumber(data + 64, 4));
    prefixChecksum = static_cast<uint32_t>(getNumber(data + 68, 4));
    suffixChecksum = static_cast<uint32_t>(getNumber(data + 72, 4));
    uint64_t const pathSize = getNumber(data + 76, 4);
    newIsNone = companionSize == kNone;
    oldIsNone = oldLength == kNone;

    Reader reader({data + kHeaderSize, length - kHeaderSize});
    std::string_view path;
    if (!reader.take(pathSize, path) || !reader.take(oldSize, diff.oldMiddle) ||
        !reader.take(newSize, diff.newMiddle) || !reader.take(movedSize, diff.moved) ||
        !reader.take(newIsNone ? 0 : companionSize, newCompanion) || !reader.isAtEnd() ||
        (diff.suffix != 0 && oldSize != newSize))
        return false;
    companion = path;
    return companion.find('\0') == std::string::npos;
}

bool Journal::describesCompanion(bool present, std::string_view contents) const
{
    bool const isOldOne =
        oldIsNone ? !present
                  : present && contents.size() == oldLength && checksum(contents) == oldChecksum;
    if (isOldOne || (newIsNone && (!present || contents.empty())))
        return true;
    if (newIsNone || !present || contents.size() > newCompanion.size())
        return false;
    for (size_t i = 0; i < contents.size(); ++i)
        if (contents[i] != newCompanion[i] && contents[i] != '\0')
            return false;
    return true;
}

bool Journal::isPartialRewrite(std::string_view text) const
{
    if (text.size() < diff.prefix || text.size() - diff.prefix < diff.suffix)
        return false;
    size_t const length = text.size() - diff.prefix - diff.suffix;
    size_t const oldSize = diff.oldMiddle.size() + diff.moved.size();
    size_t const newSize = diff.newMiddle.size() + diff.moved.size();
    size_t const shorter = std::min(oldSize, newSize);
    if (length < shorter || length > std::max(oldSize, newSize) ||
        quickChecksum({text.data(), diff.prefix}) != prefixChecksum ||
        quickChecksum(dropPrefix(text, text.size() - diff.suffix)) != suffixChecksum)
        return false;
    char const* const middle = text.data() + diff.prefix;
    auto const has = [this](std::string_view side, size_t i, char c) {
        if (i < side.size())
            return c == side[i];
        i -= side.size();
        return i < diff.moved.size() && c == diff.moved[i];
    };
    for (size_t i = 0; i < length; ++i)
        if (!has(diff.oldMiddle, i, middle[i]) && !has(diff.newMiddle, i, middle[i]) &&
            (i < shorter || middle[i] != '\0'))
            return false;
    return true;
}

bool Journal::isOld(std::string_view text) const
{
    return !diff.isEmpty() && consistsOf(diff.rewritten(text), diff.oldMiddle, diff.moved);
}

bool Journal::isNew(std::string_view text) const
{
    return consistsOf(diff.rewritten(text), diff.newMiddle, diff.moved);
}

Bytes Journal::newText(std::string_view text) const
{
    std::string_view const parts[] = {text.substr(0, diff.prefix), diff.newMiddle, diff.moved,
                                      dropPrefix(text, text.size() - diff.suffix)};
    size_t length = 0;
    for (std::string_view const& part : parts)
        length += part.size();
    Bytes result(length);
    char* at = result.data();
    for (std::string_view const& part : parts) {
        if (!part.empty())
            memcpy(at, part.data(), part.size());
        at += part.size();
    }
    return result;
}

}  // namespace zstore
