#include "locking/lock_queue.h"

#include <errno.h>
#include <inttypes.h>
#include <limits.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>

#include "transport/failure.h"

namespace zfleet {

namespace {

// The index of each result of readOperations(), and of look().
enum Read { readQueue, readSequence, readCount, readOwn = readCount, lookCount };

// An entry is "MODE HOST PROCESS".
std::string entryFor(LockMode mode)
{
    char host[HOST_NAME_MAX + 1] = "";
    gethostname(host, sizeof host - 1);
    return std::string(mode == LockMode::write ? "w " : "r ") + (*host == 0 ? "?" : host) + " " +
           std::to_string(getpid());
}

// An entry that cannot be read is treated as a writer's: a doubt excludes other programs.
QueueEntry parseEntry(KeyValue const& entry)
{
    std::string mode;
    QueueEntry parsed{entry.createRevision, LockMode::write, "?", "?"};
    std::istringstream(entry.value) >> mode >> parsed.host >> parsed.process;
    if (mode == "r")
        parsed.mode = LockMode::read;
    return parsed;
}

void requireReplies(TransactionResult const& result, size_t count)
{
    if (result.ranges.size() != count)
        throw CallError{"Txn", EPROTO, false, "a reply without the requested keys"};
}

std::string valueOf(RangeResult const& range)
{
    return range.entries.empty() ? std::string() : range.entries[0].value;
}

int64_t ticketOf(RangeResult const& range, std::string const& key)
{
    for (KeyValue const& entry : range.entries)
        if (entry.key == key)
            return entry.createRevision;
    return 0;
}

LockQueue::View viewOf(TransactionResult const& result, int64_t ticket, LockMode mode)
{
    LockQueue::View view;
    view.ticket = ticket;
    view.revision = result.header.revision;
    view.wasDoubtful = result.wasDoubtful;
    view.sequence = valueOf(result.ranges[readSequence]);
    for (KeyValue const& entry : result.ranges[readQueue].entries) {
        bool const isBetween =
            entry.createRevision > view.blocker.ticket && entry.createRevision < ticket;
        if (isBetween && (mode == LockMode::write || parseEntry(entry).mode == LockMode::write))
            view.blocker = {entry.createRevision, entry.key};
    }
    return view;
}

}  // namespace

LockQueue::LockQueue(ClusterInterface& cluster, std::string const& name)
    : cluster_(cluster), directory_(cluster.settings().prefix + "/lock/" + name + "/")
{
}

std::string LockQueue::keyOf(int64_t lease) const
{
    char digits[17];
    snprintf(digits, sizeof digits, "%016" PRIx64, static_cast<uint64_t>(lease));
    return directory_ + "q/" + digits;
}

Range LockQueue::entries() const
{
    return {directory_ + "q/", endOfPrefix(directory_ + "q/")};
}

WatchedKeys LockQueue::keysFor(std::string const& key, Blocker const& blocker) const
{
    Range const all = entries();
    return {all.key, all.end, {key, blocker.key}};
}

std::vector<Operation> LockQueue::readOperations() const
{
    return {entries(), Range{directory_ + "seq"}};
}

LockQueue::View LockQueue::add(int64_t lease, LockMode mode, Budget& budget)
{
    std::string const key = keyOf(lease);
    Transaction transaction;
    transaction.conditions = {{key, Condition::createRevision, Condition::equal, 0}};
    transaction.success = {Put{key, entryFor(mode), lease}};
    transaction.failure = readOperations();
    transaction.success.insert(transaction.success.end(), transaction.failure.begin(),
                               transaction.failure.end());
    TransactionResult const result = cluster_.commit(transaction, Repetition::isHarmless, budget);
    requireReplies(result, readCount);
    int64_t const ticket = ticketOf(result.ranges[readQueue], key);
    if (ticket == 0)
        throw CallError{"Txn", EIO, true, "a reply without the entry of the lock"};
    return viewOf(result, ticket, mode);
}

// The blocker itself, if it exists, is the newest entry up to its ticket. Any entry excludes a
// writer, but a reader searches for the last writer.
LockQueue::View LockQueue::look(std::string const& key, LockMode mode, Blocker const& blocker,
                                Budget& budget)
{
    Range before = entries();
    before.maxCreateRevision = blocker.ticket;
    before.isNewestFirst = true;
    before.limit = mode == LockMode::write ? 1 : 0;
    TransactionResult const result =
        cluster_.commit({{}, {before, Range{directory_ + "seq"}, Range{key}}, {}},
                        Repetition::changesNothing, budget);
    requireReplies(result, lookCount);
    return viewOf(result, ticketOf(result.ranges[readOwn], key), mode);
}

LockQueue::Removal LockQueue::remove(std::string const& key, int64_t ticket,
                                     std::optional<std::string> const& number, bool isRepeated,
                                     Budget& budget)
{
    Transaction transaction;
    transaction.conditions = {{key, Condition::createRevision, Condition::equal, ticket}};
    transaction.success = {Remove{key}};
    if (number.has_value())
        transaction.success.push_back(Put{directory_ + "seq", *number});
    transaction.failure = {Range{directory_ + "seq"}};
    TransactionResult const result = cluster_.commit(transaction, Repetition::isHarmless, budget);
    if (result.hasSucceeded)
        return Removal::done;
    if (!result.wasDoubtful && !isRepeated)
        return Removal::missing;
    // Without a number, it makes no difference which program has removed the entry.
    if (!number.has_value())
        return Removal::done;
    requireReplies(result, 1);
    std::vector<KeyValue> const& sequence = result.ranges[0].entries;
    try {
        return findRemoval(key, ticket, sequence.empty() ? 0 : sequence[0].modRevision, budget);
    } catch (CallError& error) {
        error.isDoubtful = true;
        throw;
    }
}

// Finds out whether this program has removed the entry. The removal and the sequence number are one
// transaction: this program has written the number if and only if the entry existed until the
// revision of the number, and not longer. An earlier holder has written while the entry waited.
LockQueue::Removal LockQueue::findRemoval(std::string const& key, int64_t ticket, int64_t written,
                                          Budget& budget)
{
    while (written > ticket) {
        Range before{key};
        Range after{key};
        Range sequence{directory_ + "seq"};
        before.revision = sequence.revision = written - 1;
        after.revision = written;
        TransactionResult found;
        try {
            found = cluster_.commit({{}, {before, after, sequence}, {}}, Repetition::changesNothing,
                                    budget);
        } catch (CallError const& error) {
            if (error.error != ESTALE)
                throw;
            return Removal::unknown;
        }
        requireReplies(found, 3);
        auto const exists = [&](RangeResult const& entry) {
            return !entry.entries.empty() && entry.entries[0].createRevision == ticket;
        };
        if (exists(found.ranges[1]))
            return Removal::missing;
        if (exists(found.ranges[0]))
            return Removal::done;
        std::vector<KeyValue> const& earlier = found.ranges[2].entries;
        written = earlier.empty() ? 0 : earlier[0].modRevision;
    }
    return Removal::missing;
}

std::vector<QueueEntry> LockQueue::list(std::string& sequence, Budget& budget)
{
    TransactionResult const result =
        cluster_.commit({{}, readOperations(), {}}, Repetition::changesNothing, budget);
    requireReplies(result, readCount);
    sequence = valueOf(result.ranges[readSequence]);
    std::vector<QueueEntry> entries;
    for (KeyValue const& entry : result.ranges[readQueue].entries)
        entries.push_back(parseEntry(entry));
    std::sort(entries.begin(), entries.end(),
              [](auto const& one, auto const& other) { return one.ticket < other.ticket; });
    return entries;
}

}  // namespace zfleet
