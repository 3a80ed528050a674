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
    /// cost    O(1) amortised; memory for at most twice kMaxComplaints.
    void add(Complaint const& complaint);

    /// Sorts the complaints by their places. If some were left out, the last complaint has their
    /// number. Call this once, after the last add().
    std::vector<Complaint> const& finish();

private:
    void truncate();

    std::vector<Complaint> complaints_;
    Complaint omitted_ = {{}, omitted, false, {}, 0};
};

}  // namespace zproblems
