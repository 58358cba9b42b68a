#include <cUtil/uuid.h>

#include "internal/report.h"
#include "internal/rollback.h"

#include <cUtil/mallocAllocator.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <new>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

static_assert(sizeof(cu_UUID) == CU_UUID_SIZE && alignof(cu_UUID) == 1);

namespace
{

enum class Source {
    read,
    closed,     // the device cannot be opened
    unreadable, // it can, but gives no bytes; errno tells why
};

Source readDevice(unsigned char* bytes, std::size_t size)
{
    const int device = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    if (device == -1)
        return Source::closed;
    int error = 0;
    while (size != 0 && error == 0) {
        const ssize_t got = read(device, bytes, size);
        if (got > 0) {
            bytes += got;
            size -= static_cast<std::size_t>(got);
        } else if (got == 0) {
            error = ENODATA;
        } else if (errno != EINTR) {
            error = errno;
        }
    }
    close(device);
    errno = error;
    return error == 0 ? Source::read : Source::unreadable;
}

// Bytes that are read ahead, for opening the device costs far more than reading an identifier from it. They lie in a
// page that the kernel empties in a child process, however that is made, so no two processes use the same ones.
class Stock
{
public:
    Source take(cu_UUID* uuid)
    {
        // Nobody waits: who finds another one here reads for himself.
        if (busy_.exchange(true, std::memory_order_acquire))
            return readDevice(uuid->data, sizeof(uuid->data));
        Source source = Source::read;
        if (left_ == 0) {
            source = readDevice(bytes_, sizeof(bytes_));
            left_ = source == Source::read ? sizeof(bytes_) : 0;
        }
        if (left_ != 0) {
            left_ -= static_cast<uint32_t>(sizeof(uuid->data));
            memcpy(uuid->data, bytes_ + left_, sizeof(uuid->data));
        }
        busy_.store(false, std::memory_order_release);
        return source;
    }

private:
    std::atomic<bool> busy_{false};
    uint32_t left_ = 0;
    unsigned char bytes_[64 * CU_UUID_SIZE];
};

pthread_once_t once = PTHREAD_ONCE_INIT;
Stock* stock; // null where no page can be had that is emptied

void makeStock()
{
    void* const page = mmap(nullptr, sizeof(Stock), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED)
        return;
    // An emulator that takes any advice follows none.
    constexpr int nonsense = -1;
    if (madvise(page, sizeof(Stock), nonsense) == 0 || madvise(page, sizeof(Stock), MADV_WIPEONFORK) != 0)
        munmap(page, sizeof(Stock));
    else
        stock = new (page) Stock;
}

constexpr uint32_t noDigit = 16;

uint32_t digitValue(char character)
{
    const uint32_t number = static_cast<uint32_t>(character) - '0';
    const uint32_t letter = (static_cast<uint32_t>(character) | 0x20U) - 'a';
    if (number < 10)
        return number;
    return letter < 6 ? letter + 10 : noDigit;
}

} // namespace

cu_ErrorCode cu_UUID_new(cu_UUID** uuid)
{
    CU_REQUIRE(uuid != nullptr);
    CU_REQUIRE(*uuid == nullptr);
    void* block = nullptr;
    CU_TRY(cu_allocator_alloc(cu_allocator_malloc_get(), &block, sizeof(cu_UUID)));
    *uuid = static_cast<cu_UUID*>(block);
    return 0;
}

cu_ErrorCode cu_UUID_delete(cu_UUID** uuid)
{
    CU_REQUIRE(uuid != nullptr);
    CU_REQUIRE(*uuid != nullptr);
    void* block = *uuid;
    CU_TRY(cu_allocator_free(cu_allocator_malloc_get(), &block));
    *uuid = nullptr;
    return 0;
}

cu_ErrorCode cu_UUID_create(cu_UUID* uuid)
{
    CU_REQUIRE(uuid != nullptr);
    pthread_once(&once, makeStock);
    switch (stock != nullptr ? stock->take(uuid) : readDevice(uuid->data, sizeof(uuid->data))) {
    case Source::read:
        break;
    case Source::closed:
        // Compatibility: nobody is told.
        for (uint8_t& byte : uuid->data)
            byte = static_cast<uint8_t>(rand()); // NOLINT(concurrency-mt-unsafe): glibc locks it
        break;
    case Source::unreadable:
        return CU_REPORT_ERRNO(cu_ERROR_INVALID_FILE, errno);
    }
    return 0;
}

cu_ErrorCode cu_UUID_fromString(cu_UUID* uuid, const char* text)
{
    CU_REQUIRE(uuid != nullptr);
    CU_REQUIRE(text != nullptr);
    CU_REQUIRE(strnlen(text, CU_UUID_TEXT_SIZE) == CU_UUID_TEXT_SIZE - 1);
    for (uint8_t& byte : uuid->data) {
        uint32_t value = 0;
        for (int nibble = 0; nibble < 2; ++nibble, ++text) {
            const uint32_t digit = digitValue(*text);
            if (digit == noDigit)
                return CU_REPORT(cu_ERROR_COM_INVALID_ARGUMENT, 0,
                                 "The ASCII character '%c' can't be converted to hex!", *text);
            value = value << 4 | digit;
        }
        byte = static_cast<uint8_t>(value);
    }
    return 0;
}

cu_ErrorCode cu_UUID_fromData(cu_UUID* uuid, const void* data, uint32_t size)
{
    CU_REQUIRE(uuid != nullptr);
    CU_REQUIRE(data != nullptr);
    CU_REQUIRE(size != 0);
    // Compatibility: another size is a success, too.
    if (size == sizeof(uuid->data))
        memmove(uuid->data, data, sizeof(uuid->data));
    return 0;
}

cu_ErrorCode cu_UUID_clone(cu_UUID** dst, const cu_UUID* src)
{
    CU_REQUIRE(dst != nullptr);
    CU_REQUIRE(*dst == nullptr);
    cu_UUID* copy = nullptr;
    CU_TRY(cu_UUID_new(&copy));
    CU_ROLLBACK(made, cu_UUID_delete(&copy));
    CU_TRY(cu_UUID_fromData(copy, src, sizeof(*src)));
    made.dismiss();
    *dst = copy;
    return 0;
}

cu_ErrorCode cu_UUID_getData(const cu_UUID* uuid, const uint8_t** data)
{
    CU_REQUIRE(uuid != nullptr);
    CU_REQUIRE(data != nullptr);
    *data = uuid->data;
    return 0;
}

cu_ErrorCode cu_UUID_toString(const cu_UUID* uuid, char* text)
{
    CU_REQUIRE(uuid != nullptr);
    CU_REQUIRE(text != nullptr);
    constexpr char digits[] = "0123456789ABCDEF";
    for (const uint8_t byte : uuid->data) {
        *text++ = digits[byte >> 4];
        *text++ = digits[byte & 15];
    }
    *text = '\0';
    return 0;
}

cu_ErrorCode cu_UUID_compare(const cu_UUID* a, const cu_UUID* b, int32_t* result)
{
    CU_REQUIRE(a != nullptr);
    CU_REQUIRE(b != nullptr);
    CU_REQUIRE(result != nullptr);
    *result = memcmp(a->data, b->data, sizeof(a->data));
    return 0;
}
