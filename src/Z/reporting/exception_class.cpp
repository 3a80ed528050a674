#include "exception_class.h"

#include <stdarg.h>

#include "../ZMessage.h"
#include "messages.h"

namespace zreporting {

void routeInserts(ZZException_6_0 const* exception, RunningReport::Source source, char const* types,
                  ...)
{
    va_list inserts;
    va_start(inserts, types);
    try {
        RunningReport const report(exception, source, types);
        ZMessageService_6_0::routeZZException(exception, inserts);
    } catch (...) {
        va_end(inserts);
        throw;
    }
    va_end(inserts);
}

char const* currentInsertTypes(ZZException_6_0 const* exception, char const* types)
{
    RunningReport const* const report = RunningReport::of(exception);
    if (report == nullptr)
        return types;
    switch (report->source()) {
        case RunningReport::library:
            return report->types();
        case RunningReport::caller:
            return messageInsertTypes(exception->messageNumber());
        case RunningReport::root:
            break;
    }
    return types != nullptr && *types == '\0' ? types : nullptr;
}

}  // namespace zreporting
