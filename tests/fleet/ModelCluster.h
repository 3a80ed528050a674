// ModelCluster: a small model of a cluster, with a scripted server whose replies can be lost.
#pragma once

#include <atomic>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ScriptedServer.h"

class ModelCluster {
public:
    // The fate of a transaction.
    enum class Fate {
        executed,
        replyLost,    // executed, but the caller gets the status 14
        requestLost,  // not executed, and the caller gets the status 14
        delayed,      // executed by deliver(), and the caller gets the status 14
        noReply,      // executed, but the caller gets no reply
        refused       // not executed: the status 8
    };

    using Reply = ScriptedServer::Reply;
    using Request = ScriptedServer::Request;
    using Handler = std::function<Reply(Request const&)>;

    ModelCluster();

    std::string address() const { return server_.address(); }
    ScriptedServer const& server() const { return server_; }

    /// Sets the fates of the next transactions that write. Later ones are executed.
    void setFates(std::deque<Fate> fates);

    /// Replies to each call with the result of `fault`, which gets the handler that executes the
    /// call. Null ends this.
    void setFault(std::function<Reply(Request const&, Handler const& execute)> fault);

    /// Runs `action` after the next transaction that was executed and whose reply is lost.
    void setInterlude(std::function<void()> action);

    /// Runs `action` before the next transaction that writes.
    void setPrelude(std::function<void()> action);

    /// Executes the delayed transactions.
    void deliver();

    /// Ends the watches with a status.
    void endWatches(int code, std::string const& text) { server_.endStreams(code, text); }

    /// Stops to report changes to watches, without a word.
    void silenceWatches() { isSilent_ = true; }

    /// Replies to each call with a status; 0 ends this.
    void refuse(int code);

    /// Replies to the next calls of Range with a status; 0 ends this.
    void refuseReads(int code);

    /// Sets a key, as another program does. An empty value removes it.
    void put(std::string const& key, std::string const& value);

    /// Copies the value of a key to another key, as a program that knows only keys does.
    void copy(std::string const& from, std::string const& to) { put(to, get(from)); }

    /// Returns the value of a key; "(missing)" if it does not exist.
    std::string get(std::string const& key) const;

    /// Returns the keys that start with `prefix`.
    std::vector<std::string> keys(std::string const& prefix) const;

    /// Ends all leases, as if their time had passed, with their keys.
    void endLeases();

    /// Returns the number of leases.
    size_t leases() const;

    /// Replies to the next calls of a method for leases, such as "LeaseGrant", with a status; 0
    /// ends this.
    void refuseLeases(std::string const& method, int code);

    /// Refuses puts and new leases, as a cluster whose database is full.
    void setFull(bool isFull) { isFull_ = isFull; }

    /// Replies to renewals that no lease exists, as a new leader can do.
    void denyLeases(bool denies) { deniesLeases_ = denies; }

    /// Sets the term of the replies to renewals; without a term, the present one.
    void setRenewalTerm(std::optional<uint64_t> term);

    /// Elects a leader: the term, which is 1 at the start, rises.
    void elect() { ++term_; }

    /// Ends the leases of earlier terms with their keys, as their leader can do after a suspension.
    void endEarlierLeases();

    /// Drops the history before the current revision.
    void compact();

    /// Changes a value without a new revision, as in a cluster that was restored from a backup.
    void replace(std::string const& key, std::string const& value);

    /// Changes the id of the cluster, and its revision if `revision` is not 0.
    void becomeAnother(uint64_t id, int64_t revision = 0);

private:
    struct Version {
        int64_t revision;
        bool exists;
        std::string value;
        int64_t created;  // the revision that created the key
        int64_t lease;
    };

    struct Granted {
        int64_t seconds;
        uint64_t term;
    };

    void serve(char const* method, Handler const& execute);
    Version const* find(std::string const& key, int64_t revision) const;
    Reply watch(Request const& request) const;
    static std::string eventOf(std::string const& key, Version const& version);
    Reply range(Request const& request) const;
    Reply grantLease(Request const& request);
    Reply renewLease(Request const& request);
    Reply revokeLease(Request const& request);
    bool knowsLeases(zfleet::wire::TxnRequest const& request) const;
    Reply transact(Request const& request);
    zfleet::wire::TxnResponse execute(zfleet::wire::TxnRequest const& request);
    bool fillRange(zfleet::wire::RangeRequest const& request,
                   zfleet::wire::RangeResponse& response) const;
    bool holds(zfleet::wire::Compare const& condition) const;
    bool execute(google::protobuf::RepeatedPtrField<zfleet::wire::Operation> const& operations,
                 zfleet::wire::TxnResponse& response);
    void fillHeader(zfleet::wire::Header& header) const;
    void write(std::string const& key, bool exists, std::string const& value, int64_t lease = 0);
    void endLease(int64_t id);

    mutable std::recursive_mutex mutex_;
    std::map<std::string, std::vector<Version>> history_;
    uint64_t id_ = 1;
    int64_t revision_ = 1;
    int64_t compacted_ = 0;
    std::atomic<uint64_t> term_{1};
    std::map<int64_t, Granted> leases_;  // by their ids
    int64_t lastLease_ = 0x1000;
    std::map<std::string, int> leaseStatuses_;
    std::atomic<bool> isFull_{false};
    std::atomic<bool> deniesLeases_{false};
    std::optional<uint64_t> renewalTerm_;
    std::function<Reply(Request const&, Handler const& execute)> fault_;
    std::deque<Fate> fates_;
    std::deque<zfleet::wire::TxnRequest> delayed_;
    int readStatus_ = 0;
    int status_ = 0;
    std::atomic<bool> isSilent_{false};
    std::function<void()> prelude_;
    std::function<void()> interlude_;
    ScriptedServer server_;  // the last field: it stops first
};
