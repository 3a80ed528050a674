// template_file: the templates of files, which the verbs get, lint and doc take.
#pragma once

#include <Z/ZStanzaDialect.h>
#include <Z/templates/template.h>

#include <string>

using ztemplates::Template;
using ztemplates::TemplateKey;

/// Reads the template at `path`, or from standard input, in a dialect.
/// throws  as readText(); Failure if it has no keys.
Template readTemplate(std::string const& path, double wait, ZStanzaDialect_6_0 const& dialect);

/// Returns the template of this text, which is from `path`.
/// throws  Failure if it has no keys.
Template parseTemplate(std::string const& path, std::string const& text,
                       ZStanzaDialect_6_0 const& dialect);
