#include "campaign/exchange.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <memory>
#include <unistd.h>

namespace campaign
{

namespace
{

constexpr uint32_t maximum = 3; // two of a role and a successor

// What was delivered of a producer, noted in one step, for the one who notes may be killed: in the upper bits how many
// records, in the lower ones the sum of their sequence numbers, which tells the one that is missing.
constexpr uint64_t noteOf(uint64_t sequence)
{
    return (uint64_t{1} << 40) + sequence;
}

constexpr uint64_t notesBelow(uint64_t count)
{
    return (count << 40) + count * (count - 1) / 2;
}

struct Party {
    PhaseWord phase;
    std::atomic<uint32_t> steps;
    std::atomic<uint32_t> put;                      // by a producer
    std::array<std::atomic<uint64_t>, maximum> got; // by a consumer, notes by producer
};

struct Board {
    std::atomic<bool> producersEnd;
    std::atomic<bool> consumersEnd;
    std::array<Party, maximum> producers;
    std::array<Party, maximum> consumers;

    Party& of(Role role, uint32_t number) { return role == Role::producer ? producers[number] : consumers[number]; }
};

int produce(Queue& queue, Board& board, uint32_t number)
{
    Party& me = board.producers[number];
    Record record;
    for (uint32_t sequence = 0; !board.producersEnd;) {
        record.fill(number, sequence);
        const bool isPut = queue.put(record, me.phase);
        if (isPut)
            me.put = ++sequence;
        me.phase = Phase::outside;
        if (!isPut)
            std::this_thread::yield();
        ++me.steps;
    }
    return 0;
}

int consume(Queue& queue, Board& board, uint32_t number)
{
    Party& me = board.consumers[number];
    std::array<uint32_t, maximum> next{};
    Record record;
    for (;;) {
        const bool isEnd = board.consumersEnd; // before the look: what was put before is found
        const bool isGot = queue.get(record, me.phase);
        if (isGot) {
            if (!record.isWhole())
                return recordTorn;
            if (record.sequence < next[record.producer])
                return recordOutOfOrder;
            next[record.producer] = record.sequence + 1;
            me.got[record.producer] += noteOf(record.sequence);
        }
        me.phase = Phase::outside;
        if (!isGot && isEnd)
            return 0;
        if (!isGot)
            std::this_thread::yield();
        ++me.steps;
    }
}

struct Member {
    Role role;
    uint32_t number;
    std::unique_ptr<Process> process;
};

Member start(Queue& queue, Board& board, Role role, uint32_t number)
{
    return {role, number, std::make_unique<Process>([&queue, &board, role, number] {
                queue.attach();
                return role == Role::producer ? produce(queue, board, number) : consume(queue, board, number);
            })};
}

Parties partiesOf(const std::vector<Member>& members, Role role)
{
    Parties parties;
    for (const Member& member : members) {
        if (member.role == role)
            parties.push_back(member.process.get());
    }
    return parties;
}

// Every record arrived once, but for the one that the victim had in its hands: one that it was putting may have been
// put, one that it was getting may be gone with it.
void requireAllDelivered(const Board& board, const std::vector<Record>& left, Role victim, uint32_t number, Phase phase)
{
    bool mayMiss = victim == Role::consumer && phase != Phase::outside;
    for (uint32_t producer = 0; producer < maximum; ++producer) {
        uint64_t notes = 0;
        for (const Party& consumer : board.consumers)
            notes += consumer.got[producer];
        for (const Record& record : left)
            notes += record.producer == producer ? noteOf(record.sequence) : 0;
        const uint32_t put = board.producers[producer].put;
        const bool mayBeOneMore = victim == Role::producer && producer == number && phase != Phase::outside;
        if (notes == notesBelow(put) || (mayBeOneMore && notes == notesBelow(put + uint64_t{1})))
            continue;
        const bool lacksOne = notesBelow(put) - notes - noteOf(0) < put;
        require(lacksOne && mayMiss, "of " + std::to_string(put) + " records of producer " + std::to_string(producer) +
                                         " about " + std::to_string(notes >> 40) + " arrived");
        mayMiss = false;
    }
}

} // namespace

void Record::fill(uint32_t by, uint32_t number)
{
    producer = by;
    sequence = number;
    memset(filler.data(), static_cast<uint8_t>(by * 97 + number * 31), filler.size());
}

bool Record::isWhole() const
{
    const auto expected = static_cast<uint8_t>(producer * 97 + sequence * 31);
    return producer < maximum && filler[0] == expected && memcmp(&filler[0], &filler[1], filler.size() - 1) == 0;
}

void failParty(int status)
{
    _exit(status);
}

std::string killOneOf(Queue& queue, Random& random)
{
    Shared<Board> board;
    std::vector<Member> members;
    for (uint32_t number = 0; number < queue.parties(); ++number) {
        members.push_back(start(queue, *board, Role::producer, number));
        members.push_back(start(queue, *board, Role::consumer, number));
    }
    random.awaitMoment();
    const auto at = members.begin() + static_cast<std::ptrdiff_t>(random.below(static_cast<uint32_t>(members.size())));
    const Member victim = std::move(*at);
    members.erase(at);
    const PhaseWord& phaseOfVictim = board->of(victim.role, victim.number).phase;
    if (random.heads()) { // most of the time is spent outside calls
        const auto end = std::chrono::steady_clock::now() + 1ms;
        while (phaseOfVictim == Phase::outside && std::chrono::steady_clock::now() < end) {
        }
        random.awaitInstant();
    }
    require(victim.process->kill() == -SIGKILL, "the victim had ended by itself");
    const Phase phase = phaseOfVictim;
    members.push_back(start(queue, *board, victim.role, queue.parties()));

    // The others go on, or all whom it concerns sleep before the lock.
    sem_t* lock = queue.lock(victim.role);
    Parties concerned = partiesOf(members, victim.role);
    const Role other = victim.role == Role::producer ? Role::consumer : Role::producer;
    if (queue.isLockShared()) {
        const Parties more = partiesOf(members, other);
        concerned.insert(concerned.end(), more.begin(), more.end());
    }
    std::vector<uint32_t> before;
    for (const Member& member : members)
        before.push_back(board->of(member.role, member.number).steps);
    const auto goOn = [&] {
        for (std::size_t i = 0; i < members.size(); ++i) {
            if (board->of(members[i].role, members[i].number).steps < before[i] + 3 && !members[i].process->hasEnded())
                return false;
        }
        return true;
    };
    bool isLocked = hangBefore(goOn, concerned, lock);
    for (const Role role : {Role::producer, Role::consumer}) {
        (role == Role::producer ? board->producersEnd : board->consumersEnd) = true;
        const Parties ending = partiesOf(members, role);
        if (role == victim.role || queue.isLockShared())
            isLocked = hangBefore([&] { return haveEnded(ending); }, ending, lock) || isLocked;
        else
            requireGoodEnds(ending);
    }
    for (const Member& member : members) {
        if (member.process->hasEnded())
            requireGoodEnds({member.process.get()});
        else
            member.process->kill(); // it hangs; the supervisor outside is the remedy
    }

    require(!isLocked || queue.mayStayLocked(phase), "a party left the lock held that was not in a transaction");
    require(isLocked || !queue.mustStayLocked(phase), "a transaction of a dead party was ended by somebody");
    const std::vector<Record> left = queue.leftInPlace();
    require(std::all_of(left.begin(), left.end(), [](const Record& record) { return record.isWhole(); }),
            "a record in the queue is torn");
    requireAllDelivered(*board, left, victim.role, victim.number, phase);
    return isLocked ? "left locked, told by a timed call" : queue.examine(phase);
}

bool areAsleep(const Parties& parties)
{
    return std::all_of(parties.begin(), parties.end(), [](Process* party) {
        if (party->hasEnded())
            return true;
        std::ifstream file("/proc/" + std::to_string(party->id()) + "/stat");
        std::string line;
        std::getline(file, line);
        const std::size_t name = line.rfind(')');
        return name != std::string::npos && line.compare(name, 3, ") S") == 0;
    });
}

bool canBeTaken(sem_t* lock)
{
    bool taken = false;
    const cu_TimeValue deadline = support::fromNow(20);
    require(cu_ipcSem_timedLock(lock, &deadline, &taken) == 0, "a timed call failed");
    require(taken || support::hasPassed(deadline), "a timed call gave up before its deadline");
    if (taken)
        require(cu_ipcSem_unlock(lock) == 0, "giving a lock back failed");
    return taken;
}

} // namespace campaign
