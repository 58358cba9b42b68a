#include <cUtil/errorCodes.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace
{

constexpr uint32_t componentCount = 256;
constexpr char unknownComponent[] = "Unknown component";

// The texts of the catalogue lie one behind the other in read-only data and are found by offset: a table of pointers
// would cost one relocation a text.
template <std::size_t count>
struct TextIndex {
    std::array<uint16_t, count + 1> start = {};

    constexpr explicit TextIndex(const std::array<std::size_t, count>& sizes)
    {
        for (std::size_t at = 0; at < count; ++at)
            start[at + 1] = static_cast<uint16_t>(start[at] + sizes[at]);
    }
};

#define CU_NAME(number, name, description) #name "\0"
#define CU_NAME_SIZE(number, name, description) sizeof(#name),
#define CU_DESCRIPTION(number, name, description) description "\0"
#define CU_DESCRIPTION_SIZE(number, name, description) sizeof(description),

constexpr char commonNames[] = CU_COMMON_ERRORS(CU_NAME);
constexpr char commonDescriptions[] = CU_COMMON_ERRORS(CU_DESCRIPTION);
constexpr TextIndex commonNameIndex{std::array{CU_COMMON_ERRORS(CU_NAME_SIZE)}};
constexpr TextIndex commonDescriptionIndex{std::array{CU_COMMON_ERRORS(CU_DESCRIPTION_SIZE)}};
constexpr uint32_t commonCount = commonNameIndex.start.size() - 1;

constexpr char libraryNames[] = CU_LIBRARY_ERRORS(CU_NAME);
constexpr char libraryDescriptions[] = CU_LIBRARY_ERRORS(CU_DESCRIPTION);
constexpr TextIndex libraryNameIndex{std::array{CU_LIBRARY_ERRORS(CU_NAME_SIZE)}};
constexpr TextIndex libraryDescriptionIndex{std::array{CU_LIBRARY_ERRORS(CU_DESCRIPTION_SIZE)}};
constexpr uint32_t libraryCount = libraryNameIndex.start.size() - 1;

#undef CU_NAME
#undef CU_NAME_SIZE
#undef CU_DESCRIPTION
#undef CU_DESCRIPTION_SIZE

// The tables are indexed by the number within the component: it must count up from 0 without a gap.
#define CU_NUMBER(number, name, description) number,
constexpr bool countsUp(std::initializer_list<uint32_t> numbers)
{
    uint32_t expected = 0;
    for (const uint32_t number : numbers)
        if (number != expected++)
            return false;
    return true;
}
static_assert(countsUp({CU_COMMON_ERRORS(CU_NUMBER)}) && countsUp({CU_LIBRARY_ERRORS(CU_NUMBER)}));
#undef CU_NUMBER

const char* commonName(cu_ErrorCode code)
{
    return code < commonCount ? commonNames + commonNameIndex.start[code] : "Unknown common error code";
}

const char* commonDescription(cu_ErrorCode code)
{
    return code < commonCount ? commonDescriptions + commonDescriptionIndex.start[code] : "Unknown common error code";
}

const char* libraryName(cu_ErrorCode code)
{
    const uint32_t number = code - CU_ERROR_CODE(1U, 0U);
    return number < libraryCount ? libraryNames + libraryNameIndex.start[number]
                                 : "getName(): Unknown error code! Can't retrieve an associated name!";
}

const char* libraryDescription(cu_ErrorCode code)
{
    const uint32_t number = code - CU_ERROR_CODE(1U, 0U);
    return number < libraryCount ? libraryDescriptions + libraryDescriptionIndex.start[number] : CU_NO_DESCRIPTION;
}

// Each item may be read while another thread registers, so each is an atomic of its own; nothing ties the three
// together, so no order is needed beyond seeing what the texts hold.
struct Resolver {
    std::atomic<const char*> category;
    std::atomic<cu_ErrorTextFunction> name;
    std::atomic<cu_ErrorTextFunction> description;
};

constinit Resolver resolvers[componentCount] = {};

const Resolver& resolverOf(cu_ErrorCode code)
{
    return resolvers[code >> CU_ERROR_CODE_BITS];
}

void setResolver(uint32_t componentIndex, const char* category, cu_ErrorTextFunction name,
                 cu_ErrorTextFunction description, uint32_t bitSize)
{
    if (bitSize != CU_ERROR_CODE_BITS) {
        fprintf(stderr, "Component index '%u' has been compiled with different bit size!\nExpected: %u Got: %u\n",
                componentIndex, static_cast<uint32_t>(CU_ERROR_CODE_BITS), bitSize);
        exit(1);
    }
    if (componentIndex >= componentCount) {
        fprintf(stderr, "Invalid component index '%u'!\n", componentIndex);
        exit(1);
    }
    Resolver& resolver = resolvers[componentIndex];
    resolver.category.store(category, std::memory_order_release);
    resolver.name.store(name, std::memory_order_release);
    resolver.description.store(description, std::memory_order_release);
}

// Ahead of the constructors of a program that the library is linked into statically.
[[gnu::constructor(101)]] void registerBuiltInComponents()
{
    cu_SetResolver(1, "CUtilities", libraryName, libraryDescription, CU_ERROR_CODE_BITS);
    cu_SetResolver(0, "CommonErrorCodes", commonName, commonDescription, CU_ERROR_CODE_BITS);
}

} // namespace

const char* cu_GetErrorCategory(cu_ErrorCode code)
{
    const char* category = resolverOf(code).category.load(std::memory_order_acquire);
    return category != nullptr ? category : unknownComponent;
}

const char* cu_GetErrorName(cu_ErrorCode code)
{
    const cu_ErrorTextFunction name = resolverOf(code).name.load(std::memory_order_acquire);
    return name != nullptr ? name(code) : unknownComponent;
}

const char* cu_GetErrorDescription(cu_ErrorCode code)
{
    const cu_ErrorTextFunction description = resolverOf(code).description.load(std::memory_order_acquire);
    return description != nullptr ? description(code) : unknownComponent;
}

void cu_SetResolver(uint32_t componentIndex, const char* categoryName, cu_ErrorTextFunction nameFunction,
                    cu_ErrorTextFunction descriptionFunction, uint32_t bitSize)
{
    setResolver(componentIndex, categoryName, nameFunction, descriptionFunction, bitSize);
}

void cu_ClearResolver(uint32_t componentIndex, uint32_t bitSize)
{
    setResolver(componentIndex, nullptr, nullptr, nullptr, bitSize);
}
