// byte_source: the bytes of a Java property file, from memory or from a stream.
#pragma once

#include <stddef.h>
#include <stdio.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace zjava {

// Most bytes are copied unchanged, many at a time. The bytes that end such a run:
enum RunEnd : unsigned char { kNoRun = 0, kEndsComment = 1, kEndsKey = 2, kEndsValue = 4 };

constexpr std::array<unsigned char, 256> makeRunEnds()
{
    std::array<unsigned char, 256> ends = {};
    ends['\n'] = ends['\r'] = kEndsComment | kEndsKey | kEndsValue;
    ends['\\'] = kEndsKey | kEndsValue;
    for (unsigned char c : {'\t', '\v', '\f', ' ', ':', '='})
        ends[c] = kEndsKey;
    return ends;
}

inline constexpr std::array<unsigned char, 256> kRunEnds = makeRunEnds();
inline constexpr ptrdiff_t kMaxRun = 1 << 30;

class MemoryBytes {
public:
    static constexpr bool kIsInMemory = true;

    explicit MemoryBytes(std::string_view text)
        : text_(text), at_(text.data()), end_(text.data() + text.size())
    {
    }

    std::string_view text() const { return text_; }
    size_t position() const { return static_cast<size_t>(at_ - text_.data()); }
    void setPosition(size_t position) { at_ = text_.data() + position; }

    int next() { return at_ != end_ ? static_cast<unsigned char>(*at_++) : EOF; }
    bool failed() const { return false; }

    // Reads the bytes before the next byte in `ends`.
    std::string_view run(unsigned char ends)
    {
        char const* const begin = at_;
        char const* const limit = at_ + std::min<ptrdiff_t>(end_ - at_, kMaxRun);
        while (at_ != limit && (kRunEnds[static_cast<unsigned char>(*at_)] & ends) == 0)
            ++at_;
        return {begin, static_cast<size_t>(at_ - begin)};
    }

private:
    std::string_view const text_;
    char const* at_;
    char const* const end_;
};

// Reads no byte ahead: the caller can continue to read after the stop key.
class StreamBytes {
public:
    static constexpr bool kIsInMemory = false;

    explicit StreamBytes(FILE* stream) : stream_(stream) { flockfile(stream); }
    StreamBytes(StreamBytes const&) = delete;
    StreamBytes& operator=(StreamBytes const&) = delete;
    ~StreamBytes() { funlockfile(stream_); }

    int next() { return getc_unlocked(stream_); }
    bool failed() const { return ferror_unlocked(stream_) != 0; }
    std::string_view run(unsigned char) { return {}; }

private:
    FILE* const stream_;
};

}  // namespace zjava
