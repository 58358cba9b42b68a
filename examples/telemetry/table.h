// The values on the screen: drawn in place on a terminal, else one line each second.
#pragma once

#include "record.h"

#include <cstdint>

namespace telemetry
{

class Table
{
public:
    Table();

    /// Takes a record in; shows the means since the last showing when it is time for it.
    void show(const Record& record);

private:
    void draw(const Record& record);
    void printLine(const Record& record);

    bool inPlace_;
    bool drawn_ = false; // there is a heading, or something to draw over
    uint32_t lines_ = 0; // to draw over
    uint64_t records_ = 0;

    // Since the last showing.
    Record first_{};
    uint32_t count_ = 0;
    uint32_t busy_ = 0; // sums of thousandths
    uint32_t busyOfCore_[maxCores] = {};
};

} // namespace telemetry
