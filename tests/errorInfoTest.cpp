#include "support/inject.h"
#include "support/process.h"
#include "support/record.h"

#include <cUtil/allocator.h>
#include <cUtil/tools/safeMalloc.h>

#include <gmock/gmock.h>

#include <cstdlib>
#include <functional>
#include <pthread.h>
#include <regex>
#include <thread>
#include <utility>
#include <vector>

namespace
{

constexpr char placeholder[] = "Currently no information available.";

void report(cu_ErrorCode code)
{
    cu_Error_report(cu_getErrorLocation(), code, 0, "function", 1, "file", nullptr);
}

TEST(ErrorRecord, aReportKeepsWhatItIsNotGivenAndStartsANewTrace)
{
    cu_Error_report(cu_getErrorLocation(), 5, 6, "f", 7, "g", "%d", 8);
    EXPECT_STREQ(ku_getErrorMessage(), "8");
    cu_Error_setStackTracePoint(cu_getErrorLocation(), "a", 1, "b");
    cu_Error_report(cu_getErrorLocation(), cu_ERROR_USER_INVALID, 0, "h", 0, "i", nullptr);
    EXPECT_EQ(ku_getErrorCode(), cu_ErrorCode{cu_ERROR_USER_INVALID});
    EXPECT_EQ(ku_getSystemErrorCode(), 6);
    EXPECT_EQ(ku_getLineNumber(), 7U);
    EXPECT_STREQ(ku_getFunctionName(), "h");
    EXPECT_STREQ(ku_getFileName(), "i");
    EXPECT_STREQ(ku_getErrorMessage(), "");
    EXPECT_STREQ(ku_getErrorCategory(), "CUtilities");
    EXPECT_STREQ(ku_getErrorName(), "cu_ERROR_USER_INVALID");
    EXPECT_STREQ(ku_getErrorDescription(), "Invalid user name or id.");
    EXPECT_EQ(support::trace(), "");
}

TEST(ErrorRecord, textsAreCutAndMayQuoteTheRecordItself)
{
    cu_Error record = {};
    const std::string text(2000, 'x');
    cu_Error_report(&record, 1, 0, "f", 1, "g", "%s", text.c_str());
    EXPECT_EQ(record.description, text.substr(0, 999));
    cu_Error_report(&record, 1, 0, "f", 1, "g", "before");
    cu_Error_setStackTracePoint(&record, "a", 1, "b");
    cu_Error_report(&record, 1, 0, "f", 1, "g", "<%s|%s>", record.description, record.stackTrace);
    EXPECT_STREQ(record.description, "<before|a  -  b:1\n>");

    for (int point = 0; point < 10; ++point)
        cu_Error_setStackTracePoint(&record, text.substr(0, 150).c_str(), 12, "file");
    EXPECT_EQ(strlen(record.stackTrace), 998U);
    EXPECT_EQ(record.stackTrace[999], '\0');
    EXPECT_EQ(std::string(record.stackTrace).find(text.substr(0, 150) + "  -  file:12\nx"), 0U);
}

TEST(ErrorRecord, badArgumentsAreToldOnStandardOutputAndTheRestIsDone)
{
    const auto outcome = support::outcomeOf([] {
        cu_Error record = {};
        char text[8] = "kept";
        cu_Error_createReport(&record, nullptr, 8);
        cu_Error_createReport(nullptr, text, 8);
        cu_Error_createReport(&record, text, 0);
        cu_Error_createReport(&record, text, 8);
        EXPECT_STREQ(text, "kept");
        cu_Error_writeIntoErrorLog(nullptr);
        cu_Error_report(nullptr, 1, 1, "f", 1, "g", "d");
        cu_Error_report(&record, 4, 1, nullptr, 1, nullptr, "d");
        record.stackTrace[0] = 'x';
        cu_Error_report(&record, 0, 2, "f", 3, "g", "d");
        EXPECT_TRUE(record.errorID == 4 && record.systemErrorCode == 2 && record.lineNumber == 3);
        EXPECT_STREQ(record.stackTrace, "");
        cu_Error_setStackTracePoint(nullptr, "f", 1, "g");
        EXPECT_EQ(cu_Error_getError(nullptr), 0U);
        EXPECT_EQ(cu_Error_getSystemErrorCode(nullptr), 0);
        EXPECT_EQ(cu_Error_getLineNumber(nullptr), 0U);
        for (const auto get : {cu_Error_getFunctionName, cu_Error_getFileName, cu_Error_getDescription})
            EXPECT_STREQ(get(nullptr), "N/A (Encountered internal error!)");
    });
    const std::regex form("FATAL INTERNAL ERROR IN ERROR HANDLER!\n======================================\n"
                          "THIS IS A SEVERE ERROR BECAUSE THERE IS NOW NO SAVE WAY TO REPORT\n"
                          "ERROR VIA ENCRYPTED LOGFILES! THEREFORE THE FOLLOWING WILL DISPLAY\n"
                          "INTERNAL INFORMATION ABOUNT THE ERROR HANDLER \\(IN CASE THIS MESSAGE\n"
                          "CAN BE READ ANYWAY!\\):\nDetected '(.*)' as invalid \\(value/pointer\\)\n"
                          "File: src/cUtil/errorInfo, \nFunction: cu_Error_(.*)\nLine: [0-9]+");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(std::regex_replace(outcome.out, form, "$2: $1, "),
              "createReport: destination, createReport: me, createReport: length, createReport: me->errorID, "
              "createReport: me, report: me, report: function, report: file, report: error, setStackTracePoint: me, "
              "getError: me, getSystemErrorCode: me, getLineNumber: me, getFunctionName: me, getFileName: me, "
              "getDescription: me, ");
}

TEST(ErrorRecord, copyAndClearEndTheProcessWithoutARecord)
{
    cu_Error record = {};
    const std::string text("!{61}\n! Fatal internal unrecoverable error encountered!\n! File: 'src/cUtil/errorInfo'\n"
                           "! Line: '[0-9]+'\n! Function: 'cu_Error_(copy|clear)'\n"
                           "! Going to terminate the program to avoid further damage to \n! the system!\n!{61}\n");
    const std::function<void()> calls[] = {[&] { cu_Error_copy(nullptr, &record); },
                                           [&] { cu_Error_copy(&record, nullptr); }, [] { cu_Error_clear(nullptr); }};
    for (const auto& call : calls) {
        const auto outcome = support::outcomeOf(call);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_THAT(outcome.out, testing::MatchesRegex(text));
    }

    cu_Error_report(&record, 1, 2, "f", 3, "g", "d");
    cu_Error copy;
    cu_Error_copy(&copy, &record);
    EXPECT_EQ(memcmp(&copy, &record, sizeof(copy)), 0);
    cu_Error_clear(&copy);
    const cu_Error empty = {};
    EXPECT_EQ(memcmp(&copy, &empty, sizeof(copy)), 0);
}

TEST(ErrorRecord, theReportHoldsAllButTheSystemCode)
{
    cu_Error_report(cu_getErrorLocation(), 0x81000002, 13, "cu_F", 42, "src/cUtil/f", "what happened");
    cu_Error_setStackTracePoint(cu_getErrorLocation(), "cu_G", 7, "src/cUtil/g");
    const std::string whole = "ERROR: #-2130706430\nUnknown component\n\nORIGIN:\nFunction:    cu_F\n"
                              "File:        src/cUtil/f\nLine:        42\n\nCONTEXT-SENSITIVE INFORMATION\n"
                              "what happened\n\nFURTHER STACK TRACE\ncu_G  -  src/cUtil/g:7\n\n";
    char text[1024];
    ku_createReport(text, sizeof(text));
    EXPECT_EQ(text, whole);
    cu_Error_createReport(cu_getErrorLocation(), text, 10);
    EXPECT_EQ(text, whole.substr(0, 9));
}

TEST(ErrorLocation, recordsBelongToThreads)
{
    report(1);
    std::thread([] {
        EXPECT_EQ(ku_getErrorCode(), 0U);
        EXPECT_STREQ(ku_getFileName(), placeholder);
        EXPECT_STREQ(ku_getFunctionName(), placeholder);
        report(2);
    }).join();
    EXPECT_EQ(ku_getErrorCode(), 1U);
}

TEST(ErrorLocation, anExhaustedHeapEndsInTheFallBackRecordAndTheCodeIsReturnedAllTheSame)
{
    const auto outcome = support::outcomeOf([] {
        std::thread([] {
            const cu_Error* fallBack = nullptr;
            {
                const auto exhausted = support::Injection::ofEvery("calloc", ENOMEM);
                fallBack = cu_getErrorLocation();
                EXPECT_STREQ(fallBack->functionName, placeholder);
                void* block = nullptr;
                EXPECT_EQ(cu_safeMalloc(&block, 1), cu_ERROR_COM_MALLOC_FAILED);
                EXPECT_EQ(cu_getErrorLocation(), fallBack);
                EXPECT_EQ(fallBack->errorID, 0U);
            }
            report(1);
            EXPECT_NE(cu_getErrorLocation(), fallBack);
            EXPECT_EQ(ku_getErrorCode(), 1U);
        }).join();
        std::thread([] {
            // One refused request must not leave a record that the nested report made.
            const support::Injection once("calloc", ENOMEM);
            EXPECT_EQ(cu_getErrorLocation()->errorID, 0U);
            EXPECT_EQ(cu_getErrorLocation()->errorID, 0U);
        }).join();
        std::thread([] {
            const support::Injection noKey("pthread_setspecific", ENOMEM);
            EXPECT_NE(cu_getErrorLocation(), nullptr);
            EXPECT_NE(noKey.fired(), nullptr);
        }).join();
    });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "");
}

TEST(ErrorLocation, aThreadAsksForMemoryOnlyForItsFirstError)
{
    std::thread([] {
        report(1);
        const support::Injection untouched(1);
        cu_Error_report(cu_getErrorLocation(), 2, 3, "f", 4, "g", "%s", std::string(1500, 'x').c_str());
        cu_Error_setStackTracePoint(cu_getErrorLocation(), "f", 1, "g");
        char text[1024];
        ku_createReport(text, sizeof(text));
        EXPECT_EQ(untouched.fired(), nullptr);
    }).join();
}

// The order in which the keys' destructors run is the system's affair, so keys stand on both sides of the record's.
pthread_key_t laterKey;
int runs = 0;

void failWhileEnding(void* value)
{
    if (*static_cast<int*>(value) != 0)
        pthread_setspecific(laterKey, value);
    *static_cast<int*>(value) = 0;
    report(0x02000011);
    runs += ku_getErrorCode() == 0x02000011 ? 1 : 100;
}

TEST(ErrorLocation, worksInDestructorsOfThreadSpecificDataAfterItWasFreed)
{
    cu_getErrorLocation();
    ASSERT_EQ(pthread_key_create(&laterKey, failWhileEnding), 0);
    int again = 1;
    std::thread([&] {
        report(1);
        pthread_setspecific(laterKey, &again);
    }).join();
    EXPECT_EQ(runs, 2);
    pthread_key_delete(laterKey);
}

TEST(ErrorLocation, worksInExitHandlersOnBothSidesOfItsOwn)
{
    const auto outcome = support::outcomeOf([] {
        const auto handler = [] {
            report(0x02000012);
            fprintf(stderr, "%X ", ku_getErrorCode());
        };
        std::atexit(handler);
        report(1);
        std::atexit(handler);
        std::exit(3);
    });
    EXPECT_EQ(outcome.status, 3);
    EXPECT_EQ(outcome.error, "2000012 2000012 ");
}

TEST(ErrorLog, anEntryIsFramedAndTellsWhoWhenAndWhat)
{
    const auto outcome = support::outcomeOf([] {
        cu_addVersionInfoCallback([] { return "Component 1.2"; });
        cu_Error_report(cu_getErrorLocation(), cu_ERROR_SLEEP_FAILED, 0, "f", 1, "g", "d");
        cu_writeIntoErrorLog();
        const support::Injection withoutFile("open64", EACCES);
        cu_logErrorMessage(nullptr);
    });
    const std::string rule(80, '-');
    const std::string head("={80}\nComponent 1\\.2\n[0-9]+\\.[0-9]+\\.2[0-9]{3} at [0-9]{2}:[0-9]{2}:[0-9]{2}\nCmd: '");
    const std::string entry(head + ".*rootTes.*[^ ]'\nPID: '[0-9]+'\n" + rule +
                            "\nERROR: #16777216\nSleep failed\\.\n[^=]*FURTHER STACK TRACE\n\n\n" + rule + "\n" + head +
                            "'\nPID: '[0-9]+'\n" + rule + "\n\n" + rule + "\n");
    EXPECT_THAT(outcome.error, testing::MatchesRegex(entry));
    EXPECT_STREQ(cu_getLogName(), "zevErrorLog.txt");
}

TEST(ErrorLog, anEntryOfACancelledThreadIsFinishedAndLocksNobodyOut)
{
    const auto outcome = support::outcomeOf([] {
        cu_addVersionInfoCallback([] {
            static bool once = true;
            if (std::exchange(once, false))
                pthread_cancel(pthread_self());
            return "version";
        });
        std::thread([] { cu_logErrorMessage("first"); }).join();
        cu_logErrorMessage("second");
    });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_NE(outcome.error.find("first"), std::string::npos);
    EXPECT_NE(outcome.error.find("second"), std::string::npos);
}

template <int... number>
std::vector<cu_VersionInfoCallback> callbacks(std::integer_sequence<int, number...>)
{
    return {[] { return number == 0 ? "first" : "other"; }...};
}

TEST(ErrorLog, tenVersionCallbacksFindPlaceAndEachOnlyOnce)
{
    cu_VersionInfoCallback* slots = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(cu_getVersionInfoCallbacks(nullptr, &count), -1);
    EXPECT_EQ(cu_getVersionInfoCallbacks(&slots, nullptr), -1);
    ASSERT_EQ(cu_getVersionInfoCallbacks(&slots, &count), 0);
    auto all = callbacks(std::make_integer_sequence<int, 11>());
    const cu_VersionInfoCallback eleventh = all.back();
    all.pop_back();
    for (const auto callback : all) {
        EXPECT_EQ(cu_addVersionInfoCallback(callback), 0);
        EXPECT_EQ(cu_addVersionInfoCallback(callback), 0);
    }
    EXPECT_EQ(all, std::vector(slots, slots + count));
    EXPECT_EQ(cu_addVersionInfoCallback(nullptr), -1);
    EXPECT_EQ(cu_addVersionInfoCallback(eleventh), -1);
    EXPECT_EQ(cu_delVersionInfoCallback(nullptr), -1);
    EXPECT_EQ(cu_delVersionInfoCallback(eleventh), 0);
    EXPECT_EQ(cu_delVersionInfoCallback(all[3]), 0);
    EXPECT_EQ(slots[3], nullptr);
    EXPECT_EQ(cu_addVersionInfoCallback(eleventh), 0);
    EXPECT_EQ(slots[3], eleventh);
}

TEST(DebugAssert, remembersWhatTheEnvironmentSaidFirst)
{
    for (const bool set : {true, false}) {
        const auto outcome = support::outcomeOf([set] {
            for (const bool there : {set, !set}) {
                there ? setenv("ZEV_CUTIL_ASSERT_ABORT", "", 1) : unsetenv("ZEV_CUTIL_ASSERT_ABORT");
                EXPECT_EQ(cu_DebugAssert(), set);
            }
        });
        EXPECT_EQ(outcome.status, 0) << outcome.out;
    }
}

} // namespace
