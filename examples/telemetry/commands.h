// The commands of the demonstration. Each runs to its end and gives the exit status.
#pragma once

#include <cstdint>
#include <string>

namespace telemetry
{

struct Options {
    std::string name = "telemetry"; ///< Of the shared region.
    uint32_t interval = 100;        ///< Milliseconds from sample to sample.
    uint32_t seconds = 0;           ///< How long the run lasts; 0: until one side ends it.
};

int sample(const Options& options); ///< Fills the queue.
int report(const Options& options); ///< Takes from the queue and shows.
int demo(const Options& options);   ///< Runs both as processes of their own.

} // namespace telemetry
