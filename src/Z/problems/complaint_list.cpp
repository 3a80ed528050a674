#include "complaint_list.h"

#include <algorithm>
#include <tuple>

namespace zproblems {

namespace {

bool isBefore(Complaint const& one, Complaint const& other)
{
    return std::tie(one.place.line, one.place.column, one.cause) <
           std::tie(other.place.line, other.place.column, other.cause);
}

}  // namespace

void ComplaintList::add(Complaint const& complaint)
{
    if (complaints_.size() == 2 * kMaxComplaints)
        truncate();
    complaints_.push_back(complaint);
}

std::vector<Complaint> const& ComplaintList::finish()
{
    truncate();
    std::sort(complaints_.begin(), complaints_.end(), isBefore);
    if (omitted_.count != 0)
        complaints_.push_back(omitted_);
    return complaints_;
}

// Drops all but the first kMaxComplaints.
void ComplaintList::truncate()
{
    if (complaints_.size() <= kMaxComplaints)
        return;
    auto const end = complaints_.begin() + kMaxComplaints;
    std::nth_element(complaints_.begin(), end, complaints_.end(), isBefore);
    for (auto it = end; it != complaints_.end(); ++it) {
        ++omitted_.count;
        omitted_.isError = omitted_.isError || it->isError;
        if (omitted_.place.line == 0 || it->place.line < omitted_.place.line)
            omitted_.place = it->place;
    }
    complaints_.erase(end, complaints_.end());
}

}  // namespace zproblems
