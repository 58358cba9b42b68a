// The hash table of sets and maps: a prime number of buckets, and at most a third as many entries.
#pragma once

#include "internal/remainder.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <type_traits>

namespace cu::internal
{

/// The number of buckets of a table that has grown so often, and now grows because of so many entries.
uint64_t bucketCount(uint32_t growths, uint32_t entries);

/// Memory of the process heap; null when it cannot be had.
void* allocateZeroed(uint64_t size);

/// An entry is a trivial record whose `key` the callers' functions look at. Entries that are equal have equal hashes.
///
/// Callers see the order of a walk: buckets by index, and in a bucket the newest entry first; when the table grows, the
/// entries move in the order of a walk, each as the newest of its new bucket. Two buckets share a chain, in which the
/// even one's entries come first: as many chains as buckets would not fit into the caches as well.
///
/// Entries, nodes and chain heads are one block, which lasts until the table grows. Nodes refer to each other by
/// number, which is half a pointer on 64-bit hosts. There are as many as the table holds before it grows: nothing but
/// growing can fail.
template <typename Entry>
class HashTable
{
    static_assert(std::is_trivially_copyable_v<Entry>);

public:
    using Hash = uint32_t (*)(const void* key);
    using Equality = int32_t (*)(const void* a, const void* b);

    /// Memory comes with makeRoom(). A table without is empty.
    HashTable() = default;
    HashTable(Hash hash, Equality equality) : hash_(hash), equality_(equality) {}

    uint32_t size() const { return size_; }
    uint32_t hashOf(const void* key) const { return hash_(key); }
    bool hasFunctionsOf(const HashTable& other) const { return hash_ == other.hash_ && equality_ == other.equality_; }
    HashTable emptyOne() const { return HashTable(hash_, equality_); }

    /// Grows if one more entry would need it. False: there is no memory for that, and nothing has changed.
    bool makeRoom() { return size_ < limit_ || grow(); }

    /// Null if there is none.
    Entry* find(uint32_t hash, const void* key) const
    {
        const uint32_t number = size_ != 0 ? *search(hash, key) : none;
        return number != none ? &entry(number) : nullptr;
    }

    /// There must be room, and no equal entry.
    void add(uint32_t hash, const Entry& added)
    {
        uint32_t number = free_;
        if (number != none)
            free_ = node(number).next;
        else
            number = ++used_;
        entry(number) = added;
        node(number).hash = hash;
        link(number);
        ++size_;
    }

    /// False: there is none to take out.
    bool take(const void* key, Entry* taken)
    {
        if (size_ == 0)
            return false;
        uint32_t* place = search(hash_(key), key);
        const uint32_t number = *place;
        if (number == none)
            return false;
        *taken = entry(number);
        *place = node(number).next;
        node(number).next = free_;
        free_ = number;
        --size_;
        return true;
    }

    /// Visits hashes and entries in the order of a walk.
    template <typename Visit>
    void forEach(Visit visit) const
    {
        constexpr std::size_t ahead = 8; // chains
        for (std::size_t chain = 0; chain < chains_; ++chain) {
            prefetch(heads_[std::min(chain + ahead, chains_ - 1)]);
            for (uint32_t number = heads_[chain]; number != none; number = node(number).next)
                visit(node(number).hash, entry(number));
        }
    }

    /// Gives the memory back; what the entries refer to is the caller's.
    void clear()
    {
        free(entries_);
        *this = emptyOne();
    }

    /// Goes from entry to entry, until the table changes.
    class Walk
    {
    public:
        Walk() = default;
        explicit Walk(const HashTable& table) : table_(&table) { findNext(); }

        bool hasNext() const { return next_ != none; }

        /// Null at the end.
        const Entry* next()
        {
            if (next_ == none)
                return nullptr;
            const Entry* entry = &table_->entry(next_);
            next_ = table_->node(next_).next;
            findNext();
            return entry;
        }

    private:
        void findNext()
        {
            while (next_ == none && chain_ < table_->chains_)
                next_ = table_->heads_[chain_++];
            table_->prefetch(next_);
        }

        const HashTable* table_ = nullptr;
        std::size_t chain_ = 0; // which comes next
        uint32_t next_ = none;
    };

private:
    static constexpr uint32_t none = 0;
    static constexpr uint32_t sharing = 2; // buckets that share a chain

    struct Node {
        uint32_t hash;
        uint32_t next;
    };

    Entry& entry(uint32_t number) const { return entries_[number - 1]; }
    Node& node(uint32_t number) const { return nodes_[number - 1]; }
    uint32_t& head(uint32_t bucket) const { return heads_[bucket / sharing]; }

    void prefetch(uint32_t number) const
    {
        __builtin_prefetch(nodes_ + number - (number != none));
        __builtin_prefetch(entries_ + number - (number != none));
    }

    // What refers to the entry, or the none at the end of its chain.
    uint32_t* search(uint32_t hash, const void* key) const
    {
        uint32_t* place = &head(bucket_.of(hash));
        while (*place != none) {
            Node& candidate = node(*place);
            if (candidate.hash == hash && equality_(entry(*place).key, key) != 0)
                break;
            place = &candidate.next;
        }
        return place;
    }

    // As the newest of its bucket.
    void link(uint32_t number)
    {
        const uint32_t bucket = bucket_.of(node(number).hash);
        uint32_t* place = &head(bucket);
        if (bucket % sharing != 0)
            while (*place != none && bucket_.of(node(*place).hash) < bucket)
                place = &node(*place).next;
        node(number).next = *place;
        *place = number;
    }

    bool grow();

    Entry* entries_ = nullptr;
    Node* nodes_ = nullptr;     // behind the entries
    uint32_t* heads_ = nullptr; // behind the nodes
    Remainder bucket_;          // of a hash
    Hash hash_ = nullptr;
    Equality equality_ = nullptr;
    uint32_t size_ = 0;
    uint32_t limit_ = 0;   // the size at which the table grows
    uint32_t free_ = none; // nodes that were in use, chained
    uint32_t used_ = 0;    // nodes up to here are or were in use
    uint32_t growths_ = 0;
    std::size_t chains_ = 0;
};

template <typename Entry>
[[gnu::noinline]] bool HashTable<Entry>::grow()
{
    // Buckets beyond the largest hash would stay empty.
    constexpr uint64_t hashes = uint64_t{1} << 32;
    const uint64_t buckets = bucketCount(growths_, size_);
    const uint64_t chains = (std::min(buckets, hashes) + sharing - 1) / sharing;
    const uint64_t limit = std::min<uint64_t>((buckets + 2) / 3, UINT32_MAX);
    if (limit <= size_)
        return false;
    void* block = allocateZeroed(limit * (sizeof(Entry) + sizeof(Node)) + chains * sizeof(uint32_t));
    if (block == nullptr)
        return false;

    HashTable grown = emptyOne();
    grown.entries_ = static_cast<Entry*>(block);
    grown.nodes_ = static_cast<Node*>(static_cast<void*>(grown.entries_ + limit));
    grown.heads_ = static_cast<uint32_t*>(static_cast<void*>(grown.nodes_ + limit));
    grown.bucket_ = buckets < hashes ? Remainder(static_cast<uint32_t>(buckets)) : Remainder();
    grown.chains_ = static_cast<std::size_t>(chains);
    grown.limit_ = static_cast<uint32_t>(limit);
    grown.growths_ = growths_ + 1;
    grown.size_ = size_;

    // First in a row, so that then the heads can be asked for ahead of time.
    forEach([&](uint32_t hash, const Entry& moved) {
        grown.entries_[grown.used_] = moved;
        grown.nodes_[grown.used_++].hash = hash;
    });
    constexpr uint32_t ahead = 8;
    for (uint32_t number = 1; number <= size_; ++number) {
        __builtin_prefetch(&grown.head(grown.bucket_.of(grown.node(std::min(number + ahead, size_)).hash)), 1);
        grown.link(number);
    }
    free(entries_);
    *this = grown;
    return true;
}

} // namespace cu::internal
