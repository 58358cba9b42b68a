// What users and groups have in common: a name and an id that stand together in a database of the system.
#pragma once

#include "internal/owned.h"
#include "internal/report.h"

#include <cUtil/system/group.h>
#include <cUtil/system/user.h>

#include <cerrno>
#include <cstddef>
#include <grp.h>
#include <pwd.h>
#include <type_traits>

namespace cu::internal
{

struct Account {
    cu_allocator* allocator;
    cu_String* name;
    uint32_t id;
};

inline const char* nameOf(const passwd& entry)
{
    return entry.pw_name;
}

inline const char* nameOf(const group& entry)
{
    return entry.gr_name;
}

inline uint32_t idOf(const passwd& entry)
{
    return entry.pw_uid;
}

inline uint32_t idOf(const group& entry)
{
    return entry.gr_gid;
}

/// A re-entrant look-up of the system: it yields an error number, or 0 and an entry or null.
template <typename Entry, typename Key>
using LookUp = int (*)(Key, Entry*, char*, std::size_t, Entry**);

/// An entry with room for its texts: on the stack, or in a block of the allocator for the long list of a group's
/// members.
template <typename Entry>
class DatabaseEntry
{
public:
    explicit DatabaseEntry(cu_allocator* allocator) : allocator_(allocator) {}
    DatabaseEntry(const DatabaseEntry&) = delete;
    DatabaseEntry& operator=(const DatabaseEntry&) = delete;

    ~DatabaseEntry()
    {
        if (block_ != nullptr)
            giveBack(allocator_, &block_);
    }

    /// Looks the entry up; only a refusal of the allocator is a failure.
    template <typename Key>
    cu_ErrorCode find(LookUp<Entry, Key> lookUp, Key key)
    {
        constexpr uint32_t mostBytes = 16U << 20;
        char* texts = small_;
        uint32_t size = sizeof(small_);
        while ((error_ = lookUp(key, &entry_, texts, size, &found_)) == EINTR ||
               (error_ == ERANGE && size < mostBytes)) {
            if (error_ == EINTR)
                continue;
            size *= 2;
            if (const cu_ErrorCode code = cu_allocator_realloc(allocator_, &block_, size); code != 0)
                return code;
            texts = static_cast<char*>(block_);
        }
        return 0;
    }

    const Entry* get() const { return found_; } ///< null when there is none
    int error() const { return error_; }        ///< why there is none; 0 when the database does not have it

private:
    cu_allocator* allocator_;
    Entry entry_;
    Entry* found_ = nullptr;
    int error_ = 0;
    void* block_ = nullptr;
    char small_[1024];
};

/// Makes a user or a group of the entry that a look-up finds for a key.
template <typename T, typename Entry, typename Key>
cu_ErrorCode newAccount(T** handle, LookUp<Entry, Key> lookUp, std::type_identity_t<Key> key, cu_ErrorCode miss,
                        cu_allocator* allocator, Place place)
{
    Owned<T> account;
    CU_TRY_AT(place, account.allocate(allocator));
    DatabaseEntry<Entry> entry(account->allocator);
    CU_TRY_AT(place, entry.find(lookUp, key));
    if (entry.get() == nullptr) {
        constexpr const char* database = std::is_same_v<Entry, passwd> ? "passwd" : "group";
        return report(miss, entry.error(), place, "Unable to retrieve %s structure. Errno(%d)='%s'", database,
                      entry.error(), SystemErrorText(entry.error()).get());
    }
    account->id = idOf(*entry.get());
    CU_TRY_AT(place, cu_String_cloneStr(&account->name, nameOf(*entry.get()), account->allocator));
    *handle = account.release();
    return 0;
}

/// Ends a user or a group.
template <typename T>
cu_ErrorCode deleteAccount(T** handle, Place place)
{
    CU_TRY_AT(place, cu_String_delete(&(*handle)->name));
    CU_TRY_AT(place, freeObject(handle));
    return 0;
}

} // namespace cu::internal

struct cu_User : cu::internal::Account {
};

struct cu_Group : cu::internal::Account {
};
