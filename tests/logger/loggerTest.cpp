#include "logger/recorder.h"
#include "support/inject.h"
#include "support/process.h"
#include "support/record.h"
#include "support/sanitizer.h"

#include <cUtil/ipcSemaphore.h>
#include <cUtil/logger/logger.h>

#include <dlfcn.h>

#include <atomic>
#include <filesystem>
#include <thread>

namespace
{

using support::Recorder;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using namespace std::chrono_literals;
using namespace std::string_literals;

constexpr char file[] = "src/cUtil/logger/logger";

// Logs before the tests are there.
struct Early {
    Recorder adapter;
    const cu_ErrorCode results[3] = {cu_Logger_addAdapter("early", adapter.get(), 2), cu_Logger_log(2, "before main"),
                                     cu_Logger_removeAdapter("early")};
} early __attribute__((init_priority(101)));

TEST(Logger, isThereBeforeMain)
{
    EXPECT_THAT(early.results, testing::Each(0U));
    EXPECT_THAT(early.adapter.lines(), ElementsAre("2 before main"));
}

TEST(Logger, withoutItsStateTheProcessEnds)
{
    if (support::globalsAreWatched)
        GTEST_SKIP() << "the library can be loaded once only";
    Dl_info where = {};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(cu_Logger_log), &where), 0);
    // Another file is another library, which starts as it is loaded.
    const auto copy = std::filesystem::temp_directory_path() / ("libkoCUtil." + std::to_string(getpid()));
    std::filesystem::copy_file(where.dli_fname, copy);
    const std::string number = std::to_string(cu_ERROR_MUTEX_INIT_FAILED);
    for (const auto& [failing, reason] : {std::pair("calloc", "out of memory"s), {"pthread_rwlock_init", number}}) {
        const support::Outcome outcome = support::outcomeOf([&copy, failing = failing] {
            const auto injection = support::Injection::ofEvery(failing, ENOMEM);
            dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
        });
        EXPECT_EQ(outcome.status, 1) << failing;
        EXPECT_EQ(outcome.out, "FATAL: Logger initialization failed: " + reason + "! Bye\n");
    }
    std::filesystem::remove(copy);
}

TEST(Logger, eachAdapterGetsTheLinesOfItsLevel)
{
    Recorder adapters[4];
    std::string heard;
    for (uint32_t n = 0; n < 4; ++n) {
        const std::string name(1, "abcd"[n]);
        EXPECT_EQ(cu_Logger_addAdapter(name.c_str(), adapters[n].get(), n), 0U);
        adapters[n].act = [&heard, name](uint32_t level, const std::string& text) {
            EXPECT_EQ(text, "100%s %n");
            heard += name + std::to_string(level) + " ";
        };
    }
    const auto logAll = [&] {
        heard.clear();
        for (uint32_t level = 0; level < 6; ++level)
            EXPECT_EQ(cu_Logger_log(level, "100%s %n"), 0U);
        return heard;
    };
    EXPECT_EQ(logAll(), "d0 c0 b0 a0 d1 c1 b1 d2 c2 d3 ");
    EXPECT_EQ(cu_Logger_setSpecificLogLevel("b", 5), 0U);
    EXPECT_EQ(cu_Logger_setSpecificLogLevel("d", 0), 0U);
    EXPECT_EQ(logAll(), "d0 c0 b0 a0 c1 b1 c2 b2 b3 b4 b5 ");
    EXPECT_EQ(cu_Logger_setLogLevel(1), 0U);
    EXPECT_EQ(cu_Logger_removeAdapter("b"), 0U);
    EXPECT_TRUE(adapters[1].ended);
    EXPECT_EQ(adapters[1].get()->name, nullptr);
    EXPECT_EQ(logAll(), "d0 c0 a0 d1 c1 a1 ");
    EXPECT_EQ(cu_Logger_removeAllAdapters(), 0U);
    EXPECT_TRUE(adapters[0].ended && adapters[2].ended && adapters[3].ended);
    EXPECT_EQ(logAll(), "");
}

TEST(Logger, anAdapterThatFailsKeepsNoLineFromTheOthers)
{
    const Recorder oldest("oldest");
    Recorder second("second failure");
    Recorder first("first failure");
    const Recorder youngest("youngest");
    first.answer = 77;
    second.answer = 78;
    second.act = [](uint32_t, const std::string&) { cu_Logger_removeAdapter(nullptr); };
    EXPECT_FAILURE(cu_Logger_log(1, "text"), 77U, "logMessage", "recorder", "text");
    EXPECT_THAT(support::trace(), testing::MatchesRegex("cu_logger_Adapter_logMessage  -  .*\ncu_Logger_log  -  .*\n"));
    EXPECT_EQ(cu_Logger_formattedLog(1, "%d", 5), 77U);
    EXPECT_THAT(support::trace(), HasSubstr("cu_Logger_formattedLog  -  src/cUtil/logger/logger:"));
    EXPECT_THAT(oldest.lines(), ElementsAre("1 text", "1 5"));
    EXPECT_EQ(youngest.lines(), oldest.lines());
    first.lastAnswer = 79;
    EXPECT_FAILURE(cu_Logger_removeAdapter("first failure"), 79U, "destruct", "recorder", "");
    EXPECT_EQ(first.get()->name, nullptr);
}

TEST(Logger, refusesWhatIsNoAdapterOrHasNoNameOfItsOwn)
{
    constexpr char adapterFile[] = "src/cUtil/logger/adapter";
    Recorder one("one");
    Recorder other;
    cu_logger_Adapter bare = {};
    cu_logger_Adapter* handle = &bare;
    EXPECT_NULLS_REFUSED(file, std::tuple("one", other.get()), cu_Logger_log, cu_Logger_setSpecificLogLevel,
                         cu_Logger_addAdapter, cu_Logger_removeAdapter);
    EXPECT_NULLS_REFUSED(adapterFile, std::tuple(&handle, &bare, "text"), cu_logger_Adapter_logMessage,
                         cu_logger_Adapter_destruct);
    EXPECT_REFUSED(cu_logger_Adapter_logMessage(&bare, 0, ""), "cu_logger_Adapter_logMessage", adapterFile);
    EXPECT_REFUSED(cu_logger_Adapter_destruct(&handle), "cu_logger_Adapter_destruct", adapterFile);
    EXPECT_REFUSED(cu_Logger_formattedLog(0, nullptr), "cu_Logger_formattedLog", file);
    EXPECT_REFUSED(cu_Logger_setSpecificLogLevel("", 0), "cu_Logger_setSpecificLogLevel", file);
    EXPECT_REFUSED(cu_Logger_addAdapter("", other.get(), 0), "cu_Logger_addAdapter", file);
    EXPECT_REFUSED(cu_Logger_addAdapter("one", other.get(), 0), "cu_Logger_addAdapter", file);
    EXPECT_EQ(cu_Logger_addAdapter("other", one.get(), 0), cu_ERROR_COM_INVALID_ARGUMENT);

    // Unknown names are not reported.
    cu_Error_clear(cu_getErrorLocation());
    EXPECT_EQ(cu_Logger_setSpecificLogLevel("other", 0), cu_ERROR_COM_INVALID_ARGUMENT);
    EXPECT_EQ(cu_Logger_removeAdapter("other"), cu_ERROR_COM_INVALID_ARGUMENT);
    EXPECT_EQ(cu_getErrorLocation()->errorID, 0U);
    {
        const support::Injection injection("strdup", ENOMEM);
        EXPECT_EQ(cu_Logger_addAdapter("other", other.get(), 0), cu_ERROR_COM_MALLOC_FAILED);
    }
    EXPECT_EQ(cu_Logger_log(0, "x"), 0U);
    EXPECT_THAT(one.lines(), ElementsAre("0 x"));
    EXPECT_THAT(other.lines(), IsEmpty());
}

TEST(Logger, longTextsLoseTheirLastCharacter)
{
    Recorder adapter("a", 1);
    for (const auto& [length, kept] : {std::pair(2047U, 2047U), {2048U, 2047U}, {3000U, 2999U}, {0U, 0U}}) {
        EXPECT_EQ(cu_Logger_formattedLog(1, "%s", std::string(length, 'x').c_str()), 0U);
        EXPECT_THAT(adapter.take(), ElementsAre("1 " + std::string(kept, 'x')));
    }
    cu_Error_clear(cu_getErrorLocation());
    const support::Injection injection("calloc", ENOMEM);
    EXPECT_EQ(cu_Logger_formattedLog(2, "%2048d", 1), 0U); // nobody wants it
    EXPECT_EQ(cu_Logger_formattedLog(1, "%2048d", 1), cu_ERROR_COM_MALLOC_FAILED);
    EXPECT_EQ(cu_getErrorLocation()->errorID, 0U);
    EXPECT_THAT(adapter.take(), IsEmpty());
}

TEST(Logger, anAdapterMayLogButNotChangeTheList)
{
    const Recorder listener("listener");
    Recorder chatty("chatty", 0);
    Recorder late;
    std::thread changer;
    chatty.act = [&](uint32_t, const std::string& text) {
        if (text != "outer")
            return;
        // A change waits for this very call, and what is logged by it must not wait for the change; nor must another
        // thread that this one waits for.
        changer = std::thread([&] { EXPECT_EQ(cu_Logger_addAdapter("late", late.get(), 3), 0U); });
        std::this_thread::sleep_for(10ms);
        EXPECT_EQ(cu_Logger_log(1, "inner"), 0U);
        std::thread([] { EXPECT_EQ(cu_Logger_log(0, "other"), 0U); }).join();
        EXPECT_EQ(cu_Logger_setSpecificLogLevel("listener", 1), 0U);
        EXPECT_SYSTEM_FAILURE(cu_Logger_addAdapter("x", late.get(), 0), cu_ERROR_MUTEX_LOCK_FAILED, EDEADLK,
                              "cu_Logger_addAdapter", file, "");
        EXPECT_EQ(cu_Logger_removeAdapter("chatty"), cu_ERROR_MUTEX_LOCK_FAILED);
        EXPECT_EQ(cu_Logger_removeAllAdapters(), cu_ERROR_MUTEX_LOCK_FAILED);
    };
    EXPECT_EQ(cu_Logger_log(0, "outer"), 0U);
    changer.join();
    EXPECT_THAT(listener.lines(), ElementsAre("1 inner", "0 other", "0 outer"));

    // At its end it may do both.
    chatty.lastAct = [&] {
        EXPECT_EQ(cu_Logger_log(1, "last"), 0U);
        EXPECT_EQ(cu_Logger_removeAdapter("late"), 0U);
    };
    EXPECT_EQ(cu_Logger_removeAdapter("chatty"), 0U);
    EXPECT_THAT(late.lines(), ElementsAre("1 last"));
}

TEST(Logger, changesAreNotKeptWaitingBySteadyLogging)
{
    Recorder steady("steady");
    steady.act = [](uint32_t, const std::string&) { std::this_thread::sleep_for(1ms); };
    std::atomic<bool> over = false;
    std::vector<std::thread> loggers;
    for (int n = 0; n < 8; ++n)
        loggers.emplace_back([&] {
            while (!over)
                EXPECT_EQ(cu_Logger_log(1, "steady"), 0U);
        });
    const auto end = std::chrono::steady_clock::now() + 30s;
    for (int change = 0; change < 20; ++change) {
        Recorder guest("guest");
        EXPECT_TRUE(support::comesTrue([&] { return !guest.lines().empty(); }));
        EXPECT_EQ(cu_Logger_setLogLevel(1), 0U);
        EXPECT_EQ(cu_Logger_removeAdapter("guest"), 0U); // no line comes any more
        EXPECT_TRUE(guest.ended);
    }
    EXPECT_LT(std::chrono::steady_clock::now(), end);
    over = true;
    for (std::thread& thread : loggers)
        thread.join();
}

TEST(Logger, failingLocksAreToldAndLeaveTheLoggerUsable)
{
    Recorder adapter("a");
    Recorder other;
    const std::pair<const char*, std::function<cu_ErrorCode()>> calls[] = {
        {"pthread_rwlock_rdlock", [] { return cu_Logger_formattedLog(0, "x"); }},
        {"pthread_rwlock_rdlock", [] { return cu_Logger_setLogLevel(0); }},
        {"pthread_rwlock_rdlock", [] { return cu_Logger_setSpecificLogLevel("a", 0); }},
        {"pthread_rwlock_wrlock", [&] { return cu_Logger_addAdapter("b", other.get(), 0); }},
        {"pthread_rwlock_wrlock", [] { return cu_Logger_removeAdapter("a"); }},
        {"pthread_rwlock_wrlock", cu_Logger_removeAllAdapters},
    };
    for (const auto& [lock, call] : calls) {
        const support::Injection injection(lock, EAGAIN);
        EXPECT_EQ(call(), cu_ERROR_MUTEX_LOCK_FAILED);
        EXPECT_THAT(support::trace(), HasSubstr("cu_Logger_"));
    }
    EXPECT_EQ(cu_Logger_log(3, "y"), 0U);
    EXPECT_THAT(adapter.take(), ElementsAre("3 y"));

    adapter.lastAnswer = 5;
    for (const char* failing : {"pthread_rwlock_unlock", "nothing but the adapter"}) {
        const support::Outcome outcome = support::outcomeOf([&] {
            const support::Injection injection(failing, EPERM);
            cu_Logger_removeAllAdapters();
        });
        EXPECT_EQ(outcome.status, 1);
        EXPECT_THAT(outcome.out, HasSubstr("! Fatal internal unrecoverable error encountered!"));
    }
}

TEST(Logger, aCancelledThreadLeavesNoLockBehind)
{
    Recorder adapter("a");
    adapter.act = [](uint32_t, const std::string&) {
        pthread_cancel(pthread_self());
        pthread_testcancel();
    };
    const auto run = [](void*) -> void* {
        EXPECT_EQ(cu_Logger_log(1, "line"), 0U);
        pthread_testcancel();
        return nullptr;
    };
    pthread_t thread = {};
    void* result = nullptr;
    ASSERT_EQ(pthread_create(&thread, nullptr, run, nullptr), 0);
    pthread_join(thread, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_EQ(cu_Logger_removeAdapter("a"), 0U);
}

TEST(Logger, eachThreadHasItsPointer)
{
    int mine = 0;
    void* pointer = nullptr;
    EXPECT_EQ(cu_Logger_setThreadSpecific(&mine), 0U);
    EXPECT_EQ(cu_Logger_setThreadSpecific(&pointer), cu_ERROR_COM_INVALID_ARGUMENT);
    EXPECT_EQ(cu_Logger_getThreadSpecific(nullptr), cu_ERROR_COM_INVALID_ARGUMENT);
    EXPECT_EQ(cu_Logger_getThreadSpecific(&pointer), 0U);
    EXPECT_EQ(pointer, &mine);
}

TEST(Logger, tellsTheBytesOfASemaphore)
{
    const Recorder adapter("a");
    alignas(sem_t) unsigned char bytes[sizeof(sem_t)] = {0, 1, 0xFF, 0x10};
    bytes[15] = 0xAB;
    char text[100];
    snprintf(text, sizeof(text), "2 sem(%p): 0 1 ff 10 0 0 0 0 0 0 0 0 0 0 0 ab", static_cast<void*>(bytes));
    EXPECT_EQ(cu_ipcSem_print(static_cast<sem_t*>(static_cast<void*>(bytes))), 0U);
    EXPECT_THAT(adapter.lines(), ElementsAre(text));
    EXPECT_REFUSED(cu_ipcSem_print(nullptr), "cu_ipcSem_print", "src/cUtil/ipcSemaphorePrint");
}

} // namespace
