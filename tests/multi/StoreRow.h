// StoreRow: stores that follow one another while something keeps them from succeeding, and a store
// after that.
#pragma once

#include <optional>
#include <string>

#include "Campaign.h"
#include "Generation.h"
#include "StoreFolder.h"
#include "User.h"

constexpr int kStores = 4;  // the first store that the cause strikes, and three more

// The generations that are there at first, after each store, and after the cause has gone.
struct StoreShape {
    char const* name;
    Generation generations[kStores + 2];
};

class StoreRow {
public:
    /// Puts the first generation into the folder. The process judges as `reader`; null: as itself.
    StoreRow(Counts& counts, StoreFolder const& folder, StoreShape const& shape,
             std::string const& cause, User const* reader = nullptr)
        : counts_(counts),
          folder_(folder),
          shape_(shape),
          reader_(reader),
          event_(std::string(shape.name) + ", " + cause),
          current_(shape.generations[0])
    {
        folder.reset(current_);
    }

    /// Returns what the next store, or the one that judge() judges next, is to write.
    Generation const& next() const { return shape_.generations[stores_ + 1]; }

    /// Returns the description of that store.
    std::string event() const { return event_ + ", store " + std::to_string(stores_ + 1); }

    /// Judges a store: the new generation is there and success was reported, or the one before it
    /// and a failure.
    void judge(bool stored)
    {
        long const found = look(next(), event());
        if (found >= 0 && (found == next().number()) != stored)
            complain(counts_,
                     event() + (stored ? ": success was reported" : ": a failure was reported"));
        if (found == next().number())
            current_ = next();
        ++stores_;
    }

    /// Judges what is left once the cause has gone, and the store that follows.
    void judgeWithoutCause() const
    {
        std::string const event = event_ + ", without the cause";
        look(current_, event);
        folder_.tidy(counts_, shape_.generations[kStores + 1], event);
    }

private:
    long look(Generation const& after, std::string const& event) const
    {
        std::optional<ScopedUser> user;
        if (reader_ != nullptr)
            user.emplace(*reader_);
        return folder_.judge(counts_, current_, after, event);
    }

    Counts& counts_;
    StoreFolder const& folder_;
    StoreShape const& shape_;
    User const* const reader_;
    std::string const event_;
    Generation current_;
    int stores_ = 0;
};
