// Random files with repeated headers, comments, and lines that the format passes over, in every
// dialect: a store without a change writes the file, each change touches its own lines only, and
// comments have the key or header below them.
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZStanzaDialect.h>
#include <Z/ZStanzaFileProperties.h>
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "DialectEdits.h"
#include "DialectStore.h"
#include "Sanitizers.h"

using namespace dialect_model;

namespace {

// Files of each dialect. A sanitizer build is ten times slower.
constexpr unsigned kFiles = kHasSanitizer ? 20 : 150;

// Returns the mark of the comments of the tests: the mark that new comments get.
std::string markOf(Switches const& rules)
{
    bool const isHash = (rules.marks & hash) != 0 && ((rules.marks & semicolon) == 0 ||
                                                      rules.commentStyle == CommentStyle::hash);
    return isHash ? "#" : ";";
}

// Writes files of a dialect. Each comment and value is there once.
class Generator {
public:
    Generator(Switches const& rules, unsigned seed) : rules_(rules), random_(seed) {}

    std::string file()
    {
        std::string text = rules_.top == Top::stanza && pick(2) == 0 ? section() : lines(2, false);
        if (rules_.heads == Heads::none)
            return text + section();
        for (unsigned headers = 1 + pick(6); headers > 0; --headers) {
            text += std::string("[") + "abc"[pick(3)] + "]\n";
            text += section();
        }
        return text;
    }

    unsigned pick(unsigned count)
    {
        return std::uniform_int_distribution<unsigned>(0, count - 1)(random_);
    }

private:
    std::string section() { return lines(pick(7), true); }

    std::string lines(unsigned count, bool hasKeys)
    {
        std::string text;
        for (; count > 0; --count) {
            switch (pick(8)) {
                case 0:
                case 1:
                case 2:
                    if (hasKeys)
                        text += std::string(1, "jkl"[pick(3)]) + "=v" + number() + "\n";
                    break;
                case 3:
                    text += "\n";
                    break;
                case 4:
                    if (rules_.keyAlone == KeyAlone::passedOver ||
                        rules_.keyAlone == KeyAlone::passedOverOrNoName)
                        text += "junk" + number() + "\n";
                    break;
                default:
                    text += markOf(rules_) + " c" + number() + "\n";
                    break;
            }
        }
        return text;
    }

    std::string number() { return std::to_string(++numbers_); }

    Switches const& rules_;
    std::mt19937 random_;
    unsigned numbers_ = 0;
};

// A key, or the header of a stanza if it is empty.
using Name = std::pair<std::string, std::string>;

// A file of the generator.
struct File {
    File(std::string const& text, Switches const& rules)
    {
        std::string stanza = rules.top == Top::stanza || rules.heads == Heads::none ? "." : "";
        std::map<std::string, int> counts;
        std::string comment;
        for (std::string const& line : splitLines(text)) {
            if (line.starts_with('#') || line.starts_with(';')) {
                comment += comment.empty() ? line : "\n" + line;
                continue;
            }
            size_t const separator = line.find('=');
            if (line.starts_with('[')) {
                stanza = line.substr(1, line.size() - 2);
                if (rules.repeatedHead == RepeatedHead::separate && ++counts[stanza] > 1)
                    stanza += "]" + std::to_string(counts[stanza]);
                add({stanza, ""}, comment);
            } else if (separator != std::string::npos) {
                add({stanza, line.substr(0, separator)}, comment);
                values[{stanza, line.substr(0, separator)}].push_back(line.substr(separator + 1));
            }
            comment.clear();
        }
    }

    void add(Name const& name, std::string const& comment)
    {
        comments.try_emplace(name, comment);
        names.push_back(name);
    }

    std::vector<Name> names;               // of each header and key line
    std::map<Name, std::string> comments;  // above the first of them
    std::map<Name, std::vector<std::string>> values;
};

// Returns the name that a stanza has after the removal of another: NAME]3 is NAME]2 if NAME]2 is
// removed.
std::string withoutStanza(std::string const& stanza, std::string const& removed)
{
    auto const numberOf = [](std::string const& name) {
        return name.size() > 2 ? std::stoi(name.substr(2)) : 1;
    };
    int const number = numberOf(stanza);
    if (stanza.front() != removed.front() || number < numberOf(removed))
        return stanza;
    return stanza.substr(0, 1) + (number == 2 ? "" : "]" + std::to_string(number - 1));
}

// Returns the lines that are left of `before` if its lines in `after` are left out, and the lines
// that are new.
std::pair<std::vector<std::string>, std::vector<std::string>> differenceOf(
    std::string const& before, std::string const& after)
{
    std::vector<std::string> const a = splitLines(before);
    std::vector<std::string> const b = splitLines(after);
    std::vector<std::vector<unsigned>> longest(a.size() + 1, std::vector<unsigned>(b.size() + 1));
    for (size_t i = a.size(); i-- > 0;)
        for (size_t j = b.size(); j-- > 0;)
            longest[i][j] = a[i] == b[j] ? longest[i + 1][j + 1] + 1
                                         : std::max(longest[i + 1][j], longest[i][j + 1]);
    std::vector<std::string> removed;
    std::vector<std::string> added;
    for (size_t i = 0, j = 0; i < a.size() || j < b.size();) {
        if (i < a.size() && j < b.size() && a[i] == b[j])
            ++i, ++j;
        else if (j == b.size() || (i < a.size() && longest[i + 1][j] >= longest[i][j + 1]))
            removed.push_back(a[i++]);
        else
            added.push_back(b[j++]);
    }
    return {removed, added};
}

std::string withoutBlankLines(std::string const& text)
{
    std::string lines;
    for (std::string const& line : splitLines(text))
        if (!line.empty())
            lines += line + '\n';
    return lines;
}

// Calls `check(dialect, text, random)` for files of each dialect.
void forEachFile(std::function<void(Dialect const&, std::string const&, Generator&)> const& check)
{
    for (Dialect const& dialect : kDialects) {
        if (dialect.name == std::string("stanza"))
            continue;
        for (unsigned seed = 0; seed < kFiles; ++seed) {
            Generator generator(dialect.rules, seed);
            std::string const text = generator.file();
            if (DialectModel(text, dialect.rules).refused())
                continue;
            SCOPED_TRACE(std::string(dialect.name) + " seed " + std::to_string(seed) + "\n" + text);
            try {
                check(dialect, text, generator);
            } catch (ZException_6_0 const& e) {
                ADD_FAILURE() << e.exceptionName() << " at site " << e.where();
            }
            if (testing::Test::HasFailure())
                return;
        }
    }
}

std::set<std::string> stanzasWithHeader(File const& file)
{
    std::set<std::string> stanzas;
    for (Name const& name : file.names)
        if (name.first != ".")
            stanzas.insert(name.first);
    return stanzas;
}

}  // namespace

TEST(DialectHeaders, AStoreWithoutAChangeWritesTheFile)
{
    unsigned files = 0;
    forEachFile([&](Dialect const& dialect, std::string const& text, Generator&) {
        ZStanzaFileProperties_6_0 store(1, dialectNamed(std::string(dialect.name)));
        store.loadText(text.data(), text.size());
        EXPECT_EQ(text, textOf(store));
        ++files;
    });
    EXPECT_LT(16 * kFiles / 2, files);
}

TEST(DialectHeaders, AnEditTouchesTheLinesOfItsKey)
{
    forEachFile([&](Dialect const& dialect, std::string const& text, Generator& generator) {
        DialectModel const model(text, dialect.rules);
        for (Stanza const& stanza : model.stanzas) {
            std::vector<Edit> edits = {{Edit::add, stanza.name, "new", "first"}};
            if (!stanza.keys.empty()) {
                Key const& key =
                    stanza.keys[generator.pick(static_cast<unsigned>(stanza.keys.size()))];
                if (key.values.size() == 1) {
                    edits.push_back({Edit::set, stanza.name, key.name, "other"});
                    edits.push_back({Edit::remove, stanza.name, key.name});
                }
                edits.push_back({Edit::add, stanza.name, key.name, "more"});
            }
            for (Edit const& edit : edits) {
                SCOPED_TRACE(stanza.name + " " + edit.key + " " + std::to_string(edit.kind));
                ZStanzaFileProperties_6_0 store(1, dialectNamed(std::string(dialect.name)));
                store.loadText(text.data(), text.size());
                if (store.isAmbiguous(edit.stanza.c_str()) != 0)
                    continue;
                if (edit.kind == Edit::set)
                    store.setValue(edit.stanza.c_str(), edit.key.c_str(), edit.value.c_str());
                else if (edit.kind == Edit::remove)
                    store.deleteKey(edit.stanza.c_str(), edit.key.c_str());
                else
                    store.addValue(edit.stanza.c_str(), edit.key.c_str(), edit.value.c_str(), 0);
                std::string after;
                try {
                    after = textOf(store);
                } catch (ZException_6_0 const&) {
                    // A file without a header and a key is no file of the dialect.
                    EXPECT_TRUE(dialect.rules.heads == Heads::none && edit.kind == Edit::remove);
                    continue;
                }
                // The style of new lines is not the subject here.
                for (std::string const& broken :
                     EditCheck(dialect.rules, text, {edit}, after).broken)
                    if (!broken.starts_with("new:"))
                        ADD_FAILURE() << broken << "\n--- after\n" << after;
            }
        }
    });
}

TEST(DialectHeaders, ARemovedStanzaTakesNoLineOfAnother)
{
    unsigned made = 0;
    unsigned refused = 0;
    forEachFile([&](Dialect const& dialect, std::string const& text, Generator&) {
        File const before(text, dialect.rules);
        for (std::string const& stanza : stanzasWithHeader(before)) {
            ZStanzaFileProperties_6_0 store(1, dialectNamed(std::string(dialect.name)));
            store.loadText(text.data(), text.size());
            SCOPED_TRACE(stanza);
            bool const isFirst = store.isAmbiguous(stanza.c_str()) != 0;
            store.deleteStanza((isFirst ? stanza + "]1" : stanza).c_str());
            std::string after;
            try {
                after = textOf(store);
            } catch (ZException_6_0 const&) {
                ++refused;  // such as the only stanza, or if its comment would change its place
                continue;
            }
            ++made;
            // A blank line can be new below the comment of the removed stanza.
            auto const [removed, added] =
                differenceOf(withoutBlankLines(text), withoutBlankLines(after));
            EXPECT_TRUE(added.empty()) << after;
            for (auto const& [name, comment] : before.comments)
                if (name.first != stanza && !comment.empty()) {
                    for (std::string const& line : splitLines(comment))
                        EXPECT_EQ(0, std::count(removed.begin(), removed.end(), line))
                            << line << "\n--- after\n"
                            << after;
                }
            std::map<Name, std::vector<std::string>> expected;
            for (auto const& [name, values] : before.values)
                if (name.first != stanza)
                    expected[{withoutStanza(name.first, stanza), name.second}] = values;
            std::map<Name, std::string> comments;
            for (auto const& [name, comment] : before.comments)
                if (name.first != stanza)
                    comments[{withoutStanza(name.first, stanza), name.second}] = comment;
            File const left(after, dialect.rules);
            EXPECT_EQ(expected, left.values) << after;
            EXPECT_EQ(comments, left.comments) << after;
        }
    });
    EXPECT_LT(10 * refused, made);
}

TEST(DialectHeaders, ACommentHasTheLineBelowIt)
{
    forEachFile([&](Dialect const& dialect, std::string const& text, Generator&) {
        File const file(text, dialect.rules);
        for (auto const& [name, comment] : file.comments) {
            ZStanzaFileProperties_6_0 store(1, dialectNamed(std::string(dialect.name)));
            store.loadText(text.data(), text.size());
            if (store.isAmbiguous(name.first.c_str()) != 0)
                continue;
            SCOPED_TRACE(name.first + " " + name.second);
            char const* const stanza = name.first.c_str();
            char const* const key = name.second.empty() ? nullptr : name.second.c_str();
            ZLCString_6_0 found;
            store.getComment(stanza, key, found);
            EXPECT_EQ(comment, found.getChars());
            std::string const changed = markOf(dialect.rules) + " new";
            store.setComment(stanza, key, changed.c_str());
            std::string const after = textOf(store);
            EXPECT_EQ(changed, File(after, dialect.rules).comments.at(name)) << after;
            auto [removed, added] = differenceOf(text, after);
            std::erase(added, "");  // where the comments of the file have a blank line above
            EXPECT_EQ(comment.empty() ? std::vector<std::string>() : splitLines(comment), removed)
                << after;
            EXPECT_EQ(std::vector<std::string>{changed}, added) << after;
            store.loadText(after.data(), after.size());
            EXPECT_EQ(1, store.getComment(stanza, key, found));
            EXPECT_EQ(changed, found.getChars());
        }
    });
}

TEST(DialectHeaders, ARenamedStanzaReadsBackAtItsPlace)
{
    forEachFile([&](Dialect const& dialect, std::string const& text, Generator&) {
        File const before(text, dialect.rules);
        for (std::string const& stanza : stanzasWithHeader(before)) {
            for (char const* const name : {"a", "b", "z", "a]1", "b]2", "c]3"}) {
                if (strchr(name, ']') != nullptr &&
                    dialect.rules.repeatedHead != RepeatedHead::separate)
                    continue;
                SCOPED_TRACE(stanza + " to " + name);
                ZStanzaFileProperties_6_0 store(1, dialectNamed(std::string(dialect.name)));
                store.loadText(text.data(), text.size());
                try {
                    store.renameStanza(stanza.c_str(), name);
                } catch (ZInvalidParameterException_6_0 const&) {
                    EXPECT_EQ(text, textOf(store));
                    continue;
                }
                std::string const after = textOf(store);
                auto const [removed, added] = differenceOf(text, after);
                for (std::string const& line : removed)
                    EXPECT_EQ("[" + stanza.substr(0, 1) + "]", line) << after;
                EXPECT_EQ(removed.size(), added.size()) << after;
                for (auto const& [names, values] : File(after, dialect.rules).values) {
                    ZLCString_6_0 found;
                    store.getValue(names.first.c_str(), names.second.c_str(), found, 0, nullptr);
                    bool const isFirst = dialect.rules.repeatedKey == RepeatedKey::first;
                    EXPECT_EQ(isFirst ? values.front() : values.back(), found.getChars())
                        << names.first << " " << names.second << "\n"
                        << after;
                }
            }
        }
    });
}
