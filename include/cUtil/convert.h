/** @file
 *  Texts to numbers.
 *
 *  Each function reads one NUL-terminated text as a whole into one value of a fixed type, with the same result on every
 *  host and in every locale.
 *
 *  Integers are read as `strtol` and its kin read them on a host whose type is as wide as the result: white space, a
 *  sign, and digits of the base. With base 0 a leading "0x" makes them hexadecimal and a leading "0" octal; base 16
 *  allows a leading "0x". A fraction of zeros may follow ("12.0" is 12, but "12." fails). An unsigned member refuses a
 *  text that begins with '-'; behind white space the sign negates, and the value wraps around (" -1" is the largest
 * one).
 *
 *  Floating-point numbers are read as `strtod` reads them in the "C" locale: decimal or hexadecimal, with a point,
 *  rounded correctly in the thread's rounding mode; "inf" and "nan" with their variants are taken, too. The process's
 *  locale is neither used nor changed.
 *
 *  `errno` is used as the standard functions use it: 0 after a success, except for a floating-point number that
 *  underflows (ERANGE).
 *
 *  Any thread may call any function at any time. Nothing blocks, and memory is only asked for when an integer's text is
 *  longer than 255 characters.
 */
#ifndef CUTIL_CONVERT_H
#define CUTIL_CONVERT_H

#include <cUtil/types.h>

CU_BEGIN_DECLS

/**
 * Reads a boolean.
 *
 * @param out   receives the value; left alone on failure
 * @param text  "0", "1", or "false", "true" in letters of either case; nothing before or behind
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_CONVERSION_FAILED for any other text
 */
CU_EXPORT cu_ErrorCode cu_Convert_bool(bool* out, const char* text);

/**
 * Takes the first character of a text.
 *
 * @param out   receives the character
 * @param text  the text, not empty; what follows its first character is ignored
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_Convert_char(char* out, const char* text);

/**
 * Reads an integer from -128 to 127.
 *
 * @param out   receives the value; left alone on failure
 * @param base  2 to 36, or 0 for the base that the text itself tells
 * @param text  the number; not empty
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_CONVERSION_FAILED when the text is no such number, is out of range
 *         or goes on behind it, or the base is bad; cu_ERROR_COM_MALLOC_FAILED for a text above 255 characters
 */
CU_EXPORT cu_ErrorCode cu_Convert_sint8(int8_t* out, int32_t base, const char* text);

/** As cu_Convert_sint8(), from 0 to 255. */
CU_EXPORT cu_ErrorCode cu_Convert_uint8(uint8_t* out, int32_t base, const char* text);

/** As cu_Convert_sint8(), from -32768 to 32767; an empty text is 0. */
CU_EXPORT cu_ErrorCode cu_Convert_sint16(int16_t* out, int32_t base, const char* text);

/** As cu_Convert_sint8(), from 0 to 65535; an empty text is 0. */
CU_EXPORT cu_ErrorCode cu_Convert_uint16(uint16_t* out, int32_t base, const char* text);

/**
 * Reads an integer from -2147483648 to 2147483647.
 *
 * @param out   receives the value. On cu_ERROR_CONVERSION_FAILED it receives the number that the text begins with, or
 *              the nearest one in range, as `strtol` gives them.
 * @param base  2 to 36, or 0 for the base that the text itself tells
 * @param text  the number; an empty one is 0
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_CONVERSION_FAILED when the text is no such number, is out of range
 *         or goes on behind it, or the base is bad; cu_ERROR_COM_MALLOC_FAILED for a text above 255 characters
 */
CU_EXPORT cu_ErrorCode cu_Convert_sint32(int32_t* out, int32_t base, const char* text);

/** As cu_Convert_sint32(), from 0 to 4294967295; @p out is left alone when the text begins with '-'. */
CU_EXPORT cu_ErrorCode cu_Convert_uint32(uint32_t* out, int32_t base, const char* text);

/** As cu_Convert_sint32(), from -9223372036854775808 to 9223372036854775807. */
CU_EXPORT cu_ErrorCode cu_Convert_sint64(int64_t* out, int32_t base, const char* text);

/** As cu_Convert_sint32(), from 0 to 18446744073709551615; @p out is left alone when the text begins with '-'. */
CU_EXPORT cu_ErrorCode cu_Convert_uint64(uint64_t* out, int32_t base, const char* text);

/**
 * Reads a floating-point number of double precision.
 *
 * @param out   receives the value. On cu_ERROR_CONVERSION_FAILED it receives the number that the text begins with, or
 *              an infinity, as `strtod` gives them.
 * @param text  the number; an empty one is 0. One that is too small becomes a denormal number or 0.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_CONVERSION_FAILED when the text is no number, is too large or goes
 *         on behind it; cu_ERROR_COM_INVARIANT when the system has no "C" locale
 */
CU_EXPORT cu_ErrorCode cu_Convert_ieee64(double* out, const char* text);

/**
 * Reads a floating-point number of double precision and rounds it to single precision; beyond that range it becomes an
 * infinity.
 *
 * @param out   receives the value; left alone on failure
 * @param text  as for cu_Convert_ieee64()
 * @return as cu_Convert_ieee64(): what is too large for double precision fails
 */
CU_EXPORT cu_ErrorCode cu_Convert_ieee32(float* out, const char* text);

CU_END_DECLS

#endif
