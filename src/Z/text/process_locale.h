// process_locale: whether the text services set the locale of the process when they start.
#pragma once

namespace ztext {

/// Makes the text services start in the locale that the program has set, instead of setting all
/// categories from the environment. Has no effect after they have started.
/// threads any.
void keepProcessLocale();

/// Sets the locale of the process from the environment, unless the program keeps its own.
void setProcessLocale();

}  // namespace ztext
