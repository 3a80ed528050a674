// Each combination of a version of TLS, certificates and users.
#include <Z/ZException.h>
#include <Z/ZFleetProperties.h>
#include <Z/ZLCString.h>
#include <errno.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "CampaignSize.h"
#include "Certificates.h"
#include "EtcdCluster.h"
#include "FleetFile.h"
#include "ScriptedServer.h"
#include "TlsFront.h"
#include "transport/cluster.h"
#include "transport/failure.h"

using namespace zfleet;

namespace {

std::string codeOf(int error)
{
    return "errno " + std::to_string(error);
}

// Reads a key. Returns its value, "(missing)", or the errno of the failure.
std::string read(Settings const& settings, std::string const& key)
{
    Cluster cluster(settings);
    try {
        Budget budget(std::chrono::seconds(60));
        RangeResult const result = cluster.read({key}, budget);
        return result.entries.empty() ? "(missing)" : result.entries[0].value;
    } catch (CallError const& error) {
        return codeOf(error.error);
    }
}

std::string put(Settings const& settings, std::string const& key, std::string const& value)
{
    Cluster cluster(settings);
    try {
        Budget budget(std::chrono::seconds(60));
        cluster.commit({{}, {Put{key, value}}, {}}, Repetition::isHarmless, budget);
        return value;
    } catch (CallError const& error) {
        return codeOf(error.error);
    }
}

class FleetTlsVersions : public testing::Test {
protected:
    CertificateAuthority const authority_;
    CertificateAuthority const other_;
};

// A node with TLS.
class FleetTlsCluster : public EtcdTest {
protected:
    // Starts a node. With `asks`, clients need a certificate.
    void startNode(bool asks, std::vector<std::string> options)
    {
        SignedPair const node = authority_.sign("node");
        options.push_back("--cert-file=" + directory_.write("node.pem", node.certificate));
        options.push_back("--key-file=" + directory_.write("node.key", node.key));
        if (asks) {
            options.push_back("--client-cert-auth");
            options.push_back("--trusted-ca-file=" + directory_.write("ca.pem", authority_.pem()));
        }
        nodes_ = std::make_unique<EtcdCluster>(1, options, nullptr, certificatesOf(root_));
        control("put /zfleet/6/open value");
        control("put /zfleet/6/closed value");
    }

    // Runs etcdctl as the user "root", whose certificate has this name.
    void control(std::string const& arguments) const
    {
        directory_.write("root.pem", root_.certificate);
        directory_.write("root.key", root_.key);
        directory_.write("ca.pem", authority_.pem());
        nodes_->control("--cacert=" + directory_.at("ca.pem") +
                        " --cert=" + directory_.at("root.pem") +
                        " --key=" + directory_.at("root.key") + " " + arguments);
    }

    // A user "host" who may read and write one key.
    void addUsers(bool withPasswords) const
    {
        control("role add reader");
        control("role grant-permission reader readwrite /zfleet/6/open");
        std::string const kind = withPasswords ? ":secret" : " --no-password";
        control("user add root" + kind);
        control("user grant-role root root");
        control("user add host" + kind);
        control("user grant-role host reader");
        control("auth enable");
    }

    Certificates certificatesOf(SignedPair const& pair) const
    {
        return {authority_.pem(), pair.certificate, pair.key};
    }

    Settings settingsFor(Certificates const& certificates) const
    {
        Settings settings;
        settings.fleet = "test";
        settings.endpoints = nodes_->endpoints();
        settings.certificates = certificates;
        return settings;
    }

    CertificateAuthority const authority_;
    CertificateAuthority const other_;
    SignedPair const root_ = authority_.sign("root");
    TestDirectory const directory_;
    std::unique_ptr<EtcdCluster> nodes_;
};

}  // namespace

TEST_F(FleetTlsVersions, EachCombinationOfCertificatesHasItsOutcome)
{
    SignedPair const good = authority_.sign("host");
    SignedPair const foreign = other_.sign("host");
    SignedPair const expired = authority_.sign("host", -60);
    struct Client {
        char const* name;
        std::string authority;  // that the client accepts
        SignedPair pair;
        bool isAccepted;  // by a node that needs no certificate
        bool isKnown;     // by a node that needs one
    };
    Client const clients[] = {
        {"good certificate", authority_.pem(), good, true, true},
        {"no certificate", authority_.pem(), {}, true, false},
        {"certificate of another authority", authority_.pem(), foreign, true, false},
        {"expired certificate", authority_.pem(), expired, true, false},
        {"another authority", other_.pem(), good, false, false},
        {"another authority, no certificate", other_.pem(), {}, false, false},
    };
    unsigned combinations = 0;
    for (int const version : {TLS1_2_VERSION, TLS1_3_VERSION})
        for (bool const isExpired : {false, true})
            for (bool const asks : {false, true})
                for (Client const& client : clients) {
                    SCOPED_TRACE(std::string(client.name) +
                                 (version == TLS1_2_VERSION ? ", TLS 1.2" : ", TLS 1.3") +
                                 (isExpired ? ", expired node" : "") + (asks ? ", node asks" : ""));
                    ScriptedServer server;
                    server.script("Range", {{0, rangeReply("k", "value")}});
                    TlsFront const front(version, authority_.sign("node", isExpired ? -60 : 3600),
                                         asks ? authority_.pem() : "", server.address());
                    Settings settings;
                    settings.endpoints = {front.address()};
                    settings.certificates = {client.authority, client.pair.certificate,
                                             client.pair.key};
                    bool const isServed = !isExpired && (asks ? client.isKnown : client.isAccepted);
                    EXPECT_EQ(isServed ? "value" : codeOf(EPROTO), read(settings, "k"));
                    EXPECT_EQ(isServed ? 1u : 0u, server.requests().size());
                    ++combinations;
                }
    printf("%u combinations of versions and certificates\n", combinations);
}

TEST_F(FleetTlsCluster, UsersByCertificate)
{
    startNode(true, {});
    addUsers(false);
    Settings const host = settingsFor(certificatesOf(authority_.sign("host")));
    EXPECT_EQ("value", read(host, "/zfleet/6/open"));
    EXPECT_EQ("new", put(host, "/zfleet/6/open", "new"));
    EXPECT_EQ(codeOf(EACCES), read(host, "/zfleet/6/closed"));
    EXPECT_EQ(codeOf(EACCES), put(host, "/zfleet/6/closed", "new"));
    EXPECT_EQ("value", read(settingsFor(certificatesOf(root_)), "/zfleet/6/closed"));
    EXPECT_EQ(codeOf(EACCES),
              read(settingsFor(certificatesOf(authority_.sign("stranger"))), "/zfleet/6/open"));
    for (SignedPair const& pair : {SignedPair{}, other_.sign("host"), authority_.sign("host", -60)})
        EXPECT_EQ(codeOf(EPROTO), read(settingsFor(certificatesOf(pair)), "/zfleet/6/open"));
    Settings deceived = host;
    deceived.certificates.ca = other_.pem();
    EXPECT_EQ(codeOf(EPROTO), read(deceived, "/zfleet/6/open"));
}

// A token lives for 3 seconds: it is renewed with a call, also with a watch.
TEST_F(FleetTlsCluster, UsersByPasswordWithShortTokens)
{
    startNode(false, {"--auth-token-ttl=3"});
    addUsers(true);
    Settings host = settingsFor({authority_.pem(), "", ""});
    host.user = "host";
    host.password = "secret";
    Settings wrong = host;
    wrong.password = "wrong";
    EXPECT_EQ(codeOf(EACCES), read(wrong, "/zfleet/6/open"));
    wrong = host;
    wrong.user = "stranger";
    EXPECT_EQ(codeOf(EACCES), read(wrong, "/zfleet/6/open"));
    wrong = host;
    wrong.user = wrong.password = "";
    EXPECT_EQ(codeOf(EACCES), read(wrong, "/zfleet/6/open"));
    EXPECT_EQ(codeOf(EACCES), read(host, "/zfleet/6/closed"));
    wrong = host;
    wrong.certificates.ca = other_.pem();
    EXPECT_EQ(codeOf(EPROTO), read(wrong, "/zfleet/6/open"));
    Cluster cluster(host);
    for (unsigned round = 0; round < scaled(20, 2); ++round) {
        Budget budget(std::chrono::seconds(60));
        EXPECT_EQ("value", cluster.read({"/zfleet/6/open"}, budget).entries.at(0).value);
        // Longer than a token lives without a call.
        std::this_thread::sleep_for(std::chrono::milliseconds(4500));
        Budget later(std::chrono::seconds(60));
        EXPECT_TRUE(
            cluster
                .commit({{}, {Put{"/zfleet/6/open", "value"}}, {}}, Repetition::isHarmless, later)
                .hasSucceeded);
    }
}
