// What the server remembers: the summary of the last second, and how some of its values came about.
#pragma once

#include "properties.h"

#include <array>
#include <cstdint>
#include <deque>

namespace telemetry
{

constexpr uint32_t historySeconds = 60; ///< As far as it goes back.

/// The values that are remembered, by their names; their histories are lists of these names behind "history.".
constexpr std::array<const char*, 3> remembered = {"busy", "received", "sent"};

class History
{
public:
    void add(const Properties& summary);

    /// Adds a real number to the last summary.
    void note(const char* name, double value) { last_.set(name, cu_Variant_set_ieee64, value); }

    /// The last summary, and with it the histories over the last @p seconds, the oldest value first. Nothing when there
    /// was none yet.
    Properties tell(uint32_t seconds) const;

private:
    Properties last_;
    std::array<std::deque<double>, remembered.size()> values_;
};

} // namespace telemetry
