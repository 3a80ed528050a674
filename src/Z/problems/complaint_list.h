// complaint_list: the first complaints of a file in file order, whatever the order of discovery.
//
// A file may have a problem in each of a billion lines: the list keeps the first kMaxComplaints and
// counts the others.
#pragma once

#include <stddef.h>

#include <vector>

#include "complaint.h"

namespace zproblems {

constexpr size_t kMaxComplaints = 100000;

class ComplaintList {
public:
    /// cost    O(1) amortised; memory for kMaxComplaints and a quarter more.
    void add(Complaint const& complaint);

    /// Returns whether add() keeps a complaint at this place. Otherwise it only counts the
    /// complaint and does not need its strings.
    bool wants(Place const& place, Cause cause) const;

    /// Removes the stanzas of all complaints.
    void clearStanzas();

    /// Sorts the complaints by their places. If some were left out, the last complaint has their
    /// number. Call this once, after the last add().
    std::vector<Complaint> const& finish();

private:
    void truncate();
    void omit(Complaint const& complaint);

    std::vector<Complaint> complaints_;
    bool isFull_ = false;  // complaints after last_ are not kept
    Complaint last_ = {};
    Complaint omitted_ = {{}, omitted, false, {}, 0};
};

}  // namespace zproblems
