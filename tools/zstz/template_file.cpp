#include "template_file.h"

#include "failures.h"
#include "key_lines.h"
#include "raw_file.h"

Template readTemplate(std::string const& path, double wait, ZStanzaDialect_6_0 const& dialect)
{
    return parseTemplate(path, readText(path, wait), dialect);
}

Template parseTemplate(std::string const& path, std::string const& text,
                       ZStanzaDialect_6_0 const& dialect)
{
    Template schema(text, lineDialectOf(dialect));
    if (schema.keys().empty())
        throw Failure{exitInvalidData,
                      path,
                      {"is not a template: no comment of the form \"# key = default\", and no key",
                       "add them, or pass another file"}};
    return schema;
}
