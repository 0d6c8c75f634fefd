// The detection of one page as `tavrin detect` runs and reports it, shared
// with the Python module so that both follow the same steps.
#ifndef TAVRIN_APP_PAGE_DETECTION_H
#define TAVRIN_APP_PAGE_DETECTION_H

#include <string>
#include <vector>

#include "cli/options.h"
#include "formats/detect_report.h"

namespace tavrin {

// Settles the page's resolution and detects the pictures of page `number` of
// `count` with the options' settings; `label` names it in error messages.
// The overlay path is left empty.
PageDetection detectPage(PictureDetector& detector, Page& page, const Options& options,
                         const std::vector<Rect>& tables, int number, int count, const std::string& label);

// The report entry of a page whose detection ran inside its compression.
PageDetection pageDetection(const Page& page, int number, const std::string& dpiSource,
                            const DetectResult& result);

}  // namespace tavrin

#endif
