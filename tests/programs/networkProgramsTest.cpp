#include "programs/command.h"

#include <gmock/gmock.h>

namespace
{

using namespace support;
using testing::ContainsRegex;
using testing::FieldsAre;
using testing::HasSubstr;
using testing::StartsWith;

TEST(CutilNet, ListsTheLoopbackInterface)
{
    EXPECT_THAT(run(cutil + "net"), FieldsAre(0, ContainsRegex("lo +127\\.0\\.0\\.1 /8 +255\\.0\\.0\\.0\n")));
}

TEST(CutilNetwork, TellsHowItIsUsed)
{
    for (const std::string command : {"net"})
        EXPECT_THAT(run(cutil + command + " --help"), FieldsAre(0, StartsWith("usage: cutil " + command)));
    for (const std::string words : {"net x"})
        EXPECT_THAT(run(cutil + words + " 2>&1"), FieldsAre(2, HasSubstr("--help"))) << words;
}

} // namespace
