// cu_printHexDump read back: a dump tells all of its bytes again. The input is the length of the prefix, the prefix,
// and the bytes.
#include "holds.h"

#include <cUtil/errorCodes.h>
#include <cUtil/tools/hexDump.h>
#include <cUtil/tools/safeMalloc.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <vector>

namespace
{

constexpr std::size_t columns = 16;

// Takes the prefix off and gives the rest of the line, with its line feed.
std::string takeLine(std::string& dump, const std::string& prefix)
{
    HOLDS(dump.starts_with(prefix));
    const std::size_t end = dump.find('\n', prefix.size());
    HOLDS(end != std::string::npos);
    const std::string line = dump.substr(prefix.size(), end + 1 - prefix.size());
    dump.erase(0, end + 1);
    return line;
}

// The bytes of "00000010 | 7A                      ... | z".
std::string readLine(const std::string& line, std::size_t offset)
{
    constexpr std::size_t numbersAt = 10;
    constexpr std::size_t charactersAt = numbersAt + 3 * columns + 3;
    HOLDS(line.size() > charactersAt && line.size() <= charactersAt + columns + 1);
    HOLDS(std::stoul(line.substr(0, 8), nullptr, 16) == offset && line.substr(8, 2) == " |");
    HOLDS(line.substr(charactersAt - 3, 3) == " | ");

    const std::size_t count = line.size() - 1 - charactersAt;
    std::string bytes;
    for (std::size_t i = 0; i < columns; ++i) {
        const std::string number = line.substr(numbersAt + 3 * i, 3);
        if (i >= count) {
            HOLDS(number == "   ");
            continue;
        }
        char* end = nullptr;
        const unsigned long value = strtoul(number.c_str(), &end, 16);
        HOLDS(*end == '\0' && value <= 255 && number[0] == ' ' && (number[1] == ' ') == (value < 16));
        bytes += static_cast<char>(value);
        HOLDS(line[charactersAt + i] == (value >= 0x20 && value < 0x7F ? bytes.back() : '.'));
    }
    return bytes;
}

// A star stands for lines that equal the one before, up to the offset of the line behind it; it stands for all of them.
std::string readBack(std::string dump, const std::string& prefix)
{
    HOLDS(takeLine(dump, prefix) == "Address  |  0  1  2  3  4  5  6  7  8  9  A  B  C  D  E  F | Dump\n");
    HOLDS(takeLine(dump, prefix) == std::string(77, '-') + '\n');
    std::string bytes;
    std::string last;
    bool starred = false;
    while (!dump.empty()) {
        const std::string line = takeLine(dump, prefix);
        if (line == "*\n") {
            HOLDS(!starred && last.size() == columns);
            starred = true;
            continue;
        }
        if (starred) {
            const std::size_t offset = std::stoul(line.substr(0, 8), nullptr, 16);
            HOLDS(offset > bytes.size());
            while (bytes.size() < offset)
                bytes += last;
        }
        const std::string row = readLine(line, bytes.size());
        // Only the last line stands although it equals the one before.
        HOLDS(row.size() < columns || row != last);
        HOLDS((row.size() < columns) == dump.empty());
        bytes += last = row;
        starred = false;
    }
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::size_t prefixLength = std::min<std::size_t>(data[0] % 32, size - 1);
    std::string prefix(data + 1, data + 1 + prefixLength);
    prefix = prefix.c_str();
    std::replace(prefix.begin(), prefix.end(), '\n', ' '); // the dump would be right, but not to be read back
    const std::vector<unsigned char> bytes(data + 1 + prefixLength, data + size);
    const unsigned char nothing = 0;
    const void* start = bytes.empty() ? &nothing : bytes.data();
    const auto length = static_cast<uint32_t>(bytes.size());

    char* block = nullptr;
    HOLDS(cu_printHexDump(start, length, &block, 0, prefix.c_str()) == 0 && block != nullptr);
    const std::string dump = block;
    HOLDS(cu_safeFreeImpl(block) == 0);
    HOLDS(readBack(dump, prefix) == std::string(bytes.begin(), bytes.end()));

    // A buffer of any size, here one that depends on the bytes, holds what fits.
    const std::size_t room = 1 + (dump.size() * data[0] + size) % (dump.size() + 2);
    std::vector<char> buffer(room, '?');
    const cu_ErrorCode code =
        cu_printHexDump(start, length, buffer.data(), static_cast<uint32_t>(room), prefix.c_str());
    HOLDS(code == (room > dump.size() ? 0 : cu_ERROR_TRUNCATION_DETECTED));
    HOLDS(buffer.data() == dump.substr(0, room - 1));
    return 0;
}
