// What a fuzz target asserts.
#pragma once

#include <cstdio>

/// Ends the run when a property does not hold; the fuzzer then keeps the input.
#define HOLDS(property) ((property) ? void() : fuzz::isViolated(#property, __FILE__, __LINE__))

namespace fuzz
{

[[noreturn]] inline void isViolated(const char* property, const char* file, int line)
{
    fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, property);
    __builtin_trap();
}

} // namespace fuzz
