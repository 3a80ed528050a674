#include "process_locale.h"

#include <atomic>
#include <clocale>

namespace ztext {
namespace {

constinit std::atomic<bool> keepsLocale{false};

}  // namespace

void keepProcessLocale()
{
    keepsLocale.store(true, std::memory_order_relaxed);
}

void setProcessLocale()
{
    if (!keepsLocale.load(std::memory_order_relaxed))
        setlocale(LC_ALL, "");
}

}  // namespace ztext
