#include "campaign/campaign.h"

#include <cUtil/logger/asyncLoggingAdapter.h>
#include <cUtil/logger/fileLoggingAdapter.h>
#include <cUtil/logger/logger.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <optional>
#include <unistd.h>

namespace campaign
{

namespace
{

constexpr uint32_t writers = 3; // two and a successor
constexpr int callFailed = 10;

struct Board {
    std::atomic<bool> end;
    std::array<std::atomic<uint32_t>, writers> logged; // lines
};

uint32_t checksumOf(const std::string& text)
{
    uint32_t sum = 2166136261U;
    for (const char letter : text)
        sum = (sum ^ static_cast<uint8_t>(letter)) * 16777619U;
    return sum;
}

std::string lineOf(uint32_t writer, uint32_t number)
{
    std::string text = "line " + std::to_string(writer) + ' ' + std::to_string(number) + ' ';
    text.append((writer * 977 + number * 7919) % 1200, static_cast<char>('a' + number % 26));
    return text + ' ' + std::to_string(checksumOf(text));
}

int writeLines(const std::string& path, bool isAsync, Board& board, uint32_t writer)
{
    cu_logger_Adapter* adapter = nullptr;
    if (cu_logger_FileLoggingAdapter_new(&adapter, path.c_str(), nullptr) != 0)
        return callFailed;
    cu_logger_Adapter* file = adapter;
    if (isAsync) {
        adapter = nullptr;
        if (cu_logger_AsyncLoggingAdapter_new(&adapter, file, 65536, nullptr) != 0)
            return callFailed;
    }
    if (cu_Logger_addAdapter("file", adapter, cu_logger_LEVEL_INFO) != 0)
        return callFailed;
    for (uint32_t number = 0; !board.end; ++number) {
        if (cu_Logger_log(cu_logger_LEVEL_INFO, lineOf(writer, number).c_str()) != 0)
            return callFailed;
        board.logged[writer] = number + 1;
        if (number % 16 == 15)
            std::this_thread::sleep_for(50us);
    }
    return cu_Logger_removeAllAdapters() == 0 ? 0 : callFailed;
}

struct Line {
    uint32_t writer;
    uint32_t number;
};

std::optional<Line> wholeLine(const std::string& text)
{
    constexpr char level[] = "] Info: ";
    const std::size_t at = text.find(level);
    Line line{};
    if (text.empty() || text[0] != '[' || at == std::string::npos)
        return std::nullopt;
    const std::string message = text.substr(at + sizeof(level) - 1);
    if (sscanf(message.c_str(), "line %u %u ", &line.writer, &line.number) != 2 || line.writer >= writers ||
        message != lineOf(line.writer, line.number))
        return std::nullopt;
    return line;
}

// A torn line stands alone at the end, or in front of one that another writer appended.
std::optional<Line> wholeLineAtEnd(const std::string& text)
{
    std::optional<Line> line;
    for (std::size_t at = text.rfind('['); !line && at != std::string::npos && at != 0; at = text.rfind('[', at - 1))
        line = wholeLine(text.substr(at));
    return line;
}

} // namespace

std::string killAtLog(Random& random)
{
    const std::string path = testing::TempDir() + "koCUtil-kill-" + std::to_string(getpid()) + ".log";
    remove(path.c_str());
    const bool isAsync = random.heads();
    Shared<Board> board;
    const auto writer = [&](uint32_t number) {
        return [&, number] { return writeLines(path, isAsync, *board, number); };
    };
    Process victim(writer(0));
    Process survivor(writer(1));
    random.awaitMoment();
    require(victim.kill() == -SIGKILL, "the victim had ended by itself");
    Process successor(writer(2));
    require(
        comesTrue(
            [&, before = board->logged[1].load()] { return board->logged[1] > before + 20 && board->logged[2] > 20; },
            hangs),
        "the other writers do not go on");
    board->end = true;
    requireGoodEnds({&survivor, &successor});

    std::array<uint32_t, writers> next{};
    uint32_t torn = 0;
    std::ifstream file(path);
    for (std::string text; std::getline(file, text);) {
        std::optional<Line> line = file.eof() ? std::nullopt : wholeLine(text);
        if (!line) {
            ++torn;
            line = wholeLineAtEnd(text);
            require(line || file.eof(), "a line is torn in the middle of the file");
        }
        if (line) {
            // A full buffer of an asynchronous adapter drops whole lines.
            require(isAsync ? line->number >= next[line->writer] : line->number == next[line->writer],
                    "a line is missing, doubled or out of order");
            next[line->writer] = line->number + 1;
        }
    }
    remove(path.c_str());
    require(torn <= 1, std::to_string(torn) + " lines are torn");
    for (uint32_t number = 0; number < writers; ++number)
        require(next[number] <= board->logged[number] + (number == 0), "there is a line that nobody logged");
    require(isAsync || (next[1] == board->logged[1] && next[2] == board->logged[2]),
            "a writer that ended in order left lines behind");
    const std::string adapter = isAsync ? "asynchronous: " : "file: ";
    return adapter + (torn == 0 ? "whole lines" : "one torn line");
}

} // namespace campaign
