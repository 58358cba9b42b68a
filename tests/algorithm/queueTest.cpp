#include "algorithm/elements.h"

#include <cUtil/algorithm/queue.h>

#include <climits>
#include <deque>
#include <random>

namespace
{

using namespace algorithm;

constexpr char file[] = "src/cUtil/algorithm/queue";

class Queue : public Containers
{
protected:
    Queue() { EXPECT_EQ(cu_Queue_new(&queue_, destroy, cloneOf, allocator_.get()), 0U); }
    ~Queue() override { EXPECT_EQ(cu_Queue_delete(&queue_), 0U); }

    // The id of an element that the call gives, or -1.
    template <typename Call>
    int idFrom(Call call, bool becomesMine)
    {
        void* element = &queue_;
        EXPECT_EQ(call(queue_, &element), 0U);
        const int id = idOf(element);
        if (becomesMine && element != nullptr)
            destroy(element);
        return id;
    }

    void expectContents(const std::deque<int>& expected)
    {
        const bool empty = told(cu_Queue_isEmpty, queue_);
        ASSERT_EQ(empty, expected.empty());
        ASSERT_EQ(idFrom(cu_Queue_peekHead, false), empty ? -1 : expected.front());
        ASSERT_EQ(idFrom(cu_Queue_peekTail, false), empty ? -1 : expected.back());
    }

    cu_Queue* queue_ = nullptr;

private:
    support::WatchfulAllocator allocator_;
};

TEST_F(Queue, refusesNullArgumentsAndWrongHandles)
{
    cu_Queue* none = nullptr;
    void* element = &none;
    bool empty = false;
    EXPECT_NULLS_REFUSED(file, (std::tuple{&none, queue_, &element, &empty, &destroy, &cloneOf}), cu_Queue_new,
                         cu_Queue_pushHead, cu_Queue_pushTail, cu_Queue_constPushHead, cu_Queue_constPushTail,
                         cu_Queue_popHead, cu_Queue_popTail, cu_Queue_peekHead, cu_Queue_peekTail, cu_Queue_isEmpty);
    EXPECT_NULLS_REFUSED(file, std::tuple{&queue_}, cu_Queue_delete);
    element = nullptr;
    EXPECT_REFUSED(cu_Queue_pushHead(queue_, &element), "cu_Queue_pushHead", file);
    EXPECT_REFUSED(cu_Queue_pushTail(queue_, &element), "cu_Queue_pushTail", file);
    expectContents({});
}

TEST_F(Queue, keepsTheOrderWhateverItsUseAndStaysAsItIsWhenMemoryIsOut)
{
    struct {
        const char* name;
        std::function<cu_ErrorCode(void** element)> push;
        unsigned refusals = 0;
    } calls[] = {
        {"cu_Queue_pushTail", [&](void** element) { return cu_Queue_pushTail(queue_, element); }},
        {"cu_Queue_pushHead", [&](void** element) { return cu_Queue_pushHead(queue_, element); }},
        {"cu_Queue_constPushTail", [&](void** element) { return cu_Queue_constPushTail(queue_, *element); }},
        {"cu_Queue_constPushHead", [&](void** element) { return cu_Queue_constPushHead(queue_, *element); }},
    };
    clonesLeft = UINT_MAX;
    std::mt19937 random(3);
    std::deque<int> model;
    int id = 0;
    for (int phase = 0; phase < support::scaled(600); ++phase) {
        // Ways to use it: mixed, one end after the other, growing and shrinking.
        const auto pushes = random() % 200;
        const auto pops = random() % 200;
        const auto oneEnd = random() % 3;
        for (unsigned step = 0; step < pushes; ++step) {
            const bool atHead = oneEnd == 2 ? random() % 2 == 0 : oneEnd == 0;
            const bool copies = random() % 2 == 0;
            auto& call = calls[2 * copies + atHead];
            void* element = make(++id);
            const support::Failure outcome = support::failureOf([&] {
                const auto exhausted = support::Injection::ofEvery("calloc", ENOMEM);
                return call.push(&element);
            });
            if (outcome.code != 0) {
                ++call.refusals;
                EXPECT_EQ(outcome, (support::Failure{cu_ERROR_COM_MALLOC_FAILED, call.name, file, ""}));
                EXPECT_EQ(alive.size(), model.size() + 1);
                expectContents(model);
                ASSERT_EQ(call.push(&element), 0U);
            }
            ASSERT_EQ(element != nullptr, copies);
            if (copies)
                destroy(element);
            model.insert(atHead ? model.begin() : model.end(), id);
            expectContents(model);
        }
        const auto otherEnd = random() % 3;
        for (unsigned step = 0; step < pops; ++step) {
            const bool atHead = otherEnd == 2 ? random() % 2 == 0 : otherEnd == 0;
            const int expected = model.empty() ? -1 : atHead ? model.front() : model.back();
            ASSERT_EQ(idFrom(atHead ? cu_Queue_popHead : cu_Queue_popTail, true), expected);
            if (!model.empty())
                model.erase(atHead ? model.begin() : model.end() - 1);
            expectContents(model);
        }
    }
    for (const auto& call : calls)
        EXPECT_GT(call.refusals, 0U) << call.name;
    destroyed.clear();
    EXPECT_EQ(cu_Queue_delete(&queue_), 0U);
    EXPECT_EQ(queue_, nullptr);
    EXPECT_THAT(destroyed, testing::ElementsAreArray(model));
    ASSERT_EQ(cu_Queue_new(&queue_, destroy, cloneOf, nullptr), 0U);
}

TEST_F(Queue, isMadeAsAWholeAndStaysAsItIsWithoutACopy)
{
    EXPECT_CLEAN_FAILURES(cu_Queue_new, cu_Queue_delete, destroy, cloneOf);
    const Element original = {0, 7};
    clonesLeft = 0;
    EXPECT_FAILURE(cu_Queue_constPushHead(queue_, &original), cu_ERROR_COM_MALLOC_FAILED, "cu_Queue_constPushHead",
                   file, "");
    expectContents({});
}

TEST_F(Queue, needsNoMemoryWhileItsLengthStays)
{
    for (int id = 0; id < 1000; ++id) {
        void* element = make(id);
        ASSERT_EQ(cu_Queue_pushTail(queue_, &element), 0U);
        if (id >= 500) {
            ASSERT_EQ(idFrom(cu_Queue_popHead, true), id - 500);
        }
    }
    const auto exhausted = support::Injection::ofEvery("calloc", ENOMEM);
    for (int id = 1000; id < 3000; ++id) {
        ASSERT_EQ(idFrom(cu_Queue_popHead, true), id - 500);
        void* element = make(id);
        ASSERT_EQ(cu_Queue_pushTail(queue_, &element), 0U);
    }
}

} // namespace
