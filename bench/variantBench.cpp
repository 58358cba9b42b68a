// Values of many types, beside GLib's GValue; and dictionaries of them by name, beside GLib's hash table and the
// standard map. Each side owns its names and values and copies what goes in and comes out.
#include <cUtil/propertyMap.h>

#include <benchmark/benchmark.h>
#include <glib-object.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <variant>
#include <vector>

namespace
{

constexpr char text[] = "a text of some forty characters, or so..";

void numberOurs(benchmark::State& state)
{
    cu_Variant value;
    cu_Variant_init(&value);
    int32_t number = 0;
    for (auto _ : state) {
        cu_Variant_set_sint32(&value, number + 1);
        cu_Variant_get_sint32(&value, &number);
        benchmark::DoNotOptimize(number);
    }
    cu_Variant_free(&value);
}

void numberGLib(benchmark::State& state)
{
    GValue value = G_VALUE_INIT;
    g_value_init(&value, G_TYPE_INT);
    int32_t number = 0;
    for (auto _ : state) {
        g_value_set_int(&value, number + 1);
        number = g_value_get_int(&value);
        benchmark::DoNotOptimize(number);
    }
    g_value_unset(&value);
}

void textOurs(benchmark::State& state)
{
    cu_Variant value;
    cu_Variant_init(&value);
    for (auto _ : state) {
        const char* got = nullptr;
        cu_Variant_set_string(&value, text);
        cu_Variant_get_string(&value, &got);
        benchmark::DoNotOptimize(got);
    }
    cu_Variant_free(&value);
}

void textGLib(benchmark::State& state)
{
    GValue value = G_VALUE_INIT;
    g_value_init(&value, G_TYPE_STRING);
    for (auto _ : state) {
        g_value_set_string(&value, text);
        benchmark::DoNotOptimize(g_value_get_string(&value));
    }
    g_value_unset(&value);
}

void convertOurs(benchmark::State& state)
{
    cu_Variant value;
    cu_Variant_init(&value);
    int64_t number = 0;
    for (auto _ : state) {
        cu_Variant_set_sint64(&value, ++number);
        cu_Variant_convert_ieee64(&value);
        cu_Variant_convert_sint32(&value);
        benchmark::DoNotOptimize(value);
    }
    cu_Variant_free(&value);
}

void convertGLib(benchmark::State& state)
{
    GValue value = G_VALUE_INIT;
    GValue real = G_VALUE_INIT;
    GValue narrow = G_VALUE_INIT;
    g_value_init(&value, G_TYPE_INT64);
    g_value_init(&real, G_TYPE_DOUBLE);
    g_value_init(&narrow, G_TYPE_INT);
    int64_t number = 0;
    for (auto _ : state) {
        g_value_set_int64(&value, ++number);
        g_value_transform(&value, &real);
        g_value_transform(&real, &narrow);
        benchmark::DoNotOptimize(narrow);
    }
}

// Names in no order, as different in length and letters as those of a program's settings.
std::vector<std::string> namesOf(const benchmark::State& state)
{
    std::vector<std::string> names;
    for (int64_t at = 0; at < state.range(0); ++at)
        names.push_back("module" + std::to_string(at % 7) + ".setting" + std::to_string(at));
    std::shuffle(names.begin(), names.end(), std::mt19937(1));
    return names;
}

struct Ours {
    cu_PropertyMap map;

    Ours() { cu_PropertyMap_init(&map); }
    Ours(const Ours&) = delete;
    Ours& operator=(const Ours&) = delete;
    ~Ours() { cu_PropertyMap_free(&map); }
    void insert(const std::string& name, int64_t number)
    {
        const cu_Variant value = {cu_VARIANT_SINT64, {.sint64 = number}};
        cu_PropertyMap_insert(&map, name.c_str(), &value);
    }
    int64_t get(const std::string& name)
    {
        cu_Variant value;
        cu_Variant_init(&value);
        cu_PropertyMap_get(&map, name.c_str(), &value);
        int64_t number = 0;
        cu_Variant_get_sint64(&value, &number);
        cu_Variant_free(&value);
        return number;
    }
};

struct GLib {
    GHashTable* map;

    GLib() : map(g_hash_table_new_full(g_str_hash, g_str_equal, g_free, freeValue)) {}
    GLib(const GLib&) = delete;
    GLib& operator=(const GLib&) = delete;
    ~GLib() { g_hash_table_unref(map); }
    static void freeValue(void* value)
    {
        g_value_unset(static_cast<GValue*>(value));
        g_free(value);
    }
    void insert(const std::string& name, int64_t number)
    {
        GValue* value = g_new0(GValue, 1);
        g_value_init(value, G_TYPE_INT64);
        g_value_set_int64(value, number);
        g_hash_table_replace(map, g_strdup(name.c_str()), value);
    }
    int64_t get(const std::string& name)
    {
        GValue value = G_VALUE_INIT;
        g_value_init(&value, G_TYPE_INT64);
        g_value_copy(static_cast<GValue*>(g_hash_table_lookup(map, name.c_str())), &value);
        const int64_t number = g_value_get_int64(&value);
        g_value_unset(&value);
        return number;
    }
};

struct Standard {
    using Value = std::variant<std::monostate, int64_t, double, std::string>;
    std::map<std::string, Value, std::less<>> map;

    void insert(const std::string& name, int64_t number) { map.insert_or_assign(name, Value(number)); }
    int64_t get(const std::string& name)
    {
        const Value value = map.find(name)->second;
        return std::get<int64_t>(value);
    }
};

// A dictionary of range(0) properties, from its making to its end.
template <typename Dictionary>
void insert(benchmark::State& state)
{
    const std::vector<std::string> names = namesOf(state);
    for (auto _ : state) {
        Dictionary dictionary;
        for (const std::string& name : names)
            dictionary.insert(name, 1);
        benchmark::DoNotOptimize(dictionary);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <typename Dictionary>
void get(benchmark::State& state)
{
    std::vector<std::string> names = namesOf(state);
    Dictionary dictionary;
    for (const std::string& name : names)
        dictionary.insert(name, 1);
    std::shuffle(names.begin(), names.end(), std::mt19937(2));
    int64_t sum = 0;
    for (auto _ : state) {
        for (const std::string& name : names)
            sum += dictionary.get(name);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(numberOurs)->Name("number/cUtil");
BENCHMARK(numberGLib)->Name("number/GValue");
BENCHMARK(textOurs)->Name("text/cUtil");
BENCHMARK(textGLib)->Name("text/GValue");
BENCHMARK(convertOurs)->Name("convert/cUtil");
BENCHMARK(convertGLib)->Name("convert/GValue");
BENCHMARK(insert<Ours>)->Name("insert/cUtil")->Arg(8)->Arg(64)->Arg(1024);
BENCHMARK(insert<GLib>)->Name("insert/GHashTable")->Arg(8)->Arg(64)->Arg(1024);
BENCHMARK(insert<Standard>)->Name("insert/std::map")->Arg(8)->Arg(64)->Arg(1024);
BENCHMARK(get<Ours>)->Name("get/cUtil")->Arg(8)->Arg(64)->Arg(1024);
BENCHMARK(get<GLib>)->Name("get/GHashTable")->Arg(8)->Arg(64)->Arg(1024);
BENCHMARK(get<Standard>)->Name("get/std::map")->Arg(8)->Arg(64)->Arg(1024);

} // namespace
