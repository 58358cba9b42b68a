#include "internal/byteQueue.h"

#include "internal/report.h"

#include <algorithm>
#include <new>

namespace cu::internal
{

namespace
{

constexpr uint64_t leastBlock = 256; // with its head
constexpr uint64_t largestBlock = 65536;

} // namespace

bool ByteQueue::append(ByteStock& stock, const void* bytes, uint32_t size)
{
    const auto* from = static_cast<const uint8_t*>(bytes);
    const uint32_t here = last_ != nullptr ? std::min(last_->capacity - last_->end, size) : 0;
    const uint32_t beyond = size - here;
    Block* added = nullptr;
    if (beyond != 0) {
        void* memory = nullptr;
        const uint64_t wanted = std::clamp<uint64_t>(size_, leastBlock - sizeof(Block), largestBlock - sizeof(Block));
        const auto capacity = static_cast<uint32_t>(std::max<uint64_t>(wanted, beyond));
        while (cu_allocator_alloc(stock.allocator, &memory, static_cast<uint32_t>(sizeof(Block)) + capacity) != 0)
            if (!stock.makeRoom(stock.owner, *this))
                return false;
        added = new (memory) Block{nullptr, 0, beyond, capacity};
        memcpy(added->bytes(), from + here, beyond);
    }
    if (here != 0) {
        memcpy(last_->bytes() + last_->end, from, here);
        last_->end += here;
    }
    if (added != nullptr) {
        (last_ != nullptr ? last_->next : first_) = added;
        last_ = added;
    }
    size_ += size;
    stock.waiting += size;
    return true;
}

void ByteQueue::take(ByteStock& stock, ByteQueue& other, ByteStock& others)
{
    if (other.isEmpty())
        return;
    (last_ != nullptr ? last_->next : first_) = other.first_;
    last_ = other.last_;
    size_ += other.size_;
    stock.waiting += other.size_;
    others.waiting -= other.size_;
    other = ByteQueue();
}

uint32_t ByteQueue::pieces(iovec* result, uint32_t room, bool* all) const
{
    uint32_t count = 0;
    Block* block = first_;
    for (; block != nullptr && count < room; block = block->next)
        result[count++] = {block->bytes() + block->begin, block->end - block->begin};
    *all = block == nullptr;
    return count;
}

void ByteQueue::drop(ByteStock& stock, uint64_t size)
{
    size_ -= size;
    stock.waiting -= size;
    while (size != 0) {
        const auto here = static_cast<uint32_t>(std::min<uint64_t>(first_->end - first_->begin, size));
        first_->begin += here;
        size -= here;
        if (first_->begin == first_->end) {
            void* memory = first_;
            first_ = first_->next;
            CU_MUST(cu_allocator_free(stock.allocator, &memory));
        }
    }
    if (first_ == nullptr)
        last_ = nullptr;
}

} // namespace cu::internal
