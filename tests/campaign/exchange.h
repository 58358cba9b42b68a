// Producers and consumers at one queue, one of which is killed: what the others then get.
#pragma once

#include "campaign/campaign.h"

#include <array>

namespace campaign
{

/// What goes through the queue: who put it, how many it had put before, and the same byte all over the rest. Copying it
/// takes most of the time, so that many a party dies in the middle of it.
struct Record {
    uint32_t producer;
    uint32_t sequence;
    std::array<uint8_t, 59992> filler;

    void fill(uint32_t producer, uint32_t sequence);
    bool isWhole() const;
};
static_assert(sizeof(Record) == 60000);

/// Where in its loop a party is; what it leaves behind depends on it.
enum class Phase : uint32_t { outside, beginning, open, ending };
using PhaseWord = std::atomic<Phase>;

enum class Role { producer, consumer };

/// A queue as a campaign sees it. What fails ends the process with a status: it is a party's.
class Queue
{
public:
    virtual ~Queue() = default;

    virtual uint32_t parties() const = 0; ///< Of each role.
    virtual void attach() {}              ///< In each party.

    /// Whether a record was put or got. The phase is kept up to date; the end of the call is for the caller to note.
    virtual bool put(const Record& record, PhaseWord& phase) = 0;
    virtual bool get(Record& record, PhaseWord& phase) = 0;

    virtual sem_t* lock(Role role) = 0;            ///< What a party of that role may leave locked; null: nothing.
    virtual bool isLockShared() const = 0;         ///< By both roles.
    virtual std::vector<Record> leftInPlace() = 0; ///< What was put and not got, looked at in memory.

    /// After the end of all parties, with nothing left locked: how the queue fared.
    virtual std::string examine(Phase victim) = 0;

    /// Whether a party that died in a phase may have left the lock held, and whether it must have.
    virtual bool mayStayLocked(Phase victim) const = 0;
    virtual bool mustStayLocked(Phase victim) const = 0;
};

[[noreturn]] void failParty(int status);
constexpr int callFailed = 10;
constexpr int recordTorn = 11;
constexpr int recordOutOfOrder = 12;

/// Parties exchange records, one is killed at a random moment and replaced. @return how it went
std::string killOneOf(Queue& queue, Random& random);

} // namespace campaign
