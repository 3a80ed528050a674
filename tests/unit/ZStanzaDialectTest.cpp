// The table of dialects: its switches, their names, and the dialect of a file from its name.
#include <Z/ZException.h>
#include <Z/ZStanzaDialect.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <string>
#include <vector>

#include "DialectNames.h"
#include "DialectTable.h"
#include "MachineFiles.h"
#include "Raised.h"
#include "TestDirectory.h"

namespace fs = std::filesystem;

namespace {

using Dialect = ZStanzaDialect_6_0;

constexpr int kSwitches = zDialectJoinedHeads + 1;

// The switches of the model's row, in the order of ZStanzaSwitch.
std::vector<int> valuesOf(dialect_model::Switches const& rules)
{
    auto const number = [](auto value) { return static_cast<int>(value); };
    return {number(rules.marks),
            number(rules.trailing),
            number(rules.trailingNeeds),
            number(rules.heads),
            number(rules.top),
            number(rules.repeatedHead),
            number(rules.separators),
            number(rules.keyAlone),
            number(rules.join),
            number(rules.joinSkipsComments),
            number(rules.commentsJoin),
            number(rules.quotes),
            number(rules.quoting),
            number(rules.escapes),
            number(rules.unknownEscape),
            number(rules.foldStanzas),
            number(rules.foldKeys),
            number(rules.dropBlanks),
            number(rules.dashes),
            number(rules.markers),
            number(rules.repeatedKey),
            number(rules.emptyValues),
            number(rules.blanksAtEnd),
            number(rules.byteOrderMark),
            number(rules.separatorStyle),
            number(rules.indentStyle),
            number(rules.notPlain),
            number(rules.newKeys),
            number(rules.commentStyle),
            number(rules.lineLimit),
            number(rules.refusals),
            number(rules.names),
            number(rules.lone),
            number(rules.newStanzas),
            number(rules.notPlainMore),
            number(rules.nonAscii),
            number(rules.blankRuns),
            number(rules.paths),
            number(rules.joinedHeads)};
}

std::vector<int> valuesOf(Dialect const& dialect)
{
    std::vector<int> values;
    for (int which = 0; which < kSwitches; ++which)
        values.push_back(dialect.get(static_cast<ZStanzaSwitch>(which)));
    return values;
}

Dialect named(std::string const& name)
{
    Dialect dialect;
    EXPECT_EQ(1, Dialect::named(name.c_str(), dialect)) << name;
    return dialect;
}

std::string recognised(std::string const& path, std::string const& text)
{
    Dialect dialect;
    return Dialect::recognised(path.c_str(), text.data(), text.size(), dialect) == 0
               ? "stanza"
               : dialect.name();
}

// The contents of a file up to its limit; the first header of a .service file is near its start.
std::string startOf(fs::path const& path)
{
    std::ifstream in(path, std::ios::binary);
    std::string text(4096, '\0');
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(in.gcount()));
    return text;
}

}  // namespace

TEST(ZStanzaDialect, HasTheSwitchesOfTheModelInEachRow)
{
    for (dialect_model::Dialect const& row : dialect_model::kDialects) {
        SCOPED_TRACE(row.name);
        Dialect const dialect = named(std::string(row.name));
        EXPECT_EQ(row.name, dialect.name());
        EXPECT_EQ(valuesOf(row.rules), valuesOf(dialect));
    }
}

TEST(ZStanzaDialect, ListsTheNamesOfAllDialects)
{
    int index = 0;
    for (dialect_model::Dialect const& row : dialect_model::kDialects)
        EXPECT_EQ(row.name, Dialect::nameAt(index++));
    EXPECT_EQ(nullptr, Dialect::nameAt(index));
    EXPECT_EQ(nullptr, Dialect::nameAt(-1));
    EXPECT_EQ(nullptr, Dialect::nameAt(INT_MAX));
}

TEST(ZStanzaDialect, IsStanzaByDefault)
{
    EXPECT_STREQ("stanza", Dialect().name());
    EXPECT_EQ(valuesOf(named("stanza")), valuesOf(Dialect()));
}

TEST(ZStanzaDialect, IsCopiedAsAValue)
{
    Dialect const original = named("php");
    Dialect copy = original;
    copy.set(zDialectFoldKeys, 1);
    EXPECT_EQ(0, original.get(zDialectFoldKeys));
    EXPECT_EQ(1, copy.get(zDialectFoldKeys));
    copy = original;
    EXPECT_EQ(valuesOf(original), valuesOf(copy));
}

TEST(ZStanzaDialect, ANameCanHaveSwitchesAfterIt)
{
    struct Case {
        char const* name;
        ZStanzaSwitch which;
        int value;
    };
    Case const cases[] = {
        {"python,trailing=#;", zDialectTrailing, 3},
        {"python,trailing=hash", zDialectTrailing, 1},
        {"python,trailing=;+hash", zDialectTrailing, 3},
        {"python,marks=none", zDialectMarks, 0},
        {"python,marks=", zDialectMarks, 0},
        {"python,separators==", zDialectSeparators, 1},
        {"python,separators==:", zDialectSeparators, 3},
        {"env,separators=equals+tight", zDialectSeparators, 5},
        {"php,quotes=\"", zDialectQuotes, 1},
        {"php,join=openQuote+insideValue", zDialectJoin, 12},
        {"php,foldKeys=yes", zDialectFoldKeys, 1},
        {"samba,foldKeys=no", zDialectFoldKeys, 0},
        {"ini,heads=none", zDialectHeads, 0},
        {"ini,heads=bracketedGroups,foldKeys=yes", zDialectHeads, 6},
        {"ini,heads=none,heads=alone", zDialectHeads, 3},
        {"ini,join=openQuote,quoting=whole,quotes='", zDialectQuoting, 3},
        {"ini,", zDialectHeads, 1},
        {"stanza,heads=toBracket", zDialectHeads, 1},
    };
    for (Case const& c : cases)
        EXPECT_EQ(c.value, named(c.name).get(c.which)) << c.name;
    EXPECT_STREQ("python", named("python,trailing=#;").name());
}

TEST(ZStanzaDialect, ANameThatHasNoMeaningChangesNothing)
{
    char const* const names[] = {nullptr,
                                 "",
                                 ",",
                                 "pump",
                                 "Python",
                                 "python ",
                                 " python",
                                 "python;",
                                 "python,pump=1",
                                 "python,trailing",
                                 "python,trailing=!",
                                 "python,trailing=x",
                                 "python,Trailing=#",
                                 "python,heads=1",
                                 "python,heads=",
                                 "python,heads=none+alone",
                                 "python,foldKeys=2",
                                 "python,,trailing=#",
                                 "python,separators=tight",
                                 "python,separators=none",
                                 "python,join=asBlank+indented",
                                 "python,emptyValues=none",
                                 "stanza,heads=none",
                                 "stanza,emptyValues=value"};
    for (char const* const name : names) {
        Dialect dialect = named("git,foldKeys=no");
        std::vector<int> const before = valuesOf(dialect);
        EXPECT_EQ(0, Dialect::named(name, dialect)) << (name == nullptr ? "null" : name);
        EXPECT_STREQ("git", dialect.name());
        EXPECT_EQ(before, valuesOf(dialect));
    }
}

TEST(ZStanzaDialect, EachWordOfEachSwitchIsAValueOfIt)
{
    // From a dialect in which most values fit. The last word of a switch is its largest value.
    char const* const names[] = {"ini,marks=hash+semicolon+directive",
                                 "ini,trailing=hash+semicolon",
                                 "ini,trailingNeeds=blankBeforeInValue",
                                 "ini,heads=toBracketTrimmed",
                                 "ini,top=stanza",
                                 "ini,repeatedHead=separate",
                                 "ini,separators=equals+colon+tight",
                                 "ini,keyAlone=option",
                                 "ini,join=indented",
                                 "ini,joinSkipsComments=yes",
                                 "ini,commentsJoin=yes",
                                 "ini,quotes=double+single",
                                 "ini,quoting=ends",
                                 "ini,escapes=environment",
                                 "git,unknownEscape=refused",
                                 "ini,foldStanzas=beforeSubsection",
                                 "ini,foldKeys=yes",
                                 "ini,dropBlanks=yes",
                                 "ini,dashes=yes",
                                 "ini,markers=dollarSuffix+minusPrefix+exportPrefix",
                                 "ini,repeatedKey=lastOrPhpList",
                                 "ini,emptyValues=reset",
                                 "ini,blanksAtEnd=yes",
                                 "ini,byteOrderMark=yes",
                                 "ini,separatorStyle=tightEquals",
                                 "ini,indentStyle=tab",
                                 "ini,notPlain=constants",
                                 "ini,newKeys=php",
                                 "ini,commentStyle=semicolon",
                                 "ini,lineLimit=bytes4094",
                                 "ini,refusals=php",
                                 "ini,names=escaped",
                                 "ini,returns=lineEnd",
                                 "ini,newStanzas=trimmed",
                                 "ini,notPlainMore=lineSeparators",
                                 "ini,nonAscii=escaped",
                                 "ini,blankRuns=first",
                                 "ini,paths=dotsOrSlashes",
                                 "ini,joinedHeads=first"};
    int const largest[] = {7, 3, 2, 7, 2, 2, 7,   3, 16, 1, 1,  3, 4, 7, 3, 2, 1, 1, 1, 7,
                           4, 2, 1, 1, 1, 1, 128, 2, 1,  1, 16, 2, 1, 2, 2, 1, 1, 1, 2};
    static_assert(std::size(names) == kSwitches && std::size(largest) == kSwitches);
    for (int which = 0; which < kSwitches; ++which)
        EXPECT_EQ(largest[which], named(names[which]).get(static_cast<ZStanzaSwitch>(which)))
            << names[which];
}

TEST(ZStanzaDialect, SetRefusesAValueThatIsNoneAndChangesNothing)
{
    int const numbers[] = {-1, INT_MIN, INT_MAX, 8, 32, 255, 256, 257};
    for (int which = -2; which < kSwitches + 40; ++which) {
        for (int const number : numbers) {
            if (which == zDialectNotPlain && number >= 0 && number < 256)
                continue;  // a set of eight
            if (which == zDialectRefusals && number == 8)
                continue;
            SCOPED_TRACE(std::to_string(which) + " " + std::to_string(number));
            Dialect dialect = named("ini");
            std::vector<int> const before = valuesOf(dialect);
            try {
                dialect.set(static_cast<ZStanzaSwitch>(which), number);
                EXPECT_TRUE(number == 8 && which == zDialectJoin);
            } catch (ZInvalidParameterException_6_0 const&) {
            }
            EXPECT_EQ(before, valuesOf(dialect));
        }
        if (which >= 0 && which < kSwitches)
            continue;
        EXPECT_THROW(Dialect().get(static_cast<ZStanzaSwitch>(which)),
                     ZInvalidParameterException_6_0);
        EXPECT_THROW(named("ini").set(static_cast<ZStanzaSwitch>(which), 0),
                     ZInvalidParameterException_6_0);
    }
}

TEST(ZStanzaDialect, SetRefusesSwitchesThatDoNotFitTogether)
{
    struct Case {
        char const* name;
        ZStanzaSwitch which;
        int value;
    };
    Case const cases[] = {
        {"stanza", zDialectFoldKeys, 1},
        {"stanza", zDialectEmptyValues, 1},
        {"ini", zDialectEmptyValues, 0},
        {"ini", zDialectSeparators, 0},
        {"ini", zDialectSeparators, 4},
        {"ini", zDialectJoin, 3},
        {"ini", zDialectJoin, 4},
        {"ini", zDialectJoin, 8},
        {"ini", zDialectJoin, 17},
        {"ini", zDialectUnknownEscape, 3},
        {"ini", zDialectHeads, 4},
        {"desktop", zDialectJoin, 1},
        {"systemd", zDialectBlanksAtEnd, 1},
        {"systemd", zDialectQuoting, 1},
        {"php", zDialectJoin, 16},
        {"php", zDialectTrailingNeeds, 2},
        {"mysql", zDialectTrailingNeeds, 1},
        {"git", zDialectTrailingNeeds, 1},
        {"git", zDialectKeyAlone, 1},
        {"git", zDialectMarkers, 1},
        {"git", zDialectSeparators, 5},
        {"python", zDialectEscapes, 1},
        {"python", zDialectQuoting, 4},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(std::string(c.name) + " " + std::to_string(c.which));
        Dialect dialect = named(c.name);
        std::vector<int> const before = valuesOf(dialect);
        EXPECT_THROW(dialect.set(c.which, c.value), ZInvalidParameterException_6_0);
        EXPECT_EQ(before, valuesOf(dialect));
    }
}

TEST(ZStanzaDialect, SetTakesEachValueOfARowAgain)
{
    for (dialect_model::Dialect const& row : dialect_model::kDialects) {
        Dialect dialect = named(std::string(row.name));
        for (int which = 0; which < kSwitches; ++which)
            dialect.set(static_cast<ZStanzaSwitch>(which),
                        dialect.get(static_cast<ZStanzaSwitch>(which)));
        EXPECT_EQ(valuesOf(row.rules), valuesOf(dialect)) << row.name;
    }
}

TEST(ZStanzaDialect, RecognisesANameThatOnlyOneFormatUses)
{
    for (dialect_model::DialectName const& name : dialect_model::kDialectNames) {
        std::string path = name.pattern;
        for (char const* const piece : {"", "pump", "/srv/x", "a.d/b"}) {
            std::string full = path;
            for (std::size_t at; (at = full.find('*')) != std::string::npos;)
                full.replace(at, 1, piece);
            for (char const* const text :
                 {"", "[Unit]\n", "#[a]\n \t[D-BUS Service]\t\r\nName=x\n", "[D-BUS Service] x"}) {
                EXPECT_EQ(dialect_model::dialectOf(full, text), recognised(full, text)) << full;
                EXPECT_EQ(dialect_model::dialectOf(full + "~", text), recognised(full + "~", text));
            }
        }
    }
    for (char const* const path : {"", "/", ".", "x.conf", "/etc/ssl/openssl.cnf", "setup.cfg",
                                   "my_setup.cfg", ".gitmodules", "/etc/default/", "*",
                                   "a\n.service", "/systemd/.conf.d/.conf", "x/php/y/z.ini"})
        EXPECT_EQ(dialect_model::dialectOf(path, ""), recognised(path, "")) << path;
}

// The patterns that name directories match a relative path as they match the absolute path.
TEST(ZStanzaDialect, RecognisesEachNameByEveryPathToIt)
{
    TestDirectory const directory;
    fs::path const old = fs::current_path();
    fs::path const root = fs::canonical(directory.at("."));
    for (dialect_model::DialectName const& name : dialect_model::kDialectNames) {
        std::string pattern = name.pattern;
        for (std::size_t at; (at = pattern.find('*')) != std::string::npos;)
            pattern.replace(at, 1, at == 0 && pattern.starts_with("*/") ? "." : "pump");
        fs::path const file = (root / pattern).lexically_normal();
        fs::create_directories(file.parent_path() / "x");
        std::string const expected = recognised(file, name.firstHeader);
        Dialect found;
        Dialect::recognised(file.c_str(), name.firstHeader, strlen(name.firstHeader), found);
        EXPECT_EQ(valuesOf(named(std::string(name.dialect) + name.variation)), valuesOf(found))
            << file;
        EXPECT_EQ(name.dialect, expected) << file;
        for (fs::path const& from : {root, file.parent_path(), file.parent_path() / "x"}) {
            fs::current_path(from);
            std::string const relative = file.lexically_relative(from);
            for (std::string const& path : {relative, "./" + relative, ".//x/../" + relative}) {
                EXPECT_EQ(expected, recognised(path, name.firstHeader)) << from << " " << path;
                EXPECT_EQ(expected, recognised(path + ".bak", name.firstHeader)) << path;
            }
        }
        fs::current_path(old);
    }
    fs::current_path("/");
    EXPECT_EQ("env", recognised("etc/default/grub", ""));
    EXPECT_EQ("env", recognised("../../etc/default/grub", ""));
    fs::current_path(old);
}

TEST(ZStanzaDialect, GivesACopyTheDialectOfTheOriginal)
{
    struct Case {
        char const* path;
        char const* dialect;
    };
    Case const cases[] = {
        {"/a/php.ini.bak", "php"},
        {"/a/php.ini~", "php"},
        {"/a/php.ini.~12~", "php"},
        {"/a/php.ini.dpkg-dist", "php"},
        {"/a/php.ini.ucf-old", "php"},
        {"/a/smb.conf.rpmnew", "samba"},
        {"/a/x.service.orig", "systemd"},
        {"/a/os-release.bak~", "env"},
        {"/etc/sysctl.d/x.conf.example", "sysctl"},
        {"/a/app.conf.bak", "stanza"},
        {"/a/php.ini.~x~", "stanza"},
        {"/a/php.ini.baker", "stanza"},
        {"/a/dpkg-old", "stanza"},
        {"/a/~", "stanza"},
        {"/a/.bak", "stanza"},
        {"/php.ini.d/.bak", "stanza"},
        {"/a/.env", "stanza"},
    };
    for (Case const& c : cases) {
        EXPECT_EQ(c.dialect, recognised(c.path, "")) << c.path;
        EXPECT_EQ(c.dialect, dialect_model::dialectOf(c.path, "")) << c.path;
    }
    EXPECT_EQ("desktop", recognised("/a/x.service~", "[D-BUS Service]\n"));
}

TEST(ZStanzaDialect, RecognisesNothingWithoutAPathAndTakesBytesThatAreNoText)
{
    Dialect dialect = named("git");
    EXPECT_EQ(0, Dialect::recognised(nullptr, nullptr, 0, dialect));
    EXPECT_EQ(0, Dialect::recognised("pump.conf", nullptr, 0, dialect));
    EXPECT_STREQ("git", dialect.name());
    EXPECT_EQ(1, Dialect::recognised("/srv/\xff\xfe/\xe4.desktop", nullptr, 0, dialect));
    EXPECT_STREQ("desktop", dialect.name());
    EXPECT_EQ("systemd", recognised("x.service", std::string("\0[\0\n\xff", 5)));
}

TEST(ZStanzaDialect, RecognisesThePathsOfThisMachineAsTheModel)
{
    int known = 0;
    int all = 0;
    forEachMachineFile([&](fs::directory_entry const& entry) {
        std::string const path = entry.path();
        std::error_code error;
        bool const isService = path.ends_with(".service") && entry.is_regular_file(error);
        std::string const text = isService ? startOf(path) : "";
        std::string const expected = dialect_model::dialectOf(path, text);
        EXPECT_EQ(expected, recognised(path, text)) << path;
        ++all;
        known += expected == "stanza" ? 0 : 1;
    });
    std::printf("%d of %d paths are of a dialect\n", known, all);
    EXPECT_LT(0, all);
}

// A record with zeros after its switches keeps its meaning in later versions.
TEST(ZStanzaDialect, HasZerosAfterItsSwitches)
{
    static_assert(sizeof(Dialect) == 72);
    unsigned char filled[sizeof(Dialect)];
    std::memset(filled, 0xff, sizeof filled);
    Dialect* const dialect = new (filled) Dialect;
    ASSERT_EQ(1, Dialect::named("git,foldKeys=no", *dialect));
    for (std::size_t i = sizeof(char*) + kSwitches; i < sizeof filled; ++i)
        EXPECT_EQ(0, filled[i]) << i;
}

TEST(ZStanzaDialect, NamesItsSourceInReports)
{
    char const* const source = "src/Z/ZStanzaDialect";
    EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(
        22, source, 71, [] { Dialect().get(static_cast<ZStanzaSwitch>(kSwitches)); }));
    EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(22, source, 72,
                                                       [] { Dialect().set(zDialectHeads, 2); }));
}
