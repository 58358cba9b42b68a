/** @file
 *  A growable buffer of bytes with one cursor: messages are built front to back by writes and parsed by reads. Beside
 *  raw bytes there are three encodings with a length in front, an unsigned 32-bit number, most significant byte first,
 *  without padding, terminator or alignment:
 *
 *  | Encoding | Bytes |
 *  |---|---|
 *  | string | length L, then L characters without a NUL |
 *  | nested message | its size L, then its L bytes; its cursor is not sent |
 *  | vector | length N, then N bytes |
 *
 *  Threads: a message belongs to one thread at a time. No call blocks.
 */
#ifndef CUTIL_NETWORK_MESSAGE_H
#define CUTIL_NETWORK_MESSAGE_H

#include <cUtil/allocator.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A message: so many valid bytes, a cursor, and room that grows as bytes are written. */
typedef struct cu_Message cu_Message;

/**
 * Makes an empty message.
 *
 * @param msg        receives the message; must hold null
 * @param capacity   bytes of room to begin with; 0 stands for 64
 * @param allocator  gives the memory of the message and its bytes; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; what the allocator fails with
 */
CU_EXPORT cu_ErrorCode cu_Message_new(cu_Message** msg, uint32_t capacity, cu_allocator* allocator);

/**
 * Makes a message with the bytes, the cursor, the room and the allocator of another one.
 *
 * @param dst  receives the copy; must hold null
 * @param src  the message to copy
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; what the allocator fails with
 */
CU_EXPORT cu_ErrorCode cu_Message_clone(cu_Message** dst, const cu_Message* src);

/**
 * Gives a message and its bytes back to its allocator. If that fails, the process ends with status 1.
 *
 * @param msg  the message; becomes null
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_Message_delete(cu_Message** msg);

/**
 * @param msg   a message
 * @param data  receives its bytes, which stay the message's and may move as it grows
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_Message_get(const cu_Message* msg, uint8_t** data);

/**
 * @param msg   a message
 * @param size  receives the number of its bytes
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_Message_getSize(const cu_Message* msg, uint32_t* size);

/**
 * @param msg       a message
 * @param position  receives where its cursor stands
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_Message_tell(const cu_Message* msg, uint32_t* position);

/**
 * Moves the cursor.
 *
 * @param msg       a message
 * @param position  where to, at most the size of the message
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_Message_seek(cu_Message* msg, uint32_t position);

/**
 * Copies bytes from the cursor on and moves it behind them.
 *
 * @param msg  a message
 * @param out  receives the bytes
 * @param n    how many, not 0 and no more than are left
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT, the cursor stays
 */
CU_EXPORT cu_ErrorCode cu_Message_read(cu_Message* msg, void* out, uint32_t n);

/** cu_Message_read() without moving the cursor. */
CU_EXPORT cu_ErrorCode cu_Message_peek(const cu_Message* msg, void* out, uint32_t n);

/**
 * Puts bytes at the cursor and moves it behind them. The message ends there: what followed the cursor is gone.
 *
 * Room grows by doubling up to 4096 bytes and by 4096 from there on.
 *
 * @param msg  a message
 * @param in   the bytes, which may be the message's own
 * @param n    how many, not 0
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED where the message would have 2^32 bytes or more;
 *         what the allocator fails with. After a failure the message is as it was.
 */
CU_EXPORT cu_ErrorCode cu_Message_write(cu_Message* msg, const void* in, uint32_t n);

/**
 * Gives back the room that is not used; 64 bytes of it stay.
 *
 * @param msg  a message
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; what the allocator fails with
 */
CU_EXPORT cu_ErrorCode cu_Message_trim(cu_Message* msg);

/**
 * Makes room.
 *
 * @param msg  a message
 * @param n    bytes of room that there shall be at least
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; what the allocator fails with
 */
CU_EXPORT cu_ErrorCode cu_Message_reserve(cu_Message* msg, uint32_t n);

/**
 * Sets the number of valid bytes; new ones are what lies there. The cursor stays, even behind the end, where nothing
 * can be read.
 *
 * @param msg  a message
 * @param n    the number of bytes, at most the room that there is
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_Message_resize(cu_Message* msg, uint32_t n);

/**
 * Writes a string: its length, then its characters.
 *
 * @param msg  a message
 * @param s    the text, which may be the empty one
 * @return as cu_Message_write()
 */
CU_EXPORT cu_ErrorCode cu_Message_writeString(cu_Message* msg, const char* s);

/**
 * Reads a string. Nothing is allocated for a length that is not there.
 *
 * @param msg  a message
 * @param s    null or a block of cu_safeMalloc(), which is resized; receives the text with its NUL, the caller's to
 * free
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT, also when less is left than the length tells; cu_ERROR_COM_MALLOC_FAILED.
 *         A failure after the length leaves the cursor behind that.
 */
CU_EXPORT cu_ErrorCode cu_Message_readString(cu_Message* msg, char** s);

/**
 * Writes another message: its size, then its bytes.
 *
 * @param msg    a message
 * @param inner  the one to write, which may be the same. An empty one cannot be sent: its length is written, then the
 *               call fails.
 * @return as cu_Message_write()
 */
CU_EXPORT cu_ErrorCode cu_Message_writeMessage(cu_Message* msg, const cu_Message* inner);

/**
 * Reads a nested message. Nothing is allocated for a length that is not there.
 *
 * @param msg    a message
 * @param inner  receives the nested one, its cursor at the start; must hold null. It has the shared heap allocator.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT, also when less is left than the length tells, or the length is 0; what the
 *         allocator fails with. A failure after the length leaves the cursor behind that.
 */
CU_EXPORT cu_ErrorCode cu_Message_readMessage(cu_Message* msg, cu_Message** inner);

/**
 * Writes a vector: its length, then its bytes. It is read by cu_Message_read().
 *
 * @param msg    a message
 * @param bytes  the bytes
 * @param n      how many, not 0
 * @return as cu_Message_write()
 */
CU_EXPORT cu_ErrorCode cu_Message_writeVector(cu_Message* msg, const void* bytes, uint32_t n);

/**
 * Compares by size, and equal sizes by content.
 *
 * @param a       a message
 * @param b       another one
 * @param result  receives -1 or 1 when `a` is shorter or longer, otherwise what memcmp() gives, of any amount
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_Message_compare(const cu_Message* a, const cu_Message* b, int32_t* result);

CU_END_DECLS

#endif
