// The labelling as the detection driver repeats it over one picture mask.
#ifndef TAVRIN_DETECT_LABELING_PASSES_H
#define TAVRIN_DETECT_LABELING_PASSES_H

#include <cstdint>

#include "TavrinDetect.h"

namespace tavrin::detect {

// entLabeling, told that the equivalence table already holds T[i] = i from
// entry `identityFrom` on (0 when nothing is known), so that only the
// entries below are initialised again. On return identityFrom is the same
// bound for the table the call leaves: a pass changes no entry above its
// provisional labels. The result and every byte written are entLabeling's.
int labelAgain(PictLabel* table, ImgTavrin* mask, ImgTavrin* labelPlane, uint8_t* work,
               char* dumpDir, uint32_t& identityFrom);

}  // namespace tavrin::detect

#endif
