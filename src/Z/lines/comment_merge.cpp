#include "comment_merge.h"

#include <algorithm>
#include <set>
#include <string_view>

#include "alignment.h"
#include "value_merge.h"

namespace zlines {

namespace {

std::vector<std::string> wordsOf(std::vector<SideComment> const& comments)
{
    std::vector<std::string> words;
    for (SideComment const& comment : comments)
        words.emplace_back(comment.words());
    return words;
}

}  // namespace

std::vector<MergedComment> mergeComments(std::vector<SideComment> const& base,
                                         std::vector<SideComment> const& ours,
                                         std::vector<SideComment> const& theirs)
{
    std::multimap<std::string_view, SideComment const*> known;
    for (std::vector<SideComment> const* side : {&ours, &theirs})
        for (SideComment const& comment : *side)
            known.emplace(comment.words(), &comment);
    std::vector<MergedComment> merged;
    auto const add = [&](std::string const& words) {
        merged.push_back({*known.lower_bound(words)->second, kNone});  // `ours` has priority
    };
    for (MergedValue const& value : mergeValues(wordsOf(base), wordsOf(ours), wordsOf(theirs))) {
        bool const isSwapped = value.isConflict && value.theirs < value.ours;
        std::set<std::string> added;
        for (auto const* side :
             {isSwapped ? &value.theirs : &value.ours, isSwapped ? &value.ours : &value.theirs})
            for (std::string const& words : *side)
                if (!value.isConflict || added.insert(words).second)
                    add(words);
    }
    // Both sides can have added the same comment at different indexes.
    std::map<std::string_view, ptrdiff_t> counts;
    std::erase_if(merged, [&](MergedComment const& entry) {
        ptrdiff_t const count = ++counts[entry.comment.words()];
        return count > std::count(ours.begin(), ours.end(), entry.comment) &&
               count > std::count(theirs.begin(), theirs.end(), entry.comment);
    });
    std::vector<std::string_view> words;
    for (MergedComment const& entry : merged)
        words.push_back(entry.comment.words());
    std::vector<std::string_view> ourWords;
    for (SideComment const& comment : ours)
        ourWords.push_back(comment.words());
    for (auto const& [at, our] : align(words, ourWords))
        merged[at] = {ours[our], our};
    return merged;
}

namespace {

// Calls `call(stanza, key)` for each key and header of a side that can have comments.
template <class Call>
void forEachOwner(MergeSide const& side, Call call)
{
    for (std::string const& stanza : side.stanzas()) {
        call(stanza, std::string_view());
        for (uint32_t const key : side.find(stanza)->keys)
            call(stanza, side.key(key).name());
    }
    call(kEndOfText, std::string_view());
}

// Counts the comments of a key or header of `side` that neither of the others has there.
void countOwn(std::map<std::string_view, ptrdiff_t>& counts, std::string_view stanza,
              std::string_view key, MergeSide const& side, MergeSide const& other,
              MergeSide const& another)
{
    std::vector<SideComment> const comments = side.commentsOf(stanza, key);
    if (comments.empty())
        return;
    std::map<std::string_view, ptrdiff_t> own;
    for (SideComment const& comment : comments)
        ++own[comment.words()];
    std::map<std::string_view, ptrdiff_t> others[2];
    for (SideComment const& comment : other.commentsOf(stanza, key))
        ++others[0][comment.words()];
    for (SideComment const& comment : another.commentsOf(stanza, key))
        ++others[1][comment.words()];
    for (auto const& [words, count] : own)
        if (ptrdiff_t const most = std::max(others[0][words], others[1][words]); count > most)
            counts[words] += count - most;
}

}  // namespace

MovedComments::MovedComments(MergeSide const& base, MergeSide const& ours, MergeSide const& theirs,
                             MergedContents const& contents)
{
    auto const count = [](Counts& counts, std::vector<SideComment> const& comments, int sign) {
        for (SideComment const& comment : comments)
            counts[comment.words()] += sign;
    };
    count(gained_, theirs.commentsOfOtherLines(), 1);
    count(gained_, ours.commentsOfOtherLines(), -1);
    for (char const* const loose : {kTopOfText, kEndOfText}) {
        for (Counts* const counts : {&ourLoose_, &theirLoose_})
            count(*counts, base.commentsOf(loose, ""), -1);
        count(ourLoose_, ours.commentsOf(loose, ""), 1);
        count(theirLoose_, theirs.commentsOf(loose, ""), 1);
    }
    forEachOwner(ours, [&](std::string_view stanza, std::string_view key) {
        bool const isKept =
            key.empty() ? stanza == kTopOfText || stanza == kEndOfText || contents.has(stanza)
                        : contents.find(stanza, key) != nullptr;
        if (isKept)
            countOwn(ourAdded_, stanza, key, ours, base, theirs);
    });
    if (!ourAdded_.empty())
        forEachOwner(base, [&](std::string_view stanza, std::string_view key) {
            countOwn(lost_, stanza, key, base, ours, theirs);
        });
}

// Takes a moved comment of `ours` with these words. Returns false if none is left.
bool MovedComments::takeKnown(bool isLoose, std::string_view words)
{
    auto const in = [&](Counts& counts) {
        auto const found = counts.find(words);
        return found == counts.end() ? nullptr : &found->second;
    };
    ptrdiff_t* const gained = in(gained_);
    if (gained != nullptr && *gained < 0)
        return ++*gained, true;
    ptrdiff_t* const our = in(ourLoose_);
    ptrdiff_t const* const their = in(theirLoose_);
    ptrdiff_t const both = isLoose || their == nullptr ? 0 : std::max<ptrdiff_t>(*their, 0);
    if (our != nullptr && *our > both)
        return --*our, true;
    ptrdiff_t* const added = in(ourAdded_);
    ptrdiff_t* const lost = in(lost_);
    bool const isMoved = lost != nullptr && *lost > 0;
    if (added == nullptr || *added <= 0 || (!isLoose && !isMoved))
        return false;
    --*added;
    if (isMoved)
        --*lost;
    return true;
}

void MovedComments::undoMoves(std::pair<std::string_view, std::string_view> const& owner,
                              std::vector<SideComment> const& base,
                              std::vector<SideComment> const& ours,
                              std::vector<SideComment>& theirs)
{
    auto const countIn = [](std::vector<SideComment> const& comments, SideComment const& comment) {
        return std::count(comments.begin(), comments.end(), comment);
    };
    bool const isLoose =
        owner.second.empty() && (owner.first == kTopOfText || owner.first == kEndOfText);
    for (size_t i = 0; i < theirs.size();) {
        ptrdiff_t const count = countIn(theirs, theirs[i]);
        if (count > countIn(base, theirs[i]) && count > countIn(ours, theirs[i]) &&
            takeKnown(isLoose, theirs[i].words()))
            theirs.erase(theirs.begin() + static_cast<ptrdiff_t>(i));
        else
            ++i;
    }
    for (size_t i = 0; i < base.size(); ++i) {
        auto const found = gained_.find(base[i].words());
        if (found == gained_.end() || found->second <= 0 ||
            countIn(theirs, base[i]) >= countIn(base, base[i]))
            continue;
        --found->second;
        theirs.insert(theirs.begin() + static_cast<ptrdiff_t>(std::min(i, theirs.size())), base[i]);
    }
}

}  // namespace zlines
