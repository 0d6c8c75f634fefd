// The library's three stream encoders on arrays, with the GIL released
// around each call and a status other than 0 raised as tavrin.LibraryError.
#ifndef TAVRIN_PYTHON_ENCODERS_H
#define TAVRIN_PYTHON_ENCODERS_H

#include <mutex>

#include "page_arrays.h"

namespace tavrin_python {

// Tavrin_bwToMmr registers a fixed name in the library's in-memory file
// store, so one MMR encoding at a time per process: every caller of the
// encoder, the page pipeline included, holds this lock (taken after the GIL
// is released, never the other way round).
std::mutex& mmrLock();

// `packed`: (height, (width + 7) / 8) bytes, most significant bit first,
// 1 = black. `dpi` only fills the resolution fields.
py::bytes encodeMmr(const PixelArray& packed, int width, double dpi);

// A gray or RGB page array as a baseline JPEG; quality, chroma offset and
// sampling mode as the library takes them (the caller checked them).
py::bytes encodeJpeg(const PixelArray& image, int quality, int chromaOffset, int sampling, double dpi);

// Any bytes (a JPEG stream) in a zlib wrapper.
py::bytes wrapFlate(const std::string& data);

}  // namespace tavrin_python

#endif
