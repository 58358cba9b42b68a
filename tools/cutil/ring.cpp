// cutil ring: bytes out of a ring buffer in shared memory, and into one.
#include "cutil.h"
#include "interrupt.h"
#include "region.h"

#include <cUtil/errorInfo.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

namespace cutil
{

namespace
{

constexpr char help[] =
    "  cat  takes bytes out of the ring buffer at the start of a REGION of shared memory and writes them to the\n"
    "       standard output as they come, until it is interrupted\n"
    "  put  puts the bytes of the standard input into the ring buffer until the input ends\n"
    "\n"
    "While the ring is empty, or full, they look at it again every 10 milliseconds. In a ring without a reader\n"
    "lock only one process at a time may take bytes, in one without a writer lock only one may put some.\n"
    "\n"
    "An interruption ends both in order, so that no lock stays held; a second one ends them at once. A 'put' that\n"
    "is interrupted with bytes in hand has failed.\n";

/// How long to wait before another look at a ring that is empty, or full.
constexpr timespec pollPeriod{0, 10'000'000};

/// What is moved at once at most.
constexpr uint32_t blockSize = 65536;
using Block = std::array<unsigned char, blockSize>;

constexpr uint32_t smallestRing = 2; // of one byte: a byte always stays free
constexpr uint32_t largestRing = 1U << 30;
constexpr uint32_t permissions = CU_PERMISSION_OWNER_READ | CU_PERMISSION_OWNER_WRITE;

void pauseForAPoll()
{
    nanosleep(&pollPeriod, nullptr); // a signal ends it
}

/// What ring and region are held by: the ring goes first.
struct Opened {
    Region region;
    Ring ring;
};

int openRing(const char* name, Opened& opened)
{
    Memory memory;
    if (const int result = openRegion(name, opened.region, memory); result != done)
        return result;
    RingShape shape;
    switch (findRing(memory, opened.ring, shape)) {
    case RingState::absent:
        return fail("%s: there is no ring buffer in the region", name);
    case RingState::damaged:
        return fail("%s: the ring buffer is damaged", name);
    case RingState::usable:
        break;
    }
    return done;
}

bool regionIsMissing(const char* name)
{
    cu_SharedMemory* region = nullptr;
    const cu_ErrorCode code = cu_SharedMemory_open(&region, name, nullptr);
    const bool missing = code == cu_ERROR_SHM_OPEN_FAILED && ku_getSystemErrorCode() == ENOENT;
    if (code == 0)
        DeleteRegion{}(region);
    return missing;
}

/// Takes the memory of a region from the system: where there is too little, touching it would end the process.
/// @return 0 or the system's error code
int reserve(const char* name, uint32_t size)
{
    const int descriptor = shm_open((std::string("/") + name).c_str(), O_RDWR | O_CLOEXEC, 0);
    if (descriptor == -1)
        return errno;
    const int error = posix_fallocate(descriptor, 0, static_cast<off_t>(size));
    close(descriptor);
    return error;
}

int formatRing(const char* name, uint32_t size, Opened& opened)
{
    if (const int error = reserve(name, cu_RingBuffer_getRegionSize(size)); error != 0)
        return fail("%s: %s", name, strerror(error));
    Memory memory;
    cu_ErrorCode code = memoryOf(opened.region, memory);
    // The ring outlives this process. So the object that formats it is never deleted: it would end the ring's locks.
    static cu_RingBuffer* formatter = nullptr;
    if (code == 0)
        code = cu_RingBuffer_create(&formatter, memory.base, size, true, true, nullptr);
    cu_RingBuffer* ring = nullptr;
    if (code == 0)
        code = cu_RingBuffer_open(&ring, memory.base, nullptr);
    opened.ring.reset(ring);
    return code == 0 ? done : failByRecord(code, name);
}

int createRing(const char* name, uint32_t size, Opened& opened)
{
    cu_SharedMemory* region = nullptr;
    cu_ErrorCode code = cu_SharedMemory_create(&region, name, cu_RingBuffer_getRegionSize(size), nullptr, nullptr,
                                               permissions, false, nullptr);
    if (code != 0)
        return failByRecord(code, name);
    opened.region.reset(region);
    const int result = formatRing(name, size, opened);
    if (result != done) {
        region = opened.region.release();
        code = cu_SharedMemory_delete(&region, true);
        if (code != 0)
            static_cast<void>(failByRecord(code, "removing the region"));
    }
    return result;
}

bool writeAll(const unsigned char* bytes, std::size_t count)
{
    while (count != 0) {
        const ssize_t written = write(STDOUT_FILENO, bytes, count);
        if (written == -1 && errno != EINTR) // they are out of the ring, so an interruption does not end this
            return false;
        if (written > 0) {
            bytes += written;
            count -= static_cast<std::size_t>(written);
        }
    }
    return true;
}

int cat(const Arguments& arguments)
{
    const char* name = arguments[0];
    const bool once = arguments.has('o');
    Opened opened;
    if (const int result = openRing(name, opened); result != done)
        return result;
    cu_RingBuffer* ring = opened.ring.get();
    uint32_t there = 0;
    cu_ErrorCode code = cu_RingBuffer_getAvailable(ring, &there);
    uint32_t left = there; // of what is to be taken with --once
    catchInterrupts();     // ended within a get, the process could leave the lock held
    Block block;
    while (code == 0 && !isInterrupted() && !(once && left == 0)) {
        const uint32_t count = std::min({there, blockSize, once ? left : blockSize});
        bool taken = false;
        if (count != 0)
            code = cu_RingBuffer_get(ring, block.data(), count, &taken);
        if (code != 0)
            break;
        if (taken) {
            if (!writeAll(block.data(), count))
                return fail("standard output: %s", strerror(errno));
            left -= once ? count : 0;
        } else if (once && count != 0) {
            break; // another process took them
        } else {
            pauseForAPoll();
        }
        code = cu_RingBuffer_getAvailable(ring, &there);
        left = std::min(left, there);
    }
    return code == 0 ? done : failByRecord(code, name);
}

/// Puts all, piece by piece as there is room, unless it is interrupted: then @p count tells how many are left.
cu_ErrorCode putAll(cu_RingBuffer* ring, const unsigned char* bytes, uint32_t& count)
{
    while (count != 0 && !isInterrupted()) {
        uint32_t room = 0;
        cu_ErrorCode code = cu_RingBuffer_putAvailable(ring, &room);
        const uint32_t piece = std::min(room, count);
        bool written = false;
        if (code == 0 && piece != 0)
            code = cu_RingBuffer_put(ring, bytes, piece, &written);
        if (code != 0)
            return code;
        if (written) {
            bytes += piece;
            count -= piece;
        } else {
            pauseForAPoll();
        }
    }
    return 0;
}

bool toRingSize(std::string_view text, uint32_t& size)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), size);
    return error == std::errc{} && end == text.data() + text.size() && std::has_single_bit(size) &&
           size >= smallestRing && size <= largestRing;
}

int put(const Arguments& arguments)
{
    const char* name = arguments[0];
    uint32_t size = 0;
    if (arguments.has('s') && !toRingSize(arguments.valueOf('s'), size))
        return misuse(ringCommand, "'--size' takes a power of two from 2 to 1073741824");
    Opened opened;
    const bool create = size != 0 && regionIsMissing(name);
    if (const int result = create ? createRing(name, size, opened) : openRing(name, opened); result != done)
        return result;
    catchInterrupts();
    Block block;
    while (!isInterrupted()) {
        const ssize_t got = read(STDIN_FILENO, block.data(), block.size());
        if (got == -1 && errno == EINTR)
            continue;
        if (got == -1)
            return fail("standard input: %s", strerror(errno));
        if (got == 0)
            return done;
        auto count = static_cast<uint32_t>(got);
        if (const cu_ErrorCode code = putAll(opened.ring.get(), block.data(), count); code != 0)
            return failByRecord(code, name);
        if (count != 0)
            return fail("%s: interrupted with %u bytes that found no room", name, count);
    }
    return done;
}

constexpr Option options[] = {
    {'o', "once", nullptr, "takes only the bytes that are there now"},
    {'s', "size", "BYTES",
     "makes region and ring where there is no such region: BYTES, a power of two from 2\n"
     "to 1073741824, is the size of the data area, which holds one byte less. The ring\n"
     "has both locks and stays when the command ends"},
};
constexpr Form forms[] = {{"cat REGION", "o", cat}, {"put REGION", "s", put}};

} // namespace

constinit const Command ringCommand = {"ring", "copies bytes out of a ring buffer, or into one", help, forms, options};

} // namespace cutil
