// The contract of locks between processes, for a lock in a cluster and for a lock file.
#include <Z/ZFleetReadWriteLock.h>
#include <stdlib.h>
#include <string.h>

#include "FleetFile.h"
#include "ModelCluster.h"
#include "ProcessLockContract.h"
#include "SeenRanges.h"
#include "TestDirectory.h"

namespace {

class FleetKind {
public:
    using Lock = ZFleetReadWriteLock_6_0;

    static std::unique_ptr<Lock> make() { return std::make_unique<Lock>("etcd://test/orders"); }
    uint32_t sequence() const
    {
        return static_cast<uint32_t>(strtoul(cluster_.get(kSequence).c_str(), nullptr, 10));
    }
    void putSequence(uint32_t number) { cluster_.put(kSequence, std::to_string(number)); }
    std::string held() const
    {
        std::vector<std::string> const entries = cluster_.keys("/zfleet/6/lock/orders/q/");
        if (entries.empty())
            return "free";
        return cluster_.get(entries[0])[0] == 'w' ? "write" : "read";
    }

private:
    static constexpr char kSequence[] = "/zfleet/6/lock/orders/seq";

    ModelCluster cluster_;
    FleetFile const file_{FleetFile::textFor({cluster_.address()}) + "budget = 60\ncall = 1000\n"};
};

class FileKind {
public:
    using Lock = ZUnixProcessReadWriteFileLock_6_0;

    std::unique_ptr<Lock> make() const
    {
        return std::make_unique<Lock>(directory_.path().c_str(), "a");
    }
    uint32_t sequence() const
    {
        std::string const text = directory_.read(kFile);
        uint32_t number = 0;
        if (text.size() >= sizeof number)
            memcpy(&number, text.data(), sizeof number);
        return number;
    }
    void putSequence(uint32_t number) const
    {
        directory_.write(kFile, std::string(reinterpret_cast<char const*>(&number), sizeof number));
    }
    std::string held() const
    {
        char const data = seenRanges(directory_.at(kFile))[0];
        return data == 'r' ? "read" : data == 'w' ? "write" : "free";
    }

private:
    static constexpr char kFile[] = "._zpla";

    TestDirectory const directory_{TestDirectory::Place::memory};
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(OfFleets, ProcessLockContract, FleetKind);
INSTANTIATE_TYPED_TEST_SUITE_P(OfFiles, ProcessLockContract, FileKind);
