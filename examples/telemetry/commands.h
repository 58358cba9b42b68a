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
    uint32_t seconds = 0;              ///< How long the run lasts; 0: until it is asked to end.
    int32_t supervisor = 0;            ///< The process that runs the part and with which it ends; 0: none.
};

int sample(const Options& options); ///< Fills the queue.
int serve(const Options& options);  ///< Takes from the queue, remembers and answers.
int watch(const Options& options);  ///< Asks and draws.
int run(const Options& options);    ///< Keeps a sampler and a server running, as processes of their own.
int demo(const Options& options);   ///< The same with a watcher, and for a while.

} // namespace telemetry
