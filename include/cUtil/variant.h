/** @file
 *  A value of one of many types: nothing, a boolean, a number, a text, bytes, or a vector of further values.
 *
 *  A variant is a plain record of its caller. cu_Variant_init() makes it fit for use, cu_Variant_free() ends it; in
 *  between it owns its text, its bytes and its elements, and whatever sets, converts or overwrites it releases them.
 *  What a setter is given may lie in the variant that is set. Assigning one record to another does not copy what it
 *  owns: use cu_Variant_clone().
 *
 *  Every function returns 0 or an error code: cu_ERROR_COM_INVALID_ARGUMENT for a null argument that is not said to be
 *  allowed, cu_ERROR_COM_INVARIANT with a text for a type that does not exist.
 *
 *  Cloning, freeing and comparing go down into vectors of vectors by calling themselves, which takes some hundred
 *  bytes of stack for each level. Who builds vectors from foreign data must limit their depth.
 *
 *  Variants are not locked: one thread at a time per variant, except that any number may read one that nobody changes.
 *  Nothing blocks beyond the lock of the heap.
 */
#ifndef CUTIL_VARIANT_H
#define CUTIL_VARIANT_H

#include <cUtil/types.h>

CU_BEGIN_DECLS

/** What a variant holds: one of the `cu_VARIANT_` constants. */
typedef uint32_t cu_VariantType;

enum {
    cu_VARIANT_NULL = 0,    /**< Nothing. */
    cu_VARIANT_BOOL = 1,    /**< A boolean. */
    cu_VARIANT_SINT8 = 2,   /**< A signed integer of 8 bits. */
    cu_VARIANT_UINT8 = 3,   /**< An unsigned integer of 8 bits. */
    cu_VARIANT_SINT16 = 4,  /**< A signed integer of 16 bits. */
    cu_VARIANT_UINT16 = 5,  /**< An unsigned integer of 16 bits. */
    cu_VARIANT_SINT32 = 6,  /**< A signed integer of 32 bits. */
    cu_VARIANT_UINT32 = 7,  /**< An unsigned integer of 32 bits. */
    cu_VARIANT_SINT64 = 8,  /**< A signed integer of 64 bits. */
    cu_VARIANT_UINT64 = 9,  /**< An unsigned integer of 64 bits. */
    cu_VARIANT_IEEE32 = 10, /**< An IEEE 754 single. */
    cu_VARIANT_IEEE64 = 11, /**< An IEEE 754 double. */
    cu_VARIANT_STRING = 12, /**< A NUL-terminated text. */
    cu_VARIANT_BINARY = 13, /**< Bytes. */
    cu_VARIANT_VECTOR = 14  /**< An array of variants. */
};

struct cu_Variant;

/** Bytes and their number. */
typedef struct cu_VariantBinary {
    uint8_t* data;   /**< Null when the variant was set without bytes, whatever the length. */
    uint32_t length; /**< In bytes. */
} cu_VariantBinary;

/** Variants and their number. */
typedef struct cu_VariantVector {
    struct cu_Variant* items; /**< An array. */
    uint32_t count;           /**< Its elements. */
} cu_VariantVector;

/** The member that counts is the one that the variant's type names. */
typedef union __attribute__((__aligned__(8))) cu_VariantValue {
    uint8_t boolean;         /**< 0 or 1. */
    int8_t sint8;            /**< See cu_VARIANT_SINT8. */
    uint8_t uint8;           /**< See cu_VARIANT_UINT8. */
    int16_t sint16;          /**< See cu_VARIANT_SINT16. */
    uint16_t uint16;         /**< See cu_VARIANT_UINT16. */
    int32_t sint32;          /**< See cu_VARIANT_SINT32. */
    uint32_t uint32;         /**< See cu_VARIANT_UINT32. */
    int64_t sint64;          /**< See cu_VARIANT_SINT64. */
    uint64_t uint64;         /**< See cu_VARIANT_UINT64. */
    float ieee32;            /**< See cu_VARIANT_IEEE32. */
    double ieee64;           /**< See cu_VARIANT_IEEE64. */
    char* string;            /**< On the heap, never null. */
    cu_VariantBinary binary; /**< On the heap. */
    cu_VariantVector vector; /**< On the heap. */
} cu_VariantValue;

/** A value and its type. */
typedef struct cu_Variant {
    cu_VariantType type;   /**< What it holds. */
    cu_VariantValue value; /**< Undefined while the type is cu_VARIANT_NULL. */
} cu_Variant;

/** @name Life */
/** @{ */

/** Makes a record a null variant; what it held is neither looked at nor released. */
CU_EXPORT cu_ErrorCode cu_Variant_init(cu_Variant* variant);

/**
 * Releases what a variant owns, elements of elements included, and makes it null.
 *
 * @param variant  an initialised variant, which may be used again afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT, also when a vector says that it has elements and has no array
 */
CU_EXPORT cu_ErrorCode cu_Variant_free(cu_Variant* variant);

/** Tells what a variant holds. @return 0; cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_Variant_getType(const cu_Variant* variant, cu_VariantType* type);

/**
 * Makes a variant a copy of another one, of its text, bytes and elements, too.
 *
 * @param destination  an initialised variant; after a failure it is null
 * @param source       any variant, also one that @p destination owns
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT, also for a vector without elements; cu_ERROR_COM_INVARIANT;
 *         cu_ERROR_COM_MALLOC_FAILED
 */
CU_EXPORT cu_ErrorCode cu_Variant_clone(cu_Variant* destination, const cu_Variant* source);

/** @} */
/** @name Setting
 *  Each releases what the variant held and stores a value with its type.
 *  @return 0; cu_ERROR_COM_INVALID_ARGUMENT */
/** @{ */

CU_EXPORT cu_ErrorCode cu_Variant_set_bool(cu_Variant* variant, bool value);       /**< Stores a boolean. */
CU_EXPORT cu_ErrorCode cu_Variant_set_sint8(cu_Variant* variant, int8_t value);    /**< Stores 8 bits, signed. */
CU_EXPORT cu_ErrorCode cu_Variant_set_uint8(cu_Variant* variant, uint8_t value);   /**< Stores 8 bits. */
CU_EXPORT cu_ErrorCode cu_Variant_set_sint16(cu_Variant* variant, int16_t value);  /**< Stores 16 bits, signed. */
CU_EXPORT cu_ErrorCode cu_Variant_set_uint16(cu_Variant* variant, uint16_t value); /**< Stores 16 bits. */
CU_EXPORT cu_ErrorCode cu_Variant_set_sint32(cu_Variant* variant, int32_t value);  /**< Stores 32 bits, signed. */
CU_EXPORT cu_ErrorCode cu_Variant_set_uint32(cu_Variant* variant, uint32_t value); /**< Stores 32 bits. */
CU_EXPORT cu_ErrorCode cu_Variant_set_sint64(cu_Variant* variant, int64_t value);  /**< Stores 64 bits, signed. */
CU_EXPORT cu_ErrorCode cu_Variant_set_uint64(cu_Variant* variant, uint64_t value); /**< Stores 64 bits. */
CU_EXPORT cu_ErrorCode cu_Variant_set_ieee32(cu_Variant* variant, float value);    /**< Stores a single. */
CU_EXPORT cu_ErrorCode cu_Variant_set_ieee64(cu_Variant* variant, double value);   /**< Stores a double. */

/**
 * Stores a copy of a text.
 *
 * @param variant  an initialised variant
 * @param text     may lie in @p variant
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT, and a null text changes nothing; cu_ERROR_COM_MALLOC_FAILED, and then the
 *         variant is null
 */
CU_EXPORT cu_ErrorCode cu_Variant_set_string(cu_Variant* variant, const char* text);

/**
 * Stores a copy of some bytes.
 *
 * @param variant  an initialised variant
 * @param data     may lie in @p variant. Null: the variant has no bytes, but remembers the length.
 * @param length   in bytes
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED, and then the variant is null
 */
CU_EXPORT cu_ErrorCode cu_Variant_set_binary(cu_Variant* variant, const uint8_t* data, uint32_t length);

/**
 * Stores copies of some variants, made by cu_Variant_clone() in the order of the array.
 *
 * @param variant  an initialised variant
 * @param items    an array, which may lie in @p variant
 * @param count    its elements, not 0
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT for no elements, which changes nothing; what the cloning says, or
 *         cu_ERROR_COM_MALLOC_FAILED, and then the variant is null
 */
CU_EXPORT cu_ErrorCode cu_Variant_set_vector(cu_Variant* variant, const cu_Variant* items, uint32_t count);

/** @} */
/** @name Getting
 *  Each copies the value of a variant of its own type; none converts. What is owned by the variant is lent: it is valid
 *  until the variant is set, converted or freed.
 *  @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_INVARIANT when the variant is of another type */
/** @{ */

CU_EXPORT cu_ErrorCode cu_Variant_get_bool(const cu_Variant* variant, bool* value);       /**< Gets a boolean. */
CU_EXPORT cu_ErrorCode cu_Variant_get_sint8(const cu_Variant* variant, int8_t* value);    /**< Gets 8 bits, signed. */
CU_EXPORT cu_ErrorCode cu_Variant_get_uint8(const cu_Variant* variant, uint8_t* value);   /**< Gets 8 bits. */
CU_EXPORT cu_ErrorCode cu_Variant_get_sint16(const cu_Variant* variant, int16_t* value);  /**< Gets 16 bits, signed. */
CU_EXPORT cu_ErrorCode cu_Variant_get_uint16(const cu_Variant* variant, uint16_t* value); /**< Gets 16 bits. */
CU_EXPORT cu_ErrorCode cu_Variant_get_sint32(const cu_Variant* variant, int32_t* value);  /**< Gets 32 bits, signed. */
CU_EXPORT cu_ErrorCode cu_Variant_get_uint32(const cu_Variant* variant, uint32_t* value); /**< Gets 32 bits. */
CU_EXPORT cu_ErrorCode cu_Variant_get_sint64(const cu_Variant* variant, int64_t* value);  /**< Gets 64 bits, signed. */
CU_EXPORT cu_ErrorCode cu_Variant_get_uint64(const cu_Variant* variant, uint64_t* value); /**< Gets 64 bits. */
CU_EXPORT cu_ErrorCode cu_Variant_get_ieee32(const cu_Variant* variant, float* value);    /**< Gets a single. */
CU_EXPORT cu_ErrorCode cu_Variant_get_ieee64(const cu_Variant* variant, double* value);   /**< Gets a double. */
CU_EXPORT cu_ErrorCode cu_Variant_get_string(const cu_Variant* variant, const char** text); /**< Lends the text. */
/** Lends the bytes and their number. */
CU_EXPORT cu_ErrorCode cu_Variant_get_binary(const cu_Variant* variant, const cu_VariantBinary** binary);
/** Lends the elements and their number. */
CU_EXPORT cu_ErrorCode cu_Variant_get_vector(const cu_Variant* variant, const cu_VariantVector** vector);

/** @} */
/** @name Converting
 *  Each gives a variant another type and the value that corresponds, or fails and leaves it as it was; a variant that
 *  has the type already is not touched. Null, bytes and vectors become nothing else.
 *
 *  A number becomes
 *  - a boolean: whether it is not 0 (a NaN is not);
 *  - an integer: itself, if it is within the range of the type. The test of a single or double comes before its
 *    fraction is cut off, so 127.5 is no 8-bit integer and -0.5 no unsigned one. It is made with the limits of the type
 *    as the single or double has them: a single of 2^31, 2^32, 2^63 or 2^64 and a double of 2^63 or 2^64 pass as
 *    maximum of the type, and become it. A NaN becomes 0;
 *  - a single or double: the nearest one, rounded once; beyond the range of a single, an infinity;
 *  - a text: its decimal digits; with six decimals if it is a single or double, behind the decimal point of the
 *    locale in force.
 *
 *  A boolean is the number 0 or 1, and the text "false" or "true".
 *
 *  A text becomes what the `cu_Convert_` function of the type reads in it, with base 0; or its own characters without
 *  the NUL, as bytes.
 *
 *  @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_INVARIANT; cu_ERROR_CONVERSION_FAILED; what the `cu_Convert_`
 *  function says */
/** @{ */

/**
 * Converts to a type that is given as a value.
 *
 * @param variant  an initialised variant
 * @param type     what it is to become
 * @return what the function of the type says; cu_ERROR_COM_INVARIANT for a type that does not exist, with a text that
 *         tells the type of @p variant
 */
CU_EXPORT cu_ErrorCode cu_Variant_convert(cu_Variant* variant, cu_VariantType type);

CU_EXPORT cu_ErrorCode cu_Variant_convert_null(cu_Variant* variant);   /**< As cu_Variant_free(), from every type. */
CU_EXPORT cu_ErrorCode cu_Variant_convert_bool(cu_Variant* variant);   /**< Makes it a boolean. */
CU_EXPORT cu_ErrorCode cu_Variant_convert_sint8(cu_Variant* variant);  /**< Makes it 8 bits, signed. */
CU_EXPORT cu_ErrorCode cu_Variant_convert_uint8(cu_Variant* variant);  /**< Makes it 8 bits. */
CU_EXPORT cu_ErrorCode cu_Variant_convert_sint16(cu_Variant* variant); /**< Makes it 16 bits, signed. */
CU_EXPORT cu_ErrorCode cu_Variant_convert_uint16(cu_Variant* variant); /**< Makes it 16 bits. */
CU_EXPORT cu_ErrorCode cu_Variant_convert_sint32(cu_Variant* variant); /**< Makes it 32 bits, signed. */
CU_EXPORT cu_ErrorCode cu_Variant_convert_uint32(cu_Variant* variant); /**< Makes it 32 bits. */
CU_EXPORT cu_ErrorCode cu_Variant_convert_sint64(cu_Variant* variant); /**< Makes it 64 bits, signed. */
CU_EXPORT cu_ErrorCode cu_Variant_convert_uint64(cu_Variant* variant); /**< Makes it 64 bits. */
CU_EXPORT cu_ErrorCode cu_Variant_convert_ieee32(cu_Variant* variant); /**< Makes it a single. */
CU_EXPORT cu_ErrorCode cu_Variant_convert_ieee64(cu_Variant* variant); /**< Makes it a double. */
/** Makes it a text. @return as above, or cu_ERROR_COM_MALLOC_FAILED */
CU_EXPORT cu_ErrorCode cu_Variant_convert_string(cu_Variant* variant);
CU_EXPORT cu_ErrorCode cu_Variant_convert_binary(cu_Variant* variant); /**< Makes a text its bytes, in place. */
CU_EXPORT cu_ErrorCode cu_Variant_convert_vector(cu_Variant* variant); /**< Fails, unless it is a vector. */

/** @} */

/**
 * Says whether a variant comes before another one: by type, in the order of the constants, then by value.
 *
 * Numbers compare as numbers (a NaN comes neither before nor after anything), texts as `strcmp` has it, bytes by
 * length, then as `memcmp` has it, vectors by their number of elements, then by the first two that differ. Of two byte
 * variants of equal length one that has no bytes comes first.
 *
 * @param result  receives the answer; not written for two vectors without elements, and after a failure
 * @param a       a variant
 * @param b       another, or the same
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_INVARIANT
 */
CU_EXPORT cu_ErrorCode cu_Variant_lessThan(bool* result, const cu_Variant* a, const cu_Variant* b);

CU_END_DECLS

#endif
