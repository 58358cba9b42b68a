/** @file
 *  A stream over a ring buffer. It never waits: a write fails with cu_ERROR_BUFFER_OVERRUN when the ring has no room
 * for all bytes, and a read fails with the same code when the ring has not got as many. It has space for what is less
 * than the free bytes, not for as many as them. A question for data does not use its time-out.
 *
 *  Threads: as the ring buffer's, one writes and one reads, or as many as it has locks for.
 */
#ifndef CUTIL_BUFFERSTREAM_H
#define CUTIL_BUFFERSTREAM_H

#include <cUtil/iStream.h>
#include <cUtil/ringBuffer.h>

CU_BEGIN_DECLS

/**
 * Fills a table with the operations of a ring buffer.
 *
 * @param stream      receives the table
 * @param ringBuffer  the ring buffer; it is the stream's from here on
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_BufferStream_new(cu_IStream* stream, cu_RingBuffer* ringBuffer);

CU_END_DECLS

#endif
