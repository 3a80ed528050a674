// Texts at the end of what an int counts, in a codeset whose characters are as long as they can be
// without dividing that number.
#include <Z/zsnprintf.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <qvr.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <vector>

constexpr int kBytes = 7;  // of every character

extern "C" int __wrap_qvr_wctomb(qvr_cs_t, char*, size_t, uint16_t)
{
    return kBytes;
}

namespace {

// A wide text of one character over and over, all of it on the same few pages.
class EndlessText {
public:
    EndlessText(uint16_t character, size_t count)
    {
        constexpr size_t kPiece = size_t{1} << 21;  // bytes
        std::vector<uint16_t> const piece(kPiece / sizeof character, character);
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
        reinterpret_cast<uint16_t*>(text_)[count] = 0;  // a page of its own from now on
    }
    EndlessText(EndlessText const&) = delete;
    EndlessText& operator=(EndlessText const&) = delete;
    ~EndlessText() { munmap(text_, size_); }

    uint16_t const* get() const { return reinterpret_cast<uint16_t const*>(text_); }

private:
    char* text_;
    size_t size_;
};

// The length of `format` without a codeset.
int lengthOf(char const* format, ...)
{
    ZPrintfContext_6_0 context;
    va_list args;
    va_start(args, format);
    int const rc = zvsnprintf_parse_6_0(&context, nullptr, format, args);
    va_end(args);
    EXPECT_EQ(0, rc);
    int const length = zvsnprintf_render_6_0(&context, nullptr, 0);
    zvsnprintf_done_6_0(&context);
    return length;
}

}  // namespace

TEST(zsnprintfLength, AWideTextAboveTheLargestLengthFails)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "takes too long with a sanitizer";
#endif
    // One character less makes 2,147,483,646 bytes, and one byte more would fit.
    EndlessText const text('x', INT_MAX / kBytes + 1);
    EXPECT_EQ(-1, lengthOf("%S", text.get()));
    EXPECT_EQ(INT_MAX - 1, lengthOf("%S", text.get() + 1));
}
