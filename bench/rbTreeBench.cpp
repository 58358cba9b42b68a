// An ordered map of pointers: filling, hits, misses, emptying, walking and its memory, beside GLib's tree and the
// standard map. Keys are whole numbers in pointers, as GLib's users write them, so that nobody pays for a key's memory.
// Each map is filled in a random order, so its nodes lie as scattered as in a program that has run for a while.
#include <cUtil/tools/rbTree.h>

#include <benchmark/benchmark.h>
#include <glib.h>
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace
{

uintptr_t number(const void* key)
{
    return reinterpret_cast<uintptr_t>(key);
}

void* pointer(uintptr_t key)
{
    return reinterpret_cast<void*>(key); // NOLINT(performance-no-int-to-ptr)
}

int32_t order(const void* a, const void* b)
{
    return (number(a) > number(b)) - (number(a) < number(b));
}

class Ours
{
public:
    Ours() { cu_RBTree_new(&tree_, order, nullptr, nullptr, nullptr); }
    Ours(const Ours&) = delete;
    Ours& operator=(const Ours&) = delete;
    ~Ours() { cu_RBTree_delete(&tree_); }

    void add(void* key) { cu_RBTree_add(tree_, key, key); }
    void remove(void* key) { cu_RBTree_rem(tree_, key); }
    void* find(void* key) const
    {
        void* value = nullptr;
        cu_RBTree_has(tree_, key, &value);
        return value;
    }
    uintptr_t sum() const
    {
        uintptr_t sum = 0;
        cu_RBTreeIterator* it = nullptr;
        void* value = nullptr;
        cu_RBTreeIterator_new(&it, tree_);
        for (cu_RBTreeIterator_current(it, nullptr, &value); value != nullptr;
             cu_RBTreeIterator_next(it, nullptr, &value))
            sum += number(value);
        cu_RBTreeIterator_delete(&it);
        return sum;
    }

private:
    cu_RBTree* tree_ = nullptr;
};

class GLib
{
public:
    GLib() = default;
    GLib(const GLib&) = delete;
    GLib& operator=(const GLib&) = delete;
    ~GLib() { g_tree_destroy(tree_); }

    void add(void* key) { g_tree_insert(tree_, key, key); }
    void remove(void* key) { g_tree_remove(tree_, key); }
    void* find(void* key) const { return g_tree_lookup(tree_, key); }
    uintptr_t sum() const
    {
        uintptr_t sum = 0;
        for (GTreeNode* node = g_tree_node_first(tree_); node != nullptr; node = g_tree_node_next(node))
            sum += number(g_tree_node_value(node));
        return sum;
    }

private:
    static gint compare(gconstpointer a, gconstpointer b) { return order(a, b); }

    GTree* tree_ = g_tree_new(compare);
};

class Standard
{
public:
    void add(void* key) { map_.emplace(number(key), key); }
    void remove(void* key) { map_.erase(number(key)); }
    void* find(void* key) const
    {
        const auto found = map_.find(number(key));
        return found != map_.end() ? found->second : nullptr;
    }
    uintptr_t sum() const
    {
        uintptr_t sum = 0;
        for (const auto& entry : map_)
            sum += number(entry.second);
        return sum;
    }

private:
    std::map<uintptr_t, void*> map_;
};

// The even numbers from 2 on, in a random order.
std::vector<void*> shuffledKeys(const benchmark::State& state, unsigned seed)
{
    std::vector<void*> keys(static_cast<std::size_t>(state.range(0)));
    for (std::size_t at = 0; at < keys.size(); ++at)
        keys[at] = pointer(2 * at + 2);
    std::shuffle(keys.begin(), keys.end(), std::mt19937(seed));
    return keys;
}

// Bytes of the heap that each of many entries takes, in a process in which nothing was freed before.
template <typename Map>
double bytesPerItem()
{
    constexpr uintptr_t count = 100'000;
    const auto inUse = [] {
        const auto info = mallinfo2();
        return static_cast<double>(info.uordblks + info.hblkhd);
    };
    int ends[2];
    if (pipe(ends) != 0)
        return 0;
    const pid_t child = fork();
    if (child == 0) {
        Map map;
        const double before = inUse();
        for (uintptr_t key = 1; key <= count; ++key)
            map.add(pointer(key));
        const double bytes = (inUse() - before) / count;
        _exit(write(ends[1], &bytes, sizeof(bytes)) == sizeof(bytes) ? 0 : 1);
    }
    double bytes = 0;
    close(ends[1]);
    if (read(ends[0], &bytes, sizeof(bytes)) != sizeof(bytes))
        bytes = 0;
    close(ends[0]);
    waitpid(child, nullptr, 0);
    return bytes;
}

template <typename Map>
const double bytesFromTheStart = bytesPerItem<Map>();

template <typename Work>
void timed(benchmark::State& state, Work work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
}

template <typename Map>
void fill(benchmark::State& state)
{
    const auto keys = shuffledKeys(state, 1);
    for (auto _ : state) {
        Map map;
        timed(state, [&] {
            for (void* key : keys)
                map.add(key);
        });
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.counters["bytes_per_item"] = bytesFromTheStart<Map>;
}

template <typename Map>
void empty(benchmark::State& state)
{
    const auto keys = shuffledKeys(state, 1);
    const auto others = shuffledKeys(state, 2);
    for (auto _ : state) {
        Map map;
        for (void* key : keys)
            map.add(key);
        timed(state, [&] {
            for (void* key : others)
                map.remove(key);
        });
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <typename Map, uintptr_t beside>
void look(benchmark::State& state)
{
    Map map;
    for (void* key : shuffledKeys(state, 1))
        map.add(key);
    // Several rounds of a small map, or the processor learns its branches by heart.
    std::vector<void*> asked;
    for (unsigned seed = 2; asked.size() < 100000; ++seed)
        for (void* key : shuffledKeys(state, seed))
            asked.push_back(pointer(number(key) + beside));
    std::size_t at = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(map.find(asked[at]));
        at = at + 1 < asked.size() ? at + 1 : 0;
    }
}

template <typename Map>
void walk(benchmark::State& state)
{
    // Several small maps, for the same reason.
    std::vector<std::unique_ptr<Map>> maps(state.range(0) < 10000 ? 8 : 1);
    for (unsigned seed = 1; auto& map : maps) {
        map = std::make_unique<Map>();
        for (void* key : shuffledKeys(state, seed++))
            map->add(key);
    }
    for (auto _ : state)
        for (const auto& map : maps)
            benchmark::DoNotOptimize(map->sum());
    state.SetItemsProcessed(state.iterations() * state.range(0) * static_cast<int64_t>(maps.size()));
}

void sizes(benchmark::internal::Benchmark* work)
{
    work->Arg(1000)->Arg(100000)->Arg(1000000);
}

#define BENCHMARK_MAP(Map, who)                                                                                        \
    BENCHMARK(fill<Map>)->Name("insert/" who)->Apply(sizes)->UseManualTime();                                          \
    BENCHMARK(look<Map, 0>)->Name("hit/" who)->Apply(sizes);                                                           \
    BENCHMARK(look<Map, 1>)->Name("miss/" who)->Apply(sizes);                                                          \
    BENCHMARK(empty<Map>)->Name("remove/" who)->Apply(sizes)->UseManualTime();                                         \
    BENCHMARK(walk<Map>)->Name("iterate/" who)->Apply(sizes)

BENCHMARK_MAP(Ours, "cUtil");
BENCHMARK_MAP(GLib, "GTree");
BENCHMARK_MAP(Standard, "std::map");

} // namespace
