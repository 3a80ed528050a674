// generated_file: the configuration files that benchmarks read.
//
// Shapes: "wide" has 100 keys a stanza, "one" a single stanza, "thin" a stanza a key. Every file
// has a comment and a blank line per stanza, and a comment every ten keys.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

struct Shape {
    char const* name;
    size_t keysPerStanza;  // 0: all
};

constexpr Shape kShapes[] = {{"wide", 100}, {"one", 0}, {"thin", 1}};

struct Name {
    std::string stanza;
    std::string key;
};

struct GeneratedFile {
    std::string text;
    std::vector<Name> names;  // in file order
};

// Returns the file of a shape with `keys` keys. Generates each file once.
inline GeneratedFile const& generatedFile(Shape const& shape, size_t keys)
{
    static std::map<std::pair<std::string, size_t>, GeneratedFile> made;
    GeneratedFile& file = made[{shape.name, keys}];
    if (!file.names.empty())
        return file;
    size_t const perStanza = shape.keysPerStanza == 0 ? keys : shape.keysPerStanza;
    std::string text = "# Generated for the benchmark\n";
    std::string stanza;
    for (size_t i = 0; i < keys; ++i) {
        if (i % perStanza == 0) {
            stanza = "service" + std::to_string(i / perStanza);
            text += "\n# what " + stanza + " does\n[" + stanza + "]\n";
        }
        if (i % 10 == 5)
            text += "# the next one matters\n";
        std::string const key = "parameter" + std::to_string(i % perStanza);
        text += key + " = value of number " + std::to_string(i) + "\n";
        file.names.push_back({stanza, key});
    }
    file.text = std::move(text);
    return file;
}
