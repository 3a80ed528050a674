#include "ZProperties.h"

#include <ctype.h>
#include <errno.h>
#include <limits.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>
#include <vector>

#include "ZArrayList.h"
#include "ZBuffer.h"
#include "ZException.h"
#include "ZPropertiesImpl.h"
#include "ZProperties_p.h"
#include "ZUTF8String.h"
#include "memory/out_of_memory.h"
#include "reporting/failures.h"
#include "store/journaled_file.h"
#include "store/limits.h"

namespace {

constexpr char kSource[] = "src/Z/ZProperties";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite {
    raiseInConstructor = 60,
    raiseInCopy = 70,
    raiseForNames = 75,
    raiseForDefault = 85,
    raiseForMissing = 95,
    raiseForNumber = 160,
    raiseForTruth = 185,
    raiseInGetValues = 210,
    reportInSend = 235,
    reportInHold = 247,
    raiseForPath = 260,
    raiseInLoad = 290,
    raiseInReload = 340,
    raiseInStore = 400,
    raiseForNewText = 450,
    raiseForConversion = 465,
    raiseForComment = 480,
    raiseInCheckAccess = 510,
    raiseInCheckFileAccess = 540,
    raiseInGetPropertiesFor = 600
};

using ZPropertiesText = ZPCategoryBasedCache_6_0::Text;

// The reserved entry: the path of the companion file.
constexpr char kReservedCategory[] = "configuration-database";
constexpr char kReservedKey[] = "file";

constexpr size_t kLongestLine = 8190;  // bytes; the reader splits a longer line
constexpr size_t kWorkingDirectory = 1024;

bool isEmpty(char const* text)
{
    return text == nullptr || *text == '\0';
}

void requireName(char const* category)
{
    if (isEmpty(category))
        ZInvalidParameterException_6_0().throwException(kSource, raiseForNames);
}

void requireNames(char const* category, char const* key)
{
    if (isEmpty(category) || isEmpty(key))
        ZInvalidParameterException_6_0().throwException(kSource, raiseForNames);
}

// Runs `body` and translates its errors into exceptions of the library.
template <class Body>
void translateErrors(RaiseSite site, Body body)
{
    try {
        zmemory::translateBadAlloc(kSource, site, body);
    } catch (ZJournaledFile::IoError const& failure) {
        ZPropertiesIOException_6_0(failure.file.c_str(), failure.call, failure.error)
            .throwException(kSource, site);
    }
}

// Sets an int in this scope.
class ScopedValue {
public:
    ScopedValue(int& flag, int value) : flag_(flag), before_(flag) { flag = value; }
    ScopedValue(ScopedValue const&) = delete;
    ScopedValue& operator=(ScopedValue const&) = delete;
    ~ScopedValue() { flag_ = before_; }

private:
    int& flag_;
    int const before_;
};

// The words for a boolean, in lower case; case is ignored.
struct BoolWord {
    char const* word;
    int value;
};
constexpr BoolWord kBoolWords[] = {{"yes", 1}, {"y", 1}, {"true", 1},  {"t", 1}, {"1", 1},
                                   {"no", 0},  {"n", 0}, {"false", 0}, {"f", 0}, {"0", 0}};

// Parses the whole string as strtoul() does with a 32-bit long: an overflow gives UINT_MAX, "-"
// negates modulo 2^32.
bool toNumber(char const* text, unsigned int& number)
{
    errno = 0;
    char* end;
    unsigned long const wide = strtoul(text, &end, 0);
    if (end == text || *end != '\0')
        return false;
    while (isspace(static_cast<unsigned char>(*text)))
        ++text;
    unsigned long const magnitude = *text == '-' ? 0 - wide : wide;
    number = errno == ERANGE || magnitude > UINT_MAX ? UINT_MAX : static_cast<unsigned int>(wide);
    return true;
}

void moveToBuffer(ZJournaledFile::Bytes& bytes, ZBuffer_6_0& buffer)
{
    size_t const length = bytes.length();
    buffer.setBufferNoCopy(length, bytes.release());
}

bool equalIgnoringCase(char const* lower, char const* text)
{
    for (; *lower != '\0'; ++lower, ++text) {
        char const c = *text >= 'A' && *text <= 'Z' ? static_cast<char>(*text - 'A' + 'a') : *text;
        if (c != *lower)
            return false;
    }
    return *text == '\0';
}

std::string_view viewOf(ZBuffer_6_0 const& buffer)
{
    return {static_cast<char const*>(buffer.getBuffer()), buffer.getLength()};
}

// Throws unless a line with these names would be read back as the same pair.
void requireValidKey(char const* category, char const* key)
{
    if (ZPCategoryBasedCache_6_0::validateKey(category, key) == 0)
        ZInvalidParameterException_6_0().throwException(kSource, raiseForNewText);
}

void requireValidValue(char const* key, char const* value)
{
    // An empty value leaves the key without values; its line is "key =".
    if (value != nullptr && *value != '\0' &&
        ZPCategoryBasedCache_6_0::validateValue(key, value) == 0)
        ZInvalidParameterException_6_0().throwException(kSource, raiseForNewText);
}

// Converts to the local codeset. Throws if that fails: the empty result would overwrite the value.
template <class UTF8>
void toLocal(UTF8 const& value, ZLCString_6_0& local)
{
    local = value;
    if (local.isEmpty() && !value.isEmpty())
        ZFromUTF8Exception_6_0().throwException(kSource, raiseForConversion);
}

struct CloseFile {
    void operator()(FILE* file) const { fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

}  // namespace

// ---- Holding the lock, and notices -------------------------------------------------------------

ZProperties_6_0::Rep::Queue::~Queue()
{
    while (!isEmpty())
        pop();
}

void ZProperties_6_0::Rep::Queue::push(std::unique_ptr<Notice> notice)
{
    *end_ = notice.release();
    end_ = &(*end_)->next;
}

std::unique_ptr<ZProperties_6_0::Notice> ZProperties_6_0::Rep::Queue::pop()
{
    std::unique_ptr<Notice> notice(first_);
    first_ = notice->next;
    if (first_ == nullptr)
        end_ = &first_;
    return notice;
}

void ZProperties_6_0::Rep::Queue::moveFrom(Queue& other)
{
    if (other.isEmpty())
        return;
    first_ = other.first_;
    end_ = other.end_;
    other.first_ = nullptr;
    other.end_ = &other.first_;
}

std::unique_ptr<ZProperties_6_0::Notice> ZProperties_6_0::Rep::makeNotice(
    ZPropertyChanged_6_0::PropertyChangeType type, char const* category, char const* key)
{
    return std::unique_ptr<Notice>(
        new Notice(ZPropertyChanged_6_0::storeChanged, type, category, key));
}

void ZProperties_6_0::Rep::recordChange(ZProperties_6_0& store, std::unique_ptr<Notice> notice)
{
    setModified(store, 1);
    if (store.loading_ == 0)
        store.rep_->queued.push(std::move(notice));
}

void ZProperties_6_0::Rep::sendNotices(ZProperties_6_0& store, Queue& queue)
{
    std::exception_ptr first;
    bool const mayThrow = !zunwinding();
    while (!queue.isEmpty()) {
        std::unique_ptr<Notice> const notice = queue.pop();
        try {
            store.notifyObservers(*notice);
        } catch (...) {
            if (zcaughtCancellation())
                throw;
            if (mayThrow && first == nullptr)
                first = std::current_exception();
            else
                zreporting::reportCurrentException({kSource, reportInSend});
        }
    }
    if (first != nullptr)
        std::rethrow_exception(first);
}

ZProperties_6_0::Hold::Hold(ZProperties_6_0 const& store)
    : store_(const_cast<ZProperties_6_0&>(store)), thread_(pthread_self())
{
    store_.lock_.lock();
    ++store_.rep_->depth;
}

// Sends the notices after releasing the lock. Otherwise two threads could deadlock: one notifies,
// holds the observer list and uses the store; the other holds the store and waits for the list.
ZProperties_6_0::Hold::~Hold() noexcept(false)
{
    Rep::Queue due;
    bool const holds = pthread_equal(thread_, pthread_self()) != 0;
    if (holds && --store_.rep_->depth == 0)
        due.moveFrom(store_.rep_->queued);
    zreporting::runInDestructor({kSource, reportInHold}, [this] { store_.lock_.unlock(); });
    if (!due.isEmpty())
        Rep::sendNotices(store_, due);
}

void ZProperties_6_0::sendChangeNotice(ZPropertyChanged_6_0::PropertyStyle style,
                                       ZPropertyChanged_6_0::PropertyChangeType type,
                                       char const* category, char const* key)
{
    std::unique_ptr<Notice> notice(new Notice(style, type, category, key));
    Hold hold(*this);
    if (loading_ == 0)
        rep_->queued.push(std::move(notice));
}

// ---- The cache ---------------------------------------------------------------------------------

void ZProperties_6_0::Rep::setCache(ZPCache_6_0& cache)
{
    direct = cache.direct();
    auto* const stanzaData = dynamic_cast<ZSCFData_6_0*>(&cache);
    stanzas = direct == nullptr ? nullptr : stanzaData;
    isStanzaFile = stanzaData != nullptr;
}

std::unique_ptr<ZPCache_6_0> ZProperties_6_0::Rep::copyCache(ZProperties_6_0 const& store)
{
    ZPCache_6_0 const& cache = *store.cache_;
    std::unique_ptr<ZPCache_6_0> copy;
    translateErrors(raiseInCopy, [&] { copy.reset(cache.clone()); });
    if (copy != nullptr) {
        ZPCache_6_0 const& copied = *copy;
        if (typeid(copied) != typeid(cache))
            copy.reset();  // a class that inherits clone(): the copy would lack its own fields
    }
    return copy;
}

ZProperties_6_0::Rep::CacheRestorer::CacheRestorer(ZPCache_6_0& cache)
    : cache_(cache), companionFile_(cache.companionFile().getChars())
{
    // Copies only the library's base class, which has the contents.
    if (auto const* const contents = dynamic_cast<ZPCategoryBasedCache_6_0 const*>(&cache))
        before_ = std::make_unique<ZPCategoryBasedCache_6_0>(*contents);
}

ZProperties_6_0::Rep::CacheRestorer::~CacheRestorer()
{
    if (isDismissed_)
        return;
    if (before_ != nullptr)
        static_cast<ZPCategoryBasedCache_6_0&>(cache_).ZPCategoryBasedCache_6_0::swapContents(
            *before_);
    else
        zreporting::runCleanup({kSource, raiseInLoad},
                               [this] { cache_.setCompanionFile(companionFile_.c_str()); });
}

void ZProperties_6_0::Rep::exchange(ZProperties_6_0& store, std::unique_ptr<ZPCache_6_0>& copy)
{
    if (store.rep_->direct != nullptr && store.cache_->swapContents(*copy) != 0)
        return;
    ZPCache_6_0* const old = store.cache_;
    store.rep_->replaced += old->generation() + 1;
    store.cache_ = copy.release();
    copy.reset(old);
    store.rep_->setCache(*store.cache_);
}

bool ZProperties_6_0::Rep::lastValue(ZProperties_6_0 const& store, char const* category,
                                     char const* key, ZPropertiesText& value)
{
    if (store.rep_->direct != nullptr)
        return store.rep_->direct->lastValue(category, key, ZPCache_6_0::anyValues, value);
    ZArrayList_6_0 const* const values = store.cache_->get(category, key, ZPCache_6_0::anyValues);
    if (values == nullptr || values->size() == 0)
        return false;
    auto const* const last = static_cast<ZLCString_6_0 const*>(values->get(values->size() - 1));
    value = {last->getChars(), last->getLength()};
    return true;
}

ZProperties_6_0::ZProperties_6_0(ZPCache_6_0* cache)
try : cache_(cache), modified_(0), loading_(0), timeStamp_(0), rep_(nullptr) {
    if (cache == nullptr)
        ZInvalidParameterException_6_0().throwException(kSource, raiseInConstructor);
    translateErrors(raiseInConstructor, [&] { rep_ = new Rep(*cache); });
} catch (...) {
    delete cache;
    throw;
}

ZProperties_6_0::ZProperties_6_0(ZProperties_6_0 const& other)
    : ZAbstractProperties_6_0(other),
      ZAbstractObservable_6_0(),
      ZPropertiesMutableInterface_6_0(),
      lock_(),
      cache_(nullptr),
      modified_(0),
      loading_(0),
      timeStamp_(0),
      rep_(nullptr)
{
    translateErrors(raiseInConstructor, [&] {
        Hold const hold(other);
        std::unique_ptr<ZPCache_6_0> copy(other.cache_->clone());
        if (copy == nullptr)
            ZNotClonableException_6_0().throwException(kSource, raiseInConstructor);
        fileName_ = other.fileName_;
        auto rep = std::make_unique<Rep>(*copy);
        rep->companions = other.rep_->companions;
        rep->isReplacing = other.rep_->isReplacing;
        modified_ = other.modified_;
        timeStamp_ = other.timeStamp_;
        cache_ = copy.release();
        rep_ = rep.release();
    });
}

ZProperties_6_0::~ZProperties_6_0()
{
    delete cache_;
    delete rep_;
}

// ---- Reading values ----------------------------------------------------------------------------

int ZProperties_6_0::exists(char const* category, char const* key) const
{
    requireNames(category, key);
    Hold const hold(*this);
    return cache_->contains(category, key);
}

int ZProperties_6_0::exists(char const* category) const
{
    requireName(category);
    Hold const hold(*this);
    return cache_->contains(category);
}

int ZProperties_6_0::isObfuscated(char const* category, char const* key) const
{
    requireNames(category, key);
    Hold const hold(*this);
    return cache_->isObfuscated(category, key);
}

int ZProperties_6_0::isObfuscated(char const* category) const
{
    requireName(category);
    Hold const hold(*this);
    return cache_->isObfuscated(category);
}

namespace {

void requireNoDefaultIfRequired(int required, bool hasDefault)
{
    if (required != 0 && hasDefault)
        ZInvalidParameterException_6_0().throwException(kSource, raiseForDefault);
}

[[noreturn]] void throwMissing(ZLCString_6_0 const& file, char const* category, char const* key)
{
    ZPropertiesMissingPropertyException_6_0(file.getChars(), category, key)
        .throwException(kSource, raiseForMissing);
}

}  // namespace

void ZProperties_6_0::getValue(char const* category, char const* key,
                               ZAbstractMutableString_6_0& out, int required,
                               char const* defaultValue) const
{
    requireNames(category, key);
    requireNoDefaultIfRequired(required, defaultValue != nullptr);
    Hold const hold(*this);
    ZPropertiesText value;
    if (!Rep::lastValue(*this, category, key, value)) {
        if (required != 0)
            throwMissing(fileName_, category, key);
        if (defaultValue != nullptr)
            out.setChars(defaultValue);
        else
            out.clear();
    } else if (out.getCodesetHandle() == fileName_.getCodesetHandle()) {
        out.setChars(value.chars);
    } else {
        out.clear();
        out.convertFromCodeSet(ZLCConstString_6_0(value.chars));
    }
}

unsigned int ZProperties_6_0::getIntegerValue(char const* category, char const* key, int required,
                                              unsigned int defaultValue) const
{
    requireNames(category, key);
    requireNoDefaultIfRequired(required, defaultValue != 0);
    Hold const hold(*this);
    ZPropertiesText value;
    if (!Rep::lastValue(*this, category, key, value)) {
        if (required != 0)
            throwMissing(fileName_, category, key);
        return defaultValue;
    }
    unsigned int number = 0;
    if (value.length > 0 && !toNumber(value.chars, number))
        ZPropertiesInvalidNumValueException_6_0(fileName_.getChars(), category, key, value.chars)
            .throwException(kSource, raiseForNumber);
    return number;
}

int ZProperties_6_0::getBooleanValue(char const* category, char const* key, int required,
                                     int defaultValue) const
{
    requireNames(category, key);
    requireNoDefaultIfRequired(required, defaultValue != 0);
    Hold const hold(*this);
    ZPropertiesText value;
    if (!Rep::lastValue(*this, category, key, value)) {
        if (required != 0)
            throwMissing(fileName_, category, key);
        return defaultValue;
    }
    if (value.length == 0)
        return 0;
    for (BoolWord const& known : kBoolWords)
        if (equalIgnoringCase(known.word, value.chars))
            return known.value;
    ZPropertiesInvalidBoolValueException_6_0(fileName_.getChars(), category, key, value.chars)
        .throwException(kSource, raiseForTruth);
}

bool ZProperties_6_0::Rep::lacksUTF8(char const* value)
{
    return *value != '\0' && ZUTF8String_6_0(ZLCConstString_6_0(value)).isEmpty();
}

bool ZProperties_6_0::Rep::hasValueWithoutUTF8(ZProperties_6_0 const& store, char const* category,
                                               char const* key)
{
    for (auto const type : {ZPCache_6_0::plainValues, ZPCache_6_0::obfuscatedValues}) {
        auto const* const values = store.cache_->get(category, key, type);
        for (unsigned i = 0; values != nullptr && i < values->size(); ++i)
            if (lacksUTF8(static_cast<ZLCString_6_0 const*>(values->get(i))->getChars()))
                return true;
    }
    return false;
}

// KEPT: a value that is not valid in the local codeset becomes an empty string without an error, as
// in getValue() and the iterators. A program that reads all values of a file with one broken value
// would fail otherwise. Test:
// ZStanzaFileProperties.KeepsReadingAnUnconvertibleValueAsEmptyUTF8
void ZProperties_6_0::Rep::Strings::add(char const* text, ZPropertyStringType type)
{
    std::unique_ptr<ZObject_6_0> string;
    if (type == zPropUTF8Strings)
        string.reset(new ZUTF8String_6_0(ZLCConstString_6_0(text)));
    else
        string.reset(new ZLCString_6_0(text));
    list_.addNoCopy(string.get());
    (void)string.release();
}

void ZProperties_6_0::Rep::Strings::removeFirst()
{
    delete list_.get(0);
    list_.remove(0u);
}

// ZArrayList has no reserve(), but keeps its capacity when elements are removed.
void ZProperties_6_0::Rep::Strings::reserveIn(ZArrayList_6_0& target, unsigned existing) const
{
    unsigned const before = target.size();
    try {
        while (target.capacity() < existing + list_.size())
            target.addNoCopy(nullptr);
    } catch (ZOutOfMemoryException_6_0 const&) {
        while (target.size() > before)
            target.remove(target.size() - 1);
        throw;
    }
    while (target.size() > before)
        target.remove(target.size() - 1);
}

void ZProperties_6_0::Rep::Strings::moveTo(ZArrayList_6_0& target)
{
    for (unsigned i = 0; i < list_.size(); ++i)
        target.addNoCopy(list_.get(i));
    list_.removeAll();
}

void ZProperties_6_0::getValues(char const* category, char const* key, ZArrayList_6_0& out,
                                ZPropertyStringType type) const
{
    requireNames(category, key);
    if (out.ownsMembers() == 0 || (type != zPropLocalStrings && type != zPropUTF8Strings))
        ZInvalidParameterException_6_0().throwException(kSource, raiseInGetValues);
    Hold const hold(*this);
    Rep::Strings fresh;
    if (rep_->direct != nullptr) {
        auto values = rep_->direct->values(category, key, ZPCache_6_0::anyValues);
        for (ZPropertiesText value; values.next(value);)
            fresh.add(value.chars, type);
    } else if (auto const* list = cache_->get(category, key, ZPCache_6_0::anyValues)) {
        for (unsigned i = 0; i < list->size(); ++i)
            fresh.add(static_cast<ZLCString_6_0 const*>(list->get(i))->getChars(), type);
    }
    fresh.reserveIn(out, 0);
    out.removeAll();
    fresh.moveTo(out);
}

int ZProperties_6_0::numValues(char const* category) const
{
    requireName(category);
    Hold const hold(*this);
    if (rep_->direct != nullptr)
        return cache_->countValues(category);
    auto const* const values = cache_->get(category, ZPCache_6_0::anyValues);
    return values == nullptr ? 0 : static_cast<int>(values->size());
}

int ZProperties_6_0::numValues(char const* category, char const* key) const
{
    requireNames(category, key);
    Hold const hold(*this);
    if (rep_->direct != nullptr)
        return cache_->countValues(category, key);
    auto const* const values = cache_->get(category, key, ZPCache_6_0::anyValues);
    return values == nullptr ? 0 : static_cast<int>(values->size());
}

int ZProperties_6_0::count() const
{
    Hold const hold(*this);
    return cache_->count();
}

int ZProperties_6_0::count(char const* category) const
{
    requireName(category);
    Hold const hold(*this);
    return cache_->keyCount(category);
}

void ZProperties_6_0::list() const
{
    ZCancelGuard const uncancelled;
    Hold const hold(*this);
    cache_->list(stdout);
}

ZArrayList_6_0* ZProperties_6_0::keyNames(char const* category) const
{
    requireName(category);
    Hold const hold(*this);
    return cache_->getNames(category);
}

ZArrayList_6_0* ZProperties_6_0::categoryNames() const
{
    Hold const hold(*this);
    std::unique_ptr<ZArrayList_6_0> names(new ZArrayList_6_0(16, 1));
    cache_->getNames(*names);
    return names.release();
}

// ---- Files -------------------------------------------------------------------------------------

namespace {

// Parses `text` into a cache. A cache of a class outside the library reads it from a stream.
void parse(ZPCache_6_0& cache, ZSCFData_6_0* stanzas, char const* path, std::string_view text)
{
    if (stanzas != nullptr) {
        stanzas->readText(path, text.data(), text.size());
        return;
    }
    char none[1] = "";
    char* const data = text.empty() ? none : const_cast<char*>(text.data());
    File const file(fmemopen(data, text.size(), "r"));
    if (file == nullptr)
        throw ZJournaledFile::IoError{path, "fmemopen()", errno};
    cache.be_read(path, file.get());
}

// An output stream in memory. The C library's own does not report bytes that it dropped for lack of
// memory.
struct MemoryStream {
    std::string text;
    size_t place = 0;     // position of the next byte
    bool isLost = false;  // bytes were dropped for lack of memory

    static ssize_t write(void* stream, char const* bytes, size_t length)
    {
        auto& [text, place, isLost] = *static_cast<MemoryStream*>(stream);
        try {
            text.resize(std::max(text.size(), place + length));
        } catch (std::exception const&) {
            isLost = true;
            errno = ENOMEM;
            return 0;
        }
        memcpy(text.data() + place, bytes, length);
        place += length;
        return static_cast<ssize_t>(length);
    }

    static int seek(void* stream, off64_t* offset, int from)
    {
        auto& [text, place, isLost] = *static_cast<MemoryStream*>(stream);
        size_t const base = from == SEEK_SET ? 0 : from == SEEK_CUR ? place : text.size();
        off64_t const target = static_cast<off64_t>(base) + *offset;
        if (target < 0) {
            errno = EINVAL;
            return -1;
        }
        *offset = target;
        place = static_cast<size_t>(target);
        return 0;
    }
};

// Writes the text of a cache. A cache of a class outside the library writes it to a stream.
void render(ZPCache_6_0& cache, ZSCFData_6_0* stanzas, char const* path, ZBuffer_6_0& text)
{
    if (stanzas != nullptr) {
        stanzas->writeText(text);
        return;
    }
    MemoryStream written;
    File const file(
        fopencookie(&written, "w", {nullptr, MemoryStream::write, MemoryStream::seek, nullptr}));
    if (file == nullptr)
        throw ZJournaledFile::IoError{path, "fopencookie()", errno};
    cache.be_write(path, file.get());
    bool const failed = ferror(file.get()) != 0 || fflush(file.get()) != 0;
    if (failed || written.isLost)
        throw ZJournaledFile::IoError{path, "fwrite()", written.isLost ? ENOMEM : errno};
    text.setBuffer(written.text.size(), written.text.data());
}

}  // namespace

char const* ZProperties_6_0::Rep::choosePath(ZProperties_6_0& store, char const* path)
{
    ZLCString_6_0& name = store.fileName_;
    if (isEmpty(path)) {
        if (name.isEmpty())
            ZInvalidParameterException_6_0().throwException(kSource, raiseForPath);
        return name.getChars();
    }
    if (name.isEmpty())
        name.setCapacity(static_cast<unsigned>(strlen(path)));
    return path;
}

void ZProperties_6_0::Rep::recordFile(ZProperties_6_0& store, char const* path,
                                      ZJournaledFile const& file)
{
    ZJournaledFile::Stamp const& stamp = file.stamp();
    // Returns whether `name` leads to the file, even if it is not `path`.
    auto const isNameOf = [&](char const* name) {
        struct stat status;
        return strcmp(name, path) == 0 ||
               (stat(name, &status) == 0 && status.st_dev == stamp.device &&
                status.st_ino == stamp.inode);
    };
    if (store.fileName_.isEmpty())
        store.fileName_ = path;
    if (isNameOf(store.fileName_.getChars()))
        store.timeStamp_ = stamp.seconds;
    Rep& rep = *store.rep_;
    if (rep.sharedPath.empty() || !isNameOf(rep.sharedPath.c_str()))
        return;
    std::lock_guard<std::mutex> const guard(rep.stampMutex_);
    rep.sharedStamp_ = stamp;
}

bool ZProperties_6_0::Rep::isCurrent(ZProperties_6_0& store)
{
    if (std::atomic_ref<int>(store.modified_).load(std::memory_order_relaxed) != 0)
        return true;
    struct stat status;
    return stat(store.rep_->sharedPath.c_str(), &status) != 0 ||
           ZJournaledFile::Stamp(status) == store.rep_->sharedStamp();
}

namespace {

std::string_view trimmed(std::string_view text)
{
    auto const isSpace = [](char c) { return isspace(static_cast<unsigned char>(c)) != 0; };
    while (!text.empty() && isSpace(text.back()))
        text.remove_suffix(1);
    while (!text.empty() && isSpace(text.front()))
        text.remove_prefix(1);
    return text;
}

}  // namespace

std::string ZProperties_6_0::Rep::companionEntry(ZProperties_6_0 const& store)
{
    ZPropertiesText entry;
    return lastValue(store, kReservedCategory, kReservedKey, entry)
               ? std::string(entry.chars, entry.length)
               : std::string();
}

std::string ZProperties_6_0::Rep::companionPath(ZProperties_6_0 const& store)
{
    std::string const entry = companionEntry(store);
    // As it is read back from the text.
    std::string_view const path = trimmed(entry);
    return path.empty() ? store.cache_->companionFile().getChars() : std::string(path);
}

bool ZProperties_6_0::Rep::Companions::isLoaded(std::string const& path) const
{
    for (Companion const& companion : list_)
        if (companion.path == path)
            return companion.isLoaded;
    return false;
}

void ZProperties_6_0::Rep::Companions::addLoaded(std::string const& path)
{
    remove(path);
    if (list_.size() == kMaxCount)
        list_.erase(list_.begin());
    list_.push_back({path, true});
}

void ZProperties_6_0::Rep::Companions::remove(std::string const& path)
{
    std::erase_if(list_, [&](Companion const& companion) { return companion.path == path; });
}

void ZProperties_6_0::Rep::Companions::setAllUnloaded()
{
    for (Companion& companion : list_)
        companion.isLoaded = false;
}

namespace {

// Returns whether `companion` belongs to another existing file: its path is that file's and ".obf".
bool belongsToAnotherFile(std::string const& companion, char const* path)
{
    static constexpr std::string_view kEnd = ".obf";
    if (companion.size() <= kEnd.size() || !companion.ends_with(kEnd))
        return false;
    struct stat owner;
    struct stat file;
    std::string const other = companion.substr(0, companion.size() - kEnd.size());
    return stat(other.c_str(), &owner) == 0 && S_ISREG(owner.st_mode) &&
           (stat(path, &file) != 0 || file.st_dev != owner.st_dev || file.st_ino != owner.st_ino);
}

// Returns the path of the companion that the text of a stanza file names; empty if it names no
// file.
std::string companionNamedIn(std::string_view text)
{
    std::string_view rest = text;
    std::string const head = std::string("[") + kReservedCategory + "]";
    size_t const at = rest.find(head);
    if (at == rest.npos)
        return std::string();
    // Start with the whole line: the match may be in a comment or a value.
    size_t const lineEnd = rest.rfind('\n', at);
    rest.remove_prefix(lineEnd == rest.npos ? 0 : lineEnd + 1);
    std::string_view companion;
    for (bool isInside = false; !rest.empty();) {
        size_t const end = rest.find('\n');
        std::string_view const line = trimmed(rest.substr(0, end));
        rest.remove_prefix(end == rest.npos ? rest.size() : end + 1);
        size_t const sign = line.find('=');
        if (line.starts_with('[')) {
            if (isInside)
                break;
            isInside = line.starts_with(head);
        } else if (isInside && sign != line.npos && trimmed(line.substr(0, sign)) == kReservedKey) {
            companion = trimmed(line.substr(sign + 1));
        }
    }
    return std::string(companion);
}

}  // namespace

std::string ZProperties_6_0::Rep::companionToRemove(ZProperties_6_0 const& store,
                                                    ZJournaledFile const& file,
                                                    std::string const& named)
{
    auto const isRemovable = [&file](std::string const& path) {
        return !path.empty() && file.mayRemove(path);
    };
    auto const exists = [](std::string const& path) {
        struct stat status;
        return lstat(path.c_str(), &status) == 0 || (errno != ENOENT && errno != ENOTDIR);
    };
    if (isRemovable(named))
        return named;
    for (Companions::Companion const& known : store.rep_->companions.list())
        if (isRemovable(known.path) && exists(known.path))
            return known.path;
    // The store may never have read the file that it overwrites, so the old text has to be checked.
    std::string before = store.rep_->isStanzaFile ? companionNamedIn(file.text()) : std::string();
    return isRemovable(before) && exists(before) ? before : std::string();
}

bool ZProperties_6_0::Rep::namesOwnCompanion(ZJournaledFile const& file)
{
    std::string const entry = companionNamedIn(file.text());
    return !entry.empty() && file.isOwnCompanion(entry);
}

ZPCache_6_0* ZProperties_6_0::Rep::setCompanion(ZProperties_6_0& store, char const* path,
                                                std::unique_ptr<ZPCache_6_0>& edited,
                                                std::optional<CacheRestorer>& restorer)
{
    edited = copyCache(store);
    if (edited == nullptr)
        restorer.emplace(*store.cache_);
    ZPCache_6_0* const target = edited != nullptr ? edited.get() : store.cache_;
    if (path != nullptr) {
        requireValidValue(kReservedKey, path);
        target->addLine(kReservedCategory, kReservedKey, path, 0);
    } else {
        target->delLine(kReservedCategory, kReservedKey);
    }
    target->setCompanionFile(path);
    return target;
}

bool ZProperties_6_0::Rep::loadOnce(ZProperties_6_0& store, char const* path)
{
    // Reads the file into a copy of the cache, so that a failure changes nothing.
    std::unique_ptr<ZPCache_6_0> copy = copyCache(store);
    ZPCache_6_0& target = copy != nullptr ? *copy : *store.cache_;
    std::optional<CacheRestorer> restorer;
    if (copy == nullptr)
        restorer.emplace(target);
    Rep& rep = *store.rep_;
    auto* const stanzas = rep.stanzas != nullptr ? static_cast<ZSCFData_6_0*>(&target) : nullptr;

    ZJournaledFile file(path, ZJournaledFile::Mode::load);
    std::string const known = target.companionFile().getChars();
    target.setCompanionFile(nullptr);
    parse(target, stanzas, path, file.text());
    // Read a companion that the text names, even if the store has read it before: the stanzas of
    // the text are new to the store, so the earlier values have been removed since.
    bool const isNamed = !target.companionFile().isEmpty();
    if (!isNamed)
        target.setCompanionFile(known.c_str());
    Companions read = rep.companions;
    std::string const companion = target.companionFile().getChars();
    if (!companion.empty() && (isNamed || !read.isLoaded(companion))) {
        // After a replacement, the companion may be the one that a store of the new file wrote.
        bool const canRetry = !restorer || restorer->canRestore();
        try {
            ZJournaledFile::Bytes packed = file.readCompanion(companion.c_str());
            ZBuffer_6_0 buffer;
            moveToBuffer(packed, buffer);
            target.be_read_obfuscated(buffer);
        } catch (...) {
            if (canRetry && file.isReplaced())
                return false;
            throw;
        }
        if (file.isReplaced()) {
            if (canRetry)
                return false;
            throw ZJournaledFile::IoError{path, "fopen(r)", ESTALE};
        }
        read.addLoaded(companion);
    }
    file.close();

    rep.companions.swap(read);
    if (copy != nullptr)
        exchange(store, copy);
    try {
        store.postLoad(path);
    } catch (...) {
        if (copy != nullptr)
            exchange(store, copy);
        rep.companions.swap(read);
        throw;
    }
    if (restorer)
        restorer->dismiss();
    recordFile(store, path, file);
    setModified(store, 0);
    return true;
}

void ZProperties_6_0::load(char const* path)
{
    constexpr int kMaxAttempts = 100;
    ZCancelGuard const uncancelled;
    Hold const hold(*this);
    char const* const chosen = Rep::choosePath(*this, path);
    ScopedValue const loading(loading_, 1);
    translateErrors(raiseInLoad, [&] {
        for (int attempts = 1; !Rep::loadOnce(*this, chosen); ++attempts)
            if (attempts == kMaxAttempts)
                throw ZJournaledFile::IoError{chosen, "fopen(r)", ESTALE};
    });
}

void ZProperties_6_0::reload(char const* path)
{
    ZCancelGuard const uncancelled;
    Hold const hold(*this);
    if (isEmpty(path) && fileName_.isEmpty())
        ZInvalidParameterException_6_0().throwException(kSource, raiseInReload);
    translateErrors(raiseInReload, [&] {
        std::unique_ptr<ZPCache_6_0> empty(
            rep_->direct != nullptr ? cache_->makeEmpty() : Rep::copyCache(*this).release());
        std::optional<Rep::CacheRestorer> restorer;
        if (empty == nullptr)
            restorer.emplace(*cache_);
        else if (rep_->direct == nullptr)
            empty->clear();
        Rep::Companions companions;
        rep_->companions.swap(companions);
        if (empty != nullptr)
            Rep::exchange(*this, empty);
        try {
            if (empty == nullptr)
                cache_->clear();
            load(path);
        } catch (...) {
            if (empty != nullptr)
                Rep::exchange(*this, empty);
            rep_->companions.swap(companions);
            throw;
        }
        if (restorer)
            restorer->dismiss();
    });
}

void ZProperties_6_0::store(char const* path)
{
    ZCancelGuard const uncancelled;
    Hold const hold(*this);
    char const* const chosen = Rep::choosePath(*this, path);
    translateErrors(raiseInStore, [&] {
        std::string const named = Rep::companionPath(*this);
        std::string companion = named;
        bool const hasItems = cache_->obfuscatedItemCount() > 0;
        // Two files with the same companion would overwrite each other's values.
        if (hasItems && belongsToAnotherFile(companion, chosen))
            companion.clear();
        if (hasItems)
            checkFileAccess(
                (companion.empty() ? ZJournaledFile::likelyCompanion(chosen) : companion).c_str());

        ZJournaledFile file(chosen, ZJournaledFile::Mode::store);
        std::unique_ptr<ZPCache_6_0> edited;         // the contents with another companion entry
        std::optional<Rep::CacheRestorer> restorer;  // if the cache itself had to be edited
        ZPCache_6_0* source = cache_;
        ZJournaledFile::Companion change;
        ZBuffer_6_0 packed;
        if (hasItems) {
            if (companion.empty())
                companion = file.newCompanion();
            if (Rep::companionEntry(*this) == companion)
                cache_->setCompanionFile(companion.c_str());
            else
                source = Rep::setCompanion(*this, companion.c_str(), edited, restorer);
            source->be_write_obfuscated(packed);
        }
        Rep::Companions companions = rep_->companions;
        if (packed.getLength() > 0) {
            change.change = ZJournaledFile::Companion::written;
            change.path = companion;
            change.contents = viewOf(packed);
            change.isNamed =
                companion == named || (rep_->isStanzaFile && Rep::namesOwnCompanion(file));
            companions.addLoaded(companion);
        } else {
            companions.setAllUnloaded();
            change.path = Rep::companionToRemove(*this, file, named);
            if (!change.path.empty()) {
                change.change = ZJournaledFile::Companion::removed;
                companions.remove(change.path);
            }
            if (!companion.empty())
                source = Rep::setCompanion(*this, nullptr, edited, restorer);
        }

        ZBuffer_6_0 text;
        render(*source, rep_->stanzas != nullptr ? static_cast<ZSCFData_6_0*>(source) : nullptr,
               chosen, text);
        rep_->isReplacing ? file.replace(viewOf(text), change) : file.commit(viewOf(text), change);
        file.close();

        if (edited != nullptr)
            Rep::exchange(*this, edited);
        if (restorer)
            restorer->dismiss();
        rep_->companions.swap(companions);
        Rep::recordFile(*this, chosen, file);
        loading_ = 0;
        Rep::setModified(*this, 0);
    });
}

int ZProperties_6_0::checkAndSetTimeStamp(char const* path, long& stamp)
{
    struct stat status;
    if (isEmpty(path) || access(path, F_OK) != 0 || stat(path, &status) != 0 ||
        status.st_mtim.tv_sec == stamp)
        return 0;
    stamp = status.st_mtim.tv_sec;
    return 1;
}

void ZProperties_6_0::setReplacing(int replacing)
{
    Hold const hold(*this);
    rep_->isReplacing = replacing != 0;
}

int ZProperties_6_0::isReplacing() const
{
    Hold const hold(*this);
    return rep_->isReplacing ? 1 : 0;
}

void ZProperties_6_0::setMaxFileSize(unsigned long size)
{
    zstore::setMaxFileSize(size);
}

unsigned long ZProperties_6_0::maxFileSize()
{
    return zstore::maxFileSize();
}

void ZProperties_6_0::checkFileAccess(char const* path)
{
    auto const check = [](char const* file) {
        if (access(file, R_OK | W_OK) != 0)
            throw ZJournaledFile::IoError{file, "access()", errno};
    };
    if (isEmpty(path))
        ZInvalidParameterException_6_0().throwException(kSource, raiseInCheckFileAccess);
    translateErrors(raiseInCheckFileAccess, [&] {
        if (access(path, F_OK) == 0) {
            check(path);
            return;
        }
        std::string directory(path);
        size_t const slash = directory.rfind('/');
        if (slash != std::string::npos) {
            directory.resize(slash == 0 ? 1 : slash);
            check(directory.c_str());
            return;
        }
        char current[kWorkingDirectory];
        if (getcwd(current, sizeof current) == nullptr)
            throw ZJournaledFile::IoError{path, "getcwd()", errno};
        check(current);
    });
}

// ---- Changing ----------------------------------------------------------------------------------

void ZProperties_6_0::setValue(char const* category, char const* key, char const* value)
{
    setValue(category, key, value, 0);
}

void ZProperties_6_0::setValue(char const* category, char const* key, char const* value,
                               int obfuscated)
{
    requireValidKey(category, key);
    bool const reserved =
        strcmp(category, kReservedCategory) == 0 && strcmp(key, kReservedKey) == 0;
    if (obfuscated == 0)
        requireValidValue(key, value);
    else if (reserved)  // an obfuscated entry is not in the file: load() would miss the companion
        ZInvalidParameterException_6_0().throwException(kSource, raiseForNewText);
    auto notice = Rep::makeNotice(ZPropertyChanged_6_0::set, category, key);
    Hold const hold(*this);
    if (!isEmpty(value))
        checkAccess(category, key, obfuscated);
    cache_->addLine(category, key, value, obfuscated);
    Rep::recordChange(*this, std::move(notice));
}

void ZProperties_6_0::setValue(char const* category, char const* key, ZLCString_6_0 const& value,
                               int obfuscated)
{
    setValue(category, key, value.getChars(), obfuscated);
}

void ZProperties_6_0::setValue(char const* category, char const* key, ZUTF8String_6_0 const& value,
                               int obfuscated)
{
    ZLCString_6_0 local;
    toLocal(value, local);
    Hold const hold(*this);
    if (local.isEmpty()) {
        requireValidKey(category, key);
        if (Rep::hasValueWithoutUTF8(*this, category, key))
            ZInvalidParameterException_6_0().throwException(kSource, raiseForNewText);
    }
    setValue(category, key, local.getChars(), obfuscated);
}

void ZProperties_6_0::setValue(char const* category, char const* key,
                               ZLCConstString_6_0 const& value, int obfuscated)
{
    setValue(category, key, value.getChars(), obfuscated);
}

void ZProperties_6_0::setValue(char const* category, char const* key,
                               ZUTF8ConstString_6_0 const& value, int obfuscated)
{
    ZLCString_6_0 local;
    toLocal(value, local);
    Hold const hold(*this);
    if (local.isEmpty()) {
        requireValidKey(category, key);
        if (Rep::hasValueWithoutUTF8(*this, category, key))
            ZInvalidParameterException_6_0().throwException(kSource, raiseForNewText);
    }
    setValue(category, key, local.getChars(), obfuscated);
}

void ZProperties_6_0::setIntegerValue(char const* category, char const* key, unsigned int value)
{
    requireNames(category, key);
    Hold const hold(*this);
    checkAccess(category, key, 0);
    setValue(category, key, ZLCString_6_0(value), 0);
}

void ZProperties_6_0::setBooleanValue(char const* category, char const* key, int value)
{
    requireNames(category, key);
    Hold const hold(*this);
    checkAccess(category, key, 0);
    setValue(category, key, value != 0 ? "yes" : "no", 0);
}

void ZProperties_6_0::deleteKey(char const* category, char const* key)
{
    requireNames(category, key);
    auto notice = Rep::makeNotice(ZPropertyChanged_6_0::removed, category, key);
    Hold const hold(*this);
    cache_->delLine(category, key);
    Rep::recordChange(*this, std::move(notice));
}

// Returns the strings to add to the cache one after another: the lines of a comment after
// checkComment(). A cache of stanza files gets them in a single string, which it splits into the
// same lines: if they were added one by one, it would insert blank lines between the lines of a
// stanza's comment.
ZArrayList_6_0* ZProperties_6_0::Rep::commentTexts(ZProperties_6_0& store, char const* comment)
{
    if (comment == nullptr)
        ZInvalidParameterException_6_0().throwException(kSource, raiseForComment);
    std::unique_ptr<ZArrayList_6_0> lines(new ZArrayList_6_0(1, 1));
    ZLCString_6_0 joined;
    for (char const* at = comment;;) {
        char const* const end = strchrnul(at, '\n');
        std::unique_ptr<ZLCString_6_0> line(new ZLCString_6_0(at, static_cast<unsigned>(end - at)));
        store.checkComment(*line);
        // A line without "#" would be read back as a key or as the header of a stanza.
        bool const isMarked = !store.rep_->isStanzaFile || line->getChars()[0] == '#';
        if (!isMarked || line->getLength() > kLongestLine)
            ZInvalidParameterException_6_0().throwException(kSource, raiseForComment);
        if (store.rep_->isStanzaFile) {
            if (at != comment)
                joined += "\n";
            joined += *line;
        } else {
            lines->addNoCopy(line.get());
            (void)line.release();
        }
        if (*end == '\0') {
            if (store.rep_->isStanzaFile)
                lines->add(&joined);
            return lines.release();
        }
        at = end + 1;
    }
}

void ZProperties_6_0::addFileComment(char const* comment)
{
    Hold const hold(*this);
    Rep::addComment(*this, comment,
                    [](ZPCache_6_0& cache, char const* line) { cache.addFileComment(line); });
}

void ZProperties_6_0::addEntryComment(char const* category, char const* key, char const* comment)
{
    requireValidKey(category, key);
    Hold const hold(*this);
    Rep::addComment(*this, comment, [&](ZPCache_6_0& cache, char const* line) {
        cache.addLineComment(category, key, line);
    });
}

void ZProperties_6_0::postLoad(char const*)
{
}

void ZProperties_6_0::checkComment(ZLCString_6_0&)
{
}

void ZProperties_6_0::setAttributes(unsigned long attributes, void* argument)
{
    Hold const hold(*this);
    cache_->setAttributes(attributes, argument);
}

void ZProperties_6_0::checkAccess(char const* category, char const* key, int obfuscated)
{
    requireNames(category, key);
    Hold const hold(*this);
    bool const hidden = cache_->isObfuscated(category, key) != 0;
    bool plain;
    if (rep_->direct != nullptr) {
        plain = rep_->direct->values(category, key, ZPCache_6_0::plainValues).count() > 0;
    } else {
        auto const* const values = cache_->get(category, key, ZPCache_6_0::plainValues);
        plain = values != nullptr && values->size() > 0;
    }
    bool const allowed = obfuscated != 0 ? hidden || !plain : plain || !hidden;
    if (!allowed)
        ZInvalidParameterException_6_0().throwException(kSource, raiseInCheckAccess);
}

void ZProperties_6_0::setModified()
{
    Hold const hold(*this);
    Rep::setModified(*this, 1);
}

void ZProperties_6_0::resetModified()
{
    Hold const hold(*this);
    Rep::setModified(*this, 0);
}

int ZProperties_6_0::isModified() const
{
    Hold const hold(*this);
    return modified_;
}

long ZProperties_6_0::timeStamp() const
{
    Hold const hold(*this);
    return timeStamp_;
}

// ---- One store for a path ----------------------------------------------------------------------

namespace {

// A store that a thread is loading. The registry is locked only while the maps are accessed. A
// thread that loads or waits holds only locks that it held on entry, so no two threads can wait for
// each other.
struct PendingLoad {
    ZAbstractPropertiesFactory_6_0 const* factory;
    std::string path;
    pthread_t thread;
    bool done = false;  // guarded by PendingLoads::mutex
};

struct PendingLoads {
    // Waits until the thread that loads `load` has finished.
    // throws  ZJournaledFile::IoError (path, "fcntl()", EDEADLK) if that thread is the calling
    //         thread, or waits, directly or through other threads, for a store that the calling
    //         thread is loading.
    void waitFor(PendingLoad const& load);

    std::vector<std::shared_ptr<PendingLoad>> list;  // guarded by the registry
    std::mutex mutex;
    std::condition_variable ended;

private:
    struct Wait {
        pthread_t thread;
        PendingLoad const* load;
    };
    PendingLoad const* waitedForBy(pthread_t thread) const;

    std::vector<Wait> waits_;  // guarded by mutex
};

PendingLoad const* PendingLoads::waitedForBy(pthread_t thread) const
{
    for (Wait const& wait : waits_)
        if (pthread_equal(wait.thread, thread))
            return wait.load;
    return nullptr;
}

void PendingLoads::waitFor(PendingLoad const& load)
{
    pthread_t const self = pthread_self();
    std::unique_lock<std::mutex> guard(mutex);
    for (PendingLoad const* next = &load; next != nullptr && !next->done;
         next = waitedForBy(next->thread))
        if (pthread_equal(next->thread, self))
            throw ZJournaledFile::IoError{load.path, "fcntl()", EDEADLK};
    waits_.push_back({self, &load});
    ended.wait(guard, [&] { return load.done; });
    std::erase_if(waits_, [&](Wait const& wait) { return pthread_equal(wait.thread, self); });
}

PendingLoads& pendingLoads()
{
    static PendingLoads* const loads = new PendingLoads;
    return *loads;
}

// Marks the load as finished, whatever its outcome.
class PendingLoadGuard {
public:
    explicit PendingLoadGuard(std::shared_ptr<PendingLoad> const& load) : load_(load) {}
    PendingLoadGuard(PendingLoadGuard const&) = delete;
    PendingLoadGuard& operator=(PendingLoadGuard const&) = delete;
    ~PendingLoadGuard()
    {
        PendingLoads& loads = pendingLoads();
        zreporting::runCleanup({kSource, raiseInGetPropertiesFor}, [&] {
            ZPropRegistry_6_0 const registry;
            std::erase(loads.list, load_);
        });
        std::lock_guard<std::mutex> const guard(loads.mutex);
        load_->done = true;
        loads.ended.notify_all();
    }

private:
    std::shared_ptr<PendingLoad> const load_;
};

}  // namespace

ZProperties_6_0* ZProperties_6_0::getPropertiesFor(char const* path,
                                                   ZAbstractPropertiesFactory_6_0& factory,
                                                   int force)
{
    if (isEmpty(path))
        ZInvalidParameterException_6_0().throwException(kSource, raiseInGetPropertiesFor);
    ZCancelGuard const uncancelled;
    ZProperties_6_0* found = nullptr;
    translateErrors(raiseInGetPropertiesFor, [&] {
        ZLCString_6_0 const key(path);
        PendingLoads& loads = pendingLoads();
        for (;;) {
            auto const own =
                std::make_shared<PendingLoad>(PendingLoad{&factory, path, pthread_self()});
            std::shared_ptr<PendingLoad> pending;
            {
                ZPropRegistry_6_0 const registry;
                found = static_cast<ZProperties_6_0*>(factory.map_.getEntry(&key));
                for (auto const& load : loads.list)
                    if (load->factory == &factory && load->path == path)
                        pending = load;
                if (found == nullptr && pending == nullptr)
                    loads.list.push_back(own);
            }
            if (found != nullptr) {
                found->refresh(path, force);
                return;
            }
            if (pending == nullptr) {
                PendingLoadGuard const end(own);
                found = makeFor(key, factory);
                return;
            }
            loads.waitFor(*pending);
        }
    });
    return found;
}

// Creates the factory's store for a path, loads it and inserts it into the map.
ZProperties_6_0* ZProperties_6_0::makeFor(ZLCString_6_0 const& path,
                                          ZAbstractPropertiesFactory_6_0& factory)
{
    std::unique_ptr<ZProperties_6_0> store;
    {
        ZResourceLock_6_0 const guard(factory.lock_);
        store.reset(factory.makePropertiesInstance());
    }
    if (store == nullptr)
        ZInvalidParameterException_6_0().throwException(kSource, raiseInGetPropertiesFor);
    store->rep_->sharedPath = path.getChars();
    store->load(path.getChars());
    std::unique_ptr<ZLCString_6_0> key(path.clone());
    ZPropRegistry_6_0 const registry;
    factory.map_.putEntry(key.get(), store.get());
    (void)key.release();
    return store.release();
}

// Reloads the file if `force` is set, or if it has changed and the store has no unsaved changes.
// Does not lock an unchanged store: threads that hold stores may look up each other's.
void ZProperties_6_0::refresh(char const* path, int force)
{
    if (force == 0 && Rep::isCurrent(*this))
        return;
    Hold const hold(*this);
    if (force != 0 || !Rep::isCurrent(*this))
        reload(path);
}
