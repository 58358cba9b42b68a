// The values on the screen: drawn in place on a terminal, with the last minute in small; else a line for each second.
#pragma once

#include "properties.h"

#include <cstddef>

namespace telemetry
{

class Table
{
public:
    Table();

    /// Shows what the server told.
    void print(const Properties& shown);

private:
    bool inPlace_;
    bool inUtf8_;
    std::ptrdiff_t lines_ = 0; // to draw over; 0: nothing has been shown yet
};

} // namespace telemetry
