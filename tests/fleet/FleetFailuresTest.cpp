// Each call of each operation, with each failure: the operation succeeds once, or throws the exact
// exception and changes nothing. A connection is cut at each byte.
#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZFleetProperties.h>
#include <Z/ZFleetReadWriteLock.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdio.h>

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "CampaignSize.h"
#include "CuttingProxy.h"
#include "DamagedMessage.h"
#include "FleetFile.h"
#include "ModelCluster.h"
#include "ScriptedClock.h"
#include "StoreChecks.h"
#include "transport/failure.h"

using namespace zfleet;
using Reply = ScriptedServer::Reply;
using std::chrono::milliseconds;

namespace {

constexpr char kPath[] = "etcd://test/gateway";
constexpr char kText[] = "/zfleet/6/cfg/gateway/text";
constexpr char kQueue[] = "/zfleet/6/lock/orders/q/";
constexpr char kSequence[] = "/zfleet/6/lock/orders/seq";

// A cluster with a configuration, a program's store of it, and its lock.
struct Program {
    explicit Program(std::string const& keys, std::string const& address = "")
        : file(FleetFile::textFor({address.empty() ? cluster.address() : address}) + keys)
    {
        cluster.put(kText, "# top\n[s]\nx = 1\ny = 1\n");
    }

    void set(char const* value) { store.setValue("s", "x", value); }

    void storeTwice()
    {
        store.load(kPath);
        for (char const* const value : {"2", "3"}) {
            set(value);
            store.store(nullptr);
        }
    }

    std::string text() const { return cluster.get(kText); }
    std::string queue() const
    {
        return std::to_string(cluster.keys(kQueue).size()) + " entries, " + cluster.get(kSequence);
    }

    ModelCluster cluster;
    FleetFile const file;
    ZFleetProperties_6_0 store{1};
    ZFleetReadWriteLock_6_0 lock{"etcd://test/orders"};
};

void nothing(Program&)
{
}

// An operation, and a state that it changes, or that it reads.
struct Operation {
    char const* name;
    void (*prepare)(Program&);
    void (*run)(Program&);
    std::string (*state)(Program&);
    char const* before;
    char const* after;
    unsigned message;  // of the exception of a lock; 0: an exception of a store
};

Operation const kOperations[] = {
    {"load", nothing, [](Program& p) { p.store.load(kPath); },
     [](Program& p) { return value(p.store, "x"); }, "(none)", "1", 0},
    {"reload",
     [](Program& p) {
         p.store.load(kPath);
         p.cluster.put(kText, "[s]\nx = 2\n");
     },
     [](Program& p) { p.store.reload(nullptr); },
     [](Program& p) { return value(p.store, "x") + value(p.store, "y"); }, "11", "2(none)", 0},
    {"store",
     [](Program& p) {
         p.store.load(kPath);
         p.set("2");
     },
     [](Program& p) { p.store.store(nullptr); },
     [](Program& p) {
         return p.text() + std::to_string(p.store.generation()) + (p.store.isModified() ? "m" : "");
     },
     "# top\n[s]\nx = 1\ny = 1\n0m", "# top\n[s]\nx = 2\ny = 1\n1", 0},
    {"create", [](Program& p) { p.set("1"); }, [](Program& p) { p.store.store("etcd://test/new"); },
     [](Program& p) { return p.cluster.get("/zfleet/6/cfg/new/text"); }, "(missing)",
     "\n[s]\nx = 1\n", 0},
    {"merge",
     [](Program& p) {
         p.store.load(kPath);
         p.set("2");
         p.cluster.put(kText, "# top\n[s]\nx = 1\ny = 7\n");
     },
     [](Program& p) { p.store.store(nullptr); }, [](Program& p) { return p.text(); },
     "# top\n[s]\nx = 1\ny = 7\n", "# top\n[s]\nx = 2\ny = 7\n", 0},
    {"undo", [](Program& p) { p.storeTwice(); }, [](Program& p) { p.store.undo(nullptr, 0); },
     [](Program& p) {
         return p.text() + value(p.store, "x") + ", " + std::to_string(p.store.generation());
     },
     "# top\n[s]\nx = 3\ny = 1\n3, 2", "# top\n[s]\nx = 2\ny = 1\n2, 3", 0},
    {"loadGeneration", [](Program& p) { p.storeTwice(); },
     [](Program& p) { p.store.loadGeneration(nullptr, 1); },
     [](Program& p) { return value(p.store, "x"); }, "3", "2", 0},
    {"lock", nothing, [](Program& p) { p.lock.writeLock(); },
     [](Program& p) { return p.queue() + (p.lock.token() != 0 ? " held" : " free"); },
     "0 entries, (missing) free", "1 entries, (missing) held", 33},
    {"lock again",
     [](Program& p) {
         p.lock.writeLock();
         p.lock.unlock();
     },
     [](Program& p) { p.lock.writeLock(); },
     [](Program& p) { return p.queue() + (p.lock.token() != 0 ? " held" : " free"); },
     "0 entries, 1 free", "1 entries, 1 held", 33},
    {"keepAlive", [](Program& p) { p.lock.writeLock(); }, [](Program& p) { p.lock.keepAlive(); },
     [](Program& p) { return std::string(p.lock.remaining() > 0 ? "held" : "lost"); }, "held",
     "held", 33},
    {"unlock", [](Program& p) { p.lock.writeLock(); }, [](Program& p) { p.lock.unlock(); },
     [](Program& p) { return p.queue(); }, "1 entries, (missing)", "0 entries, 1", 34},
};

struct Failure {
    char const* name;
    Reply reply;
    bool isExecuted;
    int error;    // of an operation whose call fails so once; 0: the call is repeated
    int lasting;  // of an operation whose call fails so each time
};

Failure const kFailures[] = {
    {"cancelled", {1, "x"}, false, 0, ECANCELED},
    {"cancelled afterwards", {1, "x"}, true, 0, ECANCELED},
    {"unknown", {2, "x"}, false, 0, EIO},
    {"unknown afterwards", {2, "x"}, true, 0, EIO},
    {"bad request", {3, "etcdserver: key is not provided"}, false, EINVAL, EINVAL},
    {"large request", {3, "etcdserver: request is too large"}, false, EFBIG, EFBIG},
    {"deadline", {4, "x"}, false, 0, ETIMEDOUT},
    {"deadline afterwards", {4, "x"}, true, 0, ETIMEDOUT},
    {"not found", {5, "etcdserver: requested lease not found"}, false, ENOENT, ENOENT},
    {"exists", {6, "x"}, false, EEXIST, EEXIST},
    {"no right", {7, "etcdserver: permission denied"}, false, EACCES, EACCES},
    {"full", {8, "etcdserver: mvcc: database space exceeded"}, false, ENOSPC, ENOSPC},
    {"overload", {8, "etcdserver: too many requests"}, false, EAGAIN, EAGAIN},
    {"precondition", {9, "x"}, false, EINVAL, EINVAL},
    {"aborted", {10, "x"}, false, 0, EAGAIN},
    {"aborted afterwards", {10, "x"}, true, 0, EAGAIN},
    {"compacted",
     {11, "etcdserver: mvcc: required revision has been compacted"},
     false,
     ESTALE,
     ESTALE},
    {"no such method", {12, "unknown service"}, false, EPROTO, EPROTO},
    {"internal", {13, "x"}, false, 0, EIO},
    {"internal afterwards", {13, "x"}, true, 0, EIO},
    {"unavailable", {14, "x"}, false, 0, ETIMEDOUT},
    {"unavailable afterwards", {14, "x"}, true, 0, ETIMEDOUT},
    {"data loss", {15, "x"}, false, 0, EIO},
    {"data loss afterwards", {15, "x"}, true, 0, EIO},
    {"bad token", {16, "etcdserver: invalid auth token"}, false, EACCES, EACCES},
    {"another code", {99, "x"}, false, 0, EIO},
    {"late", {0, "", Reply::late}, true, 0, 0},
    {"twice", {0, "", Reply::twice}, true, 0, ETIMEDOUT},
    {"never", {0, "", Reply::never}, false, 0, ETIMEDOUT},
    {"never, executed", {0, "", Reply::never}, true, 0, ETIMEDOUT},
    {"no message", {0, "", Reply::withoutMessage}, true, 0, EIO},
    {"not a message", {0, "\xff\xff\xff"}, true, 0, EIO},
};

// Returns "CALL errno ERRNO", "message NUMBER errno ERRNO", or "none".
std::string failureOf(Operation const& operation, Program& program)
{
    try {
        operation.run(program);
        return "none";
    } catch (ZPropertiesIOException_6_0 const& e) {
        return std::string(e.api().getChars()) + " errno " + std::to_string(e.excerrno());
    } catch (ZResourceException_6_0 const& e) {
        return "message " + std::to_string(e.messageNumber()) + " errno " +
               std::to_string(e.returnCode());
    }
}

struct Call {
    std::string method;
    bool isStore;  // of a configuration
};

// The calls that an operation makes without a failure.
std::vector<Call> callsOf(Operation const& operation)
{
    Program program("");
    operation.prepare(program);
    size_t const before = program.cluster.server().requests().size();
    operation.run(program);
    std::vector<Call> calls;
    for (auto const& request : program.cluster.server().requests()) {
        wire::TxnRequest form;
        bool const isTransaction = request.method == "Txn" && form.ParseFromString(request.bytes);
        calls.push_back(
            {request.method, operation.message == 0 && isTransaction && form.compare_size() > 0});
    }
    calls.erase(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_EQ(operation.after, operation.state(program));
    if (program.lock.token() != 0)
        program.lock.unlock();
    return calls;
}

// The outcomes of single failures that differ from the rule. They are exact, too.
std::string exceptionFor(Operation const& operation, std::string const& method,
                         Failure const& failure)
{
    std::string const name = operation.name;
    // A lease that has ended while it was not held is replaced.
    if (failure.error == ENOENT && operation.message == 33 && method == "Txn")
        return "none";
    // The lock is released without the number.
    if (failure.error == ENOSPC && name == "unlock")
        return "message 33 errno " + std::to_string(ENOSPC);
    if (failure.error == 0)
        return "none";
    return (operation.message == 0 ? method : "message " + std::to_string(operation.message)) +
           " errno " + std::to_string(failure.error);
}

class FleetFailures : public testing::Test {
protected:
    // Makes the call with the number `at` fail, and those after it if the failure lasts. Only a
    // call without a valid reply times out.
    static void fail(ModelCluster& cluster, size_t at, Failure const& failure, bool lasts)
    {
        bool const timesOut =
            failure.reply.manner == Reply::never || failure.reply.manner == Reply::twice;
        auto const number = std::make_shared<size_t>(0);
        ScriptedClock::setTimeouts(timesOut && at == 0);
        cluster.setFault([=, &failure](ScriptedServer::Request const& request,
                                       ModelCluster::Handler const& execute) {
            size_t const call = (*number)++;
            ScriptedClock::setTimeouts(timesOut && (lasts ? call + 1 >= at : call + 1 == at));
            if (call < at || (call > at && !lasts))
                return execute(request);
            Reply reply = failure.reply;
            if (failure.isExecuted) {
                Reply const executed = execute(request);
                if (reply.code == 0 && reply.text.empty())
                    reply.text = executed.text;
            }
            return reply;
        });
    }

    static void endFailures(ModelCluster& cluster)
    {
        cluster.setFault(nullptr);
        ScriptedClock::setTimeouts(false);
    }

    static void expectOnce(Operation const& operation, std::string const& method, size_t at,
                           Failure const& failure)
    {
        ScriptedClock const clock(ScriptedClock::real);
        Program program("budget = 60\ncall = 300\n");
        operation.prepare(program);
        fail(program.cluster, at, failure, false);
        std::string const expected = exceptionFor(operation, method, failure);
        EXPECT_EQ(expected, failureOf(operation, program));
        EXPECT_GE(milliseconds(300), ScriptedClock::takeLongestCall());
        endFailures(program.cluster);
        if (failure.error == ENOSPC && operation.message == 34) {
            // Without space, the entry is removed, but the number does not rise.
            program.lock.unlock(0);
            EXPECT_EQ("0 entries, (missing)", operation.state(program));
            return;
        }
        if (expected != "none") {
            EXPECT_EQ(operation.before, operation.state(program));
        }
        expectRepetition(operation, program, expected != "none");
    }

    // A store that may have been executed has an unknown outcome.
    static void expectLasting(Operation const& operation, bool isStore, size_t at,
                              Failure const& failure)
    {
        ScriptedClock const clock(ScriptedClock::stepped);
        Program program("budget = 1\ncall = 200\n");
        operation.prepare(program);
        fail(program.cluster, at, failure, true);
        std::string const found = failureOf(operation, program);
        bool const isUnknown = isStore && failure.lasting != ETIMEDOUT;
        EXPECT_EQ(failure.lasting == 0
                      ? "none"
                      : "errno " + std::to_string(isUnknown ? EINPROGRESS : failure.lasting),
                  found.substr(found == "none" ? 0 : found.rfind("errno")));
        // The budget, and a call that ends the lease after a failed acquisition.
        bool const isRenewal = std::string(operation.name) == "keepAlive";
        milliseconds const budget(found == "none" ? 0 : isRenewal ? 400 : 1000);
        EXPECT_LE(budget, ScriptedClock::elapsed());
        EXPECT_GE(budget + milliseconds(200), ScriptedClock::elapsed());
        endFailures(program.cluster);
        if (operation.message == 0)
            expectRepetition(operation, program, found != "none");
        else if (program.lock.token() != 0)
            program.lock.unlock(0);
    }

    static void freeLock(ZFleetReadWriteLock_6_0& lock)
    {
        try {
            lock.unlock(0);
        } catch (ZResourceException_6_0 const&) {
            // The cluster seems to be another one since the reply.
        }
    }

    // Repeats an operation that has failed, without a failure: it has the effect of a single one.
    static void expectRepetition(Operation const& operation, Program& program, bool hasFailed)
    {
        if (hasFailed) {
            EXPECT_EQ("none", failureOf(operation, program));
        }
        EXPECT_EQ(operation.after, operation.state(program));
        if (program.lock.token() != 0)
            program.lock.unlock(0);
    }

    struct Pairs {
        unsigned all;
        unsigned tried;
    };

    // Calls `expect` for each pair with the number 0, `step`, 2 * `step`, … of a call, whose number
    // is `at`, and a failure for which `isWanted` returns true.
    template <class IsWanted, class Expect>
    static Pairs forEachPair(unsigned step, IsWanted isWanted, Expect expect)
    {
        Pairs pairs{0, 0};
        for (Operation const& operation : kOperations) {
            std::vector<Call> const calls = callsOf(operation);
            for (size_t at = 0; at < calls.size(); ++at)
                for (Failure const& failure : kFailures) {
                    if (!isWanted(failure) || pairs.all++ % step != 0)
                        continue;
                    SCOPED_TRACE(std::string(operation.name) + ", " + calls[at].method + " " +
                                 std::to_string(at) + ", " + failure.name);
                    expect(operation, calls[at], at, failure);
                    ++pairs.tried;
                }
        }
        return pairs;
    }
};

}  // namespace

TEST_F(FleetFailures, EachFailureOfEachCallHasItsException)
{
    auto const all = [](Failure const&) { return true; };
    auto const [pairs, tried] = forEachPair(
        scaled(1, 11), all,
        [](Operation const& operation, Call const& call, size_t at, Failure const& failure) {
            expectOnce(operation, call.method, at, failure);
        });
    printf("%u of %u pairs of a call and a failure\n", tried, pairs);
}

TEST_F(FleetFailures, FailureThatLastsEndsWithTheBudget)
{
    auto const canLast = [](Failure const& failure) { return failure.error == 0; };
    auto const [pairs, tried] = forEachPair(
        scaled(1, 19), canLast,
        [](Operation const& operation, Call const& call, size_t at, Failure const& failure) {
            expectLasting(operation, call.isStore, at, failure);
        });
    printf("%u of %u pairs of a call and a lasting failure\n", tried, pairs);
}

// A watch that ends with any status is replaced, and misses no change.
TEST_F(FleetFailures, WatchThatEndsWithAnyStatusMissesNoChange)
{
    Program program("budget = 60\ncall = 500\nlook = 3600\n");
    program.store.load(kPath);
    program.store.descriptor();
    unsigned changes = 1;
    for (int code = 1; code <= 16; ++code) {
        SCOPED_TRACE(code);
        for (unsigned round = 0; round < scaled(20, 1); ++round) {
            program.cluster.endWatches(code, "x");
            program.cluster.put(kText, "[s]\nx = " + std::to_string(++changes) + "\n");
            auto const begin = std::chrono::steady_clock::now();
            while (value(program.store, "x") != std::to_string(changes)) {
                ASSERT_GT(30, secondsSince(begin));
                pollfd wait{program.store.descriptor(), POLLIN, 0};
                poll(&wait, 1, 1000);
                program.store.processChanges();
            }
        }
    }
}

// A reply with missing, doubled and oversized fields is taken or refused, and the next use of the
// library works.
TEST_F(FleetFailures, DamagedRepliesAreTakenOrRefused)
{
    unsigned const rounds = scaled(20'000, 100);
    std::map<std::string, unsigned> outcomes;
    for (unsigned round = 0; round < rounds; ++round) {
        SCOPED_TRACE(round);
        Operation const& operation = kOperations[round % std::size(kOperations)];
        ScriptedClock const clock(ScriptedClock::real);
        Program program("budget = 1\ncall = 200\n");
        operation.prepare(program);
        DamagedMessage damaged(round + 1);
        unsigned const at = round / std::size(kOperations) % 2;
        unsigned number = 0;
        program.cluster.setFault([&](auto const& request, auto const& execute) {
            Reply reply = execute(request);
            if (number++ == at)
                reply.text = damaged.damage(reply.text);
            return reply;
        });
        std::string outcome;
        try {
            outcome = failureOf(operation, program);
        } catch (ZPropertiesException_6_0 const&) {
            outcome = "invalid contents";
        }
        ++outcomes[outcome];
        program.cluster.setFault(nullptr);
        value(program.store, "x");
        if (program.lock.token() != 0)
            freeLock(program.lock);
    }
    for (auto const& [outcome, count] : outcomes)
        printf("%s: %u\n", outcome.c_str(), count);
}

// The calls of a program whose first connection is cut after some bytes in one direction.
TEST_F(FleetFailures, ConnectionThatIsCutAtAnyByteLosesNothing)
{
    auto const run = [](CuttingProxy::Direction direction, size_t bytes) -> size_t {
        ModelCluster* served = nullptr;
        CuttingProxy proxy(direction, bytes);
        Program program("budget = 60\ncall = 1000\n", proxy.address());
        served = &program.cluster;
        proxy.serve(served->address());
        program.store.load(kPath);
        program.set("2");
        program.store.store(nullptr);
        program.lock.writeLock();
        program.lock.unlock();
        EXPECT_EQ("# top\n[s]\nx = 2\ny = 1\n", program.text());
        EXPECT_EQ(1u, program.store.generation());
        EXPECT_EQ("0 entries, 1", program.queue());
        return proxy.passed(direction);
    };
    for (auto const direction : {CuttingProxy::toServer, CuttingProxy::toClient}) {
        size_t const all = run(direction, SIZE_MAX);
        unsigned cuts = 0;
        for (size_t bytes = 0; bytes < all && !HasFailure(); bytes += scaled(1, 97), ++cuts) {
            SCOPED_TRACE(std::to_string(bytes) + " bytes, direction " + std::to_string(direction));
            run(direction, bytes);
        }
        printf("%u cuts in %zu bytes %s\n", cuts, all,
               direction == CuttingProxy::toServer ? "to the server" : "from the server");
    }
}
