// JavaDifferences: the known differences between the reader of property files and
// java.util.Properties.
//
// A file to which none of the rules below applies has the same entries in both. Any other file can
// be rewritten so that the platform reads the entries that the library reads from the original:
// each construct that a rule names is expressed differently, and the rest stays unchanged.
#pragma once

#include <cstdio>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "JavaModel.h"
#include "JavaPeer.h"

enum class JavaRule {
    lastLine,
    keyWithoutSeparator,
    lineAfterError,
    spaceBeforeSeparator,
    separatorBeginsLine,
    backslashBeginsKey,
    keyEscape,
    valueEscape,
    upperU,
    badUnit,
    unitZero,
    verticalTab,
    pairedLineEnds,
    separatorOnContinuation,
    bytes
};

using JavaRules = std::set<JavaRule>;

// One row per rule: the smallest file that shows it, and the entries that each reader finds.
struct JavaDifference {
    JavaRule rule;
    char const* name;
    char const* file;
    std::map<std::string, std::string> ours;
    std::optional<std::map<std::string, std::string>> java;  // no value: the file is refused
    JavaRules alongside;                                     // rules that apply at the same time
};

inline std::vector<JavaDifference> const& javaDifferences()
{
    static std::vector<JavaDifference> const table = {
        {JavaRule::lastLine,
         "a last line without a line ending is lost",
         "a=",
         {},
         {{{"a", ""}}},
         {}},
        {JavaRule::keyWithoutSeparator, "a key needs a separator", "a\n", {}, {{{"a", ""}}}, {}},
        {JavaRule::lineAfterError,
         "an error at a line ending also skips the next line",
         "a\nb=\n",
         {},
         {{{"a", ""}, {"b", ""}}},
         {JavaRule::keyWithoutSeparator}},
        {JavaRule::spaceBeforeSeparator,
         "blanks followed by a separator are an error, not an empty key",
         " =\n",
         {},
         {{{"", ""}}},
         {}},
        {JavaRule::separatorBeginsLine,
         "a separator at the start of a line starts a key",
         "==\n",
         {{"=", ""}},
         {{{"", "="}}},
         {}},
        {JavaRule::backslashBeginsKey,
         "a backslash at the start of a key is kept",
         "\\a=\n",
         {{"\\a", ""}},
         {{{"a", ""}}},
         {}},
        {JavaRule::keyEscape,
         "in a key, only blanks, separators and the backslash can be escaped",
         "a\\b=\n",
         {},
         {{{"ab", ""}}},
         {}},
        {JavaRule::valueEscape,
         "in a value, only blanks, the colon, quotes and the backslash can be escaped",
         "a=\\=\n",
         {},
         {{{"a", "="}}},
         {}},
        {JavaRule::upperU, "`\\U` is `\\u`", "a=\\U0041\n", {{"a", "A"}}, {{{"a", "U0041"}}}, {}},
        {JavaRule::badUnit,
         "a `\\u` without four digits loses its line, not the file",
         "a=\\u\n",
         {},
         std::nullopt,
         {}},
        {JavaRule::unitZero,
         "`\\u0000` adds nothing",
         "a=\\u0000\n",
         {{"a", ""}},
         {{{"a", std::string(1, '\0')}}},
         {}},
        {JavaRule::verticalTab,
         "the vertical tab is a blank",
         "a\v=\n",
         {{"a", ""}},
         {{{"a\v", ""}}},
         {}},
        {JavaRule::pairedLineEnds,
         "after a backslash, only the first line ending of two bytes continues the line",
         "a=\\\n\rb\n",
         {{"a", "b"}},
         {{{"a", ""}, {"b", ""}}},
         {}},
        {JavaRule::separatorOnContinuation,
         "a separator on a continuation line is text",
         "a \\\n=\n",
         {{"a", "="}},
         {{{"a", ""}}},
         {}},
        {JavaRule::bytes,
         "bytes are UTF-8, not ISO 8859-1",
         "a=\xC3\xA9\n",
         {{"a", "\xC3\xA9"}},
         {{{"a", "\xC3\x83\xC2\xA9"}}},
         {}},
    };
    return table;
}

// Rewrites a file for the platform. Bytes above 0x7F become units of a private area, kBytes + byte;
// bytesOf() reverses that.
class JavaReading {
public:
    explicit JavaReading(JavaModel const& model)
    {
        for (JavaModel::Step const& step : model.steps) {
            if (step.ignored)
                ignore();
            else
                take(step);
            last_ = step;
        }
        int const state = model.steps.empty() ? 1 : next();
        if (state >= 4)
            drop(JavaRule::lastLine);
    }

    std::string const& file() const { return file_; }
    JavaRules const& rules() const { return rules_; }

    // Returns the original bytes of a string that the platform read from file().
    static std::string bytesOf(std::string_view text)
    {
        std::string bytes;
        for (size_t i = 0; i < text.size(); ++i) {
            auto const at = [&](size_t j) { return static_cast<unsigned char>(text[j]); };
            bool const ours =
                text.size() - i > 2 && at(i) == 0xEF && at(i + 1) >= 0x9E && at(i + 1) <= 0x9F;
            if (!ours) {
                bytes += text[i];
                continue;
            }
            bytes += static_cast<char>((at(i + 1) & 0x03) << 6 | (at(i + 2) & 0x3F));
            i += 2;
        }
        return bytes;
    }

private:
    static constexpr unsigned kBytes = 0xF700;

    int next() const { return last_.next == 16 ? 3 : last_.next; }

    // The platform does not need the second line ending of a pair; another one would end a
    // continued line.
    void ignore()
    {
        bool const carriage = last_.c == '\r' && !last_.ignored;
        if (next() == 10 && !carriage)
            rules_.insert(JavaRule::pairedLineEnds);
    }

    void take(JavaModel::Step const& step)
    {
        if (step.state == 1)
            begin_ = file_.size();
        if (skipping_) {
            skipping_ = step.kind != JavaModel::lineEnd;
            if (skipping_ && skippingNext_)
                rules_.insert(JavaRule::lineAfterError);
            return;
        }
        if (step.next == 16) {
            drop(ruleOf(step));
            skipping_ = true;
            skippingNext_ = step.kind == JavaModel::lineEnd;
            return;
        }
        switch (step.state) {
            case 1:
            case 2:
                takeFirst(step);
                break;
            case 3:
                put(step);
                break;
            case 10:
                takeContinuation(step);
                break;
            case 9:
                takeEscape(step);
                break;
            case 14:
                takeLastDigit(step);
                break;
            default:
                takeText(step);
                break;
        }
        hasSeparator_ = step.next == 7 || (hasSeparator_ && step.next > 7);
    }

    void takeFirst(JavaModel::Step const& step)
    {
        bool const begins = step.next == 4;
        if (begins && (step.kind == JavaModel::separator || step.kind == JavaModel::equals)) {
            rules_.insert(JavaRule::separatorBeginsLine);
            file_ += '\\';
        } else if (begins && step.kind == JavaModel::backslash) {
            rules_.insert(JavaRule::backslashBeginsKey);
            file_ += '\\';
        }
        takeText(step);
    }

    void takeContinuation(JavaModel::Step const& step)
    {
        bool const separates = step.kind == JavaModel::separator || step.kind == JavaModel::equals;
        if (separates && !hasSeparator_ && !hasValue_) {
            rules_.insert(JavaRule::separatorOnContinuation);
            file_ += '\\';
        }
        takeText(step);
    }

    void takeEscape(JavaModel::Step const& step)
    {
        if (step.c == 'U')
            rules_.insert(JavaRule::upperU);
        if (step.kind == JavaModel::letterU)
            file_ += 'u';
        else
            put(step);
        hasValue_ = hasValue_ || step.next == 8;
    }

    void takeLastDigit(JavaModel::Step const& step)
    {
        file_ += step.c;
        constexpr std::string_view kZero = "\\u0000";
        if (file_.compare(file_.size() - kZero.size(), kZero.size(), kZero) == 0) {
            rules_.insert(JavaRule::unitZero);
            file_.resize(file_.size() - kZero.size());
            afterZero_ = true;
        } else {
            hasValue_ = true;
        }
    }

    // Copies a character to the same position.
    void takeText(JavaModel::Step const& step)
    {
        bool const blank = step.kind == JavaModel::blank;
        bool const separates = step.kind == JavaModel::separator || step.kind == JavaModel::equals;
        if (step.state < 8)
            hasValue_ = step.next == 8;
        else if (step.next == 8)
            hasValue_ = true;
        // A character that follows a zero must not become the first one after the separator.
        if (afterZero_ && step.state == 8 && (blank || separates))
            file_ += '\\';
        afterZero_ = false;
        auto const byte = static_cast<unsigned char>(step.c);
        if (blank && step.c == '\v' && step.next != 4 && step.next != 8) {
            rules_.insert(JavaRule::verticalTab);
            file_ += ' ';
        } else if (byte > 0x7F) {
            rules_.insert(JavaRule::bytes);
            char code[8];
            snprintf(code, sizeof code, "\\u%04x", kBytes + byte);
            file_ += code;
        } else {
            put(step);
        }
    }

    // Line endings are written as one byte: two in a row must not become a pair.
    void put(JavaModel::Step const& step)
    {
        file_ += step.kind == JavaModel::lineEnd ? '\n' : step.c;
    }

    // Removes the unfinished entry from the file.
    void drop(JavaRule rule)
    {
        rules_.insert(rule);
        file_.resize(begin_);
    }

    static JavaRule ruleOf(JavaModel::Step const& error)
    {
        switch (error.state) {
            case 2:
                return JavaRule::spaceBeforeSeparator;
            case 5:
                return JavaRule::keyEscape;
            case 9:
                return JavaRule::valueEscape;
            case 4:
            case 6:
                return JavaRule::keyWithoutSeparator;
            default:
                return JavaRule::badUnit;
        }
    }

    std::string file_;
    JavaRules rules_;
    JavaModel::Step last_ = {};
    size_t begin_ = 0;           // start of the current line in file_
    bool skipping_ = false;      // after an error
    bool skippingNext_ = false;  // the error was at a line ending
    bool hasSeparator_ = false;
    bool hasValue_ = false;
    bool afterZero_ = false;
};
