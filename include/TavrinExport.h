// Symbol visibility for libTavrinCommon.
//
// The library is built with hidden visibility; every exported function and
// data table carries TAVRIN_API. The in-memory file API, tifomOpen and
// _tfopen_s additionally have C linkage (TAVRIN_C_API), everything else
// keeps C++ linkage so that overloads can coexist.
#ifndef TAVRIN_EXPORT_H
#define TAVRIN_EXPORT_H

#if defined(__GNUC__)
#define TAVRIN_API __attribute__((visibility("default")))
#else
#define TAVRIN_API
#endif

#ifdef __cplusplus
#define TAVRIN_C_API extern "C" TAVRIN_API
#else
#define TAVRIN_C_API TAVRIN_API
#endif

#endif
