// recognition: the dialect of a file from its name.
#pragma once

#include <string_view>

namespace zdialects {

/// Returns the dialect if only one format uses this name, else null: a name, perhaps with switches
/// as ZStanzaDialect_6_0::named() takes them. A relative path starts at the working directory;
/// links are not resolved. A copy, such as NAME.bak, has the dialect of NAME. Endings such as
/// .conf, .cnf, .cfg and .rc decide nothing without more of the name. `text` matters for names
/// ending with .service, whose first header separates D-Bus from systemd.
/// owns    a constant of the library.
/// throws  std::bad_alloc.
char const* recognise(std::string_view path, std::string_view text);

}  // namespace zdialects
