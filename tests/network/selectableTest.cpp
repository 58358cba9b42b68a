#include "sockets.h"

#include <thread>
#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/network/selectable.linux";

// Two ends of a byte stream without the families under test.
class Selectable : public testing::Test
{
protected:
    void SetUp() override
    {
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        near.handle = ends[0];
        far.handle = ends[1];
    }
    void TearDown() override
    {
        close(near.handle);
        close(far.handle);
    }

    cu_Selectable near = {-1};
    cu_Selectable far = {-1};
    bool ready = false;
    int32_t index = 0;
};

TEST_F(Selectable, tellsWhetherSomethingCanBeReadOrWritten)
{
    const auto expect = [this](bool expected, const auto& wait, const cu_Selectable& selectable, uint32_t timeoutUs) {
        ready = !expected;
        EXPECT_EQ(wait(&selectable, timeoutUs, &ready), 0U);
        EXPECT_EQ(ready, expected);
    };
    expect(true, cu_Selectable_waitWriteReady, near, 0);
    expect(false, cu_Selectable_waitReadReady, near, 1);
    const std::vector<char> block(65536);
    while (send(near.handle, block.data(), block.size(), MSG_DONTWAIT) > 0) {
    }
    expect(false, cu_Selectable_waitWriteReady, near, 1);
    expect(true, cu_Selectable_waitReadReady, far, 0);

    // The end of a pipe without the other one: an error, a hang-up.
    for (const int open : {1, 0}) {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        close(ends[1 - open]);
        expect(true, cu_Selectable_waitReadReady, {ends[open]}, 0);
        close(ends[open]);
    }
}

TEST_F(Selectable, aWaitLastsAsLongAsItIsTold)
{
    for (const uint32_t timeoutUs : {1U, 700U, 60'000U, 1'010'000U}) {
        ready = true;
        const support::Injection injection("ppoll", EINTR);
        EXPECT_GE(timeOf([&] { EXPECT_EQ(cu_Selectable_waitReadReady(&near, timeoutUs, &ready), 0U); }),
                  std::chrono::microseconds(timeoutUs));
        EXPECT_FALSE(ready);
    }
    std::thread writer([&] {
        std::this_thread::sleep_for(50ms);
        EXPECT_EQ(write(far.handle, "x", 1), 1);
    });
    EXPECT_EQ(cu_Selectable_waitReadReady(&near, 0, &ready), 0U); // without limit
    EXPECT_TRUE(ready);
    writer.join();
}

TEST_F(Selectable, theFirstOfManyInTheirOrderIsToldEvenBeyondTheDescriptorsOfSelect)
{
    const int high = fcntl(far.handle, F_DUPFD, allowDescriptors(6000) - 1000);
    const cu_Selectable other = {high != -1 ? high : far.handle};
    ASSERT_EQ(write(near.handle, "x", 1), 1);
    for (const uint32_t count : {3U, 64U, 65U, 500U}) {
        std::vector<const cu_Selectable*> all(count, &near);
        EXPECT_EQ(cu_Selectable_waitReadReadyMultiple(all.data(), count, 1, &index), 0U);
        EXPECT_EQ(index, -1);
        all[count - 2] = &other;
        all[count - 1] = &other;
        EXPECT_EQ(cu_Selectable_waitReadReadyMultiple(all.data(), count, 0, &index), 0U);
        EXPECT_EQ(index, static_cast<int32_t>(count - 2));
        EXPECT_EQ(cu_Selectable_waitWriteReadyMultiple(all.data(), count, 0, &index), 0U);
        EXPECT_EQ(index, 0);
    }
    close(high);
}

TEST_F(Selectable, aWaitThatFailsIsAnErrorAndNotReady)
{
    const cu_Selectable closed = {fcntl(near.handle, F_DUPFD, 100)};
    close(closed.handle);
    const cu_Selectable none = {-1};
    for (const cu_Selectable* wrong : {&closed, &none}) {
        const cu_Selectable* const all[] = {&near, wrong, &near};
        ready = true;
        EXPECT_SYSTEM_FAILURE(cu_Selectable_waitReadReady(wrong, 1, &ready), cu_ERROR_SOCKET_SELECT_FAILED, EBADF,
                              "cu_Selectable_waitReadReady", file, "");
        EXPECT_FALSE(ready);
        index = 7;
        EXPECT_SYSTEM_FAILURE(cu_Selectable_waitWriteReadyMultiple(all, 3, 0, &index), cu_ERROR_SOCKET_SELECT_FAILED,
                              EBADF, "cu_Selectable_waitWriteReadyMultiple", file, "");
        EXPECT_EQ(index, 7);
    }
    const support::Injection injection("ppoll", ENOMEM);
    EXPECT_SYSTEM_FAILURE(cu_Selectable_waitWriteReady(&near, 1, &ready), cu_ERROR_SOCKET_SELECT_FAILED, ENOMEM,
                          "cu_Selectable_waitWriteReady", file, "");
}

TEST_F(Selectable, refusesNulls)
{
    std::vector<const cu_Selectable*> all(100, &near);
    const std::tuple good(static_cast<const cu_Selectable*>(&near), all.data(), &ready, &index);
    EXPECT_NULLS_REFUSED(file, good, cu_Selectable_waitReadReady, cu_Selectable_waitWriteReady,
                         cu_Selectable_waitReadReadyMultiple, cu_Selectable_waitWriteReadyMultiple);
    const auto wait = [&](uint32_t count) { return cu_Selectable_waitReadReadyMultiple(all.data(), count, 1, &index); };
    EXPECT_REFUSED(wait(0), "cu_Selectable_waitReadReadyMultiple", file);
    all[70] = nullptr;
    EXPECT_REFUSED(wait(100), "cu_Selectable_waitReadReadyMultiple", file);
    const support::Injection injection("calloc", ENOMEM);
    EXPECT_EQ(wait(100), cu_ERROR_COM_MALLOC_FAILED);
    EXPECT_EQ(cu_Selectable_getHandle(&near), near.handle);
    EXPECT_EQ(cu_Selectable_getHandle(nullptr), -1);
}

} // namespace
