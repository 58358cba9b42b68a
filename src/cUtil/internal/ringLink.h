// Lists without memory of their own.
#pragma once

namespace cu::internal
{

/// A member of a doubly linked ring; alone, a ring of its own. A list is a ring with a link that belongs to nobody.
struct RingLink {
    RingLink* previous = this;
    RingLink* next = this;

    RingLink() = default;
    RingLink(const RingLink&) = delete;
    RingLink& operator=(const RingLink&) = delete;

    bool isAlone() const { return next == this; }

    void leave()
    {
        previous->next = next;
        next->previous = previous;
        previous = this;
        next = this;
    }

    /// Leaves its ring and becomes the first of a list.
    void moveToFrontOf(RingLink& list)
    {
        leave();
        previous = &list;
        next = list.next;
        previous->next = this;
        next->previous = this;
    }

    /// Leaves its ring and becomes the last of a list.
    void moveToEndOf(RingLink& list)
    {
        leave();
        moveToFrontOf(*list.previous);
    }
};

} // namespace cu::internal
