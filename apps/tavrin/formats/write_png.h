// PNG output of a gray or RGB page (the overlay picture).
#ifndef TAVRIN_APP_WRITE_PNG_H
#define TAVRIN_APP_WRITE_PNG_H

#include <string>

#include "formats/atomic_output.h"
#include "pipeline/page.h"

namespace tavrin {

// Writes `page` into the temporary file of `out` (not committed); throws
// AppError naming the output.
void writePng(const Page& page, AtomicOutput& out);
// Writes `page` to `path` through a temporary file; throws AppError.
void writePng(const Page& page, const std::string& path);

}  // namespace tavrin

#endif
