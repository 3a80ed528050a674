#include "recognition.h"

#include <algorithm>

namespace zdialects {

namespace {

// The first pattern that matches decides. A '*' matches any bytes, including '/'.
struct NameRule {
    std::string_view pattern;
    RowIndex row;
    std::string_view firstHead = {};  // if not empty, the first header must be this
};

constexpr NameRule kNames[] = {
    {"*.service", rowDesktop, "[D-BUS Service]"},
    {"*.service", rowSystemd},
    {"*.socket", rowSystemd},
    {"*.timer", rowSystemd},
    {"*.mount", rowSystemd},
    {"*.automount", rowSystemd},
    {"*.swap", rowSystemd},
    {"*.target", rowSystemd},
    {"*.slice", rowSystemd},
    {"*.scope", rowSystemd},
    {"*.link", rowSystemd},
    {"*/systemd/*.path", rowSystemd},
    {"*.service.d/*.conf", rowSystemd},
    {"*.socket.d/*.conf", rowSystemd},
    {"*.timer.d/*.conf", rowSystemd},
    {"*.mount.d/*.conf", rowSystemd},
    {"*.target.d/*.conf", rowSystemd},
    {"*.slice.d/*.conf", rowSystemd},
    {"*.scope.d/*.conf", rowSystemd},
    {"*/systemd/*.conf.d/*.conf", rowSystemd},
    {"*/systemd/system.conf", rowSystemd},
    {"*/systemd/user.conf", rowSystemd},
    {"*/systemd/coredump.conf", rowSystemd},
    {"*/systemd/homed.conf", rowSystemd},
    {"*/systemd/journald.conf", rowSystemd},
    {"*/systemd/logind.conf", rowSystemd},
    {"*/systemd/networkd.conf", rowSystemd},
    {"*/systemd/oomd.conf", rowSystemd},
    {"*/systemd/pstore.conf", rowSystemd},
    {"*/systemd/resolved.conf", rowSystemd},
    {"*/systemd/sleep.conf", rowSystemd},
    {"*/systemd/timesyncd.conf", rowSystemd},
    {"*.network", rowNetworkd},
    {"*.netdev", rowNetworkd},
    {"*.nspawn", rowNetworkd},
    {"*.network.d/*.conf", rowNetworkd},
    {"*.netdev.d/*.conf", rowNetworkd},
    {"*.desktop", rowDesktop},
    {"*.directory", rowDesktop},
    {"*.gschema.override", rowDesktop},
    {"*/.gitconfig", rowGit},
    {"*/etc/gitconfig", rowGit},
    {"*/git/config", rowGit},
    {"*/.git/config", rowGit},
    {"*/.gitmodules", rowGit},
    {"*/php.ini", rowPhp},
    {"*/php/*.ini", rowPhp},
    {"*/smb.conf", rowSamba},
    {"*/my.cnf", rowMysql},
    {"*/.my.cnf", rowMysql},
    {"*/mysql/*.cnf", rowMysql},
    {"*/setup.cfg", rowPython},
    {"*/tox.ini", rowPython},
    {"*/mypy.ini", rowPython},
    {"*/.flake8", rowPython},
    {"*/.coveragerc", rowPython},
    {"*/.pylintrc", rowPython},
    {"*/pylintrc", rowPython},
    {"*/.pypirc", rowPython},
    {"*/pip.conf", rowPython},
    {"*-info/entry_points.txt", rowPython},
    {"*/supervisord.conf", rowPythonInline},
    {"*/supervisor/*.conf", rowPythonInline},
    {"*/qt.conf", rowQt},
    {"*/qtlogging.ini", rowQt},
    {"*/kdeglobals", rowKconfig},
    {"*/kwinrc", rowKconfig},
    {"*/plasmarc", rowKconfig},
    {"*/.editorconfig", rowEditorconfig},
    {"*/sysctl.conf", rowSysctl},
    {"*/sysctl.d/*.conf", rowSysctl},
    {"*/os-release", rowEnv},
    {"*/etc/environment", rowEnv},
    {"*/environment.d/*.conf", rowEnv},
    {"*/etc/default/*", rowEnv},
};

// Returns whether the whole path matches. Bytes only: fnmatch() depends on the locale.
bool matches(std::string_view pattern, std::string_view path)
{
    for (size_t star; (star = pattern.find('*')) != pattern.npos;) {
        if (!path.starts_with(pattern.substr(0, star)))
            return false;
        path.remove_prefix(star);
        pattern.remove_prefix(star + 1);
        std::string_view const literal = pattern.substr(0, pattern.find('*'));
        if (literal.size() == pattern.size())
            return path.ends_with(literal);
        size_t const found = path.find(literal);
        if (found == path.npos)
            return false;
        path.remove_prefix(found);
    }
    return path == pattern;
}

// Returns the first line that starts with a bracket, without spaces around it.
std::string_view firstHeadOf(std::string_view text)
{
    while (!text.empty()) {
        std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
        if (line.starts_with('['))
            return line.substr(0, line.find_last_not_of(" \t\r") + 1);
    }
    return {};
}

}  // namespace

Row const* recognise(std::string_view path, std::string_view text)
{
    bool const isPlainName = path.find('/') == path.npos;
    for (NameRule const& rule : kNames) {
        // A name without a directory is in the working directory.
        bool const isNamed =
            matches(rule.pattern, path) || (isPlainName && rule.pattern.starts_with("*/") &&
                                            matches(rule.pattern.substr(2), path));
        if (isNamed && (rule.firstHead.empty() || firstHeadOf(text) == rule.firstHead))
            return &rowAt(rule.row);
    }
    return nullptr;
}

}  // namespace zdialects
