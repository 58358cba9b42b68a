// Watching many descriptors: calling back for those that are ready, and one registration more or less; beside epoll by
// hand and libuv.
#include <cUtil/network/poller.h>

#include <benchmark/benchmark.h>
#include <uv.h>

#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace
{

// So many descriptors that are all ready to be read, or none of them.
class Descriptors
{
public:
    Descriptors(int64_t count, unsigned ready)
    {
        rlimit limit = {};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
        for (int64_t i = 0; i < count; ++i)
            selectables_.push_back({eventfd(ready, EFD_CLOEXEC | EFD_NONBLOCK)});
    }
    Descriptors(const Descriptors&) = delete;
    Descriptors& operator=(const Descriptors&) = delete;
    ~Descriptors()
    {
        for (const cu_Selectable& selectable : selectables_)
            close(selectable.handle);
    }

    auto begin() { return selectables_.begin(); }
    auto end() { return selectables_.end(); }
    cu_Selectable& back() { return selectables_.back(); }

private:
    std::vector<cu_Selectable> selectables_;
};

cu_ErrorCode count(const cu_Selectable*, uint32_t, void* calls)
{
    ++*static_cast<uint64_t*>(calls);
    return 0;
}

void report(benchmark::State& state, uint64_t calls)
{
    if (calls != static_cast<uint64_t>(state.iterations() * state.range(0)))
        state.SkipWithError("not every descriptor was told of");
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void dispatchOurs(benchmark::State& state)
{
    Descriptors descriptors(state.range(0), 1);
    cu_Poller* poller = nullptr;
    cu_Poller_new(&poller, nullptr);
    uint64_t calls = 0;
    for (const cu_Selectable& selectable : descriptors)
        cu_Poller_add(poller, &selectable, CU_POLLER_READABLE, count, &calls);
    for (auto _ : state)
        cu_Poller_poll(poller, 0, 1024);
    report(state, calls);
    cu_Poller_delete(&poller);
}

struct Registration {
    cu_PollerCallback callback;
    const cu_Selectable* selectable;
    void* userData;
};

void dispatchEpoll(benchmark::State& state)
{
    Descriptors descriptors(state.range(0), 1);
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    uint64_t calls = 0;
    std::vector<Registration> registrations;
    registrations.reserve(static_cast<std::size_t>(state.range(0)));
    for (const cu_Selectable& selectable : descriptors) {
        registrations.push_back({count, &selectable, &calls});
        epoll_event event = {};
        event.events = EPOLLIN;
        event.data.ptr = &registrations.back();
        epoll_ctl(epoll, EPOLL_CTL_ADD, selectable.handle, &event);
    }
    for (auto _ : state) {
        epoll_event events[1024];
        const int ready = epoll_wait(epoll, events, 1024, 0);
        for (int i = 0; i < ready; ++i) {
            const auto* registration = static_cast<const Registration*>(events[i].data.ptr);
            registration->callback(registration->selectable, events[i].events, registration->userData);
        }
    }
    report(state, calls);
    close(epoll);
}

void dispatchLibuv(benchmark::State& state)
{
    Descriptors descriptors(state.range(0), 1);
    uv_loop_t loop;
    uv_loop_init(&loop);
    uint64_t calls = 0;
    std::vector<uv_poll_t> handles(static_cast<std::size_t>(state.range(0)));
    std::size_t next = 0;
    for (const cu_Selectable& selectable : descriptors) {
        uv_poll_t& handle = handles[next++];
        uv_poll_init(&loop, &handle, selectable.handle);
        handle.data = &calls;
        uv_poll_start(&handle, UV_READABLE, [](uv_poll_t* ready, int, int) { ++*static_cast<uint64_t*>(ready->data); });
    }
    uv_run(&loop, UV_RUN_NOWAIT); // registers, and calls for the first time
    calls = 0;
    for (auto _ : state)
        uv_run(&loop, UV_RUN_NOWAIT);
    report(state, calls);
    for (uv_poll_t& handle : handles)
        uv_close(static_cast<uv_handle_t*>(static_cast<void*>(&handle)), nullptr);
    uv_run(&loop, UV_RUN_DEFAULT);
    uv_loop_close(&loop);
}

// One more than range(0) registrations, and one less again.
void registerOurs(benchmark::State& state)
{
    Descriptors descriptors(state.range(0) + 1, 0);
    cu_Poller* poller = nullptr;
    cu_Poller_new(&poller, nullptr);
    const auto add = [&](const cu_Selectable& selectable) {
        return cu_Poller_add(poller, &selectable, CU_POLLER_READABLE, count, nullptr);
    };
    for (const cu_Selectable& selectable : descriptors)
        add(selectable);
    for (auto _ : state) {
        if (cu_Poller_remove(poller, &descriptors.back()) != 0 || add(descriptors.back()) != 0)
            state.SkipWithError("not registered");
    }
    cu_Poller_delete(&poller);
}

void registerLibuv(benchmark::State& state)
{
    Descriptors descriptors(state.range(0) + 1, 0);
    uv_loop_t loop;
    uv_loop_init(&loop);
    std::vector<uv_poll_t> handles(static_cast<std::size_t>(state.range(0) + 1));
    std::size_t next = 0;
    for (const cu_Selectable& selectable : descriptors) {
        uv_poll_init(&loop, &handles[next], selectable.handle);
        uv_poll_start(&handles[next++], UV_READABLE, [](uv_poll_t*, int, int) {});
    }
    uv_run(&loop, UV_RUN_NOWAIT);
    for (auto _ : state) {
        uv_poll_stop(&handles.back());
        uv_poll_start(&handles.back(), UV_READABLE, [](uv_poll_t*, int, int) {});
        uv_run(&loop, UV_RUN_NOWAIT); // which registers it with the system
    }
    for (uv_poll_t& handle : handles)
        uv_close(static_cast<uv_handle_t*>(static_cast<void*>(&handle)), nullptr);
    uv_run(&loop, UV_RUN_DEFAULT);
    uv_loop_close(&loop);
}

#define ON_ALL_SIZES RangeMultiplier(8)->Range(1, 512)
BENCHMARK(dispatchOurs)->Name("dispatch/cUtil")->ON_ALL_SIZES;
BENCHMARK(dispatchEpoll)->Name("dispatch/epoll")->ON_ALL_SIZES;
BENCHMARK(dispatchLibuv)->Name("dispatch/libuv")->ON_ALL_SIZES;
BENCHMARK(registerOurs)->Name("register/cUtil")->RangeMultiplier(10)->Range(1, 10000);
BENCHMARK(registerLibuv)->Name("register/libuv")->RangeMultiplier(10)->Range(1, 10000);

} // namespace
