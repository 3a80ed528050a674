// Property files: the reader must match a model of the state table, from a stream and from a file,
// with and without a stop key. Entries that can be written must be read back, and be written again
// with the same bytes. Writing waits for the disk, so only a few inputs are written.
#include <Z/ZJavaProperties.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "JavaEntries.h"
#include "JavaModel.h"
#include "ScratchDirectory.h"
#include "check.h"

namespace {

constexpr char kFile[] = "app.properties";

Entries entriesOf(JavaModel const& model)
{
    Entries entries;
    for (auto const& [key, value] : model.stored)
        entries[key] = value;
    return entries;
}

// Chooses one input in fifty, the same ones in every run.
bool isStored(std::string const& text)
{
    uint32_t hash = 2166136261u;
    for (char const c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
    return isReplay || (hash >> 8) % 50 == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    static ScratchDirectory const scratch;
    static std::string const path = scratch.at(kFile);
    std::string text(reinterpret_cast<char const*>(data), size);
    JavaModel const model(text);

    ZJavaProperties_6_0 fromStream;
    if (FILE* const stream = size > 0 ? fmemopen(text.data(), size, "r") : nullptr) {
        check(fromStream.loadProperties(stream, "stream") == 1, "a stream is read to its end");
        fclose(stream);
    }
    check(entriesOf(fromStream) == entriesOf(model), "a stream is read as the model reads it");

    scratch.write(kFile, text);
    ZJavaProperties_6_0 store;
    store.load(path.c_str());
    check(entriesOf(store) == entriesOf(model), "a file is read as the model reads it");
    if (!model.stored.empty() && model.stored[0].first.find('\0') == std::string::npos) {
        std::string const& stopKey = model.stored[model.stored.size() / 2].first;
        ZJavaProperties_6_0 stopped;
        stopped.load(path.c_str(), stopKey.c_str());
        check(entriesOf(stopped) == entriesOf(JavaModel(text, stopKey.c_str())),
              "a stop key stops where it stops the model");
    }

    if (!isStored(text))
        return 0;
    store.store(path.c_str());
    std::string const written = scratch.read(kFile);
    ZJavaProperties_6_0 again;
    again.load(path.c_str());
    check(entriesOf(again) == entriesOf(JavaModel(written)),
          "a written file is read as the model reads it");
    if (canBeStored(entriesOf(store))) {
        check(entriesOf(again) == entriesOf(store), "a written file has the same entries");
        again.store(path.c_str());
        check(scratch.read(kFile) == written, "a written file is written again unchanged");
    }
    return 0;
}
