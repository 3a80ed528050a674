#include "ZThread.h"

#include <errno.h>
#include <pthread.h>

#include <atomic>

#include "ZException.h"
#include "ZThreadPool.h"
#include "reporting/failures.h"

namespace {

constexpr char kSource[] = "src/Z/ZThread";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite {
    raiseInClone = 88,
    raiseInAttrInit = 103,
    raiseInSetDetached = 112,
    raiseInCreate = 124,
    reportInAttrDestroy = 133,
    raiseInJoin = 151,
    reportInRun = 179,
    reportInExit = 196,
    raiseInKeyCreate = 221,
    raiseInSetSpecific = 234
};

using zreporting::Message;
using enum zreporting::Message;

// Values of joinable_.
enum Joinable {
    kNotJoinable = 0,  // not started, detached, or already waited for
    kJoinable = 1,
    kStarting = 2  // detached; waits until the starter has stored the id
};

static_assert(sizeof(pthread_t) == sizeof(unsigned long));
static_assert(sizeof(pthread_key_t) == sizeof(unsigned int));

[[noreturn]] void throwThreadException(Message message, int rc, RaiseSite site)
{
    ZThreadException_6_0(message, rc).throwException(kSource, site);
}

// The attributes of one start; failing to destroy them does not fail the start.
class Attributes {
public:
    explicit Attributes(bool detached)
    {
        int rc = pthread_attr_init(&attributes_);
        if (rc != 0)
            throwThreadException(attrInit, rc, raiseInAttrInit);
        rc = pthread_attr_setdetachstate(
            &attributes_, detached ? PTHREAD_CREATE_DETACHED : PTHREAD_CREATE_JOINABLE);
        if (rc != 0) {
            destroy();
            throwThreadException(setDetachState, rc, raiseInSetDetached);
        }
    }
    Attributes(Attributes const&) = delete;
    Attributes& operator=(Attributes const&) = delete;
    ~Attributes() { destroy(); }

    pthread_attr_t const* get() const { return &attributes_; }

private:
    void destroy()
    {
        int const rc = pthread_attr_destroy(&attributes_);
        if (rc != 0)
            zreporting::reportRc({kSource, reportInAttrDestroy}, attrDestroy, rc);
    }

    pthread_attr_t attributes_;
};

extern "C" void deleteThreadObject(void* object)
{
    ZThread_6_0::key_delete_routine(static_cast<ZObject_6_0*>(object));
}

}  // namespace

// The entry point of a new thread.
struct ZThread_6_0::Entry {
    // Ends the thread, whether run() returned, threw or was cancelled.
    struct End {
        ZThread_6_0& thread;

        ~End()
        {
            // Read the fields first: after the notification another thread may destroy the object.
            bool const deletesItself = thread.detached_ != 0 && thread.autoDelete_ != 0;
            ZThreadPool_6_0* const pool = thread.pool_;
            constexpr zreporting::Site kSite = {kSource, reportInExit};
            zreporting::runCleanup(kSite, [this] { thread.exit(); });
            if (pool != nullptr)
                zreporting::runCleanup(kSite, [&] { pool->threadDeathNotification(thread); });
            if (deletesItself)
                zreporting::runCleanup(kSite, [this] { delete &thread; });
        }
    };

    static void* run(void* argument)
    {
        auto& thread = *static_cast<ZThread_6_0*>(argument);
        std::atomic_ref joinable(thread.joinable_);
        if (thread.detached_ != 0)
            joinable.wait(kStarting);
        else  // pthread_create() may return in the starter only after this thread has ended
            std::atomic_ref(thread.id_).store(pthread_self(), std::memory_order_relaxed);
        End const end{thread};
        zreporting::reportExceptions({kSource, reportInRun}, [&] { thread.run(); });
        return nullptr;
    }
};

ZThread_6_0::ZThread_6_0(int detached, int autoDelete)
    : id_(0),
      detached_(detached),
      autoDelete_(autoDelete),
      pool_(nullptr),
      joinable_(kNotJoinable),
      creations_(0)
{
}

ZThread_6_0::ZThread_6_0(unsigned long threadId)
    : id_(threadId),
      detached_(0),
      autoDelete_(0),
      pool_(nullptr),
      joinable_(kJoinable),
      creations_(0)
{
}

ZThread_6_0::~ZThread_6_0() = default;

uint32_t ZThread_6_0::hash() const
{
    return static_cast<uint32_t>(getPThreadID());
}

int ZThread_6_0::compare(ZObject_6_0 const& other) const
{
    auto const* const thread = dynamic_cast<ZThread_6_0 const*>(&other);
    if (thread == nullptr)
        return ZObject_6_0::compare(other);
    unsigned long const mine = getPThreadID();
    unsigned long const theirs = thread->getPThreadID();
    return mine == theirs ? 0 : mine < theirs ? -1 : 1;
}

ZObject_6_0* ZThread_6_0::clone() const
{
    ZNotClonableException_6_0().throwException(kSource, raiseInClone);
}

void ZThread_6_0::start()
{
    Attributes const attributes(detached_ != 0);
    bool const joins = detached_ == 0;
    std::atomic_ref joinable(joinable_);
    // A detached thread could end immediately and delete the object: it waits until the id is
    // stored.
    int const before = joinable.exchange(joins ? kJoinable : kStarting);
    ++creations_;
    pthread_t id = 0;
    int const rc = pthread_create(&id, attributes.get(), &Entry::run, this);
    if (rc != 0) {
        --creations_;
        joinable.store(before);
        joinable.notify_all();
        throwThreadException(threadCreate, rc, raiseInCreate);
    }
    std::atomic_ref(id_).store(id, std::memory_order_relaxed);
    if (joins)
        return;
    joinable.store(kNotJoinable);
    // Another thread may still wait from an earlier start. The object may already be deleted:
    // notify_all() uses only its address.
    joinable.notify_all();
}

void ZThread_6_0::waitForExit()
{
    if (detached_ != 0)
        return;
    if (std::atomic_ref(joinable_).exchange(kNotJoinable) == kNotJoinable)
        throwThreadException(threadJoin, ESRCH, raiseInJoin);
    int rc = 0;
    try {
        rc = pthread_join(getPThreadID(), nullptr);
    } catch (...) {
        // Cancelled: the thread can still be joined.
        if (zreporting::caughtCancellation())
            std::atomic_ref(joinable_).store(kJoinable);
        throw;
    }
    if (rc != 0) {
        std::atomic_ref(joinable_).store(kJoinable);
        throwThreadException(threadJoin, rc, raiseInJoin);
    }
}

void ZThread_6_0::exit()
{
}

unsigned long ZThread_6_0::getPThreadID() const
{
    return std::atomic_ref(const_cast<unsigned long&>(id_)).load(std::memory_order_relaxed);
}

int ZThread_6_0::isJoinable() const
{
    return std::atomic_ref(const_cast<int&>(joinable_)).load() == kJoinable ? 1 : 0;
}

void ZThread_6_0::createThreadKey(unsigned int& key)
{
    int const rc = pthread_key_create(&key, &deleteThreadObject);
    if (rc != 0)
        throwThreadException(keyCreate, rc, raiseInKeyCreate);
}

void ZThread_6_0::setThreadObject(unsigned int& key, ZObject_6_0* object)
{
    int const rc = pthread_setspecific(key, object);
    if (rc != 0)
        throwThreadException(setSpecific, rc, raiseInSetSpecific);
}

ZObject_6_0* ZThread_6_0::getThreadObject(unsigned int& key)
{
    return static_cast<ZObject_6_0*>(pthread_getspecific(key));
}

void ZThread_6_0::key_delete_routine(ZObject_6_0* object)
{
    delete object;
}
