#include "transport/cluster.h"

#include <errno.h>

#include <algorithm>
#include <random>
#include <utility>

#include "transport/failure.h"
#include "transport/wire_forms.h"

namespace zfleet {

namespace {

using std::chrono::milliseconds;

constexpr int64_t kMaxLease = 1'000'000'000;  // seconds; more would overflow in nanoseconds

// Returns whether gRPC can send a token. It would end the process for any other bytes.
bool isMetadata(std::string const& token)
{
    return std::all_of(token.begin(), token.end(),
                       [](unsigned char byte) { return byte >= ' ' && byte < 127; });
}

void raise(std::atomic<int64_t>& highest, int64_t number)
{
    int64_t known = highest;
    while (known < number && !highest.compare_exchange_weak(known, number)) {
    }
}

}  // namespace

std::unique_ptr<ClusterInterface> openCluster(Settings settings)
{
    return std::make_unique<Cluster>(std::move(settings));
}

// The attempts of a call.
struct Cluster::Attempts {
    char const* method;
    unsigned endpoint;        // of the current attempt
    std::vector<bool> unfit;  // endpoints that cannot serve the call
    std::vector<bool> isChecked = std::vector<bool>(unfit.size());  // its certificates
    std::string token = {};                                         // of the current attempt
    bool isDoubtful = false;  // an earlier attempt may have been executed
    bool hasRenewed = false;  // the token

    [[noreturn]] void fail(int error, std::string const& detail) const
    {
        throw CallError{nameOfMethod(method), error, isDoubtful, detail};
    }
};

Cluster::Cluster(Settings settings) : settings_(std::move(settings)), current_(0)
{
    for (std::string const& address : settings_.endpoints) {
        endpoints_.push_back(std::make_unique<Endpoint>(address, settings_.certificates));
        watched_.push_back(std::make_unique<Endpoint>(address, settings_.certificates));
    }
    // The hosts of a fleet spread over the nodes.
    current_ = static_cast<unsigned>(std::random_device{}() % endpoints_.size());
}

Clock::duration Cluster::timeoutOf(Budget const& budget) const
{
    return std::clamp(budget.left(), Clock::duration(milliseconds(1)), settings_.callTimeout);
}

// Returns the token for calls; empty without users. After a failure, `status` has its code.
std::string Cluster::tokenFor(Endpoint& endpoint, Budget const& budget, CallStatus& status)
{
    if (settings_.user.empty())
        return {};
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        if (!token_.empty() || hasNoUsers_)
            return token_;
    }
    wire::AuthenticateRequest request;
    request.set_name(settings_.user);
    request.set_password(settings_.password);
    wire::AuthenticateResponse response;
    // The cluster checks a token even of this call, and would refuse an old one.
    status = endpoint.invoke(kAuthenticateMethod, request, response, timeoutOf(budget), {});
    bool const hasNoUsers = status.code == statusFailedPrecondition &&
                            status.message.find("not enabled") != std::string::npos;
    if (hasNoUsers)
        status = {};
    else if (status.code == 0 && !isMetadata(response.token()))
        status = {statusUnimplemented, "a token with invalid bytes"};
    std::lock_guard<std::mutex> const guard(mutex_);
    if (status.code == 0) {
        token_ = response.token();
        hasNoUsers_ = hasNoUsers;
    }
    return token_;
}

// Checks that a reply comes from the cluster of all earlier replies. `earlier` is a revision that
// the cluster had before the call; `isDoubtful`: the request may have been executed, anywhere.
void Cluster::recognise(char const* method, Header const& header, int64_t earlier, bool isDoubtful)
{
    uint64_t known = 0;
    bool const isFirst = id_.compare_exchange_strong(known, header.cluster);
    if (!isFirst && known != header.cluster)
        throw CallError{nameOfMethod(method), EREMCHG, isDoubtful, "a reply of another cluster"};
    if (header.revision < earlier)
        throw CallError{nameOfMethod(method), EREMCHG, isDoubtful,
                        "the cluster is in an earlier state than before"};
    raise(revision_, header.revision);
}

void Cluster::dropToken(std::string const& token)
{
    std::lock_guard<std::mutex> const guard(mutex_);
    if (token_ == token)
        token_.clear();
    hasNoUsers_ = false;
}

// Chooses another endpoint, for this call and the next ones.
void Cluster::moveOn(Attempts& attempts)
{
    std::vector<bool> const& unfit = attempts.unfit;
    do {
        attempts.endpoint = (attempts.endpoint + 1) % static_cast<unsigned>(unfit.size());
    } while (unfit[attempts.endpoint] &&
             std::find(unfit.begin(), unfit.end(), false) != unfit.end());
    current_.store(attempts.endpoint, std::memory_order_relaxed);
}

// Prepares the next attempt after a failed one, or throws.
void Cluster::handle(Attempts& attempts, CallStatus const& status, Repetition repetition,
                     Budget& budget)
{
    Endpoint const& endpoint = *endpoints_[attempts.endpoint];
    Verdict verdict = classify(status.code, status.message);
    if (endpoint.mayBeDueToCertificates(status) && !attempts.isChecked[attempts.endpoint]) {
        attempts.isChecked[attempts.endpoint] = true;
        if (endpoint.isDueToCertificates(status, timeoutOf(budget)))
            verdict = {EPROTO, Handling::otherEndpoint, false};
    }
    std::string const detail = endpoint.address() + ": " + status.message;
    // Without a token, the request has not been sent.
    bool const isDoubtful = verdict.isDoubtful && attempts.method != kAuthenticateMethod &&
                            repetition != Repetition::changesNothing;
    attempts.isDoubtful = attempts.isDoubtful || isDoubtful;
    bool const mayRepeat = repetition != Repetition::isHarmful || !attempts.isDoubtful;
    if (verdict.handling == Handling::retry)
        moveOn(attempts);
    if (verdict.handling == Handling::final || !mayRepeat)
        attempts.fail(verdict.error, detail);
    if (verdict.handling == Handling::renewToken) {
        if (attempts.hasRenewed || settings_.user.empty())
            attempts.fail(verdict.error, detail);
        attempts.hasRenewed = true;
        dropToken(attempts.token);
        return;
    }
    if (verdict.handling == Handling::otherEndpoint) {
        attempts.unfit[attempts.endpoint] = true;
        if (std::find(attempts.unfit.begin(), attempts.unfit.end(), false) == attempts.unfit.end())
            attempts.fail(verdict.error, detail);
        moveOn(attempts);
    }
    // The connection to the next node makes progress in the pause.
    Endpoint& next = *endpoints_[attempts.endpoint];
    budget.pause([&next](Clock::duration time) { next.waitForConnection(time); });
    if (budget.isUsedUp())
        attempts.fail(verdict.error, detail);
}

Cluster::Call Cluster::call(char const* method, Message const& request, Message& response,
                            Repetition repetition, Budget& budget)
{
    requireOwnProcess(method);
    Attempts attempts{method, current_.load(std::memory_order_relaxed),
                      std::vector<bool>(endpoints_.size())};
    int64_t sentAt = 0;
    for (;;) {
        Endpoint& endpoint = *endpoints_[attempts.endpoint];
        CallStatus status;
        attempts.method = kAuthenticateMethod;
        attempts.token = tokenFor(endpoint, budget, status);
        if (status.code != 0) {
            handle(attempts, status, repetition, budget);
            continue;
        }
        attempts.method = method;
        sentAt = bootTime();
        status = endpoint.invoke(method, request, response, timeoutOf(budget), attempts.token);
        if (status.code == 0)
            break;
        handle(attempts, status, repetition, budget);
    }
    return {attempts.isDoubtful, sentAt};
}

RangeResult Cluster::read(Range const& range, Budget& budget)
{
    int64_t const earlier = revision_;
    wire::RangeResponse response;
    call(kRangeMethod, toWire(range), response, Repetition::changesNothing, budget);
    RangeResult result = fromWire(response);
    recognise(kRangeMethod, result.header, earlier, false);
    return result;
}

TransactionResult Cluster::commit(Transaction const& transaction, Repetition repetition,
                                  Budget& budget)
{
    int64_t const earlier = revision_;
    wire::TxnResponse response;
    Call const done = call(kTxnMethod, toWire(transaction), response, repetition, budget);
    TransactionResult result = fromWire(response);
    bool const isWritten = repetition != Repetition::changesNothing && result.hasSucceeded;
    recognise(kTxnMethod, result.header, earlier, done.wasDoubtful || isWritten);
    result.wasDoubtful = done.wasDoubtful;
    return result;
}

// A node replies for leases without the others, and its revision may be earlier than the revision
// of other nodes.
LeaseResult Cluster::grantLease(int64_t seconds, Budget& budget)
{
    wire::LeaseGrantRequest request;
    request.set_ttl(seconds);
    wire::LeaseGrantResponse response;
    Call const done = call(kLeaseGrantMethod, request, response, Repetition::isHarmless, budget);
    Header const header = fromWire(response.header());
    recognise(kLeaseGrantMethod, header, 0, false);
    if (response.id() == 0 || response.ttl() <= 0)
        throw CallError{nameOfMethod(kLeaseGrantMethod), EIO, false, "a reply without a lease"};
    return {header, response.id(), std::min(response.ttl(), kMaxLease), done.sentAt};
}

LeaseResult Cluster::renewLease(int64_t id, Budget& budget)
{
    wire::LeaseKeepAliveRequest request;
    request.set_id(id);
    wire::LeaseKeepAliveResponse response;
    Call const done =
        call(kLeaseKeepAliveMethod, request, response, Repetition::isHarmless, budget);
    Header const header = fromWire(response.header());
    recognise(kLeaseKeepAliveMethod, header, 0, false);
    return {header, id, std::clamp<int64_t>(response.ttl(), 0, kMaxLease), done.sentAt};
}

void Cluster::revokeLease(int64_t id, Budget& budget)
{
    wire::LeaseRevokeRequest request;
    request.set_id(id);
    wire::LeaseRevokeResponse response;
    try {
        call(kLeaseRevokeMethod, request, response, Repetition::isHarmless, budget);
    } catch (CallError const& error) {
        if (error.error != ENOENT)
            throw;
    }
}

std::unique_ptr<WatchInterface> Cluster::watch(unsigned endpoint, WatchedKeys const& keys,
                                               int64_t revision,
                                               std::shared_ptr<Event> const& event)
{
    requireOwnProcess(kAuthenticateMethod);
    size_t const index = (current_.load(std::memory_order_relaxed) + endpoint) % watched_.size();
    Budget const budget(settings_.callTimeout);
    CallStatus status;
    std::string token = tokenFor(*endpoints_[index], budget, status);
    if (status.code != 0)
        throw CallError{nameOfMethod(kAuthenticateMethod),
                        classify(status.code, status.message).error, false, status.message};
    return std::make_unique<Watch>(*watched_[index], keys, revision, std::move(token), event);
}

void Cluster::requireUsable(char const* method) const
{
    requireOwnProcess(method);
}

Header Cluster::probe(unsigned endpoint, Budget& budget)
{
    requireOwnProcess(kRangeMethod);
    Range range{settings_.prefix};
    range.isKeysOnly = true;
    wire::RangeResponse response;
    Attempts attempts{kRangeMethod, endpoint, std::vector<bool>(endpoints_.size(), true)};
    for (;;) {
        CallStatus status;
        attempts.token = tokenFor(*endpoints_[endpoint], budget, status);
        if (status.code == 0)
            status = endpoints_[endpoint]->invoke(kRangeMethod, toWire(range), response,
                                                  timeoutOf(budget), attempts.token);
        if (status.code == 0)
            return fromWire(response.header());
        if (endpoints_[endpoint]->isDueToCertificates(status, timeoutOf(budget)))
            attempts.fail(EPROTO, status.message);
        Verdict const verdict = classify(status.code, status.message);
        if (verdict.handling != Handling::renewToken || attempts.hasRenewed ||
            settings_.user.empty())
            attempts.fail(verdict.error, status.message);
        attempts.hasRenewed = true;
        dropToken(attempts.token);
    }
}

}  // namespace zfleet
