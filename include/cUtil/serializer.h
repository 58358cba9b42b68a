/** @file
 *  Numbers as bytes in network order, the most significant one first, over whatever takes or gives bytes: a file, a
 *  socket, a buffer. The application fills a table of operations; the calls here turn values into bytes and back.
 *
 *  Integers are in two's complement, floating-point numbers in the formats of IEEE 754, bit for bit, NaNs too. Nothing
 *  else is in the stream, no type, no length and no padding: who reads must know what was written.
 *
 *  The calls are as thread-safe and as blocking as the operations of the table.
 */
#ifndef CUTIL_SERIALIZER_H
#define CUTIL_SERIALIZER_H

#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A sink or a source of bytes, or both, filled by the application. */
typedef struct cu_Serializer {
    /** First argument of every operation. */
    void* context;
    /** Takes @p size bytes. Without it the table can neither write nor read. */
    cu_ErrorCode (*write)(void* context, const void* data, uint32_t size);
    /** Gives exactly @p size bytes or fails. A table that is read from must have it: nobody checks. */
    cu_ErrorCode (*read)(void* context, void* data, uint32_t size);
    /** Releases what the context holds. */
    cu_ErrorCode (*destruct)(void* context);
} cu_Serializer;

/**
 * Writes bytes as they are.
 *
 * @param serializer  the table; it must have the write operation
 * @param data        the bytes
 * @param size        their number, not 0
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the write operation says
 */
CU_EXPORT cu_ErrorCode cu_Serializer_write(const cu_Serializer* serializer, const void* data, uint32_t size);

/**
 * Reads bytes as they are.
 *
 * @param serializer  the table; it must have the read operation, and is refused when it lacks the write operation
 * @param data        receives the bytes
 * @param size        their number, not 0
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the read operation says
 */
CU_EXPORT cu_ErrorCode cu_Serializer_read(const cu_Serializer* serializer, void* data, uint32_t size);

/**
 * @name Writing values
 *
 * @param serializer  as for cu_Serializer_write()
 * @param value       the value
 * @return what cu_Serializer_write() returns
 * @{
 */
/** Writes a signed 8-bit integer, 1 byte. */
CU_EXPORT cu_ErrorCode cu_Serializer_writeS8(const cu_Serializer* serializer, int8_t value);
/** Writes an unsigned 8-bit integer, 1 byte. */
CU_EXPORT cu_ErrorCode cu_Serializer_writeU8(const cu_Serializer* serializer, uint8_t value);
/** Writes a signed 16-bit integer, 2 bytes. */
CU_EXPORT cu_ErrorCode cu_Serializer_writeS16(const cu_Serializer* serializer, int16_t value);
/** Writes an unsigned 16-bit integer, 2 bytes. */
CU_EXPORT cu_ErrorCode cu_Serializer_writeU16(const cu_Serializer* serializer, uint16_t value);
/** Writes a signed 32-bit integer, 4 bytes. */
CU_EXPORT cu_ErrorCode cu_Serializer_writeS32(const cu_Serializer* serializer, int32_t value);
/** Writes an unsigned 32-bit integer, 4 bytes. */
CU_EXPORT cu_ErrorCode cu_Serializer_writeU32(const cu_Serializer* serializer, uint32_t value);
/** Writes a signed 64-bit integer, 8 bytes. */
CU_EXPORT cu_ErrorCode cu_Serializer_writeS64(const cu_Serializer* serializer, int64_t value);
/** Writes an unsigned 64-bit integer, 8 bytes. */
CU_EXPORT cu_ErrorCode cu_Serializer_writeU64(const cu_Serializer* serializer, uint64_t value);
/** Writes a single-precision number, 4 bytes. */
CU_EXPORT cu_ErrorCode cu_Serializer_writeIEEE32(const cu_Serializer* serializer, float value);
/** Writes a double-precision number, 8 bytes. */
CU_EXPORT cu_ErrorCode cu_Serializer_writeIEEE64(const cu_Serializer* serializer, double value);
/** @} */

/**
 * @name Reading values
 *
 * @param serializer  as for cu_Serializer_read()
 * @param value       receives the value; after a failure it holds what the read operation left there
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the read operation says
 * @{
 */
/** Reads a signed 8-bit integer, 1 byte. */
CU_EXPORT cu_ErrorCode cu_Serializer_readS8(const cu_Serializer* serializer, int8_t* value);
/** Reads an unsigned 8-bit integer, 1 byte. */
CU_EXPORT cu_ErrorCode cu_Serializer_readU8(const cu_Serializer* serializer, uint8_t* value);
/** Reads a signed 16-bit integer, 2 bytes. */
CU_EXPORT cu_ErrorCode cu_Serializer_readS16(const cu_Serializer* serializer, int16_t* value);
/** Reads an unsigned 16-bit integer, 2 bytes. */
CU_EXPORT cu_ErrorCode cu_Serializer_readU16(const cu_Serializer* serializer, uint16_t* value);
/** Reads a signed 32-bit integer, 4 bytes. */
CU_EXPORT cu_ErrorCode cu_Serializer_readS32(const cu_Serializer* serializer, int32_t* value);
/** Reads an unsigned 32-bit integer, 4 bytes. */
CU_EXPORT cu_ErrorCode cu_Serializer_readU32(const cu_Serializer* serializer, uint32_t* value);
/** Reads a signed 64-bit integer, 8 bytes. */
CU_EXPORT cu_ErrorCode cu_Serializer_readS64(const cu_Serializer* serializer, int64_t* value);
/** Reads an unsigned 64-bit integer, 8 bytes. */
CU_EXPORT cu_ErrorCode cu_Serializer_readU64(const cu_Serializer* serializer, uint64_t* value);
/** Reads a single-precision number, 4 bytes. */
CU_EXPORT cu_ErrorCode cu_Serializer_readIEEE32(const cu_Serializer* serializer, float* value);
/** Reads a double-precision number, 8 bytes. */
CU_EXPORT cu_ErrorCode cu_Serializer_readIEEE64(const cu_Serializer* serializer, double* value);
/** @} */

/**
 * Ends a sink or source by its destruct operation. The table itself stays the caller's.
 *
 * @param handle  holds the table, which must have the operation; null afterwards, unchanged on failure
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the operation says
 */
CU_EXPORT cu_ErrorCode cu_Serializer_destruct(cu_Serializer** handle);

CU_END_DECLS

#endif
