// The lines of a hex dump. The command-line tool composes the same ones without the library's buffers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace cu::internal
{

constexpr char hexHeading[] = "Address  |  0  1  2  3  4  5  6  7  8  9  A  B  C  D  E  F | Dump\n";
constexpr char hexRule[] = "-----------------------------------------------------------------------------\n";
constexpr char hexRepetition[] = "*\n"; ///< Stands for any number of lines that equal the one before.
static_assert(sizeof(hexRule) == 77 + 2);

constexpr uint32_t hexLineBytes = 16;

/// The longest line with its NUL: 78 characters, and 8 more for an offset of 16 digits.
constexpr uint32_t hexLineSize = 87;

/// "00000010 |  0 1F 20 ... | .. ...\n": the offset in 8 digits or as many as it needs, up to 16 bytes in hexadecimal
/// columns of three, and the bytes as characters.
///
/// @param line   receives the line, NUL-terminated
/// @param count  bytes that the line shows, 0 to 16
/// @return       its length without the NUL
inline uint32_t composeHexLine(char (&line)[hexLineSize], uint64_t offset, const unsigned char* bytes, uint32_t count)
{
    constexpr std::size_t hexColumns = std::size_t{3} * hexLineBytes;
    constexpr char hexDigits[] = "0123456789ABCDEF";
    char* at = line;

    uint32_t digits = 8;
    while (digits < 16 && (offset >> (4 * digits)) != 0)
        ++digits;
    while (digits-- != 0)
        *at++ = hexDigits[(offset >> (4 * digits)) & 15];
    *at++ = ' ';
    *at++ = '|';

    memset(at, ' ', hexColumns);
    for (uint32_t i = 0; i < count; ++i) {
        if (bytes[i] > 15) // no leading zero
            at[3 * i + 1] = hexDigits[bytes[i] >> 4];
        at[3 * i + 2] = hexDigits[bytes[i] & 15];
    }
    at += hexColumns;

    memcpy(at, " | ", 3);
    at += 3;
    for (uint32_t i = 0; i < count; ++i) {
        const bool printable = bytes[i] >= 0x20 && bytes[i] <= 0x7E;
        *at++ = printable ? static_cast<char>(bytes[i]) : '.';
    }
    *at++ = '\n';
    *at = '\0';
    return static_cast<uint32_t>(at - line);
}

} // namespace cu::internal
