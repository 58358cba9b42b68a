#include "support/refusal.h"

#include <cUtil/serializer.h>

#include <bit>
#include <cstring>
#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/serializer";
constexpr cu_ErrorCode own = 0x05000007;

using Bytes = std::vector<uint8_t>;

/// What is written can be read again. An operation that is to fail stores, or takes, one byte of what it should.
struct Wire {
    Bytes bytes;
    std::size_t at = 0;
    unsigned calls = 0;
    bool fails = false;
    cu_Serializer table = {this, write, read, destruct};

    std::size_t begin(uint32_t size)
    {
        ++calls;
        return fails ? 1 : size;
    }

    static cu_ErrorCode write(void* context, const void* data, uint32_t size)
    {
        auto* me = static_cast<Wire*>(context);
        const auto* from = static_cast<const uint8_t*>(data);
        me->bytes.insert(me->bytes.end(), from, from + me->begin(size));
        return me->fails ? own : 0;
    }

    static cu_ErrorCode read(void* context, void* data, uint32_t size)
    {
        auto* me = static_cast<Wire*>(context);
        const std::size_t count = me->begin(size);
        if (me->at + count > me->bytes.size())
            return own;
        std::memcpy(data, me->bytes.data() + me->at, count);
        me->at += count;
        return me->fails ? own : 0;
    }

    static cu_ErrorCode destruct(void* context)
    {
        auto* me = static_cast<Wire*>(context);
        me->begin(0);
        return me->fails ? own : 0;
    }
};

/// Each value, given by its bits, arrives on the wire with its most significant byte first, and comes back bit for bit.
/// A null instead of the value's place is refused by the reader, or below it where there is one byte.
template <typename Bits, typename T>
void expectRoundTrip(const char* reader, cu_ErrorCode (*write)(const cu_Serializer*, T),
                     cu_ErrorCode (*read)(const cu_Serializer*, T*), const std::vector<Bits>& values)
{
    static_assert(sizeof(Bits) == sizeof(T));
    SCOPED_TRACE(reader);
    Wire wire;
    Bytes expected;
    for (const Bits bits : values) {
        EXPECT_EQ(write(&wire.table, std::bit_cast<T>(bits)), 0U);
        for (std::size_t i = sizeof(T); i-- != 0;)
            expected.push_back(static_cast<uint8_t>(static_cast<uint64_t>(bits) >> (8 * i)));
    }
    EXPECT_EQ(wire.bytes, expected);
    EXPECT_EQ(wire.calls, values.size());
    for (const Bits bits : values) {
        T value{};
        EXPECT_EQ(read(&wire.table, &value), 0U);
        EXPECT_EQ(std::memcmp(&value, &bits, sizeof(bits)), 0) << std::hex << static_cast<uint64_t>(bits);
    }
    EXPECT_REFUSED(read(&wire.table, nullptr), reader, file);
}

TEST(Serializer, everyValueComesBackBitForBitInNetworkOrder)
{
    const std::vector<uint8_t> one = {0, 1, 0x7F, 0x80, 0xFF};
    expectRoundTrip("cu_Serializer_read", cu_Serializer_writeU8, cu_Serializer_readU8, one);
    expectRoundTrip("cu_Serializer_read", cu_Serializer_writeS8, cu_Serializer_readS8, one);
    const std::vector<uint16_t> two = {0, 1, 0x0102, 0x7FFF, 0x8000, 0xFFFE};
    expectRoundTrip("cu_Serializer_readU16", cu_Serializer_writeU16, cu_Serializer_readU16, two);
    expectRoundTrip("cu_Serializer_readS16", cu_Serializer_writeS16, cu_Serializer_readS16, two);
    // Among the numbers of both kinds zeros, infinities, quiet and signalling NaNs.
    const std::vector<uint32_t> four = {0, 0x01020304, 0x80000000, 0x3F800000, 0xFF800000, 0x7FC12345, 0xFFBFFFFF};
    expectRoundTrip("cu_Serializer_readU32", cu_Serializer_writeU32, cu_Serializer_readU32, four);
    expectRoundTrip("cu_Serializer_readS32", cu_Serializer_writeS32, cu_Serializer_readS32, four);
    expectRoundTrip("cu_Serializer_readIEEE32", cu_Serializer_writeIEEE32, cu_Serializer_readIEEE32, four);
    const std::vector<uint64_t> eight = {0, 0x0102030405060708, 0xFFF0000000000000, 0x7FF8123456789ABC,
                                         0xFFF7FFFFFFFFFFFF};
    expectRoundTrip("cu_Serializer_readU64", cu_Serializer_writeU64, cu_Serializer_readU64, eight);
    expectRoundTrip("cu_Serializer_readS64", cu_Serializer_writeS64, cu_Serializer_readS64, eight);
    expectRoundTrip("cu_Serializer_readIEEE64", cu_Serializer_writeIEEE64, cu_Serializer_readIEEE64, eight);
}

TEST(Serializer, aTableIsCheckedByItsWriteOperationForReadingToo)
{
    Wire wire;
    uint32_t value = 5;
    const cu_Serializer unwritable = {&wire, nullptr, Wire::read, nullptr};
    cu_Serializer* handle = &wire.table;
    void* const place = &value;
    EXPECT_NULLS_REFUSED(file, (std::tuple{&wire.table, place}), cu_Serializer_write, cu_Serializer_read);
    EXPECT_REFUSED(cu_Serializer_write(&wire.table, &value, 0), "cu_Serializer_write", file);
    EXPECT_REFUSED(cu_Serializer_read(&wire.table, &value, 0), "cu_Serializer_read", file);
    // The typed calls leave the table to those two.
    EXPECT_REFUSED(cu_Serializer_writeU32(&unwritable, 1), "cu_Serializer_write", file);
    EXPECT_REFUSED(cu_Serializer_readU32(&unwritable, &value), "cu_Serializer_read", file);
    EXPECT_EQ(support::trace().find("cu_Serializer_readU32  -  src/cUtil/serializer:"), 0U);
    EXPECT_NULLS_REFUSED(file, std::tuple{&handle}, cu_Serializer_destruct);
    wire.table.destruct = nullptr;
    EXPECT_REFUSED(cu_Serializer_destruct(&handle), "cu_Serializer_destruct", file);
    EXPECT_EQ(wire.calls, 0U);
    EXPECT_EQ(value, 5U);
}

TEST(Serializer, whatTheOperationsSayIsPassedOn)
{
    Wire wire;
    wire.bytes = {0xAB, 0xCD};
    wire.fails = true;
    const auto traceOf = [](cu_ErrorCode code) {
        EXPECT_EQ(code, own);
        return support::trace();
    };
    cu_Error_clear(cu_getErrorLocation());
    EXPECT_EQ(traceOf(cu_Serializer_writeU64(&wire.table, 0x0102030405060708)), "");
    EXPECT_EQ(wire.bytes, (Bytes{0xAB, 0xCD, 0x01}));

    // The one byte that arrived stays where the operation put it.
    uint32_t value = 0;
    EXPECT_EQ(traceOf(cu_Serializer_readU32(&wire.table, &value)).find("cu_Serializer_readU32  -  "), 0U);
    const uint8_t stored[4] = {0xAB};
    EXPECT_EQ(std::memcmp(&value, stored, sizeof(value)), 0);
    cu_Error_clear(cu_getErrorLocation());
    uint8_t byte = 0;
    EXPECT_EQ(traceOf(cu_Serializer_readU8(&wire.table, &byte)), "");
    EXPECT_EQ(byte, 0xCD);

    cu_Serializer* handle = &wire.table;
    EXPECT_EQ(traceOf(cu_Serializer_destruct(&handle)), "");
    EXPECT_EQ(handle, &wire.table);
    wire.fails = false;
    EXPECT_EQ(cu_Serializer_destruct(&handle), 0U);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(wire.calls, 5U);
}

} // namespace
