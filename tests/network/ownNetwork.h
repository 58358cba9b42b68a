// A network of the test's own: a namespace with nothing but a loopback interface.
#pragma once

#include "support/process.h"

#include <gtest/gtest.h>

#include <cstring>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

/// Asks the network for something.
inline void ask(unsigned long what, void* request)
{
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(ioctl(descriptor, what, request), 0);
    close(descriptor);
}

inline void bringLoopbackUp()
{
    ifreq request = {};
    strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP;
    ask(SIOCSIFFLAGS, &request);
}

/// Runs checks in a process with a network of its own; false: that is not allowed here.
template <typename Act>
bool inOwnNetwork(Act act)
{
    constexpr int refused = 77;
    const support::Outcome outcome = support::outcomeOf([&] {
        if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
            _exit(refused);
        act();
    });
    EXPECT_TRUE(outcome.status == 0 || outcome.status == refused) << outcome.out << outcome.error;
    return outcome.status != refused;
}
