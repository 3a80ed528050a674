// nearest_name: finds the verb or option that a mistyped word means.
#pragma once

#include <Z/templates/edit_distance.h>

#include <algorithm>
#include <string>
#include <string_view>

class NearestName {
public:
    explicit NearestName(std::string_view word) : word_(word) {}

    void compare(std::string_view name)
    {
        size_t const distance = ztemplates::editDistance(word_, name);
        if (distance >= least_)
            return;
        least_ = distance;
        found_ = name;
    }

    /// Returns the most similar of the compared names; empty if each needs more than two edits.
    std::string const& found() const { return found_; }

private:
    std::string const word_;
    size_t least_ = std::min<size_t>(word_.size(), 3);
    std::string found_;
};
