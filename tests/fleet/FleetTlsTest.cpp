// Connections with TLS: certificates that each side accepts and refuses.
#include <errno.h>
#include <gtest/gtest.h>

#include "Certificates.h"
#include "ScriptedServer.h"
#include "transport/cluster.h"
#include "transport/failure.h"

using namespace zfleet;

namespace {

// The budget of a call that cannot succeed, and whose failure has no code of its own.
constexpr std::chrono::seconds kShort{1};

class FleetTls : public testing::Test {
protected:
    // Reads a key from a server. Returns its value, or the errno of the failure.
    static std::string readFrom(ScriptedServer& server, Certificates const& certificates,
                                Clock::duration time = std::chrono::seconds(60))
    {
        server.script("Range", {{0, rangeReply("k", "value")}});
        Settings settings;
        settings.fleet = "test";
        settings.endpoints = {server.address()};
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

TEST_F(FleetTls, HostWithoutACertificateIsNeverServed)
{
    ScriptedServer server({node_.certificate, node_.key, authority_.pem()});
    EXPECT_NE("value", readFrom(server, {authority_.pem(), "", ""}, kShort));
    SignedPair const foreign = other_.sign("host");
    EXPECT_NE("value",
              readFrom(server, {authority_.pem(), foreign.certificate, foreign.key}, kShort));
    EXPECT_EQ(0u, server.requests().size());
}

TEST_F(FleetTls, UnencryptedNodeIsNotUsedWithAnAuthority)
{
    ScriptedServer server;
    EXPECT_NE("value", readFrom(server, {authority_.pem(), "", ""}, kShort));
    EXPECT_EQ(0u, server.requests().size());
}
