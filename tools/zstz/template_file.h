// template_file: the templates of files, which the verbs get, lint and doc take.
#pragma once

#include <Z/templates/template.h>

#include <string>

using ztemplates::Template;
using ztemplates::TemplateKey;

/// Reads the template at `path`, or from standard input.
/// throws  as readText(); Failure if it has no keys.
Template readTemplate(std::string const& path, double wait);
