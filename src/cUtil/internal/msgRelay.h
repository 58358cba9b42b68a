// A message server's frames on their way between its clients and the pipe to its application.
#pragma once

#include "internal/hashTable.h"
#include "internal/msgEndpoint.h"
#include "internal/readAhead.h"

#include <cUtil/network/msgServer.h>
#include <cUtil/network/tcpServerSocket.h>

#include <pthread.h>

namespace cu::internal
{

constexpr uint32_t oneRead = 65536;                 ///< bytes at most, so that everybody has a turn
constexpr uint64_t mostForOne = uint64_t{16} << 20; ///< bytes that wait for one client while more are taken for it

struct KnownEndpoint {
    const void* key; ///< the number
    Endpoint* endpoint;
};

inline uint32_t hashOfNumber(const void* number)
{
    return *static_cast<const uint32_t*>(number);
}

inline int32_t areNumbersEqual(const void* a, const void* b)
{
    return hashOfNumber(a) == hashOfNumber(b) ? 1 : 0;
}

template <typename Link>
Endpoint* endpointOf(RingLink* link)
{
    return &static_cast<Endpoint&>(static_cast<Link&>(*link));
}

} // namespace cu::internal

// What is not the application's belongs to the thread.
struct cu_MSGServer {
    cu_allocator* allocator;
    cu_TCPServerSocket* listener;
    cu_TCPSocket* application;         // the application's end of the pipe
    cu_TCPSocket* pipe;                // the thread's end
    cu::internal::KnownLink endpoints; // the newest first
    uint32_t nextNumber;
    pthread_t thread;
    cu::internal::ReadAhead ahead; // the application's

    int32_t epoll; // a descriptor
    cu::internal::HashTable<cu::internal::KnownEndpoint> numbers{cu::internal::hashOfNumber,
                                                                 cu::internal::areNumbersEqual};
    cu::internal::ReadableLink readable; // endpoints from which there may be something to read
    cu::internal::KnownLink dropped;     // endpoints that are to be deleted
    cu::internal::Direction in;
    cu::internal::Direction out;
    int64_t lastTick;

    bool connectionWaits;
    int64_t pausedSince; // monotonic time at which descriptors were exhausted; 0: they are not

    bool isPipeReadable;
    bool hasPipeEnded; // there is an end behind the bytes that can be read
    bool isPipeFull;
    bool isApplicationGone; // nothing more will come

    // The record that is coming from the application.
    cu::internal::RecordHead head;
    uint32_t headSize;
    uint32_t left;
    cu::internal::Endpoint* target; // null: nobody

    cu::internal::Endpoint* crowded; // the last one for which more waited than may for one, or null

    // Records for the application: large ones, then those that were read at once, which stand at the front of `back`.
    cu::internal::ByteQueue large;
    cu::internal::ByteStock largeStock;
    uint32_t backBegin;
    uint32_t backEnd;
    uint8_t back[std::size_t{2} * cu::internal::oneRead + sizeof(cu::internal::RecordHead)];
    uint8_t front[cu::internal::oneRead];
};

namespace cu::internal
{

/// Null if there is none.
Endpoint* findEndpoint(const cu_MSGServer* me, uint32_t number);

/// Nothing refers to the endpoint from here on; it is deleted when the round is over.
void dropEndpoint(cu_MSGServer* me, Endpoint* endpoint);

/// What a server's stocks do for memory: drops the endpoint for which most waits, unless that is the one that asks.
bool dropForRoom(void* server, const ByteQueue& asker);

/// Passes on what the application sent.
void cu_internal_handleFrontend(cu_MSGServer* me);

/// Reads what clients sent, from each of them once, until the application must receive first.
void cu_internal_handleBackend(cu_MSGServer* me);

/// Sends the records that are ready to the application, as far as the system takes them; tells whether it took all.
bool flushPipe(cu_MSGServer* me);

} // namespace cu::internal
