#include "ModelCluster.h"

#include <algorithm>

using namespace zfleet;
using Guard = std::lock_guard<std::recursive_mutex>;

ModelCluster::ModelCluster()
{
    serve("Range", [this](Request const& request) { return range(request); });
    serve("Txn", [this](Request const& request) { return transact(request); });
    serve("LeaseGrant", [this](Request const& request) { return grantLease(request); });
    serve("LeaseKeepAlive", [this](Request const& request) { return renewLease(request); });
    serve("LeaseRevoke", [this](Request const& request) { return revokeLease(request); });
    serve("Watch", [this](Request const& request) { return watch(request); });
}

void ModelCluster::serve(char const* method, Handler const& execute)
{
    server_.handle(method, [this, execute](Request const& request) {
        Guard const guard(mutex_);
        return fault_ ? fault_(request, execute) : execute(request);
    });
}

void ModelCluster::setFault(std::function<Reply(Request const&, Handler const& execute)> fault)
{
    Guard const guard(mutex_);
    fault_ = std::move(fault);
}

void ModelCluster::setFates(std::deque<Fate> fates)
{
    Guard const guard(mutex_);
    fates_ = std::move(fates);
}

void ModelCluster::setInterlude(std::function<void()> action)
{
    Guard const guard(mutex_);
    interlude_ = std::move(action);
}

void ModelCluster::setPrelude(std::function<void()> action)
{
    Guard const guard(mutex_);
    prelude_ = std::move(action);
}

void ModelCluster::deliver()
{
    Guard const guard(mutex_);
    for (wire::TxnRequest const& request : delayed_)
        if (knowsLeases(request))
            execute(request);
    delayed_.clear();
}

void ModelCluster::refuse(int code)
{
    Guard const guard(mutex_);
    status_ = code;
}

void ModelCluster::refuseReads(int code)
{
    Guard const guard(mutex_);
    readStatus_ = code;
}

void ModelCluster::put(std::string const& key, std::string const& value)
{
    Guard const guard(mutex_);
    ++revision_;
    write(key, !value.empty(), value);
}

std::string ModelCluster::get(std::string const& key) const
{
    Guard const guard(mutex_);
    Version const* const version = find(key, revision_);
    return version == nullptr ? "(missing)" : version->value;
}

std::vector<std::string> ModelCluster::keys(std::string const& prefix) const
{
    Guard const guard(mutex_);
    std::vector<std::string> found;
    for (auto const& [key, versions] : history_)
        if (key.compare(0, prefix.size(), prefix) == 0 && versions.back().exists)
            found.push_back(key);
    return found;
}

void ModelCluster::compact()
{
    Guard const guard(mutex_);
    compacted_ = revision_;
}

void ModelCluster::replace(std::string const& key, std::string const& value)
{
    Guard const guard(mutex_);
    history_.at(key).back().value = value;
}

void ModelCluster::becomeAnother(uint64_t id, int64_t revision)
{
    Guard const guard(mutex_);
    id_ = id;
    revision_ = revision == 0 ? revision_ : revision;
}

ModelCluster::Version const* ModelCluster::find(std::string const& key, int64_t revision) const
{
    auto const found = history_.find(key);
    Version const* latest = nullptr;
    if (found != history_.end())
        for (Version const& version : found->second)
            if (version.revision <= revision)
                latest = &version;
    return latest != nullptr && latest->exists ? latest : nullptr;
}

void ModelCluster::write(std::string const& key, bool exists, std::string const& value,
                         int64_t lease)
{
    std::vector<Version>& versions = history_[key];
    bool const isNew = versions.empty() || !versions.back().exists;
    versions.push_back(
        {revision_, exists, value, isNew ? revision_ : versions.back().created, lease});
    // The tests watch only configurations and queues of locks.
    bool const isText = key.size() > 5 && key.compare(key.size() - 5, 5, "/text") == 0;
    bool const isEntry = key.find("/q/") != std::string::npos;
    if ((isText || isEntry) && !isSilent_)
        server_.push(eventOf(key, history_[key].back()));
}

std::string ModelCluster::eventOf(std::string const& key, Version const& version)
{
    wire::WatchResponse response;
    auto* const event = response.add_events();
    event->set_type(version.exists ? wire::WatchEvent::PUT : wire::WatchEvent::DELETE);
    event->mutable_kv()->set_key(key);
    event->mutable_kv()->set_mod_revision(version.revision);
    return response.SerializeAsString();
}

void ModelCluster::fillHeader(wire::Header& header) const
{
    header.set_cluster(id_);
    header.set_revision(revision_);
    header.set_term(term_);
}

// ---- Leases ------------------------------------------------------------------------------------

void ModelCluster::endLeases()
{
    Guard const guard(mutex_);
    while (!leases_.empty())
        endLease(leases_.begin()->first);
}

void ModelCluster::endEarlierLeases()
{
    Guard const guard(mutex_);
    std::map<int64_t, Granted> const all = leases_;
    for (auto const& [id, lease] : all)
        if (lease.term < term_)
            endLease(id);
}

void ModelCluster::setRenewalTerm(std::optional<uint64_t> term)
{
    Guard const guard(mutex_);
    renewalTerm_ = term;
}

size_t ModelCluster::leases() const
{
    Guard const guard(mutex_);
    return leases_.size();
}

void ModelCluster::refuseLeases(std::string const& method, int code)
{
    Guard const guard(mutex_);
    leaseStatuses_[method] = code;
}

void ModelCluster::endLease(int64_t id)
{
    leases_.erase(id);
    ++revision_;
    for (auto& [key, versions] : history_)
        if (versions.back().exists && versions.back().lease == id)
            write(key, false, "");
}

ScriptedServer::Reply ModelCluster::grantLease(Request const& request)
{
    Guard const guard(mutex_);
    if (isFull_)
        return {8, "etcdserver: mvcc: database space exceeded"};
    if (int const status = status_ != 0 ? status_ : leaseStatuses_["LeaseGrant"])
        return {status, "refused"};
    wire::LeaseGrantRequest form;
    form.ParseFromString(request.bytes);
    wire::LeaseGrantResponse response;
    fillHeader(*response.mutable_header());
    leases_[++lastLease_] = {form.ttl(), term_};
    response.set_id(lastLease_);
    response.set_ttl(form.ttl());
    return {0, response.SerializeAsString()};
}

ScriptedServer::Reply ModelCluster::renewLease(Request const& request)
{
    Guard const guard(mutex_);
    if (int const status = status_ != 0 ? status_ : leaseStatuses_["LeaseKeepAlive"])
        return {status, "refused"};
    wire::LeaseKeepAliveRequest form;
    form.ParseFromString(request.bytes);
    wire::LeaseKeepAliveResponse response;
    fillHeader(*response.mutable_header());
    response.mutable_header()->set_term(renewalTerm_.value_or(term_));
    response.set_id(form.id());
    auto const known = leases_.find(form.id());
    if (known != leases_.end() && !deniesLeases_)
        response.set_ttl(known->second.seconds);
    return {0, response.SerializeAsString()};
}

ScriptedServer::Reply ModelCluster::revokeLease(Request const& request)
{
    Guard const guard(mutex_);
    if (int const status = status_ != 0 ? status_ : leaseStatuses_["LeaseRevoke"])
        return {status, "refused"};
    wire::LeaseRevokeRequest form;
    form.ParseFromString(request.bytes);
    if (leases_.count(form.id()) == 0)
        return {5, "etcdserver: requested lease not found"};
    endLease(form.id());
    wire::LeaseRevokeResponse response;
    fillHeader(*response.mutable_header());
    return {0, response.SerializeAsString()};
}

bool ModelCluster::knowsLeases(wire::TxnRequest const& request) const
{
    for (auto const* const operations : {&request.success(), &request.failure()})
        for (wire::Operation const& operation : *operations)
            if (operation.put().lease() != 0 && leases_.count(operation.put().lease()) == 0)
                return false;
    return true;
}

// ---- Keys --------------------------------------------------------------------------------------

// The first message of a watch has the changes since its start revision.
ScriptedServer::Reply ModelCluster::watch(Request const& request) const
{
    Guard const guard(mutex_);
    if (status_ != 0)
        return {status_, "refused"};
    wire::WatchRequest form;
    form.ParseFromString(request.bytes);
    wire::WatchResponse response;
    response.set_created(true);
    int64_t const start = form.create().start_revision();
    if (start != 0 && start <= compacted_) {
        response.set_canceled(true);
        response.set_compact_revision(compacted_);
        return {0, response.SerializeAsString(), Reply::stream};
    }
    std::string const& first = form.create().key();
    std::string const& end = form.create().range_end();
    for (auto const& [key, versions] : history_)
        for (Version const& version : versions)
            if ((end.empty() ? key == first : key >= first && key < end) &&
                version.revision >= start)
                response.MergeFromString(eventOf(key, version));
    return {0, response.SerializeAsString(), Reply::stream};
}

bool ModelCluster::fillRange(wire::RangeRequest const& request, wire::RangeResponse& response) const
{
    int64_t const revision = request.revision() == 0 ? revision_ : request.revision();
    if (revision < compacted_)
        return false;
    fillHeader(*response.mutable_header());
    std::vector<std::string> found;
    for (auto const& [key, versions] : history_) {
        bool const isInRange = request.range_end().empty()
                                   ? key == request.key()
                                   : key >= request.key() && key < request.range_end();
        Version const* const version = isInRange ? find(key, revision) : nullptr;
        int64_t const limit = request.max_create_revision();
        if (version != nullptr && (limit == 0 || version->created <= limit))
            found.push_back(key);
    }
    if (request.target() == wire::RangeRequest::CREATE)
        std::sort(found.begin(), found.end(), [&](auto const& one, auto const& other) {
            return find(one, revision)->created < find(other, revision)->created;
        });
    if (request.order() == wire::RangeRequest::DESCENDING)
        std::reverse(found.begin(), found.end());
    response.set_count(static_cast<int64_t>(found.size()));
    if (request.limit() != 0 && found.size() > static_cast<size_t>(request.limit())) {
        found.resize(static_cast<size_t>(request.limit()));
        response.set_more(true);
    }
    for (std::string const& key : found) {
        Version const& version = *find(key, revision);
        auto* const entry = response.add_kvs();
        entry->set_key(key);
        entry->set_value(version.value);
        entry->set_mod_revision(version.revision);
        entry->set_create_revision(version.created);
        entry->set_lease(version.lease);
    }
    return true;
}

ScriptedServer::Reply ModelCluster::range(Request const& request) const
{
    Guard const guard(mutex_);
    if (readStatus_ != 0 || status_ != 0)
        return {readStatus_ != 0 ? readStatus_ : status_, "refused"};
    wire::RangeRequest form;
    form.ParseFromString(request.bytes);
    wire::RangeResponse response;
    if (!fillRange(form, response))
        return {11, "etcdserver: mvcc: required revision has been compacted"};
    return {0, response.SerializeAsString()};
}

bool ModelCluster::holds(wire::Compare const& condition) const
{
    Version const* const version = find(condition.key(), revision_);
    if (condition.target() == wire::Compare::VALUE)
        return version != nullptr && condition.value() == version->value;
    if (condition.target() == wire::Compare::CREATE)
        return condition.create_revision() == (version == nullptr ? 0 : version->created);
    if (condition.target() == wire::Compare::LEASE)
        return condition.lease() == (version == nullptr ? 0 : version->lease);
    return condition.target() == wire::Compare::MOD &&
           condition.mod_revision() == (version == nullptr ? 0 : version->revision);
}

// Returns whether the operations write.
bool ModelCluster::execute(google::protobuf::RepeatedPtrField<wire::Operation> const& operations,
                           wire::TxnResponse& response)
{
    bool isWrite = false;
    for (auto const& operation : operations)
        isWrite = isWrite || !operation.has_range();
    revision_ += isWrite ? 1 : 0;
    for (auto const& operation : operations) {
        auto* const answer = response.add_responses();
        if (operation.has_range()) {
            fillRange(operation.range(), *answer->mutable_range());
        } else if (operation.has_put()) {
            answer->mutable_put();
            write(operation.put().key(), true, operation.put().value(), operation.put().lease());
        } else {
            answer->mutable_removal();
            std::string const& first = operation.removal().key();
            std::string const& end = operation.removal().range_end();
            for (auto& [key, versions] : history_)
                if (versions.back().exists &&
                    (end.empty() ? key == first : key >= first && key < end))
                    write(key, false, "");
        }
    }
    fillHeader(*response.mutable_header());
    return isWrite;
}

wire::TxnResponse ModelCluster::execute(wire::TxnRequest const& request)
{
    wire::TxnResponse response;
    bool isTrue = true;
    for (auto const& condition : request.compare())
        isTrue = isTrue && holds(condition);
    response.set_succeeded(isTrue);
    execute(isTrue ? request.success() : request.failure(), response);
    return response;
}

ScriptedServer::Reply ModelCluster::transact(Request const& request)
{
    Guard const guard(mutex_);
    if (status_ != 0)
        return {status_, "refused"};
    wire::TxnRequest form;
    form.ParseFromString(request.bytes);
    auto const run = [](std::function<void()>& action) {
        std::function<void()> const once = std::exchange(action, nullptr);
        if (once)
            once();
    };
    Fate fate = Fate::executed;
    if (std::any_of(form.success().begin(), form.success().end(),
                    [](auto const& operation) { return !operation.has_range(); })) {
        run(prelude_);
        if (!fates_.empty()) {
            fate = fates_.front();
            fates_.pop_front();
        }
    }
    if (fate == Fate::delayed)
        delayed_.push_back(form);
    if (fate == Fate::requestLost || fate == Fate::delayed)
        return {14, "request lost"};
    auto const& puts = form.success();
    bool const hasPuts = std::any_of(puts.begin(), puts.end(),
                                     [](auto const& operation) { return operation.has_put(); });
    if (fate == Fate::refused || (isFull_ && hasPuts))
        return {8, "etcdserver: mvcc: database space exceeded"};
    for (auto const& operation : form.success())
        if (operation.range().revision() != 0 && operation.range().revision() < compacted_)
            return {11, "etcdserver: mvcc: required revision has been compacted"};
    if (!knowsLeases(form))
        return {5, "etcdserver: requested lease not found"};
    wire::TxnResponse const response = execute(form);
    if (fate == Fate::executed)
        return {0, response.SerializeAsString()};
    run(interlude_);
    if (fate == Fate::noReply)
        return {0, "", Reply::never};
    return {14, "reply lost"};
}
