#include <cUtil/network/poller.h>

#include "internal/owned.h"
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

cu_ErrorCode cu_PollerItem_new(internal::Owned<Item>& item, const cu_Selectable* selectable, cu_PollerCallback callback,
                               void* userData, cu_allocator* allocator)
{
    CU_TRY(item.allocate(allocator));
    item->selectable = selectable;
    item->handle = selectable->handle;
    item->callback = callback;
    item->userData = userData;
    return 0;
}

cu_ErrorCode cu_PollerItem_delete(Item** me)
{
    CU_TRY(internal::freeObject(me));
    return 0;
}

cu_ErrorCode cu_PollerItem_action(const Item* me, uint32_t events)
{
    CU_REQUIRE(me != nullptr);
    uint32_t flags = 0;
    if ((events & EPOLLIN) != 0)
        flags |= CU_POLLER_READABLE;
    if ((events & EPOLLOUT) != 0)
        flags |= CU_POLLER_WRITABLE;
    if (me->selectable != nullptr) // otherwise removed by a callback before
        me->callback(me->selectable, flags, me->userData);
    return 0;
}

cu_ErrorCode resize(cu_Poller* me, uint32_t count)
{
    return count != 0 ? internal::resizeArray(me->allocator, &me->entries, count)
                      : internal::freeArray(me->allocator, &me->entries);
}

cu_ErrorCode cu_Poller_put(cu_Poller* me, Item* item)
{
    CU_TRY(resize(me, me->count + 1));
    // NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage): there is room, as no counter of descriptors overflows
    me->entries[me->count++] = {item->selectable, item};
    return 0;
}

// Ends an item, as soon as no poll can come upon it any more.
cu_ErrorCode dispose(cu_Poller* me, Item* item)
{
    item->selectable = nullptr;
    if (me->polls == 0)
        return cu_PollerItem_delete(&item);
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
        code = cu_PollerItem_delete(&item);
    }
    return code;
}

cu_ErrorCode cu_Poller_take(cu_Poller* me, const cu_Selectable* selectable)
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
    CU_TRY(dispose(me, found->item));
    std::copy(found + 1, end, found);
    CU_TRY(resize(me, --me->count));
    return 0;
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
    CU_TRY(cu_PollerItem_new(item, selectable, callback, userData, poller->allocator));
    epoll_event event = {};
    if ((flags & CU_POLLER_READABLE) != 0)
        event.events |= EPOLLIN;
    if ((flags & CU_POLLER_WRITABLE) != 0)
        event.events |= EPOLLOUT;
    event.data.ptr = item.get();
    const int32_t handle = selectable->handle;
    if (epoll_ctl(poller->epoll, EPOLL_CTL_ADD, handle, &event) != 0) {
        const int error = errno;
        return CU_REPORT(cu_ERROR_COM_INVALID_ARGUMENT, error, "epoll_ctl(..) failed [%d] %s", error,
                         internal::SystemErrorText(error).get());
    }
    if (const cu_ErrorCode code = cu_Poller_put(poller, item.get()); code != 0) {
        epoll_ctl(poller->epoll, EPOLL_CTL_DEL, handle, nullptr);
        return internal::passOn(code, CU_HERE);
    }
    item.release();
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
    CU_MUST(cu_Poller_take(poller, selectable));
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
    cu_ErrorCode code = 0;
    ++poller->polls;
    for (int i = 0; i < count && code == 0; ++i)
        code = cu_PollerItem_action(static_cast<const Item*>(events[i].data.ptr), events[i].events);
    if (--poller->polls == 0)
        CU_MUST(disposeOfRemoved(poller));
    CU_TRY(code);
    return 0;
}
