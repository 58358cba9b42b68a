// A new random identifier and its text, beside libuuid and GLib; reading a text back, beside libuuid.
#include <cUtil/uuid.h>

#include <benchmark/benchmark.h>
#include <glib.h>
#include <uuid/uuid.h>

namespace
{

void createOurs(benchmark::State& state)
{
    cu_UUID uuid;
    char text[CU_UUID_TEXT_SIZE];
    for (auto _ : state) {
        cu_UUID_create(&uuid);
        cu_UUID_toString(&uuid, text);
        benchmark::DoNotOptimize(text);
    }
    state.SetItemsProcessed(state.iterations());
}

void createLibuuid(benchmark::State& state)
{
    uuid_t uuid;
    char text[UUID_STR_LEN];
    for (auto _ : state) {
        uuid_generate_random(uuid);
        uuid_unparse_upper(uuid, text);
        benchmark::DoNotOptimize(text);
    }
    state.SetItemsProcessed(state.iterations());
}

void createGLib(benchmark::State& state)
{
    for (auto _ : state) {
        gchar* text = g_uuid_string_random();
        benchmark::DoNotOptimize(text);
        g_free(text);
    }
    state.SetItemsProcessed(state.iterations());
}

void readOurs(benchmark::State& state)
{
    cu_UUID uuid;
    for (auto _ : state) {
        cu_UUID_fromString(&uuid, "0123456789ABCDEF0123456789abcdef");
        benchmark::DoNotOptimize(uuid);
    }
}

void readLibuuid(benchmark::State& state)
{
    uuid_t uuid;
    for (auto _ : state) {
        uuid_parse("01234567-89AB-CDEF-0123-456789abcdef", uuid);
        benchmark::DoNotOptimize(uuid);
    }
}

BENCHMARK(createOurs)->Name("uuid_create/cUtil");
BENCHMARK(createLibuuid)->Name("uuid_create/libuuid");
BENCHMARK(createGLib)->Name("uuid_create/GLib");
BENCHMARK(readOurs)->Name("uuid_read/cUtil");
BENCHMARK(readLibuuid)->Name("uuid_read/libuuid");

} // namespace
