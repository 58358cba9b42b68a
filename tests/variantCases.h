// Variants that end by themselves, are written in one line and can be shown.
#pragma once

#include "support/inject.h"
#include "support/record.h"

#include <cUtil/variant.h>

#include <gtest/gtest.h>

#include <initializer_list>
#include <iomanip>
#include <ostream>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

namespace support
{

inline constexpr const char* typeNames[] = {"null",   "bool",   "sint8",  "uint8",  "sint16",
                                            "uint16", "sint32", "uint32", "sint64", "uint64",
                                            "ieee32", "ieee64", "string", "binary", "vector"};

/// The type and the value in one line: "sint8 -128", "binary [616263]", "vector (null, bool true)".
inline std::string show(const cu_Variant& variant)
{
    const cu_VariantValue& value = variant.value;
    std::ostringstream text;
    text << typeNames[variant.type] << (variant.type != cu_VARIANT_NULL ? " " : "");
    if (variant.type == cu_VARIANT_IEEE32) {
        text << std::setprecision(9) << value.ieee32;
    } else if (variant.type == cu_VARIANT_IEEE64) {
        text << std::setprecision(17) << value.ieee64;
    } else if (variant.type == cu_VARIANT_STRING) {
        text << value.string;
    } else if (variant.type == cu_VARIANT_BINARY && value.binary.data == nullptr) {
        text << "none/" << value.binary.length;
    } else if (variant.type == cu_VARIANT_BINARY) {
        text << '[' << std::hex << std::uppercase << std::setfill('0');
        for (uint32_t at = 0; at < value.binary.length; ++at)
            text << std::setw(2) << unsigned{value.binary.data[at]};
        text << ']';
    } else if (variant.type == cu_VARIANT_VECTOR) {
        text << '(';
        for (uint32_t at = 0; at < value.vector.count; ++at)
            text << (at != 0 ? ", " : "") << show(value.vector.items[at]);
        text << ')';
    } else if (variant.type != cu_VARIANT_NULL) {
        cu_Variant copy = variant; // a boolean or an integer owns nothing
        EXPECT_EQ(cu_Variant_convert_string(&copy), 0U);
        text << copy.value.string;
        EXPECT_EQ(cu_Variant_free(&copy), 0U);
    }
    return text.str();
}

/// Makes a call until it succeeds, with one request for memory later refused each time; looks at what each failure left
/// behind. @return how often it failed
template <typename Call, typename Look>
unsigned exhaust(Call call, Look look)
{
    cu_getErrorLocation(); // the thread's record is there before its memory could be refused
    for (unsigned failures = 0;; ++failures) {
        const Injection refusal(failures + 1);
        const Failure failure = failureOf(call);
        if (refusal.fired() == nullptr) {
            EXPECT_EQ(failure.code, 0U);
            return failures;
        }
        EXPECT_EQ(failure.code, cu_ErrorCode{cu_ERROR_COM_MALLOC_FAILED});
        look();
    }
}

class Value
{
public:
    Value() { cu_Variant_init(&me_); }
    template <typename T>
    Value(cu_ErrorCode (*set)(cu_Variant*, T), std::type_identity_t<T> value) : Value()
    {
        EXPECT_EQ(set(&me_, value), 0U);
    }
    explicit Value(const cu_Variant& other) : Value() { EXPECT_EQ(cu_Variant_clone(&me_, &other), 0U); }
    Value(const Value& other) : Value(other.me_) {}
    Value& operator=(const Value&) = delete;
    ~Value() { EXPECT_EQ(cu_Variant_free(&me_), 0U); }

    static Value bytes(const std::string& data)
    {
        Value value;
        const auto* first = static_cast<const uint8_t*>(static_cast<const void*>(data.data()));
        EXPECT_EQ(cu_Variant_set_binary(&value.me_, first, static_cast<uint32_t>(data.size())), 0U);
        return value;
    }

    static Value vector(std::initializer_list<Value> items)
    {
        std::vector<cu_Variant> records;
        for (const Value& item : items)
            records.push_back(item.me_);
        Value value;
        EXPECT_EQ(cu_Variant_set_vector(&value.me_, records.data(), static_cast<uint32_t>(records.size())), 0U);
        return value;
    }

    operator cu_Variant*() { return &me_; }
    operator const cu_Variant*() const { return &me_; }
    const cu_VariantValue* operator->() const { return &me_.value; }
    std::string shown() const { return show(me_); }

private:
    cu_Variant me_;
};

inline std::ostream& operator<<(std::ostream& out, const Value& value)
{
    return out << value.shown();
}

} // namespace support
