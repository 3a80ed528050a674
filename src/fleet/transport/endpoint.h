// endpoint: the channel to an endpoint of a cluster, and single calls.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>

namespace google::protobuf {
class MessageLite;
}  // namespace google::protobuf

namespace grpc {
class Channel;
class ChannelCredentials;
}  // namespace grpc

namespace zfleet {

using Clock = std::chrono::steady_clock;

// The names of the methods in the wire format.
inline constexpr char kRangeMethod[] = "/etcdserverpb.KV/Range";
inline constexpr char kTxnMethod[] = "/etcdserverpb.KV/Txn";
inline constexpr char kLeaseGrantMethod[] = "/etcdserverpb.Lease/LeaseGrant";
inline constexpr char kLeaseRevokeMethod[] = "/etcdserverpb.Lease/LeaseRevoke";
inline constexpr char kLeaseKeepAliveMethod[] = "/etcdserverpb.Lease/LeaseKeepAlive";
inline constexpr char kAuthenticateMethod[] = "/etcdserverpb.Auth/Authenticate";

// The status of a call; the code 0 is success.
struct CallStatus {
    int code = 0;
    std::string message = {};
};

// The contents of PEM files; without a CA, the connection is not encrypted.
struct Certificates {
    std::string ca = {};
    std::string certificate = {};
    std::string key = {};
};

class Endpoint {
public:
    /// Does not connect: the first call creates the channel.
    /// range   `address` is "host:port".
    Endpoint(std::string address, Certificates const& certificates);
    Endpoint(Endpoint const&) = delete;
    Endpoint& operator=(Endpoint const&) = delete;

    /// Closes the channel. In a child of the process that created the channel, leaks it: the
    /// threads of gRPC do not exist there.
    ~Endpoint();

    std::string const& address() const { return address_; }

    /// Returns whether a status of this endpoint can be due to the certificates of this host.
    bool mayBeDueToCertificates(CallStatus const& status) const;

    /// Returns whether the node refuses the certificates of this host, or whether they are damaged.
    /// Connects to the node to find out.
    bool isDueToCertificates(CallStatus const& status, Clock::duration timeout) const;

    /// Makes one attempt of a unary call, on the calling thread.
    /// range   `token` may be empty.
    /// throws  CallError with ECHILD in a child of a process that has used gRPC.
    /// threads any; a thread cannot be cancelled in it, and receives no signals.
    CallStatus invoke(char const* method, google::protobuf::MessageLite const& request,
                      google::protobuf::MessageLite& response, Clock::duration timeout,
                      std::string const& token);

    /// Connects to the node, unless it is connected, for this time at most. A connection makes
    /// progress only while a thread waits in a call, and a call fails immediately while the last
    /// attempt to connect has failed: calls with pauses between may never connect.
    /// threads as invoke().
    void waitForConnection(Clock::duration time);

    /// Returns the channel, which the first call creates.
    std::shared_ptr<grpc::Channel> channel();

private:
    std::string const address_;
    Certificates const& certificates_;  // of the cluster
    std::mutex mutex_;
    std::shared_ptr<grpc::Channel> channel_;  // guarded by mutex_
};

/// Checks that this process may use gRPC. Call this before acquiring a mutex: in a child of fork(),
/// a thread that does not exist there may hold the mutex.
/// throws  CallError with ECHILD in a child of a process that has used gRPC.
void requireOwnProcess(char const* method);

/// Returns whether this process is a child of a process that has used gRPC.
bool isForeignProcess();

/// Returns the name of a method without its service, such as "Range".
std::string nameOfMethod(char const* method);

}  // namespace zfleet
