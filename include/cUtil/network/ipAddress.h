/** @file
 *  IPv4 addresses: numbers in host byte order, read from dotted quads and looked up by name.
 *
 *  Threads: every call may be made by several threads at once.
 */
#ifndef CUTIL_NETWORK_IPADDRESS_H
#define CUTIL_NETWORK_IPADDRESS_H

#include <cUtil/types.h>

CU_BEGIN_DECLS

extern CU_EXPORT const uint32_t CU_IP_ADDRESS_ANY;       /**< 0.0.0.0 */
extern CU_EXPORT const uint32_t CU_IP_ADDRESS_BROADCAST; /**< 255.255.255.255 */
extern CU_EXPORT const uint32_t CU_IP_ADDRESS_LOCAL;     /**< 127.0.0.1 */

/**
 * Reads an address from its text, in the forms that inet_addr() knows: "10.0.0.1", but also "10.1" and "0x0A000001".
 *
 * @param text     the text, not empty; "255.255.255.255" cannot be translated
 * @param address  receives the address; 0 after cu_ERROR_IP_ADDRESS_TRANSLATION
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_IP_ADDRESS_TRANSLATION
 */
CU_EXPORT cu_ErrorCode cu_IPAddress_translate(const char* text, uint32_t* address);

/**
 * Reads an address from its text or, if it is none, looks a host up by its name. May block for as long as the system's
 * resolver takes.
 *
 * @param name     the text or name, not empty
 * @param address  receives the first address of the host
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_IP_ADDRESS_TRANSLATION; cu_ERROR_COM_MALLOC_FAILED
 */
CU_EXPORT cu_ErrorCode cu_IPAddress_lookup(const char* name, uint32_t* address);

CU_END_DECLS

#endif
