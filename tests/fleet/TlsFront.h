// TlsFront: a server with TLS of one version that passes the bytes of its clients on to a server
// without encryption.
#pragma once

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "Certificates.h"
#include "LoopbackSocket.h"

class TlsFront {
public:
    /// range   `version` is TLS1_2_VERSION or TLS1_3_VERSION; `authority`, as PEM, signs the
    ///         certificates of clients, and is empty if they need none.
    TlsFront(int version, SignedPair const& node, std::string const& authority,
             std::string const& server)
        : server_(server), context_(makeContext(version, node, authority))
    {
        listener_.listen();
        acceptor_ = std::thread([this] { serve(); });
    }
    TlsFront(TlsFront const&) = delete;
    TlsFront& operator=(TlsFront const&) = delete;
    ~TlsFront()
    {
        isOver_ = true;
        acceptor_.join();
        for (std::thread& connection : connections_)
            connection.join();
        SSL_CTX_free(context_);
    }

    std::string address() const { return listener_.address(); }

    /// Returns the number of connections that have ended their handshake.
    unsigned accepted() const { return accepted_; }

private:
    static X509* parse(std::string const& pem)
    {
        BIO* const bio = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
        X509* const certificate = PEM_read_bio_X509(bio, nullptr, nullptr, nullptr);
        BIO_free(bio);
        return certificate;
    }

    static SSL_CTX* makeContext(int version, SignedPair const& node, std::string const& authority)
    {
        SSL_CTX* const context = SSL_CTX_new(TLS_server_method());
        SSL_CTX_set_min_proto_version(context, version);
        SSL_CTX_set_max_proto_version(context, version);
        X509* const certificate = parse(node.certificate);
        SSL_CTX_use_certificate(context, certificate);
        X509_free(certificate);
        BIO* const bio = BIO_new_mem_buf(node.key.data(), -1);
        EVP_PKEY* const key = PEM_read_bio_PrivateKey(bio, nullptr, nullptr, nullptr);
        SSL_CTX_use_PrivateKey(context, key);
        EVP_PKEY_free(key);
        BIO_free(bio);
        if (!authority.empty()) {
            X509* const root = parse(authority);
            X509_STORE_add_cert(SSL_CTX_get_cert_store(context), root);
            X509_free(root);
            SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
        }
        SSL_CTX_set_alpn_select_cb(
            context,
            [](SSL*, unsigned char const** chosen, unsigned char* length, unsigned char const*,
               unsigned, void*) {
                *chosen = reinterpret_cast<unsigned char const*>("h2");
                *length = 2;
                return SSL_TLSEXT_ERR_OK;
            },
            nullptr);
        return context;
    }

    // OpenSSL writes to closed connections.
    static void blockPipeSignals()
    {
        sigset_t pipe;
        sigemptyset(&pipe);
        sigaddset(&pipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    }

    void serve()
    {
        blockPipeSignals();
        while (!isOver_) {
            int const client = listener_.accept();
            if (client < 0)
                continue;
            connections_.emplace_back([this, client] {
                blockPipeSignals();
                pass(client);
            });
        }
    }

    void pass(int client)
    {
        SSL* const session = SSL_new(context_);
        SSL_set_fd(session, client);
        if (SSL_accept(session) == 1) {
            ++accepted_;
            int const server = LoopbackSocket::connectTo(server_);
            while (!isOver_ && passOn(session, client, server)) {
            }
            close(server);
        }
        SSL_free(session);
        close(client);
    }

    // Returns false at the end of the connection.
    static bool passOn(SSL* session, int client, int server)
    {
        pollfd waits[] = {{client, POLLIN, 0}, {server, POLLIN, 0}};
        if (SSL_pending(session) == 0 && poll(waits, 2, 10) <= 0)
            return true;
        char bytes[16384];
        if (waits[1].revents != 0) {
            ssize_t const length = recv(server, bytes, sizeof bytes, 0);
            if (length <= 0 || SSL_write(session, bytes, static_cast<int>(length)) <= 0)
                return false;
        }
        if (SSL_pending(session) != 0 || waits[0].revents != 0) {
            int const length = SSL_read(session, bytes, sizeof bytes);
            return length > 0 &&
                   send(server, bytes, static_cast<size_t>(length), MSG_NOSIGNAL) == length;
        }
        return true;
    }

    std::string const server_;
    SSL_CTX* const context_;
    LoopbackSocket const listener_;
    std::atomic<unsigned> accepted_{0};
    std::atomic<bool> isOver_{false};
    std::thread acceptor_;
    std::vector<std::thread> connections_;  // of the acceptor, and of the destructor after its end
};
