#include "support/process.h"
#include "support/sweep.h"

#include <cUtil/tools/dshmManager.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/tools/dshmManager";

/// A registry that leaves no descriptor open.
struct Registry : support::Pinned {
    Registry() { EXPECT_EQ(cu_DSHMManager_new(&me), 0U); }
    ~Registry()
    {
        EXPECT_EQ(cu_DSHMManager_delete(&me), 0U);
        EXPECT_EQ(me, nullptr);
        EXPECT_EQ(support::openDescriptors(), descriptors);
    }

    cu_SharedMemory* find(const std::string& name) const
    {
        cu_SharedMemory* region = nullptr;
        EXPECT_EQ(cu_DSHMManager_has(me, name.c_str(), &region), 0U);
        return region;
    }
    cu_SharedMemory* get(const std::string& name) const
    {
        cu_SharedMemory* region = nullptr;
        EXPECT_EQ(cu_DSHMManager_get(me, name.c_str(), 1, &region), 0U);
        return region;
    }
    uint32_t count() const
    {
        uint32_t count = ~0U;
        EXPECT_EQ(cu_DSHMManager_size(me, &count), 0U);
        return count;
    }

    cu_DSHMManager* me = nullptr;
    unsigned descriptors = support::openDescriptors();
};

/// Three regions in the system that must still be there in the end.
class DSHMManager : public testing::Test
{
protected:
    DSHMManager()
    {
        for (const char* suffix : {"c", "a", "b"}) {
            names.push_back("cuDshmTest." + std::to_string(getpid()) + "." + suffix);
            std::ofstream("/dev/shm/" + names.back()) << std::string(4096, '\0');
        }
        name = names[0].c_str();
    }
    ~DSHMManager() override
    {
        for (const std::string& each : names)
            EXPECT_TRUE(std::filesystem::remove("/dev/shm/" + each));
    }

    std::vector<std::string> names;
    const char* name;
};

TEST_F(DSHMManager, opensARegionOnceAndKeepsOneForAName)
{
    const Registry registry;
    for (const std::string& each : names) {
        EXPECT_EQ(registry.find(each), nullptr);
        EXPECT_NE(registry.get(each), nullptr);
    }
    for (const std::string& each : names)
        EXPECT_EQ(registry.get(each), registry.find(each));
    cu_SharedMemory* second = nullptr;
    ASSERT_EQ(cu_SharedMemory_open(&second, name, nullptr), 0U);
    EXPECT_EQ(cu_DSHMManager_add(registry.me, name, second), cu_ERROR_RBTREE_ADD_EXISTS);
    EXPECT_NE(registry.find(name), second);
    std::string alias = "alias";
    EXPECT_EQ(cu_DSHMManager_add(registry.me, alias.c_str(), second), 0U); // it was still ours
    alias[0] = '?';                                                        // the name is a copy
    EXPECT_EQ(registry.find("alias"), second);
    EXPECT_EQ(cu_DSHMManager_rem(registry.me, "alias"), 0U);
    EXPECT_EQ(cu_DSHMManager_rem(registry.me, "alias"), cu_ERROR_RBTREE_NOT_FOUND);
    EXPECT_EQ(support::trace().find("cu_DSHMManager_remImpl  -  "), 0U);
    EXPECT_EQ(cu_DSHMManager_get(registry.me, "cuDshmTest.missing", 0, &second), cu_ERROR_SHM_OPEN_FAILED);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(registry.count(), 3U);
}

TEST_F(DSHMManager, closesWhenTheLastUserAsksForItAndOpensAgain)
{
    const Registry registry;
    struct {
        int change;
        bool remove, stays;
    } const steps[] = {
        {+1, false, true}, {+1, false, true}, {-1, true, true},  {-1, false, true}, // no user, but nobody asked
        {-1, true, true},                                                           // below no user
        {+1, false, true}, {+1, false, true}, {-1, true, false},
    };
    for (int round = 0; round < 2; ++round) {
        registry.get(name);
        for (const auto& step : steps) {
            SCOPED_TRACE(&step - steps);
            EXPECT_EQ(step.change > 0 ? cu_DSHMManager_incCounter(registry.me, name)
                                      : cu_DSHMManager_decCounter(registry.me, name, step.remove),
                      0U);
            EXPECT_EQ(registry.find(name) != nullptr, step.stays);
            EXPECT_EQ(support::openDescriptors(), registry.descriptors + (step.stays ? 1 : 0));
        }
    }
}

TEST_F(DSHMManager, keepsARegionThatCannotBeClosedUntilItsOwnEnd)
{
    Registry registry;
    for (const std::string& each : names)
        registry.get(each);
    const char* counted = names[1].c_str();
    ASSERT_EQ(cu_DSHMManager_incCounter(registry.me, counted), 0U);
    const support::Injection failing = support::Injection::ofEvery("close", EIO);
    const auto expectFailure = [](const std::string& places, auto call) {
        EXPECT_EQ(call(), cu_ERROR_SHM_CLOSE_FAILED);
        std::string functions;
        std::istringstream trace(support::trace());
        for (std::string line; std::getline(trace, line);)
            functions += line.substr(0, line.find(' ') + 1);
        EXPECT_EQ(functions, "dshmValueDel RBTreeImpl_delete cu_RBTree_" + places + ' ');
    };
    expectFailure("rem cu_DSHMManager_remImpl cu_DSHMManager_rem",
                  [&] { return cu_DSHMManager_rem(registry.me, name); });
    expectFailure("rem cu_DSHMManager_remImpl cu_DSHMManager_decCounter",
                  [&] { return cu_DSHMManager_decCounter(registry.me, counted, true); });
    EXPECT_EQ(registry.count(), 1U);
    // First the one that is left, then those again; the registry's own end closes all three.
    for (int attempt = 0; attempt < 4; ++attempt)
        expectFailure("delete cu_DSHMManager_delete", [&] { return cu_DSHMManager_delete(&registry.me); });
}

TEST_F(DSHMManager, closesAgainWhatItCannotRegister)
{
    const Registry registry;
    for (const char* function : {"calloc", "strdup"}) {
        const char* fired = "";
        for (unsigned nth = 1; fired != nullptr; ++nth) {
            SCOPED_TRACE(function + std::to_string(nth));
            cu_SharedMemory* region = nullptr;
            const support::Injection failing(function, ENOMEM, nth);
            const cu_ErrorCode code = cu_DSHMManager_get(registry.me, name, 0, &region);
            fired = failing.fired();
            const bool failed = fired != nullptr;
            EXPECT_EQ(code, failed ? cu_ErrorCode{cu_ERROR_COM_MALLOC_FAILED} : 0U);
            EXPECT_EQ(region == nullptr, failed);
            EXPECT_EQ(registry.count(), failed ? 0U : 1U);
            EXPECT_EQ(support::openDescriptors(), registry.descriptors + (failed ? 0 : 1));
        }
        EXPECT_EQ(cu_DSHMManager_rem(registry.me, name), 0U);
    }
}

TEST_F(DSHMManager, threadsShareIt)
{
    const Registry registry;
    std::vector<std::thread> threads;
    for (std::size_t number = 0; number < 4; ++number)
        threads.emplace_back([&, number] {
            for (std::size_t round = 0; round < 300; ++round) {
                const char* each = names[(round + number) % names.size()].c_str();
                cu_SharedMemory* region = nullptr;
                EXPECT_EQ(cu_DSHMManager_get(registry.me, each, 0, &region), 0U);
                // Another thread may have closed it since.
                if (cu_DSHMManager_incCounter(registry.me, each) == 0) {
                    EXPECT_EQ(cu_DSHMManager_decCounter(registry.me, each, true), 0U);
                }
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_LE(registry.count(), 3U);
}

TEST_F(DSHMManager, tellsThePointersThatItRefuses)
{
    const Registry registry;
    cu_DSHMManager* const me = registry.me;
    cu_SharedMemory* out = nullptr;
    cu_SharedMemory* const region = registry.get(name);
    const auto at = [](const void* pointer) {
        char text[16];
        snprintf(text, sizeof(text), "0x%08X", static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointer)));
        return std::string(text);
    };
    const auto expectTold = [](const char* function, const std::string& text, auto call) {
        EXPECT_FAILURE(call(), cu_ERROR_COM_INVALID_ARGUMENT, function, file, text);
    };
    cu_DSHMManager* handles[] = {me, nullptr};
    for (cu_DSHMManager** const bad : {static_cast<cu_DSHMManager**>(nullptr), &handles[0]})
        expectTold("cu_DSHMManager_new", "me=" + at(bad), [&] { return cu_DSHMManager_new(bad); });
    for (cu_DSHMManager** const bad : {static_cast<cu_DSHMManager**>(nullptr), &handles[1]})
        expectTold("cu_DSHMManager_delete", "me=" + at(bad), [&] { return cu_DSHMManager_delete(bad); });
    // One argument after the other is null.
    for (int null = 0; null < 3; ++null) {
        SCOPED_TRACE(null);
        cu_DSHMManager* const m = null == 0 ? nullptr : me;
        const char* const n = null == 1 ? nullptr : name;
        cu_SharedMemory* const r = null == 2 ? nullptr : region;
        cu_SharedMemory** const o = null == 2 ? nullptr : &out;
        const std::string two = "me=" + at(m) + ", name=" + at(n);
        const std::string three = two + ", dshm=";
        expectTold("cu_DSHMManager_hasImpl", three + at(o), [&] { return cu_DSHMManager_has(m, n, o); });
        expectTold("cu_DSHMManager_addImpl", three + at(r), [&] { return cu_DSHMManager_add(m, n, r); });
        expectTold("cu_DSHMManager_get", three + at(o), [&] { return cu_DSHMManager_get(m, n, 0, o); });
        if (null == 2)
            continue;
        expectTold("cu_DSHMManager_remImpl", two, [&] { return cu_DSHMManager_rem(m, n); });
        expectTold("cu_DSHMManager_incCounter", two, [&] { return cu_DSHMManager_incCounter(m, n); });
        expectTold("cu_DSHMManager_decCounter", two, [&] { return cu_DSHMManager_decCounter(m, n, true); });
        uint32_t count = 7;
        uint32_t* const c = null == 1 ? nullptr : &count;
        expectTold("cu_DSHMManager_size", "me=" + at(m) + ", size=" + at(c), [&] { return cu_DSHMManager_size(m, c); });
    }
    const std::string missing = "The given SHM element with the name 'x' does not exist!";
    expectTold("cu_DSHMManager_incCounter", missing, [&] { return cu_DSHMManager_incCounter(me, "x"); });
    expectTold("cu_DSHMManager_decCounter", missing, [&] { return cu_DSHMManager_decCounter(me, "x", false); });
    EXPECT_EQ(registry.count(), 1U); // the semaphore was given back each time
}

TEST(DSHMManagerSemaphore, isMadeWithTheRegistryAndEndsTheProcessWhenItIsNotGivenBack)
{
    support::sweep<cu_DSHMManager>(
        "cu_DSHMManager_new", [](auto handle, auto) { return cu_DSHMManager_new(handle); }, cu_DSHMManager_delete, {},
        "sem_destroy");
    const auto outcome = support::outcomeOf([] {
        const Registry registry;
        const support::Injection failing("sem_post", EINVAL);
        registry.find("x");
    });
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.out.find("!   Function: 'cu_DSHMManager_has'\n"), std::string::npos);
    Registry registry;
    const support::Injection failing("sem_destroy", EBUSY);
    EXPECT_EQ(cu_DSHMManager_delete(&registry.me), cu_ERROR_SEM_FREE_FAILED);
    EXPECT_EQ(registry.count(), 0U); // it goes on
}

} // namespace
