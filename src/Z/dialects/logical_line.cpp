#include "logical_line.h"

#include <algorithm>

namespace zdialects {

size_t LineJoining::sizeIfContinued(std::string_view chars) const
{
    if (switches_.join & joinAsNothing)
        chars = chars.substr(0, characters_.withoutBlanksAtEnd(chars, 0));
    if (!chars.ends_with('\\'))
        return chars.npos;
    if (switches_.join & joinAsBlank) {
        size_t const last = chars.find_last_not_of('\\');
        size_t const backslashes = chars.size() - (last == chars.npos ? 0 : last + 1);
        if (backslashes % 2 == 0)
            return chars.npos;
    }
    return chars.size() - 1;
}

std::string_view LineJoining::joined(std::string_view slice, std::string& space) const
{
    if (!(switches_.join & kLineJoins) || slice.find('\n') == slice.npos)
        return slice;
    space.clear();
    for (size_t at = 0;;) {
        PhysicalLine const line = physicalLineAt(slice, at);
        std::string_view const chars = slice.substr(at, line.end - at);
        if (line.next == line.end)
            return space += chars;
        bool const isSkipped = at > 0 && switches_.joinSkipsComments && isComment(chars);
        if (!isSkipped) {
            space += chars.substr(0, sizeIfContinued(chars));
            if (switches_.join & joinAsBlank)
                space += ' ';
        }
        at = line.next;
        if (at == slice.size())
            return space;
    }
}

void LogicalLine::joinAt(LineJoining const& joining, std::string_view text, PhysicalLine line)
{
    size_t const size = joining.sizeIfContinued(chars_);
    if (size != chars_.npos && (joining.switches().commentsJoin || !joining.isComment(chars_)))
        join(joining, text, line, size);
    hasSeveralLines_ = next_ != line.next;
}

void LogicalLine::join(LineJoining const& joining, std::string_view text, PhysicalLine line,
                       size_t size)
{
    Switches const& switches = joining.switches();
    buffer_.clear();
    for (;;) {
        parts_.push_back({buffer_.size(), line.begin});
        std::string_view const chars = text.substr(line.begin, line.end - line.begin);
        // The last line of the file keeps a backslash that is read as nothing.
        bool const isUnended = line.next == text.size() && line.next == line.end;
        if (size == chars.npos || (isUnended && (switches.join & joinAsNothing))) {
            buffer_ += chars;
            break;
        }
        buffer_ += chars.substr(0, size);
        if (switches.join & joinAsBlank) {
            parts_.push_back({buffer_.size(), line.end - 1});
            buffer_ += ' ';
        }
        bool isLast = next_ == text.size();
        while (!isLast) {
            line = physicalLineAt(text, next_);
            next_ = line.next;
            if (!switches.joinSkipsComments ||
                !joining.isComment(text.substr(line.begin, line.end - line.begin)))
                break;
            isLast = next_ == text.size();
        }
        if (isLast)
            break;
        size = joining.sizeIfContinued(text.substr(line.begin, line.end - line.begin));
    }
    chars_ = buffer_;
}

size_t LogicalLine::joinedOffset(size_t index) const
{
    if (index >= chars_.size())
        return chars_.empty() ? begin_ : joinedOffset(chars_.size() - 1) + 1;
    auto const after = std::upper_bound(parts_.begin(), parts_.end(), index,
                                        [](size_t i, Part const& part) { return i < part.index; });
    Part const& part = *(after - 1);
    return part.offset + (index - part.index);
}

}  // namespace zdialects
