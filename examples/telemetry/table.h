// The values on the screen: drawn in place on a terminal, else one line each second.
#pragma once

#include "properties.h"

#include <cstdint>
#include <string>

namespace telemetry
{

class Table
{
public:
    Table();

    /// Nanoseconds from showing to showing.
    int64_t period() const;

    /// Composes what is to be shown: "time" in seconds since the epoch, "records" and "lost" of the run, "busy" and
    /// "cores" as shares of 1, "memory.used" and "memory.total" in bytes, "load" as three averages, "received" and
    /// "sent" in bytes per second. Any thread may call it.
    std::string compose(const Properties& shown) const;

    /// Writes what was composed. In order, by one thread.
    void print(const std::string& text);

private:
    bool inPlace_;
    bool drawn_ = false; // there is a heading, or something to draw over
    int lines_ = 0;      // to draw over
};

} // namespace telemetry
