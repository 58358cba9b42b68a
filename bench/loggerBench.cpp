// Lines of a log: to a file, through a thread, and to nobody; beside spdlog and plain fprintf(), all with time stamps
// of the same form.
#include <cUtil/logger/asyncLoggingAdapter.h>
#include <cUtil/logger/fileLoggingAdapter.h>
#include <cUtil/logger/logger.h>

#include <benchmark/benchmark.h>
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace
{

constexpr char text[] = "a line of some eighty characters, such as a logger writes it to a file, or so..";
constexpr char pattern[] = "[%d.%m.%Y %H:%M:%S] %l: %v";
constexpr char name[] = "bench";

void expect(bool isGood)
{
    if (!isGood)
        abort();
}

/// A file that goes with its scope.
class LogFile
{
public:
    LogFile() : path_(std::filesystem::temp_directory_path() / ("loggerBench." + std::to_string(getpid()))) {}
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;
    ~LogFile() { std::filesystem::remove(path_); }
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

cu_logger_Adapter* fileAdapter(const LogFile& file)
{
    cu_logger_Adapter* adapter = nullptr;
    expect(cu_logger_FileLoggingAdapter_new(&adapter, file.path().c_str(), nullptr) == 0);
    return adapter;
}

// The loggers that write as they are called. Each is made by the first thread of a run, and what it is asked for is
// called by all.

struct Ours {
    Ours() { expect(cu_Logger_addAdapter(name, fileAdapter(file), cu_logger_LEVEL_INFO) == 0); }
    ~Ours() { cu_Logger_removeAdapter(name); }
    void log() { cu_Logger_log(cu_logger_LEVEL_INFO, text); }
    void format(int n) { cu_Logger_formattedLog(cu_logger_LEVEL_INFO, "%s %d", text, n); }
    void logUnheard() { cu_Logger_log(cu_logger_LEVEL_DEBUG, text); }
    LogFile file;
};

struct Spdlog {
    Spdlog() : logger(spdlog::basic_logger_mt(name, file.path())) { logger->set_pattern(pattern); }
    ~Spdlog() { spdlog::drop(name); }
    void log() { logger->info(spdlog::string_view_t(text, sizeof(text) - 1)); }
    void format(int n) { logger->info("{} {}", text, n); }
    void logUnheard() { logger->debug(spdlog::string_view_t(text, sizeof(text) - 1)); }
    LogFile file;
    std::shared_ptr<spdlog::logger> logger;
};

struct Plain {
    Plain() : stream(fopen(file.path().c_str(), "a")) {}
    ~Plain() { fclose(stream); }
    void log()
    {
        const tm now = local();
        fprintf(stream, "[%02d.%02d.%02d %d:%02d:%02d] %s: %s\n", now.tm_mday, now.tm_mon + 1, now.tm_year + 1900,
                now.tm_hour, now.tm_min, now.tm_sec, "Info", text);
    }
    void format(int n)
    {
        const tm now = local();
        fprintf(stream, "[%02d.%02d.%02d %d:%02d:%02d] %s: %s %d\n", now.tm_mday, now.tm_mon + 1, now.tm_year + 1900,
                now.tm_hour, now.tm_min, now.tm_sec, "Info", text, n);
    }
    static tm local()
    {
        const time_t now = time(nullptr);
        tm result = {};
        localtime_r(&now, &result);
        return result;
    }
    LogFile file;
    FILE* stream;
};

template <typename Who, typename Call>
void callInTurn(benchmark::State& state, Call call)
{
    static std::unique_ptr<Who> who;
    if (state.thread_index() == 0)
        who = std::make_unique<Who>();
    for (auto _ : state)
        call(*who);
    if (state.thread_index() == 0)
        who.reset();
    state.SetItemsProcessed(state.iterations());
}

// The loggers with a thread. They count what has got to the file.

std::atomic<int64_t> delivered;

struct AsyncOurs {
    AsyncOurs()
    {
        static cu_logger_Adapter* inner;
        inner = fileAdapter(file);
        static cu_logger_Adapter counting = {};
        counting.logMessage = [](void*, uint32_t level, const char* line) {
            const cu_ErrorCode code = cu_logger_Adapter_logMessage(inner, level, line);
            delivered.fetch_add(1, std::memory_order_relaxed);
            return code;
        };
        counting.destruct = [](void*) { return cu_logger_Adapter_destruct(&inner); };
        cu_logger_Adapter* adapter = nullptr;
        expect(cu_logger_AsyncLoggingAdapter_new(&adapter, &counting, 1U << 24U, nullptr) == 0);
        expect(cu_Logger_addAdapter(name, adapter, cu_logger_LEVEL_INFO) == 0);
    }
    ~AsyncOurs() { cu_Logger_removeAdapter(name); }
    void log() { cu_Logger_log(cu_logger_LEVEL_INFO, text); }
    LogFile file;
};

class CountingSink : public spdlog::sinks::sink
{
public:
    explicit CountingSink(const std::string& path) : inner_(path) {}
    void log(const spdlog::details::log_msg& message) override
    {
        inner_.log(message);
        delivered.fetch_add(1, std::memory_order_relaxed);
    }
    void flush() override { inner_.flush(); }
    void set_pattern(const std::string& form) override { inner_.set_pattern(form); }
    void set_formatter(std::unique_ptr<spdlog::formatter> formatter) override
    {
        inner_.set_formatter(std::move(formatter));
    }

private:
    spdlog::sinks::basic_file_sink_st inner_;
};

struct AsyncSpdlog {
    explicit AsyncSpdlog(std::size_t places = 1U << 17U)
        : threads(std::make_shared<spdlog::details::thread_pool>(places, 1)),
          logger(std::make_shared<spdlog::async_logger>(name, std::make_shared<CountingSink>(file.path()), threads))
    {
        logger->set_pattern(pattern);
    }
    void log() { logger->info(spdlog::string_view_t(text, sizeof(text) - 1)); }
    LogFile file;
    std::shared_ptr<spdlog::details::thread_pool> threads;
    std::shared_ptr<spdlog::async_logger> logger;
};

/// spdlog's own choice: callers wait when it is 8192 lines behind.
struct AsyncSpdlogThatBlocks : AsyncSpdlog {
    AsyncSpdlogThatBlocks() : AsyncSpdlog(8192) {}
};

int64_t ownProcessorTime()
{
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return time.tv_sec * int64_t{1'000'000'000} + time.tv_nsec;
}

// Some threads log range(0) lines in all. Measured: the callers' time, or until the last one is in the file; and what a
// line costs its caller in processor time, which a busy machine disturbs less.
template <typename Who>
void throughThread(benchmark::State& state, int threads, bool untilDelivered)
{
    using Clock = std::chrono::steady_clock;
    Who who;
    const int64_t lines = state.range(0);
    std::atomic<int64_t> spent = 0;
    for (auto _ : state) {
        delivered = 0;
        std::atomic<bool> begins = false;
        std::vector<std::thread> callers;
        for (int caller = 0; caller < threads; ++caller)
            callers.emplace_back([&] {
                while (!begins)
                    std::this_thread::yield();
                const int64_t before = ownProcessorTime();
                for (int64_t n = 0; n < lines / threads; ++n)
                    who.log();
                spent += ownProcessorTime() - before;
            });
        const auto start = Clock::now();
        begins = true;
        for (std::thread& caller : callers)
            caller.join();
        auto end = Clock::now();
        while (delivered != lines)
            std::this_thread::yield();
        if (untilDelivered)
            end = Clock::now();
        state.SetIterationTime(std::chrono::duration<double>(end - start).count());
    }
    state.SetItemsProcessed(state.iterations() * lines);
    state.counters["caller ns"] =
        static_cast<double>(spent) / static_cast<double>(static_cast<int64_t>(state.iterations()) * lines);
}

template <typename Who>
void competeInTurn(const std::string& who)
{
    const auto add = [&](const std::string& work, auto call) {
        benchmark::RegisterBenchmark((work + "/" + who).c_str(),
                                     [=](benchmark::State& state) { callInTurn<Who>(state, call); })
            ->Threads(1)
            ->Threads(4)
            ->MeasureProcessCPUTime()
            ->UseRealTime();
    };
    add("file", [](Who& logger) { logger.log(); });
    add("formatted", [](Who& logger) { logger.format(7); });
    if constexpr (requires(Who & logger) { logger.logUnheard(); })
        add("unheard", [](Who& logger) { logger.logUnheard(); });
}

template <typename Who>
void competeThroughThread(const std::string& who)
{
    for (const int threads : {1, 4})
        for (const bool untilDelivered : {false, true}) {
            const std::string work = (untilDelivered ? "delivered" : "burst") + std::to_string(threads);
            benchmark::RegisterBenchmark(
                (work + "/" + who).c_str(),
                [=](benchmark::State& state) { throughThread<Who>(state, threads, untilDelivered); })
                ->UseManualTime()
                ->MeasureProcessCPUTime()
                ->Unit(benchmark::kMillisecond)
                ->Arg(4096)
                ->Arg(100'000);
        }
}

[[maybe_unused]] const bool registered = [] {
    competeInTurn<Ours>("cUtil");
    competeInTurn<Spdlog>("spdlog");
    competeInTurn<Plain>("fprintf");
    competeThroughThread<AsyncOurs>("cUtil");
    competeThroughThread<AsyncSpdlog>("spdlog");
    competeThroughThread<AsyncSpdlogThatBlocks>("spdlogBlocking");
    return true;
}();

} // namespace
