// Codesets, character by character: UTF-8 compared with arithmetic, every other one with iconv.
#include <iconv.h>

#include <cstring>
#include <set>
#include <vector>

#include "TextServices.h"

namespace {

// Decodes at most four bytes of UTF-8 by the definition: the value from its bits, then the checks.
int modelLength(unsigned char const* s, size_t n, uint32_t& value)
{
    int length = s[0] < 0x80   ? 1
                 : s[0] < 0xC0 ? 0
                 : s[0] < 0xE0 ? 2
                 : s[0] < 0xF0 ? 3
                 : s[0] < 0xF8 ? 4
                               : 0;
    if (length == 0 || static_cast<size_t>(length) > n)
        return -1;
    value = length == 1 ? s[0] : s[0] & (0x7Fu >> length);
    for (int i = 1; i < length; ++i) {
        if ((s[i] & 0xC0) != 0x80)
            return -1;
        value = value << 6 | (s[i] & 0x3Fu);
    }
    static constexpr uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    if (value < kLeast[length] || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
        return -1;
    return length;
}

// Only failures go through GoogleTest: its checks would take longer than the tested code.
void expectAsModel(qvr_cs_t cs, std::string const& bytes)
{
    uint32_t expected = 0;
    int const length = bytes[0] == 0
                           ? 0
                           : modelLength(reinterpret_cast<unsigned char const*>(bytes.data()),
                                         bytes.size(), expected);
    uint32_t value = 0;
    if (qvr_mblen(cs, bytes.data(), bytes.size()) != length ||
        qvr_mbtowc(cs, &value, bytes.data(), bytes.size()) != length ||
        (length >= 0 && value != expected))
        ADD_FAILURE() << hex(bytes) << " is " << qvr_mblen(cs, bytes.data(), bytes.size())
                      << " bytes, value " << value;
}

TEST(qvrUtf8, EveryScalarValueRoundTrips)
{
    Codeset const cs("UTF-8");
    Codeset const utf16("UTF-16LE");
    size_t values = 0;
    for (uint32_t value = 0; value <= 0x10FFFF; ++value) {
        if (value >= 0xD800 && value <= 0xDFFF)
            continue;
        ++values;
        std::string const bytes = utf8(value);
        int const length = static_cast<int>(bytes.size());
        uint32_t decoded = 0xFFFFFFFF;
        char out[4];
        bool good =
            qvr_mblen(cs, bytes.data(), bytes.size()) == (value == 0 ? 0 : length) &&
            qvr_mbtowc(cs, &decoded, bytes.data(), bytes.size()) == (value == 0 ? 0 : length) &&
            decoded == value;
        good = good && qvr_to_utf8(cs, bytes.data(), bytes.size(), out, sizeof out) == length &&
               std::memcmp(out, bytes.data(), bytes.size()) == 0;
        good = good && qvr_from_utf8(cs, bytes.data(), bytes.size(), out, sizeof out) == length &&
               std::memcmp(out, bytes.data(), bytes.size()) == 0;
        for (size_t n = 1; n < bytes.size(); ++n)
            good = good && qvr_mblen(cs, bytes.data(), n) == -1 &&
                   qvr_mblen(cs, bytes.substr(0, n).c_str(), n + 1) == -1 &&
                   qvr_to_utf8(cs, bytes.data(), n, out, sizeof out) == qvrInvalid &&
                   qvr_from_utf8(cs, bytes.data(), bytes.size(), out, n) == qvrNoRoom;
        if (value <= 0xFFFF)
            good = good &&
                   qvr_wctomb(cs, out, sizeof out, static_cast<uint16_t>(value)) == length &&
                   std::memcmp(out, bytes.data(), bytes.size()) == 0;
        if (!good)
            ADD_FAILURE() << "U+" << std::hex << value;
    }
    EXPECT_EQ(1112064u, values);
}

TEST(qvrUtf8, EveryScalarValueRoundTripsThroughUtf16)
{
    Codeset const utf16("UTF-16LE");
    std::string all;
    std::string units;
    for (uint32_t value = 0; value <= 0x10FFFF; ++value) {
        if (value >= 0xD800 && value <= 0xDFFF)
            continue;
        all += utf8(value);
        uint32_t const pair[] = {0xD800 + ((value - 0x10000) >> 10), 0xDC00 + (value & 0x3FF)};
        for (size_t i = 0; i < (value > 0xFFFF ? 2u : 1u); ++i) {
            uint32_t const unit = value > 0xFFFF ? pair[i] : value;
            units += static_cast<char>(unit % 256);
            units += static_cast<char>(unit / 256);
        }
    }
    EXPECT_TRUE(fromUtf8(utf16, all) == units);
    EXPECT_TRUE(toUtf8(utf16, units) == all);
}

TEST(qvrUtf8, EveryClassOfInvalidSequenceIsRejected)
{
    struct Case {
        char const* name;
        std::string bytes;
    };
    Case const cases[] = {
        {"only a continuation, first", "\x80"},
        {"only a continuation, last", "\xBF"},
        {"two bytes, no continuation", "\xC2"},
        {"two bytes, then ASCII", "\xC2 "},
        {"two bytes, then a lead", "\xC2\xC2"},
        {"three bytes, one present", "\xE1"},
        {"three bytes, two present", "\xE1\x80"},
        {"three bytes, ASCII as the second", "\xE1 \x80"},
        {"three bytes, ASCII as the third", "\xE1\x80 "},
        {"four bytes, one present", "\xF1"},
        {"four bytes, two present", "\xF1\x80"},
        {"four bytes, three present", "\xF1\x80\x80"},
        {"four bytes, ASCII as the second", "\xF1 \x80\x80"},
        {"four bytes, ASCII as the third", "\xF1\x80 \x80"},
        {"four bytes, ASCII as the fourth", "\xF1\x80\x80 "},
        {"NUL in two bytes", "\xC0\x80"},
        {"'/' in two bytes", "\xC0\xAF"},
        {"U+007F in two bytes", "\xC1\xBF"},
        {"NUL in three bytes", "\xE0\x80\x80"},
        {"'/' in three bytes", "\xE0\x80\xAF"},
        {"U+07FF in three bytes", "\xE0\x9F\xBF"},
        {"NUL in four bytes", "\xF0\x80\x80\x80"},
        {"U+FFFF in four bytes", "\xF0\x8F\xBF\xBF"},
        {"first high surrogate", "\xED\xA0\x80"},
        {"last high surrogate", "\xED\xAF\xBF"},
        {"first low surrogate", "\xED\xB0\x80"},
        {"last low surrogate", "\xED\xBF\xBF"},
        {"a pair of surrogates", "\xED\xA0\x80\xED\xB0\x80"},
        {"U+110000", "\xF4\x90\x80\x80"},
        {"U+13FFFF", "\xF4\xBF\xBF\xBF"},
        {"lead of U+140000", "\xF5\x80\x80\x80"},
        {"last lead of four bytes", "\xF7\xBF\xBF\xBF"},
        {"five bytes, shortest", "\xF8\x88\x80\x80\x80"},
        {"five bytes, too long", "\xF8\x80\x80\x80\xAF"},
        {"six bytes, shortest", "\xFC\x84\x80\x80\x80\x80"},
        {"six bytes, too long", "\xFC\x80\x80\x80\x80\xAF"},
        {"0xFE", "\xFE"},
        {"0xFF", "\xFF"},
    };
    Codeset const cs("UTF-8");
    Codeset const latin1("ISO-8859-1");
    Codeset const eucJp("EUC-JP");
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        char out[64];
        EXPECT_EQ(-1, qvr_mblen(cs, c.bytes.c_str(), c.bytes.size()));
        EXPECT_EQ(-1, qvr_mblen(cs, c.bytes.c_str(), SIZE_MAX)) << "stopped by the terminator";
        uint32_t value = 77;
        EXPECT_EQ(-1, qvr_mbtowc(cs, &value, c.bytes.c_str(), c.bytes.size()));
        EXPECT_EQ(77u, value);
        for (std::string const& text : {c.bytes, "abcdefghijk" + c.bytes, c.bytes + "z"}) {
            for (qvr_cs_t const target : {qvr_cs_t(cs), qvr_cs_t(latin1), qvr_cs_t(eucJp)})
                EXPECT_EQ(qvrInvalid, qvr_from_utf8(target, text.data(), text.size(), out, 64));
            EXPECT_EQ(qvrInvalid, qvr_to_utf8(cs, text.data(), text.size(), out, 64));
        }
    }
}

TEST(qvrUtf8, EverySequenceUpToThreeBytesDecodesByDefinition)
{
    Codeset const cs("UTF-8");
    for (unsigned a = 0; a < 256; ++a) {
        std::string bytes(1, static_cast<char>(a));
        expectAsModel(cs, bytes);
        for (unsigned b = 0; b < 256; ++b) {
            bytes = {static_cast<char>(a), static_cast<char>(b)};
            expectAsModel(cs, bytes);
            if (a < 0xE0 && b % 17 != 0)
                continue;  // the third byte is no longer relevant
            bytes.push_back(0);
            for (unsigned c = 0; c < 256; ++c) {
                bytes[2] = static_cast<char>(c);
                expectAsModel(cs, bytes);
            }
        }
    }
}

TEST(qvrUtf8, SequencesOfFourBytesDecodeByDefinition)
{
    Codeset const cs("UTF-8");
    constexpr unsigned char kEdges[] = {0x00, 0x01, 0x7F, 0x80, 0x81, 0x8F, 0x90, 0x9F,
                                        0xA0, 0xBE, 0xBF, 0xC0, 0xC2, 0xE0, 0xFF};
    for (unsigned a = 0xE0; a < 256; ++a)
        for (unsigned b = 0; b < 256; ++b)
            for (unsigned char const c : kEdges)
                for (unsigned char const d : kEdges)
                    expectAsModel(cs, {static_cast<char>(a), static_cast<char>(b),
                                       static_cast<char>(c), static_cast<char>(d)});
}

// iconv, for comparison.
class Peer {
public:
    Peer(char const* to, char const* from) : iconv_(iconv_open(to, from)) {}
    Peer(Peer const&) = delete;
    Peer& operator=(Peer const&) = delete;
    ~Peer()
    {
        if (known())
            iconv_close(iconv_);
    }

    bool known() const { return iconv_ != reinterpret_cast<iconv_t>(-1); }

    // Converts a whole string; empty if it is invalid.
    std::string convert(std::string const& text)
    {
        char out[64];
        char* end = out;
        size_t room = sizeof out;
        char* in = const_cast<char*>(text.data());
        size_t left = text.size();
        iconv(iconv_, nullptr, nullptr, nullptr, nullptr);
        if (iconv(iconv_, &in, &left, &end, &room) != 0 || left != 0 ||
            iconv(iconv_, nullptr, nullptr, &end, &room) != 0)
            return {};
        return {out, end};
    }

private:
    iconv_t const iconv_;
};

struct Pair {
    char const* ours;
    char const* theirs;
    unsigned most;  // maximum bytes per character
};

// Every documented codeset, and a selection of the others that both have.
constexpr Pair kPairs[] = {
    {"US-ASCII", "ANSI_X3.4-1968", 1},
    {"ISO-8859-1", "ISO-8859-1", 1},
    {"ISO-8859-2", "ISO-8859-2", 1},
    {"ISO-8859-3", "ISO-8859-3", 1},
    {"ISO-8859-4", "ISO-8859-4", 1},
    {"ISO-8859-5", "ISO-8859-5", 1},
    {"ISO-8859-6", "ISO-8859-6", 1},
    {"ISO-8859-7", "ISO-8859-7", 1},
    {"ISO-8859-8", "ISO-8859-8", 1},
    {"ISO-8859-9", "ISO-8859-9", 1},
    {"ISO-8859-10", "ISO-8859-10", 1},
    {"ISO-8859-11", "ISO-8859-11", 1},
    {"ISO-8859-13", "ISO-8859-13", 1},
    {"ISO-8859-14", "ISO-8859-14", 1},
    {"ISO-8859-15", "ISO-8859-15", 1},
    {"ISO-8859-16", "ISO-8859-16", 1},
    {"windows-1250", "CP1250", 1},
    {"windows-1251", "CP1251", 1},
    {"windows-1252", "CP1252", 1},
    {"windows-1253", "CP1253", 1},
    {"windows-1254", "CP1254", 1},
    {"windows-1255", "CP1255", 1},
    {"windows-1256", "CP1256", 1},
    {"windows-1257", "CP1257", 1},
    {"windows-1258", "CP1258", 1},
    {"KOI8-R", "KOI8-R", 1},
    {"KOI8-U", "KOI8-U", 1},
    {"TIS-620", "TIS-620", 1},
    {"ARMSCII-8", "ARMSCII-8", 1},
    {"GEORGIAN-PS", "GEORGIAN-PS", 1},
    {"KOI8-T", "KOI8-T", 1},
    {"PT154", "PT154", 1},
    {"RK1048", "RK1048", 1},
    {"IBM-037", "IBM037", 1},
    {"IBM-1047", "IBM1047", 1},
    {"IBM-273", "IBM273", 1},
    {"IBM-500", "IBM500", 1},
    {"IBM-1140", "IBM1140", 1},
    {"CP437", "CP437", 1},
    {"CP850", "CP850", 1},
    {"CP852", "CP852", 1},
    {"CP866", "CP866", 1},
    {"Shift_JIS", "SJIS", 2},
    {"windows-31j", "CP932", 2},
    {"EUC-JP", "EUC-JP", 3},
    {"EUC-KR", "EUC-KR", 2},
    {"windows-949", "UHC", 2},
    {"GBK", "GBK", 2},
    {"GB18030", "GB18030", 4},
    {"Big5", "BIG5", 2},
};

// The characters that ICU and iconv map differently, with both mappings in use. Nothing else may
// differ.
struct Decoded {
    std::string codeset;
    std::string bytes;
    uint32_t ours;
    uint32_t theirs;

    bool operator==(Decoded const&) const = default;
};

struct Encoded {
    std::string codeset;
    uint32_t value;
    std::string ours;
    std::string theirs;

    bool operator==(Encoded const&) const = default;
};

std::ostream& operator<<(std::ostream& out, Decoded const& row)
{
    return out << std::hex << std::uppercase << "{\"" << row.codeset << "\", \"" << row.bytes
               << "\", 0x" << row.ours << ", 0x" << row.theirs << "}," << std::dec;
}

std::ostream& operator<<(std::ostream& out, Encoded const& row)
{
    return out << std::hex << std::uppercase << "{\"" << row.codeset << "\", 0x" << row.value
               << ", \"" << row.ours << "\", \"" << row.theirs << "\"}," << std::dec;
}

Decoded const kDecoded[] = {
    // Shift_JIS of PCs: backslash, tilde and the wide forms of symbols.
    {"Shift_JIS", "5c", 0x005C, 0x00A5},
    {"Shift_JIS", "7e", 0x007E, 0x203E},
    {"Shift_JIS", "8160", 0xFF5E, 0x301C},
    {"Shift_JIS", "8161", 0x2225, 0x2016},
    {"Shift_JIS", "817c", 0xFF0D, 0x2212},
    {"Shift_JIS", "8191", 0xFFE0, 0x00A2},
    {"Shift_JIS", "8192", 0xFFE1, 0x00A3},
    {"Shift_JIS", "81ca", 0xFFE2, 0x00AC},
    // GB18030 of 2005 and of its successor: characters with private code points in the older one.
    {"GB18030", "a6d9", 0xE78D, 0xFE10},
    {"GB18030", "a6da", 0xE78E, 0xFE12},
    {"GB18030", "a6db", 0xE78F, 0xFE11},
    {"GB18030", "a6dc", 0xE790, 0xFE13},
    {"GB18030", "a6dd", 0xE791, 0xFE14},
    {"GB18030", "a6de", 0xE792, 0xFE15},
    {"GB18030", "a6df", 0xE793, 0xFE16},
    {"GB18030", "a6ec", 0xE794, 0xFE17},
    {"GB18030", "a6ed", 0xE795, 0xFE18},
    {"GB18030", "a6f3", 0xE796, 0xFE19},
    {"GB18030", "fe51", 0xE816, 0x20087},
    {"GB18030", "fe52", 0xE817, 0x20089},
    {"GB18030", "fe53", 0xE818, 0x200CC},
    {"GB18030", "fe59", 0xE81E, 0x9FB4},
    {"GB18030", "fe61", 0xE826, 0x9FB5},
    {"GB18030", "fe66", 0xE82B, 0x9FB6},
    {"GB18030", "fe67", 0xE82C, 0x9FB7},
    {"GB18030", "fe6c", 0xE831, 0x215D7},
    {"GB18030", "fe6d", 0xE832, 0x9FB8},
    {"GB18030", "fe76", 0xE83B, 0x2298F},
    {"GB18030", "fe7e", 0xE843, 0x9FB9},
    {"GB18030", "fe90", 0xE854, 0x9FBA},
    {"GB18030", "fe91", 0xE855, 0x241FE},
    {"GB18030", "fea0", 0xE864, 0x9FBB},
    // The small mu has two code points.
    {"CP437", "e6", 0x03BC, 0x00B5},
};

Encoded const kEncoded[] = {
    // The reverse direction of the private code points.
    {"GB18030", 0x9FB4, "82359037", "fe59"},
    {"GB18030", 0x9FB5, "82359038", "fe61"},
    {"GB18030", 0x9FB6, "82359039", "fe66"},
    {"GB18030", 0x9FB7, "82359130", "fe67"},
    {"GB18030", 0x9FB8, "82359131", "fe6d"},
    {"GB18030", 0x9FB9, "82359132", "fe7e"},
    {"GB18030", 0x9FBA, "82359133", "fe90"},
    {"GB18030", 0x9FBB, "82359134", "fea0"},
    {"GB18030", 0xFE10, "84318236", "a6d9"},
    {"GB18030", 0xFE11, "84318237", "a6db"},
    {"GB18030", 0xFE12, "84318238", "a6da"},
    {"GB18030", 0xFE13, "84318239", "a6dc"},
    {"GB18030", 0xFE14, "84318330", "a6dd"},
    {"GB18030", 0xFE15, "84318331", "a6de"},
    {"GB18030", 0xFE16, "84318332", "a6df"},
    {"GB18030", 0xFE17, "84318333", "a6ec"},
    {"GB18030", 0xFE18, "84318334", "a6ed"},
    {"GB18030", 0xFE19, "84318335", "a6f3"},
    {"GB18030", 0x20087, "95329031", "fe51"},
    {"GB18030", 0x20089, "95329033", "fe52"},
    {"GB18030", 0x200CC, "95329730", "fe53"},
    {"GB18030", 0x215D7, "9536b937", "fe6c"},
    {"GB18030", 0x2298F, "9630ba35", "fe76"},
    {"GB18030", 0x241FE, "9635b630", "fe91"},
    // Big5 has these box drawing characters twice.
    {"Big5", 0x2550, "f9f9", "a2a4"},
    {"Big5", 0x255E, "f9e9", "a2a5"},
    {"Big5", 0x2561, "f9eb", "a2a7"},
    {"Big5", 0x256A, "f9ea", "a2a6"},
};

uint32_t valueOf(std::string const& utf32)
{
    uint32_t value = 0xFFFFFFFF;
    if (utf32.size() == sizeof value)
        std::memcpy(&value, utf32.data(), sizeof value);
    return value;
}

class Comparison {
public:
    explicit Comparison(Pair const& pair)
        : pair_(pair),
          cs_(pair.ours),
          decoder_("UTF-32LE", pair.theirs),
          encoder_(pair.theirs, "UTF-32LE")
    {
    }

    bool known() const { return cs_ != nullptr && decoder_.known() && encoder_.known(); }

    // Compares the character `bytes`, or every character that starts with them.
    void decode(std::string bytes)
    {
        uint32_t ours = 0xFFFFFFFF;
        int const length = qvr_mbtowc(cs_, &ours, bytes.data(), bytes.size());
        if (length < 0) {
            if (bytes.size() == pair_.most)
                return;
            // The fourth bytes of GB18030 are digits; their neighbours show that all others are
            // invalid.
            bool const digits = bytes.size() == 3;
            bytes.push_back(0);
            for (unsigned byte = digits ? '0' - 1 : 1; byte < (digits ? '9' + 2 : 256); ++byte) {
                bytes.back() = static_cast<char>(byte);
                decode(bytes);
            }
            return;
        }
        if (length != (ours == 0 ? 0 : static_cast<int>(bytes.size())))
            return;  // a shorter character, already compared
        if (toUtf8(cs_, bytes) != utf8(ours) ||
            qvr_mblen(cs_, bytes.data(), bytes.size()) != length)
            ADD_FAILURE() << hex(bytes) << " differs between functions";
        uint32_t const theirs = valueOf(decoder_.convert(bytes));
        if (theirs == 0xFFFFFFFF)
            return;
        ++bothDecode;
        if (ours > 0xFFFF)
            supplementary.push_back(ours);
        if (ours != theirs)
            expectAgreed(kDecoded, {pair_.ours, hex(bytes), ours, theirs});
    }

    void encode(uint32_t value)
    {
        std::string const text = utf8(value);
        char out[qvrMbLenMax];
        ptrdiff_t const length = qvr_from_utf8(cs_, text.data(), text.size(), out, sizeof out);
        std::string const ours(out, length > 0 ? static_cast<size_t>(length) : 0);
        if (value <= 0xFFFF) {
            char other[qvrMbLenMax];
            int const same = qvr_wctomb(cs_, other, sizeof other, static_cast<uint16_t>(value));
            if (same != length || (same > 0 && ours != std::string(other, other + same)))
                ADD_FAILURE() << "U+" << std::hex << value << " differs between functions";
        }
        if (ours.empty())
            return;
        std::string const theirs =
            encoder_.convert({reinterpret_cast<char const*>(&value), sizeof value});
        if (theirs.empty())
            return;
        ++bothEncode;
        if (ours != theirs)
            expectAgreed(kEncoded, {pair_.ours, value, hex(ours), hex(theirs)});
    }

    std::vector<uint32_t> supplementary;  // decoded code points beyond 16 bits
    size_t bothDecode = 0;
    size_t bothEncode = 0;
    std::set<void const*> agreed;  // rows that applied

private:
    template <class Row, size_t count>
    void expectAgreed(Row const (&rows)[count], Row const& difference)
    {
        for (Row const& row : rows) {
            if (row == difference) {
                agreed.insert(&row);
                return;
            }
        }
        ADD_FAILURE() << "not agreed: " << difference;
    }

    Pair const pair_;
    Codeset const cs_;
    Peer decoder_;
    Peer encoder_;
};

TEST(qvrCodesets, AgreeWithIconvOnEveryCharacter)
{
    std::set<void const*> agreed;
    for (Pair const& pair : kPairs) {
        SCOPED_TRACE(pair.ours);
        Comparison comparison(pair);
        ASSERT_TRUE(comparison.known());
        for (unsigned byte = 0; byte < 256; ++byte)
            comparison.decode(std::string(1, static_cast<char>(byte)));
        for (uint32_t value = 0; value <= 0xFFFF; ++value)
            if (value < 0xD800 || value > 0xDFFF)
                comparison.encode(value);
        for (uint32_t const value : comparison.supplementary)
            comparison.encode(value);
        std::printf("%-13s %7zu decoded and %7zu encoded alike\n", pair.ours, comparison.bothDecode,
                    comparison.bothEncode);
        EXPECT_LE(pair.most == 1 ? 120u : 7000u, comparison.bothDecode);
        agreed.merge(comparison.agreed);
    }
    for (Decoded const& row : kDecoded)
        EXPECT_EQ(1u, agreed.count(&row)) << "does not differ: " << row;
    for (Encoded const& row : kEncoded)
        EXPECT_EQ(1u, agreed.count(&row)) << "does not differ: " << row;
}

// For these both have the same characters: no byte and no code point is valid in only one of them.
TEST(qvrCodesets, OwnTablesEqualThoseOfIconv)
{
    for (char const* const name :
         {"ARMSCII-8", "GEORGIAN-PS", "KOI8-T", "PT154", "RK1048", "ISO-8859-16"}) {
        SCOPED_TRACE(name);
        Codeset const cs(name);
        ASSERT_NE(nullptr, qvr_cs_t(cs));
        Peer decoder("UTF-8", name);
        Peer encoder(name, "UTF-8");
        ASSERT_TRUE(decoder.known() && encoder.known());
        size_t characters = 0;
        for (unsigned byte = 0; byte < 256; ++byte) {
            std::string const text(1, static_cast<char>(byte));
            std::string const theirs = decoder.convert(text);
            EXPECT_EQ(theirs.empty() ? "failed: -1" : theirs, toUtf8(cs, text)) << hex(text);
            EXPECT_EQ(theirs.empty() ? -1 : byte == 0 ? 0 : 1, qvr_mblen(cs, text.data(), 1));
            characters += theirs.empty() ? 0 : 1;
        }
        EXPECT_LT(230u, characters);
        for (uint32_t value = 0; value <= 0x10FFFF; value += value == 0xD7FF ? 0x801 : 1) {
            std::string const text = utf8(value);
            std::string const theirs = encoder.convert(text);
            char out[8];
            ptrdiff_t const length = qvr_from_utf8(cs, text.data(), text.size(), out, sizeof out);
            if (theirs != std::string(out, length > 0 ? static_cast<size_t>(length) : 0))
                ADD_FAILURE() << "U+" << std::hex << value << " is " << hex(theirs) << " to iconv";
        }
    }
}

// Every codeset for which the operating system has a locale.
TEST(qvrCodesets, ExistForEveryLocaleOfTheSystem)
{
    std::ifstream supported("/usr/share/i18n/SUPPORTED");
    if (!supported)
        GTEST_SKIP() << "the list of locales is missing (Debian package locales)";
    size_t locales = 0;
    for (std::string locale, codeset; supported >> locale >> codeset; ++locales)
        EXPECT_NE(nullptr, qvr_cs_t(Codeset(codeset.c_str()))) << locale << ' ' << codeset;
    EXPECT_LT(100u, locales);
}

}  // namespace
