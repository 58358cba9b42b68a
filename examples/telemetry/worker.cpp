#include "worker.h"

#include "messages.h"

#include <pthread.h>

namespace telemetry
{

static_assert(sizeof(tickName) <= 16 && sizeof(samplerName) <= 16);

Worker::~Worker()
{
    if (thread_ == nullptr)
        return;
    if (const cu_ErrorCode code = cu_Thread_delete(&thread_); code != 0)
        static_cast<void>(failByRecord(code, "ending a thread"));
}

bool Worker::start(const char* name, cu_Runnable* runnable)
{
    cu_ErrorCode code = cu_Thread_new(&thread_, nullptr);
    cu_ThreadID id{};
    if (code == 0)
        code = cu_Thread_getThreadID(thread_, &id);
    if (code == 0) {
        // Whether the name is set or not, the thread does its work.
        pthread_setname_np(id, name);
        code = cu_Thread_start(thread_, runnable);
    }
    if (code != 0)
        static_cast<void>(failByRecord(code, "starting a thread"));
    return code == 0;
}

bool Worker::end(uintptr_t& result)
{
    cu_ErrorCode code = cu_Thread_stop(thread_, false);
    if (code == 0)
        code = cu_Thread_join(thread_, &result);
    if (code != 0)
        static_cast<void>(failByRecord(code, "ending a thread"));
    return code == 0;
}

} // namespace telemetry
