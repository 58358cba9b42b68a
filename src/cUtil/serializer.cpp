#include <cUtil/serializer.h>

#include "internal/report.h"

#include <bit>
#include <cstddef>
#include <limits>
#include <type_traits>

static_assert(offsetof(cu_Serializer, context) == 0 && offsetof(cu_Serializer, write) == sizeof(void*));
static_assert(offsetof(cu_Serializer, read) == 2 * sizeof(void*) &&
              offsetof(cu_Serializer, destruct) == 3 * sizeof(void*));
static_assert(sizeof(cu_Serializer) == 4 * sizeof(void*));
static_assert(std::numeric_limits<float>::is_iec559 && std::numeric_limits<double>::is_iec559);
static_assert(std::endian::native == std::endian::little || std::endian::native == std::endian::big);

namespace
{

// The bits of a number. A NaN is moved as an integer: a floating-point register might change it.
template <std::size_t size>
using Bits = std::conditional_t<size == 2, uint16_t, std::conditional_t<size == 4, uint32_t, uint64_t>>;

// From the host's order to the one on the stream, and back.
template <typename T>
T swapped(T bits)
{
    if constexpr (std::endian::native == std::endian::big)
        return bits;
    else if constexpr (sizeof(T) == 2)
        return __builtin_bswap16(bits);
    else if constexpr (sizeof(T) == 4)
        return __builtin_bswap32(bits);
    else
        return __builtin_bswap64(bits);
}

template <typename T>
cu_ErrorCode writeValue(const cu_Serializer* serializer, T value)
{
    const auto bits = swapped(std::bit_cast<Bits<sizeof(T)>>(value));
    return cu_Serializer_write(serializer, &bits, sizeof(bits));
}

template <typename T>
cu_ErrorCode readValue(const cu_Serializer* serializer, T* value, internal::Place place)
{
    if (value == nullptr) [[unlikely]]
        return internal::reportInvalidArgument(place);
    CU_TRY_AT(place, cu_Serializer_read(serializer, value, sizeof(*value)));
    Bits<sizeof(T)> bits;
    memcpy(&bits, value, sizeof(bits));
    bits = swapped(bits);
    memcpy(value, &bits, sizeof(bits));
    return 0;
}

} // namespace

cu_ErrorCode cu_Serializer_write(const cu_Serializer* serializer, const void* data, uint32_t size)
{
    CU_REQUIRE(serializer != nullptr && serializer->write != nullptr);
    CU_REQUIRE(data != nullptr);
    CU_REQUIRE(size != 0);
    return serializer->write(serializer->context, data, size);
}

cu_ErrorCode cu_Serializer_read(const cu_Serializer* serializer, void* data, uint32_t size)
{
    // Compatibility: it is the write operation that must be there.
    CU_REQUIRE(serializer != nullptr && serializer->write != nullptr);
    CU_REQUIRE(data != nullptr);
    CU_REQUIRE(size != 0);
    return serializer->read(serializer->context, data, size);
}

cu_ErrorCode cu_Serializer_writeS8(const cu_Serializer* serializer, int8_t value)
{
    return cu_Serializer_write(serializer, &value, sizeof(value));
}

cu_ErrorCode cu_Serializer_writeU8(const cu_Serializer* serializer, uint8_t value)
{
    return cu_Serializer_write(serializer, &value, sizeof(value));
}

cu_ErrorCode cu_Serializer_writeS16(const cu_Serializer* serializer, int16_t value)
{
    return writeValue(serializer, value);
}

cu_ErrorCode cu_Serializer_writeU16(const cu_Serializer* serializer, uint16_t value)
{
    return writeValue(serializer, value);
}

cu_ErrorCode cu_Serializer_writeS32(const cu_Serializer* serializer, int32_t value)
{
    return writeValue(serializer, value);
}

cu_ErrorCode cu_Serializer_writeU32(const cu_Serializer* serializer, uint32_t value)
{
    return writeValue(serializer, value);
}

cu_ErrorCode cu_Serializer_writeS64(const cu_Serializer* serializer, int64_t value)
{
    return writeValue(serializer, value);
}

cu_ErrorCode cu_Serializer_writeU64(const cu_Serializer* serializer, uint64_t value)
{
    return writeValue(serializer, value);
}

cu_ErrorCode cu_Serializer_writeIEEE32(const cu_Serializer* serializer, float value)
{
    return writeValue(serializer, value);
}

cu_ErrorCode cu_Serializer_writeIEEE64(const cu_Serializer* serializer, double value)
{
    return writeValue(serializer, value);
}

cu_ErrorCode cu_Serializer_readS8(const cu_Serializer* serializer, int8_t* value)
{
    return cu_Serializer_read(serializer, value, sizeof(*value));
}

cu_ErrorCode cu_Serializer_readU8(const cu_Serializer* serializer, uint8_t* value)
{
    return cu_Serializer_read(serializer, value, sizeof(*value));
}

cu_ErrorCode cu_Serializer_readS16(const cu_Serializer* serializer, int16_t* value)
{
    return readValue(serializer, value, CU_HERE);
}

cu_ErrorCode cu_Serializer_readU16(const cu_Serializer* serializer, uint16_t* value)
{
    return readValue(serializer, value, CU_HERE);
}

cu_ErrorCode cu_Serializer_readS32(const cu_Serializer* serializer, int32_t* value)
{
    return readValue(serializer, value, CU_HERE);
}

cu_ErrorCode cu_Serializer_readU32(const cu_Serializer* serializer, uint32_t* value)
{
    return readValue(serializer, value, CU_HERE);
}

cu_ErrorCode cu_Serializer_readS64(const cu_Serializer* serializer, int64_t* value)
{
    return readValue(serializer, value, CU_HERE);
}

cu_ErrorCode cu_Serializer_readU64(const cu_Serializer* serializer, uint64_t* value)
{
    return readValue(serializer, value, CU_HERE);
}

cu_ErrorCode cu_Serializer_readIEEE32(const cu_Serializer* serializer, float* value)
{
    return readValue(serializer, value, CU_HERE);
}

cu_ErrorCode cu_Serializer_readIEEE64(const cu_Serializer* serializer, double* value)
{
    return readValue(serializer, value, CU_HERE);
}

cu_ErrorCode cu_Serializer_destruct(cu_Serializer** handle)
{
    CU_REQUIRE(handle != nullptr);
    CU_REQUIRE(*handle != nullptr && (*handle)->destruct != nullptr);
    const cu_ErrorCode code = (*handle)->destruct((*handle)->context);
    if (code == 0)
        *handle = nullptr;
    return code;
}
