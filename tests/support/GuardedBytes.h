// GuardedBytes: bytes at the end of readable memory, so that reading past them crashes.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <new>
#include <string>

class GuardedBytes {
public:
    explicit GuardedBytes(std::string const& bytes)
    {
        size_t const page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        size_t const readable = (bytes.size() + page) / page * page;
        size_ = readable + page;
        void* const block =
            mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (block == MAP_FAILED)
            throw std::bad_alloc();
        block_ = static_cast<char*>(block);
        mprotect(block_ + readable, page, PROT_NONE);
        bytes_ = block_ + readable - bytes.size();
        std::memcpy(bytes_, bytes.data(), bytes.size());
    }
    GuardedBytes(GuardedBytes const&) = delete;
    GuardedBytes& operator=(GuardedBytes const&) = delete;
    ~GuardedBytes() { munmap(block_, size_); }

    operator char*() const { return bytes_; }

private:
    char* block_;
    size_t size_;
    char* bytes_;
};
