// PNG output of a gray or RGB page (the overlay picture).
#ifndef TAVRIN_APP_WRITE_PNG_H
#define TAVRIN_APP_WRITE_PNG_H

#include <string>

#include "pipeline/page.h"

namespace tavrin {

// Writes `page` to `path` through a temporary file; throws AppError.
void writePng(const Page& page, const std::string& path);

}  // namespace tavrin

#endif
