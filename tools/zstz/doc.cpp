// doc: the verb doc.
#include <stdio.h>

#include "commands.h"
#include "dialect_choice.h"
#include "json.h"
#include "key_lines.h"
#include "output.h"
#include "template_file.h"

namespace {

// Returns text for a cell of a Markdown table.
std::string toCell(std::string const& text)
{
    std::string cell;
    for (char const c : text)
        cell += c == '|' ? std::string("\\|") : std::string(1, c);
    return cell;
}

std::string toCode(std::string const& text)
{
    return text.empty() ? "" : '`' + toCell(text) + '`';
}

template <class Parts>
std::string join(Parts const& parts, char const* separator)
{
    std::string joined;
    for (std::string const& part : parts)
        joined += (joined.empty() ? "" : separator) + part;
    return joined;
}

std::string formatLimit(std::optional<double> const& limit)
{
    if (!limit)
        return "";
    char text[40];
    snprintf(text, sizeof text, "%.15g", *limit);
    return text;
}

std::string formatConstraints(TemplateKey const& key)
{
    std::vector<std::string> parts;
    if (key.isRequired)
        parts.push_back("required");
    if (!key.choices.empty())
        parts.push_back("one of: " + join(key.choices, " "));
    if (key.least || key.most)
        parts.push_back("range: " + formatLimit(key.least) + ".." + formatLimit(key.most));
    return join(parts, "; ");
}

void printTable(Request const& request, std::vector<TemplateKey> const& keys)
{
    printLine(request, "| Stanza | Key | Type | Default | Constraints | Meaning |");
    printLine(request, "|---|---|---|---|---|---|");
    for (TemplateKey const& key : keys)
        printLine(request, "| " + toCode(key.stanza) + " | " + toCode(key.name) + " | " +
                               key.typeName() + " | " + toCode(key.defaultValue) + " | " +
                               toCell(formatConstraints(key)) + " | " +
                               toCell(join(key.help, " ")) + " |");
}

std::string formatJson(TemplateKey const& key)
{
    return "{\"stanza\": " + toJson(key.stanza) + ", \"key\": " + toJson(key.name) +
           ", \"type\": " + toJson(key.typeName()) + ", \"default\": " + toJson(key.defaultValue) +
           ", \"required\": " + (key.isRequired ? "true" : "false") +
           ", \"oneOf\": " + toJson(key.choices) +
           ", \"least\": " + (key.least ? formatLimit(key.least) : "null") +
           ", \"most\": " + (key.most ? formatLimit(key.most) : "null") +
           ", \"help\": " + toJson(join(key.help, "\n")) + '}';
}

std::string formatFields(TemplateKey const& key)
{
    std::string fields;
    for (std::string const& field :
         {key.stanza, key.name, std::string(key.typeName()), key.defaultValue,
          formatConstraints(key), join(key.help, "\n")})
        fields += escapeField(field) + '\t';
    fields.pop_back();
    return fields;
}

}  // namespace

int runDoc(Request const& request)
{
    ZStanzaDialect_6_0 const dialect = chooseDialect(request, request.file);
    Template const schema = readTemplate(request.file, request.wait, dialect);
    std::vector<TemplateKey> keys(schema.keys().begin(), schema.keys().end());
    for (TemplateKey& key : keys)
        if (key.stanza.empty())
            key.stanza = lineDialectOf(dialect)->topStanza();
    if (request.format == "plain")
        printTable(request, keys);
    else
        for (TemplateKey const& key : keys)
            printLine(request, request.format == "json" ? formatJson(key) : formatFields(key));
    return 0;
}
