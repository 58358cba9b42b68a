#include "campaign/campaign.h"

#include <cUtil/errorInfo.h>
#include <cUtil/sharedMemory.h>
#include <cUtil/tools/dshmManager.h>

#include <algorithm>
#include <cerrno>
#include <sys/mman.h>
#include <unistd.h>

namespace campaign
{

namespace
{

constexpr uint32_t size = 32768;
constexpr std::size_t words = size / sizeof(uint32_t);

constexpr int callFailed = 10;
constexpr int wrongFailure = 11;
constexpr int wrongSize = 12;
constexpr int contentTorn = 13;

struct Board {
    std::atomic<bool> makersEnd;
    std::atomic<bool> usersEnd;
    std::atomic<uint32_t> made;
    std::atomic<uint32_t> looks;
};

const std::string& name()
{
    static const std::string text = "koCUtil-kill-" + std::to_string(getpid());
    return text;
}

uint32_t* contentOf(cu_SharedMemory* region)
{
    void* address = nullptr;
    if (cu_SharedMemory_getShared(region, &address) != 0)
        _exit(callFailed);
    return static_cast<uint32_t*>(address);
}

// Makes the region, fills it, the first word last, and takes it away again.
int make(Board& board)
{
    for (uint32_t round = 1; !board.makersEnd; ++round) {
        cu_SharedMemory* region = nullptr;
        if (cu_SharedMemory_create(&region, name().c_str(), size, nullptr, nullptr, 0, false, nullptr) != 0)
            return callFailed;
        uint32_t* content = contentOf(region);
        std::fill_n(content + 1, words - 1, round);
        std::atomic_ref(*content).store(round, std::memory_order_release);
        if (cu_SharedMemory_delete(&region, true) != 0)
            return callFailed;
        ++board.made;
    }
    return 0;
}

enum class Found { nothing, empty, unfilled, filled };
constexpr const char* foundTexts[] = {"left nothing", "left a region of size 0", "left a region half filled",
                                      "left a region, filled"};

// What is there under the name, seen by somebody who opens it alone or in a registry. Ends a process that sees what
// must not be.
Found look(bool inRegistry)
{
    cu_SharedMemory* region = nullptr;
    cu_DSHMManager* registry = nullptr;
    cu_ErrorCode code = inRegistry ? cu_DSHMManager_new(&registry) : 0;
    if (code == 0)
        code = inRegistry ? cu_DSHMManager_get(registry, name().c_str(), size, &region)
                          : cu_SharedMemory_open(&region, name().c_str(), nullptr);
    Found found = Found::nothing;
    if (code != 0) {
        const int32_t reason = ku_getSystemErrorCode();
        if (code != cu_ERROR_SHM_OPEN_FAILED || (reason != ENOENT && reason != EINVAL))
            _exit(wrongFailure);
        found = reason == ENOENT ? Found::nothing : Found::empty;
    } else {
        uint32_t mapped = 0;
        if (cu_SharedMemory_getMappedSize(region, &mapped) != 0 || mapped != size)
            _exit(wrongSize);
        uint32_t* content = contentOf(region);
        const uint32_t round = std::atomic_ref(*content).load(std::memory_order_acquire);
        found = round == 0 ? Found::unfilled : Found::filled;
        for (std::size_t i = 0; round != 0 && i < words; ++i) {
            if (content[i] != round)
                _exit(contentTorn);
        }
    }
    code = 0;
    if (inRegistry)
        code = cu_DSHMManager_delete(&registry);
    else if (region != nullptr)
        code = cu_SharedMemory_delete(&region, false);
    if (code != 0)
        _exit(callFailed);
    return found;
}

int use(Board& board)
{
    while (!board.usersEnd) {
        look(board.looks % 2 != 0);
        ++board.looks;
    }
    return 0;
}

} // namespace

std::string killAtRegion(Random& random)
{
    shm_unlink(('/' + name()).c_str()); // after a breach
    Shared<Board> board;
    Process maker([&] { return make(*board); });
    Process user([&] { return use(*board); });
    Process onlooker([&] { return use(*board); });
    random.awaitMoment();
    const bool killsMaker = random.heads();
    require((killsMaker ? maker : user).kill() == -SIGKILL, "the victim had ended by itself");

    const auto growsFurther = [](const std::atomic<uint32_t>& counter) {
        return comesTrue([&, before = counter.load()] { return counter > before + 3; }, hangs);
    };
    require(growsFurther(board->looks), "those who look at the region do not go on");
    std::string outcome = "a user's death left nothing";
    if (killsMaker) {
        outcome = std::string("its maker ") + foundTexts[static_cast<int>(look(random.heads()))];
        // Whoever takes the name over has all of it, whatever state it was in.
        cu_SharedMemory* region = nullptr;
        uint32_t mapped = 0;
        require(cu_SharedMemory_create(&region, name().c_str(), size, nullptr, nullptr, 0, true, nullptr) == 0 &&
                    cu_SharedMemory_getSHMSize(region, &mapped) == 0 && mapped == size,
                "the name cannot be taken over");
        require(cu_SharedMemory_delete(&region, true) == 0, "the region cannot be taken away");
    } else {
        require(growsFurther(board->made), "the maker does not go on");
        board->makersEnd = true;
        requireGoodEnds({&maker});
    }
    board->usersEnd = true;
    requireGoodEnds(killsMaker ? Parties{&user, &onlooker} : Parties{&onlooker});
    require(look(false) == Found::nothing, "a region stays behind");
    return outcome;
}

} // namespace campaign
