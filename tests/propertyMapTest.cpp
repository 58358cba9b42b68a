#include "support/refusal.h"
#include "variantCases.h"

#include <cUtil/propertyMap.h>

#include <cerrno>

namespace
{

using support::Value;

constexpr char file[] = "src/cUtil/propertyMap";

// A map that ends by itself.
class Map : support::Pinned
{
public:
    Map() { EXPECT_EQ(cu_PropertyMap_init(&me_), 0U); }
    Map(std::initializer_list<const char*> names) : Map()
    {
        for (const char* name : names)
            EXPECT_EQ(cu_PropertyMap_insert(&me_, name, Value(cu_Variant_set_string, name)), 0U);
    }
    ~Map() { EXPECT_EQ(cu_PropertyMap_free(&me_), 0U); }

    operator cu_PropertyMap*() { return &me_; }
    const char* name(uint32_t at) const { return me_.properties[at].name; }
    cu_Variant* value(uint32_t at) const { return &me_.properties[at].value; }

    // Names and values in the order of the array.
    std::string shown() const
    {
        uint32_t size = ~0U;
        EXPECT_EQ(cu_PropertyMap_getSize(&me_, &size), 0U);
        std::string text;
        for (uint32_t at = 0; at < size; ++at)
            text += std::string(at != 0 ? ", " : "") + name(at) + ": " + support::show(*value(at));
        return text;
    }

private:
    cu_PropertyMap me_;
};

TEST(PropertyMap, keepsItsPropertiesInTheOrderOfTheirNames)
{
    Map map{"b", "a", "c"};
    EXPECT_EQ(map.shown(), "a: string a, b: string b, c: string c");
    EXPECT_EQ(cu_PropertyMap_insert(map, "a", Value(cu_Variant_set_bool, true)), 0U);
    EXPECT_EQ(map.shown(), "a: bool true, b: string b, c: string c");
    EXPECT_EQ((Map{"B", "\xE4", "a", "ab", "A"}.shown()),
              "A: string A, B: string B, a: string a, ab: string ab, \xE4: string \xE4");
}

TEST(PropertyMap, refusesBadArguments)
{
    Map map{"a"};
    Value value;
    uint32_t size = 0;
    cu_PropertyMap* me = map;
    const cu_PropertyMap* same = map;
    cu_Variant* variant = value;
    const cu_Variant* given = value;
    EXPECT_NULLS_REFUSED(file, (std::tuple{me, same, variant, given, "a", &size}), cu_PropertyMap_init,
                         cu_PropertyMap_free, cu_PropertyMap_clear, cu_PropertyMap_getSize, cu_PropertyMap_insert,
                         cu_PropertyMap_get, cu_PropertyMap_erase, cu_PropertyMap_clone);
    EXPECT_REFUSED(cu_PropertyMap_insert(map, "", value), "cu_PropertyMap_insert", file);
    EXPECT_REFUSED(cu_PropertyMap_get(map, "", value), "cu_PropertyMap_get", file);
    EXPECT_REFUSED(cu_PropertyMap_erase(map, ""), "cu_PropertyMap_erase", file);
    EXPECT_EQ(map.shown(), "a: string a");
}

TEST(PropertyMap, givesCopiesAndTakesNamesAndValuesOutOfItself)
{
    const std::string longName(100, 'n');
    const std::string shown = "string " + longName;
    Map map{"a", "b", longName.c_str()};
    // The array moves while a value in it is copied.
    for (int at = 0; at < 50; ++at)
        EXPECT_EQ(cu_PropertyMap_insert(map, ("c" + std::to_string(at)).c_str(), map.value(1)), 0U);
    EXPECT_EQ(support::show(*map.value(30)), "string b");
    EXPECT_EQ(cu_PropertyMap_insert(map, map.name(0), map.value(52)), 0U);
    EXPECT_EQ(cu_PropertyMap_get(map, "a", map.value(0)), 0U);
    EXPECT_EQ(support::show(*map.value(0)), shown);

    Value value(cu_Variant_set_string, longName.c_str());
    EXPECT_EQ(cu_PropertyMap_get(map, value->string, value), 0U);
    EXPECT_EQ(value.shown(), shown);
    EXPECT_EQ(cu_PropertyMap_erase(map, map.name(52)), 0U);
    EXPECT_EQ(cu_PropertyMap_get(map, value->string, value), 0U);
    EXPECT_EQ(value.shown(), "null");
    const std::string before = map.shown();
    EXPECT_EQ(cu_PropertyMap_clone(map, map), 0U);
    EXPECT_EQ(map.shown(), before);
}

TEST(PropertyMap, erasesAtTheEndsAndInTheMiddle)
{
    Map map{"a", "b", "c", "d"};
    for (const auto& [name, left] : {std::pair{"c", "a: string a, b: string b, d: string d"},
                                     {"a", "b: string b, d: string d"},
                                     {"c", "b: string b, d: string d"},
                                     {"d", "b: string b"},
                                     {"b", ""}}) {
        EXPECT_EQ(cu_PropertyMap_erase(map, name), 0U);
        EXPECT_EQ(map.shown(), left);
    }
    EXPECT_EQ(cu_PropertyMap_insert(map, "again", Value()), 0U);
    EXPECT_EQ(map.shown(), "again: null");
    EXPECT_EQ(cu_PropertyMap_clear(map), 0U);
    EXPECT_EQ(map.shown(), "");
}

TEST(PropertyMap, isAsItWasWhenMemoryIsExhausted)
{
    const Value tree(Value::vector({{cu_Variant_set_string, "text"}, Value::bytes("bytes")}));
    Map map{"a", "c"};
    const std::string before = map.shown();
    const auto unchanged = [&] { EXPECT_EQ(map.shown(), before); };
    EXPECT_EQ(support::exhaust([&] { return cu_PropertyMap_insert(map, "b", tree); }, unchanged), 5U);
    EXPECT_EQ(cu_PropertyMap_erase(map, "b"), 0U);
    EXPECT_EQ(support::exhaust([&] { return cu_PropertyMap_insert(map, "a", tree); }, unchanged), 3U);

    Map copy{"x"};
    const unsigned requests = support::exhaust([&] { return cu_PropertyMap_clone(copy, map); },
                                               [&] { EXPECT_EQ(copy.shown(), "x: string x"); });
    EXPECT_EQ(requests, 7U);
    EXPECT_EQ(copy.shown(), map.shown());

    // A copy that fails is told with the way to it.
    const Value text(cu_Variant_set_string, "text");
    const support::Injection refusal("strdup", ENOMEM, 2);
    EXPECT_FAILURE(cu_PropertyMap_insert(map, "d", text), cu_ERROR_COM_MALLOC_FAILED, "cu_Variant_set_string",
                   "src/cUtil/variant", "");
    EXPECT_NE(support::trace().find("cu_Property_init  -  "), std::string::npos);
    EXPECT_NE(support::trace().find("cu_PropertyMap_insert  -  "), std::string::npos);
}

TEST(PropertyMap, keepsAValueThatCannotBeReleased)
{
    Map map{"a", "b", "c"};
    ASSERT_EQ(cu_Variant_free(map.value(1)), 0U);
    *map.value(1) = {cu_VARIANT_VECTOR, {.vector = {nullptr, 1}}};
    EXPECT_REFUSED(cu_PropertyMap_erase(map, "b"), "cu_Variant_free", "src/cUtil/variant");
    EXPECT_REFUSED(cu_PropertyMap_insert(map, "b", Value(cu_Variant_set_string, "new")), "cu_Variant_free",
                   "src/cUtil/variant");
    EXPECT_REFUSED(cu_PropertyMap_clear(map), "cu_Variant_free", "src/cUtil/variant");
    map.value(1)->value.vector.count = 0;
    EXPECT_EQ(map.shown(), "a: string a, b: vector ()"); // the last one went
}

} // namespace
