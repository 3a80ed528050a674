// Which names of codesets are equal: the same as in ICU.
#include <gtest/gtest.h>
#include <qvr/codeset_names_p.h>
#include <unicode/ucnv.h>

#include <random>
#include <string>
#include <vector>

namespace {

// All strings of at most `length` of the characters.
std::vector<std::string> stringsOf(std::string const& characters, size_t length)
{
    std::vector<std::string> all = {""};
    size_t begin = 0;
    for (size_t n = 1; n <= length; ++n) {
        size_t const end = all.size();
        for (size_t i = begin; i < end; ++i)
            for (char const c : characters)
                all.push_back(all[i] + c);
        begin = end;
    }
    return all;
}

TEST(qvrCodesetNames, AreEqualIfTheyAreInICU)
{
    std::vector<std::string> const names = stringsOf("01aB-", 4);
    for (std::string const& a : names)
        for (std::string const& b : names)
            ASSERT_EQ(ucnv_compareNames(a.c_str(), b.c_str()) == 0, qvr::isSameCodesetName(a, b))
                << a << " and " << b;
}

TEST(qvrCodesetNames, LongNamesOfAnyBytesAreEqualIfTheyAreInICU)
{
    std::mt19937 random(6402);
    std::string const frequent = "0001290aAzZ-_ .:\x80\xFF@[`{/";
    // Changes a name in a place: the result is equal to it in one case of two.
    auto const change = [&](std::string name) {
        size_t const at = random() % (name.size() + 1);
        if (random() % 2 == 0 || at == name.size())
            name.insert(at, 1, frequent[random() % frequent.size()]);
        else if (name[at] != ' ')
            name[at] = static_cast<char>(name[at] ^ 0x20);
        return name;
    };
    int equal = 0;
    for (int i = 0; i < 200000; ++i) {
        std::string a;
        for (unsigned n = random() % 12; n > 0; --n)
            a += frequent[random() % frequent.size()];
        std::string const b = change(a);
        bool const isSame = ucnv_compareNames(a.c_str(), b.c_str()) == 0;
        equal += isSame;
        ASSERT_EQ(isSame, qvr::isSameCodesetName(a, b)) << a << " and " << b;
    }
    EXPECT_LT(20000, equal);
    EXPECT_GT(180000, equal);
}

}  // namespace
