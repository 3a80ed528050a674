// template: a file with comments "# key = default", as the schema of other files.
//
// The block of comments above such a line is the help of the key. Lines in it are constraints:
// "one of: a b", "range: 1..100" and "required". The type of a key is the type of its default.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "../dialects/line_rules.h"
#include "../stanza/stanza_dialect.h"

namespace ztemplates {

struct TemplateKey {
    enum Type { text, number, boolean };

    std::string stanza;
    std::string name;
    std::string defaultValue;
    Type type = text;
    std::vector<std::string> help;  // lines without constraints
    std::vector<std::string> choices;
    std::optional<double> least;
    std::optional<double> most;
    bool isRequired = false;

    /// Returns "text", "number" or "boolean".
    char const* typeName() const;

    /// Returns why a value is invalid, and what to do; empty if it is valid.
    std::string check(std::string const& value) const;
};

class Template {
public:
    /// Reads a template, whose lines, names and values follow a dialect. A comment may start with
    /// "#" or ";". Contents without such comments have no keys.
    explicit Template(std::string_view text,
                      zlines::SharedDialect dialect = zstanza::sharedStanzaDialect());

    std::vector<TemplateKey> const& keys() const { return keys_; }
    std::vector<std::string> const& stanzas() const { return stanzas_; }

    bool hasStanza(std::string_view stanza) const;

    /// Returns null if not found.
    TemplateKey const* find(std::string_view stanza, std::string_view key) const;

    /// Return the name that is most similar to `name`; empty if none is.
    std::string nearestStanza(std::string_view name) const;
    std::string nearestKey(std::string_view stanza, std::string_view name) const;

private:
    void parse(std::string_view text);
    void addStanza(std::string const& name);
    void addKey(std::string const& name, std::string const& value, std::vector<std::string>& help);
    std::string stanzaIdentity(std::string_view name) const;  // empty: above the first header
    std::string identityOf(std::string_view stanza, std::string_view key) const;

    zlines::SharedDialect dialect_;
    std::vector<TemplateKey> keys_;
    std::vector<std::string> stanzas_;
    std::string current_;  // stanza

    // By identity.
    std::map<std::string, size_t> stanzaIndex_;
    std::map<std::string, size_t> keyIndex_;
    std::map<std::string, std::vector<std::string>> keysOfStanza_;
};

}  // namespace ztemplates
