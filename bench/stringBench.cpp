// Building texts: many short appends, assigning, formatting; beside GLib's string and the standard one.
#include <cUtil/tools/string.h>

#include <benchmark/benchmark.h>
#include <glib.h>

#include <cstdio>
#include <string>

namespace
{

constexpr char word[] = "sample text, "; // 13 characters
constexpr char line[] = "a line of some eighty characters, such as a logger writes it to a file, or so..";

// A text of range(0) words, built from nothing.
void appendOurs(benchmark::State& state)
{
    for (auto _ : state) {
        cu_String* text = nullptr;
        cu_String_new(&text, nullptr);
        for (int64_t i = 0; i < state.range(0); ++i)
            cu_String_appendStr(text, word);
        benchmark::DoNotOptimize(cu_String_get(text));
        cu_String_delete(&text);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void appendGLib(benchmark::State& state)
{
    for (auto _ : state) {
        GString* text = g_string_sized_new(255);
        for (int64_t i = 0; i < state.range(0); ++i)
            g_string_append(text, word);
        benchmark::DoNotOptimize(text->str);
        g_string_free(text, TRUE);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void appendStandard(benchmark::State& state)
{
    for (auto _ : state) {
        std::string text;
        text.reserve(255);
        for (int64_t i = 0; i < state.range(0); ++i)
            text.append(word);
        benchmark::DoNotOptimize(text.data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void assignOurs(benchmark::State& state)
{
    cu_String* text = nullptr;
    cu_String_new(&text, nullptr);
    for (auto _ : state) {
        cu_String_assignStr(text, line);
        benchmark::DoNotOptimize(cu_String_get(text));
    }
    cu_String_delete(&text);
}

void assignGLib(benchmark::State& state)
{
    GString* text = g_string_new("");
    for (auto _ : state) {
        g_string_assign(text, line);
        benchmark::DoNotOptimize(text->str);
    }
    g_string_free(text, TRUE);
}

void assignStandard(benchmark::State& state)
{
    std::string text;
    for (auto _ : state) {
        text.assign(static_cast<const char*>(line));
        benchmark::DoNotOptimize(text.data());
    }
}

void formatOurs(benchmark::State& state)
{
    cu_String* text = nullptr;
    cu_String_new(&text, nullptr);
    int number = 0;
    for (auto _ : state) {
        cu_String_format(text, "%s: %d of %u at 0x%08X", "progress", ++number, 1000U, 0xC0FFEEU);
        benchmark::DoNotOptimize(cu_String_get(text));
    }
    cu_String_delete(&text);
}

void formatGLib(benchmark::State& state)
{
    GString* text = g_string_sized_new(255);
    int number = 0;
    for (auto _ : state) {
        g_string_printf(text, "%s: %d of %u at 0x%08X", "progress", ++number, 1000U, 0xC0FFEEU);
        benchmark::DoNotOptimize(text->str);
    }
    g_string_free(text, TRUE);
}

// The standard string cannot format; this is how its users do.
void formatStandard(benchmark::State& state)
{
    std::string text;
    int number = 0;
    for (auto _ : state) {
        char buffer[256];
        const int length =
            snprintf(buffer, sizeof(buffer), "%s: %d of %u at 0x%08X", "progress", ++number, 1000U, 0xC0FFEEU);
        text.assign(buffer, static_cast<std::size_t>(length));
        benchmark::DoNotOptimize(text.data());
    }
}

BENCHMARK(appendOurs)->Name("append/cUtil")->Arg(10)->Arg(100)->Arg(10000);
BENCHMARK(appendGLib)->Name("append/GString")->Arg(10)->Arg(100)->Arg(10000);
BENCHMARK(appendStandard)->Name("append/std::string")->Arg(10)->Arg(100)->Arg(10000);
BENCHMARK(assignOurs)->Name("assign/cUtil");
BENCHMARK(assignGLib)->Name("assign/GString");
BENCHMARK(assignStandard)->Name("assign/std::string");
BENCHMARK(formatOurs)->Name("format/cUtil");
BENCHMARK(formatGLib)->Name("format/GString");
BENCHMARK(formatStandard)->Name("format/std::string");

} // namespace
