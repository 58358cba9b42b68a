// The conditions of the library wait on the monotonic clock.
#pragma once

#include <pthread.h>

namespace cu::internal
{

/// Why a condition was not made.
struct ConditionFailure {
    int error; ///< 0: it was made
    const char* call;
};

ConditionFailure makeMonotonicCondition(pthread_cond_t* condition);

} // namespace cu::internal
