// ZSCFData_6_0, the cache of a stanza file: reads and writes the file and its companion.

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include "ZBuffer.h"
#include "ZException.h"
#include "ZPropertiesImpl_p.h"
#include "cache/file_text.h"
#include "files/io_error.h"
#include "stanza/companion_records.h"
#include "stanza/raise_sites.h"
#include "stanza/stanza_dialect.h"

using zcache::Arena;
using zcache::Reader;
using zfiles::FailedCall;
using zstanza::TextBuffer;

namespace {

constexpr size_t kFirstRead = 1 << 16;

}  // namespace

size_t zstanza::readAll(char const* path, FILE* file, Arena::Block& block)
{
    struct stat status;
    bool const isSized = fileno(file) >= 0 && fstat(fileno(file), &status) == 0 &&
                         S_ISREG(status.st_mode) && status.st_size > 0;
    // Two bytes more than the file: one to detect its end, one for the last zero byte.
    block.setCapacity(isSized ? static_cast<size_t>(status.st_size) + 2 : kFirstRead);
    size_t length = 0;
    clearerr(file);  // an earlier error is not a failure of this read
    for (;;) {
        errno = 0;
        length += fread(block.chars() + length, 1, block.capacity() - 1 - length, file);
        if (ferror(file) && errno == EINTR)
            clearerr(file);
        else if (ferror(file))
            ZPropertiesIOException_6_0(path, callName(FailedCall::fgets), errno)
                .throwException(zstanza::kSource, zstanza::raiseInRead);
        else if (feof(file))
            return length;
        else
            block.setCapacity(block.capacity() * 2);
    }
}

ZSCFData_6_0::ZSCFData_6_0() = default;

ZSCFData_6_0::ZSCFData_6_0(ZSCFData_6_0 const& other) = default;

ZSCFData_6_0::~ZSCFData_6_0() = default;

ZPCache_6_0* ZSCFData_6_0::clone() const
{
    return zstanza::allocate<ZSCFData_6_0>(*this);
}

ZPCache_6_0* ZSCFData_6_0::makeEmpty() const
{
    auto* const made = zstanza::allocate<ZSCFData_6_0>();
    made->setAttributes(attributes(), attributeArgument());
    return made;
}

void ZSCFData_6_0::be_read(char const* path, FILE* file)
{
    Arena::Block block;
    size_t const length = zstanza::readAll(path, file, block);
    readBlock(path, &block, length);
}

void ZSCFData_6_0::readText(char const* path, char const* text, size_t length)
{
    Arena::Block block;
    block.setCapacity(length + 1);
    if (length != 0)  // `text` may be null if it is empty
        memcpy(block.chars(), text, length);
    readBlock(path, &block, length);
}

void ZSCFData_6_0::readBlock(char const* path, void* block, size_t length)
{
    auto const run = [&](auto& reader) {
        auto& text = *static_cast<Arena::Block*>(block);
        text.setCapacity(length + 1);
        char* const bytes = text.chars();
        bytes[length] = '\0';
        reader.adopt(text, length + 1);
        zstanza::Parser parser(path, reader, (attributes() & (keepComments | keepLines)) != 0);
        parser.parse(bytes, length);
        if (ZLCString_6_0* const companion = parser.finish(); companion != nullptr)
            takeCompanionFile(companion);
    };
    // The parser writes into the block.
    zlines::SharedText text =
        KeptLines::textAfterReading(*this, {static_cast<Arena::Block*>(block)->chars(), length},
                                    zstanza::sharedStanzaDialect());
    if (direct() != nullptr) {
        Reader reader(rep());
        run(reader);
    } else {
        Rep::DerivedReader reader(*this);
        run(reader);
    }
    rep().keep(std::move(text));
    changed();
}

void ZSCFData_6_0::be_write(char const* path, FILE* file)
{
    zlines::SharedText const composed = KeptLines::compose(*this, path);
    TextBuffer text;
    std::string_view const bytes =
        composed != nullptr ? composed->text : KeptLines::writeAll(*this, text);
    KeptLines::collect(*this, composed, bytes, KeptLines::dialectOf(*this));
    errno = 0;
    // Flush here: a caller would not see the error of a later flush.
    bool const isTaken =
        bytes.empty() || fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    if (!isTaken || fflush(file) != 0)
        ZPropertiesIOException_6_0(path, callName(FailedCall::fwrite), errno)
            .throwException(zstanza::kSource, zstanza::raiseInWrite);
}

void ZSCFData_6_0::writeText(ZBuffer_6_0& buffer) const
{
    KeptLines::writeText(*this, "", buffer);
}

void ZSCFData_6_0::be_read_obfuscated(ZBuffer_6_0& buffer)
{
    zstanza::CompanionReader reader(companionFile().getChars(), buffer);
    Arena::Block block;
    size_t records = 0;
    size_t const bytes = reader.expand(block, records);
    if (bytes == 0)
        return;
    if (direct() != nullptr)
        rep().addObfuscated(block, bytes, records);
    else
        Rep::Derived::addObfuscated(*this, block.chars(), records);
    changed();
}

void ZSCFData_6_0::be_write_obfuscated(ZBuffer_6_0& buffer)
{
    zstanza::CompanionWriter writer(companionFile().getChars());
    if (direct() != nullptr)
        zcache::writeObfuscated(rep(), writer);
    else
        Rep::Derived::writeObfuscated(*this, writer);
    writer.compress(buffer);
}
