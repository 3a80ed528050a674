// DialectNames: the dialect of a file from its name, for names that only one format uses.
//
// Endings such as .conf, .cnf, .cfg and .rc alone decide nothing. The contents matter for one name:
// the first header of a .service file separates D-Bus from systemd.
#pragma once

#include <fnmatch.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <regex>
#include <string>
#include <string_view>

namespace dialect_model {

// A pattern as of fnmatch(), in which * also matches a slash. The first row that matches decides.
struct DialectName {
    char const* pattern;
    char const* dialect;
    char const* firstHeader = "";  // if not empty, the first header must be this one
    char const* variation = "";    // switches that differ from the dialect
};

inline constexpr DialectName kDialectNames[] = {
    {"*.service", "desktop", "[D-BUS Service]"},
    {"*.service", "systemd"},
    {"*.socket", "systemd"},
    {"*.timer", "systemd"},
    {"*.mount", "systemd"},
    {"*.automount", "systemd"},
    {"*.swap", "systemd"},
    {"*.target", "systemd"},
    {"*.slice", "systemd"},
    {"*.scope", "systemd"},
    {"*.link", "systemd"},
    {"*.dnssd", "systemd"},
    {"*.path", "systemd"},
    {"*.service.d/*.conf", "systemd"},
    {"*.socket.d/*.conf", "systemd"},
    {"*.timer.d/*.conf", "systemd"},
    {"*.mount.d/*.conf", "systemd"},
    {"*.automount.d/*.conf", "systemd"},
    {"*.swap.d/*.conf", "systemd"},
    {"*.path.d/*.conf", "systemd"},
    {"*.target.d/*.conf", "systemd"},
    {"*.slice.d/*.conf", "systemd"},
    {"*.scope.d/*.conf", "systemd"},
    {"*.link.d/*.conf", "systemd"},
    {"*.dnssd.d/*.conf", "systemd"},
    {"*/systemd/*.conf.d/*.conf", "systemd"},
    {"*/systemd/system.conf", "systemd"},
    {"*/systemd/user.conf", "systemd"},
    {"*/systemd/coredump.conf", "systemd"},
    {"*/systemd/homed.conf", "systemd"},
    {"*/systemd/journald.conf", "systemd"},
    {"*/systemd/logind.conf", "systemd"},
    {"*/systemd/networkd.conf", "systemd"},
    {"*/systemd/oomd.conf", "systemd"},
    {"*/systemd/pstore.conf", "systemd"},
    {"*/systemd/resolved.conf", "systemd"},
    {"*/systemd/sleep.conf", "systemd"},
    {"*/systemd/timesyncd.conf", "systemd"},
    {"*.network", "networkd"},
    {"*.netdev", "networkd"},
    {"*.nspawn", "networkd"},
    {"*.network.d/*.conf", "networkd"},
    {"*.netdev.d/*.conf", "networkd"},
    {"*/wireguard/*.conf", "networkd"},
    {"*.desktop", "desktop"},
    {"*.directory", "desktop"},
    {"*.gschema.override", "desktop"},
    {"*.nmconnection", "desktop"},
    {"*/NetworkManager/NetworkManager.conf", "desktop"},
    {"*/NetworkManager/conf.d/*.conf", "desktop"},
    {"*/mimeapps.list", "desktop"},
    {"*/index.theme", "desktop"},
    {"*.gitconfig", "git"},
    {"*/.gitconfig.local", "git"},
    {"*/gitconfig", "git"},
    {"*/git/config", "git"},
    {"*.git/config", "git"},
    {"*/.git/config.worktree", "git"},
    {"*/.git/modules/*/config", "git"},
    {"*/.gitmodules", "git"},
    {"*/php.ini", "php"},
    {"*/php/*.ini", "php"},
    {"*/php.ini-*", "php"},
    {"*/php-fpm.conf", "php"},
    {"*/php-fpm.d/*.conf", "php"},
    {"*/fpm/pool.d/*.conf", "php"},
    {"*/.user.ini", "php"},
    {"*/smb.conf", "samba"},
    {"*/my.cnf", "mysql"},
    {"*/.my.cnf", "mysql"},
    {"*/mariadb.cnf", "mysql"},
    {"*/my.cnf.d/*.cnf", "mysql"},
    {"*/mariadb.conf.d/*.cnf", "mysql"},
    {"*/mysql.conf.d/*.cnf", "mysql"},
    {"*/mysql/*.cnf", "mysql"},
    {"*/setup.cfg", "python"},
    {"*/tox.ini", "python"},
    {"*/mypy.ini", "python"},
    {"*/pytest.ini", "python"},
    {"*/.isort.cfg", "python"},
    {"*/.bumpversion.cfg", "python"},
    {"*/alembic.ini", "python"},
    {"*/.flake8", "python"},
    {"*/.coveragerc", "python"},
    {"*/.pylintrc", "python"},
    {"*/pylintrc", "python"},
    {"*/.pypirc", "python"},
    {"*/pip.conf", "python"},
    {"*-info/entry_points.txt", "python"},
    {"*/fail2ban/*.conf", "python", "", ",trailing=;,trailingNeeds=blankBefore"},
    {"*/fail2ban/*.local", "python", "", ",trailing=;,trailingNeeds=blankBefore"},
    {"*/supervisord.conf", "python-inline"},
    {"*/supervisor/*.conf", "python-inline"},
    {"*/qt.conf", "qt"},
    {"*/qtlogging.ini", "qt"},
    {"*/kdeglobals", "kconfig"},
    {"*/kwinrc", "kconfig"},
    {"*/plasmarc", "kconfig"},
    {"*/.editorconfig", "editorconfig"},
    {"*/desktop.ini", "windows"},
    {"*/win.ini", "windows"},
    {"*/system.ini", "windows"},
    {"*/sysctl.conf", "sysctl"},
    {"*/sysctl.d/*.conf", "sysctl"},
    {"*/os-release", "env"},
    {"*/lsb-release", "env"},
    {"*/initrd-release", "env"},
    {"*/machine-info", "env"},
    {"*/etc/locale.conf", "env"},
    {"*/etc/vconsole.conf", "env"},
    {"*/etc/environment", "env"},
    {"*/environment.d/*.conf", "env"},
    {"*/etc/default/*", "env"},
};

inline std::string firstHeaderOf(std::string_view text)
{
    for (std::size_t at = 0; at < text.size();) {
        std::size_t const end = std::min(text.find('\n', at), text.size());
        std::string_view const line = text.substr(at, end - at);
        std::size_t const first = line.find_first_not_of(" \t");
        if (first != std::string_view::npos && line[first] == '[') {
            std::size_t const last = line.find_last_not_of(" \t\r");
            return std::string(line.substr(first, last - first + 1));
        }
        at = end + 1;
    }
    return "";
}

// The dialect of a file, or "stanza" if its name decides nothing. A relative path starts at the
// working directory. A copy has the dialect of the original.
inline std::string dialectOf(std::string const& path, std::string_view text)
{
    if (path.empty() || path.back() == '/')
        return "stanza";
    std::string full = std::filesystem::absolute(path).lexically_normal();
    static std::regex const copy(
        "(.*?[^/])(~|\\.~[0-9]+~|\\.(bak|orig|old|save|rpm(new|save|orig)|pac(new|save)|disabled|"
        "dist|sample|example|(dpkg|ucf)-[^./]*))");
    for (std::smatch parts;; full = std::string(parts[1])) {
        for (DialectName const& name : kDialectNames)
            if (fnmatch(name.pattern, full.c_str(), 0) == 0 &&
                (*name.firstHeader == '\0' || firstHeaderOf(text) == name.firstHeader))
                return name.dialect;
        if (!std::regex_match(full, parts, copy))
            return "stanza";
    }
}

}  // namespace dialect_model
