// ThreadCalls: makes calls that create threads fail, in a test program that wraps them (WRAP).
#pragma once

#include <pthread.h>

#include <atomic>
#include <functional>
#include <memory>

// Results that replace the calls if not 0.
struct Calls {
    int attrInit = 0;
    int setDetachState = 0;
    int create = 0;
    int attrDestroy = 0;
    int join = 0;
    int keyCreate = 0;
    std::function<void()> atCreateEnd;  // runs before pthread_create() returns
};
inline Calls calls_;

// While true, new threads wait before they run their entry.
inline std::atomic<bool> entriesHeld_{false};

struct HeldEntry {
    static void* run(void* held)
    {
        HeldEntry const entry = *std::unique_ptr<HeldEntry>(static_cast<HeldEntry*>(held));
        entriesHeld_.wait(true);
        return entry.entry(entry.argument);
    }

    static void release()
    {
        entriesHeld_ = false;
        entriesHeld_.notify_all();
    }

    void* (*entry)(void*);
    void* argument;
};

extern "C" {
int __real_pthread_attr_init(pthread_attr_t*);
int __real_pthread_attr_setdetachstate(pthread_attr_t*, int);
int __real_pthread_create(pthread_t*, pthread_attr_t const*, void* (*)(void*), void*);
int __real_pthread_attr_destroy(pthread_attr_t*);
int __real_pthread_join(pthread_t, void**);
int __real_pthread_key_create(pthread_key_t*, void (*)(void*));

inline __attribute__((used)) int __wrap_pthread_attr_init(pthread_attr_t* attributes)
{
    return calls_.attrInit != 0 ? calls_.attrInit : __real_pthread_attr_init(attributes);
}
inline __attribute__((used)) int __wrap_pthread_attr_setdetachstate(pthread_attr_t* attributes,
                                                                    int state)
{
    return calls_.setDetachState != 0 ? calls_.setDetachState
                                      : __real_pthread_attr_setdetachstate(attributes, state);
}
inline __attribute__((used)) int __wrap_pthread_create(pthread_t* id,
                                                       pthread_attr_t const* attributes,
                                                       void* (*entry)(void*), void* argument)
{
    int rc = calls_.create;
    if (rc == 0 && entriesHeld_) {
        auto held = std::make_unique<HeldEntry>(HeldEntry{entry, argument});
        rc = __real_pthread_create(id, attributes, HeldEntry::run, held.get());
        if (rc == 0)
            held.release();
    } else if (rc == 0) {
        rc = __real_pthread_create(id, attributes, entry, argument);
    }
    if (calls_.atCreateEnd)
        calls_.atCreateEnd();
    return rc;
}
inline __attribute__((used)) int __wrap_pthread_attr_destroy(pthread_attr_t* attributes)
{
    int const rc = __real_pthread_attr_destroy(attributes);
    return calls_.attrDestroy != 0 ? calls_.attrDestroy : rc;
}
// A cancelled thread ends here: ThreadSanitizer does not see the end of a cancelled call.
inline __attribute__((used)) int __wrap_pthread_join(pthread_t id, void** result)
{
    pthread_testcancel();
    return calls_.join != 0 ? calls_.join : __real_pthread_join(id, result);
}
inline __attribute__((used)) int __wrap_pthread_key_create(pthread_key_t* key,
                                                           void (*destroy)(void*))
{
    return calls_.keyCreate != 0 ? calls_.keyCreate : __real_pthread_key_create(key, destroy);
}
}
