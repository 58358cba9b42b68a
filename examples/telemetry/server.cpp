// The server: takes the records that the sampler puts, remembers the last minute and answers watchers. One thread takes
// and answers; what is to be reckoned, moved over the network and written to the log is left to others.
#include "aggregation.h"
#include "begin.h"
#include "commands.h"
#include "history.h"
#include "log.h"
#include "messages.h"
#include "processorTime.h"
#include "record.h"
#include "service.h"
#include "source.h"

#include <cUtil/time/time.h>

#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <unistd.h>

namespace telemetry
{

namespace
{

int64_t toNanoseconds(const cu_TimeValue& time)
{
    return time.tv_sec * int64_t{1'000'000'000} + time.tv_nsec;
}

/// What the run costs is told, too.
void noteCosts(History& history, const Source& source)
{
    history.note("cost.sampler", source.sampler() != 0 ? processorTimeOf(source.sampler()).total() : 0);
    history.note("cost.server", processorTimeOf(getpid()).total());
}

/// Until the process is to end.
int run(const Options& options, Source& source, Aggregation& aggregation, Service& service, History& history)
{
    cu_TimeValue now{};
    cu_ErrorCode code = cu_getTime(&now, CLOCK_MONOTONIC);
    cu_TimeValue end = now;
    if (code == 0)
        code = cu_addSeconds(&end, options.seconds);
    while (code == 0 && !stopRequested() && (options.seconds == 0 || toNanoseconds(now) < toNanoseconds(end))) {
        Record record{};
        bool taken = false;
        if (!source.take(record, taken))
            return failed;
        code = cu_getTime(&now, CLOCK_MONOTONIC);
        if (code == 0 && taken && !aggregation.add(record, toNanoseconds(now)))
            return failed;
        if (aggregation.gather(history))
            noteCosts(history, source);
        if (code == 0)
            code = service.answer(history);
    }
    return code == 0 ? done : failByRecord(code, "serving");
}

} // namespace

int serve(const Options& options)
{
    uint32_t address = 0;
    if (!begin(options, address))
        return failed;

    const auto logPort = static_cast<uint16_t>(options.port + 1);
    Log log; // ends last: the others may have something to say
    Service service;
    Aggregation aggregation;
    if (!log.start(options.log, address, logPort) || !service.start(address, options.port) || !aggregation.start())
        return failed;
    printf("serving at %s, port %" PRIu16 "; the log is at port %" PRIu16 " and in %s\n", options.host.c_str(),
           options.port, logPort, options.log.c_str());

    Source source(options.name);
    History history;
    const int status = run(options, source, aggregation, service, history);
    const bool good = aggregation.end(history);
    printf("%" PRIu64 " requests answered\n", service.answers());
    return good ? status : failed;
}

} // namespace telemetry
