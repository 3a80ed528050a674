// Connections with TLS: certificates that each side accepts and refuses.
#include <TestDirectory.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <openssl/ssl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "Certificates.h"
#include "LoopbackSocket.h"
#include "ScriptedServer.h"
#include "transport/cluster.h"
#include "transport/failure.h"

using namespace zfleet;

namespace {

// The budget of a call that cannot succeed, and whose failure has no code of its own.
constexpr std::chrono::seconds kShort{1};

// Accepts connections and closes them after the first bytes. With a node's certificate, it refuses
// clients without one, and sends an alert, as the nodes of a cluster do.
class ClosingServer {
public:
    explicit ClosingServer(SignedPair node = {}) : node_(std::move(node))
    {
        listener_.listen();
        thread_ = std::thread([this] { serve(); });
    }
    ClosingServer(ClosingServer const&) = delete;
    ClosingServer& operator=(ClosingServer const&) = delete;
    ~ClosingServer()
    {
        shutdown(listener_.fd(), SHUT_RDWR);
        thread_.join();
    }

    std::string address() const { return listener_.address(); }
    int connections() const { return connections_; }

private:
    void serve()
    {
        // OpenSSL writes to closed connections.
        sigset_t pipe;
        sigemptyset(&pipe);
        sigaddset(&pipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
        for (int client; (client = accept(listener_.fd(), nullptr, nullptr)) >= 0; close(client)) {
            ++connections_;
            char bytes[16384];
            if (node_.key.empty())
                recv(client, bytes, sizeof bytes, 0);
            else
                refuse(client);
        }
    }

    void refuse(int client) const
    {
        SSL_CTX* const context = SSL_CTX_new(TLS_server_method());
        BIO* const certificate = BIO_new_mem_buf(node_.certificate.data(), -1);
        BIO* const key = BIO_new_mem_buf(node_.key.data(), -1);
        X509* const x509 = PEM_read_bio_X509(certificate, nullptr, nullptr, nullptr);
        EVP_PKEY* const secret = PEM_read_bio_PrivateKey(key, nullptr, nullptr, nullptr);
        SSL_CTX_use_certificate(context, x509);
        SSL_CTX_use_PrivateKey(context, secret);
        SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
        SSL_CTX_set_alpn_select_cb(
            context,
            [](SSL*, unsigned char const** chosen, unsigned char* length, unsigned char const* in,
               unsigned, void*) {
                *chosen = in + 1;
                *length = in[0];
                return SSL_TLSEXT_ERR_OK;
            },
            nullptr);
        SSL* const session = SSL_new(context);
        SSL_set_fd(session, client);
        EXPECT_NE(1, SSL_accept(session));
        SSL_free(session);
        EVP_PKEY_free(secret);
        X509_free(x509);
        BIO_free(key);
        BIO_free(certificate);
        SSL_CTX_free(context);
    }

    SignedPair const node_;
    LoopbackSocket const listener_;
    std::atomic<int> connections_{0};
    std::thread thread_;
};

class FleetTls : public testing::Test {
protected:
    // Reads a key from a server. Returns its value, or the errno of the failure.
    static std::string readFrom(ScriptedServer& server, Certificates const& certificates)
    {
        server.script("Range", {{0, rangeReply("k", "value")}});
        return readFrom(server.address(), certificates, std::chrono::seconds(60));
    }

    static std::string readFrom(std::string const& address, Certificates const& certificates,
                                Clock::duration time)
    {
        Settings settings;
        settings.fleet = "test";
        settings.endpoints = {address};
        settings.certificates = certificates;
        Cluster cluster(settings);
        try {
            Budget budget(time);
            return cluster.read({"k"}, budget).entries.at(0).value;
        } catch (CallError const& error) {
            return "errno " + std::to_string(error.error);
        }
    }

    static std::string code(int error) { return "errno " + std::to_string(error); }

    CertificateAuthority const authority_;
    CertificateAuthority const other_;
    SignedPair const node_ = authority_.sign("node");
    SignedPair const host_ = authority_.sign("host");
};

}  // namespace

TEST_F(FleetTls, NodeOfTheAuthorityIsAccepted)
{
    ScriptedServer server({node_.certificate, node_.key, ""});
    EXPECT_EQ("value", readFrom(server, {authority_.pem(), "", ""}));
}

TEST_F(FleetTls, NodeOfAnotherAuthorityIsRefused)
{
    ScriptedServer server({node_.certificate, node_.key, ""});
    EXPECT_EQ(code(EPROTO), readFrom(server, {other_.pem(), "", ""}));
    EXPECT_EQ(0u, server.requests().size());
}

TEST_F(FleetTls, AuthorityOfTheEnvironmentIsIgnored)
{
    TestDirectory const directory;
    std::string const path = directory.write("ca.pem", authority_.pem());
    for (char const* const name : {"GRPC_DEFAULT_SSL_ROOTS_FILE_PATH", "SSL_CERT_FILE"})
        setenv(name, path.c_str(), 1);
    ScriptedServer server({node_.certificate, node_.key, ""});
    EXPECT_EQ(code(EPROTO), readFrom(server, {other_.pem(), "", ""}));
    EXPECT_EQ(0u, server.requests().size());
    for (char const* const name : {"GRPC_DEFAULT_SSL_ROOTS_FILE_PATH", "SSL_CERT_FILE"})
        unsetenv(name);
}

TEST_F(FleetTls, ExpiredCertificateOfANodeIsRefused)
{
    SignedPair const expired = authority_.sign("node", -60);
    ScriptedServer server({expired.certificate, expired.key, ""});
    EXPECT_EQ(code(EPROTO), readFrom(server, {authority_.pem(), "", ""}));
    EXPECT_EQ(0u, server.requests().size());
}

TEST_F(FleetTls, CertificateOfTheHostIsSent)
{
    ScriptedServer server({node_.certificate, node_.key, authority_.pem()});
    EXPECT_EQ("value", readFrom(server, {authority_.pem(), host_.certificate, host_.key}));
}

TEST_F(FleetTls, NodeThatRefusesTheCertificateOfTheHostIsRecognised)
{
    ScriptedServer server({node_.certificate, node_.key, authority_.pem()});
    SignedPair const foreign = other_.sign("host");
    SignedPair const expired = authority_.sign("host", -60);
    struct Case {
        char const* name;
        SignedPair pair;
    };
    for (Case const& c :
         {Case{"no certificate", {}}, Case{"another authority", foreign}, Case{"expired", expired},
          Case{"another key", {host_.certificate, foreign.key}}, Case{"damaged", {"x", "x"}}}) {
        SCOPED_TRACE(c.name);
        Clock::time_point const start = Clock::now();
        EXPECT_EQ(code(EPROTO),
                  readFrom(server, {authority_.pem(), c.pair.certificate, c.pair.key}));
        EXPECT_GT(std::chrono::seconds(30), Clock::now() - start);
    }
    EXPECT_EQ(code(EPROTO), readFrom(server, {"damaged", host_.certificate, host_.key}));
    EXPECT_EQ(0u, server.requests().size());
}

TEST_F(FleetTls, UnencryptedNodeIsNotUsedWithAnAuthority)
{
    ScriptedServer server;
    EXPECT_EQ(code(EPROTO), readFrom(server, {authority_.pem(), "", ""}));
    EXPECT_EQ(0u, server.requests().size());
}

TEST_F(FleetTls, AlertOfANodeIsRecognised)
{
    ClosingServer server(node_);
    EXPECT_EQ(code(EPROTO),
              readFrom(server.address(), {authority_.pem(), "", ""}, std::chrono::seconds(60)));
}

// A node that is being started or stopped closes connections, too.
TEST_F(FleetTls, NodeThatClosesConnectionsIsCalledAgain)
{
    ClosingServer server;
    EXPECT_EQ(code(ETIMEDOUT),
              readFrom(server.address(), {authority_.pem(), host_.certificate, host_.key}, kShort));
    EXPECT_LT(1, server.connections());
}
