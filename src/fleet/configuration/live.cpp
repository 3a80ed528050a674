#include "configuration/live.h"

#include <errno.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>

#include "transport/failure.h"

namespace zfleet {

namespace {

using std::chrono::milliseconds;

// After a read that has failed.
constexpr milliseconds kRetryInterval{1000};

int makeEpoll(int first, int second)
{
    int const epoll = epoll_create1(EPOLL_CLOEXEC);
    for (int const fd : {first, second}) {
        epoll_event event{};
        event.events = EPOLLIN;
        if (epoll >= 0)
            epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event);
    }
    return epoll;
}

}  // namespace

Live::Live()
    : event_(std::make_shared<Event>()),
      timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)),
      epoll_(makeEpoll(event_->descriptor(), timer_))
{
    if (timer_ >= 0 && epoll_ >= 0)
        return;
    int const error = errno;
    for (int const fd : {timer_, epoll_})
        if (fd >= 0)
            close(fd);
    throw CallError{"epoll_create1()", error, false, "no descriptor"};
}

Live::~Live()
{
    watch_ = nullptr;
    close(epoll_);
    close(timer_);
}

// Starts a watch at the next endpoint, after a pause.
void Live::moveOn()
{
    watch_ = nullptr;
    ++endpoint_;
    startAt_ = Clock::now() + randomPause(pauses_++);
}

bool Live::isLate(Clock::time_point now) const
{
    return watch_ != nullptr && !isAccepted_ && now >= acceptBefore_;
}

void Live::takeNews(ClusterInterface& cluster, int64_t revision)
{
    if (watch_ == nullptr)
        return;
    WatchInterface::News const news = watch_->take();
    isHinted_ = isHinted_ || news.revision > revision;
    if (news.isStarted) {
        pauses_ = 0;
        isAccepted_ = true;
    }
    if (!news.isOver)
        return;
    if (classify(news.status.code, news.status.message).handling == Handling::renewToken)
        cluster.dropToken(watch_->token());
    // The cluster has dropped revisions: their changes are not reported.
    if (news.status.code == statusOutOfRange)
        isHinted_ = true;
    moveOn();
}

void Live::start(ClusterInterface& cluster, WatchedKeys const& keys, int64_t revision)
{
    try {
        watch_ = cluster.watch(endpoint_, keys, revision + 1, event_);
        isAccepted_ = false;
        // On a busy machine, each of the next ones has more time.
        acceptBefore_ = Clock::now() + cluster.settings().callTimeout * (1 + std::min(pauses_, 4u));
    } catch (CallError const& error) {
        if (error.error == ECHILD)
            throw;
        moveOn();
    }
}

void Live::setTimer() const
{
    Clock::time_point next = lookAt_;
    if (watch_ == nullptr)
        next = std::min(next, startAt_);
    else if (!isAccepted_)
        next = std::min(next, acceptBefore_);
    auto const left = std::max<long long>(
        1, std::chrono::duration_cast<std::chrono::nanoseconds>(next - Clock::now()).count());
    itimerspec time{};
    time.it_value = {static_cast<time_t>(left / 1'000'000'000),
                     static_cast<long>(left % 1'000'000'000)};
    timerfd_settime(timer_, 0, &time, nullptr);
}

bool Live::process(ClusterInterface& cluster, WatchedKeys const& keys, int64_t revision)
{
    cluster.requireUsable("/Watch");
    event_->clear();
    uint64_t ignored;
    [[maybe_unused]] ssize_t const expirations = read(timer_, &ignored, sizeof ignored);
    takeNews(cluster, revision);
    Clock::time_point const now = Clock::now();
    if (isLate(now))
        moveOn();
    if (watch_ == nullptr && now >= startAt_)
        start(cluster, keys, revision);
    bool const shouldLook = isHinted_ || now >= lookAt_;
    setTimer();
    return shouldLook;
}

void Live::recordLook(Clock::duration interval, bool hasSucceeded)
{
    isHinted_ = false;
    lookAt_ = Clock::now() +
              (hasSucceeded ? interval : std::min<Clock::duration>(interval, kRetryInterval));
    setTimer();
}

}  // namespace zfleet
