// The half-resolution attribute map the picture detector expects: 255 for
// dark, sharp-edged ink (text and line art), 0 for everything else.
#ifndef TAVRIN_APP_ATTRIBUTE_MAP_H
#define TAVRIN_APP_ATTRIBUTE_MAP_H

#include "pipeline/page.h"

namespace tavrin {

constexpr uint8_t kHighAttribute = 255;  // any value >= 128 is high-attribute

// `gray` is the page at `dpi`; the map has (width + 1) / 2 x (height + 1) / 2
// pixels. A pixel is ink when it is darker than the middle of its block's
// paper and ink levels, the block has real contrast, and paper-bright
// pixels lie within 3 map pixels (about 0.5 mm at 300 dpi): the sharp edge
// that separates print from the soft gradients of a photograph; and its
// block is two-tone (few midtones), as print is and photographs are not.
Plane buildAttributeMap(const Plane& gray, double dpi);

}  // namespace tavrin

#endif
