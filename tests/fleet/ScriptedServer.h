// ScriptedServer: a server in the test program that replies as the test has scripted.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "fleet_messages.pb.h"

namespace grpc {
class ServerCredentials;
}  // namespace grpc

class ScriptedServer {
public:
    // A reply to a call: a message, or a status with another code than 0.
    struct Reply {
        // `compressed`: the bytes kExpansion times, compressed, whether the client accepts that or
        // not.
        enum Manner { once, twice, late, never, withoutMessage, stream, compressed };

        int code = 0;
        std::string text = {};  // the message of the status, or the bytes of the reply
        Manner manner = once;
    };

    struct Request {
        std::string method;  // such as "Range"
        std::string bytes;
        std::string token;        // of the metadata
        std::string needsLeader;  // "hasleader" of the metadata
    };

    // The certificates of a server, as PEM.
    struct Tls {
        std::string certificate;
        std::string key;
        std::string clientCa;  // empty: the server accepts clients without a certificate
    };

    /// Listens on a port of the loopback interface.
    ScriptedServer();
    explicit ScriptedServer(Tls const& tls);
    ScriptedServer(ScriptedServer const&) = delete;
    ScriptedServer& operator=(ScriptedServer const&) = delete;
    ~ScriptedServer();

    /// Returns "127.0.0.1:PORT".
    std::string address() const;

    /// Replies to the calls of a method with `replies`, in order. The last one is repeated.
    void script(std::string const& method, std::vector<Reply> replies);

    /// Replies to the calls of a method with the result of `handler`, one call after another.
    void handle(std::string const& method, std::function<Reply(Request const&)> handler);

    /// Sends a message on each open stream: of the calls with a reply of the manner `stream`.
    void push(std::string const& bytes);

    /// Ends each open stream with a status.
    void endStreams(int code, std::string const& text);

    /// Returns the number of open streams.
    size_t streams() const;

    /// Returns the requests so far.
    std::vector<Request> requests() const;

    /// Returns the number of requests of a method so far.
    size_t count(std::string const& method) const;

    static constexpr size_t kExpansion = 128;

    /// The time that a late reply waits.
    static constexpr std::chrono::milliseconds kLate{60};

private:
    struct Service;

    void start(std::shared_ptr<grpc::ServerCredentials> const& credentials);

    std::unique_ptr<Service> service_;
};

// Returns the bytes of a reply of Range with one entry.
std::string rangeReply(std::string const& key, std::string const& value, int64_t revision = 7);

// Returns the bytes of a reply of Txn.
std::string transactionReply(bool hasSucceeded, int64_t revision = 7);

// Returns the bytes of a reply of Authenticate.
std::string tokenReply(std::string const& token);
