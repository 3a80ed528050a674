#include "observer_slot.h"

#include <utility>

#include "../reporting/failures.h"

namespace zhandles {

// A running call of an observer. The calls of a thread form a list, innermost first.
class ObserverSlot::Call {
public:
    // Starts a call of the current observer, if there is one.
    explicit Call(ObserverSlot& slot) : slot_(slot), outer_(innermost_)
    {
        std::lock_guard<std::mutex> const guard(slot_.mutex_);
        observer_ = slot_.observer_;
        if (observer_ == nullptr)
            return;
        ++observer_->running;
        innermost_ = this;
    }
    Call(Call const&) = delete;
    Call& operator=(Call const&) = delete;
    ~Call()
    {
        if (observer_ == nullptr)
            return;
        innermost_ = outer_;
        std::lock_guard<std::mutex> const guard(slot_.mutex_);
        if (--observer_->running == 0)
            slot_.returned_.notify_all();
    }

    Observer const* observer() const { return observer_.get(); }

    // Returns whether the calling thread runs `observer`.
    static bool isRunning(Observer const& observer)
    {
        for (Call const* call = innermost_; call != nullptr; call = call->outer_)
            if (call->observer_.get() == &observer)
                return true;
        return false;
    }

private:
    static constinit thread_local Call const* innermost_;

    ObserverSlot& slot_;
    Call const* const outer_;
    std::shared_ptr<Observer> observer_;
};

constinit thread_local ObserverSlot::Call const* ObserverSlot::Call::innermost_ = nullptr;

bool ObserverSlot::replace(std::shared_ptr<Observer> added, bool closes)
{
    // A cancellation in the wait would end the process.
    zreporting::CancelGuard const uncancelled;
    std::unique_lock<std::mutex> lock(mutex_);
    if (isClosed_)
        return false;
    isClosed_ = closes;
    observer_.swap(added);
    std::shared_ptr<Observer> const& earlier = added;
    if (earlier != nullptr && !Call::isRunning(*earlier))
        returned_.wait(lock, [&] { return earlier->running == 0; });
    return true;
}

bool ObserverSlot::set(ObserverFunction* function, void* context)
{
    std::shared_ptr<Observer> added;
    if (function != nullptr)
        added = std::make_shared<Observer>(Observer{function, context});
    return replace(std::move(added), false);
}

void ObserverSlot::close()
{
    replace(nullptr, true);
}

bool ObserverSlot::isSet() const
{
    std::lock_guard<std::mutex> const guard(mutex_);
    return observer_ != nullptr;
}

void ObserverSlot::notify(int change, char const* stanza, char const* key)
{
    constexpr zreporting::Site kSite = {"src/Z/zproperties_c", 221};
    Call const call(*this);
    if (call.observer() != nullptr)
        zreporting::reportExceptions(kSite, [&] {
            call.observer()->function(change, stanza, key, call.observer()->context);
        });
}

}  // namespace zhandles
