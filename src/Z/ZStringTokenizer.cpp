#include "ZStringTokenizer.h"

#include <limits.h>
#include <stdlib.h>

#include <algorithm>
#include <memory>

#include "ZArrayList.h"
#include "ZException.h"
#include "ZLCString.h"
#include "ZStringIterator_p.h"
#include "ZUTF8String.h"
#include "text/character_set.h"
#include "zqvrutil.h"

using namespace zcharacters;

namespace {

constexpr char kSource[] = "src/Z/ZStringTokenizer";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite {
    raiseWithDelimiters = 72,
    raiseWithoutDelimiters = 97,
    raiseInSkipAll = 269,
    raiseInSkipOther = 331
};

constexpr char kDefaultDelimiters[] = " \t\r\n";

int charWidthOf(ZAbstractString_6_0 const& string)
{
    bool const isLocal = string.getCodesetHandle() == ZAbstractString_6_0::lcs_handle_;
    return isLocal ? static_cast<int>(MB_CUR_MAX) : kUtf8;
}

// Tests whether the bytes of a character occur in a string of delimiters, at any position: also
// across two characters of it. The first few longer characters are searched. Then, per length, a
// set is filled with all substrings of that length; without memory for it searching continues.
class DelimiterTest {
public:
    explicit DelimiterTest(char const* delimiters) : delimiters_(delimiters)
    {
        for (char const* at = delimiters; *at != 0; ++at)
            occurring_.add(at, 1);
    }

    bool accepts(char const* character, size_t length)
    {
        if (length == 1)
            return contains(*character);
        if (!contains(*character))  // most delimiters are ASCII
            return false;
        if (length > ztext::CharacterSet::kMaxCharacterSize)
            return occurs(character, length);
        Progress& progress = progress_[length];
        if (progress.searches < kFewSearches) {
            ++progress.searches;
            return occurs(character, length);
        }
        if (!progress.tried) {
            progress.tried = true;
            progress.filled = addAllOf(length);
        }
        return progress.filled ? occurring_.contains(character, length) : occurs(character, length);
    }

    bool contains(char byte) const { return occurring_.contains(&byte, 1); }

private:
    static constexpr int kFewSearches = 4;

    struct Progress {  // with the characters of one length
        int searches = 0;
        bool tried = false;
        bool filled = false;
    };

    bool occurs(char const* character, size_t length) const
    {
        return memmem(delimiters_, strlen(delimiters_), character, length) != nullptr;
    }

    bool addAllOf(size_t length)
    {
        size_t const end = strlen(delimiters_);
        for (size_t at = 0; at + length <= end; ++at)
            if (!occurring_.add(delimiters_ + at, length))
                return false;
        return true;
    }

    char const* const delimiters_;
    ztext::CharacterSet occurring_;
    Progress progress_[ztext::CharacterSet::kMaxCharacterSize + 1];
};

// A tokenizer's own delimiters: a string and the test for it. The string never changes.
template <class String>
struct OwnDelimiters : String {
    explicit OwnDelimiters(char const* delimiters) : String(delimiters), test(this->getChars()) {}

    DelimiterTest test;
};

// Returns a new string with the contents `delimiters`, in the codeset of the characters.
ZAbstractMutableString_6_0* newDelimiters(int charWidth, char const* delimiters)
{
    if (charWidth != kUtf8)
        return new OwnDelimiters<ZLCString_6_0>(delimiters);
    return new OwnDelimiters<ZUTF8String_6_0>(delimiters);
}

// Returns the test of delimiters that newDelimiters() created.
DelimiterTest& testOf(ZAbstractMutableString_6_0& delimiters, int charWidth)
{
    if (charWidth != kUtf8)
        return static_cast<OwnDelimiters<ZLCString_6_0>&>(delimiters).test;
    return static_cast<OwnDelimiters<ZUTF8String_6_0>&>(delimiters).test;
}

// Returns the length of the character at `at`, up to `end`.
size_t measure(ZAbstractString_6_0 const& source, char const* at, char const* end, int site)
{
    auto const left = static_cast<size_t>(end - at);
    int const measured = zmblen_6_0(source.getCodesetHandle(), at, left);
    if (measured < 1 || static_cast<size_t>(measured) > std::min<size_t>(left, MB_LEN_MAX))
        ZQVRMBLenException_6_0().throwException(kSource, site);
    return static_cast<size_t>(measured);
}

// Returns the first character from `at` on that is not, or is, a delimiter. Bytes up to `highest`
// are whole characters.
template <bool ofDelimiters>
char const* endOfWhole(char const* at, DelimiterTest const& test, unsigned highest)
{
    while (isWhole(*at, highest) && test.contains(*at) == ofDelimiters)
        ++at;
    return at;
}

// Returns the end of the run that starts at `from` and continues to `at`, where a character must be
// measured.
template <bool ofDelimiters>
[[gnu::noinline]] char const* endOfMeasured(ZAbstractString_6_0 const& source, char const* from,
                                            char const* at, DelimiterTest& test, unsigned highest)
{
    size_t const length = source.getLength();
    char const* const end =
        from + (length - std::min(length, static_cast<size_t>(from - source.getChars())));
    while (*at != 0 && !isWhole(*at, highest)) {
        size_t const step =
            measure(source, at, end, ofDelimiters ? raiseInSkipAll : raiseInSkipOther);
        if (test.accepts(at, step) != ofDelimiters)
            break;
        at = endOfWhole<ofDelimiters>(at + step, test, highest);
    }
    return at;
}

// Returns the length in bytes of the run of delimiters, or of non-delimiters, that starts at `from`
// in `source`.
template <bool ofDelimiters>
size_t spanOf(ZAbstractString_6_0 const& source, int charWidth, DelimiterTest& test,
              char const* from)
{
    unsigned const highest = highestWhole(source, charWidth, from);
    char const* at = endOfWhole<ofDelimiters>(from, test, highest);
    if (*at != 0 && !isWhole(*at, highest))
        at = endOfMeasured<ofDelimiters>(source, from, at, test, highest);
    return static_cast<size_t>(at - from);
}

size_t spanOf(ZAbstractString_6_0 const& source, int charWidth, DelimiterTest& test,
              char const* from, bool ofDelimiters)
{
    return ofDelimiters ? spanOf<true>(source, charWidth, test, from)
                        : spanOf<false>(source, charWidth, test, from);
}

// The same for delimiters of one call.
[[gnu::noinline]] size_t spanOfOther(ZAbstractString_6_0 const& source, int charWidth,
                                     char const* delimiters, char const* from, bool ofDelimiters)
{
    DelimiterTest test(delimiters);
    return spanOf(source, charWidth, test, from, ofDelimiters);
}

void checkCodesets(ZAbstractString_6_0 const& source, ZAbstractString_6_0 const& target, int site)
{
    if (source.getCodesetHandle() != target.getCodesetHandle())
        ZUnsupportedException_6_0().throwException(kSource, site);
}

}  // namespace

ZStringTokenizer_6_0::ZStringTokenizer_6_0(ZAbstractString_6_0 const& source,
                                           ZAbstractMutableString_6_0& target)
    : cursor_(source.getChars()),
      source_(&source),
      target_(&target),
      delimiters_(nullptr),
      charWidth_(charWidthOf(source))
{
    checkCodesets(source, target, raiseWithoutDelimiters);
    delimiters_ = newDelimiters(charWidth_, kDefaultDelimiters);
}

ZStringTokenizer_6_0::ZStringTokenizer_6_0(ZAbstractString_6_0 const& source,
                                           ZAbstractMutableString_6_0& target,
                                           ZAbstractString_6_0 const& delimiters)
    : cursor_(source.getChars()),
      source_(&source),
      target_(&target),
      delimiters_(nullptr),
      charWidth_(charWidthOf(source))
{
    checkCodesets(source, target, raiseWithDelimiters);
    delimiters_ = newDelimiters(charWidth_, delimiters.getChars());
}

ZStringTokenizer_6_0::ZStringTokenizer_6_0(ZStringTokenizer_6_0 const& other)
    : ZAbstractIterator_6_0(other),
      cursor_(other.cursor_),
      source_(other.source_),
      target_(other.target_),
      delimiters_(newDelimiters(other.charWidth_, other.delimiters_->getChars())),
      charWidth_(other.charWidth_)
{
}

ZStringTokenizer_6_0& ZStringTokenizer_6_0::operator=(ZStringTokenizer_6_0 const& other)
{
    ZAbstractMutableString_6_0* const fresh =
        newDelimiters(other.charWidth_, other.delimiters_->getChars());
    delete delimiters_;
    delimiters_ = fresh;
    cursor_ = other.cursor_;
    source_ = other.source_;
    target_ = other.target_;
    charWidth_ = other.charWidth_;
    return *this;
}

ZStringTokenizer_6_0::~ZStringTokenizer_6_0()
{
    delete delimiters_;
}

ZStringTokenizer_6_0* ZStringTokenizer_6_0::clone() const
{
    return new ZStringTokenizer_6_0(*this);
}

bool ZStringTokenizer_6_0::hasMore(ZAbstractString_6_0 const& delimiters)
{
    if (cursor_ == nullptr)
        return false;
    cursor_ += span(cursor_, delimiters, true);
    return *cursor_ != 0;
}

bool ZStringTokenizer_6_0::hasMore()
{
    return hasMore(*delimiters_);
}

ZAbstractMutableString_6_0* ZStringTokenizer_6_0::getNext(ZAbstractString_6_0 const& delimiters)
{
    if (cursor_ == nullptr)
        return nullptr;
    char const* const token = cursor_ + span(cursor_, delimiters, true);
    size_t const length = span(token, delimiters, false);
    target_->setChars(token, static_cast<unsigned int>(length));
    cursor_ = token + length;
    return target_;
}

ZAbstractMutableString_6_0* ZStringTokenizer_6_0::getNext()
{
    return getNext(*delimiters_);
}

void ZStringTokenizer_6_0::reset()
{
    cursor_ = source_->getChars();
}

void ZStringTokenizer_6_0::list(ZArrayList_6_0& out)
{
    if (cursor_ == nullptr)
        return;
    while (hasMore()) {
        ZAbstractMutableString_6_0 const* const token = getNext();
        if (out.ownsMembers() != 0) {
            out.add(token);
        } else {
            std::unique_ptr<ZObject_6_0> copy(token->clone());
            out.add(copy.get());
            copy.release();
        }
    }
}

unsigned int ZStringTokenizer_6_0::skipAll(ZAbstractString_6_0 const& delimiters) const
{
    return cursor_ == nullptr ? 0 : static_cast<unsigned int>(span(cursor_, delimiters, true));
}

unsigned int ZStringTokenizer_6_0::skipOther(ZAbstractString_6_0 const& delimiters) const
{
    return cursor_ == nullptr ? 0 : static_cast<unsigned int>(span(cursor_, delimiters, false));
}

// Returns the length in bytes of the run of delimiters, or of non-delimiters, that starts at
// `from`.
size_t ZStringTokenizer_6_0::span(char const* from, ZAbstractString_6_0 const& delimiters,
                                  bool ofDelimiters) const
{
    if (&delimiters == delimiters_)
        return spanOf(*source_, charWidth_, testOf(*delimiters_, charWidth_), from, ofDelimiters);
    return spanOfOther(*source_, charWidth_, delimiters.getChars(), from, ofDelimiters);
}
