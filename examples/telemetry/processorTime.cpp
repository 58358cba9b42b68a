#include "processorTime.h"

#include <cUtil/processInfo.h>

namespace telemetry
{

namespace
{

double toSeconds(const cu_TimeValue& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

} // namespace

ProcessorTime processorTimeOf(int process)
{
    cu_TimeValue own{};
    cu_TimeValue system{};
    if (cu_ProcessInfo_getCPUTimes(process, &own, &system) != 0)
        return {};
    return {toSeconds(own), toSeconds(system)};
}

} // namespace telemetry
