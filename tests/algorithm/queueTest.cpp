#include "algorithm/elements.h"

#include <cUtil/algorithm/queue.h>

#include <deque>

namespace
{

using namespace algorithm;

constexpr char file[] = "src/cUtil/algorithm/queue";

class Queue : public Containers
{
protected:
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

    support::Made<cu_Queue_new, cu_Queue_delete> queue_{destroy, cloneOf};
};

TEST_F(Queue, isMadeAsAWholeAndRefusesNullArgumentsAndWrongHandles)
{
    EXPECT_CLEAN_FAILURES(cu_Queue_new, cu_Queue_delete, destroy, cloneOf);
    void* element = &element;
    EXPECT_NULLS_REFUSED(file, (std::tuple{&element, support::Anything{}}), cu_Queue_new, cu_Queue_pushHead,
                         cu_Queue_pushTail, cu_Queue_constPushHead, cu_Queue_constPushTail, cu_Queue_popHead,
                         cu_Queue_popTail, cu_Queue_peekHead, cu_Queue_peekTail, cu_Queue_isEmpty);
    EXPECT_NULLS_REFUSED(file, std::tuple{support::Anything{{&element}}}, cu_Queue_delete);
    element = nullptr;
    EXPECT_REFUSED(cu_Queue_pushHead(queue_, &element), "cu_Queue_pushHead", file);
    EXPECT_REFUSED(cu_Queue_pushTail(queue_, &element), "cu_Queue_pushTail", file);
    const Element original = {0, 7};
    EXPECT_EQ(withoutMemory([&] { return cu_Queue_constPushHead(queue_, &original); }, 0),
              (support::Failure{cu_ERROR_COM_MALLOC_FAILED, "cu_Queue_constPushHead", file, ""}));
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
    std::mt19937 random(3);
    std::deque<int> model;
    int id = 0;
    for (int phase = 0; phase < support::scaled(1200); ++phase) {
        // Ways to use it: mixed, one end after the other, growing and shrinking.
        const auto ends = random() % 3;
        for (auto steps = random() % 200; steps != 0; --steps) {
            const bool atHead = ends == 2 ? random() % 2 == 0 : ends == 0;
            if (phase % 2 != 0) {
                const int expected = model.empty() ? -1 : atHead ? model.front() : model.back();
                ASSERT_EQ(idFrom(atHead ? cu_Queue_popHead : cu_Queue_popTail, true), expected);
                if (!model.empty())
                    model.erase(atHead ? model.begin() : model.end() - 1);
            } else {
                const bool copies = random() % 2 == 0;
                auto& call = calls[2 * copies + atHead];
                void* element = make(++id);
                const auto push = [&] { return call.push(&element); };
                if (const auto outcome = withoutMemory(push); outcome.code != 0) {
                    ++call.refusals;
                    EXPECT_EQ(outcome, (support::Failure{cu_ERROR_COM_MALLOC_FAILED, call.name, file, ""}));
                    EXPECT_EQ(alive.size(), model.size() + 1);
                    expectContents(model);
                    ASSERT_EQ(push(), 0U);
                }
                ASSERT_EQ(element != nullptr, copies);
                if (copies)
                    destroy(element);
                model.insert(atHead ? model.begin() : model.end(), id);
            }
            expectContents(model);
        }
    }
    for (const auto& call : calls)
        EXPECT_GT(call.refusals, 0U) << call.name;
    destroyed.clear();
    queue_.end();
    EXPECT_THAT(destroyed, testing::ElementsAreArray(model));
}

TEST_F(Queue, needsNoMemoryWhileItsLengthStays)
{
    for (int id = 0; id < 3000; ++id) {
        void* element = make(id);
        const auto push = [&] { return cu_Queue_pushTail(queue_, &element); };
        ASSERT_EQ(id < 1000 ? push() : withoutMemory(push).code, 0U);
        ASSERT_EQ(id < 500 ? id : idFrom(cu_Queue_popHead, true) + 500, id);
    }
}

} // namespace
