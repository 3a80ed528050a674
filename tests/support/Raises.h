// Raises: checks of what an action raises.
#pragma once

#include <Z/ZException.h>
#include <gtest/gtest.h>

#include <exception>

// Expects `action` to raise an Exception with this message number, source name and site.
template <class Exception, class Action>
void expectRaises(unsigned number, char const* source, unsigned site, Action action)
{
    try {
        action();
        ADD_FAILURE() << "nothing raised";
    } catch (Exception const& exception) {
        EXPECT_EQ(number, exception.messageNumber());
        EXPECT_STREQ(source, exception.who());
        EXPECT_EQ(site, exception.where());
    } catch (std::exception const& exception) {
        ADD_FAILURE() << "raised another exception: " << exception.what();
    }
}
