/** @file
 *  A snapshot of the host's IPv4 interfaces. An interface with several addresses gives several items of the same name;
 *  one without an address, or with the address 0.0.0.0, gives none.
 *
 *  Threads: several threads may read a snapshot at once.
 */
#ifndef CUTIL_NETWORK_IPNETWORKINFO_H
#define CUTIL_NETWORK_IPNETWORKINFO_H

#include <cUtil/allocator.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A snapshot. */
typedef struct cu_IPNetworkInfo cu_IPNetworkInfo;

/** One address of one interface. */
typedef struct cu_IPNetworkInfoItem cu_IPNetworkInfoItem;

/**
 * Takes a snapshot.
 *
 * @param info       receives it; must hold null
 * @param allocator  gives its memory; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_INVARIANT when the system does not tell; what the allocator
 *         fails with
 */
CU_EXPORT cu_ErrorCode cu_IPNetworkInfo_new(cu_IPNetworkInfo** info, cu_allocator* allocator);

/**
 * Ends a snapshot, and with it its items.
 *
 * @param info  the snapshot; becomes null
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; what the allocator fails with
 */
CU_EXPORT cu_ErrorCode cu_IPNetworkInfo_delete(cu_IPNetworkInfo** info);

/**
 * @param info   a snapshot
 * @param count  receives the number of its items, which may be 0
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_IPNetworkInfo_getNumItems(const cu_IPNetworkInfo* info, uint32_t* count);

/**
 * @param info   a snapshot
 * @param index  which item, from 0 on
 * @param item   receives it; it stays the snapshot's
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_IPNetworkInfo_getItem(const cu_IPNetworkInfo* info, uint32_t index,
                                                const cu_IPNetworkInfoItem** item);

/**
 * @param item  an item
 * @param name  receives the name of the interface, such as "eth0"; it stays the snapshot's
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_IPNetworkInfo_getAdapterName(const cu_IPNetworkInfoItem* item, const char** name);

/**
 * @param item     an item
 * @param address  receives the address, in host byte order
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_IPNetworkInfo_getIPAddress(const cu_IPNetworkInfoItem* item, uint32_t* address);

/**
 * @param item     an item
 * @param netmask  receives the netmask, in host byte order
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_IPNetworkInfo_getNetmask(const cu_IPNetworkInfoItem* item, uint32_t* netmask);

CU_END_DECLS

#endif
