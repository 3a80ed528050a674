// continued_value: a value in several lines, which a backslash or an open quote continues. A change
// keeps the lines whose contents stay.
#pragma once

#include <stdint.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "../lines/line.h"
#include "logical_line.h"

namespace zdialects {

class ContinuedValue {
public:
    /// range   a valueLine that reads as `before`. The arguments outlive the object.
    ContinuedValue(LineJoining const& joining, std::string_view text, zlines::Line const& line,
                   std::string_view before);

    /// byLines: lines that are in both values stay, then words between them. byWords: only words.
    enum Comparison { byLines, byWords };

    /// Returns the bytes that replace the value as spelled. They may read as something else.
    /// Returns nothing if the new value has no line break of the old one, or if programs of the
    /// format would read its lines otherwise. Stores in `comments` those between old lines that
    /// have no line break between them now.
    /// cost    O(n log n) in the length of the values, apart from repeated words. The comparison by
    ///         lines adds a limited time; it is left out if the values are too long for that.
    std::optional<std::string> replaced(std::string_view value, Comparison comparison,
                                        std::string& comments) const;

private:
    // The contents of one line.
    struct Part {
        std::string_view chars;      // as spelled, without the mark
        std::string_view mark = {};  // the bytes up to the next line, comments excluded
        std::string_view join = {};  // their meaning
        std::string meaning = {};    // of both
        std::string comments = {};   // after the line
        char quoteBefore = 0;
        char quoteAfter = 0;
    };

    // A line break in a value.
    struct Break {
        size_t at;
        size_t part;  // the first old part below it
    };

    class LongestSequence;  // continued_value.cpp

    // Runs of spaces around line breaks, and the position of the break in each.
    using BreakRuns = std::map<std::string_view, size_t>;

    // A substring of the new value, which replaces the old lines [first, end).
    struct Segment {
        size_t at;
        std::string_view meaning;
        size_t first;
        size_t end;
        bool isLast;
    };

    void split(std::string_view spelled);
    bool continues(Part& part, bool isFirst) const;
    std::string meaningOf(Part const& part, std::string_view before) const;
    std::vector<Break> breaksOf(std::string_view value, Comparison comparison) const;
    std::map<std::string_view, std::vector<size_t>> placesOfParts(Break first, Break end,
                                                                  std::string_view value) const;
    std::vector<Break> findParts(Break first, Break end, std::string_view value) const;
    bool isLineStart(std::string_view value, size_t at, size_t part) const;
    BreakRuns breakRuns() const;
    void alignBreaks(Break first, Break end, std::string_view value, BreakRuns const& runs,
                     std::vector<Break>& breaks) const;
    std::vector<Segment> segmentsOf(std::string_view value, Comparison comparison) const;
    bool isDropped(Segment const& segment) const;
    bool isKept(Segment const& segment) const;
    Part const& partAbove(Segment const& segment) const;
    char quoteAfter(Segment const& segment) const;
    bool appendChanged(std::string_view value, Segment const& segment, char quote,
                       std::string& out) const;

    LineJoining const& joining_;
    Switches const& switches_;
    Characters const& characters_;
    std::string_view const before_;
    std::vector<Part> parts_;
    std::vector<size_t> starts_;  // of the parts in the old value, and its end
};

}  // namespace zdialects
