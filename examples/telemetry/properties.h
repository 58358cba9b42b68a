// What the server tells watchers: values of many types by name.
#pragma once

#include <cUtil/propertyMap.h>

#include <cstdint>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

namespace telemetry
{

/// Owns a property map. What cannot be stored is told, and missing afterwards.
class Properties
{
public:
    Properties();
    Properties(const Properties& other);
    Properties& operator=(const Properties& other);
    ~Properties();

    /// Sets a value by the variant's setter of its type: `set("lost", cu_Variant_set_uint64, 7)`.
    template <typename T>
    void set(const char* name, cu_ErrorCode (*setter)(cu_Variant*, T), std::type_identity_t<T> value)
    {
        cu_Variant variant{};
        set(name, variant, setter(&variant, value));
    }
    void setList(const char* name, const std::vector<double>& values);

    /// Takes a copy of a value of any type. @return 0, or the library's code, and nothing is told
    [[nodiscard]] cu_ErrorCode insert(const char* name, const cu_Variant& value);

    double number(const char* name) const;            ///< As a real number; 0 when it is missing or none.
    std::string text(const char* name) const;         ///< As a text; empty when it is missing.
    std::vector<double> list(const char* name) const; ///< Its elements; none when it is missing or no list.

    std::span<const cu_Property> all() const { return {map_.properties, map_.count}; } ///< In the order of the names.

private:
    void set(const char* name, cu_Variant& value, cu_ErrorCode code);

    cu_PropertyMap map_{};
};

} // namespace telemetry
