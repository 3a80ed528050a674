#include "java_file.h"

#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <stdio.h>

#include <array>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "failures.h"
#include "raw_file.h"

namespace {

struct Fault {
    char const* text;
    char const* remedy;
};

constexpr Fault kInvalidLine = {"ignored, because it is not an entry",
                                "write KEY = VALUE with valid escapes, or \"#\" at the start"};
constexpr Fault kAfterInvalidLine = {"ignored, because the line before it is not an entry",
                                     "correct that line"};
constexpr Fault kLastLine = {"ignored, because the last line has no newline", "add a newline"};
constexpr Fault kZeroByte = {"the line has a zero byte, which is not stored", "remove it"};
constexpr Fault kComment = {"the comment would be lost", "pass --drop-comments"};

struct CloseStream {
    void operator()(FILE* stream) const { fclose(stream); }
};

// Runs the library's reader on the contents of a file and records the lines that it skips. For that
// it wraps the handler of each reader state. A line that has only a key, which the library skips,
// is an entry with an empty value.
class LossRecorder : public ZJavaProperties_6_0 {
public:
    explicit LossRecorder(std::string& text)
        : text_(text), stream_(fmemopen(text.data(), text.size(), "r"))
    {
        if (stream_ == nullptr)
            throw std::bad_alloc();
        wrapHandlers(std::make_index_sequence<kStates>());
    }

    void run(char const* path)
    {
        loadProperties(stream_.get(), path);
        if (state_ != startLine && state_ != startLineBlanks && state_ != commentLine)
            record(text_.size() - 1, kLastLine);
    }

    std::vector<LostLine> const& lost() const { return lost_; }

private:
    template <size_t... states>
    void wrapHandlers(std::index_sequence<states...>)
    {
        for (int state = 0; state < kStates; ++state)
            libraryHandlers_[state] = handlers_[state];
        ((handlers_[states] =
              libraryHandlers_[states] == nullptr
                  ? nullptr
                  : static_cast<Handler>(&LossRecorder::handle<static_cast<int>(states)>)),
         ...);
    }

    template <int state>
    int handle(char c)
    {
        bool const isKeyAlone =
            (state == keyChars || state == keyEndBlanksFirst) && (c == '\n' || c == '\r');
        int const next = (this->*libraryHandlers_[isKeyAlone ? keyEndBlanksFinal : state])(c);
        bool const isLineStart = state == startLine || state == startLineBlanks;
        if (next == syntaxError)
            record(position(), kInvalidLine);
        else if (c == '\0')
            record(position(), kZeroByte);
        else if (isLineStart && next == commentLine)
            record(position(), kComment);
        // After an error at a line ending the reader skips the next line too.
        if (next == syntaxError && (c == '\n' || c == '\r'))
            recordFollowing();
        state_ = next == syntaxError ? commentLine : next;
        return next;
    }

    // Returns the offset of the byte that was read last.
    size_t position() const { return static_cast<size_t>(ftell(stream_.get())) - 1; }

    size_t lineStart(size_t at) const
    {
        size_t const lineEnd = at == 0 ? text_.npos : text_.find_last_of("\r\n", at - 1);
        return lineEnd == text_.npos ? 0 : lineEnd + 1;
    }

    // Records the next line. The reader takes a run of alternating "\r" and "\n" as one line
    // ending.
    void recordFollowing()
    {
        size_t next = position() + 1;
        while (next < text_.size() && text_[next - 1] != text_[next] &&
               (text_[next] == '\n' || text_[next] == '\r'))
            ++next;
        if (next < text_.size())
            record(next, kAfterInvalidLine);
    }

    // Records the line that contains the byte at `at`, once, unless the line is empty.
    void record(size_t at, Fault const& fault)
    {
        size_t const start = lineStart(at);
        while (counted_ < start) {
            char const c = text_[counted_++];
            if (c == '\n' || (c == '\r' && text_[counted_] != '\n'))
                ++number_;
        }
        size_t const end = std::min(text_.find_first_of("\r\n", start), text_.size());
        std::string const line = text_.substr(start, end - start);
        bool const isComment = &fault == &kComment;
        if (line.find_first_not_of(isComment ? " \t\v\f#!" : " \t\v\f") == line.npos)
            return;
        if (lost_.empty() || lost_.back().number != number_)
            lost_.push_back({number_, line, {fault.text, fault.remedy}, isComment});
    }

    std::string const& text_;
    std::unique_ptr<FILE, CloseStream> const stream_;
    std::array<Handler, kStates> libraryHandlers_ = {};
    int state_ = startLine;  // after the byte that was read last
    size_t counted_ = 0;     // number_ includes the line endings before this offset
    size_t number_ = 1;
    std::vector<LostLine> lost_;
};

std::string toStdString(ZAbstractString_6_0 const& string)
{
    return std::string(string.getChars(), string.getLength());
}

std::map<std::string, std::string> readEntries(ZJavaProperties_6_0 const& store)
{
    std::map<std::string, std::string> entries;
    ZArrayList_6_0 keys(64, 1);
    store.listKeys(keys);
    for (unsigned i = 0; i < keys.size(); ++i) {
        auto const& key = static_cast<ZAbstractString_6_0 const&>(*keys.get(i));
        ZUTF8String_6_0 value;
        store.getValue(key, value);
        entries[toStdString(key)] = toStdString(value);
    }
    return entries;
}

bool isOneOf(char c, char const* characters)
{
    return std::string_view(characters).find(c) != std::string_view::npos;
}

}  // namespace

bool isJavaKey(std::string const& key)
{
    if (key.empty() || isOneOf(key[0], " \t\v\f#!\n\r"))
        return false;
    return key.find_first_of(kEndsOfJavaKeys, 1) == key.npos;
}

namespace {

// Returns the length of the UTF-8 character at the start of `text`; 0 if it would not read back:
// DEL, a character of four bytes, and invalid or overlong sequences.
size_t javaCharacterLength(std::string_view text)
{
    auto const byte = [text](size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u;
    };
    auto const isContinuation = [byte](size_t i) { return (byte(i) & 0xC0u) == 0x80u; };
    if (byte(0) < 0x7F)
        return 1;
    if (byte(0) >= 0xC2 && byte(0) <= 0xDF && isContinuation(1))
        return 2;
    if (byte(0) >= 0xE0 && byte(0) <= 0xEF && isContinuation(1) && isContinuation(2) &&
        (byte(0) > 0xE0 || byte(1) >= 0xA0))
        return 3;
    return 0;
}

// Returns the problem of a value that would not read back; empty if the value is valid.
std::optional<Problem> describeInvalidValue(std::string const& value)
{
    if (!value.empty() && isOneOf(value[0], " \t\v\f"))
        return Problem{"starts with whitespace, which is not read back", "remove it"};
    if (value.find_first_of("\n\r") != value.npos)
        return Problem{"has a line ending, which is not stored in a Java file", "use one line"};
    for (size_t i = 0; i < value.size();) {
        size_t const length = javaCharacterLength(std::string_view(value).substr(i));
        if (length == 0)
            return Problem{"has a character that is not stored in a Java file",
                           "use UTF-8 characters up to U+FFFF other than DEL"};
        i += length;
    }
    return {};
}

// Returns the problem of a file that starts with a byte order mark; empty if `bytes` do not.
std::optional<Problem> describeByteOrderMark(std::string_view bytes)
{
    if (bytes.starts_with("\xEF\xBB\xBF"))
        return Problem{"the file starts with a byte order mark", "save it as UTF-8 without one"};
    if (bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF"))
        return Problem{"the file is UTF-16", "save it as UTF-8 without a byte order mark"};
    return {};
}

}  // namespace

JavaFile::JavaFile(std::string const& path)
{
    ZJavaProperties_6_0 store;
    try {
        store.load(path.c_str());
    } catch (ZUnexpectedEndOfFile_6_0 const&) {
        throw describe(std::current_exception(), path);  // the exception has no path
    }
    std::string text = readText(path, 0);
    if (text.empty())
        return;
    LossRecorder reader(text);
    reader.run(path.c_str());
    entries_ = readEntries(reader);
    lost_ = reader.lost();
    // The first key includes the mark, which would be stored with it, not at the start of the file.
    if (auto const problem = describeByteOrderMark(text)) {
        if (!lost_.empty() && lost_.front().number == 1)
            lost_.erase(lost_.begin());
        lost_.insert(lost_.begin(),
                     {1, text.substr(0, text.find_first_of("\r\n")), *problem, false});
    }
}

Failure describeLostLine(ExitCode code, std::string const& path, LostLine const& line)
{
    return {code,
            nameLine(path, line.number),
            {quote(line.text) + ": " + line.problem.text, line.problem.remedy}};
}

void checkJavaEntry(std::string const& path, std::string const& key, std::string const& value)
{
    if (!isJavaKey(key))
        throw Failure{exitInvalidValue,
                      path,
                      {"invalid key " + quote(key) + " of a Java file",
                       "use no whitespace, \"=\", \":\" or backslash, and no \"#\" or \"!\" at the "
                       "start"}};
    if (auto const problem = describeInvalidValue(value))
        throw Failure{
            exitInvalidValue,
            path,
            {"key " + quote(key) + ": " + quote(value) + " " + problem->text, problem->remedy}};
}

void storeJavaFile(std::string const& path, std::map<std::string, std::string> const& entries)
{
    ZJavaProperties_6_0 store;
    for (auto const& [key, value] : entries)
        store.setValue(ZUTF8String_6_0(key.c_str()), ZUTF8String_6_0(value.c_str()));
    store.store(path.c_str());

    ZJavaProperties_6_0 stored;
    stored.load(path.c_str());
    if (readEntries(stored) != entries)
        throw Failure{exitInternal, path, {"does not read back unchanged", "please report it"}};
}
