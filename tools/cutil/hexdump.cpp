// cutil hexdump: a file or a stream of any size in the form of cu_printHexDump(), line by line.
#include "cutil.h"
#include "input.h"

#include "internal/hexLine.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace cutil
{

namespace
{

namespace internal = cu::internal;

constexpr char help[] =
    "Without a FILE, or where it is '-', it is the standard input. A line holds the offset, sixteen bytes in\n"
    "hexadecimal, and the bytes as characters, as cu_printHexDump() writes them. Equal lines in succession\n"
    "shrink to one '*'; the last line holds what is left, nothing when the length is a multiple of 16. The\n"
    "input may have any size.\n";

/// What a read takes at most; a multiple of the bytes in a line.
constexpr std::size_t blockSize = 65536;

/// Composes the lines as the bytes come, with one line of memory: a full line is never the last one.
class Dump
{
public:
    Dump()
    {
        fputs(internal::hexHeading, stdout);
        fputs(internal::hexRule, stdout);
    }

    void addLine(const unsigned char* bytes)
    {
        if (offset_ != 0 && memcmp(bytes, previous_, sizeof(previous_)) == 0) {
            if (!repeating_)
                fputs(internal::hexRepetition, stdout);
            repeating_ = true;
        } else {
            repeating_ = false;
            write(bytes, internal::hexLineBytes);
        }
        memcpy(previous_, bytes, sizeof(previous_));
        offset_ += sizeof(previous_);
    }

    /// Fewer bytes than a line has, perhaps none.
    void end(const unsigned char* bytes, std::size_t count) const { write(bytes, static_cast<uint32_t>(count)); }

private:
    void write(const unsigned char* bytes, uint32_t count) const
    {
        char line[internal::hexLineSize];
        fwrite(line, 1, internal::composeHexLine(line, offset_, bytes, count), stdout);
    }

    uint64_t offset_ = 0;
    bool repeating_ = false;
    unsigned char previous_[internal::hexLineBytes] = {};
};

/// Leaves the reason of a failure in `errno`.
bool dump(Input& input)
{
    Dump dump;
    std::array<unsigned char, blockSize> block;
    std::size_t held = 0; // at the start of the block: less than a line
    for (;;) {
        const ssize_t count = input.read(block.data() + held, block.size() - held);
        if (count == -1)
            return false;
        if (count == 0)
            break;
        held += static_cast<std::size_t>(count);
        std::size_t at = 0;
        for (; held - at >= internal::hexLineBytes; at += internal::hexLineBytes)
            dump.addLine(block.data() + at);
        held -= at;
        memmove(block.data(), block.data() + at, held);
        if (ferror(stdout) != 0)
            return true; // told at the end
    }
    dump.end(block.data(), held);
    return true;
}

int run(const Arguments& arguments)
{
    Input input(arguments.empty() ? "-" : arguments[0]);
    return dump(input) ? done : fail("%s: %s", input.name(), strerror(errno));
}

constexpr Form forms[] = {{"[FILE]", "", run}};

} // namespace

constinit const Command hexdumpCommand = {"hexdump", "prints a file as hexadecimal numbers", help, forms};

} // namespace cutil
