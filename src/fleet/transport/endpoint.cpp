#include "transport/endpoint.h"

#include <errno.h>
#include <grpcpp/channel.h>
#include <grpcpp/client_context.h>
#include <grpcpp/completion_queue.h>
#include <grpcpp/create_channel.h>
#include <grpcpp/generic/generic_stub.h>
#include <grpcpp/security/credentials.h>
#if __has_include(<grpcpp/impl/proto_utils.h>)
#include <grpcpp/impl/proto_utils.h>
#else
#include <grpcpp/impl/codegen/proto_utils.h>
#endif
#include <string.h>
#include <unistd.h>

#include <atomic>

#include "transport/cancel_guard.h"
#include "transport/certificate_check.h"
#include "transport/failure.h"
#include "transport/signal_guard.h"

namespace zfleet {

namespace {

using google::protobuf::MessageLite;

// Text and companion of a configuration that other programs have written, each at the limit of a
// request of the cluster, and the metadata.
constexpr int kMaxReplySize = 8 << 20;  // bytes

constexpr int kConnectTimeout = 1000;   // milliseconds
constexpr int kMinReconnectPause = 20;  // milliseconds
constexpr int kMaxReconnectPause = 500;

// A call without a reply for this time sends a ping. More pings would make the server
// close the connection.
constexpr int kPingInterval = 5000;  // milliseconds
constexpr int kPingTimeout = 2000;

// The message of a channel whose certificates gRPC itself has not accepted.
constexpr char kNotAccepted[] = "empty address list";

// The process that has started gRPC; 0: none. gRPC has threads, which a child of fork() lacks.
std::atomic<pid_t> grpcProcess{0};

std::shared_ptr<grpc::ChannelCredentials> makeCredentials(Certificates const& certificates)
{
    // Without a CA gRPC would take one from the environment.
    if (certificates.ca.empty())
        return grpc::InsecureChannelCredentials();
    return grpc::SslCredentials({certificates.ca, certificates.key, certificates.certificate});
}

std::shared_ptr<grpc::Channel> makeChannel(std::string const& address,
                                           Certificates const& certificates)
{
    grpc::ChannelArguments arguments;
    arguments.SetInt(GRPC_ARG_MAX_RECEIVE_MESSAGE_LENGTH, kMaxReplySize);
    // gRPC checks the limit after it has expanded a compressed reply. Nodes do not compress.
    arguments.SetInt(GRPC_COMPRESSION_CHANNEL_ENABLED_ALGORITHMS_BITSET, 1 << GRPC_COMPRESS_NONE);
    arguments.SetInt(GRPC_ARG_ENABLE_PER_MESSAGE_DECOMPRESSION, 0);
    arguments.SetInt(GRPC_ARG_MIN_RECONNECT_BACKOFF_MS, kConnectTimeout);
    arguments.SetInt(GRPC_ARG_INITIAL_RECONNECT_BACKOFF_MS, kMinReconnectPause);
    arguments.SetInt(GRPC_ARG_MAX_RECONNECT_BACKOFF_MS, kMaxReconnectPause);
    arguments.SetInt(GRPC_ARG_KEEPALIVE_TIME_MS, kPingInterval);
    arguments.SetInt(GRPC_ARG_KEEPALIVE_TIMEOUT_MS, kPingTimeout);
    // A watch may be silent for long.
    arguments.SetInt(GRPC_ARG_HTTP2_MAX_PINGS_WITHOUT_DATA, 0);
    // The library repeats calls itself, since it knows which of them may be repeated.
    arguments.SetInt(GRPC_ARG_ENABLE_RETRIES, 0);
    // The file of the fleets alone decides where calls go.
    arguments.SetInt(GRPC_ARG_ENABLE_HTTP_PROXY, 0);
    arguments.SetInt(GRPC_ARG_SERVICE_CONFIG_DISABLE_RESOLUTION, 1);
    // Channels with equal arguments would share a connection otherwise.
    arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
    return grpc::CreateCustomChannel("dns:///" + address, makeCredentials(certificates), arguments);
}

gpr_timespec deadlineAfter(Clock::duration timeout)
{
    auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(timeout).count();
    // The wall clock may be set while the call waits.
    return gpr_time_add(gpr_now(GPR_CLOCK_MONOTONIC), gpr_time_from_millis(left, GPR_TIMESPAN));
}

}  // namespace

bool isForeignProcess()
{
    pid_t const process = grpcProcess.load(std::memory_order_relaxed);
    return process != 0 && process != getpid();
}

void requireOwnProcess(char const* method)
{
    pid_t none = 0;
    grpcProcess.compare_exchange_strong(none, getpid(), std::memory_order_relaxed);
    if (isForeignProcess())
        throw CallError{nameOfMethod(method), ECHILD, false,
                        "the process was forked after its parent had used a cluster"};
}

std::string nameOfMethod(char const* method)
{
    return strrchr(method, '/') + 1;
}

Endpoint::Endpoint(std::string address, Certificates const& certificates)
    : address_(std::move(address)), certificates_(certificates)
{
}

Endpoint::~Endpoint()
{
    SignalGuard const unsignalled;
    if (isForeignProcess())
        new std::shared_ptr<grpc::Channel>(channel_);
    else
        channel_.reset();
}

std::shared_ptr<grpc::Channel> Endpoint::channel()
{
    std::lock_guard<std::mutex> const guard(mutex_);
    if (channel_ == nullptr)
        channel_ = makeChannel(address_, certificates_);
    return channel_;
}

bool Endpoint::mayBeDueToCertificates(CallStatus const& status) const
{
    if (status.code != statusUnavailable || certificates_.ca.empty())
        return false;
    for (char const* const text :
         {kNotAccepted, "Socket closed", "Endpoint read failed", "Connection reset", "Broken pipe"})
        if (status.message.find(text) != std::string::npos)
            return true;
    return false;
}

bool Endpoint::isDueToCertificates(CallStatus const& status, Clock::duration timeout) const
{
    return mayBeDueToCertificates(status) &&
           (status.message.find(kNotAccepted) != std::string::npos ||
            isCertificateRefused(address_, certificates_, timeout));
}

void Endpoint::waitForConnection(Clock::duration time)
{
    CancelGuard const uncancelled;
    SignalGuard const unsignalled;
    channel()->WaitForConnected(deadlineAfter(time));
}

CallStatus Endpoint::invoke(char const* method, MessageLite const& request, MessageLite& response,
                            Clock::duration timeout, std::string const& token)
{
    CancelGuard const uncancelled;
    requireOwnProcess(method);
    SignalGuard const unsignalled;
    grpc::ClientContext context;
    context.set_deadline(deadlineAfter(timeout));
    // An isolated node would wait for a leader otherwise.
    context.AddMetadata("hasleader", "true");
    if (!token.empty())
        context.AddMetadata("token", token);

    // The calling thread polls the connection itself, through a queue of its own.
    grpc::CompletionQueue queue;
    grpc::TemplatedGenericStub<MessageLite, MessageLite> stub(channel());
    auto const call = stub.PrepareUnaryCall(&context, method, request, &queue);
    grpc::Status status;
    call->StartCall();
    call->Finish(&response, &status, nullptr);
    void* tag = nullptr;
    bool isParsed = false;
    queue.Next(&tag, &isParsed);
    queue.Shutdown();
    for (bool ignored; queue.Next(&tag, &ignored);) {
    }
    // gRPC reports success for a reply that is missing or that it cannot parse. A reply of the
    // cluster is never empty: it has a header.
    if (status.ok() && (!isParsed || response.ByteSizeLong() == 0))
        return {statusInternal, "unreadable reply"};
    return {static_cast<int>(status.error_code()), status.error_message()};
}

}  // namespace zfleet
