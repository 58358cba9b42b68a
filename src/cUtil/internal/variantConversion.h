// What a variant becomes when it is to be of another type.
#pragma once

#include "internal/report.h"

#include <cUtil/variant.h>

namespace cu::internal
{

/// What is said of a type that does not exist.
inline constexpr char unexpectedVariantType[] = "Unexpected variant type of %d";

/// Gives a variant another type than null, or leaves it as it is and fails in the name of the exported function.
cu_ErrorCode convertVariant(cu_Variant* variant, cu_VariantType type, Place place);

} // namespace cu::internal
