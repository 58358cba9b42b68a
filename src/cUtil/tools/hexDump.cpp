#include <cUtil/tools/hexDump.h>

#include "internal/hexLine.h"
#include "internal/report.h"

#include <cUtil/tools/safeMalloc.h>
#include <cUtil/tools/safeStringOps.h>

#include <algorithm>

namespace
{

// The room that is left, and what stands at the start of each line.
struct Output {
    char* at;
    uint32_t room;
    const char* prefix;
    std::size_t prefixLength;
};

cu_ErrorCode writePiece(Output& out, const char* text, std::size_t length)
{
    if (length >= out.room || out.prefixLength >= out.room - length) [[unlikely]] {
        // Cuts the piece and reports it.
        CU_TRY(cu_snprintf(out.at, out.room, "%s%s", out.prefix, text));
        return 0;
    }
    memcpy(out.at, out.prefix, out.prefixLength);
    memcpy(out.at + out.prefixLength, text, length + 1);
    out.at += out.prefixLength + length;
    out.room -= static_cast<uint32_t>(out.prefixLength + length);
    return 0;
}

// The size of a block for the whole dump; it may exceed what an allocation can ask for.
uint64_t sizeOfDump(uint64_t prefixLength, uint64_t lines)
{
    if (prefixLength > UINT32_MAX)
        return prefixLength;
    return (prefixLength + 1) * 2 + (prefixLength + 80) * lines + 145;
}

} // namespace

cu_ErrorCode cu_printHexDump(const void* data, uint32_t length, void* destination, uint32_t size, const char* prefix)
{
    CU_REQUIRE(destination != nullptr && data != nullptr);
    if (prefix == nullptr)
        prefix = "";
    const std::size_t prefixLength = strlen(prefix);
    const uint32_t lastLine = length / internal::hexLineBytes;

    char* buffer = static_cast<char*>(destination);
    if (size == 0) {
        const uint64_t wanted = sizeOfDump(prefixLength, uint64_t{lastLine} + 1);
        char** result = static_cast<char**>(destination);
        *result = nullptr;
        if (wanted > UINT32_MAX)
            return CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
        size = static_cast<uint32_t>(wanted);
        void* block = nullptr;
        CU_TRY(cu_safeMalloc(&block, size));
        buffer = *result = static_cast<char*>(block);
    }

    Output out{buffer, size, prefix, prefixLength};
    CU_TRY(writePiece(out, internal::hexHeading, sizeof(internal::hexHeading) - 1));
    CU_TRY(writePiece(out, internal::hexRule, sizeof(internal::hexRule) - 1));

    const auto* bytes = static_cast<const unsigned char*>(data);
    bool repeating = false;
    // Compatibility: a length that is a multiple of 16 ends with a line without bytes.
    for (uint32_t i = 0; i <= lastLine; ++i) {
        const uint32_t offset = i * internal::hexLineBytes;
        if (i != 0 && i != lastLine &&
            memcmp(bytes + offset, bytes + offset - internal::hexLineBytes, internal::hexLineBytes) == 0) {
            if (!repeating)
                CU_TRY(writePiece(out, internal::hexRepetition, sizeof(internal::hexRepetition) - 1));
            repeating = true;
            continue;
        }
        repeating = false;
        char line[internal::hexLineSize];
        const uint32_t shown = std::min(length - offset, internal::hexLineBytes);
        CU_TRY(writePiece(out, line, internal::composeHexLine(line, offset, bytes + offset, shown)));
    }
    return 0;
}
