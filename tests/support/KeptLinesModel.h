// KeptLinesModel: a model of stanza files for tests of stores that keep lines. It shares no code
// with the library: it finds the lines of a file, and the value in each.
#pragma once

#include <Z/ZArrayList.h>
#include <Z/ZBuffer.h>
#include <Z/ZLCString.h>
#include <Z/ZPropertiesImpl.h>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

// A key by its stanza and its name.
using KeyName = std::pair<std::string, std::string>;

struct LineModel {
    enum Kind { blank, comment, header, key, invalid };

    std::string bytes;  // with the line ending
    Kind kind = blank;
    KeyName name;           // header: with an empty key
    std::string value;      // empty: none
    size_t valueBegin = 0;  // in `bytes`
    size_t valueEnd = 0;

    std::string ending() const
    {
        size_t const length = bytes.size();
        if (length == 0 || bytes[length - 1] != '\n')
            return "";
        return length > 1 && bytes[length - 2] == '\r' ? "\r\n" : "\n";
    }
    std::string withoutEnding() const { return bytes.substr(0, bytes.size() - ending().size()); }
};

struct TextModel {
    explicit TextModel(std::string const& text)
    {
        std::set<std::string> stanzas;
        std::string stanza;
        for (size_t at = 0; at < text.size();) {
            size_t const feed = text.find('\n', at);
            size_t const next = feed == std::string::npos ? text.size() : feed + 1;
            LineModel line = parse(text.substr(at, next - at));
            at = next;
            if (line.kind == LineModel::header) {
                stanza = line.name.first;
                isValid = isValid && stanzas.insert(stanza).second;
            }
            line.name.first = stanza;
            if (line.kind == LineModel::key) {
                isValid = isValid && !stanzas.empty();
                if (!values.contains(line.name))
                    keys.push_back(line.name);
                std::vector<std::string>& all = values[line.name];
                if (!line.value.empty())
                    all.push_back(line.value);
            }
            isValid = isValid && line.kind != LineModel::invalid && line.bytes.size() <= 8000 &&
                      line.bytes.find('\0') == std::string::npos;
            lines.push_back(line);
        }
    }

    static bool isSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

    static LineModel parse(std::string const& bytes)
    {
        LineModel line;
        line.bytes = bytes;
        size_t begin = 0;
        size_t end = bytes.size();
        while (end > begin && isSpace(bytes[end - 1]))
            --end;
        while (begin < end && isSpace(bytes[begin]))
            ++begin;
        if (begin == end)
            return line;
        size_t const close = bytes.find(']', begin);
        size_t const sign = bytes.find('=', begin);
        if (bytes[begin] == '#') {
            line.kind = LineModel::comment;
            line.value = bytes.substr(begin + 1, end - begin - 1);
        } else if (bytes[begin] == '[') {
            line.kind = close < end ? LineModel::header : LineModel::invalid;
            line.name.first = bytes.substr(begin + 1, close - begin - 1);
        } else if (sign == begin || sign >= end) {
            line.kind = LineModel::invalid;
        } else {
            line.kind = LineModel::key;
            size_t nameEnd = sign;
            while (isSpace(bytes[nameEnd - 1]))
                --nameEnd;
            line.name.second = bytes.substr(begin, nameEnd - begin);
            line.valueBegin = sign + 1;
            while (line.valueBegin < end && isSpace(bytes[line.valueBegin]))
                ++line.valueBegin;
            line.valueEnd = end;
            line.value = bytes.substr(line.valueBegin, end - line.valueBegin);
        }
        return line;
    }

    // Returns whether the text after a change has every other line of this text, byte for byte and
    // in order, and no further lines. Empty, or the first difference.
    std::string differenceOutside(TextModel const& after, std::set<KeyName> const& changed) const
    {
        auto const others = [&](TextModel const& text) {
            std::vector<LineModel> kept;
            for (LineModel const& line : text.lines)
                if (line.kind != LineModel::key || !changed.contains(line.name))
                    kept.push_back(line);
            return kept;
        };
        std::vector<LineModel> before = others(*this);
        std::vector<LineModel> const now = others(after);
        // If the last line, which has no line ending, is removed, so is the line ending above it:
        // the text must not end with one. A blank line without it is nothing.
        if (!endsWithEnding() && now.size() + 1 == before.size() &&
            before.back().kind == LineModel::blank)
            before.pop_back();
        for (size_t i = 0; i < before.size() || i < now.size(); ++i) {
            if (i >= before.size() || i >= now.size())
                return "number of other lines";
            // The last line may have got a line ending, or lost it to its successor.
            bool const isLast = before[i].ending().empty() || now[i].ending().empty();
            if (isLast ? before[i].withoutEnding() != now[i].withoutEnding()
                       : before[i].bytes != now[i].bytes)
                return "line \"" + before[i].bytes + "\" became \"" + now[i].bytes + "\"";
        }
        return "";
    }

    bool endsWithEnding() const { return !lines.empty() && !lines.back().ending().empty(); }

    std::vector<LineModel> linesOf(KeyName const& name) const
    {
        std::vector<LineModel> found;
        for (LineModel const& line : lines)
            if (line.kind == LineModel::key && line.name == name)
                found.push_back(line);
        return found;
    }

    std::string text() const
    {
        std::string all;
        for (LineModel const& line : lines)
            all += line.bytes;
        return all;
    }

    bool isValid = true;
    std::vector<LineModel> lines;
    std::vector<KeyName> keys;  // in the order of their first lines
    std::map<KeyName, std::vector<std::string>> values;
};

// A cache that keeps lines, and its text.
struct KeptLinesCache {
    explicit KeptLinesCache(std::string const& text)
    {
        cache.setAttributes(ZPCache_6_0::keepLines, nullptr);
        cache.readText("model", text.data(), text.size());
    }

    std::string text() const
    {
        ZBuffer_6_0 buffer;
        cache.writeText(buffer);
        return {static_cast<char const*>(buffer.getBuffer()), buffer.getLength()};
    }

    void set(KeyName const& name, std::string const& value)
    {
        cache.addLine(name.first.c_str(), name.second.c_str(), value.c_str(), 0);
    }

    // Gives an existing key these values, through the list that callers receive.
    void setAll(KeyName const& name, std::vector<std::string> const& values)
    {
        ZArrayList_6_0* const list =
            cache.get(name.first.c_str(), name.second.c_str(), ZPCache_6_0::plainValues);
        list->removeAll();
        for (std::string const& value : values)
            list->addNoCopy(new ZLCString_6_0(value.c_str()));
    }

    void remove(KeyName const& name) { cache.delLine(name.first.c_str(), name.second.c_str()); }

    ZSCFData_6_0 cache;
};
