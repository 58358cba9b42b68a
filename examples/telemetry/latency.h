// How long records took from put to take, in memory that does not grow with the run.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>

namespace telemetry
{

/// Counts in classes whose width is a thirty-second of the value; the maximum is exact.
class Latencies
{
public:
    void add(int64_t nanoseconds)
    {
        const uint64_t value = nanoseconds < 0 ? 0 : static_cast<uint64_t>(nanoseconds);
        ++counts_[classOf(value)];
        ++count_;
        maximum_ = std::max(maximum_, value);
    }

    /// Takes in all that @p other has counted.
    void add(const Latencies& other)
    {
        for (std::size_t i = 0; i < counts_.size(); ++i)
            counts_[i] += other.counts_[i];
        count_ += other.count_;
        maximum_ = std::max(maximum_, other.maximum_);
    }

    uint64_t count() const { return count_; }
    uint64_t maximum() const { return maximum_; }

    /// The smallest class limit, in nanoseconds, that at least @p percent of the values do not exceed; 0 without
    /// values.
    uint64_t percentile(uint32_t percent) const
    {
        const uint64_t wanted = (count_ * percent + 99) / 100;
        uint64_t below = 0;
        for (uint32_t i = 0; i < counts_.size(); ++i) {
            below += counts_[i];
            if (below >= wanted && below != 0)
                return std::min(upperLimit(i), maximum_);
        }
        return 0;
    }

private:
    static constexpr uint32_t fineBits = 5;
    static constexpr uint32_t fine = 1U << fineBits;

    // Below 32 a class for each value; above, the position of the highest bit and the five bits that follow it.
    static uint32_t classOf(uint64_t value)
    {
        if (value < fine)
            return static_cast<uint32_t>(value);
        const auto shift = static_cast<uint32_t>(std::bit_width(value)) - 1 - fineBits;
        return (shift + 1) * fine + static_cast<uint32_t>((value >> shift) & (fine - 1));
    }

    static uint64_t upperLimit(uint32_t index)
    {
        if (index < fine)
            return index;
        const uint32_t shift = index / fine - 1;
        return ((uint64_t{fine + index % fine} + 1) << shift) - 1;
    }

    std::array<uint64_t, (64 - fineBits + 1) * fine> counts_{};
    uint64_t count_ = 0;
    uint64_t maximum_ = 0;
};

} // namespace telemetry
