// StoreRow: a sequence of stores while a cause makes them fail, and a store without the cause.
#pragma once

#include <optional>
#include <string>

#include "Campaign.h"
#include "Generation.h"
#include "StoreDirectory.h"
#include "User.h"

constexpr int kStores = 4;  // the first store that the cause affects, and three more

// The generations at first, after each store, and after the store without the cause.
struct StoreShape {
    char const* name;
    Generation generations[kStores + 2];
};

class StoreRow {
public:
    /// Stores the first generation. `reader` is the user that loads in checks; null: this process.
    StoreRow(Counts& counts, StoreDirectory const& target, StoreShape const& shape,
             std::string const& cause, User const* reader = nullptr)
        : counts_(counts),
          target_(target),
          shape_(shape),
          reader_(reader),
          event_(std::string(shape.name) + ", " + cause),
          current_(shape.generations[0])
    {
        target.reset(current_);
    }

    /// Returns the generation of the store that judge() checks next.
    Generation const& next() const { return shape_.generations[stores_ + 1]; }

    /// Returns the description of that store.
    std::string event() const { return event_ + ", store " + std::to_string(stores_ + 1); }

    /// Checks a store: it left the new generation and reported success, or it left the generation
    /// before and reported a failure.
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

    /// Checks the generation and a further store without the cause.
    void judgeWithoutCause() const
    {
        std::string const event = event_ + ", without the cause";
        look(current_, event);
        target_.tidy(counts_, shape_.generations[kStores + 1], event);
    }

private:
    long look(Generation const& after, std::string const& event) const
    {
        std::optional<ScopedUser> user;
        if (reader_ != nullptr)
            user.emplace(*reader_);
        return target_.judge(counts_, current_, after, event);
    }

    Counts& counts_;
    StoreDirectory const& target_;
    StoreShape const& shape_;
    User const* const reader_;
    std::string const event_;
    Generation current_;
    int stores_ = 0;
};
