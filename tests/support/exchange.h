// Processes that exchange numbered records.
#pragma once

#include "support/process.h"

#include <cstdint>
#include <list>
#include <vector>

namespace support
{

struct Numbered {
    uint32_t writer;
    uint32_t number;
};

/// So many writers `put(record)` as many records each, and as many readers `take()` them: each record arrives once, and
/// at every reader those of one writer in their order.
template <typename Put, typename Take>
void expectExchange(uint32_t sides, uint32_t each, Put put, Take take)
{
    const Shared<uint32_t> takes(sides * each);
    const auto write = [&](uint32_t writer) {
        for (uint32_t number = 0; number < each; ++number)
            put(Numbered{writer, number});
        return testing::Test::HasFailure() ? 99 : 0;
    };
    const auto read = [&] {
        std::vector<uint32_t> next(sides);
        for (uint32_t taken = 0; taken < each; ++taken) {
            const Numbered record = take();
            if (record.writer >= sides || record.number >= each || record.number < next[record.writer])
                return 1;
            next[record.writer] = record.number + 1;
            ++takes[record.writer * each + record.number];
        }
        return testing::Test::HasFailure() ? 99 : 0;
    };
    std::list<Process> processes;
    for (uint32_t side = 0; side < sides; ++side) {
        processes.emplace_back([&] { return write(side); });
        processes.emplace_back(read);
    }
    for (Process& process : processes)
        EXPECT_EQ(process.wait(), 0);
    for (uint32_t record = 0; record < sides * each; ++record)
        ASSERT_EQ(takes[record], 1U);
}

} // namespace support
