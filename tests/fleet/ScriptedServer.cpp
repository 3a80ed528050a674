#include "ScriptedServer.h"

#include <grpcpp/alarm.h>
#include <grpcpp/generic/async_generic_service.h>
#include <grpcpp/security/server_credentials.h>
#include <grpcpp/server.h>
#include <grpcpp/server_builder.h>
#include <grpcpp/support/byte_buffer.h>

#include <algorithm>
#include <deque>
#include <map>
#include <mutex>
#include <set>

namespace {

std::string bytesOf(grpc::ByteBuffer const& buffer)
{
    std::vector<grpc::Slice> slices;
    std::string bytes;
    if (buffer.Dump(&slices).ok())
        for (grpc::Slice const& slice : slices)
            bytes.append(reinterpret_cast<char const*>(slice.begin()), slice.size());
    return bytes;
}

// The copies share their memory.
grpc::ByteBuffer bufferOf(std::string const& bytes, size_t copies = 1)
{
    std::vector<grpc::Slice> const slices(copies, grpc::Slice(bytes));
    return {slices.data(), slices.size()};
}

}  // namespace

struct ScriptedServer::Service : grpc::CallbackGenericService {
    class Call;

    grpc::ServerGenericBidiReactor* CreateReactor(
        grpc::GenericCallbackServerContext* context) override;

    Reply record(Request const& request)
    {
        std::lock_guard<std::mutex> const guard(mutex);
        requests.push_back(request);
        auto const handler = handlers.find(request.method);
        if (handler != handlers.end())
            return handler->second(request);
        std::vector<Reply>& replies = scripts[request.method];
        if (replies.empty())
            return {12, "not scripted"};
        Reply const reply = replies.front();
        if (replies.size() > 1)
            replies.erase(replies.begin());
        return reply;
    }

    mutable std::mutex mutex;
    mutable std::mutex streamsMutex;  // a handler may send on streams: the other one is locked then
    std::set<Call*> streams;          // guarded by streamsMutex
    std::vector<Request> requests;
    std::map<std::string, std::vector<Reply>> scripts;
    std::map<std::string, std::function<Reply(Request const&)>> handlers;
    std::unique_ptr<grpc::Server> server;
    int port = 0;
};

class ScriptedServer::Service::Call : public grpc::ServerGenericBidiReactor {
public:
    Call(Service& service, grpc::GenericCallbackServerContext& context)
        : service_(service), context_(context)
    {
        std::string const& method = context.method();
        request_.method = method.substr(method.rfind('/') + 1);
        request_.token = metadata(context, "token");
        request_.needsLeader = metadata(context, "hasleader");
        StartRead(&in_);
    }

    void OnReadDone(bool isRead) override
    {
        if (!isRead)
            return Finish(grpc::Status(grpc::StatusCode::INTERNAL, "no request"));
        request_.bytes = bytesOf(in_);
        // A stream gets the messages that follow the state of its reply.
        if (request_.method == "Watch") {
            std::lock_guard<std::mutex> const guard(service_.streamsMutex);
            service_.streams.insert(this);
        }
        record(service_.record(request_));
        if (reply_.manner != Reply::stream) {
            std::lock_guard<std::mutex> const guard(service_.streamsMutex);
            service_.streams.erase(this);
        }
        if (isOver())
            end(grpc::Status::CANCELLED);
        else if (reply_.manner == Reply::late)
            alarm_.Set(std::chrono::system_clock::now() + kLate, [this](bool) { reply(); });
        else if (reply_.manner != Reply::never)
            reply();
    }

    // Sends a message on a stream, or ends it. Messages wait until the reply has opened the stream;
    // a call with a single reply never sends them.
    void push(std::string const& bytes)
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        pending_.push_back(bytes);
        sendNext();
    }
    void end(grpc::Status const& status)
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        if (!std::exchange(isFinished_, true))
            Finish(status);
    }

    void OnWriteDone(bool) override
    {
        if (reply_.manner == Reply::stream) {
            std::lock_guard<std::mutex> const guard(mutex_);
            isWriting_ = false;
            sendNext();
            return;
        }
        if (reply_.manner == Reply::twice && !isRepeated_) {
            isRepeated_ = true;
            StartWrite(&out_);
        } else {
            end(grpc::Status::OK);
        }
    }

    void OnCancel() override
    {
        {
            std::lock_guard<std::mutex> const guard(mutex_);
            isCancelled_ = true;
        }
        if (isOver())
            end(grpc::Status::CANCELLED);
    }

    void OnDone() override
    {
        {
            std::lock_guard<std::mutex> const guard(service_.streamsMutex);
            service_.streams.erase(this);
        }
        delete this;
    }

private:
    static std::string metadata(grpc::GenericCallbackServerContext const& context, char const* name)
    {
        auto const found = context.client_metadata().find(name);
        return found == context.client_metadata().end()
                   ? ""
                   : std::string(found->second.data(), found->second.size());
    }

    void record(Reply const& reply)
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        reply_ = reply;
        hasReply_ = true;
    }

    // Returns whether the client has cancelled a call that would end in no other way.
    bool isOver()
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        bool const waits = reply_.manner == Reply::never || reply_.manner == Reply::stream;
        return isCancelled_ && hasReply_ && waits;
    }

    void reply()
    {
        if (reply_.code != 0)
            return end(grpc::Status(static_cast<grpc::StatusCode>(reply_.code), reply_.text));
        if (reply_.manner == Reply::withoutMessage)
            return end(grpc::Status::OK);
        if (reply_.manner == Reply::stream) {
            std::lock_guard<std::mutex> const guard(mutex_);
            pending_.push_front(reply_.text);
            isOpen_ = true;
            sendNext();
            return;
        }
        if (reply_.manner == Reply::compressed) {
            context_.set_compression_algorithm(GRPC_COMPRESS_GZIP);
            out_ = bufferOf(reply_.text, kExpansion);
        } else {
            out_ = bufferOf(reply_.text);
        }
        StartWrite(&out_);
    }

    // Under the mutex.
    void sendNext()
    {
        if (!isOpen_ || isWriting_ || isFinished_ || pending_.empty())
            return;
        out_ = bufferOf(pending_.front());
        pending_.pop_front();
        isWriting_ = true;
        StartWrite(&out_);
    }

    Service& service_;
    grpc::GenericCallbackServerContext& context_;
    Request request_;
    Reply reply_;
    bool isRepeated_ = false;
    std::mutex mutex_;  // of the fields of a stream, and of a cancellation
    bool hasReply_ = false;
    bool isCancelled_ = false;
    std::deque<std::string> pending_;
    bool isOpen_ = false;
    bool isWriting_ = false;
    bool isFinished_ = false;
    grpc::ByteBuffer in_;
    grpc::ByteBuffer out_;
    grpc::Alarm alarm_;
};

grpc::ServerGenericBidiReactor* ScriptedServer::Service::CreateReactor(
    grpc::GenericCallbackServerContext* context)
{
    return new Call(*this, *context);
}

ScriptedServer::ScriptedServer() : service_(new Service)
{
    start(grpc::InsecureServerCredentials());
}

ScriptedServer::ScriptedServer(Tls const& tls) : service_(new Service)
{
    grpc::SslServerCredentialsOptions options(
        tls.clientCa.empty() ? GRPC_SSL_DONT_REQUEST_CLIENT_CERTIFICATE
                             : GRPC_SSL_REQUEST_AND_REQUIRE_CLIENT_CERTIFICATE_AND_VERIFY);
    options.pem_root_certs = tls.clientCa;
    options.pem_key_cert_pairs.push_back({tls.key, tls.certificate});
    start(grpc::SslServerCredentials(options));
}

void ScriptedServer::start(std::shared_ptr<grpc::ServerCredentials> const& credentials)
{
    grpc::ServerBuilder builder;
    builder.AddListeningPort("127.0.0.1:0", credentials, &service_->port);
    builder.RegisterCallbackGenericService(service_.get());
    service_->server = builder.BuildAndStart();
}

ScriptedServer::~ScriptedServer()
{
    // A reply that never comes ends here.
    service_->server->Shutdown(std::chrono::system_clock::now());
    service_->server->Wait();
}

std::string ScriptedServer::address() const
{
    return "127.0.0.1:" + std::to_string(service_->port);
}

void ScriptedServer::script(std::string const& method, std::vector<Reply> replies)
{
    std::lock_guard<std::mutex> const guard(service_->mutex);
    service_->scripts[method] = std::move(replies);
}

void ScriptedServer::handle(std::string const& method, std::function<Reply(Request const&)> handler)
{
    std::lock_guard<std::mutex> const guard(service_->mutex);
    service_->handlers[method] = std::move(handler);
}

void ScriptedServer::push(std::string const& bytes)
{
    std::lock_guard<std::mutex> const guard(service_->streamsMutex);
    for (Service::Call* const stream : service_->streams)
        stream->push(bytes);
}

void ScriptedServer::endStreams(int code, std::string const& text)
{
    std::lock_guard<std::mutex> const guard(service_->streamsMutex);
    for (Service::Call* const stream : service_->streams)
        stream->end(grpc::Status(static_cast<grpc::StatusCode>(code), text));
}

size_t ScriptedServer::streams() const
{
    std::lock_guard<std::mutex> const guard(service_->streamsMutex);
    return service_->streams.size();
}

std::vector<ScriptedServer::Request> ScriptedServer::requests() const
{
    std::lock_guard<std::mutex> const guard(service_->mutex);
    return service_->requests;
}

size_t ScriptedServer::count(std::string const& method) const
{
    std::vector<Request> const all = requests();
    return static_cast<size_t>(std::count_if(
        all.begin(), all.end(), [&](Request const& request) { return request.method == method; }));
}

std::string rangeReply(std::string const& key, std::string const& value, int64_t revision)
{
    zfleet::wire::RangeResponse reply;
    reply.mutable_header()->set_cluster(1);
    reply.mutable_header()->set_revision(revision);
    auto* const entry = reply.add_kvs();
    entry->set_key(key);
    entry->set_value(value);
    entry->set_mod_revision(revision);
    reply.set_count(1);
    return reply.SerializeAsString();
}

std::string transactionReply(bool hasSucceeded, int64_t revision)
{
    zfleet::wire::TxnResponse reply;
    reply.mutable_header()->set_cluster(1);
    reply.mutable_header()->set_revision(revision);
    reply.set_succeeded(hasSucceeded);
    return reply.SerializeAsString();
}

std::string tokenReply(std::string const& token)
{
    zfleet::wire::AuthenticateResponse reply;
    reply.mutable_header()->set_cluster(1);
    reply.set_token(token);
    return reply.SerializeAsString();
}
