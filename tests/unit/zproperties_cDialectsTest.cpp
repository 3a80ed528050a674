#include <Z/zproperties_c.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

namespace {

std::string recognised(char const* file, std::string const& text = "")
{
    char const* dialect = "(unchanged)";
    EXPECT_EQ(0, zstzPropRecognise_6_0(file, text.data(), text.size(), &dialect));
    return dialect != nullptr ? dialect : "(null)";
}

}  // namespace

TEST(ZPropertiesCDialects, EachNameIsADialect)
{
    std::set<std::string> names;
    int count = 0;
    for (; zstzPropGetDialectName_6_0(count) != nullptr; ++count) {
        char const* const name = zstzPropGetDialectName_6_0(count);
        EXPECT_EQ(0, zstzPropCheckDialect_6_0(name)) << name;
        names.insert(name);
    }
    EXPECT_STREQ("stanza", zstzPropGetDialectName_6_0(0));
    EXPECT_EQ(static_cast<size_t>(count), names.size());
    for (char const* const name : {"systemd", "desktop", "git", "python", "env"})
        EXPECT_EQ(1u, names.count(name)) << name;
    EXPECT_EQ(nullptr, zstzPropGetDialectName_6_0(-1));
    EXPECT_EQ(nullptr, zstzPropGetDialectName_6_0(count + 1));
}

TEST(ZPropertiesCDialects, SwitchesAreChecked)
{
    EXPECT_EQ(0, zstzPropCheckDialect_6_0("python,trailing=#;,trailingNeeds=blankBefore"));
    for (char const* const bad :
         {"", "nothing", "python,nothing=1", "python,trailing=nothing", "Python"})
        EXPECT_EQ(58, zstzPropCheckDialect_6_0(bad)) << bad;
    EXPECT_EQ(55, zstzPropCheckDialect_6_0(nullptr));
}

TEST(ZPropertiesCDialects, NamesOfFilesImplyDialects)
{
    EXPECT_EQ("python", recognised("/somewhere/setup.cfg"));
    EXPECT_EQ("git", recognised(".gitmodules"));
    EXPECT_EQ("python,trailing=semicolon,trailingNeeds=blankBefore",
              recognised("/etc/fail2ban/jail.conf"));
    EXPECT_EQ("(null)", recognised("app.conf"));
    EXPECT_EQ("systemd", recognised("a.service", "[Unit]\n"));
    EXPECT_EQ("desktop", recognised("a.service", "[D-BUS Service]\n"));

    char const* dialect = "(unchanged)";
    EXPECT_EQ(55, zstzPropRecognise_6_0(nullptr, nullptr, 0, &dialect));
    EXPECT_EQ(55, zstzPropRecognise_6_0("a", nullptr, 1, &dialect));
    EXPECT_EQ(55, zstzPropRecognise_6_0("a", nullptr, 0, nullptr));
    EXPECT_STREQ("(unchanged)", dialect);
    EXPECT_EQ(0, zstzPropRecognise_6_0("a", nullptr, 0, &dialect));
    EXPECT_EQ(nullptr, dialect);
}
