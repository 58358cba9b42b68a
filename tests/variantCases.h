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

/// The type and the value in one line: "sint8 -128", "binary [616263]", "vector (null, bool 1)".
inline std::string show(const cu_Variant& variant)
{
    const cu_VariantValue& value = variant.value;
    std::ostringstream text;
    switch (variant.type) {
    case cu_VARIANT_NULL:
        return "null";
    case cu_VARIANT_BOOL:
        return "bool " + std::to_string(value.boolean);
    case cu_VARIANT_SINT8:
        return "sint8 " + std::to_string(value.sint8);
    case cu_VARIANT_UINT8:
        return "uint8 " + std::to_string(value.uint8);
    case cu_VARIANT_SINT16:
        return "sint16 " + std::to_string(value.sint16);
    case cu_VARIANT_UINT16:
        return "uint16 " + std::to_string(value.uint16);
    case cu_VARIANT_SINT32:
        return "sint32 " + std::to_string(value.sint32);
    case cu_VARIANT_UINT32:
        return "uint32 " + std::to_string(value.uint32);
    case cu_VARIANT_SINT64:
        return "sint64 " + std::to_string(value.sint64);
    case cu_VARIANT_UINT64:
        return "uint64 " + std::to_string(value.uint64);
    case cu_VARIANT_IEEE32:
        text << "ieee32 " << std::setprecision(9) << value.ieee32;
        break;
    case cu_VARIANT_IEEE64:
        text << "ieee64 " << std::setprecision(17) << value.ieee64;
        break;
    case cu_VARIANT_STRING:
        return std::string("string ") + value.string;
    case cu_VARIANT_BINARY:
        if (value.binary.data == nullptr)
            return "binary none/" + std::to_string(value.binary.length);
        text << "binary [" << std::hex << std::uppercase << std::setfill('0');
        for (uint32_t at = 0; at < value.binary.length; ++at)
            text << std::setw(2) << unsigned{value.binary.data[at]};
        text << ']';
        break;
    case cu_VARIANT_VECTOR:
        text << "vector (";
        for (uint32_t at = 0; at < value.vector.count; ++at)
            text << (at != 0 ? ", " : "") << show(value.vector.items[at]);
        text << ')';
        break;
    default:
        text << "type " << variant.type;
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
