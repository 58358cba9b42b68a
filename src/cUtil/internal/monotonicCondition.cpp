#include "internal/monotonicCondition.h"

#include <ctime>

cu::internal::ConditionFailure cu::internal::makeMonotonicCondition(pthread_cond_t* condition)
{
    pthread_condattr_t attributes;
    if (const int error = pthread_condattr_init(&attributes); error != 0)
        return {error, "pthread_condattr_init( &attr )"};
    ConditionFailure failure = {pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC),
                                "pthread_condattr_setclock( &attr, cu_CLOCK_MONOTONIC )"};
    if (failure.error == 0)
        failure = {pthread_cond_init(condition, &attributes), "pthread_cond_init( &(*me)->cond, &attr )"};
    pthread_condattr_destroy(&attributes);
    return failure;
}
