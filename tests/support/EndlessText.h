// EndlessText: a string of any length that repeats one character, mapped onto a few pages.
#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <vector>

template <class Character>
class EndlessText {
public:
    EndlessText(Character character, size_t count)
    {
        constexpr size_t kPiece = size_t{1} << 21;  // bytes
        std::vector<Character> const piece(kPiece / sizeof character, character);
        int const file = memfd_create("text", MFD_CLOEXEC);
        EXPECT_EQ(static_cast<ssize_t>(kPiece), write(file, piece.data(), kPiece));

        size_t const bytes = count * sizeof character;
        size_t const pieces = bytes / kPiece + 1;
        size_ = pieces * kPiece;
        text_ = static_cast<char*>(
            mmap(nullptr, size_, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
        EXPECT_NE(MAP_FAILED, static_cast<void*>(text_));
        for (size_t i = 0; i < pieces; ++i)
            EXPECT_NE(MAP_FAILED, mmap(text_ + i * kPiece, kPiece, PROT_READ | PROT_WRITE,
                                       MAP_PRIVATE | MAP_FIXED, file, 0));
        close(file);
        get()[count] = 0;  // this write gives it a page of its own
    }
    EndlessText(EndlessText const&) = delete;
    EndlessText& operator=(EndlessText const&) = delete;
    ~EndlessText() { munmap(text_, size_); }

    Character* get() const { return reinterpret_cast<Character*>(text_); }

private:
    char* text_;
    size_t size_;
};
