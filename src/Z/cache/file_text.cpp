#include "file_text.h"

#include <utility>

#include "../stanza/line_writer.h"
#include "map_order.h"

namespace zcache {

using zstanza::TextBuffer;
using zstanza::writeHeader;
using zstanza::writeLine;
using zstanza::writeValue;

namespace {

void writeKey(Contents const& contents, Id key, TextBuffer& text)
{
    zcache::Key const& record = contents.key(key);
    std::string_view const name = contents.name(record);
    if (!record.hasExtra && record.value != 0) {
        writeValue(name, contents.text(record), text);
        return;
    }
    bool hasPlainValue = false;
    contents.forEachValue(key, Contents::plain, [&](std::string_view value) {
        writeValue(name, value, text);
        hasPlainValue = true;
    });
    // Only the companion holds obfuscated values.
    if (!hasPlainValue && contents.valueCount(key, Contents::obfuscated) == 0)
        zstanza::writeEmptyKey(name, text);
}

}  // namespace

void write(Contents const& contents, TextBuffer& text)
{
    if (contents.firstLine() != 0)
        text.reserve(contents.textLength());
    bool isSkipping = false;  // the lines of a detached category
    for (Id id = contents.firstLine(); id != 0; id = contents.line(id).next) {
        Line const& line = contents.line(id);
        if (line.kind == headerLine)
            isSkipping = !contents.category(line.ref).isLive;
        if (isSkipping)
            continue;
        switch (line.kind) {
            case headerLine:
                writeHeader(contents.text(line), text);
                break;
            case keyLine:
                if (contents.key(line.ref).isLive)
                    writeKey(contents, line.ref, text);
                break;
            default:
                if (line.isBelowBlank)
                    text.add("\n");
                writeLine(contents.text(line), text);
                break;
        }
    }
}

void describe(Contents const& contents, bool keepsEmpty, zlines::Document& document)
{
    document.reserve(contents.categoryCount(), contents.lineCount());
    document.hasOldNames = true;
    document.hasGaps = contents.policy().hasGaps;
    bool isSkipping = false;  // the lines of a detached category
    bool isBelowBlank = false;
    bool isBelowRemoved = false;
    for (Id id = contents.firstLine(); id != 0; id = contents.line(id).next) {
        Line const& line = contents.line(id);
        bool const isBelow = std::exchange(isBelowBlank, line.kind == blankLine) ||
                             (line.kind == commentLine && line.isBelowBlank);
        bool const isBelowKey =
            std::exchange(isBelowRemoved, line.kind == keyLine && !contents.key(line.ref).isLive);
        if (line.kind == headerLine)
            isSkipping = !contents.category(line.ref).isLive;
        if (isSkipping || line.kind == blankLine)
            continue;
        if (line.kind == headerLine) {
            document.addStanza(contents.text(line), isBelow);
            document.stanzas.back().hasNewName = contents.category(line.ref).hasNewName;
            document.stanzas.back().oldName = contents.oldCategoryName(line.ref);
            document.stanzas.back().isBelowGap = line.isBelowGap != 0;
            isBelowBlank = isBelow && contents.isTop(line.ref);  // its header is not in the file
        } else if (line.kind == commentLine) {
            document.addComment(contents.text(line), isBelow);
            document.entries.back().isBelowGap = line.isBelowGap != 0;
        } else if (contents.key(line.ref).isLive) {
            document.addKey(contents.text(line), isBelow);
            document.entries.back().hasNewName = contents.key(line.ref).hasNewName != 0;
            document.entries.back().isBelowRemoved = isBelowKey;
            document.entries.back().isBelowGap = line.isBelowGap != 0;
            document.entries.back().oldName = contents.oldKeyName(line.ref);
            contents.forEachValue(line.ref, Contents::plain, [&](std::string_view value) {
                if (keepsEmpty || !value.empty())
                    document.addValue(value);
            });
            document.entries.back().needsLine =
                contents.valueCount(line.ref, Contents::obfuscated) == 0;
        }
    }
}

void list(Contents const& contents, TextBuffer& text)
{
    for (Id const category : MapOrder(contents)) {
        text.add("\n");
        writeHeader(contents.name(contents.category(category)), text);
        for (Id const key : MapOrder(contents, category)) {
            std::string_view const name = contents.name(contents.key(key));
            contents.forEachValue(key, Contents::plain, [&](std::string_view value) {
                zstanza::listValue(name, value, text);
            });
            if (contents.valueCount(key, Contents::plain) == 0)
                zstanza::writeEmptyKey(name, text);
        }
    }
}

void writeObfuscated(Contents const& contents, zstanza::CompanionWriter& writer)
{
    for (Id id = contents.firstItem(); id != 0; id = contents.item(id).nextItem) {
        Id const key = contents.item(id).key;
        std::string_view const category =
            contents.name(contents.category(contents.key(key).category));
        contents.forEachValue(key, Contents::obfuscated, [&](std::string_view value) {
            writer.add(category, contents.name(contents.key(key)), value);
        });
    }
}

}  // namespace zcache
