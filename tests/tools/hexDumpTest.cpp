#include "internal/hexLine.h"
#include "support/inject.h"
#include "support/record.h"

#include <cUtil/tools/hexDump.h>
#include <cUtil/tools/safeMalloc.h>

#include <cerrno>
#include <random>
#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/tools/hexDump";
constexpr char heading[] = "Address  |  0  1  2  3  4  5  6  7  8  9  A  B  C  D  E  F | Dump\n";

using Bytes = std::vector<unsigned char>;

// The pieces of a dump, as the description of the format has them.
std::vector<std::string> piecesOf(const Bytes& bytes, const std::string& prefix)
{
    std::vector<std::string> pieces{prefix + heading, prefix + std::string(77, '-') + "\n"};
    std::string previous;
    bool starred = false;
    for (std::size_t at = 0; at <= bytes.size(); at += 16) {
        const std::string row(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                              bytes.begin() + static_cast<std::ptrdiff_t>(std::min(at + 16, bytes.size())));
        if (at != 0 && at + 16 <= bytes.size() && row == previous) {
            if (!starred)
                pieces.push_back(prefix + "*\n");
            starred = true;
            continue;
        }
        starred = false;
        previous = row;
        char column[16];
        snprintf(column, sizeof(column), "%08X |", static_cast<unsigned>(at));
        std::string line = column;
        std::string characters;
        for (const char c : row) {
            snprintf(column, sizeof(column), "%3X", static_cast<unsigned char>(c));
            line += column;
            characters += c >= 0x20 && c <= 0x7E ? c : '.';
        }
        line += std::string(3 * (16 - row.size()), ' ');
        pieces.push_back(prefix + line + " | " + characters + "\n");
    }
    return pieces;
}

std::string join(const std::vector<std::string>& pieces)
{
    std::string text;
    for (const std::string& piece : pieces)
        text += piece;
    return text;
}

std::string dumpOf(const Bytes& bytes, const char* prefix)
{
    char* text = nullptr;
    static const unsigned char nothing = 0;
    EXPECT_EQ(
        cu_printHexDump(bytes.empty() ? &nothing : bytes.data(), static_cast<uint32_t>(bytes.size()), &text, 0, prefix),
        0U);
    const std::string result = text != nullptr ? text : "";
    cu_safeFreeImpl(text);
    return result;
}

TEST(HexDump, looksAsItAlwaysDid)
{
    const std::string head = heading + std::string(77, '-') + "\n";
    EXPECT_EQ(dumpOf({}, nullptr), head + "00000000 |                                                 | \n");
    EXPECT_EQ(dumpOf({0x00, 0x0A, 0x1F, 0x20, 0x41, 0x7E, 0x7F, 0x80, 0xFF, 1, 2, 3, 4, 5, 6, 7, 'z'}, ""),
              head + "00000000 |  0  A 1F 20 41 7E 7F 80 FF  1  2  3  4  5  6  7 | ... A~..........\n"
                     "00000010 | 7A                                              | z\n");
    EXPECT_EQ(dumpOf(Bytes(48, 0), "> "), "> " + std::string(heading) + "> " + std::string(77, '-') +
                                              "\n> 00000000 |  0  0  0  0  0  0  0  0  0  0  0  0  0  0  0  0 | "
                                              "................\n> *\n"
                                              "> 00000030 |                                                 | \n");
}

TEST(HexDump, repeatsShrinkWhereverTheyStand)
{
    std::mt19937 random(1);
    for (int round = 0; round < 300; ++round) {
        Bytes bytes(random() % 400);
        for (std::size_t at = 0; at < bytes.size(); ++at) {
            const bool repeat = at >= 16 && (at % 16 != 0 ? bytes[at - 1] == bytes[at - 17] : random() % 4 != 0);
            bytes[at] = repeat ? bytes[at - 16] : static_cast<unsigned char>(random());
        }
        const std::string prefix(random() % 20, '#');
        ASSERT_EQ(dumpOf(bytes, prefix.c_str()), join(piecesOf(bytes, prefix)));
    }
}

TEST(HexDump, aBufferThatIsTooSmallHoldsWhatFits)
{
    Bytes bytes(77, 'a');
    bytes[5] = 0;
    const auto pieces = piecesOf(bytes, "pre ");
    const std::string whole = join(pieces);
    ASSERT_NE(whole.find("*\n"), std::string::npos);

    std::size_t piece = 0;
    std::size_t begin = 0; // of the piece that does not fit
    for (uint32_t size = 1; size <= whole.size(); ++size) {
        while (begin + pieces[piece].size() < size)
            begin += pieces[piece++].size();
        std::vector<char> buffer(size, '?');
        ASSERT_EQ(support::failureOf([&] { return cu_printHexDump(bytes.data(), 77, buffer.data(), size, "pre "); }),
                  (support::Failure{cu_ERROR_TRUNCATION_DETECTED, "cu_snprintf", "src/cUtil/tools/safeStringOps",
                                    "vsnprintf returned '" + std::to_string(pieces[piece].size()) +
                                        "'. given size was '" + std::to_string(size - begin) + "'"}));
        ASSERT_NE(support::trace().find("cu_printHexDump  -  src/cUtil/tools/hexDump:"), std::string::npos);
        ASSERT_EQ(std::string(buffer.data()), whole.substr(0, size - 1));
    }
    std::vector<char> buffer(whole.size() + 1, '?');
    EXPECT_EQ(cu_printHexDump(bytes.data(), 77, buffer.data(), static_cast<uint32_t>(buffer.size()), "pre "), 0U);
    EXPECT_EQ(buffer.data(), whole);
}

TEST(HexDump, memoryThatCannotBeHadIsTold)
{
    char byte = 0;
    char* text = &byte;
    EXPECT_REFUSED(cu_printHexDump(&byte, 1, nullptr, 0, nullptr), "cu_printHexDump", file);
    EXPECT_REFUSED(cu_printHexDump(nullptr, 0, &text, 0, nullptr), "cu_printHexDump", file);
    EXPECT_EQ(text, &byte);
    // Sizes that 32 bits cannot say: nothing of the data is read.
    for (const uint32_t length : {UINT32_MAX, UINT32_MAX / 5 + 600}) {
        text = &byte;
        EXPECT_FAILURE(cu_printHexDump(&byte, length, &text, 0, nullptr), cu_ERROR_COM_MALLOC_FAILED, "cu_printHexDump",
                       file, "");
        EXPECT_EQ(text, nullptr);
    }
    const support::Injection exhausted("calloc", ENOMEM);
    text = &byte;
    EXPECT_FAILURE(cu_printHexDump(&byte, 17, &text, 0, "12"), cu_ERROR_COM_MALLOC_FAILED, "cu_safeMalloc",
                   "src/cUtil/tools/safeMalloc", "Unable to malloc '315' bytes of memory.");
    EXPECT_EQ(support::trace().find("cu_printHexDump  -  "), 0U);
    EXPECT_EQ(text, nullptr);
}

TEST(HexLine, offsetsGrowBeyondEightDigits)
{
    char line[cu::internal::hexLineSize];
    const unsigned char bytes[16] = {};
    EXPECT_EQ(cu::internal::composeHexLine(line, 0xFFFFFFF0, bytes, 16), 78U);
    EXPECT_EQ(std::string(line).substr(0, 12), "FFFFFFF0 |  ");
    EXPECT_EQ(cu::internal::composeHexLine(line, 0x1FFFFFFF0, bytes, 16), 79U);
    EXPECT_EQ(std::string(line).substr(0, 12), "1FFFFFFF0 | ");
    EXPECT_EQ(cu::internal::composeHexLine(line, 0xFEDCBA9876543210, bytes, 16), 86U);
    EXPECT_EQ(std::string(line).substr(0, 18), "FEDCBA9876543210 |");
    EXPECT_EQ(strlen(line), 86U);
}

} // namespace
