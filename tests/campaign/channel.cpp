#include "campaign/campaign.h"

#include <cUtil/rpcChannel.h>

#include <algorithm>
#include <memory>
#include <unistd.h>

namespace campaign
{

namespace
{

constexpr uint32_t regionSize = 16384;
constexpr std::size_t words = 1000; // of a message: its number, and what follows from it

constexpr int callFailed = 10;
constexpr int messageTorn = 11;

struct Board {
    std::atomic<bool> isOneDead;
    std::atomic<uint32_t> exchanges;
};

struct Channel {
    cu_RPCChannel* handle = nullptr;
    uint32_t* out = nullptr;
    const uint32_t* in = nullptr;

    bool find()
    {
        void* tx = nullptr;
        void* rx = nullptr;
        const bool found = cu_RPCChannel_getTxBuffer(handle, &tx) == 0 && cu_RPCChannel_getRxBuffer(handle, &rx) == 0;
        out = static_cast<uint32_t*>(tx);
        in = static_cast<const uint32_t*>(rx);
        return found;
    }

    bool say(uint32_t number)
    {
        for (std::size_t i = 0; i < words; ++i)
            out[i] = number + static_cast<uint32_t>(i) * 0x9E3779B9U * number;
        return cu_RPCChannel_signalTx(handle) == 0;
    }

    bool hears(uint32_t number) const
    {
        for (std::size_t i = 0; i < words; ++i) {
            if (in[i] != number + static_cast<uint32_t>(i) * 0x9E3779B9U * number)
                return false;
        }
        return true;
    }
};

// Asks or answers with rising numbers until a wait that began after the other side's death tells that nothing comes.
int talk(Channel channel, Board& board, bool asks)
{
    for (uint32_t number = 1;; ++number) {
        if (asks && !channel.say(number))
            return callFailed;
        for (bool taken = false; !taken;) {
            const bool wasDead = board.isOneDead;
            const cu_TimeValue deadline = support::fromNow(5);
            if (cu_RPCChannel_timedWaitRx(channel.handle, &deadline, &taken) != 0)
                return callFailed;
            if (!taken && wasDead)
                return 0;
        }
        if (!channel.hears(number))
            return messageTorn;
        if (!asks && !channel.say(number))
            return callFailed;
        ++board.exchanges;
    }
}

} // namespace

std::string killAtChannel(Random& random)
{
    static const Shared<std::byte> region(regionSize); // each trial formats what the last one left behind
    Shared<Board> board;
    Channel creator;
    require(cu_RPCChannel_create(&creator.handle, region.get(), regionSize, nullptr) == 0 && creator.find(),
            "formatting failed");
    Process server([&] { return talk(creator, *board, false); });
    Process client([&] {
        Channel opener;
        if (cu_RPCChannel_open(&opener.handle, region.get(), nullptr) != 0 || !opener.find())
            return callFailed;
        return talk(opener, *board, true);
    });
    random.awaitMoment();
    const bool killsServer = random.heads();
    require((killsServer ? server : client).kill() == -SIGKILL, "the victim had ended by itself");
    board->isOneDead = true;
    requireGoodEnds({killsServer ? &client : &server});
    require(cu_RPCChannel_delete(&creator.handle) == 0, "deleting failed");
    return killsServer ? "the client was told in time" : "the server was told in time";
}

} // namespace campaign
