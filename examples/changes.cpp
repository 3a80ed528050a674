// Two processes share a note and notice each other's changes: a process that finds the sequence
// number of the lock changed reads the note again. usage: changes DIRECTORY
#include <Z/ZException.h>
#include <Z/ZProcessReadWriteFileLock.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

namespace {

// A note in a file, and this process's copy of it.
class Note final : private ZObserverInterface_6_0 {
public:
    Note(char const* who, std::string const& directory)
        : who_(who), path_(directory + "/note"), lock_(directory.c_str(), "note")
    {
        lock_.addObserver(this);
    }

    // Reads the file only if another process has changed it: then the lock calls update() before
    // readLock() returns.
    void look()
    {
        ZStackReadWriteLock_6_0 guard(lock_, 0);
        guard.readLock();
        printf("%s knows \"%s\", number %lu\n", who_, text_.c_str(), lock_.getSequence());
    }

    // The guard's destructor increments the sequence number, so that the other process notices.
    void change(std::string const& text)
    {
        ZStackReadWriteLock_6_0 guard(lock_, 1);
        guard.writeLock();
        text_ = text;
        FILE* const file = fopen(path_.c_str(), "we");
        fputs(text.c_str(), file);
        fclose(file);
        printf("%s writes \"%s\"\n", who_, text.c_str());
    }

private:
    // Is called with the write lock held.
    void update(ZObservableInterface_6_0*, ZObservedParm_6_0 const& parm) override
    {
        auto const& change = static_cast<ZSequenceUpdate_6_0 const&>(parm);
        char line[100] = "";
        FILE* const file = fopen(path_.c_str(), "re");
        if (fgets(line, sizeof line, file) != nullptr)
            text_ = line;
        fclose(file);
        printf("%s reads it again: the number went from %lu to %lu\n", who_,
               change.getLastSequence(), change.getSequence());
    }

    char const* const who_;
    std::string const path_;
    std::string text_;
    ZUnixProcessReadWriteFileLock_6_0 lock_;
};

// A turn is a byte in a pipe: the processes of this example speak one after the other.
bool awaitTurn(int from)
{
    char turn;
    return read(from, &turn, 1) == 1;
}

void giveTurn(int to)
{
    fflush(stdout);
    if (write(to, "t", 1) != 1)
        perror("write");
}

void writer(std::string const& directory, int from, int to)
{
    Note note("writer", directory);
    awaitTurn(from);
    note.change("rain");
    giveTurn(to);
    awaitTurn(from);
    note.change("wind");
    note.change("snow");
    giveTurn(to);
    awaitTurn(from);
    note.look();
    giveTurn(to);
}

void reader(std::string const& directory, int from, int to)
{
    Note note("reader", directory);
    note.look();
    giveTurn(to);
    awaitTurn(from);
    note.look();
    note.look();
    giveTurn(to);
    awaitTurn(from);
    note.look();
    note.change("sun");
    giveTurn(to);
    awaitTurn(from);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
        return 2;
    }
    int toWriter[2];
    int toReader[2];
    if (pipe(toWriter) != 0 || pipe(toReader) != 0)
        return 1;
    // Each process makes a lock of its own, after the fork.
    pid_t const child = fork();
    close(child == 0 ? toWriter[1] : toWriter[0]);
    close(child == 0 ? toReader[0] : toReader[1]);
    try {
        if (child == 0) {
            writer(argv[1], toWriter[0], toReader[1]);
            return 0;
        }
        reader(argv[1], toReader[0], toWriter[1]);
    } catch (ZException_6_0& e) {
        e.dumpException();
        return 1;
    }
    int status = 1;
    waitpid(child, &status, 0);
    return status == 0 ? 0 : 1;
}
