/** @file
 *  What every header needs: fixed-width types, the error-code type and the export attributes.
 */
#ifndef CUTIL_TYPES_H
#define CUTIL_TYPES_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

/** Marks what the shared object lets out. */
#define CU_EXPORT __attribute__((__visibility__("default")))

/** Lets the compiler check the arguments of a printf-like function (positions count from 1; first 0: a va_list). */
#define CU_PRINTF(text, first) __attribute__((__format__(__printf__, text, first)))

#ifdef __cplusplus
#define CU_BEGIN_DECLS extern "C" { /**< Opens the C declarations of a header. */
#define CU_END_DECLS }              /**< Closes the C declarations of a header. */
#else
#define CU_BEGIN_DECLS /**< Opens the C declarations of a header. */
#define CU_END_DECLS   /**< Closes the C declarations of a header. */
#endif

/** An error code: bits 31..24 name the component, bits 23..0 the error within it; 0 is success. See errorCodes.h. */
typedef uint32_t cu_ErrorCode;

#endif
