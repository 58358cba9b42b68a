#include "telemetry/procfs.h"
#include "telemetry/latency.h"

#include <gmock/gmock.h>

namespace
{

using namespace telemetry;

TEST(Procfs, ReadsTheTimesOfAllCores)
{
    const auto now = parseStat("cpu  100 10 30 800 40 5 15 0 7 0\n"
                               "cpu0 60 10 20 400 10 0 0 0 7 0\n"
                               "cpu2 40 0 10 400 30 5 15 0 0 0\n" // core 1 is offline
                               "intr 5 0 0\nctxt 99\n");
    EXPECT_EQ(now->all.total, 1000u);
    EXPECT_EQ(now->all.busy, 160u); // neither idle nor waiting; the guests' time is in the users' already
    ASSERT_EQ(now->cores.size(), 3u);
    EXPECT_EQ(now->cores[0].total, 500u);
    EXPECT_EQ(now->cores[1].total, 0u);
    EXPECT_EQ(now->cores[2].busy, 70u);
    EXPECT_EQ(parseStat("cpu 1 2 3 4\n")->all.busy, 6u); // an old kernel's
}

TEST(Procfs, ReadsMemoryWithAndWithoutTheKernelsEstimate)
{
    const auto memory = parseMeminfo("MemTotal:  1000 kB\nMemFree:  100 kB\nMemAvailable:  600 kB\nCached: 300 kB\n");
    EXPECT_EQ(memory->total, 1000u * 1024);
    EXPECT_EQ(memory->used, 400u * 1024);
    EXPECT_EQ(parseMeminfo("MemTotal: 1000 kB\nMemFree: 100 kB\nBuffers: 50 kB\nCached: 300 kB\n")->used, 550u * 1024);
    EXPECT_EQ(parseMeminfo("MemTotal: 1000 kB\nMemAvailable: 1001 kB\n")->used, 0u);
}

TEST(Procfs, ReadsLoadTrafficAndTheStartOfAProcessBehindAnUglyName)
{
    EXPECT_THAT(parseLoadavg("0.52 12.05 100.00 2/345 6789\n")->hundredths, testing::ElementsAre(52, 1205, 10000));
    const auto traffic = parseNetDev("Inter-|   Receive            |  Transmit\n"
                                     " face |bytes packets errs drop fifo frame compressed multicast|bytes ...\n"
                                     "    lo: 1000 1 0 0 0 0 0 0 1000 1 0 0 0 0 0 0\n"
                                     "  eth0:5000000000 1 0 0 0 0 0 0 70 1 0 0 0 0 0 0\n"
                                     " wlan0: 1 1 0 0 0 0 0 0 2 1 0 0 0 0 0 0\n");
    EXPECT_EQ(traffic->received, 5000000001u);
    EXPECT_EQ(traffic->sent, 72u);

    const auto process = parseProcessStat("12 (a) b) (c) Z 1 12 12 0 -1 4 0 0 0 0 1 2 0 0 20 0 1 0 4711 1 2\n");
    EXPECT_EQ(process->state, 'Z');
    EXPECT_EQ(process->startTicks, 4711u);
}

TEST(Procfs, RefusesWhatItDoesNotUnderstand)
{
    for (const char* text :
         {"", "\n", "cpu0 1 2 3 4\n", "cpu 1 2 3\n", "cpu 1 2 x 4\n", "cpu 1 2 3 -4\n", "cpu 1 2 3 4\ncpux 1 2 3 4\n",
          "cpu 1 2 3 4\ncpu4000000000 1 2 3 4\n", "cpu 1 2 3 99999999999999999999\n"})
        EXPECT_FALSE(parseStat(text)) << text;
    for (const char* text :
         {"", "MemFree: 1 kB\n", "MemTotal: x kB\n", "MemTotal:\n", "MemTotal: 18446744073709551615 kB"})
        EXPECT_FALSE(parseMeminfo(text)) << text;
    for (const char* text : {"", "1.00 2.00", "1 2 3", "1.0 2.00 3.00", "-1.00 2.00 3.00", "99999999999.00 1.00 1.00"})
        EXPECT_FALSE(parseLoadavg(text)) << text;
    for (const char* text : {"eth0: 1 2 3\n", "eth0: x 2 3 4 5 6 7 8 9\n", "eth0:\n"})
        EXPECT_FALSE(parseNetDev(text)) << text;
    for (const char* text : {"", "12 (a", "12 (a) R 1 2 3\n"})
        EXPECT_FALSE(parseProcessStat(text)) << text;
}

TEST(Procfs, SharesStayBetweenNothingAndAll)
{
    EXPECT_EQ(busyShare({100, 1000}, {130, 1100}), 300u);
    EXPECT_EQ(busyShare({100, 1000}, {100, 1000}), 0u);
    EXPECT_EQ(busyShare({100, 1000}, {90, 1100}), 0u);
    EXPECT_EQ(busyShare({100, 1000}, {300, 1100}), 1000u);
}

TEST(Latencies, PercentilesLieWithinAThirtySecondAboveTheTrueOnes)
{
    Latencies latencies;
    EXPECT_EQ(latencies.percentile(50), 0u);
    for (int64_t i = 1; i <= 10000; ++i)
        latencies.add(i * 100);
    for (const uint32_t percent : {1u, 50u, 99u, 100u}) {
        const uint64_t exact = percent * 10000;
        EXPECT_GE(latencies.percentile(percent), exact);
        EXPECT_LE(latencies.percentile(percent), exact + exact / 32);
    }
    EXPECT_EQ(latencies.maximum(), 1000000u);
    latencies.add(-5); // a clock that is a bit behind
    latencies.add(INT64_MAX);
    EXPECT_EQ(latencies.count(), 10002u);
    EXPECT_EQ(latencies.percentile(100), static_cast<uint64_t>(INT64_MAX));
}

} // namespace
