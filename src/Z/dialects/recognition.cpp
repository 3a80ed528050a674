#include "recognition.h"

#include <limits.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "table.h"

namespace zdialects {

namespace {

// The first pattern that matches decides. A '*' matches any bytes, including '/'.
struct NameRule {
    std::string_view pattern;
    RowIndex row;
    std::string_view firstHead = {};  // if not empty, the first header must be this
    char const* variation = nullptr;  // the dialect with its switches, if some differ from the row
};

// Only a semicolon starts a comment after a value.
constexpr char kPythonSemicolon[] = "python,trailing=semicolon,trailingNeeds=blankBefore";

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
    {"*.dnssd", rowSystemd},
    {"*.path", rowSystemd},
    {"*.service.d/*.conf", rowSystemd},
    {"*.socket.d/*.conf", rowSystemd},
    {"*.timer.d/*.conf", rowSystemd},
    {"*.mount.d/*.conf", rowSystemd},
    {"*.automount.d/*.conf", rowSystemd},
    {"*.swap.d/*.conf", rowSystemd},
    {"*.path.d/*.conf", rowSystemd},
    {"*.target.d/*.conf", rowSystemd},
    {"*.slice.d/*.conf", rowSystemd},
    {"*.scope.d/*.conf", rowSystemd},
    {"*.link.d/*.conf", rowSystemd},
    {"*.dnssd.d/*.conf", rowSystemd},
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
    {"*/wireguard/*.conf", rowNetworkd},
    {"*.desktop", rowDesktop},
    {"*.directory", rowDesktop},
    {"*.gschema.override", rowDesktop},
    {"*.nmconnection", rowDesktop},
    {"*/NetworkManager/NetworkManager.conf", rowDesktop},
    {"*/NetworkManager/conf.d/*.conf", rowDesktop},
    {"*/mimeapps.list", rowDesktop},
    {"*/index.theme", rowDesktop},
    {"*.gitconfig", rowGit},
    {"*/.gitconfig.local", rowGit},
    {"*/gitconfig", rowGit},
    {"*/git/config", rowGit},
    {"*.git/config", rowGit},
    {"*/.git/config.worktree", rowGit},
    {"*/.git/modules/*/config", rowGit},
    {"*/.gitmodules", rowGit},
    {"*/php.ini", rowPhp},
    {"*/php/*.ini", rowPhp},
    {"*/php.ini-*", rowPhp},
    {"*/php-fpm.conf", rowPhp},
    {"*/php-fpm.d/*.conf", rowPhp},
    {"*/fpm/pool.d/*.conf", rowPhp},
    {"*/.user.ini", rowPhp},
    {"*/smb.conf", rowSamba},
    {"*/my.cnf", rowMysql},
    {"*/.my.cnf", rowMysql},
    {"*/mariadb.cnf", rowMysql},
    {"*/my.cnf.d/*.cnf", rowMysql},
    {"*/mariadb.conf.d/*.cnf", rowMysql},
    {"*/mysql.conf.d/*.cnf", rowMysql},
    {"*/mysql/*.cnf", rowMysql},
    {"*/setup.cfg", rowPython},
    {"*/tox.ini", rowPython},
    {"*/mypy.ini", rowPython},
    {"*/pytest.ini", rowPython},
    {"*/.isort.cfg", rowPython},
    {"*/.bumpversion.cfg", rowPython},
    {"*/alembic.ini", rowPython},
    {"*/.flake8", rowPython},
    {"*/.coveragerc", rowPython},
    {"*/.pylintrc", rowPython},
    {"*/pylintrc", rowPython},
    {"*/.pypirc", rowPython},
    {"*/pip.conf", rowPython},
    {"*-info/entry_points.txt", rowPython},
    {"*/fail2ban/*.conf", rowPython, {}, kPythonSemicolon},
    {"*/fail2ban/*.local", rowPython, {}, kPythonSemicolon},
    {"*/supervisord.conf", rowPythonInline},
    {"*/supervisor/*.conf", rowPythonInline},
    {"*/qt.conf", rowQt},
    {"*/qtlogging.ini", rowQt},
    {"*/kdeglobals", rowKconfig},
    {"*/kwinrc", rowKconfig},
    {"*/plasmarc", rowKconfig},
    {"*/.editorconfig", rowEditorconfig},
    {"*/desktop.ini", rowWindows},
    {"*/win.ini", rowWindows},
    {"*/system.ini", rowWindows},
    {"*/sysctl.conf", rowSysctl},
    {"*/sysctl.d/*.conf", rowSysctl},
    {"*/os-release", rowEnv},
    {"*/lsb-release", rowEnv},
    {"*/initrd-release", rowEnv},
    {"*/machine-info", rowEnv},
    {"*/etc/locale.conf", rowEnv},
    {"*/etc/vconsole.conf", rowEnv},
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

// Returns the path from the root, without ".", ".." and repeated slashes; symbolic links are not
// resolved. A relative path stays below "/" if the working directory has no path.
std::string absolutePath(std::string_view path)
{
    std::string absolute;
    char directory[PATH_MAX];
    if (!path.starts_with('/') && getcwd(directory, sizeof directory) != nullptr &&
        *directory == '/')
        absolute = directory;
    if (absolute == "/")
        absolute.clear();
    while (!path.empty()) {
        std::string_view const part = path.substr(0, path.find('/'));
        path.remove_prefix(std::min(part.size() + 1, path.size()));
        if (part == "..")
            absolute.erase(std::min(absolute.rfind('/'), absolute.size()));
        else if (!part.empty() && part != ".")
            absolute.append("/").append(part);
    }
    return absolute;
}

// Endings of copies that editors, package managers and users make.
constexpr std::string_view kCopyEndings[] = {
    "~",        ".bak",    ".orig",    ".old",      ".save", ".rpmnew", ".rpmsave",
    ".rpmorig", ".pacnew", ".pacsave", ".disabled", ".dist", ".sample", ".example",
};

// Removes the last ending of a copy. Returns whether there is one.
bool removeCopyEnding(std::string_view& path)
{
    size_t const nameBegin = path.rfind('/') + 1;
    size_t const dot = path.rfind('.');
    std::string_view const ending = dot == path.npos ? "" : path.substr(dot);
    size_t size = ending.starts_with(".dpkg-") || ending.starts_with(".ucf-") ? ending.size() : 0;
    for (std::string_view const copy : kCopyEndings)
        if (path.ends_with(copy))
            size = copy.size();
    // Numbered backups of editors: NAME.~7~
    bool const isNumbered = ending.size() > 3 && ending.starts_with(".~") &&
                            ending.ends_with('~') &&
                            ending.find_first_not_of("0123456789", 2) == ending.size() - 1;
    if (isNumbered)
        size = ending.size();
    if (size == 0 || nameBegin + size >= path.size())
        return false;
    path.remove_suffix(size);
    return true;
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

char const* recognise(std::string_view path, std::string_view text)
{
    if (path.empty() || path.ends_with('/'))
        return nullptr;  // no file
    std::string const absolute = absolutePath(path);
    std::string_view original = absolute;
    do {
        for (NameRule const& rule : kNames)
            if (matches(rule.pattern, original) &&
                (rule.firstHead.empty() || firstHeadOf(text) == rule.firstHead))
                return rule.variation != nullptr ? rule.variation : rowAt(rule.row).name;
    } while (removeCopyEnding(original));
    return nullptr;
}

}  // namespace zdialects
