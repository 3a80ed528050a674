// The text of a stanza file, and its companion file.

#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include "ZBuffer.h"
#include "ZException.h"
#include "ZPropertiesImpl_p.h"
#include "ZSqueeze.h"

using cache::Arena;
using cache::Id;
using cache::Line;
using cache::Reader;
using cache::Spaces;
using cache::Store;
using cache::TextBuffer;

namespace {

constexpr char kSource[] = "src/Z/ZPropertiesImpl";

// The number each raise site puts into its report. Log scanners match on it, so it belongs
// to the site and does not follow the line when the file is edited.
enum RaiseSite {
    raiseInRead = 71,
    raiseAtLine = 72,
    raiseInWrite = 81,
    raiseInUnpack = 91,
    raiseAtRecord = 92,
    raiseInPack = 95,
};

constexpr char kCompanionCategory[] = "configuration-database";
constexpr char kCompanionKey[] = "file";

// What a line is read into takes so many bytes of it, and a zero byte.
constexpr size_t kMostOfLine = cache::kLineRoom - 1;

constexpr size_t kFirstRead = 1 << 16;

// A zlib stream expands to at most 1,032 times its size, and a little for its head. What expands to
// more than the limit is taken for an attack.
constexpr size_t kMostExpansion = 1032;
constexpr size_t kExpansionSlack = 4096;
constexpr size_t kMostUnpacked = size_t{256} << 20;

constexpr int kNoMemory = -4;  // codes of ZSqueeze_6_0
constexpr int kNoRoom = -5;

// Reads `file` to its end. Returns the number of bytes; the block has room for one more.
size_t readAll(char const* path, FILE* file, Arena::Block& block)
{
    struct stat status;
    bool const isSized = fileno(file) >= 0 && fstat(fileno(file), &status) == 0 &&
                         S_ISREG(status.st_mode) && status.st_size > 0;
    // Two more than a file of that size needs: one to see its end, one for the last zero byte.
    block.setRoom(isSized ? static_cast<size_t>(status.st_size) + 2 : kFirstRead);
    size_t length = 0;
    clearerr(file);  // an error of before is not one of this reading
    for (;;) {
        errno = 0;
        length += fread(block.chars() + length, 1, block.room() - 1 - length, file);
        if (ferror(file) && errno == EINTR)
            clearerr(file);
        else if (ferror(file))
            ZPropertiesIOException_6_0(path, "fgets()", errno).throwException(kSource, raiseInRead);
        else if (feof(file))
            return length;
        else
            block.setRoom(block.room() * 2);
    }
}

// Cuts a text into lines as fgets() does with a buffer of 8192 bytes: a line feed ends a line, and
// so do 8191 bytes; what follows a zero byte in a line is lost.
class LineCutter {
public:
    LineCutter(char* text, size_t length)
        : next_(text), end_(text + length), hasZero_(memchr(text, '\0', length) != nullptr)
    {
    }

    // Stores the next line and returns true; false behind the last one.
    bool next(char*& line, size_t& length)
    {
        if (next_ == end_)
            return false;
        ++number_;
        line = next_;
        size_t const left = static_cast<size_t>(end_ - next_);
        size_t const most = left < kMostOfLine ? left : kMostOfLine;
        auto* const feed = static_cast<char*>(memchr(next_, '\n', most));
        length = feed == nullptr ? most : static_cast<size_t>(feed - next_);
        // KEPT: a line feed right behind 8191 bytes is a line of its own, a blank one: programs
        // that read the same files with fgets() see it so. Test:
        // ZPropertiesImpl.KeepsTheLineFeedOfATornLineAsABlankLine
        next_ = feed == nullptr ? next_ + most : feed + 1;
        // Without a line feed, and before the end, the byte behind the line is the next line's.
        isTorn_ = feed == nullptr && next_ != end_;
        if (hasZero_)
            length = strnlen(line, length);
        return true;
    }

    bool isTorn() const { return isTorn_; }
    int number() const { return number_ < INT_MAX ? static_cast<int>(number_) : INT_MAX; }

private:
    char* next_;
    char* const end_;
    bool const hasZero_;
    bool isTorn_ = false;
    size_t number_ = 0;  // of the line, counted from 1
};

// Counts the lines of each kind by their first bytes: near enough to know what room they need.
Reader::Expected expect(char const* text, size_t length)
{
    Reader::Expected expected = {};
    char const* const end = text + length;
    for (char const* at = text; at != end;) {
        switch (*at) {
            case '[':
                ++expected.heads;
                break;
            case '#':
                ++expected.comments;
                break;
            case '\n':
                ++expected.blanks;
                break;
            default:
                ++expected.keys;
                break;
        }
        auto const* const feed =
            static_cast<char const*>(memchr(at, '\n', static_cast<size_t>(end - at)));
        at = feed == nullptr ? end : feed + 1;
    }
    return expected;
}

// Parses a text into a reader of one of the two kinds; what went in goes out again unless finish()
// was called.
template <class AnyReader>
class Parser {
public:
    template <class Target>
    Parser(char const* path, Target& target, bool keepsComments)
        : path_(path), reader_(target), keepsComments_(keepsComments)
    {
    }

    // Parses the first `length` bytes of `block`, which has room for one more, and takes it over.
    void parse(Arena::Block& block, size_t length)
    {
        block.setRoom(length + 1);
        char* const text = block.chars();
        text[length] = '\0';
        reader_.adopt(block, length + 1);
        Reader::Expected expected = expect(text, length);
        if (!keepsComments_)
            expected.comments = expected.blanks = 0;
        reader_.reserve(expected);
        LineCutter lines(text, length);
        for (char* line; lines.next(line, length);) {
            number_ = lines.number();
            if (lines.isTorn())
                line = const_cast<char*>(reader_.keep(std::string_view(line, length)).data());
            while (length > 0 && spaces_.has(line[length - 1]))
                --length;
            for (; length > 0 && spaces_.has(*line); --length)
                ++line;
            line[length] = '\0';
            takeLine(line, length);
        }
        reader_.flush();
        refuseRepetition();
    }

    // Returns the name of the companion file, if the text has one; owned by the caller.
    ZLCString_6_0* finish()
    {
        auto* const companion =
            companion_.data() == nullptr ? nullptr : new ZLCString_6_0(companion_.data());
        reader_.finish();
        return companion;
    }

private:
    void takeLine(char* line, size_t length)
    {
        if (length == 0) {
            if (keepsComments_)
                reader_.addBlank();
        } else if (*line == '#') {
            if (keepsComments_)
                reader_.addComment(std::string_view(line, length));
            else
                reader_.drop(std::string_view(line, length));
        } else if (*line == '[') {
            takeHead(line, length);
        } else {
            takeKey(line, length);
        }
    }

    void takeHead(char* line, size_t length)
    {
        auto* const end = static_cast<char*>(memchr(line, ']', length));
        if (end == nullptr)
            refuse(line);
        std::string_view const name(line + 1, static_cast<size_t>(end - line) - 1);
        *end = '\0';  // what follows it is ignored
        reader_.addHead(name, number_);
        hasStanza_ = true;
        namesCompanion_ = name == kCompanionCategory;
    }

    void takeKey(char* line, size_t length)
    {
        auto* const sign = static_cast<char*>(memchr(line, '=', length));
        if (sign == nullptr || sign == line || !hasStanza_)
            refuse(line);
        char* end = sign;
        while (spaces_.has(end[-1]))
            --end;
        char* value = sign + 1;
        while (spaces_.has(*value))
            ++value;
        *end = '\0';
        std::string_view const key(line, static_cast<size_t>(end - line));
        std::string_view const text(value, static_cast<size_t>(line + length - value));
        reader_.addKey(key, text);
        if (namesCompanion_ && key == kCompanionKey)
            companion_ = text;
    }

    [[noreturn]] void refuse(char const* line)
    {
        reader_.flush();
        refuseRepetition();
        ZPropertiesInvalidDataException_6_0(path_, line, number_)
            .throwException(kSource, raiseAtLine);
    }

    // Refuses the first head, if any, that names a stanza that there is.
    void refuseRepetition()
    {
        Reader::Repetition const& repetition = reader_.repetition();
        if (repetition.lineNumber == 0)
            return;
        // A zero byte was put into the line behind the name.
        auto* const name = const_cast<char*>(repetition.name.data());
        name[repetition.name.size()] = ']';
        ZPropertiesInvalidDataException_6_0(path_, name - 1, repetition.lineNumber)
            .throwException(kSource, raiseAtLine);
    }

    char const* const path_;
    AnyReader reader_;
    Spaces const spaces_;
    bool const keepsComments_;
    bool hasStanza_ = false;
    bool namesCompanion_ = false;  // the current stanza does, with one of its keys
    int number_ = 0;               // of the current line
    std::string_view companion_ = {nullptr, 0};
};

void writeKey(Store const& store, Id key, TextBuffer& text)
{
    std::string_view const name = store.name(store.key(key));
    if (store.key(key).more == 0 && store.key(key).value != 0) {
        writeValue(name, store.text(store.key(key)), text);
        return;
    }
    bool isWritten = false;
    store.eachValue(key, Store::plain, [&](std::string_view value) {
        writeValue(name, value, text);
        isWritten = true;
    });
    // Obfuscated values live in the companion file alone.
    if (!isWritten && store.valueCount(key, Store::obfuscated) == 0)
        cache::writeEmptyKey(name, text);
}

void write(Store const& store, TextBuffer& text)
{
    if (store.firstLine() != 0)
        text.expect(store.textLength());
    bool isSkipping = false;  // the lines of a stanza that was removed
    for (Id id = store.firstLine(); id != 0; id = store.line(id).next) {
        Line const& line = store.line(id);
        if (line.kind == cache::headLine)
            isSkipping = !store.category(line.of).isLive;
        if (isSkipping)
            continue;
        switch (line.kind) {
            case cache::headLine:
                writeHead(store.text(line), text);
                break;
            case cache::keyLine:
                if (store.key(line.of).isLive)
                    writeKey(store, line.of, text);
                break;
            default:
                if (line.isBelowBlank)
                    text.add("\n");
                writeLine(store.text(line), text);
                break;
        }
    }
}

void handOver(TextBuffer& text, ZBuffer_6_0& buffer)
{
    size_t const length = text.length();
    if (length == 0)
        buffer.setLength(0);
    else
        buffer.setBufferNoCopy(length, text.release());
}

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

// --- lines as they are written

// Writes "name = value". Where a line still stands in memory as it was read, with zero bytes behind
// name and value, it is copied whole.
void cache::writeValue(std::string_view name, std::string_view value, TextBuffer& text)
{
    // A line that was read without the blanks may have no room for them: with them it would come
    // back as two.
    if (name.size() + 3 + value.size() > cache::kLongestLine) {
        text.add(name);
        text.add("=");
        text.add(value);
        text.add("\n");
        return;
    }
    char* const to = text.take(name.size() + 3 + value.size() + 1);
    if (value.data() == name.data() + name.size() + 3 && value.data()[-2] == '=' &&
        value.data()[-1] == ' ') {
        memcpy(to, name.data(), name.size() + 3 + value.size());
        to[name.size()] = ' ';
    } else {
        memcpy(to, name.data(), name.size());
        memcpy(to + name.size(), " = ", 3);
        memcpy(to + name.size() + 3, value.data(), value.size());
    }
    to[name.size() + 3 + value.size()] = '\n';
}

void cache::writeLine(std::string_view line, TextBuffer& text)
{
    char* const to = text.take(line.size() + 1);
    memcpy(to, line.data(), line.size());
    to[line.size()] = '\n';
}

void cache::writeHead(std::string_view name, TextBuffer& text)
{
    char* const to = text.take(name.size() + size_t{3});
    *to = '[';
    memcpy(to + 1, name.data(), name.size());
    memcpy(to + 1 + name.size(), "]\n", 2);
}

void cache::writeEmptyKey(std::string_view name, TextBuffer& text)
{
    text.add(name);
    text.add(" =\n");
}

cache::Spaces::Spaces()
{
    for (int c = 0; c < 256; ++c)
        is[c] = isSpace(static_cast<char>(c));
}

ZSCFData_6_0::ZSCFData_6_0() = default;

ZSCFData_6_0::ZSCFData_6_0(ZSCFData_6_0 const& other) = default;

ZSCFData_6_0::~ZSCFData_6_0() = default;

ZPCache_6_0* ZSCFData_6_0::clone() const
{
    return cache::make<ZSCFData_6_0>(*this);
}

ZPCache_6_0* ZSCFData_6_0::makeEmpty() const
{
    auto* const made = cache::make<ZSCFData_6_0>();
    made->setAttributes(attributes(), attributeArgument());
    return made;
}

void ZSCFData_6_0::be_read(char const* path, FILE* file)
{
    Arena::Block block;
    size_t const length = readAll(path, file, block);
    readBlock(path, &block, length);
}

void ZSCFData_6_0::readText(char const* path, char const* text, size_t length)
{
    Arena::Block block;
    block.setRoom(length + 1);
    if (length != 0)  // an empty text may be null
        memcpy(block.chars(), text, length);
    readBlock(path, &block, length);
}

void ZSCFData_6_0::readBlock(char const* path, void* block, size_t length)
{
    auto const run = [&](auto& parser) {
        parser.parse(*static_cast<Arena::Block*>(block), length);
        if (ZLCString_6_0* const companion = parser.finish(); companion != nullptr)
            takeCompanionFile(companion);
    };
    bool const keepsComments = (attributes() & keepComments) != 0;
    if (direct() != nullptr) {
        Parser<Reader> parser(path, rep(), keepsComments);
        run(parser);
    } else {
        Parser<Rep::DerivedReader> parser(path, static_cast<ZPCategoryBasedCache_6_0&>(*this),
                                          keepsComments);
        run(parser);
    }
    changed();
}

void ZSCFData_6_0::be_write(char const* path, FILE* file)
{
    TextBuffer text;
    if (direct() != nullptr)
        write(rep(), text);
    else
        Rep::Derived::write(*this, text);
    errno = 0;
    // Where the stream keeps the text to write it later, the error would come when nobody looks.
    bool const isTaken =
        text.length() == 0 || fwrite(text.chars(), 1, text.length(), file) == text.length();
    if (!isTaken || fflush(file) != 0)
        ZPropertiesIOException_6_0(path, "fwrite()", errno).throwException(kSource, raiseInWrite);
}

void ZSCFData_6_0::writeText(ZBuffer_6_0& buffer) const
{
    TextBuffer text;
    if (direct() != nullptr)
        write(rep(), text);
    else  // the overrides are not const
        Rep::Derived::write(const_cast<ZSCFData_6_0&>(*this), text);
    handOver(text, buffer);
}

void ZSCFData_6_0::be_read_obfuscated(ZBuffer_6_0& buffer)
{
    ZPropertiesInvalidDataException_6_0 refusal(companionFile().getChars(), "", 0);
    unsigned long const packed = buffer.getLength();
    ZSqueeze_6_0 squeeze;
    squeeze.setSource(static_cast<unsigned char*>(buffer.getBuffer()), packed);

    // One byte more than the stream gives: the writer leaves out the last one, which is zero.
    Arena::Block block;
    size_t const most = mostUnpacked(packed);
    // Never 0, which doubling would leave at 0.
    size_t room = packed < (most - kExpansionSlack) / 8 ? packed * 8 + kExpansionSlack : most;
    int length = kNoRoom;
    for (;; room = room < most / 2 ? room * 2 : most) {
        block.setRoom(room + 1);
        length = squeeze.unsqueeze(reinterpret_cast<unsigned char*>(block.chars()), room);
        if (length != kNoRoom || room == most)
            break;
    }
    if (length == kNoMemory)
        cache::raiseOutOfMemory();
    if (length < 0)
        refusal.throwException(kSource, raiseInUnpack);
    if (length == 0)
        return;
    auto const bytes = static_cast<size_t>(length);
    block.chars()[bytes] = '\0';
    block.setRoom(bytes + 1);
    size_t records = 0;
    // Other writers may write the last zero byte. The same bytes are never records with the byte
    // that was put behind them and without it.
    if (!countRecords(block.chars(), bytes + 1, records) &&
        !countRecords(block.chars(), bytes, records))
        refusal.throwException(kSource, raiseAtRecord);
    if (direct() != nullptr)
        rep().addObfuscated(block, bytes + 1, records);
    else
        Rep::Derived::addObfuscated(*this, block.chars(), records);
    changed();
}

void ZSCFData_6_0::be_write_obfuscated(ZBuffer_6_0& buffer)
{
    Store const& store = rep();
    ZPropertiesInvalidDataException_6_0 refusal(companionFile().getChars(), "", 0);
    TextBuffer records;
    auto add = [&](std::string_view category, std::string_view key, std::string_view value) {
        records.add(category);
        records.add("\0");
        records.add(key);
        records.add("\0");
        records.add(value);
        records.add("\0\0");
        if (records.length() - 1 > kMostUnpacked)
            refusal.throwException(kSource, raiseInPack);
    };
    if (direct() == nullptr) {
        Rep::Derived::eachObfuscated(
            *this,
            [](void* to, std::string_view category, std::string_view key, std::string_view value) {
                (*static_cast<decltype(add)*>(to))(category, key, value);
            },
            &add);
    } else {
        for (Id id = store.firstItem(); id != 0; id = store.item(id).nextItem) {
            Id const key = store.item(id).key;
            std::string_view const category = store.name(store.category(store.key(key).category));
            store.eachValue(key, Store::obfuscated, [&](std::string_view value) {
                add(category, store.name(store.key(key)), value);
            });
        }
    }
    if (records.length() == 0) {
        buffer.setLength(0);
        return;
    }
    size_t const length = records.length() - 1;

    ZSqueeze_6_0 squeeze;
    squeeze.setSource(
        const_cast<unsigned char*>(reinterpret_cast<unsigned char const*>(records.chars())),
        length);
    ZBuffer_6_0 packed;
    int result = kNoRoom;
    for (size_t room = length * 2; result == kNoRoom && room <= kMostUnpacked * 4; room *= 2) {
        packed.setLength(room);
        result = squeeze.squeeze(static_cast<unsigned char*>(packed.getBuffer()), room);
    }
    if (result == kNoMemory)
        cache::raiseOutOfMemory();
    if (result < 0)
        refusal.throwException(kSource, raiseInPack);
    packed.setLength(static_cast<unsigned long>(result));
    unsigned long taken = 0;
    void* bytes = nullptr;
    packed.takeBuffer(taken, bytes);
    buffer.setBufferNoCopy(taken, bytes);
}
