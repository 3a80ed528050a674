// The whitespace around names and values is the same in each locale of the C library: a file that
// is loaded in one of them can be stored in another. Of the codesets of the GNU C library, only
// EBCDIC has a single byte for a space of Unicode that isspace() accepts.
#include <Z/stanza/whitespace.h>
#include <gtest/gtest.h>
#include <locale.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

namespace {

void expectWhitespaceOfAscii(char const* locale)
{
    SCOPED_TRACE(locale);
    zstanza::WhitespaceTable const table;
    for (int c = 0; c < 256; ++c) {
        bool const isWhitespace = c == ' ' || (c >= '\t' && c <= '\r');
        EXPECT_EQ(isWhitespace, zstanza::isSpace(static_cast<char>(c))) << c;
        EXPECT_EQ(isWhitespace, table.contains(static_cast<char>(c))) << c;
    }
}

}  // namespace

TEST(StanzaWhitespace, IsThatOfAsciiInEachLocale)
{
    setenv("LOCPATH", Z_TEST_LOCALES, 1);
    expectWhitespaceOfAscii(setlocale(LC_ALL, "C"));
    int locales = 0;
    for (auto const& entry : std::filesystem::directory_iterator(Z_TEST_LOCALES)) {
        char const* const name = setlocale(LC_CTYPE, entry.path().filename().c_str());
        if (name == nullptr)
            continue;
        ++locales;
        expectWhitespaceOfAscii(name);
    }
    EXPECT_GT(locales, 10);
    setlocale(LC_ALL, "C");
}
