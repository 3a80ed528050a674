#include "transport/watch.h"

#include <grpcpp/channel.h>
#include <grpcpp/client_context.h>
#include <grpcpp/generic/generic_stub.h>
#include <grpcpp/support/client_callback.h>
#if __has_include(<grpcpp/impl/proto_utils.h>)
#include <grpcpp/impl/proto_utils.h>
#else
#include <grpcpp/impl/codegen/proto_utils.h>
#endif

#include <algorithm>
#include <condition_variable>
#include <mutex>

#include "fleet_messages.pb.h"
#include "transport/cancel_guard.h"
#include "transport/failure.h"
#include "transport/signal_guard.h"

namespace zfleet {

namespace {

constexpr char kWatchMethod[] = "/etcdserverpb.Watch/Watch";

}  // namespace

// Used by the stream until its last reaction.
struct Watch::State {
    explicit State(std::shared_ptr<Event> wake) : event(std::move(wake)) {}

    template <class Change>
    void record(Change change)
    {
        std::lock_guard<std::mutex> const guard(mutex);
        change(news);
        event->signal();
    }

    // Waits for the last reaction.
    void waitForEnd()
    {
        std::unique_lock<std::mutex> guard(mutex);
        ended.wait(guard, [this] { return hasEnded; });
    }

    std::shared_ptr<Event> const event;
    grpc::ClientContext context;
    std::mutex mutex;
    std::condition_variable ended;
    News news;              // guarded by mutex
    bool hasEnded = false;  // guarded by mutex
};

// The reactions run on threads of gRPC. The object deletes itself after the last one.
class Watch::Stream : public grpc::ClientBidiReactor<wire::WatchRequest, wire::WatchResponse> {
public:
    Stream(State& state, std::shared_ptr<grpc::Channel> const& channel, wire::WatchRequest request,
           std::vector<std::string> reported)
        : state_(state), request_(std::move(request)), reported_(std::move(reported))
    {
        grpc::TemplatedGenericStub<wire::WatchRequest, wire::WatchResponse> stub(channel);
        stub.PrepareBidiStreamingCall(&state_.context, kWatchMethod, {}, this);
        StartWrite(&request_);
        StartRead(&response_);
        StartCall();
    }

    void OnReadDone(bool isRead) override
    {
        if (!isRead)
            return;
        int64_t revision = 0;
        for (wire::WatchEvent const& event : response_.events())
            if (isReported(event.kv().key()))
                revision = std::max(revision, event.kv().mod_revision());
        bool const isCanceled = response_.canceled();
        state_.record([&](News& news) {
            news.isStarted = news.isStarted || !isCanceled;
            news.revision = std::max(news.revision, revision);
            if (isCanceled)
                end(news, {response_.compact_revision() != 0 ? statusOutOfRange : statusUnavailable,
                           response_.reason()});
        });
        if (isCanceled)
            state_.context.TryCancel();
        else
            StartRead(&response_);
    }

    void OnDone(grpc::Status const& status) override
    {
        CallStatus const reason{static_cast<int>(status.error_code()), status.error_message()};
        std::lock_guard<std::mutex> const guard(state_.mutex);
        end(state_.news, reason);
        state_.event->signal();
        state_.hasEnded = true;
        state_.ended.notify_all();
        delete this;
    }

private:
    bool isReported(std::string const& key) const
    {
        return reported_.empty() ||
               std::find(reported_.begin(), reported_.end(), key) != reported_.end();
    }

    static void end(News& news, CallStatus const& status)
    {
        if (news.isOver)
            return;
        news.isOver = true;
        news.status = status;
    }

    State& state_;
    wire::WatchRequest const request_;
    std::vector<std::string> const reported_;
    wire::WatchResponse response_;
};

Watch::Watch(Endpoint& endpoint, WatchedKeys const& keys, int64_t revision, std::string token,
             std::shared_ptr<Event> event)
    : token_(std::move(token))
{
    CancelGuard const uncancelled;
    requireOwnProcess(kWatchMethod);
    SignalGuard const unsignalled;
    state_ = std::make_unique<State>(std::move(event));
    // An isolated node would stay silent otherwise.
    state_->context.AddMetadata("hasleader", "true");
    if (!token_.empty())
        state_->context.AddMetadata("token", token_);
    wire::WatchRequest request;
    request.mutable_create()->set_key(keys.key);
    request.mutable_create()->set_range_end(keys.end);
    request.mutable_create()->set_start_revision(revision);
    new Stream(*state_, endpoint.channel(), std::move(request), keys.reported);
}

Watch::~Watch()
{
    if (isForeignProcess()) {
        static_cast<void>(state_.release());
        return;
    }
    CancelGuard const uncancelled;
    SignalGuard const unsignalled;
    state_->context.TryCancel();
    // The context has a reference to the channel. If a thread of gRPC released the last one, gRPC
    // would wait for this thread in itself, and free the queue that the thread reads.
    state_->waitForEnd();
    state_.reset();
}

Watch::News Watch::take()
{
    std::lock_guard<std::mutex> const guard(state_->mutex);
    News const news = state_->news;
    state_->news.isStarted = false;
    state_->news.revision = 0;
    return news;
}

}  // namespace zfleet
