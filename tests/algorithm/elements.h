// Elements for the containers: each carries its hash, and is watched from its making to its end.
#pragma once

#include "support/inject.h"
#include "support/made.h"
#include "support/refusal.h"
#include "support/scale.h"
#include "support/sweep.h"

#include <gmock/gmock.h>

#include <climits>
#include <random>
#include <unordered_set>
#include <vector>

namespace algorithm
{

struct Element {
    uint32_t hash;
    int id;
};

inline std::unordered_set<const void*> alive;
inline std::vector<int> destroyed;     // ids, in order
inline unsigned clonesLeft = UINT_MAX; // until there is no memory for one

inline Element* make(int id, uint32_t hash = 0)
{
    auto* element = new Element{hash, id};
    alive.insert(element);
    return element;
}

inline uint32_t hashOf(const void* element)
{
    return static_cast<const Element*>(element)->hash;
}

// Non-zero in a high bit alone: not to be taken for a truth value of one byte.
inline int32_t equality(const void* a, const void* b)
{
    return static_cast<const Element*>(a)->id == static_cast<const Element*>(b)->id ? 0x10000 : 0;
}

inline void destroy(void* element)
{
    ASSERT_EQ(alive.erase(element), 1U) << "what is not there is destroyed";
    destroyed.push_back(static_cast<Element*>(element)->id);
    delete static_cast<Element*>(element);
}

inline void* cloneOf(const void* element)
{
    const auto* original = static_cast<const Element*>(element);
    return clonesLeft-- != 0 ? make(original->id, original->hash) : nullptr;
}

inline int idOf(const void* element)
{
    return element != nullptr ? static_cast<const Element*>(element)->id : -1;
}

/// What a call tells of an element.
template <typename Call, typename Container>
bool tell(Call call, Container* container, const Element& wanted)
{
    bool told = false;
    EXPECT_EQ(call(container, &wanted, &told), 0U);
    return told;
}

/// What a call tells of a container or an iterator.
template <typename Object, typename Value>
Value told(cu_ErrorCode (*call)(const Object*, Value*), const std::type_identity_t<Object>* object)
{
    Value value{};
    EXPECT_EQ(call(object, &value), 0U);
    return value;
}

/// How a call ends that can have so many copies, but no other memory; where it goes without, with code 0.
template <typename Call>
support::Failure withoutMemory(Call call, unsigned clones = UINT_MAX)
{
    clonesLeft = clones;
    const auto outcome = support::failureOf([&] {
        const auto exhausted = support::Injection::ofEvery("calloc", ENOMEM);
        return call();
    });
    clonesLeft = UINT_MAX;
    return outcome;
}

/// At its end every element must have been destroyed.
class Containers : public testing::Test
{
protected:
    ~Containers() override { EXPECT_EQ(alive.size(), 0U); }
};

} // namespace algorithm
