#include <cUtil/commandLine.h>

#include "internal/owned.h"
#include "internal/rollback.h"

#include <cUtil/argumentArray.h>

#include <unistd.h>

namespace
{

struct Entry {
    Entry* next;
    uint32_t option; // 0: an additional argument
    char* text;      // null: an option without argument
};

} // namespace

struct cu_CommandLine {
    cu_allocator* allocator;
    Entry* options;
    Entry* additional;
    uint32_t additionalCount;
};

namespace
{

// Links a new entry in where the list ends, and moves the end on. The place is that of the exported function.
cu_ErrorCode append(internal::Place place, cu_allocator* allocator, Entry**& end, uint32_t option, const char* text)
{
    void* block = nullptr;
    if (const cu_ErrorCode code = cu_allocator_alloc(allocator, &block, sizeof(Entry)); code != 0)
        return code;
    CU_ROLLBACK(memory, cu_allocator_free(allocator, &block));
    void* copy = nullptr;
    if (text != nullptr) {
        const std::size_t length = strlen(text);
        if (length >= UINT32_MAX)
            return internal::report(cu_ERROR_COM_MALLOC_FAILED, 0, place, nullptr);
        const auto size = static_cast<uint32_t>(length + 1);
        if (const cu_ErrorCode code = cu_allocator_alloc(allocator, &copy, size); code != 0)
            return code;
        memcpy(copy, text, size);
    }
    memory.dismiss();
    *end = new (block) Entry{nullptr, option, static_cast<char*>(copy)};
    end = &(*end)->next;
    return 0;
}

// From the head on, so that what is left after a failure is a list.
cu_ErrorCode release(cu_allocator* allocator, Entry*& head)
{
    while (head != nullptr) {
        Entry* next = head->next;
        if (const cu_ErrorCode code = internal::freeArray(allocator, &head->text); code != 0)
            return code;
        if (const cu_ErrorCode code = internal::freeArray(allocator, &head); code != 0)
            return code;
        head = next;
    }
    return 0;
}

cu_ErrorCode releaseAll(cu_CommandLine* me)
{
    const cu_ErrorCode code = release(me->allocator, me->options);
    return code != 0 ? code : release(me->allocator, me->additional);
}

const Entry* find(const cu_CommandLine* me, uint32_t option)
{
    const Entry* entry = me->options;
    while (entry != nullptr && entry->option != option)
        entry = entry->next;
    return entry;
}

} // namespace

cu_ErrorCode cu_CommandLine_newFromArgs(cu_CommandLine** commandLine, int32_t argc, char** argv,
                                        const char* optionString, cu_allocator* allocator)
{
    CU_REQUIRE(commandLine != nullptr);
    CU_REQUIRE(*commandLine == nullptr);
    CU_REQUIRE(argc > 0);
    CU_REQUIRE(argv != nullptr);
    CU_REQUIRE(optionString != nullptr);

    optind = 0; // begins anew, whatever was parsed before
    opterr = 0;

    internal::Owned<cu_CommandLine> object;
    CU_TRY(object.allocate(allocator));
    CU_ROLLBACK(entries, releaseAll(object.get()));

    Entry** end = &object->options;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): one thread at a time makes a command line
    for (int option = 0; (option = getopt(argc, argv, optionString)) != -1;) {
        // Compatibility: these texts show what getopt() returned, not the option.
        if (option == ':')
            return CU_REPORT(cu_ERROR_MISSING_CMDLINE_OPTION, 0, "Option '%c' requires an argument.", option);
        if (option == '?')
            return CU_REPORT(cu_ERROR_UNKNOWN_CMDLINE_OPTION, 0, "Unknown option '%c'.", option);
        CU_TRY(append(CU_HERE, object->allocator, end, static_cast<unsigned char>(option), optarg));
    }
    end = &object->additional;
    for (int i = optind; i < argc; ++i) {
        CU_TRY(append(CU_HERE, object->allocator, end, 0, argv[i]));
        ++object->additionalCount;
    }
    entries.dismiss();
    *commandLine = object.release();
    return 0;
}

cu_ErrorCode cu_CommandLine_newFromString(cu_CommandLine** commandLine, const char* text, const char* optionString,
                                          cu_allocator* allocator)
{
    CU_REQUIRE(commandLine != nullptr);
    CU_REQUIRE(*commandLine == nullptr);
    CU_REQUIRE(text != nullptr);
    CU_REQUIRE(optionString != nullptr);

    cu_ArgumentArray* words = nullptr;
    CU_TRY(cu_ArgumentArray_new(&words, nullptr));
    CU_ROLLBACK(array, cu_ArgumentArray_delete(&words));
    char** argv = nullptr;
    uint32_t argc = 0;
    CU_TRY(cu_ArgumentArray_parse(words, text));
    CU_TRY(cu_ArgumentArray_get(words, &argv, &argc));
    CU_TRY(cu_CommandLine_newFromArgs(commandLine, static_cast<int32_t>(argc), argv, optionString, allocator));
    return 0;
}

cu_ErrorCode cu_CommandLine_hasOption(const cu_CommandLine* commandLine, uint32_t option, bool* present)
{
    CU_REQUIRE(commandLine != nullptr);
    CU_REQUIRE(option != 0);
    CU_REQUIRE(present != nullptr);
    *present = find(commandLine, option) != nullptr;
    return 0;
}

cu_ErrorCode cu_CommandLine_getOptarg(const cu_CommandLine* commandLine, uint32_t option, const char** argument)
{
    CU_REQUIRE(commandLine != nullptr);
    CU_REQUIRE(option != 0);
    CU_REQUIRE(argument != nullptr);
    const Entry* entry = find(commandLine, option);
    *argument = entry != nullptr ? entry->text : nullptr;
    return 0;
}

cu_ErrorCode cu_CommandLine_getNumAdditionalOptions(const cu_CommandLine* commandLine, uint32_t* count)
{
    CU_REQUIRE(commandLine != nullptr);
    CU_REQUIRE(count != nullptr);
    *count = commandLine->additionalCount;
    return 0;
}

cu_ErrorCode cu_CommandLine_getAdditionalOption(const cu_CommandLine* commandLine, uint32_t index,
                                                const char** argument)
{
    CU_REQUIRE(commandLine != nullptr);
    CU_REQUIRE(argument != nullptr);
    CU_REQUIRE(index < commandLine->additionalCount);
    const Entry* entry = commandLine->additional;
    while (index-- != 0)
        entry = entry->next;
    *argument = entry->text;
    return 0;
}

cu_ErrorCode cu_CommandLine_delete(cu_CommandLine** commandLine)
{
    CU_REQUIRE(commandLine != nullptr);
    CU_REQUIRE(*commandLine != nullptr);
    CU_TRY(releaseAll(*commandLine));
    CU_TRY(internal::freeObject(commandLine));
    return 0;
}
