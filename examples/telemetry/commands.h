// The commands of the demonstration. Each runs to its end and gives the exit status.
#pragma once

#include <cstdint>
#include <string>

namespace telemetry
{

struct Options {
    std::string name = "telemetry";    ///< Of the shared region.
    std::string host = "127.0.0.1";    ///< Where the server listens, name or address.
    uint16_t port = 7070;              ///< For watchers; the log is offered at the next one.
    std::string log = "telemetry.log"; ///< The file for the log.
    uint32_t interval = 100;           ///< Milliseconds from sample to sample.
    uint32_t seconds = 0;              ///< How long the run lasts; 0: until another side ends it.
};

int sample(const Options& options); ///< Fills the queue.
int serve(const Options& options);  ///< Takes from the queue, remembers and answers.
int watch(const Options& options);  ///< Asks and draws.
int demo(const Options& options);   ///< Runs all three as processes of their own.

} // namespace telemetry
