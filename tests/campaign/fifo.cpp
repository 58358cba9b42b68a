#include "campaign/exchange.h"

#include <cUtil/fifo.h>

#include <cstring>

namespace campaign
{

namespace
{

constexpr uint32_t capacity = 8;

class Fifo : public Queue
{
public:
    Fifo() : memory_(cu_Fifo_getBlockSize(capacity, sizeof(Record)))
    {
        require(cu_Fifo_init(memory_.get(), capacity, sizeof(Record), &nothing_) == 0, "formatting failed");
    }

    uint32_t parties() const override { return 2; }

    bool put(const Record& record, PhaseWord& phase) override
    {
        void* entry = begin(phase, cu_Fifo_timedPut);
        if (entry == nullptr)
            return false;
        memcpy(entry, &record, sizeof(Record));
        phase = Phase::ending;
        const bool keeps = record.sequence % 8 != 5 || ++attempts_ % 2 == 0; // else once more
        check(keeps ? cu_Fifo_putCommit(memory_.get()) : cu_Fifo_putRollback(memory_.get()));
        return keeps;
    }

    bool get(Record& record, PhaseWord& phase) override
    {
        void* entry = begin(phase, cu_Fifo_timedGet);
        if (entry == nullptr)
            return false;
        memcpy(&record, entry, sizeof(Record));
        phase = Phase::ending;
        check(cu_Fifo_getCommit(memory_.get()));
        return true;
    }

    // Where docs/abi.md says that it is.
    sem_t* lock(Role) override
    {
        return static_cast<sem_t*>(static_cast<void*>(memory_.get() + 16 + 2 * sizeof(sem_t)));
    }
    bool isLockShared() const override { return true; }

    std::vector<Record> leftInPlace() override
    {
        uint32_t counters[2];
        memcpy(counters, memory_.get() + 8, sizeof(counters));
        std::vector<Record> records;
        for (uint32_t at = counters[0]; at != counters[1]; ++at) {
            records.emplace_back();
            memcpy(&records.back(), memory_.get() + CU_FIFO_HEADER_SIZE + at % capacity * sizeof(Record),
                   sizeof(Record));
        }
        require(records.size() <= capacity, "the counters lie apart by more than the capacity");
        return records;
    }

    std::string examine(Phase victim) override
    {
        require(canBeTaken(lock(Role::producer)), "nobody hangs, but the lock is held");
        uint32_t size = 0;
        int32_t free = 0;
        int32_t used = 0;
        require(cu_Fifo_getLengthInfos(memory_.get(), &size, &free, &used) == 0, "asking for the lengths failed");
        const std::vector<Record> unread = leftInPlace();
        require(used == 0, "consumers left an entry");
        if (unread.empty() && free == capacity)
            return "clean";
        require(victim != Phase::outside, "a party outside a transaction took a place with it");
        require(free == capacity - 1, "more than one place is gone");
        if (unread.empty())
            return "a free place less";
        // It is read when another one is published.
        require(unread.size() == 1, "more than one entry is unread");
        PhaseWord phase{};
        Record next{};
        next.fill(0, 0);
        require(put(next, phase), "there is no free place");
        require(get(next, phase) && memcmp(&next, unread.data(), sizeof(Record)) == 0,
                "an unread entry was not delivered with the next one");
        return "an entry less, delivered later";
    }

    bool mayStayLocked(Phase victim) const override { return victim != Phase::outside; }
    bool mustStayLocked(Phase victim) const override { return victim == Phase::open; }

private:
    template <typename Call>
    void* begin(PhaseWord& phase, Call call)
    {
        void* entry = nullptr;
        const cu_TimeValue deadline = support::fromNow(2);
        phase = Phase::beginning;
        check(call(memory_.get(), &entry, &deadline));
        if (entry != nullptr)
            phase = Phase::open;
        return entry;
    }

    static void check(cu_ErrorCode code)
    {
        if (code != 0)
            failParty(callFailed);
    }

    Record nothing_{};
    Shared<std::byte> memory_;
    uint32_t attempts_ = 0;
};

} // namespace

std::string killAtFifo(Random& random)
{
    Fifo fifo;
    return killOneOf(fifo, random);
}

} // namespace campaign
