#include "internal/decimal.h"

#include <array>
#include <bit>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace
{

static_assert(std::numeric_limits<double>::is_iec559 && std::numeric_limits<double>::digits == 53);

// digits * 10^exponent, with a sign.
struct Decimal {
    uint64_t digits = 0;
    std::ptrdiff_t exponent = 0;
    bool negative = false;
    bool cut = false; // more digits follow, not all of them 0
};

// A number of 128 bits.
struct Wide {
    uint64_t high;
    uint64_t low;
};

// A power of five: value * 2^exponent, or a little more, with the topmost bit of the value set.
struct Power {
    Wide value;
    int32_t exponent;
};

// 5^n is made of 5^(step * i), which is inexact for negative i and large ones, and of 5^0 to 5^26, which have 64 bits.
constexpr int32_t step = 27;
constexpr int32_t firstStep = -13;
constexpr int32_t lastStep = 11;

// A fixed-point number that is long enough to make the inexact powers from.
class LongNumber
{
public:
    /// 1, with so many bits behind the point.
    constexpr explicit LongNumber(uint32_t fraction) : fraction_(fraction)
    {
        limbs_[fraction / 32] = uint32_t{1} << (fraction % 32);
    }

    constexpr void multiply(uint32_t factor)
    {
        uint64_t carry = 0;
        for (uint32_t& limb : limbs_) {
            carry += uint64_t{limb} * factor;
            limb = static_cast<uint32_t>(carry);
            carry >>= 32;
        }
    }

    constexpr void divide(uint32_t divisor)
    {
        uint64_t rest = 0;
        for (std::size_t i = limbs_.size(); i-- != 0;) {
            rest = rest << 32 | limbs_[i];
            limbs_[i] = static_cast<uint32_t>(rest / divisor);
            rest %= divisor;
        }
    }

    /// The number, cut off behind its first 128 bits.
    constexpr Power topmost() const
    {
        std::size_t top = limbs_.size() - 1;
        while (limbs_[top] == 0)
            --top;
        const int zeros = std::countl_zero(limbs_[top]);
        const auto word = [&](std::size_t i) {
            const uint64_t pair = uint64_t{limbs_[top - i]} << 32 | limbs_[top - i - 1];
            return pair << zeros >> 32;
        };
        return {{word(0) << 32 | word(1), word(2) << 32 | word(3)},
                static_cast<int32_t>(32 * (top + 1)) - zeros - 128 - static_cast<int32_t>(fraction_)};
    }

private:
    std::array<uint32_t, 33> limbs_{};
    uint32_t fraction_;
};

constexpr auto coarsePowers = [] {
    constexpr uint32_t factors[] = {1220703125, 1220703125, 5}; // 5^13 * 5^13 * 5 = 5^step
    std::array<Power, lastStep - firstStep + 1> powers{};
    LongNumber number(160);
    for (std::size_t i = -firstStep; i < powers.size(); ++i) {
        powers[i] = number.topmost();
        for (const uint32_t factor : factors)
            number.multiply(factor);
    }
    number = LongNumber(1024);
    for (std::size_t i = -firstStep; i-- != 0;) {
        for (const uint32_t factor : factors)
            number.divide(factor);
        powers[i] = number.topmost();
    }
    return powers;
}();

constexpr auto finePowers = [] {
    std::array<uint64_t, step> powers{1};
    for (std::size_t i = 1; i < powers.size(); ++i)
        powers[i] = 5 * powers[i - 1];
    return powers;
}();

// The powers of ten that a double holds exactly.
constexpr auto exactPowersOfTen = [] {
    std::array<double, 23> powers{1};
    for (std::size_t i = 1; i < powers.size(); ++i)
        powers[i] = 10 * powers[i - 1];
    return powers;
}();

constexpr uint64_t largestExactInteger = uint64_t{1} << 53;

Wide add(Wide a, uint64_t b)
{
    const uint64_t low = a.low + b;
    return {a.high + (low < b), low};
}

Wide multiply(uint64_t a, uint64_t b)
{
#ifdef __SIZEOF_INT128__
    __extension__ using Product = unsigned __int128;
    const Product product = static_cast<Product>(a) * b;
    return {static_cast<uint64_t>(product >> 64), static_cast<uint64_t>(product)};
#else
    const auto halves = [](uint64_t x, uint64_t y) { return (x & UINT32_MAX) * (y & UINT32_MAX); };
    const uint64_t low = halves(a, b);
    const uint64_t middle = halves(a >> 32, b) + (low >> 32);
    const uint64_t other = halves(a, b >> 32) + (middle & UINT32_MAX);
    return {halves(a >> 32, b >> 32) + (middle >> 32) + (other >> 32), other << 32 | (low & UINT32_MAX)};
#endif
}

// The upper half of the product.
Wide multiply(Wide a, Wide b)
{
    const Wide middle = add(multiply(a.high, b.low), multiply(a.low, b.low).high);
    const Wide other = add(multiply(a.low, b.high), middle.low);
    return add(add(multiply(a.high, b.high), middle.high), other.high);
}

// Shifts a number other than 0 to the left until its topmost bit is set.
Wide normalize(Wide number, int32_t& exponent)
{
    if (number.high == 0) {
        number = {number.low, 0};
        exponent -= 64;
    }
    const int shift = std::countl_zero(number.high);
    exponent -= shift;
    return shift == 0 ? number : Wide{number.high << shift | number.low >> (64 - shift), number.low << shift};
}

// One operation on exact operands rounds as it should.
bool convertSmall(const Decimal& number, double& value)
{
    constexpr auto limit = static_cast<std::ptrdiff_t>(exactPowersOfTen.size()) - 1;
    if (number.digits > largestExactInteger || number.exponent < -limit || number.exponent > limit)
        return false;
    const auto magnitude = static_cast<double>(static_cast<int64_t>(number.digits));
    const double factor = number.negative ? -magnitude : magnitude;
    value = number.exponent < 0 ? factor / exactPowersOfTen[static_cast<std::size_t>(-number.exponent)]
                                : factor * exactPowersOfTen[static_cast<std::size_t>(number.exponent)];
    return true;
}

// The number in 128 bits, of which 64 are exact and the others say whether there is more.
bool convertLarge(const Decimal& number, double& value)
{
    constexpr int64_t least = int64_t{step} * firstStep;
    constexpr int64_t beyond = int64_t{step} * (lastStep + 1);
    if (number.exponent < least || number.exponent >= beyond)
        return false;
    const auto position = static_cast<uint32_t>(number.exponent - least);
    const Power& coarse = coarsePowers[position / step];
    auto exponent = static_cast<int32_t>(number.exponent);
    Wide product = normalize(multiply(number.digits, finePowers[position % step]), exponent);
    if (position / step != -firstStep) {
        product = normalize(multiply(product, coarse.value), exponent);
        exponent += coarse.exponent + 128;
        // The product is too small by less than 4: by less than 1 for the power that is cut off, by less than 1 for the
        // lower half, and twice that after a shift.
        if (product.low == 0 || product.low > UINT64_MAX - 4)
            return false;
    }
    exponent += 64; // of the upper word

    constexpr int32_t bits = 64;
    if (exponent + bits < DBL_MIN_EXP || exponent + bits > DBL_MAX_EXP)
        return false;

    // Whatever follows is between two numbers of 64 bits, and rounding changes at some of 54 bits only: one more bit
    // stands for all of it. The addition is the only operation that rounds.
    const auto upper = static_cast<double>(static_cast<uint32_t>(product.high >> 32)) * 4294967296.0;
    const auto lower = static_cast<double>(static_cast<uint32_t>(product.high) | (product.low != 0));
    const double sum = number.negative ? -upper - lower : upper + lower;
    value = std::bit_cast<double>(std::bit_cast<uint64_t>(sum) + (static_cast<uint64_t>(exponent) << 52));
    return std::isfinite(value);
}

bool convert(Decimal number, double& value)
{
    if (!number.cut) {
        while (number.digits > largestExactInteger && number.digits % 10 == 0) {
            number.digits /= 10;
            ++number.exponent;
        }
        return convertSmall(number, value) || (number.digits != 0 && convertLarge(number, value));
    }
    // What lies between two numbers that are rounded to the same one is so, too.
    double below = 0;
    if (!convertLarge(number, below))
        return false;
    ++number.digits;
    return convertLarge(number, value) && value == below;
}

// Keeps 19 digits at least, behind the zeros in front.
const char* readDigits(const char* at, bool behindPoint, Decimal& number)
{
    constexpr uint64_t full = 1'000'000'000'000'000'000;
    for (;; ++at) {
        const uint32_t digit = static_cast<unsigned char>(*at) - uint32_t{'0'};
        if (digit > 9)
            return at;
        if (number.digits < full) {
            number.digits = 10 * number.digits + digit;
            number.exponent -= behindPoint;
        } else {
            number.cut |= digit != 0;
            number.exponent += !behindPoint;
        }
    }
}

bool readExponent(const char*& at, Decimal& number)
{
    const bool negative = *at == '-';
    at += negative || *at == '+';
    if (*at == '\0')
        return false;
    std::ptrdiff_t exponent = 0;
    for (; *at >= '0' && *at <= '9'; ++at) {
        exponent = 10 * exponent + (*at - '0');
        if (exponent > 99999)
            return false;
    }
    number.exponent += negative ? -exponent : exponent;
    return true;
}

} // namespace

bool cu::internal::parseDecimal(const char* text, double& value)
{
    // Operations that are carried out with more precision would round twice.
    if constexpr (FLT_EVAL_METHOD != 0)
        return false;

    Decimal number;
    const char* at = skipSpace(text);
    number.negative = *at == '-';
    at += number.negative || *at == '+';

    const char* start = at;
    at = readDigits(at, false, number);
    std::ptrdiff_t length = at - start;
    if (*at == '.') {
        start = ++at;
        at = readDigits(at, true, number);
        length += at - start;
    }
    if (length == 0)
        return false;
    if ((*at == 'e' || *at == 'E') && !readExponent(++at, number))
        return false;
    return *at == '\0' && convert(number, value);
}
