#include "region.h"

#include "messages.h"

#include <cUtil/errorInfo.h>
#include <cUtil/fifo.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>

namespace telemetry
{

namespace
{

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto patience = 3s; // with a sampler that is about to create the region, or died doing so
constexpr auto pollPeriod = 20ms;
constexpr uint64_t signature = 0x54656C656D000000 | sizeof(Record);
constexpr uint32_t permissions = CU_PERMISSION_OWNER_READ | CU_PERMISSION_OWNER_WRITE;

// The words are shared with processes of other runs and builds: they must be atomic without a lock somewhere.
using Word = std::atomic_ref<uint64_t>;
static_assert(Word::is_always_lock_free);
static_assert(CU_FIFO_ALIGNMENT % alignof(Run) == 0 && sizeof(Record) % alignof(Run) == 0);

uint32_t blockSize()
{
    return cu_Fifo_getBlockSize(queueCapacity, sizeof(Record));
}
uint32_t regionSize()
{
    return blockSize() + static_cast<uint32_t>(sizeof(Run));
}

// Acquire and release: who sees a party or the signature sees what was written before it.
uint64_t load(uint64_t& word)
{
    return Word(word).load(std::memory_order_acquire);
}
void store(uint64_t& word, uint64_t value)
{
    Word(word).store(value, std::memory_order_release);
}
bool replace(uint64_t& word, uint64_t expected, uint64_t value)
{
    return Word(word).compare_exchange_strong(expected, value, std::memory_order_acq_rel);
}

} // namespace

Region::Region(cu_SharedMemory* handle, Role role) : handle_(handle), role_(role)
{
    cu_ErrorCode code = cu_SharedMemory_getShared(handle, &base_);
    if (code == 0)
        code = cu_SharedMemory_getMappedSize(handle, &size_);
    if (code == 0 && size_ == regionSize())
        code = cu_SharedMemory_getSharedWithOffset(handle, &run_, blockSize());
    if (code != 0)
        static_cast<void>(failByRecord(code, "shared memory"));
}

Region::~Region()
{
    if (handle_ == nullptr)
        return;
    cu_ErrorCode code = 0;
    if (role_ == Role::sampler) {
        store(run().sampler, gone);
        // Under a server that is still there the semaphores stay; they go with the memory.
        code = server() == Presence::there ? cu_Fifo_detach(queue()) : cu_Fifo_cleanup(queue());
        if (code == 0 && !unlink())
            return;
    } else if (role_ == Role::server) {
        store(run().server, gone);
        code = cu_Fifo_detach(queue());
    }
    if (code == 0 && handle_ != nullptr)
        code = cu_SharedMemory_delete(&handle_, false);
    if (code != 0)
        static_cast<void>(failByRecord(code, "leaving the region"));
}

Run& Region::run() const
{
    return *static_cast<Run*>(run_);
}
Presence Region::sampler() const
{
    return presenceOf(load(run().sampler));
}
Presence Region::server() const
{
    return presenceOf(load(run().server));
}
int Region::samplerNumber() const
{
    return processNumber(load(run().sampler));
}

// The object is unmapped when its name cannot be removed; it is deleted again for the rest. That the name is gone
// already is what was wanted.
bool Region::unlink()
{
    cu_ErrorCode code = cu_SharedMemory_delete(&handle_, true);
    if (code != 0 && handle_ != nullptr)
        code = cu_SharedMemory_delete(&handle_, false);
    if (code != 0)
        static_cast<void>(failByRecord(code, "removing the region"));
    return code == 0;
}

bool Region::format()
{
    if (run_ == nullptr)
        return false; // told already
    store(run().sampler, thisProcess());
    const Record empty{};
    const cu_ErrorCode code = cu_Fifo_init(queue(), queueCapacity, sizeof(Record), &empty);
    if (code != 0) {
        static_cast<void>(failByRecord(code, "formatting the queue"));
        static_cast<void>(unlink());
        return false;
    }
    role_ = Role::sampler;
    store(run().signature, signature);
    return true;
}

Region::State Region::inspect() const
{
    if (run_ == nullptr)
        return State::foreign;
    const Presence presence = sampler(); // before the signature, which goes before somebody takes a stale region away
    const uint64_t found = load(run().signature);
    if (found != signature && found != 0)
        return State::foreign;
    switch (presence) {
    case Presence::there:
        return found == signature ? State::filled : State::unfinished;
    case Presence::awaited:
        return found == signature ? State::foreign : State::unfinished;
    default:
        return State::stale;
    }
}

std::optional<Region> Region::open(const std::string& name, State& state)
{
    cu_SharedMemory* handle = nullptr;
    const cu_ErrorCode code = cu_SharedMemory_open(&handle, name.c_str(), nullptr);
    if (code == 0) {
        Region region(handle, Role::onlooker);
        state = region.inspect();
        return region;
    }
    const int32_t reason = ku_getSystemErrorCode();
    state = State::foreign;
    if (code == cu_ERROR_SHM_OPEN_FAILED && reason == ENOENT)
        state = State::missing;
    else if (code == cu_ERROR_SHM_OPEN_FAILED && reason == EINVAL) // an empty region: created, but not yet sized
        state = State::unfinished;
    else
        static_cast<void>(failByRecord(code, "opening the region"));
    return std::nullopt;
}

// Takes a region of that name away when nobody fills it. Says whether it makes sense to try again.
bool Region::makeRoom(const std::string& name, bool waitForIt)
{
    State state{};
    std::optional<Region> region = open(name, state);
    if (state == State::missing)
        return true;
    if (state == State::foreign) {
        say("the region '%s' is there already and is none of a sampler's", name.c_str());
        return false;
    }
    if (state == State::filled) {
        say("a sampler (process %d) fills the region '%s' already", region->samplerNumber(), name.c_str());
        return false;
    }
    if (state == State::unfinished && waitForIt) {
        std::this_thread::sleep_for(pollPeriod);
        return true;
    }
    if (!region) {
        // Its creator died before it gave the region a size.
        cu_SharedMemory* handle = nullptr;
        const cu_ErrorCode code =
            cu_SharedMemory_create(&handle, name.c_str(), regionSize(), nullptr, nullptr, permissions, true, nullptr);
        if (code != 0) {
            static_cast<void>(failByRecord(code, "taking over the region"));
            return false;
        }
        region.emplace(Region(handle, Role::onlooker));
    }
    if (region->isForUsToRemove()) {
        // Its queue may be locked for ever. A server takes what is left in it before it goes on with the next one.
        say("replacing the region '%s' that a sampler left behind when it died", name.c_str());
        return region->unlink();
    }
    return true;
}

void Region::removeStale(const std::string& name)
{
    State state{};
    std::optional<Region> region = open(name, state);
    if (region && state == State::stale && region->isForUsToRemove())
        static_cast<void>(region->unlink());
}

// Of two processes that see the same stale region only one removes it: the other would remove its successor. Without
// the signature no server takes the one that does for a sampler that fills it.
bool Region::isForUsToRemove()
{
    const Party former = load(run().sampler);
    if (presenceOf(former) == Presence::there)
        return false;
    store(run().signature, 0);
    return replace(run().sampler, former, thisProcess());
}

std::optional<Region> Region::create(const std::string& name)
{
    const auto end = Clock::now() + patience;
    for (;;) {
        cu_SharedMemory* handle = nullptr;
        const cu_ErrorCode code =
            cu_SharedMemory_create(&handle, name.c_str(), regionSize(), nullptr, nullptr, permissions, false, nullptr);
        if (code == 0) {
            Region region(handle, Role::onlooker);
            if (!region.format())
                return std::nullopt;
            return region;
        }
        if (code != cu_ERROR_SHM_CREATE_FAILED || ku_getSystemErrorCode() != EEXIST) {
            static_cast<void>(failByRecord(code, "creating the region"));
            return std::nullopt;
        }
        if (stopRequested() || !makeRoom(name, Clock::now() < end))
            return std::nullopt;
    }
}

std::optional<Region> Region::attach(const std::string& name, bool& hopeless)
{
    State state{};
    std::optional<Region> region = open(name, state);
    hopeless = state == State::foreign;
    if (hopeless)
        say("the region '%s' is none of a sampler's", name.c_str());
    if (state != State::filled)
        return std::nullopt;
    const Party former = load(region->run().server);
    if (presenceOf(former) == Presence::there) {
        say("another server (process %d) takes the records of '%s'", processNumber(former), name.c_str());
        hopeless = true;
        return std::nullopt;
    }
    if (const cu_ErrorCode code = cu_Fifo_attach(region->queue()); code != 0) {
        static_cast<void>(failByRecord(code, "attaching to the queue"));
        hopeless = true;
        return std::nullopt;
    }
    if (!replace(region->run().server, former, thisProcess()))
        return std::nullopt; // another server was faster
    region->role_ = Role::server;
    return region;
}

} // namespace telemetry
