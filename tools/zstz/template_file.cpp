#include "template_file.h"

#include "failures.h"
#include "raw_file.h"

Template readTemplate(std::string const& path, double wait)
{
    Template schema(readText(path, wait));
    if (schema.keys().empty())
        throw Failure{exitInvalidData,
                      path,
                      {"no comment of the form \"# key = default\"", "give a template file"}};
    return schema;
}
