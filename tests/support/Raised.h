// Raised: checks the exception that a call throws: type, message number, source and site.
#pragma once

#include <Z/ZException.h>
#include <gtest/gtest.h>

#include <cstring>
#include <typeinfo>

// Returns whether `call` throws exactly an `Exception` with this message number from `site` of
// `source`.
template <class Exception, class Call>
testing::AssertionResult raises(uint32_t message, char const* source, unsigned site, Call call)
{
    try {
        call();
    } catch (ZException_6_0 const& e) {
        char const* const who = e.who() == nullptr ? "" : e.who();
        if (typeid(e) == typeid(Exception) && e.messageNumber() == message &&
            std::strcmp(who, source) == 0 && e.where() == site)
            return testing::AssertionSuccess();
        return testing::AssertionFailure()
               << e.exceptionName() << " with message " << e.messageNumber() << " from " << who
               << " " << e.where();
    }
    return testing::AssertionFailure() << "nothing was thrown";
}

// The same for an exception that carries a return code.
template <class Exception, class Call>
testing::AssertionResult raises(uint32_t message, int rc, char const* source, unsigned site,
                                Call call)
{
    return raises<Exception>(message, source, site, [&] {
        try {
            call();
        } catch (Exception const& e) {
            EXPECT_EQ(rc, e.returnCode());
            throw;
        }
    });
}
