/** @file
 *  The version of the library that these headers belong to.
 */
#ifndef CUTIL_VERSION_H
#define CUTIL_VERSION_H

#define CU_VERSION_MAJOR 1        /**< Changes when old binaries no longer run. */
#define CU_VERSION_MINOR 5        /**< Grows with additions. */
#define CU_VERSION_PATCH 5        /**< Grows with corrections. */
#define CU_VERSION_STRING "1.5.5" /**< The three numbers as text. */

#endif
