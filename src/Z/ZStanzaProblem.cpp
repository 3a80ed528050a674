#include "ZStanzaProblem.h"

#include <string.h>

#include "reporting/messages.h"

namespace {

template <class Value>
int order(Value one, Value other)
{
    return one < other ? -1 : one > other ? 1 : 0;
}

}  // namespace

ZStanzaProblem_6_0::ZStanzaProblem_6_0(unsigned long line, unsigned long column, Kind kind,
                                       Cause cause, char const* stanza, char const* key,
                                       char const* text)
    : line_(line),
      column_(column),
      kind_(kind),
      cause_(cause),
      stanza_(stanza),
      key_(key),
      text_(text)
{
}

ZStanzaProblem_6_0::ZStanzaProblem_6_0(ZStanzaProblem_6_0 const& other) = default;

ZStanzaProblem_6_0& ZStanzaProblem_6_0::operator=(ZStanzaProblem_6_0 const& other)
{
    if (this == &other)
        return *this;
    // Reserve memory first: the assignments do not throw then.
    stanza_.setCapacity(other.stanza_.getLength());
    key_.setCapacity(other.key_.getLength());
    text_.setCapacity(other.text_.getLength());
    stanza_ = other.stanza_;
    key_ = other.key_;
    text_ = other.text_;
    line_ = other.line_;
    column_ = other.column_;
    kind_ = other.kind_;
    cause_ = other.cause_;
    return *this;
}

ZStanzaProblem_6_0::~ZStanzaProblem_6_0() = default;

int ZStanzaProblem_6_0::compare(ZObject_6_0 const& other) const
{
    auto const* const problem = dynamic_cast<ZStanzaProblem_6_0 const*>(&other);
    if (problem == nullptr)
        return ZObject_6_0::compare(other);
    int const orders[] = {order(line_, problem->line_),
                          order(column_, problem->column_),
                          order<int>(kind_, problem->kind_),
                          order<int>(cause_, problem->cause_),
                          order(strcmp(text_.getChars(), problem->text_.getChars()), 0),
                          order(strcmp(stanza_.getChars(), problem->stanza_.getChars()), 0),
                          order(strcmp(key_.getChars(), problem->key_.getChars()), 0)};
    for (int const one : orders)
        if (one != 0)
            return one;
    return 0;
}

ZObject_6_0* ZStanzaProblem_6_0::clone() const
{
    return new ZStanzaProblem_6_0(*this);
}

uint32_t ZStanzaProblem_6_0::messageNumber() const
{
    bool const refusesLoad = cause_ < unknownStanza || cause_ == loneReturn;
    if (kind_ != error || !refusesLoad)
        return 0;
    return cause_ == unreadableCompanion ? zreporting::accessFailed : zreporting::invalidData;
}
