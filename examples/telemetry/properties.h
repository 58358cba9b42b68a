// What the reporter shows: values of many types by name.
#pragma once

#include <cUtil/propertyMap.h>

#include <cstdint>
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
    Properties(const Properties&) = delete;
    Properties& operator=(const Properties&) = delete;
    ~Properties();

    /// Sets a value by the variant's setter of its type: `set("lost", cu_Variant_set_uint32, 7)`.
    template <typename T>
    void set(const char* name, cu_ErrorCode (*setter)(cu_Variant*, T), std::type_identity_t<T> value)
    {
        cu_Variant variant{};
        insert(name, variant, setter(&variant, value));
    }
    void setList(const char* name, const std::vector<double>& values);

    double number(const char* name) const;            ///< As a real number; 0 when it is missing or none.
    std::string text(const char* name) const;         ///< As a text; empty when it is missing.
    std::vector<double> list(const char* name) const; ///< Its elements; none when it is missing or no list.

private:
    void insert(const char* name, cu_Variant& value, cu_ErrorCode code);

    cu_PropertyMap map_{};
};

} // namespace telemetry
