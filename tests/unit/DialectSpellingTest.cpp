// The library makes the edits of the sample files in every dialect. EditCheck checks each new text,
// and the library refuses only edits that the slow writer of the model refuses.
#include <Z/dialects/switched_dialect.h>
#include <Z/dialects/table.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "DialectEdits.h"
#include "DialectFiles.h"
#include "DialectNames.h"
#include "DialectRewriter.h"
#include "DialectWriter.h"
#include "Sanitizers.h"

namespace fs = std::filesystem;
using namespace dialect_model;

namespace {

std::string bytesOf(fs::path const& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

struct Counts {
    int made = 0;
    int refused = 0;  // by both writers
    int reported = 0;
};

// Edits a file with the library, and checks every result.
class Editor {
public:
    Editor(std::string name, std::string_view dialect, std::string text, Counts& counts)
        : name_(std::move(name)),
          rules_(findDialect(dialect)->rules),
          dialect_(zdialects::dialectWith(zdialects::findRow(dialect)->switches)),
          text_(std::move(text)),
          model_(text_, rules_),
          counts_(counts)
    {
    }

    // Skips the writer of the model, which is slow, if the library refuses an edit.
    void trustRefusals() { asksModel_ = false; }

    bool canRun() const { return !model_.refused() && !text_.empty(); }

    DialectModel const& model() const { return model_; }

    std::optional<std::string> write(std::string const& text, std::vector<Edit> const& edits) const
    {
        return DialectRewriter(*dialect_, text).write(edits);
    }

    // Returns whether the edit is one of a list of values: not of lines without a value.
    bool isPossible(Edit const& edit) const
    {
        DialectRewriter rewriter(*dialect_, text_);
        if (!rewriter.isKnown(edit)) {
            ADD_FAILURE() << name_ << ": [" << edit.stanza << "] " << edit.key << " is not read";
            return false;
        }
        return !rewriter.isMixed(edit) && !(edit.kind == Edit::add && rewriter.isAlone(edit));
    }

    void check(std::vector<Edit> const& edits)
    {
        for (Edit const& edit : edits)
            if (!isPossible(edit))
                return;
        std::optional<std::string> const after = write(text_, edits);
        if (!after && !asksModel_) {
            ++counts_.refused;
            return;
        }
        if (!after) {
            std::optional<std::string> const byModel = DialectWriter(rules_).write(text_, edits);
            if (byModel)
                report(edits, "the library refuses this edit", *byModel);
            else
                ++counts_.refused;
            return;
        }
        ++counts_.made;
        EditCheck const result(rules_, text_, edits, *after);
        std::string broken;
        for (std::string const& text : result.broken)
            broken += "\n  " + text;
        if (!broken.empty())
            report(edits, broken, *after);
    }

    void checkOnce(Edit const& a, Edit const& b)
    {
        if (!isPossible(a) || !isPossible(b))
            return;
        EditCheck::Writer const writer = [&](std::string const& text,
                                             std::vector<Edit> const& edits) {
            return write(text, edits);
        };
        if (!EditCheck::once(writer, text_, a, b))
            report({a, b}, "once: the order of the edits matters", "");
    }

private:
    void report(std::vector<Edit> const& edits, std::string const& problem,
                std::string const& after)
    {
        constexpr int kMaxReports = 4;
        if (++counts_.reported > kMaxReports)
            return;
        std::string changes;
        for (Edit const& edit : edits)
            changes += " kind " + std::to_string(edit.kind) + " [" + edit.stanza + "] " + edit.key +
                       " index " + std::to_string(edit.index) + " value <" + edit.value + ">";
        constexpr std::size_t kMaxShown = 3000;
        ADD_FAILURE() << name_ << changes << ": " << problem << "\nbefore:\n"
                      << text_.substr(0, kMaxShown) << "\nafter:\n"
                      << after.substr(0, kMaxShown);
    }

    std::string const name_;
    Switches const rules_;
    std::shared_ptr<zdialects::SwitchedDialect const> const dialect_;
    std::string const text_;
    DialectModel const model_;
    Counts& counts_;
    bool asksModel_ = true;
};

// Makes all edits of up to `keyCount` keys of a file, with each `step`th of the values.
void editKeys(Editor& editor, std::size_t keyCount, std::size_t valueStep = 1)
{
    std::vector<Edit> keys;
    for (Stanza const& stanza : editor.model().stanzas)
        for (Key const& key : stanza.keys)
            for (std::size_t i = 0; i < key.values.size(); ++i)
                keys.push_back({Edit::set, stanza.name, key.name, "", i});
    std::size_t const step = std::max<std::size_t>(keys.size() / keyCount, 1);
    for (std::size_t i = 0; i < keys.size(); i += step) {
        Edit edit = keys[i];
        for (std::size_t value = i % valueStep; value < kEditValues.size(); value += valueStep) {
            edit.value = kEditValues[value];
            edit.kind = Edit::set;
            editor.check({edit});
            edit.kind = Edit::add;
            editor.check({edit});
        }
        editor.check({{Edit::add, edit.stanza, "fresh", "1"}});
        edit.kind = Edit::remove;
        edit.value.clear();
        editor.check({edit});
        Edit next = keys[(i + 1) % keys.size()];
        next.value = "a # b";
        if (next.stanza == edit.stanza && next.key == edit.key)
            continue;
        editor.check({edit, next});
        editor.checkOnce(edit, next);
        edit.kind = Edit::set;
        edit.value = "two words";
        editor.check({edit, next});
        editor.checkOnce(edit, next);
    }
}

}  // namespace

// Keys of each sample. A sanitizer build is ten times slower.
constexpr unsigned kKeys = kHasSanitizer ? 10 : 100;

TEST(DialectSpelling, EditsOfTheSamplesKeepEveryProperty)
{
    std::map<std::string, Counts> counts;
    for (fs::directory_entry const& entry : fs::directory_iterator(Z_TEST_DATA "/dialects")) {
        std::string const name = entry.path().filename();
        std::string const dialect = name.substr(0, name.find('.'));
        std::string const extension = entry.path().extension();
        if (extension == ".reading" || extension == ".refused" || extension == ".counts" ||
            dialect == "stanza")
            continue;
        Editor editor(name, dialect, bytesOf(entry.path()), counts[dialect]);
        if (editor.canRun())
            editKeys(editor, kKeys, kHasSanitizer ? 4 : 1);
    }
    for (auto const& [dialect, count] : counts)
        std::cout << dialect << ": " << count.made << " edits made, " << count.refused
                  << " refused\n";
}

TEST(DialectSpelling, EditsOfGeneratedFilesKeepEveryProperty)
{
    constexpr unsigned kFiles = kHasSanitizer ? 10 : 100;
    constexpr std::size_t kKeysOfFile = 3;
    constexpr std::size_t kValueStep = 6;
    for (Dialect const& dialect : kDialects) {
        if (dialect.name == "stanza")
            continue;
        std::string const name(dialect.name);
        Counts counts;
        unsigned files = 0;
        for (unsigned seed = 0; seed < kFiles; ++seed) {
            Editor editor(name + " seed " + std::to_string(seed), name,
                          DialectFile(dialect.rules, seed).text(), counts);
            if (!editor.canRun())
                continue;
            ++files;
            editKeys(editor, kKeysOfFile, kValueStep);
        }
        std::cout << name << ": " << files << " files, " << counts.made << " edits made, "
                  << counts.refused << " refused\n";
        EXPECT_LT(kFiles / 2, files) << name;
        EXPECT_LT(counts.refused, counts.made) << name;
    }
}

// Every file whose name decides its dialect; under a sanitizer, a share of them. The writer of the
// model checks refused edits in a few small files of each dialect, and large files get few edits:
// the model is slow.
TEST(DialectSpelling, EditsOfTheFilesOfThisMachineKeepEveryProperty)
{
    constexpr int kThoroughFiles = kHasSanitizer ? 2 : 12;  // of each dialect
    constexpr int kStep = kHasSanitizer ? 100 : 1;          // between files with few edits
    constexpr std::size_t kSmall = 6000;
    constexpr std::size_t kLarge = 1 << 20;
    std::map<std::string, std::pair<Counts, int>> counts;
    int files = 0;
    for (char const* const root : {"/etc", "/usr/lib", "/usr/share"}) {
        std::error_code error;
        fs::recursive_directory_iterator it(root, fs::directory_options::skip_permission_denied,
                                            error);
        for (; it != fs::recursive_directory_iterator(); it.increment(error)) {
            std::string const path = it->path();
            if (dialectOf(path, "") == "stanza" || !it->is_regular_file(error) ||
                it->file_size(error) > kLarge)
                continue;
            std::string const text = bytesOf(path);
            std::string const dialect = dialectOf(path, text);
            auto& [count, found] = counts[dialect];
            Editor editor(path, dialect, text, count);
            if (!editor.canRun())
                continue;
            ++files;
            if (++found <= kThoroughFiles && text.size() <= kSmall) {
                editKeys(editor, 5, kHasSanitizer ? 4 : 1);
                continue;
            }
            if (found % kStep != 0)
                continue;
            editor.trustRefusals();
            editKeys(editor, text.size() <= kSmall ? 2 : 1, text.size() <= kSmall ? 12 : 24);
        }
    }
    for (auto const& [dialect, found] : counts)
        std::cout << dialect << ": " << found.second << " files, " << found.first.made
                  << " edits made, " << found.first.refused << " refused\n";
    // Each Debian system has /usr/lib/os-release, and files of systemd or of the desktop.
    EXPECT_LE(1, counts["env"].second);
    EXPECT_LE(2, files);
}
