#include "cli/page_detection.h"

#include "cli/commands.h"
#include "cli/document_compressor.h"

namespace tavrin {

PageDetection detectPage(PictureDetector& detector, Page& page, const Options& o, const std::vector<Rect>& tables,
                         int number, int count, const std::string& label) {
    const std::string dpiSource = settleResolution(page, o.dpi);
    DetectSettings settings = o.settings.detect;
    settings.dumpDir = dumpDirFor(settings.dumpDir, number, count);
    return pageDetection(page, number, dpiSource, detector.run(grayOf(page), page.dpiX, settings, tables, label));
}

PageDetection pageDetection(const Page& page, int number, const std::string& dpiSource,
                            const DetectResult& result) {
    PageDetection pd;
    pd.number = number;
    pd.width = page.width, pd.height = page.height;
    pd.dpiX = page.dpiX, pd.dpiY = page.dpiY;
    pd.dpiSource = dpiSource;
    pd.result = result;
    return pd;
}

}  // namespace tavrin
