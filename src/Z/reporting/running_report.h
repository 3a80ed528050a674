// running_report: the reports of exceptions that run in the calling thread.
#pragma once

class ZZException_6_0;

namespace zreporting {

// A running report of the calling thread: a print() has passed inserts to the message service. That
// print() determines their types. It may be of another class than the insertTypes() that the
// service calls, because a caller's class may override one of the two.
class RunningReport {
public:
    enum Source {
        library,  // a print() of the library, which states the types
        caller,   // a print() of a caller's class: the types in the message text
        root      // the print() of the root, which passes only nulls
    };

    RunningReport(ZZException_6_0 const* exception, Source source, char const* types)
        : exception_(exception), source_(source), types_(types), outer_(innermost_)
    {
        innermost_ = this;
    }
    RunningReport(RunningReport const&) = delete;
    RunningReport& operator=(RunningReport const&) = delete;
    ~RunningReport() { innermost_ = outer_; }

    // Returns the running report of `exception`, or null. Reports nest: a service may make other
    // reports before it reads the inserts.
    static RunningReport const* of(ZZException_6_0 const* exception);

    Source source() const { return source_; }
    char const* types() const { return types_; }  // null unless the library states them

private:
    ZZException_6_0 const* const exception_;
    Source const source_;
    char const* const types_;
    RunningReport const* const outer_;

    static constinit thread_local RunningReport const* innermost_;
};

}  // namespace zreporting
