// An allocator that watches its user and can refuse.
#pragma once

#include "support/pinned.h"

#include <cUtil/allocator.h>
#include <cUtil/errorInfo.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <sys/mman.h>
#include <vector>

namespace support
{

/// Hands out blocks full of garbage, moves every block that it resizes, remembers what it gave out, refuses to free
/// what it did not, and fails at the n-th request.
class WatchfulAllocator : Pinned
{
public:
    explicit WatchfulAllocator(unsigned failAt = 0) : failAt_(failAt) {}
    ~WatchfulAllocator() { EXPECT_TRUE(blocks_.empty()) << blocks_.size() << " blocks were not given back"; }

    cu_allocator* get() { return &table_; }

    std::size_t live() const { return blocks_.size(); }
    const std::vector<uint32_t>& requests() const { return requests_; } ///< sizes asked for, in order
    bool refused() const { return failAt_ != 0 && requests_.size() >= failAt_; }
    void refuse(unsigned nth) { failAt_ = static_cast<unsigned>(requests_.size()) + nth; } ///< counted from now on

private:
    static cu_ErrorCode alloc(void* context, void** destination, uint32_t size)
    {
        return static_cast<WatchfulAllocator*>(context)->resize(destination, nullptr, size);
    }

    static cu_ErrorCode realloc(void* context, void** destination, uint32_t size)
    {
        return static_cast<WatchfulAllocator*>(context)->resize(destination, *destination, size);
    }

    static cu_ErrorCode free(void* context, void** destination)
    {
        auto* me = static_cast<WatchfulAllocator*>(context);
        EXPECT_EQ(me->blocks_.erase(*destination), 1U) << "a block that was not given out is freed";
        std::free(*destination);
        *destination = nullptr;
        return 0;
    }

    static cu_ErrorCode destruct(void*, uint32_t) { return 0; }

    cu_ErrorCode resize(void** destination, void* old, uint32_t size)
    {
        requests_.push_back(size);
        if (requests_.size() == failAt_) {
            cu_Error_report(cu_getErrorLocation(), cu_ERROR_COM_MALLOC_FAILED, 0, "refusal", 1, "test", nullptr);
            return cu_ERROR_COM_MALLOC_FAILED;
        }
        void* block = std::malloc(size);
        std::memset(block, 0xA5, size);
        if (old != nullptr) {
            std::memcpy(block, old, std::min(blocks_.contains(old) ? blocks_[old] : 0, size));
            free(this, &old);
        }
        blocks_[block] = size;
        *destination = block;
        return 0;
    }

    cu_allocator table_ = {this, alloc, realloc, free, destruct};
    std::map<void*, uint32_t> blocks_;
    std::vector<uint32_t> requests_;
    unsigned failAt_;
};

/// Gives each block pages of its own, and who touches one that was given back ends the process, sanitizer or not. Any
/// thread may use it.
class GraveAllocator
{
public:
    cu_allocator* get() { return &table_; }

private:
    static constexpr std::size_t blockSize = 65536; // whole pages everywhere

    static cu_ErrorCode alloc(void*, void** destination, uint32_t size)
    {
        EXPECT_LE(size, blockSize);
        *destination = mmap(nullptr, blockSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        return *destination != MAP_FAILED ? 0 : cu_ERROR_COM_MALLOC_FAILED;
    }

    static cu_ErrorCode realloc(void* context, void** destination, uint32_t size)
    {
        void* old = *destination;
        alloc(context, destination, size);
        if (old == nullptr)
            return 0;
        std::memcpy(*destination, old, size);
        return free(context, &old);
    }

    static cu_ErrorCode free(void*, void** destination)
    {
        // The address is not given out again.
        EXPECT_NE(mmap(*destination, blockSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0), MAP_FAILED);
        *destination = nullptr;
        return 0;
    }

    static cu_ErrorCode destruct(void*, uint32_t) { return 0; }

    cu_allocator table_ = {nullptr, alloc, realloc, free, destruct};
};

} // namespace support
