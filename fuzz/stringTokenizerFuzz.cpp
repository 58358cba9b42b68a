// cu_StringTokenizer beside a split by hand. The first byte of the input is the delimiter, the rest the text.
#include "holds.h"

#include <cUtil/errorCodes.h>
#include <cUtil/tools/stringTokenizer.h>

#include <cstddef>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::string text(std::string(data + 1, data + size).c_str());
    std::vector<std::string> expected(1);
    for (const char c : text) {
        if (static_cast<unsigned char>(c) == data[0])
            expected.emplace_back();
        else
            expected.back() += c;
    }

    cu_StringTokenizer* tokenizer = nullptr;
    const cu_ErrorCode code = cu_StringTokenizer_new(&tokenizer, text.c_str(), data[0], nullptr);
    if (expected.size() == 1) {
        HOLDS(code == cu_ERROR_NO_TOKEN_POSSIBLE && tokenizer == nullptr);
        return 0;
    }
    HOLDS(code == 0);
    uint32_t count = 0;
    HOLDS(cu_StringTokenizer_getNumTokens(tokenizer, &count) == 0 && count == expected.size());
    const char* token = nullptr;
    for (uint32_t i = 0; i < count; ++i)
        HOLDS(cu_StringTokenizer_getToken(tokenizer, i, &token) == 0 && token == expected[i]);
    HOLDS(cu_StringTokenizer_getToken(tokenizer, count, &token) == cu_ERROR_COM_INVALID_ARGUMENT);
    HOLDS(cu_StringTokenizer_delete(&tokenizer) == 0 && tokenizer == nullptr);
    return 0;
}
