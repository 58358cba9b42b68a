#include <cUtil/tools/dshmManager.h>

#include "internal/report.h"
#include "internal/rollback.h"

#include <cUtil/semaphore.h>
#include <cUtil/tools/rbTree.h>
#include <cUtil/tools/safeMalloc.h>
#include <cUtil/tools/safeStringOps.h>

#include <new>

struct cu_DSHMManager {
    cu_RBTree* tree;         // from names to entries
    cu_Semaphore* semaphore; // held by whoever is in a call
};

namespace
{

using internal::printable;

struct Entry {
    uint32_t users;
    cu_SharedMemory* region;
};

int32_t compareNames(const void* name, const void* treeName)
{
    return strcmp(static_cast<const char*>(name), static_cast<const char*>(treeName));
}

cu_ErrorCode copyName(void** slot, const void* name)
{
    char* copy = nullptr;
    const cu_ErrorCode code = cu_str_clone(&copy, static_cast<const char*>(name));
    *slot = copy;
    return code;
}

cu_ErrorCode stringKeyDel(void** slot)
{
    return cu_safeFreeImpl(*slot);
}

// The entry is kept until its region is closed.
cu_ErrorCode dshmValueDel(void** slot)
{
    auto* entry = static_cast<Entry*>(*slot);
    CU_TRY(cu_SharedMemory_delete(&entry->region, false));
    return cu_safeFreeImpl(entry);
}

// A null manager has no semaphore; those who hold it find that out.
cu_ErrorCode lock(const cu_DSHMManager* me)
{
    return me != nullptr ? cu_Semaphore_p(me->semaphore) : 0;
}

cu_ErrorCode unlock(const cu_DSHMManager* me)
{
    return me != nullptr ? cu_Semaphore_v(me->semaphore) : 0;
}

cu_ErrorCode find(const cu_DSHMManager* me, const char* name, Entry** entry)
{
    void* value = nullptr;
    const cu_ErrorCode code = cu_RBTree_has(me->tree, name, &value);
    *entry = static_cast<Entry*>(value);
    return code;
}

// The entry whose users are to be counted.
cu_ErrorCode demand(const cu_DSHMManager* me, const char* name, Entry** entry, internal::Place place)
{
    if (me == nullptr || name == nullptr)
        return internal::report(cu_ERROR_COM_INVALID_ARGUMENT, 0, place, "me=0x%08X, name=0x%08X", printable(me),
                                printable(name));
    CU_TRY_AT(place, find(me, name, entry));
    if (*entry == nullptr)
        return internal::report(cu_ERROR_COM_INVALID_ARGUMENT, 0, place,
                                "The given SHM element with the name '%s' does not exist!", name);
    return 0;
}

} // namespace

// Takes the semaphore until the end of the scope.
#define CU_SERIALISE(me)                                                                                               \
    CU_TRY(lock(me));                                                                                                  \
    CU_ROLLBACK(unlocking, unlock(me))

static cu_ErrorCode cu_DSHMManager_hasImpl(const cu_DSHMManager* me, const char* name, cu_SharedMemory** dshm)
{
    if (me == nullptr || name == nullptr || dshm == nullptr)
        return CU_REPORT(cu_ERROR_COM_INVALID_ARGUMENT, 0, "me=0x%08X, name=0x%08X, dshm=0x%08X", printable(me),
                         printable(name), printable(dshm));

    Entry* entry = nullptr;
    CU_TRY(find(me, name, &entry));
    *dshm = entry != nullptr ? entry->region : nullptr;
    return 0;
}

static cu_ErrorCode cu_DSHMManager_addImpl(const cu_DSHMManager* me, const char* name, cu_SharedMemory* dshm)
{
    if (me == nullptr || name == nullptr || dshm == nullptr)
        return CU_REPORT(cu_ERROR_COM_INVALID_ARGUMENT, 0, "me=0x%08X, name=0x%08X, dshm=0x%08X", printable(me),
                         printable(name), printable(dshm));

    void* block = nullptr;
    CU_TRY(cu_safeMalloc(&block, sizeof(Entry)));
    CU_ROLLBACK(freeing, cu_safeFreeImpl(block));
    CU_TRY(cu_RBTree_add(me->tree, name, new (block) Entry{0, dshm}));
    freeing.dismiss();
    return 0;
}

static cu_ErrorCode cu_DSHMManager_remImpl(const cu_DSHMManager* me, const char* name)
{
    if (me == nullptr || name == nullptr)
        return CU_REPORT(cu_ERROR_COM_INVALID_ARGUMENT, 0, "me=0x%08X, name=0x%08X", printable(me), printable(name));

    CU_TRY(cu_RBTree_rem(me->tree, name));
    return 0;
}

cu_ErrorCode cu_DSHMManager_new(cu_DSHMManager** me)
{
    if (me == nullptr || *me != nullptr)
        return CU_REPORT(cu_ERROR_COM_INVALID_ARGUMENT, 0, "me=0x%08X", printable(me));

    void* block = nullptr;
    CU_TRY(cu_safeMalloc(&block, sizeof(cu_DSHMManager)));
    CU_ROLLBACK(freeing, cu_safeFreeImpl(block));
    auto* manager = new (block) cu_DSHMManager{};
    CU_TRY(cu_Semaphore_new(&manager->semaphore, 1, nullptr));
    CU_ROLLBACK(deleting, cu_Semaphore_delete(&manager->semaphore));
    CU_TRY(cu_RBTree_new(&manager->tree, compareNames, copyName, stringKeyDel, dshmValueDel));
    deleting.dismiss();
    freeing.dismiss();
    *me = manager;
    return 0;
}

cu_ErrorCode cu_DSHMManager_delete(cu_DSHMManager** me)
{
    if (me == nullptr || *me == nullptr)
        return CU_REPORT(cu_ERROR_COM_INVALID_ARGUMENT, 0, "me=0x%08X", printable(me));

    // It is gone already when the tree could not be deleted at once.
    if ((*me)->semaphore != nullptr)
        CU_TRY(cu_Semaphore_delete(&(*me)->semaphore));
    CU_TRY(cu_RBTree_delete(&(*me)->tree));
    CU_TRY(cu_safeFreeImpl(*me));
    *me = nullptr;
    return 0;
}

cu_ErrorCode cu_DSHMManager_has(cu_DSHMManager* me, const char* name, cu_SharedMemory** dshm)
{
    CU_SERIALISE(me);
    CU_TRY(cu_DSHMManager_hasImpl(me, name, dshm));
    return 0;
}

cu_ErrorCode cu_DSHMManager_add(cu_DSHMManager* me, const char* name, cu_SharedMemory* dshm)
{
    CU_SERIALISE(me);
    CU_TRY(cu_DSHMManager_addImpl(me, name, dshm));
    return 0;
}

cu_ErrorCode cu_DSHMManager_rem(cu_DSHMManager* me, const char* name)
{
    CU_SERIALISE(me);
    CU_TRY(cu_DSHMManager_remImpl(me, name));
    return 0;
}

cu_ErrorCode cu_DSHMManager_get(cu_DSHMManager* me, const char* name, uint32_t /*size*/, cu_SharedMemory** dshm)
{
    CU_SERIALISE(me);
    if (me == nullptr || name == nullptr || dshm == nullptr)
        return CU_REPORT(cu_ERROR_COM_INVALID_ARGUMENT, 0, "me=0x%08X, name=0x%08X, dshm=0x%08X", printable(me),
                         printable(name), printable(dshm));

    CU_TRY(cu_DSHMManager_hasImpl(me, name, dshm));
    if (*dshm != nullptr)
        return 0;
    CU_TRY(cu_SharedMemory_open(dshm, name, nullptr));
    CU_ROLLBACK(closing, cu_SharedMemory_delete(dshm, false));
    CU_TRY(cu_DSHMManager_addImpl(me, name, *dshm));
    closing.dismiss();
    return 0;
}

cu_ErrorCode cu_DSHMManager_size(cu_DSHMManager* me, uint32_t* size)
{
    CU_SERIALISE(me);
    if (me == nullptr || size == nullptr)
        return CU_REPORT(cu_ERROR_COM_INVALID_ARGUMENT, 0, "me=0x%08X, size=0x%08X", printable(me), printable(size));

    CU_TRY(cu_RBTree_size(me->tree, size));
    return 0;
}

cu_ErrorCode cu_DSHMManager_incCounter(cu_DSHMManager* me, const char* name)
{
    CU_SERIALISE(me);
    Entry* entry = nullptr;
    const cu_ErrorCode code = demand(me, name, &entry, CU_HERE);
    if (entry == nullptr)
        return code;
    ++entry->users;
    return 0;
}

cu_ErrorCode cu_DSHMManager_decCounter(cu_DSHMManager* me, const char* name, bool remove)
{
    CU_SERIALISE(me);
    Entry* entry = nullptr;
    const cu_ErrorCode code = demand(me, name, &entry, CU_HERE);
    if (entry == nullptr)
        return code;
    // Compatibility: a count of 0 is not refused, it wraps around.
    --entry->users;
    if (entry->users == 0 && remove)
        CU_TRY(cu_DSHMManager_remImpl(me, name));
    return 0;
}
