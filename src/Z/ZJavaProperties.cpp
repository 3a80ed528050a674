#include "ZJavaProperties.h"

#include <errno.h>

#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "ZException.h"
#include "containers/hash_table.h"
#include "containers/list_rollback.h"
#include "java/byte_source.h"
#include "java/inline_string.h"
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

    void put(std::unique_ptr<ZObject_6_0> key, std::unique_ptr<ZObject_6_0> value, uint32_t hash);

    HashTable entries{kCapacity, 1};
    Reading* reading = nullptr;  // the innermost running read
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

    UndoLog changes;
    InlineString::Pool pool;

private:
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

// Runs the state machine over `bytes`.
template <class Bytes>
int ZJavaProperties_6_0::read(Bytes& bytes, char const* path)
{
    Rep::Reading reading(*this);
    int state = startLine;
    char previous = 0;
    for (int byte; (byte = bytes.next()) != EOF;) {
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
    std::unique_ptr<ZAbstractString_6_0> key;
    std::unique_ptr<ZAbstractString_6_0> value;
    if (rep_->reading != nullptr) {
        InlineString::Pool& pool = rep_->reading->pool;
        key.reset(InlineString::make(pool, key_.getChars(), key_.getLength()));
        value.reset(InlineString::make(pool, value_.getChars(), value_.getLength()));
    } else {
        key.reset(key_.clone());
        value.reset(value_.clone());
    }
    uint32_t const hash = key->hash();
    rep_->put(std::move(key), std::move(value), hash);
}

// Called at the line ending after a value.
int ZJavaProperties_6_0::endEntry()
{
    storeEntry();
    return key_ == stopKey_ ? stop : startLine;
}

// ---- Writing -----------------------------------------------------------------------------------

void ZJavaProperties_6_0::store(char const* path)
{
    if (isEmpty(path))
        ZInvalidParameterException_6_0().throwException(kSource, raiseForPath);
    zreporting::CancelGuard const uncancelled;
    zstore::translateErrors(kSource, raiseInStore, throwStoreFailure, [&] {
        zstore::JournaledFile file(path, zstore::JournaledFile::Mode::store);
        std::string text = "#\n";
        rep_->entries.forEach([&text](HashTable::Node const& node) {
            auto const& key = static_cast<ZAbstractString_6_0 const&>(*node.key);
            auto const& value = static_cast<ZAbstractString_6_0 const&>(*node.value);
            // KEPT: a key is not escaped and may be read back differently. A program that searches
            // the file for its key would no longer find the line. Test:
            // ZJavaProperties.KeepsKeysUnescaped
            text.append(key.getChars(), key.getLength()).append(" = ");
            zjava::appendValue(text, value.getChars(), value.getLength());
            text += '\n';
        });
        file.commit({text.data(), text.size()}, {});
        file.close();
    });
}
