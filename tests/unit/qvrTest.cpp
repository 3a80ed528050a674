// Single characters and conversion.

#include <random>
#include <string>
#include <vector>

#include "GuardedBytes.h"
#include "TextServices.h"

namespace {

TEST(qvr, CharactersAreMeasuredAndDecoded)
{
    struct Case {
        char const* codeset;
        std::string bytes;
        int length;
        uint32_t value;
    };
    Case const cases[] = {
        {"US-ASCII", "a", 1, 'a'},
        {"US-ASCII", "\x7F", 1, 0x7F},
        {"US-ASCII", "\x80", -1, 0},
        {"ISO-8859-1", "\x80", 1, 0x80},
        {"ISO-8859-1", "\xFF", 1, 0xFF},
        {"ISO-8859-6", "\xA1", -1, 0},
        {"windows-1252", "\x80", 1, 0x20AC},
        {"IBM-037", "\x40", 1, ' '},
        {"IBM-1047", "\x25", 1, '\n'},
        {"CP437", "\x1A", 1, 0x1A},
        {"UTF-8", "\u00e9x", 2, 0xE9},
        {"UTF-8", "\U0010FFFF", 4, 0x10FFFF},
        {"Shift_JIS", "\x95\x5C", 2, 0x8868},
        {"Shift_JIS", "\xB1", 1, 0xFF71},
        {"Shift_JIS", "\x1A", 1, 0x1A},
        {"Shift_JIS", "\x1C", 1, 0x1C},
        {"Shift_JIS", "\x7F", 1, 0x7F},
        {"Shift_JIS", "\x95", -1, 0},
        {"Shift_JIS", "\x95 ", -1, 0},
        {"Shift_JIS", "\x95\xFF", -1, 0},
        {"Shift_JIS", "\xFF", -1, 0},
        {"EUC-JP", "\xC9\xBD", 2, 0x8868},
        {"EUC-JP", "\x8E\xB1", 2, 0xFF71},
        {"EUC-JP", "\x8F\xB0\xA1", 3, 0x4E02},
        {"EUC-JP", "\x8F\xB0", -1, 0},
        {"EUC-JP", "\x8F\xB0 ", -1, 0},
        {"EUC-JP", "\x8F", -1, 0},
        {"EUC-JP", "\xC9 ", -1, 0},
        {"EUC-KR", "\xB0\xA1", 2, 0xAC00},
        {"GBK", "\x81\x40", 2, 0x4E02},
        {"GBK", "\x81\x7F", -1, 0},
        {"Big5", "\xA4\x40", 2, 0x4E00},
        {"GB18030", "\x81\x30\x81\x30", 4, 0x80},
        {"GB18030", "\x94\x39\xFC\x36", 4, 0x1F600},
        {"GB18030", "\xE3\x32\x9A\x35", 4, 0x10FFFF},
        {"GB18030", "\xE3\x32\x9A\x36", -1, 0},
        {"GB18030", "\x81\x30\x81", -1, 0},
        {"GB18030", "\x81\x30\x81 ", -1, 0},
        {"GB18030", "\x81\x30", -1, 0},
        {"GB18030", "\x81", -1, 0},
        {"EUC-TW", "\x8E\xA2\xA1\xA1", 4, 0x4E42},
        {"EUC-TW", "\x8E\xA2\xA1", -1, 0},
        {"UTF-16LE", "a", -1, 0},
        {"ISO-2022-JP", "a", -1, 0},
        {"UTF-7", "a", -1, 0},
        {"CESU-8", "a", -1, 0},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.codeset + (": " + hex(c.bytes)));
        Codeset const cs(c.codeset);
        GuardedBytes const text(c.bytes);
        uint32_t value = 0xABCDEF;
        EXPECT_EQ(c.length, qvr_mblen(cs, text, c.bytes.size()));
        EXPECT_EQ(c.length, qvr_mbtowc(cs, &value, text, c.bytes.size()));
        EXPECT_EQ(c.length < 0 ? 0xABCDEF : c.value, value);
        if (c.length < 0)
            continue;
        for (int n = 1; n < c.length; ++n) {
            GuardedBytes const part(c.bytes.substr(0, static_cast<size_t>(n)));
            EXPECT_EQ(-1, qvr_mblen(cs, part, static_cast<size_t>(n)));
            GuardedBytes const ended(c.bytes.substr(0, static_cast<size_t>(n)) + '\0');
            EXPECT_EQ(-1, qvr_mblen(cs, ended, SIZE_MAX)) << "stops at the terminator";
        }
    }
}

TEST(qvr, TheTerminatorHasLengthZero)
{
    for (char const* const name : {"UTF-8", "US-ASCII", "IBM-037", "EUC-JP", "GB18030", "UTF-16"}) {
        SCOPED_TRACE(name);
        Codeset const cs(name);
        GuardedBytes const text(std::string(1, '\0'));
        uint32_t value = 7;
        EXPECT_EQ(0, qvr_mblen(cs, text, 1));
        EXPECT_EQ(0, qvr_mblen(cs, text, SIZE_MAX));
        EXPECT_EQ(0, qvr_mbtowc(cs, &value, text, 1));
        EXPECT_EQ(0u, value);
    }
}

TEST(qvr, UnitsAreEncoded)
{
    struct Case {
        char const* codeset;
        uint16_t unit;
        std::string bytes;  // empty: not encodable
    };
    Case const cases[] = {
        {"UTF-8", 0, std::string(1, '\0')},
        {"UTF-8", 'a', "a"},
        {"UTF-8", 0x80, "\u0080"},
        {"UTF-8", 0x7FF, "\u07ff"},
        {"UTF-8", 0x800, "\u0800"},
        {"UTF-8", 0xFFFF, "\uffff"},
        {"UTF-8", 0xD800, ""},
        {"UTF-8", 0xDBFF, ""},
        {"UTF-8", 0xDC00, ""},
        {"UTF-8", 0xDFFF, ""},
        {"UTF-8", 0xD7FF, "\ud7ff"},
        {"UTF-8", 0xE000, "\ue000"},
        {"US-ASCII", 0x80, ""},
        {"ISO-8859-1", 0xE9, "\xE9"},
        {"ISO-8859-1", 0x20AC, ""},
        {"ISO-8859-1", 0, std::string(1, '\0')},
        {"IBM-037", 0, std::string(1, '\0')},
        {"IBM-037", 'A', "\xC1"},
        {"EUC-JP", 0x4E02, "\x8F\xB0\xA1"},
        {"EUC-JP", 0xA2, "\xA1\xF1"},
        {"EUC-JP", 0x200B, ""},
        {"EUC-JP", 0xD800, ""},
        {"GB18030", 0x80, "\x81\x30\x81\x30"},
        {"GB18030", 0xDC00, ""},
        {"UTF-16", 'a', ""},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(testing::Message() << c.codeset << " U+" << std::hex << c.unit);
        Codeset const cs(c.codeset);
        char out[qvrMbLenMax + 1];
        std::memset(out, 'x', sizeof out);
        if (c.bytes.empty()) {
            EXPECT_EQ(-1, qvr_wctomb(cs, out, qvrMbLenMax, c.unit));
            EXPECT_EQ('x', out[0]);
            continue;
        }
        int const length = static_cast<int>(c.bytes.size());
        EXPECT_EQ(length, qvr_wctomb(cs, out, c.bytes.size(), c.unit));
        EXPECT_EQ(hex(c.bytes), hex(std::string(out, c.bytes.size())));
        EXPECT_EQ('x', out[length]);
        std::memset(out, 'x', sizeof out);
        EXPECT_EQ(-1, qvr_wctomb(cs, out, c.bytes.size() - 1, c.unit));
        EXPECT_EQ('x', out[0]);
    }
}

TEST(qvr, ConversionStaysInItsBuffer)
{
    struct Case {
        char const* codeset;
        std::string text;
        std::string encoded;
    };
    Case const cases[] = {
        {"UTF-8", "a\u00e9\u20ac\U0001F600z", "a\u00e9\u20ac\U0001F600z"},
        {"ISO-8859-1", "a\u00e9\u00fcz", "a\xE9\xFCz"},
        {"US-ASCII", "plain text", "plain text"},
        {"IBM-1047", "A[z", "\xC1\xAD\xA9"},
        {"Shift_JIS", "a\u8868z", "a\x95\x5Cz"},
        {"EUC-JP", "a\u8868\u4e02z", "a\xC9\xBD\x8F\xB0\xA1z"},
        {"GB18030", "a\u4e00\U0001F600z", "a\xD2\xBB\x94\x39\xFC\x36z"},
        {"ISO-2022-JP", "a\u8868z", "a\x1B$BI=\x1B(Bz"},
        {"UTF-16BE", "a\U0001F600", std::string("\0a\xD8\x3D\xDE\x00", 6)},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.codeset);
        Codeset const cs(c.codeset);
        struct Way {
            ptrdiff_t (*convert)(qvr_cs_t, char const*, size_t, char*, size_t);
            std::string from;
            std::string to;
        };
        for (Way const& way :
             {Way{qvr_to_utf8, c.encoded, c.text}, Way{qvr_from_utf8, c.text, c.encoded}}) {
            GuardedBytes const source(way.from);
            for (size_t room = 0; room <= way.to.size() + 1; ++room) {
                std::string const blank(room, 'x');
                GuardedBytes const target(blank);
                ptrdiff_t const n = way.convert(cs, source, way.from.size(), target, room);
                if (room < way.to.size()) {
                    EXPECT_EQ(qvrNoRoom, n) << room;
                } else {
                    EXPECT_EQ(static_cast<ptrdiff_t>(way.to.size()), n);
                    EXPECT_EQ(hex(way.to + blank.substr(way.to.size())),
                              hex(std::string(target, room)));
                }
            }
        }
    }
}

TEST(qvr, ConversionRejectsCharactersWithoutACounterpart)
{
    struct Case {
        char const* name;
        char const* codeset;
        std::string text;
        bool toUtf8;
    };
    Case const cases[] = {
        {"not in Latin 1", "ISO-8859-1", "abc\u20ac", false},
        {"a supplementary character in Latin 1", "ISO-8859-1", "abc\U0001F600", false},
        {"not in ASCII", "US-ASCII", "abc\u00e9", false},
        {"byte above ASCII", "US-ASCII", "abc\xE9", true},
        {"unassigned byte", "ISO-8859-6", "abc\xA1", true},
        {"not in Japanese", "EUC-JP", "abc\u1E9E", false},
        {"ignorable, but not in the codeset", "EUC-JP", "abc\u200b", false},
        {"soft hyphen", "Shift_JIS", "abc\u00ad", false},
        {"ignorable in ISO-2022", "ISO-2022-JP", "abc\u200b", false},
        {"half a character at the end", "EUC-JP", "abc\xC9", true},
        {"half a character before another", "EUC-JP", "abc\xC9 z", true},
        {"not a lead byte", "EUC-JP", "abc\xFF", true},
        {"half a unit at the end", "UTF-16LE", std::string("a\0b", 3), true},
        {"a lone surrogate", "UTF-16LE", std::string("\x00\xD8", 2), true},
        {"a lone low surrogate", "UTF-16LE", std::string("\x00\xDC\x61\x00", 4), true},
        {"an unfinished escape", "ISO-2022-JP", "abc\x1B$", true},
        {"a quoted lead unit before another", "SCSU", std::string("\x0E\xD8\x00\x0E\xD8\x00z", 7),
         true},
        {"only a quoted lead unit", "SCSU", std::string("\x0E\xD8\x00z", 4), true},
        {"a quoted lead unit at the end", "SCSU", std::string("z\x0E\xD8\x00", 4), true},
        {"only a quoted trail unit", "SCSU", std::string("\x0E\xDC\x00z", 4), true},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        Codeset const cs(c.codeset);
        char out[64];
        EXPECT_EQ(qvrInvalid, (c.toUtf8 ? qvr_to_utf8 : qvr_from_utf8)(cs, c.text.data(),
                                                                       c.text.size(), out, 64));
        EXPECT_EQ("a", toUtf8(Codeset("EUC-JP"), "a")) << "the failure leaves no state";
        EXPECT_EQ(hex(fromUtf8(cs, "a")), hex(fromUtf8(Codeset(c.codeset), "a")));
    }
}

// Also if a byte that was tested when the codeset was built starts a longer sequence.
TEST(qvr, FirstConversionStartsInTheInitialState)
{
    for (char const* const name :
         {"SCSU", "BOCU-1", "UTF-7", "UTF-16BE", "CESU-8", "ISO-2022-KR"}) {
        SCOPED_TRACE(name);
        std::string const encoded = fromUtf8(Codeset(name), "\uac00z");
        EXPECT_EQ("\uac00z", toUtf8(Codeset(name), encoded));
    }
    EXPECT_EQ("\u4e01z", toUtf8(Codeset("SCSU"), "\x0E\x4E\x01z"));
}

TEST(qvr, ConversionContinuesAfterALongRunWithoutCharacters)
{
    // Enough changes of the window to fill a block without a character.
    EXPECT_EQ("a\u00e9", toUtf8(Codeset("SCSU"), std::string(200000, '\x10') + "a\xE9"));
}

// The rest of the character is past the given length.
TEST(qvr, ConversionEndsAtTheLength)
{
    std::string const text = "abcdefghij\u00e9";
    char out[64];
    for (char const* const name : {"UTF-8", "ISO-8859-1", "EUC-JP", "GB18030", "UTF-16"})
        EXPECT_EQ(qvrInvalid, qvr_from_utf8(Codeset(name), text.data(), text.size() - 1, out, 64))
            << name;
    EXPECT_EQ(qvrInvalid, qvr_to_utf8(Codeset("UTF-8"), text.data(), text.size() - 1, out, 64));
    for (char const* const name : {"EUC-JP", "GB18030", "Shift_JIS"}) {
        Codeset const cs(name);
        std::string const encoded = fromUtf8(cs, "abcdefghij\u8868");
        EXPECT_EQ(qvrInvalid, qvr_to_utf8(cs, encoded.data(), encoded.size() - 1, out, 64)) << name;
    }
}

TEST(qvr, ConversionTreatsTerminatorsAsCharacters)
{
    std::string const text("a\0b\0", 4);
    for (char const* const name : {"UTF-8", "ISO-8859-1", "EUC-JP", "GB18030"}) {
        SCOPED_TRACE(name);
        Codeset const cs(name);
        EXPECT_EQ(text, toUtf8(cs, text));
        EXPECT_EQ(text, fromUtf8(cs, text));
    }
    std::string const kanji = std::string("\0", 1) + "\u8868" + std::string("\0", 1);
    std::string const encoded = std::string("\0\xC9\xBD\0", 4);
    EXPECT_EQ(encoded, fromUtf8(Codeset("EUC-JP"), kanji));
    EXPECT_EQ(kanji, toUtf8(Codeset("EUC-JP"), encoded));
}

TEST(qvr, LongStringsConvertAcrossBlocks)
{
    for (char const* const name : {"EUC-JP", "GB18030", "UTF-16", "ISO-2022-JP", "ISO-8859-5"}) {
        SCOPED_TRACE(name);
        Codeset const cs(name);
        std::string text;
        for (uint32_t i = 0; text.size() < 300000; ++i)
            text += i % 7 == 0 ? "a" : i % 5 == 0 && *name == 'G' ? "\U0001F600" : "\u0416";
        std::string const encoded = fromUtf8(cs, text);
        EXPECT_TRUE(toUtf8(cs, encoded) == text);
    }
}

TEST(qvr, LongStringsConvertLikeTheirCharacters)
{
    struct Case {
        char const* codeset;
        std::vector<std::string> characters;  // in addition to ASCII
    };
    Case const cases[] = {
        {"UTF-8", {"\u00e9", "\u8868", "\U0001F600"}},
        {"US-ASCII", {"~"}},
        {"ISO-8859-15", {"\u00e9", "\u20ac"}},
        {"IBM-1047", {"\u00e9", "["}},
        {"Shift_JIS", {"\u8868", "\uff71"}},
        {"EUC-JP", {"\u8868", "\uff71"}},
        {"EUC-JP", {"\u8868", "\u4e02", "\u00e0"}},
        {"GB18030", {"\u00e9", "\u4e00", "\u0416"}},
        {"GB18030", {"\u4e00", "\u3400", "\U0001F600"}},
        {"UTF-16LE", {"\u8868", "\U0001F600"}},
    };
    std::mt19937 random(1);
    for (Case const& c : cases) {
        SCOPED_TRACE(c.codeset);
        Codeset const cs(c.codeset);
        std::string text;
        std::string encoded;
        for (int i = 0; i < 2000; ++i) {
            for (unsigned ascii = random() % 40; ascii > 0; --ascii) {
                std::string const letter(1, static_cast<char>(' ' + random() % 95));
                text += letter;
                encoded += fromUtf8(cs, letter);
            }
            std::string const& character = c.characters[random() % c.characters.size()];
            text += character;
            encoded += fromUtf8(cs, character);
        }
        EXPECT_TRUE(fromUtf8(cs, text) == encoded);
        EXPECT_TRUE(toUtf8(cs, encoded) == text);
    }
}

}  // namespace
