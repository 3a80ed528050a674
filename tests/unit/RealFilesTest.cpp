// Loads, stores and loads again every configuration file of the machine, and compares the results
// with a model of the format that is short enough to be checked by eye.
#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZStanzaFileProperties.h>
#include <Z/ZStanzaProblem.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "MachineFiles.h"

namespace {

namespace fs = std::filesystem;

using Values = std::vector<std::string>;

std::string trimmed(std::string const& text)
{
    size_t begin = 0;
    size_t end = text.size();
    while (end > begin && isspace(static_cast<unsigned char>(text[end - 1])))
        --end;
    while (begin < end && isspace(static_cast<unsigned char>(text[begin])))
        ++begin;
    return text.substr(begin, end - begin);
}

// The model: the entries of a file, and its text after a store.
struct Model {
    explicit Model(std::string const& bytes)
    {
        size_t at = 0;
        while (at < bytes.size() && badLine == 0) {
            size_t const feed = bytes.find('\n', at);
            size_t const length =
                std::min<size_t>(8191, (feed == std::string::npos ? bytes.size() : feed + 1) - at);
            ++lines;
            addLine(trimmed(bytes.substr(at, length).c_str()));  // a zero byte ends the line
            at += length;
        }
    }

    void addLine(std::string const& line)
    {
        size_t const equals = line.find('=');
        size_t const bracket = line.find(']');
        if (line.empty() || line[0] == '#') {
            order.push_back({line, ""});
        } else if (line[0] == '[') {
            if (bracket == std::string::npos ||
                !stanzas.emplace(line.substr(1, bracket - 1), std::map<std::string, Values>())
                     .second)
                return refuse(line);
            stanza = line.substr(1, bracket - 1);
            order.push_back({"[" + stanza + "]", ""});
        } else if (order.empty() || stanzas.empty() || equals == 0 || equals == std::string::npos) {
            refuse(line);
        } else {
            std::string const key = trimmed(line.substr(0, equals));
            std::string const value = trimmed(line.substr(equals + 1));
            auto const [entry, isNew] = stanzas[stanza].emplace(key, Values());
            if (!value.empty())
                entry->second.push_back(value);
            if (isNew)
                order.push_back({stanza, key});
        }
    }

    void refuse(std::string const& line)
    {
        badLine = lines;
        badText = line;
    }

    std::string text() const
    {
        std::string out;
        for (auto const& [first, key] : order) {
            if (key.empty()) {
                out += first + "\n";
                continue;
            }
            Values const& values = stanzas.at(first).at(key);
            for (std::string const& value : values)
                out += key + " = " + value + "\n";
            if (values.empty())
                out += key + " =\n";
        }
        return out;
    }

    int lines = 0;
    int badLine = 0;
    std::string badText;
    std::string stanza;
    std::map<std::string, std::map<std::string, Values>> stanzas;
    std::vector<std::pair<std::string, std::string>> order;  // text, or stanza and key
};

std::string bytesOf(fs::path const& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void expectSame(Model const& model, ZStanzaFileProperties_6_0 const& store)
{
    ASSERT_EQ(static_cast<int>(model.stanzas.size()), store.count());
    for (auto const& [stanza, keys] : model.stanzas) {
        if (stanza.empty())
            continue;  // no caller can name the stanza of the header "[]"
        ASSERT_EQ(static_cast<int>(keys.size()), store.count(stanza.c_str())) << stanza;
        for (auto const& [key, values] : keys) {
            ZArrayList_6_0 list(2, 1);
            store.getValues(stanza.c_str(), key.c_str(), list, static_cast<ZPropertyStringType>(0));
            ASSERT_EQ(values.size(), list.size()) << stanza << "/" << key;
            for (unsigned i = 0; i < list.size(); ++i)
                ASSERT_EQ(values[i], static_cast<ZLCString_6_0 const*>(list.get(i))->getChars());
        }
    }
}

std::vector<fs::path> configurationFiles()
{
    std::set<std::string> const kinds = {".conf",   ".ini",   ".cnf",    ".service",
                                         ".socket", ".timer", ".desktop"};
    std::vector<fs::path> found;
    forEachMachineFile([&](fs::directory_entry const& entry) {
        std::error_code bad;
        if (kinds.count(entry.path().extension().string()) &&
            fs::is_regular_file(entry.path(), bad))
            found.push_back(entry.path());
    });
    return found;
}

template <class Predicate>
ZStanzaProblem_6_0 const* findProblem(ZArrayList_6_0 const& problems, Predicate predicate)
{
    for (unsigned i = 0; i < problems.size(); ++i) {
        auto const* const problem = static_cast<ZStanzaProblem_6_0 const*>(problems.get(i));
        if (predicate(*problem))
            return problem;
    }
    return nullptr;
}

bool isError(ZStanzaProblem_6_0 const& problem)
{
    return problem.kind() == ZStanzaProblem_6_0::error;
}

// Returns whether a store changes the line. It keeps carriage returns that do not end a line.
bool isChange(ZStanzaProblem_6_0 const& problem)
{
    return problem.cause() != ZStanzaProblem_6_0::loneReturn;
}

bool hasLongLine(std::string const& bytes)
{
    size_t begin = 0;
    for (size_t end; (end = bytes.find('\n', begin)) != bytes.npos; begin = end + 1)
        if (end - begin > 8190)
            return true;
    return bytes.size() - begin > 8190;
}

}  // namespace

TEST(RealFiles, AreRefusedAtTheLineOfTheModelOrSurviveUnchanged)
{
    // In memory if possible: a store waits for the disk several times.
    fs::path const shared = "/dev/shm";
    fs::path const root = access(shared.c_str(), W_OK) == 0 ? shared : fs::path(testing::TempDir());
    fs::path const dir = root / ("real." + std::to_string(getpid()));
    fs::create_directory(dir);
    fs::path const copy = dir / "copy";
    int kept = 0;
    int refused = 0;
    int clean = 0;
    for (fs::path const& path : configurationFiles()) {
        SCOPED_TRACE(path);
        std::string const bytes = bytesOf(path);
        Model const model(bytes);
        std::ofstream(copy, std::ios::binary) << bytes;
        ZArrayList_6_0 problems(4, 1);
        ZStanzaFileProperties_6_0::findProblems(copy.c_str(), problems);
        ZStanzaProblem_6_0 const* const error = findProblem(problems, isError);
        try {
            ZStanzaFileProperties_6_0 store(copy.c_str(), 1);
            ASSERT_EQ(0, model.badLine) << "accepted, the model refuses " << model.badText;
            expectSame(model, store);
            store.store(copy.c_str());
            ASSERT_EQ(model.text(), bytesOf(copy));
            ASSERT_EQ(nullptr, error) << error->text().getChars();
            ASSERT_EQ(bytes == bytesOf(copy), findProblem(problems, isChange) == nullptr);
            clean += problems.size() == 0 ? 1 : 0;
            ZStanzaFileProperties_6_0 again(copy.c_str(), 1);
            expectSame(model, again);
            again.store(copy.c_str());
            ASSERT_EQ(model.text(), bytesOf(copy));
            ++kept;
        } catch (ZPropertiesInvalidDataException_6_0 const& e) {
            ASSERT_EQ(model.badLine, e.badline());
            ASSERT_EQ(model.badText, e.baddata().getChars());
            ASSERT_NE(nullptr, error);
            // The line numbers differ after a line that is too long.
            if (!hasLongLine(bytes)) {
                ASSERT_EQ(static_cast<unsigned long>(e.badline()), error->line());
            }
            ASSERT_STREQ(copy.c_str(), e.propFile().getChars());
            ASSERT_EQ(bytes, bytesOf(copy));
            ++refused;
        }
    }
    fs::remove_all(dir);
    std::cout << kept << " files kept, " << clean << " of them without a problem, " << refused
              << " refused\n";
    EXPECT_GT(kept, 0);
    EXPECT_GT(refused, 0);
}
