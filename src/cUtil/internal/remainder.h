// What is left of a 32-bit number after division by one that was prepared for it, without dividing: on 32-bit ARM two
// multiplications, a shift and a multiply-subtract.
#pragma once

#include <bit>
#include <cstdint>

namespace cu::internal
{

/// The quotient is (multiplier * number + addend) >> (32 + shift). With the multiplier 2^(32 + shift) / divisor,
/// rounded up where that is close enough and otherwise down, with as much again to add, it is exact for every 32-bit
/// number.
class Remainder
{
public:
    /// Leaves every number as it is: for divisors above all 32-bit numbers.
    constexpr Remainder() = default;

    /// The divisor is above 1 and no power of two.
    constexpr explicit Remainder(uint32_t divisor)
        : divisor_(divisor), shift_(static_cast<uint32_t>(std::bit_width(divisor)) - 1)
    {
        const uint64_t power = uint64_t{1} << (32 + shift_);
        const bool up = divisor - power % divisor <= uint64_t{1} << shift_;
        multiplier_ = static_cast<uint32_t>(power / divisor) + (up ? 1 : 0);
        addend_ = up ? 0 : multiplier_;
    }

    constexpr uint32_t of(uint32_t number) const
    {
        const uint64_t product = uint64_t{multiplier_} * number + addend_;
        return number - (static_cast<uint32_t>(product >> 32) >> shift_) * divisor_;
    }

private:
    uint32_t divisor_ = 0;
    uint32_t multiplier_ = 0;
    uint32_t addend_ = 0;
    uint32_t shift_ = 0;
};

} // namespace cu::internal
