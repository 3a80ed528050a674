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

bool ComplaintList::wants(Place const& place, Cause cause) const
{
    return !isFull_ || isBefore({place, cause, false, {}}, last_);
}

void ComplaintList::add(Complaint const& complaint)
{
    if (!wants(complaint.place, complaint.cause))
        return omit(complaint);
    if (complaints_.size() == kMaxComplaints + kMaxComplaints / 4)
        truncate();
    complaints_.push_back(complaint);
}

void ComplaintList::omit(Complaint const& complaint)
{
    ++omitted_.count;
    omitted_.isError = omitted_.isError || complaint.isError;
    if (omitted_.place.line == 0 || complaint.place.line < omitted_.place.line)
        omitted_.place = complaint.place;
}

void ComplaintList::clearStanzas()
{
    for (Complaint& complaint : complaints_)
        complaint.stanza = {};
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
    std::nth_element(complaints_.begin(), end - 1, complaints_.end(), isBefore);
    std::for_each(end, complaints_.end(), [this](Complaint const& complaint) { omit(complaint); });
    complaints_.erase(end, complaints_.end());
    isFull_ = true;
    last_ = complaints_.back();
}

}  // namespace zproblems
