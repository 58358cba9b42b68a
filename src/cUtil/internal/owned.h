// The memory of an object while its constructor runs, and at its end.
#pragma once

#include "internal/report.h"

#include <cUtil/allocator.h>
#include <cUtil/mallocAllocator.h>

#include <new>
#include <string_view>
#include <type_traits>

namespace cu::internal
{

/// The allocator that an argument stands for: null means the shared one.
inline cu_allocator* allocatorOrShared(cu_allocator* allocator)
{
    return allocator != nullptr ? allocator : cu_allocator_malloc_get();
}

/// Gives a block back; if that fails, the process ends.
void giveBack(cu_allocator* allocator, void** block);

/// A block that goes back to its allocator unless it is released to its owner. The record of the failure that ends the
/// constructor stays as it is.
template <typename T>
class Owned
{
    static_assert(std::is_trivially_destructible_v<T>);

public:
    Owned() = default;
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;

    ~Owned()
    {
        if (block_ != nullptr)
            giveBack(allocator_, &block_);
    }

    /// Gets one object, initialised whatever the allocator leaves in its blocks, and notes the allocator in it.
    cu_ErrorCode allocate(cu_allocator* allocator)
    {
        const cu_ErrorCode code = allocateBytes(allocator, sizeof(T));
        if (code == 0)
            (new (block_) T{})->allocator = allocator_;
        return code;
    }

    /// Gets a block of another size, uninitialised.
    cu_ErrorCode allocateBytes(cu_allocator* allocator, uint32_t size)
    {
        allocator_ = allocatorOrShared(allocator);
        return cu_allocator_alloc(allocator_, &block_, size);
    }

    T* get() const { return static_cast<T*>(block_); }
    T* operator->() const { return get(); }

    T* release()
    {
        T* object = get();
        block_ = nullptr;
        return object;
    }

private:
    void* block_ = nullptr;
    cu_allocator* allocator_ = nullptr;
};

/// Copies a text into a block, for the exported function whose place it is given.
inline cu_ErrorCode copyText(Owned<char>& copy, std::string_view text, cu_allocator* allocator, Place here)
{
    if (text.size() >= UINT32_MAX)
        return report(cu_ERROR_COM_MALLOC_FAILED, 0, here, nullptr);
    const cu_ErrorCode code = copy.allocateBytes(allocator, static_cast<uint32_t>(text.size() + 1));
    if (code == 0) {
        memcpy(copy.get(), text.data(), text.size());
        copy.get()[text.size()] = '\0';
    }
    return code;
}

/// Gives an array of an object, or none yet, another number of elements; after a failure it is what it was.
template <typename T>
cu_ErrorCode resizeArray(cu_allocator* allocator, T** array, uint32_t count)
{
    void* block = *array;
    const cu_ErrorCode code = cu_allocator_realloc(allocator, &block, static_cast<uint32_t>(count * sizeof(T)));
    if (code == 0)
        *array = static_cast<T*>(block);
    return code;
}

/// Gives an array of an object back, if there is one, and resets the pointer.
template <typename T>
cu_ErrorCode freeArray(cu_allocator* allocator, T** array)
{
    void* block = *array;
    const cu_ErrorCode code = block != nullptr ? cu_allocator_free(allocator, &block) : 0;
    if (code == 0)
        *array = nullptr;
    return code;
}

/// Gives texts back to their allocator, from the last one on, so that after a failure what is left can be ended again.
inline cu_ErrorCode freeTexts(char** texts, uint32_t* count, cu_allocator* allocator)
{
    while (*count != 0) {
        void* text = texts[*count - 1];
        if (const cu_ErrorCode code = cu_allocator_free(allocator, &text); code != 0)
            return code;
        texts[--*count] = nullptr;
    }
    return 0;
}

/// Gives an object back to its allocator and resets the handle; the object is gone even while the handle is reset.
template <typename T>
cu_ErrorCode freeObject(T** handle)
{
    return freeArray((*handle)->allocator, handle);
}

} // namespace cu::internal
