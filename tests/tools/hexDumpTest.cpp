#include "internal/hexLine.h"
#include "support/inject.h"
#include "support/record.h"

#include <cUtil/tools/hexDump.h>

#include <cerrno>
#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/tools/hexDump";

// What else a dump shows is in the fuzz target, which reads dumps back.
TEST(HexDump, looksAsItAlwaysDidAndIsCutWhereItDoesNotFit)
{
    std::vector<unsigned char> bytes = {0x00, 0x0A, 0x1F, 0x20, 0x41, 0x7E, 0x7F, 0x80, 0xFF};
    bytes.insert(bytes.begin(), 48, 0);
    const std::string whole = "> Address  |  0  1  2  3  4  5  6  7  8  9  A  B  C  D  E  F | Dump\n> " +
                              std::string(77, '-') +
                              "\n> 00000000 |  0  0  0  0  0  0  0  0  0  0  0  0  0  0  0  0 | ................\n"
                              "> *\n> 00000030 |  0  A 1F 20 41 7E 7F 80 FF                      | ... A~...\n";
    char buffer[512];
    const auto dump = [&](std::size_t size) {
        return cu_printHexDump(bytes.data(), 57, buffer, static_cast<uint32_t>(size), "> ");
    };
    EXPECT_EQ(dump(whole.size() + 1), 0U);
    EXPECT_EQ(buffer, whole);
    EXPECT_FAILURE(dump(whole.size()), cu_ERROR_TRUNCATION_DETECTED, "cu_snprintf", "src/cUtil/tools/safeStringOps",
                   "vsnprintf returned '73'. given size was '73'");
    EXPECT_NE(support::trace().find("cu_printHexDump  -  src/cUtil/tools/hexDump:"), std::string::npos);
    EXPECT_EQ(buffer, whole.substr(0, whole.size() - 1));
    EXPECT_EQ(cu_printHexDump("", 0, buffer, sizeof(buffer), nullptr), 0U);
    EXPECT_EQ(std::string(buffer).find("Address"), 0U);
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
    for (const auto& [offset, length, head] :
         {std::tuple{uint64_t{0x1FFFFFFF0}, 79U, "1FFFFFFF0 | "}, {0xFEDCBA9876543210U, 86U, "FEDCBA9876543210 | "}}) {
        EXPECT_EQ(cu::internal::composeHexLine(line, offset, bytes, 16), length);
        EXPECT_EQ(std::string(line).find(head), 0U);
        EXPECT_EQ(strlen(line), length);
    }
}

} // namespace
