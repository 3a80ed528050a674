#include "dialect_choice.h"

#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <memory>

#include "failures.h"

namespace {

struct CloseFile {
    void operator()(FILE* file) const { fclose(file); }
};

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
        // Two formats have names that end with ".service"; the first header distinguishes them.
        std::string const text = !path.ends_with(".service") ? ""
                                 : contents != nullptr       ? *contents
                                                             : readContents(path);
        if (ZStanzaDialect_6_0::recognised(path.c_str(), text.data(), text.size(), dialect) == 0)
            why = "no other format is the only user of such a name";
        else
            why = text.empty() ? "by the name of the file"
                               : "by the name of the file and its first header";
    }
    if (reason != nullptr)
        *reason = why;
    return dialect;
}

void addSuggestion(std::string const& contents, std::string& report)
{
    char const* const name = ZStanzaDialect_6_0::readsAs(contents.data(), contents.size());
    if (name != nullptr)
        report += std::string("; reads as ") + name + "; say --dialect " + name;
}

void requireStanzaDialect(Request const& request)
{
    for (std::string const& path :
         {request.path.empty() ? request.file : request.path, request.other, request.base}) {
        ZStanzaDialect_6_0 const dialect = chooseDialect(request, path);
        if (dialect.name() != std::string_view("stanza"))
            throw Failure{
                exitRefused,
                path,
                {std::string("zstz ") + request.verb +
                     " supports only the dialect stanza, and the file is of the dialect " +
                     dialect.name(),
                 "pass --dialect stanza if it is a stanza file"}};
    }
}
