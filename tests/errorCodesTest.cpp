#include "support/process.h"

#include <cUtil/errorCodes.h>

#include <gtest/gtest.h>

namespace
{

constexpr char unknownName[] = "getName(): Unknown error code! Can't retrieve an associated name!";
constexpr char unknownDescription[] =
    "getDescription(): Unknown error code! Can't retrieve an associated textual description!";

TEST(ErrorCodes, everyCodeHasItsNameDescriptionAndCategory)
{
    struct {
        uint32_t code;
        const char* name;
        const char* description;
        const char* category;
    } const cases[] = {
        {0, "cu_ERROR_COM_SUCCESS", "Function was successful.", "CommonErrorCodes"},
        {3, "cu_ERROR_COM_INVARIANT",
         "Invariant validation of state failed. This is a fatal internalerror and should never ever happen!",
         "CommonErrorCodes"},
        {9, "Unknown common error code", "Unknown common error code", "CommonErrorCodes"},
        {0x01000000, "cu_ERROR_SLEEP_FAILED", "Sleep failed.", "CUtilities"},
        {0x01000006, "cu_ERROR_SEM_GET_COUNT_FAILED", unknownDescription, "CUtilities"},
        {cu_ERROR_WINDOWS_FORMAT_MESSAGE_FAILED, "cu_ERROR_WINDOWS_FORMAT_MESSAGE_FAILED",
         "Called FormatMessage, but it failed by returning 0!", "CUtilities"},
        {0x0100004E, unknownName, unknownDescription, "CUtilities"},
        {0xFFFFFFFF, "Unknown component", "Unknown component", "Unknown component"},
    };
    for (const auto& expected : cases) {
        EXPECT_STREQ(cu_GetErrorName(expected.code), expected.name);
        EXPECT_STREQ(cu_GetErrorDescription(expected.code), expected.description);
        EXPECT_STREQ(cu_GetErrorCategory(expected.code), expected.category);
    }
    static_assert(CU_ERROR_CODE(255, 0xFFFFFF) == UINT32_MAX); // not negative, whatever the types of its parts
}

TEST(ErrorCodes, aComponentSeesTheWholeCodeUntilItIsCleared)
{
    static uint32_t seen = 0;
    const auto name = [](cu_ErrorCode code) {
        seen = code;
        return "name";
    };
    for (const uint32_t component : {2U, 255U}) {
        const uint32_t code = CU_ERROR_CODE(component, 0x00ABCDEFU);
        cu_SetResolver(
            component, "category", name, [](cu_ErrorCode) { return "description"; }, 24);
        EXPECT_STREQ(cu_GetErrorName(code), "name");
        EXPECT_EQ(seen, code);
        EXPECT_STREQ(cu_GetErrorDescription(code), "description");
        EXPECT_STREQ(cu_GetErrorCategory(code), "category");
        cu_ClearResolver(component, 24);
        EXPECT_STREQ(cu_GetErrorName(code), "Unknown component");
        EXPECT_STREQ(cu_GetErrorCategory(code), "Unknown component");
    }
}

TEST(ErrorCodes, aBadRegistrationEndsTheProcessAndTheBitSizeIsCheckedFirst)
{
    const auto badBitSize = support::outcomeOf([] { cu_SetResolver(300, "c", nullptr, nullptr, 16); });
    const auto badIndex = support::outcomeOf([] { cu_ClearResolver(256, 24); });
    EXPECT_EQ(std::pair(badBitSize.status, badIndex.status), std::pair(1, 1));
    EXPECT_EQ(badBitSize.error + badIndex.error,
              "Component index '300' has been compiled with different bit size!\nExpected: 24 Got: 16\n"
              "Invalid component index '256'!\n");
}

} // namespace
