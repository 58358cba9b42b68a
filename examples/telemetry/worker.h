// A thread of the demonstration's own.
#pragma once

#include <cUtil/thread.h>

namespace telemetry
{

/// The names by which `top -H` and debuggers show the threads; the system takes up to fifteen characters.
constexpr char tickName[] = "telemetry-tick";
constexpr char samplerName[] = "telemetry-sampl";

/// One thread that runs one runnable, once. The main thread takes the signals; this one has all of them blocked.
class Worker
{
public:
    Worker() = default;
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;
    ~Worker(); ///< Ends what runs, as end() does, and drops the result.

    /// Starts to run @p runnable, which must last until the end. @return whether it does; if not, the reason is told
    [[nodiscard]] bool start(const char* name, cu_Runnable* runnable);

    /// Clears the running flag and waits for the runnable's function to return. @return whether it did, and
    /// @p result holds what it returned; if not, the reason is told
    [[nodiscard]] bool end(uintptr_t& result);

private:
    cu_Thread* thread_ = nullptr;
};

} // namespace telemetry
