#include "ZJavaProperties.h"

#include <errno.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "ZException.h"
#include "containers/hash_table.h"
#include "containers/list_rollback.h"
#include "files/bytes.h"
#include "java/byte_source.h"
#include "java/characters.h"
#include "java/inline_string.h"
#include "java/line_parser.h"
#include "java/undo_log.h"
#include "java/value_writer.h"
#include "memory/out_of_memory.h"
#include "memory/rep.h"
#include "reporting/cancellation.h"
#include "reporting/failures.h"
#include "store/translate_errors.h"

using zcontainers::HashTable;
using zfiles::FailedCall;
using namespace zjava;

namespace {

constexpr char kSource[] = "src/Z/ZJavaProperties";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite {
    raiseInConstructor = 75,
    raiseInClone = 112,
    raiseForReadOpen = 151,
    raiseForReadLock = 166,
    raiseInLoad = 180,
    raiseInSetValue = 205,
    raiseInListKeys = 220,
    raiseInRollBack = 245,
    raiseForReadError = 291,
    raiseForState = 310,
    raiseForPath = 352,
    raiseForWriteOpen = 360,
    raiseForWriteLock = 373,
    raiseInStore = 410
};

constexpr unsigned kCapacity = 10;  // of the map; determines the order of listKeys()

bool isEmpty(char const* text)
{
    return text == nullptr || *text == '\0';
}

// ---- Failures ----------------------------------------------------------------------------------

// Throws the failure of a call while loading. Opening a directory succeeds; reading its first byte
// fails.
[[noreturn]] void throwLoadFailure(zstore::JournaledFile::IoError const& failure)
{
    char const* const file = failure.file.c_str();
    if ((failure.call == FailedCall::read && failure.error != EFBIG) || failure.error == EISDIR)
        ZUnexpectedEndOfFile_6_0(file).throwException(kSource, raiseForReadError);
    RaiseSite const site = failure.call == FailedCall::fopenToRead ? raiseForReadOpen
                           : failure.call == FailedCall::fcntl     ? raiseForReadLock
                                                                   : raiseInLoad;
    ZPropertiesIOException_6_0(file, failure.callName(), failure.error)
        .throwException(kSource, site);
}

// As throwLoadFailure(), while storing. Reports the open call as "fopen(wt)", as for a stream.
[[noreturn]] void throwStoreFailure(zstore::JournaledFile::IoError const& failure)
{
    char const* const file = failure.file.c_str();
    if (failure.call == FailedCall::fopenToUpdate)
        ZPropertiesIOException_6_0(file, callName(FailedCall::fopenToWriteText), failure.error)
            .throwException(kSource, raiseForWriteOpen);
    ZPropertiesIOException_6_0(file, failure.callName(), failure.error)
        .throwException(kSource,
                        failure.call == FailedCall::fcntl ? raiseForWriteLock : raiseInStore);
}

}  // namespace

// ---- The entries --------------------------------------------------------------------------------

struct ZJavaProperties_6_0::Rep {
    // The handler of a state, and the bytes that end a run of bytes that it copies.
    struct Row {
        Handler handler;
        unsigned char ends;
    };
    static constexpr Row kTable[kStates] = {
        {nullptr, kNoRun},
        {&ZJavaProperties_6_0::doStartLineState, kNoRun},
        {&ZJavaProperties_6_0::doStartLineBlanksState, kNoRun},
        {&ZJavaProperties_6_0::doCommentLineState, kEndsComment},
        {&ZJavaProperties_6_0::doKeyCharsState, kEndsKey},
        {&ZJavaProperties_6_0::doKeyCharEscapeState, kNoRun},
        {&ZJavaProperties_6_0::doKeyEndBlanksFirstState, kNoRun},
        {&ZJavaProperties_6_0::doKeyEndBlanksFinalState, kNoRun},
        {&ZJavaProperties_6_0::doValCharsState, kEndsValue},
        {&ZJavaProperties_6_0::doValEscapeState, kNoRun},
        {&ZJavaProperties_6_0::doMultiLineValState, kNoRun},
        {&ZJavaProperties_6_0::doUU0State, kNoRun},
        {&ZJavaProperties_6_0::doUU1State, kNoRun},
        {&ZJavaProperties_6_0::doUU2State, kNoRun},
        {&ZJavaProperties_6_0::doUU3State, kNoRun},
    };

    class Reading;

    HashTable::NodeIndex find(ZObject_6_0 const& key, uint32_t hash) const
    {
        return entries.findKey(key, hash);
    }

    static bool hasDefaultHandlers(ZJavaProperties_6_0 const& store);
    void put(std::unique_ptr<ZObject_6_0> key, std::unique_ptr<ZObject_6_0> value, uint32_t hash);
    zfiles::Bytes render(size_t expected) const;

    HashTable entries{kCapacity, 1};
    Reading* reading = nullptr;   // the innermost running read
    bool hasForeignKeys = false;  // keys may be of any class
};

// A read from start to end. Undoes every change made during the read unless it is committed; the
// changes of a committed nested read belong to the outer read.
class ZJavaProperties_6_0::Rep::Reading {
public:
    // Throws ZOutOfMemoryException_6_0.
    explicit Reading(ZJavaProperties_6_0& store)
        : changes(store.rep_->entries), rep_(*store.rep_), outer_(rep_.reading)
    {
        if (outer_ != nullptr)
            line_.emplace(store);
        rep_.reading = this;
    }
    Reading(Reading const&) = delete;
    Reading& operator=(Reading const&) = delete;
    ~Reading() noexcept(false)
    {
        rep_.reading = outer_;
        if (committed_)
            return;
        changes.undo();  // all entries are restored before the first destructor runs
        zreporting::runInDestructor({kSource, raiseInRollBack}, [this] { changes.deleteOld(); });
    }

    // In a nested read throws std::bad_alloc. Else throws as the destructors of replaced keys and
    // values; all changes are in force then.
    void commit()
    {
        if (outer_ != nullptr) {
            changes.moveTo(outer_->changes);
            committed_ = true;
            return;
        }
        committed_ = true;
        rep_.reading = nullptr;  // those destructors may use the store
        changes.deleteOld();
    }

    class Batch;

    int readLines(ZJavaProperties_6_0& store, MemoryBytes& bytes);

    UndoLog changes;
    InlineString::Pool pool;

private:
    void reserve(std::string_view text);

    // The outer read's current line.
    struct Line {
        explicit Line(ZJavaProperties_6_0& of)
            : store(of), key(of.key_), value(of.value_), unit(of.unicodeUnit_[0])
        {
        }
        Line(Line const&) = delete;
        Line& operator=(Line const&) = delete;
        // Allocates nothing: the strings have had this capacity before.
        ~Line()
        {
            store.key_ = key;
            store.value_ = value;
            store.unicodeUnit_[0] = unit;
        }

        ZJavaProperties_6_0& store;
        ZUTF8String_6_0 const key;
        ZUTF8String_6_0 const value;
        uint16_t const unit;
    };

    Rep& rep_;
    Reading* const outer_;      // null in an outermost read
    std::optional<Line> line_;  // set in a nested read
    bool committed_ = false;
    bool isReserved_ = false;  // memory for the estimated number of entries
};

// Throws ZOutOfMemoryException_6_0, and as the comparison of keys; nothing has changed then.
void ZJavaProperties_6_0::Rep::put(std::unique_ptr<ZObject_6_0> key,
                                   std::unique_ptr<ZObject_6_0> value, uint32_t hash)
{
    HashTable::NodeIndex const index = find(*key, hash);
    entries.reserve(index, hash);
    if (reading == nullptr) {
        entries.put(index, hash, key.release(), value.release());
        return;
    }
    reading->changes.reserve();
    reading->changes.put(index, hash, key.release(), value.release());
}

ZJavaProperties_6_0::ZJavaProperties_6_0()
    : rep_(zmemory::makeRep<Rep>(kSource, raiseInConstructor)), unicodeUnit_{0, 0}
{
    for (int state = 0; state < kStates; ++state)
        handlers_[state] = Rep::kTable[state].handler;
}

ZJavaProperties_6_0::~ZJavaProperties_6_0()
{
    std::unique_ptr<Rep> const rep(rep_);
    rep->entries.removeAll();
}

ZObject_6_0* ZJavaProperties_6_0::clone() const
{
    ZAbstractNotImplementedException_6_0("ZJavaProperties::clone")
        .throwException(kSource, raiseInClone);
}

void ZJavaProperties_6_0::setValue(ZAbstractString_6_0 const& key, ZAbstractString_6_0 const& value)
{
    std::unique_ptr<ZObject_6_0> ownKey(key.clone());
    std::unique_ptr<ZObject_6_0> ownValue(value.clone());
    if (ownKey == nullptr || ownValue == nullptr)
        ZNotClonableException_6_0().throwException(kSource, raiseInSetValue);
    rep_->hasForeignKeys = true;
    rep_->put(std::move(ownKey), std::move(ownValue), key.hash());
}

void ZJavaProperties_6_0::getValue(ZAbstractString_6_0 const& key,
                                   ZAbstractMutableString_6_0& out) const
{
    ZUTF8String_6_0 sought;
    sought.setChars(key);
    HashTable::NodeIndex const index = rep_->find(sought, sought.hash());
    if (index != 0)
        out.setChars(*static_cast<ZAbstractString_6_0 const*>(rep_->entries.at(index).value));
    else
        out.clear();
}

void ZJavaProperties_6_0::listKeys(ZArrayList_6_0& target) const
{
    if (target.ownsMembers() == 0)
        ZInvalidParameterException_6_0().throwException(kSource, raiseInListKeys);
    zcontainers::addAllOrNothing(target, [&] {
        rep_->entries.forEach([&](HashTable::Node const& node) { target.add(node.key); });
    });
}

int ZJavaProperties_6_0::hexConv(char digit)
{
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'a' && digit <= 'f')
        return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    return -1;
}

// ---- Reading -----------------------------------------------------------------------------------

int ZJavaProperties_6_0::load(char const* path)
{
    if (isEmpty(path))
        return 1;
    zreporting::CancelGuard const uncancelled;
    zstore::translateErrors(kSource, raiseInLoad, throwLoadFailure, [&] {
        zstore::JournaledFile file(path, zstore::JournaledFile::Mode::load);
        MemoryBytes bytes(file.text());
        read(bytes, path);
    });
    return 1;
}

int ZJavaProperties_6_0::load(char const* path, char const* stopKey)
{
    // Restores null or, in a nested read, the stop key of the outer read, which allocates nothing.
    struct RestoreKey {
        explicit RestoreKey(ZUTF8String_6_0& of) : key(of), before(of) {}
        RestoreKey(RestoreKey const&) = delete;
        RestoreKey& operator=(RestoreKey const&) = delete;
        ~RestoreKey() { key = before; }

        ZUTF8String_6_0& key;
        ZUTF8String_6_0 const before;
    } const restoreKey(stopKey_);
    stopKey_ = stopKey;
    return load(path);
}

int ZJavaProperties_6_0::loadProperties(FILE* stream, char const* path)
{
    zreporting::CancelGuard const uncancelled;
    int ended = 0;
    zstore::translateErrors(kSource, raiseInLoad, throwLoadFailure, [&] {
        StreamBytes bytes(stream);
        ended = read(bytes, path);
    });
    return ended;
}

// Entries that have been read and are not in the table yet. A lookup waits for memory less if its
// slot has been prefetched some entries before.
class ZJavaProperties_6_0::Rep::Reading::Batch {
public:
    explicit Batch(Reading& reading) : reading_(reading) {}
    Batch(Batch const&) = delete;
    Batch& operator=(Batch const&) = delete;
    ~Batch()
    {
        for (; count_ > 0; --count_) {
            delete entries_[count_ - 1].key;
            delete entries_[count_ - 1].value;
        }
    }

    // Appends an entry. Throws ZOutOfMemoryException_6_0; nothing has changed then.
    void append(std::string_view key, uint32_t hash, std::string_view value)
    {
        std::unique_ptr<InlineString> ownKey(
            InlineString::make(reading_.pool, key.data(), static_cast<uint32_t>(key.size())));
        entries_[count_].value =
            InlineString::make(reading_.pool, value.data(), static_cast<uint32_t>(value.size()));
        entries_[count_].key = ownKey.release();
        entries_[count_].hash = hash;
        ++count_;
        reading_.rep_.entries.prefetch(hash);
    }
    bool isFull() const { return count_ == kCapacity; }

    // Adds the entries to the table. Throws ZOutOfMemoryException_6_0, and as functions of keys of
    // other classes; some entries have been added then.
    void add()
    {
        uint32_t added = 0;
        try {
            for (; added < count_; ++added)
                add(entries_[added]);
        } catch (...) {
            std::rotate(entries_, entries_ + added, entries_ + count_);
            count_ -= added;
            throw;
        }
        count_ = 0;
    }

private:
    static constexpr uint32_t kCapacity = 16;

    struct Entry {
        InlineString* key;
        InlineString* value;
        uint32_t hash;
    };

    void add(Entry const& entry)
    {
        HashTable& table = reading_.rep_.entries;
        uint32_t const hash = entry.hash;
        HashTable::NodeIndex const index = table.find(hash, [&](HashTable::Node const& node) {
            if (node.hash != hash)
                return false;
            if (node.placement != HashTable::kAnyOrder)
                return entry.key->equals(*node.key);
            return static_cast<InlineString const&>(*node.key).text() == entry.key->text();
        });
        table.reserve(index, hash);
        reading_.changes.reserve();
        reading_.changes.put(index, hash, entry.key, entry.value);
    }

    Reading& reading_;
    Entry entries_[kCapacity];
    uint32_t count_ = 0;
};

// Reserves memory for the number of entries that a sample of `text` suggests, at most four times
// the size of `text`: the lines of the sample may be the shortest ones. Does not throw if memory
// is exhausted: the table then grows with its entries.
void ZJavaProperties_6_0::Rep::Reading::reserve(std::string_view text)
{
    constexpr size_t kSample = 4096;
    constexpr size_t kMinLineSize = 16;  // the table takes up to 64 bytes an entry
    if (text.size() < kSample)
        return;
    std::string_view const sample = text.substr((text.size() - kSample) / 2, kSample);
    size_t entries = 0;
    for (size_t end = sample.find('\n'); end < kSample - 1; end = sample.find('\n', end + 1)) {
        bool const isContinued = end > 0 && sample[end - 1] == '\\';
        entries += !isContinued && !isLineEnd(sample[end + 1]) && !isComment(sample[end + 1]);
    }
    size_t const expected =
        std::min(text.size() * (entries + entries / 16 + 1) / kSample, text.size() / kMinLineSize);
    try {
        rep_.entries.reserveAll(static_cast<uint32_t>(std::min<size_t>(expected, UINT32_MAX)));
    } catch (ZOutOfMemoryException_6_0 const&) {
        // The entries may need less memory than the sample suggests.
    }
}

// Returns whether no derived class has replaced a handler.
bool ZJavaProperties_6_0::Rep::hasDefaultHandlers(ZJavaProperties_6_0 const& store)
{
    for (int state = startLine; state < kStates; ++state)
        if (store.handlers_[state] != kTable[state].handler)
            return false;
    return true;
}

// Reads lines up to the stop key, the end, or a line that the state machine must read. Returns the
// state. Does nothing if a derived class has replaced a handler.
int ZJavaProperties_6_0::Rep::Reading::readLines(ZJavaProperties_6_0& store, MemoryBytes& bytes)
{
    if (!hasDefaultHandlers(store))
        return startLine;
    // Functions of keys of other classes may change the store.
    bool const mustCheck = rep_.hasForeignKeys;
    if (!std::exchange(isReserved_, true))
        reserve(bytes.text());

    using Kind = LineParser::Line;
    LineParser lines(bytes.text(), bytes.position());
    std::string_view const stopKey(store.stopKey_.getChars(), store.stopKey_.getLength());
    Kind last = Kind::refused;
    int state = startLine;
    Batch batch(*this);
    while (state == startLine) {
        Kind const line = lines.readKey();
        if (line == Kind::refused)
            break;
        last = line;
        if (line == Kind::empty)
            continue;
        if (!lines.readValue())
            break;
        bool const isStopKey = !stopKey.empty() && lines.key() == stopKey;
        if (stopKey.empty() || isStopKey || !lines.endsInEmptyLine())
            batch.append(lines.key(), lines.hash(), lines.value());
        if (isStopKey && !lines.endsInEmptyLine())
            state = stop;
        if (batch.isFull() || mustCheck)
            batch.add();
        if (mustCheck && !hasDefaultHandlers(store))
            break;
    }
    batch.add();
    bytes.setPosition(lines.position());
    // The first character of the next line clears both.
    if (last != Kind::refused && (lines.isAtEnd() || state == stop)) {
        store.key_.clear();
        store.value_.clear();
        if (last == Kind::entry) {
            store.key_.append(lines.key().data(), static_cast<unsigned>(lines.key().size()));
            store.value_.append(lines.value().data(), static_cast<unsigned>(lines.value().size()));
        }
    }
    return state;
}

// Runs the state machine over `bytes`.
template <class Bytes>
int ZJavaProperties_6_0::read(Bytes& bytes, char const* path)
{
    Rep::Reading reading(*this);
    int state = startLine;
    char previous = 0;
    for (;;) {
        if constexpr (Bytes::kIsInMemory) {
            if (state == startLine) {
                state = reading.readLines(*this, bytes);
                if (state == stop) {
                    reading.commit();
                    return 1;
                }
                previous = bytes.position() > 0 ? bytes.text()[bytes.position() - 1] : '\0';
            }
        }
        int const byte = bytes.next();
        if (byte == EOF)
            break;
        char const c = static_cast<char>(byte);
        bool const ignored = (c == '\r' && previous == '\n') || (c == '\n' && previous == '\r');
        previous = c;
        // KEPT: an ignored byte is still the `previous` byte of the next one, so empty lines with
        // two-byte endings are ignored, even after a backslash. A file with such lines would be
        // read differently. Test: ZJavaProperties.KeepsPairingIgnoredLineEnds
        if (ignored)
            continue;
        Handler const handler = handlers_[state];
        if (handler == nullptr)
            ZJavaPropertyParseException_6_0(path).throwException(kSource, raiseForState);
        state = (this->*handler)(c);
        // KEPT: if the invalid character was the line ending, the next line is skipped too. A file
        // that has an entry there would gain it. Test:
        // ZJavaProperties.KeepsSkippingTheLineAfterAnError
        if (state == syntaxError)
            state = commentLine;
        if (state < startLine || state >= kStates) {
            reading.commit();
            return state == stop;
        }
        Rep::Row const& row = Rep::kTable[state];
        if (row.ends == kNoRun || handlers_[state] != row.handler)
            continue;
        std::string_view const run = bytes.run(row.ends);
        if (run.empty())
            continue;
        previous = run.back();
        if (state != commentLine)
            (state == keyChars ? key_ : value_)
                .append(run.data(), static_cast<unsigned>(run.size()));
    }
    if (bytes.failed())
        ZUnexpectedEndOfFile_6_0(path).throwException(kSource, raiseForReadError);
    // KEPT: a last line without a line ending is not stored unless it has the stop key; then it is
    // stored as far as it was read, even if it is invalid. A program that reads a file while it is
    // being written would see a truncated value. Test: ZJavaProperties.KeepsLosingTheLastLine
    // KEPT: key and value are not cleared before the first byte, so they are those of the previous
    // read. A caller that reads an empty file for the same stop key again would miss the entry.
    // Test: ZJavaProperties.KeepsTheEntryBeforeAnEmptyFile
    if (!key_.isEmpty() && key_ == stopKey_)
        storeEntry();
    reading.commit();
    return 1;
}

// Stores `key_` and `value_`. No read is running if a derived class called the handler itself.
void ZJavaProperties_6_0::storeEntry()
{
    if (rep_->reading != nullptr) {
        Rep::Reading::Batch batch(*rep_->reading);
        batch.append({key_.getChars(), key_.getLength()}, key_.hash(),
                     {value_.getChars(), value_.getLength()});
        batch.add();
        return;
    }
    std::unique_ptr<ZObject_6_0> key(key_.clone());
    std::unique_ptr<ZObject_6_0> value(value_.clone());
    rep_->hasForeignKeys = true;
    rep_->put(std::move(key), std::move(value), key_.hash());
}

// Called at the line ending after a value.
int ZJavaProperties_6_0::endEntry()
{
    storeEntry();
    return key_ == stopKey_ ? stop : startLine;
}

// ---- Writing -----------------------------------------------------------------------------------

// Returns the text of a file that has all entries. `expected` is its likely length.
zfiles::Bytes ZJavaProperties_6_0::Rep::render(size_t expected) const
{
    constexpr std::string_view kStart = "#\n";
    constexpr std::string_view kSeparator = " = ";
    constexpr size_t kLikelyEntry = 32;
    constexpr size_t kSpare = 4096;
    size_t const likely = std::max(expected, kLikelyEntry * entries.size());
    zfiles::Bytes text(likely + likely / 16 + kSpare);
    size_t length = kStart.copy(text.data(), kStart.size());
    auto const append = [&](std::string_view key, std::string_view value) {
        size_t const room =
            key.size() + kSeparator.size() + roomForValue(value.size()) + sizeof '\n';
        if (text.length() - length < room)
            text.grow(2 * (length + room));
        char* at = text.data() + length;
        // KEPT: a key is not escaped and may be read back differently. A program that searches the
        // file for its key would no longer find the line. Test: ZJavaProperties.KeepsKeysUnescaped
        memcpy(at, key.data(), key.size());
        at += key.size();
        at += kSeparator.copy(at, kSeparator.size());
        at = writeValue(at, value.data(), value.size());
        *at++ = '\n';
        length = static_cast<size_t>(at - text.data());
    };
    auto const prefetch = [](HashTable::Node const& node) {
        constexpr ptrdiff_t kLine = 64;
        for (ZObject_6_0 const* const object : {node.key, node.value}) {
            auto const* const bytes = reinterpret_cast<char const*>(object);
            __builtin_prefetch(bytes);
            __builtin_prefetch(bytes + kLine);
        }
    };
    entries.forEachPrefetched(prefetch, [&](HashTable::Node const& node) {
        if (node.placement == HashTable::kAnyOrder) {
            append(static_cast<InlineString const&>(*node.key).text(),
                   static_cast<InlineString const&>(*node.value).text());
            return;
        }
        auto const& key = static_cast<ZAbstractString_6_0 const&>(*node.key);
        auto const& value = static_cast<ZAbstractString_6_0 const&>(*node.value);
        append({key.getChars(), key.getLength()}, {value.getChars(), value.getLength()});
    });
    text.setLength(length);
    return text;
}

void ZJavaProperties_6_0::store(char const* path)
{
    if (isEmpty(path))
        ZInvalidParameterException_6_0().throwException(kSource, raiseForPath);
    zreporting::CancelGuard const uncancelled;
    zstore::translateErrors(kSource, raiseInStore, throwStoreFailure, [&] {
        zstore::JournaledFile file(path, zstore::JournaledFile::Mode::store);
        zfiles::Bytes const text = rep_->render(file.text().size());
        file.commit(text.view(), {});
        file.close();
    });
}
