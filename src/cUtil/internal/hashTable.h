// The hash table of sets and maps: chains in a prime number of buckets, at most a third as many entries as buckets.
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
/// Callers see the order of a walk: buckets by index, each chain from its head. New entries come to the head of their
/// chain, and so do, in the order of a walk, all entries when the table grows.
///
/// Nodes and chain heads are one block, which lasts until the table grows. Nodes refer to each other by number: that is
/// half a pointer on 64-bit hosts. There are as many as the table holds before it grows, so nothing else can fail.
template <typename Entry>
class HashTable
{
public:
    using Hash = uint32_t (*)(const void* key);
    using Equality = int32_t (*)(const void* a, const void* b);

    /// Memory comes with makeRoom(). A table without is empty.
    HashTable() = default;
    HashTable(Hash hash, Equality equality) : hash_(hash), equality_(equality) {}

    uint32_t size() const { return entries_; }
    uint32_t hashOf(const void* key) const { return hash_(key); }
    bool hasFunctionsOf(const HashTable& other) const { return hash_ == other.hash_ && equality_ == other.equality_; }
    HashTable emptyOne() const { return HashTable(hash_, equality_); }

    /// Grows if one more entry would need it. False: there is no memory for that, and nothing has changed.
    bool makeRoom() { return entries_ < limit_ || grow(); }

    /// Null if there is none.
    Entry* find(uint32_t hash, const void* key) const
    {
        const uint32_t number = entries_ != 0 ? *search(hash, key) : none;
        return number != none ? &node(number).entry : nullptr;
    }

    /// There must be room, and no equal entry.
    void add(uint32_t hash, const Entry& entry)
    {
        uint32_t number = free_;
        if (number != none)
            free_ = node(number).next;
        else
            number = ++used_;
        node(number).hash = hash;
        node(number).entry = entry;
        link(number);
        ++entries_;
    }

    /// False: there is none to take out.
    bool take(const void* key, Entry* entry)
    {
        if (entries_ == 0)
            return false;
        uint32_t* place = search(hash_(key), key);
        const uint32_t number = *place;
        if (number == none)
            return false;
        Node& taken = node(number);
        *entry = taken.entry;
        *place = taken.next;
        taken.next = free_;
        free_ = number;
        --entries_;
        return true;
    }

    /// Visits hashes and entries in the order of a walk.
    template <typename Visit>
    void forEach(Visit visit) const
    {
        forEachNode([&](const Node& node) { visit(node.hash, node.entry); });
    }

    /// Gives the memory back; what the entries refer to is the caller's.
    void clear()
    {
        free(nodes_);
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
            const Node& node = table_->node(next_);
            next_ = node.next;
            findNext();
            return &node.entry;
        }

    private:
        void findNext()
        {
            while (next_ == none && bucket_ < table_->buckets_)
                next_ = table_->heads_[bucket_++];
            table_->prefetch(next_);
        }

        const HashTable* table_ = nullptr;
        std::size_t bucket_ = 0; // whose chain comes next
        uint32_t next_ = none;
    };

private:
    static constexpr uint32_t none = 0;

    struct Node {
        uint32_t hash;
        uint32_t next;
        Entry entry;
    };
    static_assert(std::is_trivially_copyable_v<Node> && sizeof(Node) == 2 * sizeof(uint32_t) + sizeof(Entry));

    Node& node(uint32_t number) const { return nodes_[number - 1]; }
    void prefetch(uint32_t number) const { __builtin_prefetch(nodes_ + number - (number != none)); }
    uint32_t& head(uint32_t hash) const { return heads_[remainder_.of(hash)]; }

    // What refers to the entry, or the none at the end of its chain.
    uint32_t* search(uint32_t hash, const void* key) const
    {
        uint32_t* place = &head(hash);
        while (*place != none) {
            Node& candidate = node(*place);
            if (candidate.hash == hash && equality_(candidate.entry.key, key) != 0)
                break;
            place = &candidate.next;
        }
        return place;
    }

    void link(uint32_t number)
    {
        uint32_t& first = head(node(number).hash);
        node(number).next = first;
        first = number;
    }

    template <typename Visit>
    void forEachNode(Visit visit) const
    {
        constexpr std::size_t ahead = 16; // about three nodes
        for (std::size_t bucket = 0; bucket < buckets_; ++bucket) {
            prefetch(heads_[std::min(bucket + ahead, buckets_ - 1)]);
            for (uint32_t number = heads_[bucket]; number != none; number = node(number).next)
                visit(node(number));
        }
    }

    bool grow();

    Node* nodes_ = nullptr;
    uint32_t* heads_ = nullptr; // behind the nodes
    Remainder remainder_;
    Hash hash_ = nullptr;
    Equality equality_ = nullptr;
    uint32_t entries_ = 0;
    uint32_t limit_ = 0;   // so many entries are in the table when it grows
    uint32_t free_ = none; // nodes that were in use, chained
    uint32_t used_ = 0;    // nodes up to here are or were in use
    uint32_t growths_ = 0;
    std::size_t buckets_ = 0;
};

template <typename Entry>
[[gnu::noinline]] bool HashTable<Entry>::grow()
{
    // Buckets beyond the largest hash would stay empty.
    constexpr uint64_t hashes = uint64_t{1} << 32;
    const uint64_t count = bucketCount(growths_, entries_);
    const uint64_t buckets = std::min(count, hashes);
    const uint64_t limit = std::min<uint64_t>((count + 2) / 3, UINT32_MAX);
    if (limit <= entries_)
        return false;
    void* block = allocateZeroed(limit * sizeof(Node) + buckets * sizeof(uint32_t));
    if (block == nullptr)
        return false;

    HashTable grown = emptyOne();
    grown.nodes_ = static_cast<Node*>(block);
    grown.heads_ = static_cast<uint32_t*>(static_cast<void*>(grown.nodes_ + limit));
    grown.remainder_ = count < hashes ? Remainder(static_cast<uint32_t>(count)) : Remainder();
    grown.buckets_ = static_cast<std::size_t>(buckets);
    grown.limit_ = static_cast<uint32_t>(limit);
    grown.growths_ = growths_ + 1;
    grown.entries_ = entries_;

    // First in a row, so that then the heads can be asked for ahead of time.
    forEachNode([&](const Node& node) { grown.nodes_[grown.used_++] = node; });
    constexpr uint32_t ahead = 8;
    for (uint32_t number = 1; number <= grown.used_; ++number) {
        __builtin_prefetch(&grown.head(grown.nodes_[std::min(number + ahead, grown.used_) - 1].hash), 1);
        grown.link(number);
    }
    free(nodes_);
    *this = grown;
    return true;
}

} // namespace cu::internal
