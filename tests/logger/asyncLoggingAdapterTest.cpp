#include "logger/recorder.h"
#include "support/process.h"
#include "support/scale.h"
#include "support/sweep.h"

#include <cUtil/logger/asyncLoggingAdapter.h>
#include <cUtil/mallocAllocator.h>

#include <atomic>
#include <thread>

namespace
{

using support::Recorder;
using testing::ElementsAre;
using testing::SizeIs;

/// An adapter in front of a recorder that can be held up.
class AsyncLogging : public testing::Test
{
protected:
    void SetUp() override
    {
        wrapped.act = [this](uint32_t, const std::string& text) {
            if (text != "hold")
                return;
