#include "dialect_choice.h"

#include <Z/ZStanzaDialect_p.h>
#include <Z/dialects/table.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <memory>

#include "failures.h"
#include "key_lines.h"
#include "problems.h"
#include "stanza_file.h"

namespace {

struct CloseFile {
    void operator()(FILE* file) const { fclose(file); }
};

// Returns the contents of a file whose name two formats use; else an empty string.
std::string headersThatMatter(std::string const& path)
{
    return path.find(".service") == path.npos ? "" : readContents(path);
}

// Returns whether the name of a file, or of the target of a link, implies a dialect.
bool recognise(std::string const& path, std::string const& contents, ZStanzaDialect_6_0& dialect)
{
    char target[PATH_MAX];
    return ZStanzaDialect_6_0::recognised(path.c_str(), contents.data(), contents.size(),
                                          dialect) != 0 ||
           (realpath(path.c_str(), target) != nullptr &&
            ZStanzaDialect_6_0::recognised(target, contents.data(), contents.size(), dialect) != 0);
}

bool hasErrors(Problems const& problems)
{
    for (unsigned i = 0; i < problems.size(); ++i)
        if (problems[i].kind() == ZStanzaProblem_6_0::error)
            return true;
    return false;
}

}  // namespace

std::string readContents(std::string const& path)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return {};
    std::unique_ptr<FILE, CloseFile> const file(fopen(path.c_str(), "re"));
    std::string text;
    char chunk[65536];
    for (size_t length = 1; file != nullptr && length > 0;) {
        length = fread(chunk, 1, sizeof chunk, file.get());
        text.append(chunk, length);
    }
    return text;
}

ZStanzaDialect_6_0 chooseDialect(Request const& request, std::string const& path,
                                 char const** reason, std::string const* contents)
{
    ZStanzaDialect_6_0 dialect;
    char const* const variable = getenv("ZSTZ_DIALECT");
    char const* why = "by --dialect";
    if (!request.dialect.empty()) {
        ZStanzaDialect_6_0::named(request.dialect.c_str(), dialect);
    } else if (variable != nullptr && *variable != 0) {
        if (ZStanzaDialect_6_0::named(variable, dialect) == 0)
            throw Failure{exitUsage,
                          "ZSTZ_DIALECT",
                          {"unknown dialect " + quote(variable), "unset it, or correct it"}};
        why = "by the variable ZSTZ_DIALECT";
    } else {
        std::string const text = contents != nullptr ? *contents : headersThatMatter(path);
        if (path == kStandardInput ||
            ZStanzaDialect_6_0::recognised(path.c_str(), text.data(), text.size(), dialect) == 0)
            why = "the default, because the name of the file implies no other dialect";
        else
            why = text.empty() ? "by the name of the file"
                               : "by the name of the file and its first header";
    }
    if (reason != nullptr)
        *reason = why;
    return dialect;
}

std::string spell(ZStanzaDialect_6_0 const& dialect)
{
    return zdialects::spellDialect(*zdialects::findRow(dialect.name()),
                                   zdialects::switchesOf(dialect));
}

ZStanzaDialect_6_0 chooseTemplateDialect(Request const& request,
                                         ZStanzaDialect_6_0 const& fileDialect)
{
    ZStanzaDialect_6_0 const chosen = chooseDialect(request, request.templateFile);
    return strcmp(chosen.name(), "stanza") == 0 ? fileDialect : chosen;
}

void addSuggestion(std::string const& path, std::string const& contents,
                   ZStanzaDialect_6_0 const& dialect, std::string& report)
{
    ZStanzaDialect_6_0 implied;
    bool const isImplied = recognise(path, contents, implied) && spell(implied) != spell(dialect) &&
                           !hasErrors(Problems::ofText(contents, implied));
    bool const isStanza = strcmp(dialect.name(), "stanza") == 0;
    char const* const suggested =
        isStanza && !isImplied ? ZStanzaDialect_6_0::readsAs(contents.data(), contents.size())
                               : nullptr;
    if (isImplied || suggested != nullptr) {
        std::string const name = isImplied ? spell(implied) : suggested;
        report += "; reads as " + name + "; say --dialect " + name;
    }
}

void resolveNames(Request& request)
{
    bool const isRename = request.verb == "rename" && request.key.empty();
    auto const mayBeSpelled = [](std::string const& name) {
        return name.starts_with('[') || name.find('"') != name.npos;
    };
    bool const isSpelled =
        mayBeSpelled(request.stanza) || (isRename && mayBeSpelled(request.newName));
    if (!isSpelled || request.file.empty())
        return;
    ZStanzaDialect_6_0 const dialect = chooseDialect(request, request.file);
    request.stanza = resolveStanza(dialect, request.stanza);
    if (isRename)
        request.newName = resolveStanza(dialect, request.newName);
}
