// How busy each processor was over the whole run.
#pragma once

#include <cUtil/algorithm/map.h>

#include <vector>

namespace telemetry
{

/// Gathers in a map by processor, and tells in a tree's order. What cannot be stored is told, and missing afterwards.
class Cores
{
public:
    Cores();
    Cores(const Cores&) = delete;
    Cores& operator=(const Cores&) = delete;
    ~Cores();

    /// @param busy  the shares of 1 of a while, by processor
    void add(const std::vector<double>& busy);

    /// Prints the busiest ones, in one line.
    void print() const;

private:
    cu_Map* shares_ = nullptr;
};

} // namespace telemetry
