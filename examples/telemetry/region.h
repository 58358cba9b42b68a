// The shared region of a run: the queue of records at its start, so that tools find it, and behind it who takes part.
#pragma once

#include "party.h"
#include "record.h"

#include <cUtil/sharedMemory.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace telemetry
{

constexpr uint32_t queueCapacity = 32;

/// What stands behind the queue.
struct Run {
    uint64_t signature; ///< Written last: what stands in front of it is complete then.
    Party sampler;
    Party server;
};

class Region
{
public:
    /// Creates and formats the region, for the sampler. A region that a dead sampler left behind is replaced; one that
    /// another sampler fills, or that is none of ours, is not. On failure nothing is returned and the reason is told.
    static std::optional<Region> create(const std::string& name);

    /// Attaches to the region of a living sampler, as its server. Nothing is returned when there is none yet; and when
    /// there is no use in trying again, which sets @p hopeless, and the reason is told.
    static std::optional<Region> attach(const std::string& name, bool& hopeless);

    /// Takes the region away if its sampler died.
    static void removeStale(const std::string& name);

    Region(Region&& other) noexcept
        : handle_(std::exchange(other.handle_, nullptr)), role_(other.role_), base_(other.base_), run_(other.run_),
          size_(other.size_)
    {
    }
    Region& operator=(Region&&) = delete;
    ~Region(); ///< Leaves the run; the sampler takes the region's name with it.

    void* queue() const { return base_; }
    Presence sampler() const;
    Presence server() const;
    int samplerNumber() const;

private:
    enum class Role { onlooker, sampler, server };
    enum class State { missing, unfinished, foreign, stale, filled };

    Region(cu_SharedMemory* handle, Role role);
    static std::optional<Region> open(const std::string& name, State& state);
    static bool makeRoom(const std::string& name, bool waitForIt);
    bool isForUsToRemove();
    State inspect() const;
    bool format();
    bool unlink();
    Run& run() const;

    cu_SharedMemory* handle_ = nullptr;
    Role role_ = Role::onlooker;
    void* base_ = nullptr;
    void* run_ = nullptr; ///< Null in a region of another size.
    uint32_t size_ = 0;
};

} // namespace telemetry
