#include "transport/certificate_check.h"

#include <errno.h>
#include <fcntl.h>
#include <netdb.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

namespace zfleet {

namespace {

// A TCP connection. Its operations end at a deadline.
class Connection {
public:
    Connection(std::string const& address, Clock::time_point deadline) : deadline_(deadline)
    {
        size_t const colon = address.rfind(':');
        std::string host = address.substr(0, colon);
        if (host.front() == '[')
            host = host.substr(1, host.size() - 2);
        addrinfo hints{};
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* found = nullptr;
        if (getaddrinfo(host.c_str(), address.c_str() + colon + 1, &hints, &found) != 0)
            return;
        std::unique_ptr<addrinfo, void (*)(addrinfo*)> const addresses(found, freeaddrinfo);
        for (addrinfo const* at = found; at != nullptr && !isOpen(); at = at->ai_next)
            connectTo(*at);
    }
    Connection(Connection const&) = delete;
    Connection& operator=(Connection const&) = delete;
    ~Connection() { close(); }

    bool isOpen() const { return fd_ >= 0; }

    bool send(std::string bytes)
    {
        while (!bytes.empty() && waitFor(POLLOUT)) {
            ssize_t const sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (sent <= 0)
                return false;
            bytes.erase(0, static_cast<size_t>(sent));
        }
        return bytes.empty();
    }

    /// Returns the received bytes; empty at the end of the connection and at the deadline.
    std::string receive()
    {
        char bytes[4096];
        ssize_t const got = waitFor(POLLIN) ? recv(fd_, bytes, sizeof bytes, 0) : 0;
        return {bytes, static_cast<size_t>(std::max<ssize_t>(got, 0))};
    }

private:
    void connectTo(addrinfo const& address)
    {
        fd_ = socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (fd_ < 0 || connect(fd_, address.ai_addr, address.ai_addrlen) == 0)
            return;
        int error = errno;
        socklen_t length = sizeof error;
        bool const isWaiting = error == EINPROGRESS && waitFor(POLLOUT);
        if (!isWaiting || getsockopt(fd_, SOL_SOCKET, SO_ERROR, &error, &length) != 0 || error != 0)
            close();
    }

    bool waitFor(short events)
    {
        for (;;) {
            auto const left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline_ - Clock::now())
                    .count();
            pollfd wait{fd_, events, 0};
            int const ready = poll(&wait, 1, static_cast<int>(std::max<long>(left, 0)));
            if (ready >= 0 || errno != EINTR)
                return ready > 0;
        }
    }

    void close()
    {
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = -1;
    }

    Clock::time_point const deadline_;
    int fd_ = -1;
};

template <class Object, void (*release)(Object*)>
struct Release {
    void operator()(Object* object) const { release(object); }
};
using Context = std::unique_ptr<SSL_CTX, Release<SSL_CTX, SSL_CTX_free>>;
using Session = std::unique_ptr<SSL, Release<SSL, SSL_free>>;

BIO* bufferOf(std::string const& bytes)
{
    return BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size()));
}

void useCertificate(SSL_CTX& context, Certificates const& certificates)
{
    std::unique_ptr<BIO, int (*)(BIO*)> const chain(bufferOf(certificates.certificate), BIO_free);
    std::unique_ptr<BIO, int (*)(BIO*)> const key(bufferOf(certificates.key), BIO_free);
    for (bool isFirst = true;; isFirst = false) {
        X509* const certificate = PEM_read_bio_X509(chain.get(), nullptr, nullptr, nullptr);
        if (certificate == nullptr)
            break;
        if (isFirst) {
            SSL_CTX_use_certificate(&context, certificate);
            X509_free(certificate);
        } else if (SSL_CTX_add0_chain_cert(&context, certificate) == 0) {
            X509_free(certificate);
        }
    }
    EVP_PKEY* const secret = PEM_read_bio_PrivateKey(key.get(), nullptr, nullptr, nullptr);
    if (secret != nullptr)
        SSL_CTX_use_PrivateKey(&context, secret);
    EVP_PKEY_free(secret);
}

// Returns the session of a client that trusts any node: gRPC has accepted its certificate.
Session makeSession(Certificates const& certificates, Context& context)
{
    context.reset(SSL_CTX_new(TLS_client_method()));
    if (context == nullptr)
        return nullptr;
    useCertificate(*context, certificates);
    constexpr unsigned char kHttp2[] = "\2h2";
    SSL_CTX_set_alpn_protos(context.get(), kHttp2, sizeof kHttp2 - 1);
    Session session(SSL_new(context.get()));
    BIO* const in = BIO_new(BIO_s_mem());
    BIO* const out = BIO_new(BIO_s_mem());
    if (session == nullptr || in == nullptr || out == nullptr) {
        BIO_free(in);
        BIO_free(out);
        return nullptr;
    }
    BIO_set_mem_eof_return(in, -1);
    SSL_set_bio(session.get(), in, out);
    SSL_set_connect_state(session.get());
    return session;
}

std::string pendingOutput(SSL& session)
{
    std::string bytes(BIO_ctrl_pending(SSL_get_wbio(&session)), '\0');
    if (!bytes.empty())
        BIO_read(SSL_get_wbio(&session), bytes.data(), static_cast<int>(bytes.size()));
    return bytes;
}

// Returns whether a node ends a connection because of the certificate.
bool endsConnection(std::string const& address, Certificates const& certificates,
                    Clock::time_point deadline)
{
    Context context;
    Session const session = makeSession(certificates, context);
    Connection connection(address, deadline);
    while (session != nullptr && connection.isOpen()) {
        ERR_clear_error();
        char byte;
        int const result = SSL_read(session.get(), &byte, 1);  // after the handshake
        int const error = SSL_get_error(session.get(), result);
        // Reasons above the offset are alerts that the node has sent.
        if (error == SSL_ERROR_SSL)
            return ERR_GET_REASON(ERR_peek_error()) > SSL_AD_REASON_OFFSET;
        if (error != SSL_ERROR_WANT_READ)
            return false;
        bool const isSent = connection.send(pendingOutput(*session));
        std::string const received = isSent ? connection.receive() : "";
        // A node that accepts the certificate waits for a request. Not every node that refuses it
        // sends an alert.
        if (received.empty())
            return SSL_is_init_finished(session.get()) != 0 && Clock::now() < deadline;
        BIO_write(SSL_get_rbio(session.get()), received.data(), static_cast<int>(received.size()));
    }
    return false;
}

}  // namespace

bool isCertificateRefused(std::string const& address, Certificates const& certificates,
                          Clock::duration timeout)
{
    // A node that is being stopped closes connections, too, but no second one.
    Clock::time_point const deadline = Clock::now() + timeout;
    return endsConnection(address, certificates, deadline) &&
           endsConnection(address, certificates, deadline);
}

}  // namespace zfleet
