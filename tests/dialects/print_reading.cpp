// print_reading: prints the reading of configuration files by DialectModel, a line of JSON for
// each.
//
//     print_reading DIALECT FILE...
//     print_reading --names          prints the dialect of each path on standard input
//
//     {"file": F, "refused": [LINE, COLUMN, TEXT] or null, "passed over": N,
//      "stanzas": [[NAME, [[KEY, [VALUE, ...], [COUNTING VALUE, ...], [LINE, ...]], ...]], ...]}
//
// A value that is null is a key alone. Each character of a string is one byte of the file.
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "DialectModel.h"
#include "DialectNames.h"

namespace {

using namespace dialect_model;

std::string quoted(std::string const& bytes)
{
    std::string out = "\"";
    for (char const c : bytes) {
        char code[8];
        auto const byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte > 0x7e || c == '"' || c == '\\') {
            snprintf(code, sizeof code, "\\u%04x", byte);
            out += code;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

std::string valuesOf(std::vector<Value> const& values)
{
    std::string out = "[";
    for (Value const& value : values)
        out += (out.size() > 1 ? ", " : "") + (value.alone ? "null" : quoted(value.text));
    return out + "]";
}

std::string keyOf(DialectModel const& model, Key const& key)
{
    std::string rows;
    for (Value const& value : key.values)
        rows += (rows.empty() ? "" : ", ") + std::to_string(value.line);
    return "[" + quoted(key.name) + ", " + valuesOf(key.values) + ", " +
           valuesOf(model.counting(key)) + ", [" + rows + "]]";
}

std::string readingOf(DialectModel const& model)
{
    std::string out;
    for (Stanza const& stanza : model.stanzas) {
        std::string keys;
        for (Key const& key : stanza.keys)
            keys += (keys.empty() ? "" : ", ") + keyOf(model, key);
        out += (out.empty() ? "[" : ", [") + quoted(stanza.name) + ", [" + keys + "]]";
    }
    return out;
}

std::string bytesOf(char const* path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void printNames()
{
    std::string path;
    while (std::getline(std::cin, path)) {
        bool const isService = path.size() > 8 && path.compare(path.size() - 8, 8, ".service") == 0;
        std::cout << dialectOf(path, isService ? bytesOf(path.c_str()) : "") << '\n';
    }
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && std::string(argv[1]) == "--names") {
        printNames();
        return 0;
    }
    Dialect const* const dialect = argc > 1 ? findDialect(argv[1]) : nullptr;
    if (dialect == nullptr) {
        std::cerr << "usage: print_reading DIALECT FILE... | --names\n";
        return 2;
    }
    for (int i = 2; i < argc; ++i) {
        std::string const bytes = bytesOf(argv[i]);
        DialectModel const model(bytes, dialect->rules);
        std::string refused = "null";
        if (model.refused()) {
            Problem const& first = model.errors.front();
            refused = "[" + std::to_string(first.line) + ", " + std::to_string(first.column) +
                      ", " + quoted(first.text) + "]";
        }
        std::cout << "{\"file\": " << quoted(argv[i]) << ", \"refused\": " << refused
                  << ", \"passed over\": " << model.notes.size() << ", \"stanzas\": ["
                  << (model.refused() ? "" : readingOf(model)) << "]}\n";
    }
    return 0;
}
