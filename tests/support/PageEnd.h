// PageEnd: a string whose terminator is the last byte that may be read.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>
#include <string>

class PageEnd {
public:
    explicit PageEnd(std::string const& text)
        : page_(static_cast<size_t>(sysconf(_SC_PAGESIZE))),
          room_((text.size() / page_ + 1) * page_)
    {
        void* const block = mmap(nullptr, room_ + page_, PROT_READ | PROT_WRITE,
                                 MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (block == MAP_FAILED ||
            mprotect(static_cast<char*>(block) + room_, page_, PROT_NONE) != 0)
            throw std::runtime_error("no pages");
        block_ = static_cast<char*>(block);
        text_ = block_ + room_ - text.size() - 1;
        std::memcpy(text_, text.c_str(), text.size() + 1);
    }
    PageEnd(PageEnd const&) = delete;
    PageEnd& operator=(PageEnd const&) = delete;
    ~PageEnd() { munmap(block_, room_ + page_); }

    char const* text() const { return text_; }

private:
    size_t page_;
    size_t room_;
    char* block_;
    char* text_;
};
