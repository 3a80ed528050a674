// Reads, changes and stores a configuration file through the classes, with an observer that is
// notified of every change, and the two iterators. usage: classes FILE
#include <Z/ZException.h>
#include <Z/ZStanzaFileProperties.h>
#include <stdio.h>

namespace {

// Prints every change. The store notifies it after releasing its lock.
class ChangeLog final : public ZObserverInterface_6_0 {
public:
    void update(ZObservableInterface_6_0*, ZObservedParm_6_0 const& parm) override
    {
        auto const& change = static_cast<ZPropertyChanged_6_0 const&>(parm);
        static char const* const kWhat[] = {"added", "removed", "set"};
        printf("%s: [%s]%s%s\n", kWhat[change.type()], change.category().getChars(),
               change.key().isEmpty() ? "" : " ", change.key().getChars());
    }
};

// An iterator holds the store's lock for as long as it lives: keep its scope small.
void printStanza(ZStanzaFileProperties_6_0& config, char const* stanza)
{
    printf("[%s]\n", stanza);
    ZStanzaIterator_6_0 entry(config, stanza);
    while (entry.hasMore()) {
        entry.nextEntry();
        printf("  %s: %d value(s), the first is %s\n", entry.entryName(), entry.valueCount(),
               entry.valueCount() > 0 ? entry.entryValue(0) : "none");
    }
}

// Moves every server to another port, in place.
void movePort(ZStanzaFileProperties_6_0& config, char const* from, char const* to)
{
    ZStanzaValueIterator_6_0 server(config, "upstream", "server", zPropLocalStrings,
                                    zPropIterPlain);
    while (server.hasMore()) {
        char const* address;
        server.nextValue(address);
        ZLCString_6_0 moved(address);
        moved.replace(from, to);
        server.changeValue(moved);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        fputs("usage: classes FILE\n", stderr);
        return 2;
    }
    try {
        int const keepComments = 1;
        ZStanzaFileProperties_6_0 config(argv[1], keepComments);
        printStanza(config, "listener");

        ChangeLog log;
        config.addObserver(&log);
        config.setIntegerValue("listener", "idle-timeout", 60);
        config.addValue("listener", "address", "[::]:8443", 0);
        config.setValue("upstream", "password", "not in the file itself", 1);
        config.deleteKey("log", "file");
        config.addStanza("metrics");
        config.addStanzaComment("metrics", "# Scraped every 15 seconds.");
        config.setBooleanValue("metrics", "enabled", 1);
        config.deleteObserver(&log);

        movePort(config, ":9000", ":9100");
        printStanza(config, "upstream");
        config.store(nullptr);
    } catch (ZException_6_0& e) {
        e.dumpException();
        return 1;
    }
    return 0;
}
