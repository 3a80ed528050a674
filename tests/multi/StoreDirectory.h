// StoreDirectory: a directory with one configuration file, and checks of its files after an
// interrupted store.
#pragma once

#include <Z/ZException.h>

#include <string>
#include <utility>

#include "Campaign.h"
#include "Generation.h"
#include "TestDirectory.h"

class StoreDirectory {
public:
    explicit StoreDirectory(std::string directory) : directory_(std::move(directory)) {}

    std::string path() const { return directory_ + "/conf"; }
    std::string names() const { return namesIn(directory_); }

    /// Removes all files and stores `first`, writable by the owner and readable by the group.
    void reset(Generation const& first) const
    {
        for (auto const& entry : std::filesystem::directory_iterator(directory_))
            if (entry.is_regular_file())
                std::filesystem::remove(entry.path());
        if (first.number() == 0)
            return;
        first.store(path());
        // The companion gets the mode of the file, so the file must have it first.
        chmod(path().c_str(), kMode);
        first.store(path());
    }

    /// Loads the file, which must contain `before` or `after`, and counts the outcome.
    /// codes   the number of the generation; -1 for anything else.
    long judge(Counts& counts, Generation const& before, Generation const& after,
               std::string const& event) const
    {
        ++counts.events;
        try {
            Generation const found =
                access(path().c_str(), F_OK) == 0 ? Generation::load(path()) : Generation();
            for (Generation const* expected : {&before, &after})
                if (found.number() == expected->number() &&
                    found.isSecret() == expected->isSecret()) {
                    ++(expected == &before ? counts.olds : counts.news);
                    return found.number();
                }
            complain(counts, event + ": generation " + std::to_string(found.number()) +
                                 " was found, not " + std::to_string(before.number()) + " or " +
                                 std::to_string(after.number()));
        } catch (Torn const& torn) {
            ++counts.torn;
            complain(counts, event + ": " + torn.what());
        } catch (ZException_6_0& exception) {
            complain(counts, event + ": cannot be loaded");
            exception.print();
        }
        return -1;
    }

    /// Complains of files that grant more than the configuration file.
    void checkModes(Counts& counts, std::string const& event) const
    {
        struct stat file;
        if (stat(path().c_str(), &file) != 0)
            return;
        for (auto const& entry : std::filesystem::directory_iterator(directory_)) {
            struct stat status;
            if (stat(entry.path().c_str(), &status) == 0 &&
                (status.st_mode & 07777 & ~file.st_mode) != 0)
                complain(counts, event + ": mode of " + entry.path().filename().string());
        }
    }

    /// Stores `next`, and complains of files that are left of the interrupted store.
    void tidy(Counts& counts, Generation const& next, std::string const& event) const
    {
        try {
            next.store(path());
            std::string const expected = next.isSecret() ? "conf conf.obf" : "conf";
            if (names() != expected)
                complain(counts, event + ": left are " + names());
            if (Generation::load(path()).number() != next.number())
                complain(counts, event + ": the next store is not there");
        } catch (Torn const& torn) {
            ++counts.torn;
            complain(counts, event + ", then a store: " + torn.what());
        } catch (ZException_6_0& exception) {
            complain(counts, event + ": then no store succeeds");
            exception.print();
        }
    }

private:
    static constexpr mode_t kMode = 0640;

    std::string const directory_;
};
