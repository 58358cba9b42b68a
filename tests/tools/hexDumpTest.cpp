#include "internal/hexLine.h"
#include "support/inject.h"
#include "support/record.h"

#include <cUtil/tools/hexDump.h>
#include <cUtil/tools/safeMalloc.h>

#include <cerrno>
#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/tools/hexDump";
constexpr char heading[] = "Address  |  0  1  2  3  4  5  6  7  8  9  A  B  C  D  E  F | Dump\n";

using Bytes = std::vector<unsigned char>;

std::string dumpOf(const Bytes& bytes, const char* prefix)
{
    char* text = nullptr;
    static const unsigned char nothing = 0;
    const void* first = bytes.empty() ? &nothing : bytes.data();
    EXPECT_EQ(cu_printHexDump(first, static_cast<uint32_t>(bytes.size()), &text, 0, prefix), 0U);
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
    Bytes zeros(64, 0);
    zeros.resize(48); // what lies behind is equal, too
    EXPECT_EQ(dumpOf(zeros, "> "), "> " + std::string(heading) + "> " + std::string(77, '-') +
                                       "\n> 00000000 |  0  0  0  0  0  0  0  0  0  0  0  0  0  0  0  0 | "
                                       "................\n> *\n"
                                       "> 00000030 |                                                 | \n");
}

TEST(HexDump, aBufferThatIsTooSmallHoldsWhatFits)
{
    const Bytes bytes(33, 'a');
    const std::string whole = dumpOf(bytes, "pre ");
    for (const uint32_t size : {1U, 69U, 70U, 100U, static_cast<uint32_t>(whole.size())}) {
        SCOPED_TRACE(size);
        const std::size_t begin = size == 1 ? 0 : whole.rfind('\n', size - 2) + 1; // of the piece that does not fit
        const std::size_t end = whole.find('\n', begin) + 1;
        std::vector<char> buffer(size, '?');
        EXPECT_FAILURE(cu_printHexDump(bytes.data(), 33, buffer.data(), size, "pre "), cu_ERROR_TRUNCATION_DETECTED,
                       "cu_snprintf", "src/cUtil/tools/safeStringOps",
                       "vsnprintf returned '" + std::to_string(end - begin) + "'. given size was '" +
                           std::to_string(size - begin) + "'");
        EXPECT_NE(support::trace().find("cu_printHexDump  -  src/cUtil/tools/hexDump:"), std::string::npos);
        EXPECT_EQ(buffer.data(), whole.substr(0, size - 1));
    }
    std::vector<char> buffer(whole.size() + 1, '?');
    EXPECT_EQ(cu_printHexDump(bytes.data(), 33, buffer.data(), static_cast<uint32_t>(buffer.size()), "pre "), 0U);
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
    for (const auto& [offset, length, head] : {std::tuple{uint64_t{0xFFFFFFF0}, 78U, "FFFFFFF0 | "},
                                               {0x1FFFFFFF0U, 79U, "1FFFFFFF0 | "},
                                               {0xFEDCBA9876543210U, 86U, "FEDCBA9876543210 | "}}) {
        EXPECT_EQ(cu::internal::composeHexLine(line, offset, bytes, 16), length);
        EXPECT_EQ(std::string(line).find(head), 0U);
        EXPECT_EQ(strlen(line), length);
    }
}

} // namespace
