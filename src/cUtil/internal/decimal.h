// Decimal texts to floating-point numbers, without a locale.
#pragma once

namespace cu::internal
{

/// Skips what is white space in the "C" locale.
inline const char* skipSpace(const char* text)
{
    while (*text == ' ' || (*text >= '\t' && *text <= '\r'))
        ++text;
    return text;
}

/// Reads a text that is a decimal number as a whole: white space, a sign, digits with or without a point, an exponent.
/// The result is rounded correctly, in the rounding mode of the thread.
/// @return whether @p value was set. If not, the text is something else, or a number that is left to strtod: one beyond
///         the normal range, or so near to where rounding changes that more digits must be looked at.
bool parseDecimal(const char* text, double& value);

} // namespace cu::internal
