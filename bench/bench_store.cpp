// Crash-safe file replacement: after a crash, the file has its old contents or the new contents.
//
// Rows "StoreText" change a single value of an existing file, rows "StoreAnew" all values; "Z" is
// zstore::JournaledFile, which writes every property file. Rows "StoreStanzas" change a single
// value too; "Z" is a ZStanzaFileProperties_6_0, so its time includes rendering the text. The peers
// write the same prepared text as in "StoreText".
//
// The files are in TMPDIR, or else in /tmp. The time of a sync depends on the file system there.
//
// Guarantees: "Z" keeps the inode, and syncs the new contents and the invalidated journal before it
// returns. g_file_set_contents_full() (consistent and durable) and "fsync-rename-fsync" sync the
// new file and its name. QSaveFile and the floor sync only the contents, so the old file may
// reappear after a power cut.
#include <Z/ZStanzaFileProperties.h>
#include <Z/store/journaled_file.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

#ifdef Z_PEER_GLIB
#include <glib.h>
#endif
#ifdef Z_PEER_QT
#include <QByteArray>
#include <QSaveFile>
#include <QString>
#endif

namespace {

constexpr int kSizes[] = {12 << 10, 1 << 20};

// A temporary directory with the file, and two versions of its contents; next() alternates between
// them.
class Place {
public:
    Place(int size, bool anew)
    {
        std::string name = std::filesystem::temp_directory_path() / "zbenchXXXXXX";
        folder_ = mkdtemp(name.data());
        for (int i = 0; i < 2; ++i) {
            std::string& text = texts_[i];
            text = "[state]\nturn = " + std::to_string(i) + "\n\n[data]\n";
            for (int line = 0; text.size() < static_cast<size_t>(size); ++line)
                text += "parameter" + std::to_string(line) + " = " +
                        (anew && i == 1 ? "other " : "value ") + std::to_string(line) + "\n";
        }
        std::FILE* const file = std::fopen(path().c_str(), "w");
        std::fwrite(texts_[0].data(), 1, texts_[0].size(), file);
        std::fclose(file);
    }
    Place(Place const&) = delete;
    Place& operator=(Place const&) = delete;
    ~Place() { std::filesystem::remove_all(folder_); }

    std::string const& folder() const { return folder_; }
    std::string path() const { return folder_ + "/conf"; }
    std::string const& next() { return texts_[++turn_ % 2]; }

private:
    std::string folder_;
    std::string texts_[2];
    unsigned turn_ = 0;
};

using Store = bool (*)(Place& place, std::string const& text);

bool storeOurs(Place& place, std::string const& text)
{
    zstore::JournaledFile file(place.path().c_str(), zstore::JournaledFile::Mode::store);
    file.commit({text.data(), text.size()}, zstore::JournaledFile::Companion());
    return true;
}

bool syncFolder(Place const& place)
{
    int const fd = open(place.folder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    bool const done = fsync(fd) == 0;
    close(fd);
    return done;
}

bool renameSynced(Place& place, std::string const& text)
{
    std::string const path = place.path();
    std::string const fresh = path + ".new";
    int const fd = open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    bool const written =
        write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) && fsync(fd) == 0;
    close(fd);
    return written && rename(fresh.c_str(), path.c_str()) == 0;
}

bool renameDurably(Place& place, std::string const& text)
{
    return renameSynced(place, text) && syncFolder(place);
}

#ifdef Z_PEER_GLIB
bool storeGLib(Place& place, std::string const& text)
{
    auto const flags = static_cast<GFileSetContentsFlags>(G_FILE_SET_CONTENTS_CONSISTENT |
                                                          G_FILE_SET_CONTENTS_DURABLE);
    return g_file_set_contents_full(place.path().c_str(), text.data(),
                                    static_cast<gssize>(text.size()), flags, 0600, nullptr) != 0;
}
#endif

#ifdef Z_PEER_QT
bool storeQt(Place& place, std::string const& text)
{
    QSaveFile file(QString::fromStdString(place.path()));
    return file.open(QIODevice::WriteOnly) &&
           file.write(text.data(), static_cast<qint64>(text.size())) ==
               static_cast<qint64>(text.size()) &&
           file.commit();
}
#endif

void runRow(benchmark::State& state, Store store, int size, bool anew)
{
    Place place(size, anew);
    for (auto _ : state)
        if (!store(place, place.next()))
            state.SkipWithError("cannot be stored");
}

void runStanzas(benchmark::State& state, int size)
{
    Place const place(size, false);
    ZStanzaFileProperties_6_0 store(place.path().c_str(), 1);
    int turn = 0;
    for (auto _ : state) {
        store.setValue("state", "turn", ++turn % 2 == 0 ? "0" : "1", 0);
        store.store(nullptr);
    }
}

struct Contender {
    char const* name;
    Store store;
};

constexpr Contender kPeers[] = {
    {"fsync-rename-fsync", renameDurably},
    {"floor.fsync-rename", renameSynced},
#ifdef Z_PEER_GLIB
    {"GLib.durable", storeGLib},
#endif
#ifdef Z_PEER_QT
    {"QSaveFile", storeQt},
#endif
};

template <class Body>
void add(std::string const& row, char const* contender, int size, Body body)
{
    benchmark::RegisterBenchmark((row + "/" + contender + "/" + std::to_string(size)).c_str(), body)
        ->UseRealTime()
        ->Unit(benchmark::kMicrosecond);
}

int addRows()
{
    struct Row {
        char const* name;
        bool anew;
        bool stanzas;
    };
    for (int size : kSizes)
        for (Row const& row : {Row{"StoreText", false, false}, Row{"StoreAnew", true, false},
                               Row{"StoreStanzas", false, true}}) {
            add(row.name, "Z", size, [=](auto& state) {
                if (row.stanzas)
                    runStanzas(state, size);
                else
                    runRow(state, storeOurs, size, row.anew);
            });
            for (Contender const& peer : kPeers)
                add(row.name, peer.name, size,
                    [=](auto& state) { runRow(state, peer.store, size, row.anew); });
        }
    return 0;
}

int const kRows = addRows();

}  // namespace
