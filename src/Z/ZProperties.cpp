#include "ZProperties.h"

#include <pthread.h>

#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <typeinfo>
#include <utility>

#include "ZArrayList.h"
#include "ZDialectData.h"
#include "ZException.h"
#include "ZPropertiesImpl.h"
#include "ZProperties_p.h"
#include "ZStanzaDialect_p.h"
#include "reporting/failures.h"

using namespace zproperties;

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
    bool const mayThrow = !zreporting::unwinding();
    while (!queue.isEmpty()) {
        std::unique_ptr<Notice> const notice = queue.pop();
        try {
            store.notifyObservers(*notice);
        } catch (...) {
            if (zreporting::caughtCancellation())
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
    dialect = dynamic_cast<ZDialectData_6_0*>(&cache);
    hasCompanion = isStanzaFile && dialect == nullptr;
}

void ZProperties_6_0::Rep::requireUnambiguous(char const* category) const
{
    if (dialect != nullptr && dialect->isAmbiguous(category) != 0)
        ZInvalidParameterException_6_0().throwException(kSource, raiseForNewText);
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

namespace {

// Returns the value that counts of a key in a dialect; none without such a value.
std::optional<Text> countingValue(ZDialectData_6_0 const& cache, char const* category,
                                  char const* key)
{
    auto values = cache.values(category, key, ZPCache_6_0::plainValues);
    zdialects::Switches const switches = zdialects::switchesOf(cache.dialect());
    Text value;
    if (switches.repeatedKey == zdialects::RepeatedKey::first)
        return values.next(value) ? std::optional(value) : std::nullopt;
    bool const resets = switches.emptyValues == zdialects::EmptyValues::reset;
    bool const isFound = values.last(value) && !(resets && value.length == 0);
    return isFound ? std::optional(value) : std::nullopt;
}

}  // namespace

std::optional<Text> ZProperties_6_0::Rep::lastValue(ZPCategoryBasedCache_6_0 const& direct,
                                                    ZDialectData_6_0 const* dialect,
                                                    char const* category, char const* key)
{
    if (dialect != nullptr)
        return countingValue(*dialect, category, key);
    Text value;
    bool const isFound = direct.lastValue(category, key, ZPCache_6_0::anyValues, value);
    return isFound ? std::optional(value) : std::nullopt;
}

std::optional<Text> ZProperties_6_0::Rep::lastValue(ZProperties_6_0 const& store,
                                                    char const* category, char const* key)
{
    if (store.rep_->direct != nullptr)
        return lastValue(*store.rep_->direct, store.rep_->dialect, category, key);
    ZArrayList_6_0 const* const values = store.cache_->get(category, key, ZPCache_6_0::anyValues);
    if (values == nullptr || values->size() == 0)
        return {};
    auto const* const last = static_cast<ZLCString_6_0 const*>(values->get(values->size() - 1));
    return Text{last->getChars(), last->getLength()};
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
        rep->known = other.rep_->known;
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

// ---- Hooks and flags ---------------------------------------------------------------------------

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

void ZProperties_6_0::setFileName(char const* path)
{
    Hold const hold(*this);
    if (fileName_.isEmpty() && !isEmpty(path))
        fileName_ = path;
}
