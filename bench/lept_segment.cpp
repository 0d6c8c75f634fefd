// The page segmentation a user would run with leptonica, as a program to set
// against `tavrin detect`: reads a page, binarises it at the middle gray,
// halves a page above 400 dpi (the segmentation expects 300 to 400 dpi),
// finds the halftone (picture) regions with pixGetRegionsBinary and writes
// their mask as a PNG.
//   lept_segment PAGE MASK.png
#include <cstdio>

#include <leptonica/allheaders.h>

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: lept_segment PAGE MASK.png\n");
        return 2;
    }
    setMsgSeverity(L_SEVERITY_NONE);
    PIX* page = pixRead(argv[1]);
    if (page == nullptr) {
        std::fprintf(stderr, "lept_segment: cannot read %s\n", argv[1]);
        return 3;
    }
    PIX* gray = pixConvertTo8(page, 0);
    PIX* binary = pixThresholdToBinary(gray, 128);
    if (pixGetXRes(page) > 400) {
        PIX* half = pixReduceRankBinary2(binary, 1, nullptr);
        pixDestroy(&binary);
        binary = half;
    }
    PIX* halftone = nullptr;
    pixGetRegionsBinary(binary, &halftone, nullptr, nullptr, nullptr);
    const int status = halftone != nullptr && pixWrite(argv[2], halftone, IFF_PNG) == 0 ? 0 : 1;
    pixDestroy(&halftone);
    pixDestroy(&binary);
    pixDestroy(&gray);
    pixDestroy(&page);
    return status;
}
