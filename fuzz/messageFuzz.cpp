// Messages that somebody else wrote, read beside a text with a cursor. The first byte of the input tells how many bytes
// follow that choose calls, the rest is the message.
#include "holds.h"

#include <cUtil/errorCodes.h>
#include <cUtil/network/message.h>
#include <cUtil/tools/safeMalloc.h>

#include <algorithm>
#include <cstddef>
#include <string>

namespace
{

struct Model {
    std::string bytes;
    std::size_t cursor = 0;

    bool holds(std::size_t size) const { return size != 0 && size <= bytes.size() - cursor; }

    std::string take(std::size_t size)
    {
        const std::string taken = bytes.substr(cursor, size);
        cursor += size;
        return taken;
    }

    /// Takes a length; false if there is none, or less behind it.
    bool takeLength(std::size_t& length)
    {
        if (!holds(4))
            return false;
        length = 0;
        for (const char c : take(4))
            length = length << 8 | static_cast<unsigned char>(c);
        return length <= bytes.size() - cursor;
    }
};

std::string contentOf(const cu_Message* message)
{
    uint8_t* data = nullptr;
    uint32_t size = 0;
    HOLDS(cu_Message_get(message, &data) == 0 && cu_Message_getSize(message, &size) == 0);
    return std::string(data, data + size);
}

void read(cu_Message* message, Model& model, uint32_t size)
{
    std::string bytes(size, '\0');
    const bool can = model.holds(size);
    HOLDS((cu_Message_peek(message, bytes.data(), size) == 0) == can);
    HOLDS(!can || bytes == model.bytes.substr(model.cursor, size));
    HOLDS((cu_Message_read(message, bytes.data(), size) == 0) == can);
    HOLDS(!can || bytes == model.take(size));
}

void readString(cu_Message* message, Model& model, char** text)
{
    std::size_t length = 0;
    const bool can = model.takeLength(length);
    HOLDS((cu_Message_readString(message, text) == 0) == can);
    HOLDS(!can || std::string(*text, length + 1) == model.take(length) + '\0');
}

void readMessage(cu_Message* message, Model& model)
{
    std::size_t length = 0;
    const bool can = model.takeLength(length) && length != 0;
    cu_Message* inner = nullptr;
    HOLDS((cu_Message_readMessage(message, &inner) == 0) == can);
    HOLDS((inner != nullptr) == can);
    if (!can)
        return;
    HOLDS(contentOf(inner) == model.take(length));
    HOLDS(cu_Message_delete(&inner) == 0);
}

// What was written is read again, and what stood behind the cursor is gone.
void writeBack(cu_Message* message, Model& model, const std::string& text)
{
    HOLDS(cu_Message_writeString(message, text.c_str()) == 0);
    HOLDS(cu_Message_seek(message, static_cast<uint32_t>(model.cursor)) == 0);
    char* read = nullptr;
    HOLDS(cu_Message_readString(message, &read) == 0 && text == read);
    cu_safeFreeImpl(read);
    const std::string length = {0, 0, 0, static_cast<char>(text.size())};
    model.bytes = model.bytes.substr(0, model.cursor) + length + text;
    model.cursor = model.bytes.size();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::size_t calls = std::min<std::size_t>(data[0], size - 1);
    Model model = {std::string(data + 1 + calls, data + size)};
    cu_Message* message = nullptr;
    HOLDS(cu_Message_new(&message, 0, nullptr) == 0);
    if (!model.bytes.empty())
        HOLDS(cu_Message_write(message, model.bytes.data(), static_cast<uint32_t>(model.bytes.size())) == 0);
    HOLDS(cu_Message_seek(message, 0) == 0);
    char* text = nullptr;
    for (std::size_t i = 1; i <= calls; ++i) {
        const uint32_t number = data[i] / 5;
        switch (data[i] % 5) {
        case 0:
            readString(message, model, &text);
            break;
        case 1:
            readMessage(message, model);
            break;
        case 2:
            read(message, model, number);
            break;
        case 3: {
            const bool can = number <= model.bytes.size();
            HOLDS((cu_Message_seek(message, number) == 0) == can);
            model.cursor = can ? number : model.cursor;
            break;
        }
        default:
            writeBack(message, model, std::string(number, 'w'));
        }
        uint32_t cursor = 0;
        HOLDS(cu_Message_tell(message, &cursor) == 0 && cursor == model.cursor);
        HOLDS(contentOf(message) == model.bytes);
    }
    cu_safeFreeImpl(text);
    HOLDS(cu_Message_delete(&message) == 0);
    return 0;
}
