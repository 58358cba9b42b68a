#include "cores.h"

#include "messages.h"

#include <cUtil/tools/rbTree.h>

#include <algorithm>
#include <cinttypes>
#include <cstdint>
#include <cstdio>

namespace telemetry
{

namespace
{

constexpr int shownCores = 3;

struct Share {
    uint32_t core;
    uint32_t count = 0;
    double sum = 0;
    double most = 0;

    double mean() const { return sum / count; }
};

// A share is the map's key as well as its value: the key is looked at, the value is owned.
const Share* share(const void* pointer)
{
    return static_cast<const Share*>(pointer);
}

void keep(void*) {}

void destroy(void* pointer)
{
    delete static_cast<Share*>(pointer);
}

void* clone(const void* pointer)
{
    return new Share(*share(pointer));
}

uint32_t hash(const void* key)
{
    return share(key)->core;
}

int32_t equal(const void* a, const void* b)
{
    return share(a)->core == share(b)->core ? 1 : 0;
}

// The busier one first, and of equal ones that with the lower number.
int32_t compare(const void* a, const void* b)
{
    if (share(a)->mean() != share(b)->mean())
        return share(a)->mean() > share(b)->mean() ? -1 : 1;
    return share(a)->core < share(b)->core ? -1 : share(a)->core > share(b)->core;
}

void check(cu_ErrorCode code, const char* operation)
{
    if (code != 0)
        static_cast<void>(failByRecord(code, operation));
}

} // namespace

Cores::Cores()
{
    check(cu_Map_new(&shares_, hash, equal, keep, destroy, clone, clone, nullptr), "making the map of processors");
}

Cores::~Cores()
{
    if (shares_ != nullptr)
        check(cu_Map_delete(&shares_), "deleting the map of processors");
}

void Cores::add(const std::vector<double>& busy)
{
    for (uint32_t core = 0; core < busy.size(); ++core) {
        const Share wanted{core};
        void* found = nullptr;
        if (cu_Map_lookup(shares_, &wanted, &found) == 0 && found == nullptr) {
            auto* fresh = new Share(wanted);
            found = fresh;
            void* key = fresh;
            void* value = fresh;
            if (const cu_ErrorCode code = cu_Map_insert(shares_, &key, &value); code != 0) {
                check(code, "adding a processor");
                delete fresh;
                return;
            }
        }
        if (found == nullptr)
            return;
        auto* gathered = static_cast<Share*>(found);
        ++gathered->count;
        gathered->sum += busy[core];
        gathered->most = std::max(gathered->most, busy[core]);
    }
}

void Cores::print() const
{
    cu_RBTree* order = nullptr;
    if (const cu_ErrorCode code = cu_RBTree_new(&order, compare, nullptr, nullptr, nullptr); code != 0)
        return check(code, "making the order of processors");
    cu_Map_ConstIterator* all = nullptr;
    check(cu_Map_ConstIterator_new(&all, shares_), "walking through the processors");
    const void* key = nullptr;
    const void* value = nullptr;
    while (cu_Map_ConstIterator_next(all, &key, &value) == 0 && key != nullptr)
        check(cu_RBTree_add(order, value, const_cast<void*>(value)), "ordering the processors");
    if (all != nullptr)
        check(cu_Map_ConstIterator_delete(&all), "ending the walk");

    cu_RBTreeIterator* busiest = nullptr;
    check(cu_RBTreeIterator_new(&busiest, order), "walking through the order of processors");
    void* place = nullptr;
    void* found = nullptr;
    cu_ErrorCode code = cu_RBTreeIterator_current(busiest, &place, &found);
    for (int shown = 0; code == 0 && found != nullptr && shown < shownCores; ++shown) {
        constexpr double percent = 100;
        printf("%s cpu%" PRIu32 " %.0f/%.0f %%", shown == 0 ? "busiest, mean/peak:" : ",", share(found)->core,
               percent * share(found)->mean(), percent * share(found)->most);
        code = cu_RBTreeIterator_next(busiest, &place, &found);
    }
    printf("\n");
    if (busiest != nullptr)
        check(cu_RBTreeIterator_delete(&busiest), "ending the walk");
    check(cu_RBTree_delete(&order), "deleting the order of processors");
}

} // namespace telemetry
