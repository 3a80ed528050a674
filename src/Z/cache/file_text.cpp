#include "file_text.h"

#include "../stanza/line_writer.h"

namespace zcache {

using zstanza::TextBuffer;
using zstanza::writeHead;
using zstanza::writeLine;
using zstanza::writeValue;

namespace {

void writeKey(Store const& store, Id key, TextBuffer& text)
{
    std::string_view const name = store.name(store.key(key));
    if (store.key(key).more == 0 && store.key(key).value != 0) {
        writeValue(name, store.text(store.key(key)), text);
        return;
    }
    bool isWritten = false;
    store.eachValue(key, Store::plain, [&](std::string_view value) {
        writeValue(name, value, text);
        isWritten = true;
    });
    // Obfuscated values live in the companion file alone.
    if (!isWritten && store.valueCount(key, Store::obfuscated) == 0)
        zstanza::writeEmptyKey(name, text);
}

}  // namespace

void write(Store const& store, TextBuffer& text)
{
    if (store.firstLine() != 0)
        text.expect(store.textLength());
    bool isSkipping = false;  // the lines of a stanza that was removed
    for (Id id = store.firstLine(); id != 0; id = store.line(id).next) {
        Line const& line = store.line(id);
        if (line.kind == headLine)
            isSkipping = !store.category(line.of).isLive;
        if (isSkipping)
            continue;
        switch (line.kind) {
            case headLine:
                writeHead(store.text(line), text);
                break;
            case keyLine:
                if (store.key(line.of).isLive)
                    writeKey(store, line.of, text);
                break;
            default:
                if (line.isBelowBlank)
                    text.add("\n");
                writeLine(store.text(line), text);
                break;
        }
    }
}

void writeObfuscated(Store const& store, zstanza::CompanionWriter& writer)
{
    for (Id id = store.firstItem(); id != 0; id = store.item(id).nextItem) {
        Id const key = store.item(id).key;
        std::string_view const category = store.name(store.category(store.key(key).category));
        store.eachValue(key, Store::obfuscated, [&](std::string_view value) {
            writer.add(category, store.name(store.key(key)), value);
        });
    }
}

}  // namespace zcache
