#include "ZFleetProperties.h"

#include <Z/ZArrayList.h>
#include <Z/ZBuffer.h>
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZPropertiesImpl.h>
#include <errno.h>

#include <map>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "ZFleetConnection_p.h"
#include "configuration/path.h"
#include "configuration/remote_configuration.h"
#include "transport/cancel_guard.h"
#include "transport/failure.h"

namespace {

constexpr char kSource[] = "src/fleet/Z/ZFleetProperties";
enum RaiseSite {
    raiseForPath = 1,
    raiseForCall,
    raiseForMissing,
    raiseForSize,
    raiseForOvertaken,
    raiseForUnknown
};

bool isEmpty(char const* text)
{
    return text == nullptr || *text == 0;
}

struct ReleaseConnection {
    void operator()(ZFleetConnection_6_0* connection) const { connection->release(); }
};
using Connection = std::unique_ptr<ZFleetConnection_6_0, ReleaseConnection>;

// The entry of a stanza file that names its companion; docs/file-formats.md.
constexpr char kReservedStanza[] = "configuration-database";
constexpr char kReservedKey[] = "file";

bool isLastStanza(ZSCFData_6_0 const& cache, char const* stanza)
{
    ZArrayList_6_0 names(8, 1);
    cache.getNamesInFileOrder(names);
    ZLCString_6_0 const name(stanza);
    return names.size() > 0 && names.get(names.size() - 1)->equals(name);
}

// Removes the name of the companion, which is a path of one machine.
void dropCompanionName(ZSCFData_6_0& cache)
{
    cache.setCompanionFile(nullptr);
    if (cache.contains(kReservedStanza, kReservedKey) == 0)
        return;
    cache.delLine(kReservedStanza, kReservedKey);
    // In the middle of the file, this would remove the comments above the next stanza.
    if (cache.keyCount(kReservedStanza) == 0 && isLastStanza(cache, kReservedStanza))
        cache.delLine(kReservedStanza);
}

bool namesCompanion(ZSCFData_6_0 const& cache)
{
    return !cache.companionFile().isEmpty() || cache.contains(kReservedStanza, kReservedKey) != 0;
}

std::string bytesOf(ZBuffer_6_0 const& buffer)
{
    return {static_cast<char const*>(buffer.getBuffer()), buffer.getLength()};
}

// Runs `operation` on the configuration at `path`. Turns failed calls into exceptions.
template <class Operation>
void onConfiguration(char const* path, Operation operation)
{
    try {
        operation();
    } catch (std::bad_alloc const&) {
        ZOutOfMemoryException_6_0().throwException(kSource, raiseForCall);
    } catch (zfleet::CallError const& error) {
        // A timeout implies that the outcome is unknown; other codes do not.
        bool const isUnknown = error.isDoubtful && error.error != ETIMEDOUT;
        ZPropertiesIOException_6_0(path, error.call.c_str(), isUnknown ? EINPROGRESS : error.error)
            .throwException(kSource, raiseForCall);
    }
}

}  // namespace

struct ZFleetProperties_6_0::Rep {
    // A configuration, with the connection that it uses.
    struct Target {
        explicit Target(char const* text) : Target(zfleet::parsePath(text)) {}
        explicit Target(zfleet::Path const& path)
            : connection(ZFleetConnection_6_0::open(path.fleet.c_str())),
              remote(cluster(), path.name),
              budget(cluster().settings().budget)
        {
        }

        zfleet::Cluster& cluster() const { return connection->rep().cluster; }

        Connection connection;
        zfleet::RemoteConfiguration remote;
        zfleet::Budget budget;
    };

    static char const* choosePath(ZFleetProperties_6_0 const& store, char const* path);
    static std::unique_ptr<ZPCache_6_0> parse(ZFleetProperties_6_0 const& store, char const* path,
                                              zfleet::Snapshot const& snapshot);
    static zfleet::Contents contentsOf(ZFleetProperties_6_0 const& store);

    // A configuration that the store has loaded or stored.
    struct Source {
        Connection connection = nullptr;  // to its fleet, which stays open
        zfleet::Snapshot base = {};
        std::vector<std::string> doubts = {};  // ids of stores with an unknown outcome
        zfleet::Metadata attempt = {};         // the last of these, and its contents
        zfleet::Contents attempted = {};
    };

    void writeTo(Target& target, char const* path, zfleet::Contents const& contents);
    zfleet::WriteResult attempt(Target& target, Source& source, zfleet::Metadata const& metadata,
                                zfleet::Contents const& contents);
    zfleet::Metadata metadataFor(Source const& source, zfleet::Contents const& contents) const;
    void setBase(std::string const& path, Connection connection, zfleet::Snapshot base);

    std::map<std::string, Source> sources;  // by path
    int64_t revision = 0;                   // of the text that was last loaded or stored
    uint64_t generation = 0;
    std::string reason;
};

char const* ZFleetProperties_6_0::Rep::choosePath(ZFleetProperties_6_0 const& store,
                                                  char const* path)
{
    if (!isEmpty(path))
        return path;
    if (store.fileName().isEmpty())
        ZInvalidParameterException_6_0().throwException(kSource, raiseForPath);
    return store.fileName().getChars();
}

std::unique_ptr<ZPCache_6_0> ZFleetProperties_6_0::Rep::parse(ZFleetProperties_6_0 const& store,
                                                              char const* path,
                                                              zfleet::Snapshot const& snapshot)
{
    std::unique_ptr<ZPCache_6_0> fresh(store.cache().makeEmpty());
    auto& stanzas = static_cast<ZSCFData_6_0&>(*fresh);
    std::string const& text = snapshot.contents.text;
    std::string const& packed = snapshot.contents.hidden;
    stanzas.readText(path, text.data(), text.size());
    dropCompanionName(stanzas);
    if (!packed.empty()) {
        ZBuffer_6_0 hidden;
        hidden.setBuffer(packed.size(), const_cast<char*>(packed.data()));
        // A damaged companion is reported with this name.
        stanzas.setCompanionFile((std::string(path) + "#hidden").c_str());
        stanzas.be_read_obfuscated(hidden);
        stanzas.setCompanionFile(nullptr);
    }
    return fresh;
}

zfleet::Contents ZFleetProperties_6_0::Rep::contentsOf(ZFleetProperties_6_0 const& store)
{
    auto const* stanzas = static_cast<ZSCFData_6_0*>(&store.cache());
    std::unique_ptr<ZPCache_6_0> copy;
    if (namesCompanion(*stanzas)) {
        copy.reset(stanzas->clone());
        stanzas = static_cast<ZSCFData_6_0*>(copy.get());
        dropCompanionName(static_cast<ZSCFData_6_0&>(*copy));
    }
    ZBuffer_6_0 text;
    stanzas->writeText(text);
    ZBuffer_6_0 hidden;
    const_cast<ZSCFData_6_0*>(stanzas)->be_write_obfuscated(hidden);
    return {bytesOf(text), bytesOf(hidden)};
}

// Records the state of a configuration that was loaded or stored.
void ZFleetProperties_6_0::Rep::setBase(std::string const& path, Connection connection,
                                        zfleet::Snapshot base)
{
    revision = base.textRevision;
    generation = base.metadata().generation;
    sources.insert_or_assign(path, Source{std::move(connection), std::move(base)});
}

// Returns the metadata of a store. A repetition of the last store, whose outcome is unknown, is the
// same transaction.
zfleet::Metadata ZFleetProperties_6_0::Rep::metadataFor(Source const& source,
                                                        zfleet::Contents const& contents) const
{
    if (!source.doubts.empty() && contents == source.attempted)
        return source.attempt;
    return zfleet::makeMetadata(source.base.metadata().generation + 1, source.base.textRevision,
                                reason);
}

// Sends a store. If its outcome is unknown, later stores look for it.
zfleet::WriteResult ZFleetProperties_6_0::Rep::attempt(Target& target, Source& source,
                                                       zfleet::Metadata const& metadata,
                                                       zfleet::Contents const& contents)
{
    auto const addDoubt = [&] {
        if (source.doubts.empty() || source.doubts.back() != metadata.id)
            source.doubts.push_back(metadata.id);
        source.attempt = metadata;
        source.attempted = contents;
    };
    try {
        zfleet::WriteResult result =
            target.remote.write(contents, source.base, metadata, source.doubts, target.budget);
        if (result.outcome == zfleet::WriteResult::unknown)
            addDoubt();
        return result;
    } catch (zfleet::CallError const& error) {
        if (error.isDoubtful)
            addDoubt();
        throw;
    }
}

// Writes to the configuration, unless another program has done so since it was loaded or stored. A
// configuration that this store has never seen is replaced.
void ZFleetProperties_6_0::Rep::writeTo(Target& target, char const* path,
                                        zfleet::Contents const& contents)
{
    using zfleet::WriteResult;
    auto const known = sources.find(path);
    bool const isCopy = known == sources.end();
    Source unknown;
    Source& source = isCopy ? unknown : known->second;
    if (isCopy)
        source.base = target.remote.read(target.budget);
    for (;;) {
        zfleet::Metadata const metadata = metadataFor(source, contents);
        WriteResult result = attempt(target, source, metadata, contents);
        switch (result.outcome) {
            case WriteResult::stored:
                setBase(path, std::move(target.connection),
                        {contents, format(metadata), result.textRevision, result.textRevision});
                return;
            case WriteResult::unknown:
                ZPropertiesIOException_6_0(path, "Txn", EINPROGRESS)
                    .throwException(kSource, raiseForUnknown);
                break;
            case WriteResult::overtaken:
                if (!isCopy)
                    ZPropertiesIOException_6_0(path, "merge()", ESTALE)
                        .throwException(kSource, raiseForOvertaken);
                [[fallthrough]];
            case WriteResult::storedEarlier:
                source.base = std::move(result.current);
                source.doubts.clear();
        }
        target.budget.pause();
        if (target.budget.isUsedUp())
            throw zfleet::CallError{"Txn", EAGAIN, false, "other programs store all the time"};
    }
}

ZFleetProperties_6_0::ZFleetProperties_6_0(int keepComments)
    : ZStanzaFileProperties_6_0(keepComments), rep_(new Rep)
{
}

ZFleetProperties_6_0::ZFleetProperties_6_0(char const* path, int keepComments)
    : ZFleetProperties_6_0(keepComments)
{
    load(path);
}

ZFleetProperties_6_0::~ZFleetProperties_6_0()
{
    delete rep_;
}

void ZFleetProperties_6_0::load(char const* path)
{
    zfleet::CancelGuard const uncancelled;
    Hold const hold(*this);
    char const* const chosen = Rep::choosePath(*this, path);
    if (!zfleet::isFleetPath(chosen)) {
        ZStanzaFileProperties_6_0::load(chosen);
        return;
    }
    onConfiguration(chosen, [&] {
        Rep::Target target(chosen);
        zfleet::Snapshot snapshot = target.remote.read(target.budget);
        if (snapshot.textRevision == 0) {
            // The next store creates it, unless another program does so first.
            rep_->sources.insert_or_assign(
                chosen, Rep::Source{std::move(target.connection), zfleet::Snapshot()});
            ZPropertiesIOException_6_0(chosen, "Txn", ENOENT)
                .throwException(kSource, raiseForMissing);
        }
        std::unique_ptr<ZPCache_6_0> const fresh = Rep::parse(*this, chosen, snapshot);
        cache().swapContents(*fresh);
        try {
            postLoad(chosen);
        } catch (...) {
            cache().swapContents(*fresh);
            throw;
        }
        setFileName(chosen);
        rep_->setBase(chosen, std::move(target.connection), std::move(snapshot));
        resetModified();
    });
}

void ZFleetProperties_6_0::reload(char const* path)
{
    zfleet::CancelGuard const uncancelled;
    Hold const hold(*this);
    char const* const chosen = Rep::choosePath(*this, path);
    if (zfleet::isFleetPath(chosen))
        load(chosen);
    else
        ZStanzaFileProperties_6_0::reload(chosen);
}

void ZFleetProperties_6_0::store(char const* path)
{
    zfleet::CancelGuard const uncancelled;
    Hold const hold(*this);
    char const* const chosen = Rep::choosePath(*this, path);
    if (!zfleet::isFleetPath(chosen)) {
        ZStanzaFileProperties_6_0::store(chosen);
        return;
    }
    onConfiguration(chosen, [&] {
        Rep::Target target(chosen);
        zfleet::Contents const contents = Rep::contentsOf(*this);
        if (contents.text.size() + contents.hidden.size() > zfleet::kMaxConfigurationSize)
            ZPropertiesIOException_6_0(chosen, "write()", EFBIG)
                .throwException(kSource, raiseForSize);
        rep_->writeTo(target, chosen, contents);
        setFileName(chosen);
        resetModified();
    });
}

int ZFleetProperties_6_0::isFleetPath(char const* path)
{
    return zfleet::isFleetPath(path) ? 1 : 0;
}

uint64_t ZFleetProperties_6_0::generation() const
{
    Hold const hold(*this);
    return rep_->generation;
}

int64_t ZFleetProperties_6_0::revision() const
{
    Hold const hold(*this);
    return rep_->revision;
}

void ZFleetProperties_6_0::setReason(char const* reason)
{
    Hold const hold(*this);
    rep_->reason = reason == nullptr ? "" : reason;
}

ZFleetProperties_6_0::ZFleetPropertiesFactory::ZFleetPropertiesFactory() = default;
ZFleetProperties_6_0::ZFleetPropertiesFactory::~ZFleetPropertiesFactory() = default;

ZProperties_6_0* ZFleetProperties_6_0::ZFleetPropertiesFactory::makePropertiesInstance()
{
    return new ZFleetProperties_6_0(1);
}

ZFleetProperties_6_0::ZFleetPropertiesFactory* ZFleetProperties_6_0::getFactory()
{
    static ZFleetPropertiesFactory* const factory = new ZFleetPropertiesFactory;
    return factory;
}
