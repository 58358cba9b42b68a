// The MD5 digest (RFC 1321) of bytes that come in pieces. The command-line tool digests streams of any length with it.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

namespace cu::internal
{

constexpr uint32_t md5DigestSize = 16;

class Md5
{
public:
    void add(const void* data, std::size_t size)
    {
        const auto* bytes = static_cast<const unsigned char*>(data);
        const std::size_t held = length_ % blockSize;
        length_ += size;
        if (held != 0) {
            const std::size_t piece = std::min(size, blockSize - held);
            memcpy(tail_ + held, bytes, piece);
            bytes += piece;
            size -= piece;
            if (held + piece < blockSize)
                return;
            compress(tail_, 1);
        }
        compress(bytes, size / blockSize); // where they are
        memcpy(tail_, bytes + size / blockSize * blockSize, size % blockSize);
    }

    /// Nothing can be added afterwards.
    void finish(unsigned char* digest)
    {
        std::size_t held = length_ % blockSize;
        tail_[held++] = 0x80;
        if (held > lengthAt) {
            memset(tail_ + held, 0, blockSize - held);
            compress(tail_, 1);
            held = 0;
        }
        memset(tail_ + held, 0, lengthAt - held);
        const uint64_t bits = length_ * 8; // modulo 2^64
        storeWord(tail_ + lengthAt, static_cast<uint32_t>(bits));
        storeWord(tail_ + lengthAt + 4, static_cast<uint32_t>(bits >> 32));
        compress(tail_, 1);
        for (std::size_t i = 0; i < 4; ++i)
            storeWord(digest + 4 * i, state_[i]);
    }

private:
    static constexpr std::size_t blockSize = 64;
    static constexpr std::size_t lengthAt = blockSize - sizeof(uint64_t);

    // floor(2^32 * |sin(step + 1)|), the angle in radians.
    static constexpr uint32_t sines[64] = {
        0xD76AA478, 0xE8C7B756, 0x242070DB, 0xC1BDCEEE, 0xF57C0FAF, 0x4787C62A, 0xA8304613, 0xFD469501,
        0x698098D8, 0x8B44F7AF, 0xFFFF5BB1, 0x895CD7BE, 0x6B901122, 0xFD987193, 0xA679438E, 0x49B40821,
        0xF61E2562, 0xC040B340, 0x265E5A51, 0xE9B6C7AA, 0xD62F105D, 0x02441453, 0xD8A1E681, 0xE7D3FBC8,
        0x21E1CDE6, 0xC33707D6, 0xF4D50D87, 0x455A14ED, 0xA9E3E905, 0xFCEFA3F8, 0x676F02D9, 0x8D2A4C8A,
        0xFFFA3942, 0x8771F681, 0x6D9D6122, 0xFDE5380C, 0xA4BEEA44, 0x4BDECFA9, 0xF6BB4B60, 0xBEBFBC70,
        0x289B7EC6, 0xEAA127FA, 0xD4EF3085, 0x04881D05, 0xD9D4D039, 0xE6DB99E5, 0x1FA27CF8, 0xC4AC5665,
        0xF4292244, 0x432AFF97, 0xAB9423A7, 0xFC93A039, 0x655B59C3, 0x8F0CCC92, 0xFFEFF47D, 0x85845DD1,
        0x6FA87E4F, 0xFE2CE6E0, 0xA3014314, 0x4E0811A1, 0xF7537E82, 0xBD3AF235, 0x2AD7D2BB, 0xEB86D391,
    };
    static constexpr int shifts[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

    static uint32_t loadWord(const unsigned char* bytes)
    {
        uint32_t word;
        memcpy(&word, bytes, sizeof(word));
        return std::endian::native == std::endian::little ? word : __builtin_bswap32(word);
    }

    static void storeWord(unsigned char* bytes, uint32_t word)
    {
        if constexpr (std::endian::native != std::endian::little)
            word = __builtin_bswap32(word);
        memcpy(bytes, &word, sizeof(word));
    }

    // Each step waits for the one before by its b alone, so b enters each sum as late as it can.
    template <std::size_t step>
    [[gnu::always_inline]] static void mix(uint32_t (&word)[4], const unsigned char* block)
    {
        constexpr std::size_t round = step / 16;
        constexpr std::size_t factors[4] = {1, 5, 3, 7};
        constexpr std::size_t offsets[4] = {0, 1, 5, 0};
        constexpr std::size_t source = (factors[round] * step + offsets[round]) % 16;
        uint32_t& a = word[(64 - step) % 4];
        const uint32_t b = word[(65 - step) % 4];
        const uint32_t c = word[(66 - step) % 4];
        const uint32_t d = word[(67 - step) % 4];
        a += loadWord(block + 4 * source) + sines[step];
        if constexpr (round == 0)
            a += d ^ (b & (c ^ d));
        else if constexpr (round == 1)
            a = a + (c & ~d) + (b & d); // no bit is in both, so the sum is the disjunction
        else if constexpr (round == 2)
            a += b ^ (c ^ d);
        else
            a += c ^ (b | ~d);
        a = std::rotl(a, shifts[round][step % 4]) + b;
    }

    template <std::size_t... step>
    [[gnu::always_inline]] static void mixAll(uint32_t (&word)[4], const unsigned char* block,
                                              std::index_sequence<step...>)
    {
        (mix<step>(word, block), ...);
    }

    void compress(const unsigned char* block, std::size_t count)
    {
        uint32_t sum[4] = {state_[0], state_[1], state_[2], state_[3]};
        for (; count != 0; --count, block += blockSize) {
            uint32_t word[4] = {sum[0], sum[1], sum[2], sum[3]};
            mixAll(word, block, std::make_index_sequence<64>());
            for (std::size_t i = 0; i < 4; ++i)
                sum[i] += word[i];
        }
        memcpy(state_, sum, sizeof(state_));
    }

    uint32_t state_[4] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476};
    uint64_t length_ = 0;           // in bytes
    unsigned char tail_[blockSize]; // the bytes behind the last whole block
};

} // namespace cu::internal
