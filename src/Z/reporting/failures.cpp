#include "failures.h"

#include <charconv>

#include "../ZMessage.h"

namespace zreporting {

namespace {

// Calls the installed service and drops its exceptions, which could not be reported either.
template <class Report>
void send(Report report) noexcept
{
    CancelGuard const uncancelled;
    try {
        report();
    } catch (...) {
    }
}

}  // namespace

void reportRc(Site site, int messageNumber, int rc) noexcept
{
    send([&] {
        char digits[16];
        *std::to_chars(digits, digits + sizeof digits - 1, rc).ptr = '\0';
        ZException_6_0::Text const text(digits);
        ZMessageService_6_0::messageService()->outputMessage(site.source, site.number,
                                                             messageNumber, 1, &text, nullptr,
                                                             nullptr, nullptr, nullptr, nullptr);
    });
}

void reportException(ZException_6_0& failure) noexcept
{
    send([&] { failure.dumpException(); });
}

void reportCurrentException(Site site)
{
    if (caughtCancellation())
        throw;
    try {
        throw;
    } catch (ZException_6_0& failure) {
        reportException(failure);
    } catch (...) {
        send([&] {
            ZMessageService_6_0::messageService()->outputMessage(
                site.source, site.number, unknownException, 0, nullptr, nullptr, nullptr, nullptr,
                nullptr, nullptr);
        });
    }
}

}  // namespace zreporting
