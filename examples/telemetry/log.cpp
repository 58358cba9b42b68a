#include "log.h"

#include "messages.h"

#include <cUtil/logger/asyncLoggingAdapter.h>
#include <cUtil/logger/fileLoggingAdapter.h>
#include <cUtil/logger/logger.h>
#include <cUtil/logger/tcpLoggingAdapter.h>

#include <memory>

namespace telemetry
{

namespace
{

constexpr uint32_t bufferSize = 65536; // of the lines that wait for the file, in bytes

struct EndAdapter {
    void operator()(cu_logger_Adapter* adapter) const
    {
        if (const cu_ErrorCode code = cu_logger_Adapter_destruct(&adapter); code != 0)
            static_cast<void>(failByRecord(code, "ending an adapter of the log"));
    }
};
using Adapter = std::unique_ptr<cu_logger_Adapter, EndAdapter>;

cu_ErrorCode makeFile(Adapter& adapter, const std::string& path)
{
    cu_logger_Adapter* file = nullptr;
    cu_ErrorCode code = cu_logger_FileLoggingAdapter_new(&file, path.c_str(), nullptr);
    adapter.reset(file);
    cu_logger_Adapter* queue = nullptr;
    if (code == 0)
        code = cu_logger_AsyncLoggingAdapter_new(&queue, file, bufferSize, nullptr);
    if (code == 0) {
        static_cast<void>(adapter.release()); // the queue's now
        adapter.reset(queue);
    }
    return code;
}

cu_ErrorCode makePort(Adapter& adapter, uint32_t address, uint16_t port)
{
    cu_logger_Adapter* made = nullptr;
    const cu_ErrorCode code = cu_logger_TCPLoggingAdapter_new(&made, address, port, nullptr);
    adapter.reset(made);
    return code;
}

bool add(const char* name, Adapter adapter, cu_ErrorCode code)
{
    if (code == 0)
        code = cu_Logger_addAdapter(name, adapter.get(), cu_logger_LEVEL_DEBUG);
    if (code != 0) {
        static_cast<void>(failByRecord(code, name));
        return false;
    }
    static_cast<void>(adapter.release()); // the logger's now
    return true;
}

} // namespace

Log::~Log()
{
    if (const cu_ErrorCode code = cu_Logger_removeAllAdapters(); code != 0)
        static_cast<void>(failByRecord(code, "ending the log"));
}

bool Log::start(const std::string& path, uint32_t address, uint16_t port)
{
    Adapter file;
    Adapter network;
    const cu_ErrorCode fileCode = makeFile(file, path);
    if (!add("the log's file", std::move(file), fileCode))
        return false;
    const cu_ErrorCode networkCode = makePort(network, address, port);
    return add("the log's port", std::move(network), networkCode);
}

} // namespace telemetry
