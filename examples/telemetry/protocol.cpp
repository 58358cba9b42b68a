#include "protocol.h"

#include <cUtil/errorCodes.h>
#include <cUtil/serializer.h>
#include <cUtil/tools/safeMalloc.h>

#include <vector>

namespace telemetry
{

namespace
{

/// A message as what numbers are written to and read from.
class Stream
{
public:
    explicit Stream(const Message& message) : serializer_{message.get(), write, read, nullptr} {}
    operator const cu_Serializer*() const { return &serializer_; }

private:
    static cu_ErrorCode write(void* message, const void* data, uint32_t size)
    {
        return cu_Message_write(static_cast<cu_Message*>(message), data, size);
    }
    static cu_ErrorCode read(void* message, void* data, uint32_t size)
    {
        return cu_Message_read(static_cast<cu_Message*>(message), data, size);
    }

    cu_Serializer serializer_;
};

cu_ErrorCode empty(const Message& message)
{
    const cu_ErrorCode code = cu_Message_seek(message.get(), 0);
    return code == 0 ? cu_Message_resize(message.get(), 0) : code;
}

cu_ErrorCode writeValue(const Stream& stream, const cu_Variant& value)
{
    cu_ErrorCode code = cu_Serializer_writeU32(stream, value.type);
    if (code != 0)
        return code;
    switch (value.type) {
    case cu_VARIANT_UINT64:
        return cu_Serializer_writeU64(stream, value.value.uint64);
    case cu_VARIANT_IEEE64:
        return cu_Serializer_writeIEEE64(stream, value.value.ieee64);
    case cu_VARIANT_VECTOR: {
        const cu_VariantVector& list = value.value.vector;
        code = cu_Serializer_writeU32(stream, list.count);
        for (uint32_t i = 0; i < list.count && code == 0; ++i)
            code = writeValue(stream, list.items[i]);
        return code;
    }
    default:
        return cu_ERROR_COM_INVALID_ARGUMENT;
    }
}

/// An element is a number: lists of lists are none of ours.
cu_ErrorCode readNumber(const Stream& stream, cu_VariantType type, cu_Variant& value)
{
    cu_ErrorCode code = cu_ERROR_COM_INVALID_ARGUMENT;
    if (type == cu_VARIANT_UINT64) {
        uint64_t number = 0;
        code = cu_Serializer_readU64(stream, &number);
        return code == 0 ? cu_Variant_set_uint64(&value, number) : code;
    }
    if (type == cu_VARIANT_IEEE64) {
        double number = 0;
        code = cu_Serializer_readIEEE64(stream, &number);
        return code == 0 ? cu_Variant_set_ieee64(&value, number) : code;
    }
    return code;
}

cu_ErrorCode readValue(const Stream& stream, cu_Variant& value)
{
    cu_VariantType type = 0;
    cu_ErrorCode code = cu_Serializer_readU32(stream, &type);
    if (code != 0 || type != cu_VARIANT_VECTOR)
        return code == 0 ? readNumber(stream, type, value) : code;
    uint32_t count = 0;
    code = cu_Serializer_readU32(stream, &count);
    std::vector<cu_Variant> items; // grows by what has come, not by what was announced
    for (uint32_t i = 0; i < count && code == 0; ++i) {
        code = cu_Serializer_readU32(stream, &type);
        if (code == 0)
            code = readNumber(stream, type, items.emplace_back());
    }
    return code == 0 ? cu_Variant_set_vector(&value, items.data(), count) : code;
}

cu_ErrorCode readProperty(const Stream& stream, const Message& message, Properties& properties)
{
    char* name = nullptr;
    cu_Variant value{};
    cu_ErrorCode code = cu_Message_readString(message.get(), &name);
    if (code == 0)
        code = readValue(stream, value);
    if (code == 0)
        code = properties.insert(name, value);
    cu_Variant_free(&value);
    if (name != nullptr)
        cu_safeFreeImpl(name);
    return code;
}

} // namespace

cu_ErrorCode makeMessage(Message& message)
{
    cu_Message* made = nullptr;
    const cu_ErrorCode code = cu_Message_new(&made, 0, nullptr);
    message.reset(made);
    return code;
}

cu_ErrorCode writeRequest(const Message& message, uint32_t seconds)
{
    const cu_ErrorCode code = empty(message);
    return code == 0 ? cu_Serializer_writeU32(Stream(message), seconds) : code;
}

cu_ErrorCode writeAnswer(const Message& message, const Properties& properties)
{
    const Stream stream(message);
    const std::span<const cu_Property> all = properties.all();
    cu_ErrorCode code = empty(message);
    if (code == 0)
        code = cu_Serializer_writeU32(stream, static_cast<uint32_t>(all.size()));
    for (const cu_Property& property : all) {
        if (code == 0)
            code = cu_Message_writeString(message.get(), property.name);
        if (code == 0)
            code = writeValue(stream, property.value);
    }
    return code;
}

cu_ErrorCode readRequest(const Message& message, uint32_t& seconds)
{
    const cu_ErrorCode code = cu_Message_seek(message.get(), 0);
    return code == 0 ? cu_Serializer_readU32(Stream(message), &seconds) : code;
}

cu_ErrorCode readAnswer(const Message& message, Properties& properties)
{
    const Stream stream(message);
    uint32_t count = 0;
    cu_ErrorCode code = cu_Message_seek(message.get(), 0);
    if (code == 0)
        code = cu_Serializer_readU32(stream, &count);
    for (uint32_t i = 0; i < count && code == 0; ++i)
        code = readProperty(stream, message, properties);
    return code;
}

} // namespace telemetry
