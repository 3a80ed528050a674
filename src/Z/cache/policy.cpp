#include "policy.h"

#include "../dialects/characters.h"

namespace zcache {

namespace {

// Iterates over the characters of a name as they are compared.
class Characters {
public:
    Characters(std::string_view name, NameRule const& rule)
        : at_(name.data()),
          end_(name.data() + name.size()),
          rule_(rule),
          folds_(rule.foldsCase),
          exchanges_(rule.exchangesSlashes && zdialects::isSlashPath(name))
    {
        if (rule.dropsFirstNumber && name.ends_with("]1"))
            end_ -= 2;
    }

    // Stores the next character; returns false at the end.
    bool next(char& c)
    {
        while (at_ != end_ && rule_.dropsBlanks && (*at_ == ' ' || *at_ == '\t'))
            ++at_;
        if (at_ == end_)
            return false;
        c = exchanges_ ? zdialects::exchangedSeparator(*at_) : *at_;
        ++at_;
        if (c == '.' && rule_.foldsUpToDot)
            folds_ = false;
        if (folds_ && c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
        if (rule_.dashIsUnderscore && c == '-')
            c = '_';
        return true;
    }

private:
    char const* at_;
    char const* end_;
    NameRule const& rule_;
    bool folds_;
    bool const exchanges_;
};

}  // namespace

bool NameRule::matchesFolded(std::string_view a, std::string_view b) const
{
    Characters left(a, *this);
    Characters right(b, *this);
    for (char x, y;;) {
        bool const hasLeft = left.next(x);
        bool const hasRight = right.next(y);
        if (!hasLeft || !hasRight)
            return hasLeft == hasRight;
        if (x != y)
            return false;
    }
}

uint32_t NameRule::hashFolded(std::string_view name, uint32_t salt) const
{
    // In parts, so that nothing has to be allocated.
    char part[256];
    size_t length = 0;
    Characters characters(name, *this);
    for (char c; characters.next(c); part[length++] = c) {
        if (length == sizeof part) {
            salt = hashOf({part, length}, salt);
            length = 0;
        }
    }
    return hashOf({part, length}, salt);
}

}  // namespace zcache
