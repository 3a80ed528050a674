// object_deleter: deletes objects whose destructors may throw.
#pragma once

#include <exception>
#include <utility>

#include "../ZObject.h"
#include "../reporting/cancellation.h"

namespace zcontainers {

/// Deletes objects one after another, all of them even if a destructor throws.
class ObjectDeleter {
public:
    /// Deletes `obj`; null is ignored.
    void destroy(ZObject_6_0 const* obj)
    {
        run([obj] { delete obj; });
    }

    /// Calls `deletes()`, which may throw. A cancellation passes through.
    template <class Deletes>
    void run(Deletes deletes)
    {
        try {
            deletes();
        } catch (...) {
            if (zreporting::caughtCancellation())
                throw;
            if (first_ == nullptr)
                first_ = std::current_exception();
        }
    }

    /// Throws the first exception caught by destroy() and run(), if any.
    void rethrowFirst()
    {
        if (first_ != nullptr)
            std::rethrow_exception(std::exchange(first_, nullptr));
    }

private:
    std::exception_ptr first_;
};

}  // namespace zcontainers
