#include <cUtil/algorithm/queue.h>

#include "internal/owned.h"

#include <cstdlib>

namespace
{

// A node of the list, which has places for many elements.
struct Chunk {
    static constexpr uint32_t places = 62; // 64 words in all

    Chunk* previous;
    Chunk* next;
    void* elements[places];
};
static_assert(sizeof(Chunk) == 64 * sizeof(void*));

// The head's place is that of the first element, the tail's that behind the last one.
struct End {
    Chunk* chunk;
    uint32_t place;
};

} // namespace

// Only a chunk that is alone may have no elements, and then the ends meet in its middle.
struct cu_Queue {
    cu_allocator* allocator;
    End head;
    End tail;
    Chunk* spare; // the last one that became empty: a queue that stays about as long needs no memory
    void (*destroy)(void* element);
    void* (*clone)(const void* element);
};

namespace
{

bool isEmpty(const cu_Queue* me)
{
    return me->head.chunk == me->tail.chunk && me->head.place == me->tail.place;
}

Chunk* newChunk(cu_Queue* me)
{
    Chunk* chunk = me->spare;
    me->spare = nullptr;
    return chunk != nullptr ? chunk : static_cast<Chunk*>(calloc(1, sizeof(Chunk)));
}

void release(cu_Queue* me, Chunk* chunk)
{
    free(me->spare);
    me->spare = chunk;
}

void beginInTheMiddle(cu_Queue* me)
{
    me->head.place = Chunk::places / 2;
    me->tail.place = Chunk::places / 2;
}

// False: there is no memory, and nothing has changed.
bool putFirst(cu_Queue* me, void* element)
{
    End& head = me->head;
    if (head.place == 0) {
        Chunk* chunk = newChunk(me);
        if (chunk == nullptr)
            return false;
        chunk->next = head.chunk;
        head.chunk->previous = chunk;
        head = {chunk, Chunk::places};
    }
    head.chunk->elements[--head.place] = element;
    return true;
}

bool putLast(cu_Queue* me, void* element)
{
    End& tail = me->tail;
    if (tail.place == Chunk::places) {
        Chunk* chunk = newChunk(me);
        if (chunk == nullptr)
            return false;
        chunk->previous = tail.chunk;
        tail.chunk->next = chunk;
        tail = {chunk, 0};
    }
    tail.chunk->elements[tail.place++] = element;
    return true;
}

// Null if there is none.
void* takeFirst(cu_Queue* me)
{
    if (isEmpty(me))
        return nullptr;
    End& head = me->head;
    void* element = head.chunk->elements[head.place++];
    if (isEmpty(me)) {
        beginInTheMiddle(me);
    } else if (head.place == Chunk::places) {
        Chunk* emptied = head.chunk;
        head = {emptied->next, 0};
        release(me, emptied);
    }
    return element;
}

void* takeLast(cu_Queue* me)
{
    if (isEmpty(me))
        return nullptr;
    End& tail = me->tail;
    void* element = tail.chunk->elements[--tail.place];
    if (isEmpty(me)) {
        beginInTheMiddle(me);
    } else if (tail.place == 0) {
        Chunk* emptied = tail.chunk;
        tail = {emptied->previous, Chunk::places};
        release(me, emptied);
    }
    return element;
}

// A push of a copy: the exported function whose place it is given.
cu_ErrorCode putCopy(cu_Queue* me, const void* element, bool (*put)(cu_Queue*, void*), internal::Place here)
{
    if (me == nullptr || element == nullptr)
        return internal::reportInvalidArgument(here);

    void* clone = me->clone(element);
    if (clone == nullptr)
        return internal::report(cu_ERROR_COM_MALLOC_FAILED, 0, here, nullptr);
    if (!put(me, clone)) {
        me->destroy(clone);
        return internal::report(cu_ERROR_COM_MALLOC_FAILED, 0, here, nullptr);
    }
    return 0;
}

} // namespace

cu_ErrorCode cu_Queue_new(cu_Queue** queue, void (*destroy)(void* element), void* (*clone)(const void* element),
                          cu_allocator* allocator)
{
    CU_REQUIRE(queue != nullptr);
    CU_REQUIRE(*queue == nullptr);
    CU_REQUIRE(destroy != nullptr);
    CU_REQUIRE(clone != nullptr);

    internal::Owned<cu_Queue> object;
    CU_TRY(object.allocate(allocator));
    Chunk* chunk = newChunk(object.get());
    if (chunk == nullptr)
        return CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
    object->head.chunk = chunk;
    object->tail.chunk = chunk;
    beginInTheMiddle(object.get());
    object->destroy = destroy;
    object->clone = clone;
    *queue = object.release();
    return 0;
}

cu_ErrorCode cu_Queue_delete(cu_Queue** queue)
{
    CU_REQUIRE(queue != nullptr);
    CU_REQUIRE(*queue != nullptr);

    cu_Queue* me = *queue;
    while (void* element = takeFirst(me))
        me->destroy(element);
    free(me->spare);
    free(me->head.chunk);
    me->spare = nullptr;
    me->head.chunk = nullptr;
    me->tail.chunk = nullptr;
    CU_TRY(internal::freeObject(queue));
    return 0;
}

cu_ErrorCode cu_Queue_pushHead(cu_Queue* queue, void** element)
{
    CU_REQUIRE(queue != nullptr);
    CU_REQUIRE(element != nullptr && *element != nullptr);

    if (!putFirst(queue, *element))
        return CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
    *element = nullptr;
    return 0;
}

cu_ErrorCode cu_Queue_pushTail(cu_Queue* queue, void** element)
{
    CU_REQUIRE(queue != nullptr);
    CU_REQUIRE(element != nullptr && *element != nullptr);

    if (!putLast(queue, *element))
        return CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
    *element = nullptr;
    return 0;
}

cu_ErrorCode cu_Queue_constPushHead(cu_Queue* queue, const void* element)
{
    return putCopy(queue, element, putFirst, CU_HERE);
}

cu_ErrorCode cu_Queue_constPushTail(cu_Queue* queue, const void* element)
{
    return putCopy(queue, element, putLast, CU_HERE);
}

cu_ErrorCode cu_Queue_popHead(cu_Queue* queue, void** element)
{
    CU_REQUIRE(queue != nullptr);
    CU_REQUIRE(element != nullptr);

    *element = takeFirst(queue);
    return 0;
}

cu_ErrorCode cu_Queue_popTail(cu_Queue* queue, void** element)
{
    CU_REQUIRE(queue != nullptr);
    CU_REQUIRE(element != nullptr);

    *element = takeLast(queue);
    return 0;
}

cu_ErrorCode cu_Queue_peekHead(const cu_Queue* queue, void** element)
{
    CU_REQUIRE(queue != nullptr);
    CU_REQUIRE(element != nullptr);

    *element = isEmpty(queue) ? nullptr : queue->head.chunk->elements[queue->head.place];
    return 0;
}

cu_ErrorCode cu_Queue_peekTail(const cu_Queue* queue, void** element)
{
    CU_REQUIRE(queue != nullptr);
    CU_REQUIRE(element != nullptr);

    *element = isEmpty(queue) ? nullptr : queue->tail.chunk->elements[queue->tail.place - 1];
    return 0;
}

cu_ErrorCode cu_Queue_isEmpty(const cu_Queue* queue, bool* empty)
{
    CU_REQUIRE(queue != nullptr);
    CU_REQUIRE(empty != nullptr);

    *empty = isEmpty(queue);
    return 0;
}
