// cu_ArgumentArray_parse beside a reading that goes from quote to quote; and words that come back from a line in which
// each of them is quoted. The input is the line.
#include "holds.h"

#include <cUtil/argumentArray.h>
#include <cUtil/errorCodes.h>

#include <cstddef>
#include <string>
#include <vector>

namespace
{

using Words = std::vector<std::string>;

// What a line says; false when it ends within quotes.
bool read(const std::string& line, Words& words)
{
    std::string word;
    for (std::size_t at = 0;;) {
        const std::size_t stop = line.find_first_of("\"' ", at);
        word += line.substr(at, stop - at);
        const bool ends = stop == std::string::npos;
        if (ends || line[stop] == ' ') {
            if (!word.empty())
                words.push_back(word);
            if (ends)
                return true;
            word.clear();
            at = stop + 1;
        } else {
            const std::size_t close = line.find(line[stop], stop + 1);
            if (close == std::string::npos)
                return false;
            word += line.substr(stop + 1, close - stop - 1);
            at = close + 1;
        }
    }
}

Words parse(const std::string& line, cu_ErrorCode expected)
{
    cu_ArgumentArray* array = nullptr;
    char** argv = nullptr;
    uint32_t count = 0;
    HOLDS(cu_ArgumentArray_new(&array, nullptr) == 0);
    HOLDS(cu_ArgumentArray_parse(array, line.c_str()) == expected);
    HOLDS(cu_ArgumentArray_get(array, &argv, &count) == 0 && argv[count] == nullptr);
    const Words words(argv, argv + count);
    HOLDS(cu_ArgumentArray_delete(&array) == 0 && array == nullptr);
    return words;
}

// Each character stands between quotes of the kind that it is not.
std::string quoted(const Words& words)
{
    std::string line;
    for (const std::string& word : words) {
        for (const char c : word) {
            const char quote = c == '"' ? '\'' : '"';
            line += {quote, c, quote};
        }
        line += ' ';
    }
    return line;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const std::string line = std::string(data, data + size).c_str();
    Words words;
    const bool ends = read(line, words);
    HOLDS(parse(line, ends ? 0 : cu_ERROR_COM_INVALID_ARGUMENT) == words);
    HOLDS(parse(quoted(words), 0) == words);
    return 0;
}
