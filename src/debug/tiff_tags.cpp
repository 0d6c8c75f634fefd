// The private TIFF tags of the foreground dump and the libtiff tag extender
// that defines them in every TIFF libtiff creates or reads afterwards.
#include <tiffio.h>

#include <atomic>

#include "TavrinDebug.h"

namespace {

char kMaskOffsetName[] = "CIC_MaskOffset";
char kMaskColorName[] = "CIC_Mask_Color";

// Fixed counts with pass count 0: each tag is set with one pointer to its
// values (two int32 x, y; three uint16 colour components).
const TIFFFieldInfo kPrivateFields[] = {
    {TAVRIN_TIFFTAG_CIC_MASKOFFSET, 2, 2, TIFF_SLONG, FIELD_CUSTOM, 1, 0, kMaskOffsetName},
    {TAVRIN_TIFFTAG_CIC_MASK_COLOR, 3, 3, TIFF_SHORT, FIELD_CUSTOM, 1, 0, kMaskColorName},
};

// The extender that was installed before ours. Written once, right after
// the installation; atomic because other threads may already be opening
// TIFFs (and so running our extender) at that moment.
std::atomic<TIFFExtendProc> previousExtender{nullptr};

bool installExtender() {
    previousExtender.store(TIFFSetTagExtender(_XTIFFDefaultDirectory), std::memory_order_release);
    return true;
}

}  // namespace

void _XTIFFInitialize() {
    // A function-local static is initialised exactly once, even when several
    // threads arrive here first at the same time; the others wait for it.
    // Installing twice would make our extender its own predecessor and
    // recurse without end.
    static const bool installed = installExtender();
    (void)installed;
}

void _XTIFFDefaultDirectory(TIFF* tif) {
    if (tif == nullptr) return;
    TIFFMergeFieldInfo(tif, kPrivateFields, sizeof kPrivateFields / sizeof kPrivateFields[0]);
    TIFFExtendProc previous = previousExtender.load(std::memory_order_acquire);
    if (previous != nullptr) previous(tif);
}
