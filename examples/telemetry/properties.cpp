#include "properties.h"

#include "messages.h"

namespace telemetry
{

namespace
{

/// A copy of a property, null when it is missing.
class Copy
{
public:
    Copy(const cu_PropertyMap& map, const char* name)
    {
        if (const cu_ErrorCode code = cu_PropertyMap_get(&map, name, &value_); code != 0)
            static_cast<void>(failByRecord(code, name));
    }
    Copy(const Copy&) = delete;
    Copy& operator=(const Copy&) = delete;
    ~Copy() { cu_Variant_free(&value_); }

    operator cu_Variant*() { return &value_; }

private:
    cu_Variant value_{};
};

} // namespace

Properties::Properties()
{
    cu_PropertyMap_init(&map_);
}

Properties::Properties(const Properties& other) : Properties()
{
    *this = other;
}

Properties& Properties::operator=(const Properties& other)
{
    if (const cu_ErrorCode code = cu_PropertyMap_clone(&map_, &other.map_); code != 0)
        static_cast<void>(failByRecord(code, "copying the properties"));
    return *this;
}

Properties::~Properties()
{
    if (const cu_ErrorCode code = cu_PropertyMap_free(&map_); code != 0)
        static_cast<void>(failByRecord(code, "releasing the properties"));
}

cu_ErrorCode Properties::insert(const char* name, const cu_Variant& value)
{
    return cu_PropertyMap_insert(&map_, name, &value);
}

void Properties::set(const char* name, cu_Variant& value, cu_ErrorCode code)
{
    if (code == 0)
        code = insert(name, value);
    if (code != 0)
        static_cast<void>(failByRecord(code, name));
    cu_Variant_free(&value);
}

void Properties::setList(const char* name, const std::vector<double>& values)
{
    std::vector<cu_Variant> items(values.size());
    for (std::size_t i = 0; i < values.size(); ++i)
        cu_Variant_set_ieee64(&items[i], values[i]);
    cu_Variant variant{};
    if (!items.empty()) // a vector has an element at least
        set(name, variant, cu_Variant_set_vector(&variant, items.data(), static_cast<uint32_t>(items.size())));
}

double Properties::number(const char* name) const
{
    Copy copy(map_, name);
    double number = 0;
    return cu_Variant_convert_ieee64(copy) == 0 && cu_Variant_get_ieee64(copy, &number) == 0 ? number : 0;
}

std::string Properties::text(const char* name) const
{
    Copy copy(map_, name);
    const char* text = nullptr;
    return cu_Variant_convert_string(copy) == 0 && cu_Variant_get_string(copy, &text) == 0 ? text : "";
}

std::vector<double> Properties::list(const char* name) const
{
    Copy copy(map_, name);
    std::vector<double> values;
    const cu_VariantVector* vector = nullptr;
    if (cu_Variant_get_vector(copy, &vector) != 0)
        return values;
    for (uint32_t i = 0; i < vector->count; ++i) {
        double value = 0;
        if (cu_Variant_get_ieee64(&vector->items[i], &value) == 0)
            values.push_back(value);
    }
    return values;
}

} // namespace telemetry
