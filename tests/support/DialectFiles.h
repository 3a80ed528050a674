// DialectFiles: random files with each construct that a dialect has: comments, comments after
// values, quotes, escapes, values of several lines, repeated headers and keys, keys without a
// value, lines that are passed over, indentation, columns, and both line endings.
#pragma once

#include <random>
#include <string>
#include <vector>

#include "DialectTable.h"

namespace dialect_model {

class DialectFile {
public:
    DialectFile(Switches const& rules, unsigned seed) : rules_(rules), random_(seed)
    {
        marks_ = (rules.marks & hash) != 0 ? "#" : "";
        marks_ += (rules.marks & semicolon) != 0 ? ";" : "";
        trailing_ = (rules.trailing & hash) != 0 ? "#" : "";
        trailing_ += (rules.trailing & semicolon) != 0 ? ";" : "";
        newLine_ = isOneOf(6) ? "\r\n" : "\n";
        separator_ = separator();
        isColumn_ = (rules.separators & tight) == 0 && isOneOf(4);
        write();
    }

    std::string text() const { return text_; }

private:
    unsigned pick(std::size_t count)
    {
        return std::uniform_int_distribution<unsigned>(0,
                                                       static_cast<unsigned>(count) - 1)(random_);
    }
    bool isOneOf(unsigned count) { return pick(count) == 0; }
    std::string any(std::vector<std::string> const& texts) { return texts[pick(texts.size())]; }
    std::string number() { return std::to_string(++numbers_); }
    void addLine(std::string const& line) { (text_ += line) += newLine_; }

    std::string separator()
    {
        std::string const sign =
            (rules_.separators & colon) != 0 && isOneOf(2) ? std::string(":") : std::string("=");
        if ((rules_.separators & tight) != 0)
            return sign;
        return any({sign, " " + sign + " ", " " + sign, sign + "\t", sign + "  "});
    }

    void write()
    {
        if (isOneOf(3)) {
            addComment();
            addLine("");
        }
        if (rules_.heads == Heads::none || (rules_.top == Top::stanza && isOneOf(2)))
            addLines();
        for (unsigned headers = rules_.heads == Heads::none ? 0 : 1 + pick(4); headers > 0;
             --headers) {
            addHeader();
            addLines();
        }
        if (isOneOf(6))
            text_.resize(text_.size() - newLine_.size());
    }

    void addHeader()
    {
        std::string line = "[" + any({"a", "b", "c"});
        if (rules_.heads == Heads::subsection && isOneOf(2))
            line += " \"Sub " + any({"x", "y"}) + "\"";
        if (rules_.heads == Heads::bracketedGroups && isOneOf(2))
            line += "][" + any({"x", "y", "$i"});
        line += ']';
        if (rules_.heads == Heads::subsection && isOneOf(4))
            line += " " + key() + separator_ + "v" + number();
        else if (rules_.heads == Heads::toBracket && isOneOf(6))
            line += " rest";
        addLine(line);
    }

    void addLines()
    {
        indent_ = isOneOf(3) ? any({"  ", "\t"}) : "";
        for (unsigned lines = 1 + pick(8); lines > 0; --lines) {
            switch (pick(8)) {
                case 0:
                    addLine("");
                    break;
                case 1:
                    addComment();
                    break;
                case 2:
                    addOtherLine();
                    break;
                default:
                    addKey();
                    break;
            }
        }
    }

    void addComment()
    {
        std::string line = isOneOf(4) ? indent_ : "";
        line += marks_[pick(marks_.size())];
        line += any({" ", "", "  "}) + any({"c", "k = ", "[a] "}) + number();
        if (rules_.commentsJoin && isOneOf(4))
            line += " \\" + newLine_ + " more";
        addLine(line);
    }

    void addOtherLine()
    {
        if (rules_.keyAlone == KeyAlone::option)
            addLine(indent_ + key());
        else if (rules_.keyAlone == KeyAlone::passedOver ||
                 rules_.keyAlone == KeyAlone::passedOverOrNoName)
            addLine(indent_ + "junk" + number());
    }

    std::string key()
    {
        std::string name(1 + pick(4), static_cast<char>('j' + pick(4)));
        if (rules_.foldKeys && isOneOf(4))
            name[0] = static_cast<char>(name[0] - 'a' + 'A');
        if (rules_.dashes && isOneOf(4))
            name += any({"-x", "_x"});
        return name;
    }

    void addKey()
    {
        std::string line = indent_;
        if ((rules_.markers & exportPrefix) != 0 && isOneOf(6))
            line += "export ";
        if ((rules_.markers & minusPrefix) != 0 && isOneOf(6))
            line += "-";
        line += key();
        if ((rules_.markers & dollarSuffix) != 0 && isOneOf(6))
            line += "[$e]";
        constexpr std::size_t kColumn = 12;
        if (isColumn_ && line.size() < kColumn)
            line.resize(kColumn, ' ');
        line += isColumn_ ? "= " : separator_;
        addLine(line + value());
    }

    std::string value()
    {
        std::string const word = "v" + number();
        std::string const comment =
            trailing_.empty() || !isOneOf(3)
                ? ""
                : any({" ", "  ", "\t"}) + trailing_[pick(trailing_.size())] + " t";
        switch (pick(8)) {
            case 0:
                return comment;
            case 1:
                return quoted(word) + comment;
            case 2:
                return continued(word);
            case 3:
                return (rules_.escapes == Escapes::none ? word : word + "\\\\") + comment;
            case 4:
                return "v" + any({"", " and w", "\xc3\xa4"}) + comment;  // the same several times
            default:
                return word + comment;
        }
    }

    std::string quoted(std::string const& word)
    {
        if (rules_.quotes == noQuote)
            return "\"" + word + "\"";
        bool const isSingle = (rules_.quotes & singleQuote) != 0 && isOneOf(2);
        std::string const quote(1, isSingle || (rules_.quotes & doubleQuote) == 0 ? '\'' : '"');
        bool const isLong = (rules_.join & openQuote) != 0 && isOneOf(2);
        return quote + word + (isLong ? newLine_ + " second" + newLine_ + "third" : " ; x") + quote;
    }

    std::string continued(std::string const& word)
    {
        std::string const comment(1, marks_[0]);
        if ((rules_.join & indented) != 0) {
            std::string const deeper = newLine_ + indent_ + "    ";
            std::string out = isOneOf(3) ? "" : word;
            for (unsigned lines = 1 + pick(3); lines > 0; --lines) {
                if (isOneOf(4))
                    out += newLine_ + comment + " i" + number();
                out += deeper + "w" + number();
            }
            return out;
        }
        if ((rules_.join & (asBlank | asNothing | insideValue)) == 0)
            return word;
        std::string out = word;
        for (unsigned lines = 1 + pick(2); lines > 0; --lines) {
            out += any({" \\", "\\"}) + newLine_;
            if (rules_.joinSkipsComments && isOneOf(3))
                out += comment + " i" + number() + newLine_;
            out += any({" w", "w"}) + number();
        }
        return out;
    }

    Switches const& rules_;
    std::mt19937 random_;
    std::string marks_;
    std::string trailing_;  // marks of comments after values
    std::string newLine_;
    std::string separator_;
    std::string indent_;  // of the lines of a stanza
    bool isColumn_;       // separators are in a column
    unsigned numbers_ = 0;
    std::string text_;
};

}  // namespace dialect_model
