#include "support/inject.h"
#include "support/refusal.h"

#include <cUtil/mallocAllocator.h>
#include <cUtil/tools/safeMalloc.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{

constexpr char source[] = "src/cUtil/tools/safeMalloc";

TEST(SafeMalloc, blocksAreZeroedAndBadArgumentsAreTold)
{
    // Leave something behind in the heap; the volatile pointer keeps the compiler from dropping the writes.
    void* volatile dirty = std::malloc(4096);
    memset(dirty, 0xA5, 4096);
    std::free(dirty);
    void* block = nullptr;
    ASSERT_EQ(cu_safeMalloc(&block, 4096), 0U);
    EXPECT_EQ(std::string(static_cast<char*>(block), 4096), std::string(4096, '\0'));
    void* const before = block;
    char description[32];
    snprintf(description, sizeof(description), "dest=0x%08X, size=0",
             static_cast<uint32_t>(reinterpret_cast<uintptr_t>(&block)));
    EXPECT_FAILURE(cu_safeMalloc(&block, 0), cu_ERROR_COM_INVALID_ARGUMENT, "cu_safeMalloc", source, description);
    EXPECT_EQ(block, before);
    EXPECT_FAILURE(cu_safeMalloc(nullptr, 7), cu_ERROR_COM_INVALID_ARGUMENT, "cu_safeMalloc", source,
                   "dest=0x00000000, size=7");
    EXPECT_FAILURE(cu_safeRealloc(nullptr, 7), cu_ERROR_COM_INVALID_ARGUMENT, "cu_safeRealloc", source,
                   "dest=0x00000000, *dest=0x00000000 (valid if dest is not 0!), size=7");
    const support::Injection exhausted("realloc", ENOMEM);
    EXPECT_FAILURE(cu_safeRealloc(&block, 32), cu_ERROR_COM_MALLOC_FAILED, "cu_safeRealloc", source,
                   "Unable to realloc '32' bytes of memory.");
    EXPECT_EQ(block, before);
    const support::Injection untouched("realloc", ENOMEM); // what realloc does with size 0 is the system's affair
    for (int time = 0; time < 2; ++time) {
        EXPECT_EQ(cu_safeRealloc(&block, 0), 0U);
        EXPECT_EQ(block, nullptr);
    }
    EXPECT_EQ(untouched.fired(), nullptr);
}

TEST(Allocator, dispatchRefusesMissingOperationsAndArguments)
{
    constexpr char file[] = "src/cUtil/allocator";
    cu_allocator empty = {};
    cu_allocator* heap = cu_allocator_malloc_get();
    cu_allocator* handle = &empty;
    void* block = nullptr;
    EXPECT_NULLS_REFUSED(file, (std::tuple{heap, &block, &handle}), cu_allocator_alloc, cu_allocator_realloc,
                         cu_allocator_free, cu_allocator_destruct);
    EXPECT_REFUSED(cu_allocator_alloc(&empty, &block, 1), "cu_allocator_alloc", file);
    EXPECT_REFUSED(cu_allocator_alloc(heap, &block, 0), "cu_allocator_alloc", file);
    EXPECT_REFUSED(cu_allocator_realloc(&empty, &block, 1), "cu_allocator_realloc", file);
    EXPECT_REFUSED(cu_allocator_free(&empty, &block), "cu_allocator_free", file);
    EXPECT_REFUSED(cu_allocator_destruct(&handle, 0), "cu_allocator_destruct", file);
    EXPECT_EQ(block, nullptr);
}

TEST(Allocator, destructPassesItsArgumentAndKeepsTheHandleOnFailure)
{
    uint32_t seen = 0;
    cu_allocator mine = {&seen, nullptr, nullptr, nullptr, [](void* context, uint32_t argument) -> cu_ErrorCode {
                             *static_cast<uint32_t*>(context) = argument;
                             return argument;
                         }};
    cu_allocator* handle = &mine;
    EXPECT_EQ(cu_allocator_destruct(&handle, 77), 77U);
    EXPECT_EQ(seen, 77U);
    EXPECT_EQ(handle, &mine);
    EXPECT_EQ(support::trace().find("cu_allocator_destruct  -  src/cUtil/allocator:"), 0U);
    EXPECT_EQ(cu_allocator_destruct(&handle, 0), 0U);
    EXPECT_EQ(handle, nullptr);
}

TEST(Allocator, theSharedOneOutlivesItsDestructionAndInstancesDoNot)
{
    cu_allocator* shared = cu_allocator_malloc_get();
    EXPECT_EQ(cu_allocator_destruct(&shared, 0), 0U);
    EXPECT_EQ(shared, nullptr);

    cu_allocator* handle = nullptr;
    EXPECT_NULLS_REFUSED("src/cUtil/mallocAllocator", std::tuple{&handle}, cu_allocator_malloc_init);
    {
        const support::Injection exhausted("calloc", ENOMEM);
        EXPECT_FAILURE(cu_allocator_malloc_init(&handle), cu_ERROR_COM_MALLOC_FAILED, "cu_safeMalloc", source,
                       "Unable to malloc '" + std::to_string(sizeof(cu_allocator)) + "' bytes of memory.");
    }
    EXPECT_EQ(support::trace().find("cu_allocator_malloc_init  -  "), 0U);
    ASSERT_EQ(handle, nullptr);
    ASSERT_EQ(cu_allocator_malloc_init(&handle), 0U);
    EXPECT_EQ(handle->context, handle);
    for (cu_allocator* allocator : {cu_allocator_malloc_get(), handle}) {
        void* block = nullptr;
        ASSERT_EQ(cu_allocator_alloc(allocator, &block, 8), 0U);
        static_cast<char*>(block)[7] = 'x';
        ASSERT_EQ(cu_allocator_realloc(allocator, &block, 4000), 0U);
        EXPECT_EQ(static_cast<char*>(block)[7], 'x');
        EXPECT_EQ(cu_allocator_free(allocator, &block), 0U);
        EXPECT_EQ(block, nullptr);
    }
    EXPECT_EQ(cu_allocator_destruct(&handle, 0), 0U);
}

} // namespace
