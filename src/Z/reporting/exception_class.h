// exception_class: the steps that all exception classes share: throwing a copy, reporting inserts.
#pragma once

#include "../ZException.h"
#include "running_report.h"

namespace zreporting {

/// The last step of every throwException(): stores the location and throws a copy of the object,
/// as the class whose throwException() runs.
template <class Exception>
[[noreturn]] void throwCopy(Exception& exc, char const* file, int line)
{
    exc.addLocation(file, static_cast<unsigned long>(line));
    throw Exception(exc);
}

/// Passes the arguments after `types` to the message service.
void routeInserts(ZZException_6_0 const* exception, RunningReport::Source source, char const* types,
                  ...);

/// Returns the insertTypes() of a class whose own print() passes `types`.
char const* currentInsertTypes(ZZException_6_0 const* exception, char const* types);

constexpr char typeOf(char const*)
{
    return 's';
}

constexpr char typeOf(int)
{
    return 'd';
}

/// The print() of every class of the library that has inserts.
template <class... Inserts>
void printInserts(ZZException_6_0 const* exception, Inserts... inserts)
{
    static constexpr char kTypes[] = {typeOf(Inserts{})..., '\0'};
    routeInserts(exception, RunningReport::library, kTypes, inserts...);
}

}  // namespace zreporting
