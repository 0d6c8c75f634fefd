// What `tavrin detect` writes: the overlay picture and the JSON report.
#ifndef TAVRIN_APP_DETECT_REPORT_H
#define TAVRIN_APP_DETECT_REPORT_H

#include <string>
#include <vector>

#include "pipeline/page.h"
#include "pipeline/picture_detector.h"

namespace tavrin {

// The page reduced for viewing (at most about 1200 pixels on its longer
// side), every region tinted orange and outlined.
Page makeOverlay(const Page& page, const std::vector<Rect>& regions);

struct PageDetection {
    int number = 1;
    int width = 0, height = 0;
    double dpiX = 0, dpiY = 0;
    std::string dpiSource;  // "file", "option" or "default"
    DetectResult result;
    std::string overlayPath;
};

struct DetectionRunInfo {
    std::string file;
    std::string format;
    DetectSettings settings;
    std::vector<Rect> tables;
};

// The JSON report of a run (UTF-8, two-space indentation).
std::string detectionJson(const DetectionRunInfo& run, const std::vector<PageDetection>& pages);

}  // namespace tavrin

#endif
