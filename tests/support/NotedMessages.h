// NotedMessages: a message service that records its messages; installed until its destruction.
#pragma once

#include <Z/ZLCString.h>
#include <Z/ZMessage.h>

#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

class NotedMessages final : public ZMessageService_6_0 {
public:
    struct Message {
        std::string file;
        int line;
        int number;
        int insertCount;
        std::vector<std::string> inserts;  // "(null)" for an absent one
    };

    NotedMessages() { setMessageService(this); }
    NotedMessages(NotedMessages const&) = delete;
    NotedMessages& operator=(NotedMessages const&) = delete;
    ~NotedMessages() { setMessageService(nullptr); }

    std::vector<Message> messages() const
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        return messages_;
    }

    int exceptions() const
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        return exceptions_;
    }

    bool throwsToo = false;

    void outputMessage(char const* file, int line, int errorNumber, int insertCount,
                       ZLCString_6_0 const* i1, ZLCString_6_0 const* i2, ZLCString_6_0 const* i3,
                       ZLCString_6_0 const* i4, ZLCString_6_0 const* i5,
                       ZLCString_6_0 const* i6) const override
    {
        Message message = {file, line, errorNumber, insertCount, {}};
        for (ZLCString_6_0 const* insert : {i1, i2, i3, i4, i5, i6})
            message.inserts.push_back(insert == nullptr ? "(null)" : insert->getChars());
        std::lock_guard<std::mutex> const guard(mutex_);
        messages_.push_back(message);
        if (throwsToo)
            throw std::runtime_error("message service");
    }

    void outputMessageUTF8(char const*, int, int, int, ZUTF8String_6_0 const*,
                           ZUTF8String_6_0 const*, ZUTF8String_6_0 const*, ZUTF8String_6_0 const*,
                           ZUTF8String_6_0 const*, ZUTF8String_6_0 const*) const override
    {
    }

    void outputException(ZException_6_0&) const override
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        ++exceptions_;
        if (throwsToo)
            throw std::runtime_error("message service");
    }

    void outputException(ZZException_6_0 const*, va_list) const override {}

private:
    mutable std::mutex mutex_;
    mutable std::vector<Message> messages_;  // guarded by mutex_
    mutable int exceptions_ = 0;             // guarded by mutex_
};
