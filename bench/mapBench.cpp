// The map beside GLib's, the standard one and that of the Apache runtime: filled from nothing, looked up with keys that
// are there and with others, emptied key by key. Keys are pointers in random order; everybody calls the same functions
// for hash and equality. The time is that for one key.

#include "support/processors.h"

#include <cUtil/algorithm/map.h>

#include <apr_general.h>
#include <apr_hash.h>
#include <benchmark/benchmark.h>
#include <glib.h>
#include <malloc.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <unordered_map>
#include <vector>

namespace
{

// Knows its own address: the Apache runtime compares keys as bytes.
struct Item {
    void* self;
};

uint32_t hashOf(const void* key)
{
    return static_cast<uint32_t>((reinterpret_cast<uintptr_t>(key) * 0x9E3779B97F4A7C15U) >> 32);
}

int32_t areEqual(const void* a, const void* b)
{
    return a == b ? 1 : 0;
}

void ignore(void*) {}

void* same(const void* object)
{
    return const_cast<void*>(object);
}

class Ours
{
public:
    Ours() { cu_Map_new(&map_, hashOf, areEqual, ignore, ignore, same, same, nullptr); }
    Ours(const Ours&) = delete;
    Ours& operator=(const Ours&) = delete;
    ~Ours() { cu_Map_delete(&map_); }

    void insert(Item* item)
    {
        void* key = item;
        void* value = item;
        cu_Map_insert(map_, &key, &value);
    }

    bool has(Item* item)
    {
        void* value = nullptr;
        cu_Map_lookup(map_, item, &value);
        return value != nullptr;
    }

    void remove(Item* item)
    {
        bool removed = false;
        cu_Map_remove(map_, item, &removed);
    }

private:
    cu_Map* map_ = nullptr;
};

class GLib
{
public:
    GLib(const GLib&) = delete;
    GLib& operator=(const GLib&) = delete;
    GLib() : map_(g_hash_table_new_full(hashOf, areEqual, ignore, ignore)) {}
    ~GLib() { g_hash_table_destroy(map_); }

    // A value that is its key would make the table a set.
    void insert(Item* item) { g_hash_table_insert(map_, item, item + 1); }
    bool has(Item* item) { return g_hash_table_lookup(map_, item) != nullptr; }
    void remove(Item* item) { g_hash_table_remove(map_, item); }

private:
    GHashTable* map_;
};

class Standard
{
public:
    void insert(Item* item) { map_.insert_or_assign(item, item); }
    bool has(Item* item) { return map_.find(item) != map_.end(); }
    void remove(Item* item) { map_.erase(item); }

private:
    std::unordered_map<void*, void*, decltype(&hashOf), decltype(&areEqual)> map_{0, hashOf, areEqual};
};

class Apache
{
public:
    Apache(const Apache&) = delete;
    Apache& operator=(const Apache&) = delete;
    Apache()
    {
        [[maybe_unused]] static const apr_status_t ready = apr_initialize();
        apr_pool_create(&pool_, nullptr);
        map_ = apr_hash_make_custom(pool_, hash);
    }
    ~Apache() { apr_pool_destroy(pool_); }

    void insert(Item* item) { apr_hash_set(map_, &item->self, sizeof(void*), item); }
    bool has(Item* item) { return apr_hash_get(map_, &item->self, sizeof(void*)) != nullptr; }
    void remove(Item* item) { apr_hash_set(map_, &item->self, sizeof(void*), nullptr); }

private:
    static unsigned hash(const char* key, apr_ssize_t*) { return hashOf(key); }

    apr_pool_t* pool_ = nullptr;
    apr_hash_t* map_ = nullptr;
};

/// Items that are to be in a map, and others, both in random order.
class Items
{
public:
    explicit Items(int64_t count) : memory_(static_cast<std::size_t>(2 * count))
    {
        std::vector<Item*> all;
        for (Item& item : memory_) {
            item.self = &item;
            all.push_back(&item);
        }
        std::ranges::shuffle(all, random_);
        present.assign(all.begin(), all.begin() + count);
        absent.assign(all.begin() + count, all.end());
    }

    void shuffle() { std::ranges::shuffle(present, random_); }

    std::vector<Item*> present;
    std::vector<Item*> absent;

private:
    std::mt19937 random_{1};
    std::vector<Item> memory_;
};

template <typename Work>
void measure(benchmark::State& state, const std::vector<Item*>& items, Work work)
{
    const int64_t start = bench::nanoSeconds();
    for (Item* item : items)
        work(item);
    state.SetIterationTime(static_cast<double>(bench::nanoSeconds() - start) * 1e-9);
}

template <typename Map>
void insert(benchmark::State& state)
{
    Items items(state.range(0));
    std::size_t bytes = 0;
    for (auto _ : state) {
        const struct mallinfo2 before = mallinfo2();
        Map map;
        measure(state, items.present, [&](Item* item) { map.insert(item); });
        const struct mallinfo2 after = mallinfo2();
        bytes = after.uordblks + after.hblkhd - before.uordblks - before.hblkhd;
    }
    state.counters["bytes"] = static_cast<double>(bytes) / static_cast<double>(state.range(0));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <typename Map>
void lookUp(benchmark::State& state, bool hit)
{
    Items items(state.range(0));
    Map map;
    for (Item* item : items.present)
        map.insert(item);
    for (auto _ : state) {
        items.shuffle();
        std::size_t found = 0;
        measure(state, hit ? items.present : items.absent, [&](Item* item) { found += std::size_t{map.has(item)}; });
        if (found != (hit ? items.present.size() : 0))
            state.SkipWithError("keys are missing");
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <typename Map>
void remove(benchmark::State& state)
{
    Items items(state.range(0));
    for (auto _ : state) {
        Map map;
        for (Item* item : items.present)
            map.insert(item);
        items.shuffle();
        measure(state, items.present, [&](Item* item) { map.remove(item); });
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <typename Map>
void compete(const std::string& who)
{
    const auto add = [&](const char* work, auto function) {
        benchmark::RegisterBenchmark((work + ("/" + who)).c_str(), function)
            ->UseManualTime()
            ->Arg(1000)
            ->Arg(100'000)
            ->Arg(1'000'000);
    };
    add("insert", insert<Map>);
    add("hit", [](benchmark::State& state) { lookUp<Map>(state, true); });
    add("miss", [](benchmark::State& state) { lookUp<Map>(state, false); });
    add("remove", remove<Map>);
}

[[maybe_unused]] const bool registered = [] {
    compete<Ours>("cUtil");
    compete<GLib>("GHashTable");
    compete<Standard>("std::unordered_map");
    compete<Apache>("apr_hash");
    return true;
}();

} // namespace
