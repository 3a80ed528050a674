#include "running_report.h"

namespace zreporting {

constinit thread_local RunningReport const* RunningReport::innermost_ = nullptr;

RunningReport const* RunningReport::of(ZZException_6_0 const* exception)
{
    RunningReport const* report = innermost_;
    while (report != nullptr && report->exception_ != exception)
        report = report->outer_;
    return report;
}

}  // namespace zreporting
