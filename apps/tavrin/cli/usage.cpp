#include "cli/options.h"

namespace tavrin {

namespace {

const char* kProgram =
    "tavrin: find the picture regions of scanned pages and compress the pages into compact PDFs\n"
    "\n"
    "usage:\n"
    "  tavrin detect   [PAGE] [options]   picture regions: overlay PNG and JSON report\n"
    "  tavrin compress [PAGE] [-o OUT.pdf] [options]\n"
    "                                     PDF of text masks over the pictures and a background\n"
    "  tavrin batch INPUT... -o DIR       one PDF per document, on all cores or a Dask\n"
    "                                     cluster (tavrin batch --help)\n"
    "  tavrin version                     the library's version text\n"
    "  tavrin COMMAND --help              the options of a command\n"
    "\n"
    "PAGE is a PNG, TIFF (every page), JPEG or PNM image, gray or colour; without PAGE the\n"
    "bundled sample page is used.\n"
    "\n"
    "exit codes: 0 done, 1 processing failed, 2 bad command line, option or parameter file,\n"
    "3 input file missing or unreadable, 4 unsupported or damaged image or page too large,\n"
    "130, 143, 129 interrupted by SIGINT, SIGTERM, SIGHUP (no output is changed)\n";

const char* kCommon =
    "input:\n"
    "  --dpi N               page resolution in dots per inch (10..10000); default: the\n"
    "                        file's, else 300\n"
    "  --tables FILE         table rectangles to leave out of the picture search, one\n"
    "                        'x0 y0 x1 y1' per line in page pixels (inclusive, # comments)\n"
    "picture detection (sizes for a 300-dpi page, in quarter-resolution pixels = 1/75 inch;\n"
    "scaled for other resolutions):\n"
    "  --space-sigma X       spatial sigma of the smoothing filter, pixels   (default 2)\n"
    "  --range-sigma X       gray-level sigma of the smoothing filter        (default 5)\n"
    "  --min-width N         smallest region width                           (default 16)\n"
    "  --min-height N        smallest region height                          (default 16)\n"
    "  --min-area N          smallest width x height of a region's box       (default 512)\n"
    "  --min-fill X          smallest share of the box the region covers     (default 0.2)\n"
    "  --max-high-attr X     largest share of text/line-art pixels in a box  (default 0.3)\n"
    "  --page-ratio X        picture share from which a page is a picture page (default 0.05)\n"
    "  --label-passes N      labelling passes at most, 1..64                 (default 9)\n"
    "  --no-attr             no attribute map (text is not told from pictures)\n"
    "  --serial              run the detector's filters on one thread\n"
    "  --params FILE         read settings from FILE, 'name = value' per line with the\n"
    "                        names of the settings without '--' (space-sigma = 1.5;\n"
    "                        attr = no for --no-attr; threads = 1 for --serial; bg-dpi = 75);\n"
    "                        options on the command line take precedence\n"
    "  --dump DIR            write the library's debug dumps into DIR (one subdirectory per\n"
    "                        page for multi-page input)\n"
    "  -q, --quiet           print no summary\n";

const char* kDetect =
    "tavrin detect [PAGE] [options]\n"
    "\n"
    "Finds the photographs, illustrations and halftones of each page and writes:\n"
    "  --overlay FILE        the page reduced for viewing, picture regions tinted orange and\n"
    "                        outlined (default STEM-overlay.png; page N > 1 adds -pN)\n"
    "  --json FILE           the report: page size, resolution, decision, iPictPixelNum,\n"
    "                        coverage and every region in page pixels (default STEM.json;\n"
    "                        '-' writes it to standard output)\n"
    "\n";

const char* kCompress =
    "tavrin compress [PAGE] [-o OUT.pdf] [options]\n"
    "\n"
    "Writes one PDF page per input page: the text and line art as bi-level masks (MMR),\n"
    "one per ink colour; each photograph as a JPEG of its own; flat tints as filled\n"
    "rectangles; the paper and the fills of drawings as a low-resolution JPEG background\n"
    "with the paper's noise flattened.\n"
    "  -o, --output FILE     the PDF (default STEM.pdf)\n"
    "  --preset NAME         default; pictures (photographs closer to the scan, larger\n"
    "                        file); archive (the smallest file that still reads well)\n"
    "  --picture-psnr X      fidelity each photograph is coded to, dB PSNR (10..60; 33)\n"
    "  --picture-dpi N       lowest resolution of a photograph (10..1200; 150); the\n"
    "                        cheapest of 150, 200 dpi and the page's that reaches the PSNR\n"
    "  --picture-quality N   a fixed JPEG quality for photographs at --picture-dpi instead\n"
    "                        (1..100; 0 = search for the PSNR)\n"
    "  --mask-dpi N          resolution of the text masks, at most the page's (50..1200;\n"
    "                        200, and 300 for type under about 9 points)\n"
    "  --colours N           ink colours = text masks, at most (1..8; 4); light lettering\n"
    "                        on a dark field adds two\n"
    "  --graphics MODE       drawings, charts and screenshots as image (coded like a\n"
    "                        photograph; default) or as layers (masks over their fills)\n"
    "  --min-contrast N      background-to-ink contrast below which nothing is text\n"
    "                        (1..255; 50)\n"
    "  --bg-dpi N            background resolution (10..1200; 50; plain paper down to\n"
    "                        a quarter of it)\n"
    "  --bg-quality N        background JPEG quality (1..100; 30)\n"
    "  --flatten N           levels from the paper colour that become paper (0..255; 10)\n"
    "  --chroma-offset N     chrominance quality = quality + N, -99..99 (default 0)\n"
    "  --sampling MODE       420, 422, 444, or the library's mode 0..5 (default 420)\n"
    "  --flate               wrap the JPEG streams in Flate ([/FlateDecode /DCTDecode])\n"
    "  --no-detect           no picture detection (everything dark is text)\n"
    "  --explain             per page: pictures, streams and their sizes\n"
    "\n";

}  // namespace

std::string usageText(bool all, Command command) {
    if (all) return kProgram;
    return std::string(command == Command::Detect ? kDetect : kCompress) + kCommon;
}

}  // namespace tavrin
