#include "campaign/exchange.h"

#include <cUtil/ringBuffer.h>

#include <cstring>

namespace campaign
{

namespace
{

constexpr uint32_t size = 262144; // records lie across its end as well

class Ring : public Queue
{
public:
    explicit Ring(bool hasLocks) : memory_(cu_RingBuffer_getRegionSize(size)), hasLocks_(hasLocks)
    {
        require(cu_RingBuffer_create(&ring_, memory_.get(), size, hasLocks, hasLocks, nullptr) == 0,
                "formatting failed");
    }
    ~Ring() override { cu_RingBuffer_delete(&ring_); }

    uint32_t parties() const override { return hasLocks_ ? 2 : 1; }

    void attach() override
    {
        ring_ = nullptr;
        check(cu_RingBuffer_open(&ring_, memory_.get(), nullptr));
    }

    bool put(const Record& record, PhaseWord& phase) override
    {
        bool isPut = false;
        phase = Phase::beginning;
        check(cu_RingBuffer_put(ring_, &record, sizeof(record), &isPut));
        return isPut;
    }

    bool get(Record& record, PhaseWord& phase) override
    {
        bool isGot = false;
        phase = Phase::beginning;
        check(cu_RingBuffer_get(ring_, &record, sizeof(record), &isGot));
        return isGot;
    }

    // Where ringBuffer.h says that they are.
    sem_t* lock(Role role) override
    {
        std::byte* semaphore = memory_.get() + (role == Role::producer ? 96 : 32);
        return hasLocks_ ? static_cast<sem_t*>(static_cast<void*>(semaphore)) : nullptr;
    }
    bool isLockShared() const override { return false; }

    std::vector<Record> leftInPlace() override
    {
        uint32_t used = 0;
        require(cu_RingBuffer_getAvailable(ring_, &used) == 0 && used % sizeof(Record) == 0,
                "there is a part of a record");
        uint32_t read = 0;
        memcpy(&read, memory_.get() + 12, sizeof(read));
        std::vector<Record> records(used / sizeof(Record));
        for (uint32_t i = 0; i < used; ++i)
            memcpy(static_cast<std::byte*>(static_cast<void*>(records.data())) + i,
                   memory_.get() + CU_RING_BUFFER_HEADER_SIZE + (read + i) % size, 1);
        return records;
    }

    std::string examine(Phase) override
    {
        require(leftInPlace().empty(), "consumers left a record");
        for (const Role role : {Role::producer, Role::consumer})
            require(!hasLocks_ || canBeTaken(lock(role)), "nobody hangs, but a lock is held");
        return hasLocks_ ? "clean, with locks" : "clean, without locks";
    }

    bool mayStayLocked(Phase victim) const override { return victim != Phase::outside; }
    bool mustStayLocked(Phase) const override { return false; }

private:
    static void check(cu_ErrorCode code)
    {
        if (code != 0)
            failParty(callFailed);
    }

    Shared<std::byte> memory_;
    bool hasLocks_;
    cu_RingBuffer* ring_ = nullptr;
};

} // namespace

std::string killAtRing(Random& random)
{
    Ring ring(random.heads());
    return killOneOf(ring, random);
}

} // namespace campaign
