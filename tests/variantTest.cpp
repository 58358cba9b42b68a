#include "support/refusal.h"
#include "variantCases.h"

#include <cmath>
#include <functional>
#include <limits>
#include <sstream>

namespace
{

using support::typeNames;
using support::Value;

constexpr char file[] = "src/cUtil/variant";

cu_ErrorCode (*const conversions[])(cu_Variant*) = {
    cu_Variant_convert_null,   cu_Variant_convert_bool,   cu_Variant_convert_sint8,  cu_Variant_convert_uint8,
    cu_Variant_convert_sint16, cu_Variant_convert_uint16, cu_Variant_convert_sint32, cu_Variant_convert_uint32,
    cu_Variant_convert_sint64, cu_Variant_convert_uint64, cu_Variant_convert_ieee32, cu_Variant_convert_ieee64,
    cu_Variant_convert_string, cu_Variant_convert_binary, cu_Variant_convert_vector};

// What a value becomes as each type from bool on; - where it does not, ! where the text cannot be read. More borders
// are beside exact arithmetic in the fuzz target.
struct Row {
    Value source;
    const char* results;
};
const Row rows[] = {
    // clang-format off
    {{}, "- - - - - - - - - - - - - -"},
    //                           bool sint8 uint8 sint16 uint16 sint32 uint32 sint64 uint64 ieee32 ieee64 string binary vector
    {{cu_Variant_set_bool, true}, "true 1 1 1 1 1 1 1 1 1 1 true - -"},
    {{cu_Variant_set_sint8, INT8_MIN}, "true -128 - -128 - -128 - -128 - -128 -128 -128 - -"},
    {{cu_Variant_set_sint16, -129}, "true - - -129 - -129 - -129 - -129 -129 -129 - -"},
    {{cu_Variant_set_uint16, 256}, "true - - 256 256 256 256 256 256 256 256 256 - -"},
    {{cu_Variant_set_sint32, INT32_MAX}, "true - - - - 2147483647 2147483647 2147483647 2147483647 2.14748365e+09 2147483647 2147483647 - -"},
    {{cu_Variant_set_sint64, INT64_MIN}, "true - - - - - - -9223372036854775808 - -9.22337204e+18 -9.2233720368547758e+18 -9223372036854775808 - -"},
    {{cu_Variant_set_sint64, 0x4000'0040'0000'0001LL}, "true - - - - - - 4611686293305294849 4611686293305294849 4.61168657e+18 4.6116862933052948e+18 4611686293305294849 - -"},
    {{cu_Variant_set_uint64, UINT64_MAX}, "true - - - - - - - 18446744073709551615 1.84467441e+19 1.8446744073709552e+19 18446744073709551615 - -"},
    {{cu_Variant_set_ieee32, 0x1p31F}, "true - - - - 2147483647 2147483648 2147483648 2147483648 2.14748365e+09 2147483648 2147483648.000000 - -"},
    {{cu_Variant_set_ieee32, 0x1p64F}, "true - - - - - - - 18446744073709551615 1.84467441e+19 1.8446744073709552e+19 18446744073709551616.000000 - -"},
    {{cu_Variant_set_ieee32, NAN}, "true 0 0 0 0 0 0 0 0 nan nan nan - -"},
    {{cu_Variant_set_ieee64, 127.9}, "true - 127 127 127 127 127 127 127 127.900002 127.90000000000001 127.900000 - -"},
    {{cu_Variant_set_ieee64, 1e39}, "true - - - - - - - - inf 9.9999999999999994e+38 999999999999999939709166371603178586112.000000 - -"},
    {{cu_Variant_set_string, "1"}, "true 1 1 1 1 1 1 1 1 1 1 1 [31] -"},
    {{cu_Variant_set_string, "TRUE"}, "true ! ! ! ! ! ! ! ! ! ! TRUE [54525545] -"},
    {{cu_Variant_set_string, "12.5"}, "! ! ! ! ! ! ! ! ! 12.5 12.5 12.5 [31322E35] -"},
    {Value::bytes({"1\0", 2}), "- - - - - - - - - - - - [3100] -"},
    {Value::vector({Value()}), "- - - - - - - - - - - - - (null)"},
    // clang-format on
};

cu_VariantType is(const cu_Variant* variant)
{
    cu_VariantType type = ~0U;
    EXPECT_EQ(cu_Variant_getType(variant, &type), 0U);
    return type;
}

TEST(Variant, becomesAnyOtherTypeOrStaysAsItIs)
{
    for (const Row& row : rows) {
        std::istringstream results(row.results);
        std::string expected;
        for (uint32_t type = cu_VARIANT_BOOL; results >> expected; ++type) {
            for (const bool dispatched : {false, true}) {
                SCOPED_TRACE(row.source.shown() + " to " + typeNames[type] + (dispatched ? ", dispatched" : ""));
                const std::string member = std::string("cu_Variant_convert_") + typeNames[type];
                Value value(row.source);
                const char* owned = value->string;
                cu_ErrorCode code = ~0U;
                const support::Failure failure = support::failureOf([&] {
                    code = dispatched ? cu_Variant_convert(value, type) : conversions[type](value);
                    return code;
                });
                std::string path = dispatched ? "cu_Variant_convert  -  " : "";
                if (expected == "-") {
                    EXPECT_EQ(failure, (support::Failure{cu_ERROR_CONVERSION_FAILED, member, file, ""}));
                } else if (expected == "!") {
                    EXPECT_EQ(failure.file, "src/cUtil/convert");
                    path = member + "  -  ";
                } else {
                    EXPECT_EQ(code, 0U);
                    EXPECT_EQ(value.shown(), std::string(typeNames[type]) + ' ' + expected);
                    if (type >= cu_VARIANT_STRING && is(row.source) >= cu_VARIANT_STRING) {
                        EXPECT_EQ(value->string, owned) << "nothing is copied";
                    }
                    continue;
                }
                EXPECT_NE(support::trace().find(path), std::string::npos) << support::trace();
                EXPECT_EQ(value.shown(), row.source.shown());
            }
        }
        Value value(row.source);
        EXPECT_EQ(cu_Variant_convert(value, cu_VARIANT_NULL), 0U);
        EXPECT_EQ(value.shown(), "null");
    }
}

template <typename T>
void expectRoundTrip(cu_ErrorCode (*set)(cu_Variant*, T), cu_ErrorCode (*get)(const cu_Variant*, T*), uint32_t type)
{
    const std::string name = typeNames[type];
    SCOPED_TRACE(name);
    T got = {};
    for (const T given : {std::numeric_limits<T>::min(), std::numeric_limits<T>::max()}) {
        Value value(cu_Variant_set_string, "what was there before");
        EXPECT_EQ(set(value, given), 0U);
        EXPECT_EQ(get(value, &got), 0U);
        EXPECT_EQ(got, given);
        EXPECT_EQ(is(value), type);
    }
    for (uint32_t other = 0; other < std::size(typeNames) + 1; ++other) {
        if (const cu_Variant wrong = {other, {}}; other != type) {
            EXPECT_FAILURE(get(&wrong, &got), cu_ERROR_COM_INVARIANT, "cu_Variant_get_" + name, file, "");
        }
    }
    EXPECT_EQ(got, std::numeric_limits<T>::max());
    cu_Variant variant = {};
    const std::tuple good{&variant, static_cast<const cu_Variant*>(&variant), &got};
    support::expectNullsRefused("cu_Variant_get_" + name, file, good, get);
    support::expectNullsRefused("cu_Variant_convert_" + name, file, good, conversions[type]);
    EXPECT_REFUSED(set(nullptr, got), "cu_Variant_free", file);
    EXPECT_EQ(support::trace().find("cu_Variant_set_" + name + "  -  "), 0U);
}

TEST(Variant, givesBackANumberAsTheTypeThatItWasSetAs)
{
    expectRoundTrip(cu_Variant_set_bool, cu_Variant_get_bool, cu_VARIANT_BOOL);
    expectRoundTrip(cu_Variant_set_sint8, cu_Variant_get_sint8, cu_VARIANT_SINT8);
    expectRoundTrip(cu_Variant_set_uint8, cu_Variant_get_uint8, cu_VARIANT_UINT8);
    expectRoundTrip(cu_Variant_set_sint16, cu_Variant_get_sint16, cu_VARIANT_SINT16);
    expectRoundTrip(cu_Variant_set_uint16, cu_Variant_get_uint16, cu_VARIANT_UINT16);
    expectRoundTrip(cu_Variant_set_sint32, cu_Variant_get_sint32, cu_VARIANT_SINT32);
    expectRoundTrip(cu_Variant_set_uint32, cu_Variant_get_uint32, cu_VARIANT_UINT32);
    expectRoundTrip(cu_Variant_set_sint64, cu_Variant_get_sint64, cu_VARIANT_SINT64);
    expectRoundTrip(cu_Variant_set_uint64, cu_Variant_get_uint64, cu_VARIANT_UINT64);
    expectRoundTrip(cu_Variant_set_ieee32, cu_Variant_get_ieee32, cu_VARIANT_IEEE32);
    expectRoundTrip(cu_Variant_set_ieee64, cu_Variant_get_ieee64, cu_VARIANT_IEEE64);
}

TEST(Variant, refusesBadArguments)
{
    Value value(cu_Variant_set_string, "kept");
    cu_Variant* variant = value;
    const cu_Variant* same = value;
    const char* text = nullptr;
    const cu_VariantBinary* binary = nullptr;
    const cu_VariantVector* vector = nullptr;
    cu_VariantType type = 0;
    bool less = false;
    EXPECT_NULLS_REFUSED(file, (std::tuple{variant, same, &text, &binary, &vector, &type, &less}), cu_Variant_init,
                         cu_Variant_free, cu_Variant_getType, cu_Variant_clone, cu_Variant_get_string,
                         cu_Variant_get_binary, cu_Variant_get_vector, cu_Variant_convert, cu_Variant_convert_string,
                         cu_Variant_lessThan);
    EXPECT_REFUSED(cu_Variant_set_string(value, nullptr), "cu_Variant_set_string", file);
    EXPECT_REFUSED(cu_Variant_set_vector(value, nullptr, 1), "cu_Variant_set_vector", file);
    EXPECT_REFUSED(cu_Variant_set_vector(value, value, 0), "cu_Variant_set_vector", file);
    EXPECT_REFUSED(cu_Variant_set_string(nullptr, ""), "cu_Variant_free", file);
    EXPECT_REFUSED(cu_Variant_set_binary(nullptr, nullptr, 0), "cu_Variant_free", file);
    EXPECT_REFUSED(cu_Variant_set_vector(nullptr, value, 1), "cu_Variant_free", file);
    EXPECT_FAILURE(cu_Variant_get_binary(value, &binary), cu_ERROR_COM_INVARIANT, "cu_Variant_get_binary", file, "");
    EXPECT_FAILURE(cu_Variant_get_vector(value, &vector), cu_ERROR_COM_INVARIANT, "cu_Variant_get_vector", file, "");
    EXPECT_EQ(cu_Variant_get_string(value, &text), 0U);
    EXPECT_STREQ(text, "kept");

    // Its bytes are a multiple of 2^32 and a few.
    EXPECT_FAILURE(cu_Variant_set_vector(value, value, static_cast<uint32_t>((1ULL << 32) / sizeof(cu_Variant)) + 1),
                   cu_ERROR_COM_MALLOC_FAILED, "cu_Variant_set_vector", file, "");
    EXPECT_EQ(value.shown(), "null");
    cu_Variant broken = {cu_VARIANT_VECTOR, {.vector = {nullptr, 1}}};
    EXPECT_REFUSED(cu_Variant_set_string(&broken, "text"), "cu_Variant_free", file);
    EXPECT_EQ(support::trace().find("cu_Variant_free  -  "), 0U);
    EXPECT_EQ(broken.type, cu_VARIANT_VECTOR);
}

TEST(Variant, tellsOfTypesThatDoNotExist)
{
    constexpr char unexpected[] = "Unexpected variant type of 15";
    cu_Variant strange = {15, {}};
    EXPECT_FAILURE(cu_Variant_convert_bool(&strange), cu_ERROR_COM_INVARIANT, "cu_Variant_convert_bool", file,
                   unexpected);
    Value value(cu_Variant_set_sint8, 1);
    EXPECT_FAILURE(cu_Variant_convert(value, 15), cu_ERROR_COM_INVARIANT, "cu_Variant_convert", file,
                   "Unexpected variant type of 2");

    // A vector of them is cloned and compared up to there.
    cu_Variant items[] = {{cu_VARIANT_NULL, {}}, strange};
    const cu_Variant vector = {cu_VARIANT_VECTOR, {.vector = {items, 2}}};
    EXPECT_FAILURE(cu_Variant_clone(value, &vector), cu_ERROR_COM_INVARIANT, "cu_Variant_clone", file, unexpected);
    EXPECT_EQ(value.shown(), "null");
    bool less = true;
    EXPECT_FAILURE(cu_Variant_lessThan(&less, &vector, &vector), cu_ERROR_COM_INVARIANT, "cu_Variant_lessThan", file,
                   unexpected);
    EXPECT_EQ(support::trace().find("cu_Variant_lessThan  -  "), 0U);
    EXPECT_EQ(cu_Variant_free(&strange), 0U);
    EXPECT_EQ(strange.type, 0U);
}

TEST(Variant, mayBeSetFromWhatItHolds)
{
    const std::string longText(100, 'x');
    Value value(cu_Variant_set_string, ("skipped " + longText).c_str());
    EXPECT_EQ(cu_Variant_set_string(value, value->string + 8), 0U);
    EXPECT_EQ(value.shown(), "string " + longText);
    EXPECT_EQ(cu_Variant_set_vector(value, value, 1), 0U);
    EXPECT_EQ(value.shown(), "vector (string " + longText + ")");
    EXPECT_EQ(cu_Variant_set_string(value, value->vector.items[0].value.string), 0U);

    Value tree(Value::vector({value, value, Value::vector({Value::bytes("abcdef"), value})}));
    EXPECT_EQ(cu_Variant_set_vector(tree, &tree->vector.items[1], 2), 0U);
    EXPECT_EQ(tree.shown(), "vector (" + value.shown() + ", vector (binary [616263646566], " + value.shown() + "))");
    EXPECT_EQ(cu_Variant_clone(tree, &tree->vector.items[1].value.vector.items[0]), 0U);
    EXPECT_EQ(cu_Variant_set_binary(tree, tree->binary.data + 2, 3), 0U);
    EXPECT_EQ(cu_Variant_clone(tree, tree), 0U);
    EXPECT_EQ(tree.shown(), "binary [636465]");
    // Bytes that are not there have a length all the same.
    EXPECT_EQ(cu_Variant_set_binary(tree, nullptr, 5), 0U);
    EXPECT_EQ(Value(tree).shown(), "binary none/5");
}

TEST(Variant, aSetterThatGetsNoMemoryLeavesItNullAndAConversionAsItWas)
{
    const Value number(cu_Variant_set_sint32, 4711);
    const Value text(cu_Variant_set_string, "text");
    const Value inner(Value::vector({text, Value::bytes("bytes"), number}));
    const Value tree(Value::vector({text, inner, Value::vector({inner, text}), inner}));
    const uint8_t bytes[] = {1, 2};
    struct {
        const Value& before;
        std::function<cu_ErrorCode(cu_Variant*)> call;
        std::string after;
        unsigned requests;
    } const cases[] = {
        {text, [](cu_Variant* v) { return cu_Variant_set_string(v, "other"); }, "string other", 1},
        {text, [&](cu_Variant* v) { return cu_Variant_set_binary(v, bytes, 2); }, "binary [0102]", 1},
        {inner, [&](cu_Variant* v) { return cu_Variant_set_vector(v, tree, 1); }, "vector (" + tree.shown() + ")", 14},
        {inner, [&](cu_Variant* v) { return cu_Variant_clone(v, tree); }, tree.shown(), 13},
        {number, cu_Variant_convert_string, "string 4711", 1},
    };
    for (const auto& c : cases) {
        Value value(c.before);
        const auto look = [&] {
            EXPECT_EQ(value.shown(), &c.before == &number ? number.shown() : "null");
            cu_Variant_clone(value, c.before);
        };
        EXPECT_EQ(support::exhaust([&] { return c.call(value); }, look), c.requests) << c.after;
        EXPECT_EQ(value.shown(), c.after);
    }
}

bool less(const cu_Variant* a, const cu_Variant* b)
{
    bool result = false;
    EXPECT_EQ(cu_Variant_lessThan(&result, a, b), 0U);
    return result;
}

TEST(Variant, comesBeforeAnotherByTypeAndThenByValue)
{
    const Value text(cu_Variant_set_string, "b");
    const Value notANumber(cu_Variant_set_ieee64, NAN);
    Value noBytes;
    EXPECT_EQ(cu_Variant_set_binary(noBytes, nullptr, 2), 0U);
    // clang-format off
    const Value ascending[] = {
        {},
        {cu_Variant_set_bool, false}, {cu_Variant_set_bool, true},
        {cu_Variant_set_sint8, -2}, {cu_Variant_set_sint8, 1}, {cu_Variant_set_uint8, 0}, {cu_Variant_set_uint8, 200},
        {cu_Variant_set_sint16, INT16_MIN}, {cu_Variant_set_sint16, -1}, {cu_Variant_set_uint16, 1}, {cu_Variant_set_uint16, 65280},
        {cu_Variant_set_sint32, INT32_MIN}, {cu_Variant_set_sint32, 65536}, {cu_Variant_set_uint32, 1}, {cu_Variant_set_uint32, 0x80000000U},
        {cu_Variant_set_sint64, INT64_MIN}, {cu_Variant_set_sint64, 0}, {cu_Variant_set_uint64, 1}, {cu_Variant_set_uint64, 1ULL << 63},
        {cu_Variant_set_ieee32, -INFINITY}, {cu_Variant_set_ieee32, -0.5F}, {cu_Variant_set_ieee32, 0.25F},
        {cu_Variant_set_ieee64, -1.5}, {cu_Variant_set_ieee64, -1.25},
        {cu_Variant_set_string, ""}, text, {cu_Variant_set_string, "ba"}, {cu_Variant_set_string, "b\x80"},
        Value::bytes("z"), noBytes, Value::bytes({"\0\xFF", 2}), Value::bytes({"\1\0", 2}), Value::bytes("\x80z"),
        Value::vector({{cu_Variant_set_string, "z"}}),
        Value::vector({notANumber, {cu_Variant_set_sint8, 1}}), Value::vector({notANumber, {cu_Variant_set_sint8, 2}}),
        Value::vector({text, text}), Value::vector({text, Value::vector({text})}),
    };
    // clang-format on
    for (const Value& a : ascending) {
        for (const Value& b : ascending)
            EXPECT_EQ(less(a, b), &a < &b) << a << " and " << b;
        if (a.shown().starts_with("ieee64")) {
            EXPECT_FALSE(less(a, notANumber) || less(notANumber, a));
        }
    }
    EXPECT_FALSE(less(notANumber, notANumber));

    // The time goes with the depth, not with its power.
    Value pair[2] = {{cu_Variant_set_sint8, 1}, {cu_Variant_set_sint8, 2}};
    for (int depth = 0; depth < 100; ++depth) {
        for (Value& value : pair)
            EXPECT_EQ(cu_Variant_set_vector(value, value, 1), 0U);
    }
    EXPECT_TRUE(less(pair[0], pair[1]) && !less(pair[1], pair[0]));
}

TEST(Variant, twoVectorsWithoutElementsLeaveTheAnswerAsItIs)
{
    const cu_Variant empty = {cu_VARIANT_VECTOR, {.vector = {nullptr, 0}}};
    for (const bool before : {false, true}) {
        bool result = before;
        EXPECT_EQ(cu_Variant_lessThan(&result, &empty, &empty), 0U);
        EXPECT_EQ(result, before);
    }
    // Within vectors they are equal.
    cu_Variant items[] = {empty, {cu_VARIANT_SINT8, {.sint8 = 1}}, empty, {cu_VARIANT_SINT8, {.sint8 = 2}}};
    const cu_Variant first = {cu_VARIANT_VECTOR, {.vector = {items, 2}}};
    const cu_Variant second = {cu_VARIANT_VECTOR, {.vector = {items + 2, 2}}};
    EXPECT_TRUE(less(&empty, &first) && less(&first, &second) && !less(&second, &first));
}

} // namespace
