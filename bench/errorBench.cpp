// One failure reported with a formatted description, beside GLib's g_set_error, and what a call costs that checks its
// arguments and finds them good.

#include <cUtil/errorInfo.h>
#include <cUtil/tools/safeStringOps.h>

#include <benchmark/benchmark.h>
#include <glib.h>

#include <cstring>

namespace
{

constexpr char text[] = "Requested to open '%s' with options '%u'. Errno='%s' [%u]";

void reportCUtil(benchmark::State& state)
{
    unsigned number = 0;
    for (auto _ : state) {
        ++number;
        cu_Error_report(cu_getErrorLocation(), cu_ERROR_SHM_OPEN_FAILED, 2, "cu_SharedMemory_open", number,
                        "src/cUtil/sharedMemory.linux", text, "/telemetry", number, "No such file or directory", 2U);
        benchmark::ClobberMemory();
    }
}

void reportGLib(benchmark::State& state)
{
    const GQuark domain = g_quark_from_static_string("bench");
    unsigned number = 0;
    for (auto _ : state) {
        ++number;
        GError* error = nullptr;
        g_set_error(&error, domain, 46, text, "/telemetry", number, "No such file or directory", 2U);
        benchmark::DoNotOptimize(error->message);
        g_error_free(error);
    }
}

void checkedCopy(benchmark::State& state)
{
    char destination[16];
    const char* source = "telemetry";
    for (auto _ : state) {
        benchmark::DoNotOptimize(source);
        benchmark::DoNotOptimize(cu_str_memcpy(destination, sizeof(destination), source, 10));
        benchmark::ClobberMemory();
    }
}

[[gnu::noinline]] void copy(void* destination, const void* source, size_t size)
{
    memcpy(destination, source, size);
    benchmark::ClobberMemory();
}

void bareCopy(benchmark::State& state)
{
    char destination[16];
    const char* source = "telemetry";
    size_t size = 10;
    for (auto _ : state) {
        benchmark::DoNotOptimize(source);
        benchmark::DoNotOptimize(size);
        copy(destination, source, size);
    }
}

BENCHMARK(reportCUtil)->Name("report/cUtil");
BENCHMARK(reportGLib)->Name("report/g_set_error");
BENCHMARK(checkedCopy)->Name("checkedCopy/cUtil");
BENCHMARK(bareCopy)->Name("checkedCopy/memcpy");

} // namespace

BENCHMARK_MAIN();
