/** @file
 *  Bytes are written and read without knowing where they go: a stream is a table of operations over an object that it
 *  owns. bufferStream.h and network/tcpSocketStream.h fill such tables, and so may an application.
 *
 *  The calls are as thread-safe and as blocking as the operations of the table.
 */
#ifndef CUTIL_ISTREAM_H
#define CUTIL_ISTREAM_H

#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A stream. The record is the caller's, the object behind it the stream's. */
typedef struct cu_IStream {
    /** The object, the first argument of every operation. */
    void* context;
    /** Takes all bytes or fails. */
    cu_ErrorCode (*write)(void* context, const void* bytes, uint32_t count);
    /** Gives as many bytes as are wanted or fails. */
    cu_ErrorCode (*read)(void* context, void* destination, uint32_t count);
    /** Tells whether so many bytes could be written now. */
    cu_ErrorCode (*hasSpaceFor)(void* context, uint32_t count, bool* hasSpace);
    /** Tells whether there is something to read, for which it may wait for so many microseconds. */
    cu_ErrorCode (*hasData)(void* context, uint32_t timeoutUs, bool* hasData);
    /** Sees that what was written is on its way. */
    cu_ErrorCode (*flushWrite)(void* context);
    /** Deletes the object. */
    cu_ErrorCode (*destruct)(void* context);
} cu_IStream;

/**
 * Writes bytes.
 *
 * @param stream  the stream; it must have the operation
 * @param bytes   the bytes
 * @param count   how many
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the operation says
 */
CU_EXPORT cu_ErrorCode cu_IStream_write(const cu_IStream* stream, const void* bytes, uint32_t count);

/**
 * Reads bytes.
 *
 * @param stream       the stream; it must have the operation
 * @param destination  receives the bytes
 * @param count        how many
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the operation says
 */
CU_EXPORT cu_ErrorCode cu_IStream_read(const cu_IStream* stream, void* destination, uint32_t count);

/**
 * Asks whether bytes could be written.
 *
 * @param stream    the stream; it must have the operation
 * @param count     how many
 * @param hasSpace  receives the answer
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the operation says
 */
CU_EXPORT cu_ErrorCode cu_IStream_hasSpaceFor(const cu_IStream* stream, uint32_t count, bool* hasSpace);

/**
 * Asks whether there is something to read.
 *
 * @param stream     the stream; it must have the operation
 * @param timeoutUs  how long it may wait for that, in microseconds; what 0 means depends on the stream
 * @param hasData    receives the answer
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the operation says
 */
CU_EXPORT cu_ErrorCode cu_IStream_hasData(const cu_IStream* stream, uint32_t timeoutUs, bool* hasData);

/**
 * Sees that what was written is on its way.
 *
 * @param stream  the stream; it must have the operation
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the operation says
 */
CU_EXPORT cu_ErrorCode cu_IStream_flushWrite(const cu_IStream* stream);

/**
 * Ends a stream: its object is deleted, and the table must not be used any more.
 *
 * @param stream  the stream; it must have the operation
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the operation says
 */
CU_EXPORT cu_ErrorCode cu_IStream_destruct(const cu_IStream* stream);

CU_END_DECLS

#endif
