// The values on the screen: drawn in place on a terminal, else one line each second.
#pragma once

#include "record.h"

#include <cstdint>
#include <string>

namespace telemetry
{

/// What one showing tells: the means over some records in succession.
struct Showing {
    Record base{};        ///< What the rates are reckoned from: the last record of the showing before.
    Record last{};        ///< The newest record.
    uint64_t records = 0; ///< Of the run, up to the newest.
    uint32_t count = 0;   ///< Records that the sums are of.
    uint64_t busy = 0;    ///< Sums of thousandths.
    uint64_t busyOfCore[maxCores] = {};
};

class Table
{
public:
    Table();

    /// Nanoseconds from showing to showing.
    int64_t period() const;

    /// Composes what is to be shown. Any thread may call it.
    std::string compose(const Showing& showing) const;

    /// Writes what was composed. In order, by one thread.
    void print(const std::string& text);

private:
    bool inPlace_;
    bool drawn_ = false; // there is a heading, or something to draw over
    int lines_ = 0;      // to draw over
};

} // namespace telemetry
