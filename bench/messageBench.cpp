// Messages: records of a number and bytes written into a new one, and into one that is kept; beside GLib's byte array,
// which has no cursor.
#include <cUtil/network/message.h>

#include <benchmark/benchmark.h>
#include <glib.h>

#include <cstdint>
#include <cstring>

namespace
{

constexpr uint8_t bytes[60] = {1, 2, 3};

void fill(cu_Message* message, int64_t records)
{
    for (uint32_t i = 0; i < records; ++i) {
        cu_Message_write(message, &i, sizeof(i));
        cu_Message_write(message, bytes, sizeof(bytes));
    }
}

void fill(GByteArray* array, int64_t records)
{
    for (uint32_t i = 0; i < records; ++i) {
        g_byte_array_append(array, static_cast<const uint8_t*>(static_cast<const void*>(&i)), sizeof(i));
        g_byte_array_append(array, bytes, sizeof(bytes));
    }
}

// A message of range(0) records, built from nothing.
void writeOurs(benchmark::State& state)
{
    for (auto _ : state) {
        cu_Message* message = nullptr;
        cu_Message_new(&message, 0, nullptr);
        fill(message, state.range(0));
        cu_Message_delete(&message);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void writeGLib(benchmark::State& state)
{
    for (auto _ : state) {
        GByteArray* array = g_byte_array_new();
        fill(array, state.range(0));
        g_byte_array_free(array, TRUE);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// The same message again and again, as a sender keeps it.
void reuseOurs(benchmark::State& state)
{
    cu_Message* message = nullptr;
    cu_Message_new(&message, 0, nullptr);
    for (auto _ : state) {
        cu_Message_seek(message, 0);
        fill(message, state.range(0));
    }
    cu_Message_delete(&message);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void reuseGLib(benchmark::State& state)
{
    GByteArray* array = g_byte_array_new();
    for (auto _ : state) {
        g_byte_array_set_size(array, 0);
        fill(array, state.range(0));
    }
    g_byte_array_free(array, TRUE);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(writeOurs)->Name("write/cUtil")->RangeMultiplier(10)->Range(1, 1000);
BENCHMARK(writeGLib)->Name("write/GByteArray")->RangeMultiplier(10)->Range(1, 1000);
BENCHMARK(reuseOurs)->Name("reuse/cUtil")->RangeMultiplier(10)->Range(1, 1000);
BENCHMARK(reuseGLib)->Name("reuse/GByteArray")->RangeMultiplier(10)->Range(1, 1000);

} // namespace
