// The hash table of sets and maps: a prime number of buckets, and at most a third as many entries.
#pragma once

#include "internal/remainder.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <type_traits>
#include <utility>

namespace cu::internal
{

/// The number of buckets of a table that has grown so often, and now grows because of so many entries.
uint64_t bucketCount(uint32_t growths, uint32_t entries);

/// Memory of the process heap; null when it cannot be had.
void* allocateZeroed(uint64_t size);

/// An entry is a trivial record whose `key`, never null, is what the callers' functions look at. Equal keys have equal
/// hashes.
///
/// Callers see the order of a walk: buckets by index, and in a bucket the newest entry first; when the table grows, the
/// entries move in the order of a walk, each as the newest of its new bucket. The chains have it.
///
/// What memory is looked at in turn makes a large table slow, so:
/// - An entry and its node have a place near those of their bucket's neighbours if they can. A search asks for what is
///   there before it knows from the chain where the entry really is. A walk goes through memory mostly in a row.
/// - Two buckets share a chain, in which the even one's entries come first: half as many heads.
/// - Nodes refer to each other by number, which is half a pointer on 64-bit hosts.
/// - Nodes, entries and chain heads are one block, which has places for all that the table holds until it grows. So
///   nothing but growing can fail.
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
        if (size_ == 0)
            return nullptr;
        const uint32_t bucket = bucket_.of(hash);
        prefetch(bucket);
        for (uint32_t number = head(bucket); number != none; number = node(number).next)
            if (node(number).hash == hash && equality_(entry(number).key, key) != 0)
                return &entry(number);
        return nullptr;
    }

    /// There must be room, and no equal entry.
    void add(uint32_t hash, const Entry& added)
    {
        const uint32_t bucket = bucket_.of(hash);
        const uint32_t number = freePlace(bucket);
        entry(number) = added;
        node(number).hash = hash;

        uint32_t* link = &head(bucket);
        if (bucket % sharing != 0)
            while (*link != none && bucket_.of(node(*link).hash) < bucket)
                link = &node(*link).next;
        node(number).next = *link;
        *link = number;
        ++size_;
    }

    /// Takes out the entry with an equal key; one of nulls if there is none.
    Entry take(const void* key)
    {
        const uint32_t hash = hashOf(key);
        Entry* found = find(hash, key);
        if (found == nullptr)
            return {};
        const auto number = static_cast<uint32_t>(found - entries_) + 1;
        uint32_t* link = &head(bucket_.of(hash));
        while (*link != number)
            link = &node(*link).next;
        *link = node(number).next;
        --size_;
        return std::exchange(*found, {});
    }

    /// Visits hashes and entries in the order of a walk.
    template <typename Visit>
    void forEach(Visit visit) const
    {
        for (std::size_t chain = 0; chain < chains_; ++chain)
            for (uint32_t number = heads_[chain]; number != none; number = node(number).next)
                visit(node(number).hash, entry(number));
    }

    /// Gives the memory back; what the entries refer to is the caller's.
    void clear()
    {
        free(block_);
        *this = emptyOne();
    }

    /// Goes from entry to entry, until the table changes.
    class Walk
    {
    public:
        Walk() = default;
        explicit Walk(const HashTable& table) : table_(&table) { findNext(); }

        bool hasNext() const { return next_ != none; }

        /// One of nulls at the end.
        Entry next()
        {
            if (next_ == none)
                return {};
            const Entry& entry = table_->entry(next_);
            next_ = table_->node(next_).next;
            findNext();
            return entry;
        }

    private:
        void findNext()
        {
            while (next_ == none && chain_ < table_->chains_)
                next_ = table_->heads_[chain_++];
        }

        const HashTable* table_ = nullptr;
        std::size_t chain_ = 0; // which comes next
        uint32_t next_ = none;
    };

private:
    struct Node {
        uint32_t hash;
        uint32_t next;
    };

    static constexpr uint32_t none = 0; // numbers begin with 1
    static constexpr uint32_t sharing = 2;
    static constexpr std::size_t cacheLine = 64;
    // So many neighbouring buckets have so many places together. There are a fifth more places than entries at most.
    static constexpr uint32_t homeBuckets = 20;
    static constexpr uint32_t homePlaces = cacheLine / sizeof(Node);

    Node& node(uint32_t number) const { return nodes_[number - 1]; }
    Entry& entry(uint32_t number) const { return entries_[number - 1]; }
    uint32_t& head(uint32_t bucket) const { return heads_[bucket / sharing]; }

    static uint32_t home(uint32_t bucket) { return bucket / homeBuckets * homePlaces; }

    // In line in any case: GCC drops the calls of a function that does nothing else.
    [[gnu::always_inline]] void prefetch(uint32_t bucket) const
    {
        const uint32_t place = home(bucket);
        __builtin_prefetch(nodes_ + place);
        for (std::size_t ahead = 0; ahead < homePlaces; ahead += cacheLine / sizeof(Entry))
            __builtin_prefetch(entries_ + place + ahead);
    }

    // At home, or where the search for places elsewhere has got.
    uint32_t freePlace(uint32_t bucket)
    {
        const uint32_t first = home(bucket);
        for (uint32_t attempt = bucket; attempt != bucket + homePlaces; ++attempt)
            if (const uint32_t place = first + attempt % homePlaces; entries_[place].key == nullptr)
                return place + 1;
        while (entries_[elsewhere_].key != nullptr)
            elsewhere_ = elsewhere_ + 1 < places_ ? elsewhere_ + 1 : 0;
        return elsewhere_ + 1;
    }

    bool grow();

    Node* nodes_ = nullptr;     // these three in one block
    Entry* entries_ = nullptr;  // a key of null: the place is free
    uint32_t* heads_ = nullptr; // the numbers of the chains' first entries
    Remainder bucket_;          // of a hash
    Hash hash_ = nullptr;
    Equality equality_ = nullptr;
    uint32_t size_ = 0;
    uint32_t limit_ = 0; // the size at which the table grows
    uint32_t growths_ = 0;
    uint32_t places_ = 0;
    uint32_t elsewhere_ = 0; // a place
    std::size_t chains_ = 0;
    void* block_ = nullptr;
};

template <typename Entry>
[[gnu::noinline]] bool HashTable<Entry>::grow()
{
    // Buckets beyond the largest hash would stay empty.
    constexpr uint64_t hashes = uint64_t{1} << 32;
    const uint64_t buckets = bucketCount(growths_, size_);
    const uint64_t chains = std::min(buckets, hashes) / sharing + 1;
    const uint64_t places = (buckets / homeBuckets + 1) * homePlaces;
    if (places > UINT32_MAX)
        return false;
    void* block = allocateZeroed(cacheLine + places * (sizeof(Node) + sizeof(Entry)) + chains * sizeof(uint32_t));
    if (block == nullptr)
        return false;

    HashTable grown = emptyOne();
    grown.block_ = block;
    const uintptr_t gap = cacheLine - reinterpret_cast<uintptr_t>(block) % cacheLine;
    grown.nodes_ = static_cast<Node*>(static_cast<void*>(static_cast<std::byte*>(block) + gap));
    grown.entries_ = static_cast<Entry*>(static_cast<void*>(grown.nodes_ + places));
    grown.heads_ = static_cast<uint32_t*>(static_cast<void*>(grown.entries_ + places));
    grown.bucket_ = buckets < hashes ? Remainder(static_cast<uint32_t>(buckets)) : Remainder();
    grown.limit_ = static_cast<uint32_t>((buckets + 2) / 3);
    grown.places_ = static_cast<uint32_t>(places);
    grown.chains_ = static_cast<std::size_t>(chains);
    grown.growths_ = growths_ + 1;

    // Each entry waits while the memory around its new place comes.
    struct {
        uint32_t hash;
        Entry entry;
    } waiting[16];
    uint32_t come = 0;
    uint32_t gone = 0;
    const auto addOne = [&](uint32_t which) {
        const auto& next = waiting[which % std::size(waiting)];
        grown.add(next.hash, next.entry);
    };
    forEach([&](uint32_t hash, const Entry& moved) {
        if (come - gone == std::size(waiting))
            addOne(gone++);
        waiting[come++ % std::size(waiting)] = {hash, moved};
        const uint32_t bucket = grown.bucket_.of(hash);
        __builtin_prefetch(&grown.head(bucket), 1);
        grown.prefetch(bucket);
    });
    while (gone != come)
        addOne(gone++);
    free(block_);
    *this = grown;
    return true;
}

} // namespace cu::internal
