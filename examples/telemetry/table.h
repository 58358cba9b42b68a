// The values on the screen: drawn in place on a terminal, with the last minute in small; else a line for each second.
// The cursor rests at the top of the drawing, so that what somebody else has to say goes above the next one.
#pragma once

#include "properties.h"

#include <string>

namespace telemetry
{

class Table
{
public:
    Table();
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;
    ~Table(); ///< What is shown from then on stands below.

    /// Shows what the server told.
    void print(const Properties& shown);

private:
    bool inPlace_;
    bool inUtf8_;
    std::string shown_; // last; empty: nothing yet
};

} // namespace telemetry
