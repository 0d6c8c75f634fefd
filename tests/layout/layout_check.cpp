// Record layout: static_asserts of the size and offset of every record of the
// public headers, compiled for x86-64 with every build and for i386 (g++ -m32
// -fsyntax-only) by `make check`. Records without pointers are identical on
// both; records with pointers widen only those on x86-64.
#include <TavrinCommon.h>

#include <cstddef>

#if defined(__i386__)
#define TAVRIN_I386 1
#elif defined(__x86_64__)
#define TAVRIN_I386 0
#else
#error "layout check written for i386 and x86-64"
#endif

#define LAYOUT_SIZE(T, n) static_assert(sizeof(T) == (n), "size of " #T)
#define LAYOUT_AT(T, f, n) static_assert(offsetof(T, f) == (n), "offset of " #T "::" #f)
// expected value on i386, on x86-64
#define BY_ABI(i386, x64) (TAVRIN_I386 ? (i386) : (x64))

#include "layout_image.inc"
#include "layout_params.inc"
#include "layout_fom.inc"
#include "layout_encode.inc"
#include "layout_detect.inc"
#include "layout_debug.inc"
