#include "begin.h"

#include "messages.h"

#include <cUtil/network/ipAddress.h>

#include <csignal>
#include <cstdio>
#include <sys/prctl.h>
#include <unistd.h>

namespace telemetry
{

bool begin(const Options& options)
{
    const bool isSupervised = options.supervisor != 0;
    catchStopSignals(isSupervised);
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ); // into a pipe, too
    if (!isSupervised)
        return true;
    // The system sends it when the supervisor ends; one that ended before this call is no longer our parent.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    return getppid() == options.supervisor;
}

bool begin(const Options& options, uint32_t& address)
{
    if (!begin(options))
        return false;
    const cu_ErrorCode code = cu_IPAddress_lookup(options.host.c_str(), &address);
    if (code != 0)
        static_cast<void>(failByRecord(code, options.host.c_str()));
    return code == 0;
}

} // namespace telemetry
