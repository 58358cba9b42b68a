#include <cUtil/network/poller.h>

#include "internal/owned.h"
#include "internal/rollback.h"
#include "internal/socket.h"

#include <algorithm>
#include <cerrno>
#include <sys/epoll.h>

namespace
{

struct Item {
    cu_allocator* allocator;
    const cu_Selectable* selectable; // null once it is removed
    int32_t handle;                  // what it stood for when it was added
    cu_PollerCallback callback;
    void* userData;
    Item* nextRemoved;
};

// One registration. The key stands beside the pointer, so that a search touches nothing else.
struct Entry {
    const cu_Selectable* selectable;
    Item* item;
};

constexpr uint32_t mostEvents = 1024; // of one poll: they lie on the stack

} // namespace

struct cu_Poller {
    cu_allocator* allocator;
    int32_t epoll;
    uint32_t count;
    Entry* entries;
    uint32_t polls; // under way, one within the other
    Item* removed;  // during a poll, whose events may still name them
};

namespace
{

cu_ErrorCode resize(cu_Poller* me, uint32_t count)
{
    return count != 0 ? internal::resizeArray(me->allocator, &me->entries, count)
                      : internal::freeArray(me->allocator, &me->entries);
}

// Ends an item, as soon as no poll can come upon it any more.
cu_ErrorCode dispose(cu_Poller* me, Item* item)
{
    item->selectable = nullptr;
    if (me->polls == 0)
        return internal::freeObject(&item);
    item->nextRemoved = me->removed;
    me->removed = item;
    return 0;
}

cu_ErrorCode disposeOfRemoved(cu_Poller* me)
{
    cu_ErrorCode code = 0;
    while (me->removed != nullptr && code == 0) {
        Item* item = me->removed;
        me->removed = item->nextRemoved;
        code = internal::freeObject(&item);
    }
    return code;
}

cu_ErrorCode take(cu_Poller* me, const cu_Selectable* selectable)
{
    Entry* const end = me->entries + me->count;
    Entry* found = std::find_if(me->entries, end, [=](const Entry& entry) {
        return entry.selectable == selectable && entry.item->handle == selectable->handle;
    });
    if (found == end) {
        // It stood for another descriptor then, which must not lead to the item any more.
        found = std::find_if(me->entries, end, [=](const Entry& entry) { return entry.selectable == selectable; });
        if (found == end)
            return 0;
        epoll_ctl(me->epoll, EPOLL_CTL_DEL, found->item->handle, nullptr);
    }
    if (const cu_ErrorCode code = dispose(me, found->item); code != 0)
        return code;
    std::copy(found + 1, end, found);
    return resize(me, --me->count);
}

// Tells whether there was anybody to call.
bool callBack(const epoll_event& event)
{
    const auto* item = static_cast<const Item*>(event.data.ptr);
    if (item == nullptr)
        return false;
    uint32_t flags = 0;
    if ((event.events & EPOLLIN) != 0)
        flags |= CU_POLLER_READABLE;
    if ((event.events & EPOLLOUT) != 0)
        flags |= CU_POLLER_WRITABLE;
    if (item->selectable != nullptr) // otherwise removed by a callback before
        item->callback(item->selectable, flags, item->userData);
    return true;
}

} // namespace

cu_ErrorCode cu_Poller_new(cu_Poller** poller, cu_allocator* allocator)
{
    CU_REQUIRE(poller != nullptr);
    CU_REQUIRE(*poller == nullptr);

    internal::Owned<cu_Poller> object;
    CU_TRY(object.allocate(allocator));
    object->epoll = epoll_create1(EPOLL_CLOEXEC);
    if (object->epoll == internal::noDescriptor) {
        const int error = errno;
        // Compatibility: the code speaks of a file.
        return CU_REPORT(cu_ERROR_FILE_OPEN_FAILED, error, "epoll_create(..) failed [%d] %s", error,
                         internal::SystemErrorText(error).get());
    }
    *poller = object.release();
    return 0;
}

cu_ErrorCode cu_Poller_delete(cu_Poller** poller)
{
    CU_REQUIRE(poller != nullptr);
    CU_REQUIRE(*poller != nullptr);
    CU_REQUIRE((*poller)->polls == 0);

    cu_Poller* me = *poller;
    close(me->epoll);
    for (uint32_t i = 0; i < me->count; ++i)
        CU_MUST(dispose(me, me->entries[i].item));
    CU_MUST(resize(me, 0));
    CU_MUST(internal::freeObject(poller));
    return 0;
}

cu_ErrorCode cu_Poller_add(cu_Poller* poller, const cu_Selectable* selectable, uint32_t flags,
                           cu_PollerCallback callback, void* userData)
{
    CU_REQUIRE(poller != nullptr);
    CU_REQUIRE(selectable != nullptr);
    CU_REQUIRE(flags != 0);
    CU_REQUIRE(callback != nullptr);

    internal::Owned<Item> item;
    CU_TRY(item.allocate(poller->allocator));
    item->selectable = selectable;
    item->handle = selectable->handle;
    item->callback = callback;
    item->userData = userData;

    const int32_t handle = selectable->handle;
    epoll_event event = {};
    if ((flags & CU_POLLER_READABLE) != 0)
        event.events |= EPOLLIN;
    if ((flags & CU_POLLER_WRITABLE) != 0)
        event.events |= EPOLLOUT;
    event.data.ptr = item.get();
    if (epoll_ctl(poller->epoll, EPOLL_CTL_ADD, handle, &event) != 0) {
        const int error = errno;
        return CU_REPORT(cu_ERROR_COM_INVALID_ARGUMENT, error, "epoll_ctl(..) failed [%d] %s", error,
                         internal::SystemErrorText(error).get());
    }
    if (const cu_ErrorCode code = resize(poller, poller->count + 1); code != 0) {
        epoll_ctl(poller->epoll, EPOLL_CTL_DEL, handle, nullptr);
        CU_TRY(code);
    }
    // NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage): there is room, as no counter of descriptors overflows
    poller->entries[poller->count++] = {selectable, item.release()};
    return 0;
}

cu_ErrorCode cu_Poller_remove(cu_Poller* poller, const cu_Selectable* selectable)
{
    CU_REQUIRE(poller != nullptr);
    CU_REQUIRE(selectable != nullptr);

    if (epoll_ctl(poller->epoll, EPOLL_CTL_DEL, selectable->handle, nullptr) != 0) {
        const int error = errno;
        return CU_REPORT(cu_ERROR_COM_INVALID_ARGUMENT, error, "epoll_ctl(..) failed [%d] %s", error,
                         internal::SystemErrorText(error).get());
    }
    CU_MUST(take(poller, selectable));
    return 0;
}

cu_ErrorCode cu_Poller_poll(cu_Poller* poller, int32_t timeoutMs, uint32_t maxEvents)
{
    CU_REQUIRE(poller != nullptr);
    CU_REQUIRE(maxEvents != 0);

    epoll_event events[mostEvents];
    const int count = epoll_wait(poller->epoll, events, static_cast<int>(std::min(maxEvents, mostEvents)), timeoutMs);
    if (count < 0) {
        // Compatibility: a signal ends the wait as a failure.
        const int error = errno;
        return CU_REPORT(cu_ERROR_COM_INVALID_ARGUMENT, error, "epoll_wait(..) failed [%d] %s", error,
                         internal::SystemErrorText(error).get());
    }
    bool called = true;
    ++poller->polls;
    for (int i = 0; i < count && called; ++i)
        called = callBack(events[i]);
    if (--poller->polls == 0)
        CU_MUST(disposeOfRemoved(poller));
    CU_REQUIRE(called);
    return 0;
}
