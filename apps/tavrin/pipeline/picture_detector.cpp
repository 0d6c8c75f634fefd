#include "pipeline/picture_detector.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

#include "pipeline/app_error.h"
#include "pipeline/box_fitting.h"
#include "pipeline/classifier.h"
#include "pipeline/components.h"

namespace tavrin {

namespace {

constexpr int kMaxPlaneWidth = 1312;  // the smoothing filter's zero row
constexpr double kReferenceDpi = 300.0;

bool fitsDetector(int width, int height) {
    const int64_t w4 = (int64_t(width) + 3) >> 2, h4 = (int64_t(height) + 3) >> 2;
    return w4 <= kMaxPlaneWidth && w4 * h4 <= int64_t(TAVRIN_DETECT_PLANE_LIMIT);
}

uint16_t resolutionField(double dpi) {
    return uint16_t(std::clamp<long>(std::lround(dpi * 100.0), 1, 65535));
}

// Connected areas (8-neighbourhood) of a 0/1 mask as inclusive boxes, in
// the raster order of their first pixels.
std::vector<Rect> maskBoxes(const uint8_t* mask, int w, int h) {
    Plane plane(w, h);
    std::copy_n(mask, plane.data.size(), plane.data.data());
    return findComponents(plane).boxes;
}

// The kind most of a box's classified cells have; a box the detector found
// on texture alone is taken for a photograph.
PictureKind kindWithin(const Plane& cells, const Rect& box) {
    int photo = 0, graphic = 0;
    const Rect r = box.intersect({0, 0, cells.width - 1, cells.height - 1});
    for (int y = r.y0; y <= r.y1; ++y)
        for (int x = r.x0; x <= r.x1; ++x) photo += cells.row(y)[x] == kPhoto, graphic += cells.row(y)[x] == kGraphic;
    return graphic > photo ? kGraphic : kPhoto;
}

std::string detectorFailure(int status) {
    if (status == -1) return "a filter of the detector failed";
    if (status == -3) return "the page did not fit the detector's work buffer";
    if (status <= -4) return "labelling pass " + std::to_string(-4 - status) + " failed (too many regions)";
    return "status " + std::to_string(status);
}

void ensureDirectory(const std::string& dir) {
    struct stat st;
    if (stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return;
    if (mkdir(dir.c_str(), 0777) != 0)
        throw AppError(kExitFailure, dir + ": cannot create the dump directory: " + std::strerror(errno));
}

}  // namespace

DetectSettings defaultDetectSettings() {
    DetectSettings s;
    ST_PARAM_DETECT_PICT& p = s.record;
    // Tuned on the sample pages and on generated text, photograph,
    // halftone, table and blank pages: a narrow gray-level sigma keeps the
    // fine texture of photographs for the entropy measure (a wide one
    // flattens smooth photographs into text-like paper), and small minimum
    // sizes with a low fill let the fragments of a photograph's mask grow
    // into one box over the labelling passes; text stays out because the
    // attribute map hides it from the entropy measure.
    p.dSpaceSigma = 2.0;
    p.dRangeSigma = 5.0;
    p.iMinWidth = 16;          // about 5 mm
    p.iMinHeight = 16;
    p.iMinArea = 512;
    p.dMinFillRatio = 0.20;
    p.dMaxHighAttrRatio = 0.30;
    p.dPictPageRatio = 0.05;   // a picture page has 5 % or more of pictures
    return s;
}

int detectionReduction(int width, int height, double dpi, bool& forLimits) {
    int byDpi = std::max(1, int(std::lround(dpi / kReferenceDpi)));
    int r = 1;
    while (!fitsDetector((width + r - 1) / r, (height + r - 1) / r)) ++r;
    forLimits = r > byDpi;
    return std::max(r, byDpi);
}

PictureDetector::PictureDetector() : work_(TAVRIN_DETECT_WORK_SIZE) {}

DetectResult PictureDetector::run(const Page& page, const Plane& pageGray, double dpi, const DetectSettings& settings,
                                  const std::vector<Rect>& tables, const std::string& pageLabel,
                                  const PageMeasures* measured) {
    DetectResult result;
    result.reduction = detectionReduction(pageGray.width, pageGray.height, dpi, result.reducedForLimits);
    const int r = result.reduction;
    const Plane reduced = r > 1 ? reducePlane(pageGray, r) : Plane();
    const Plane& gray = r > 1 ? reduced : pageGray;
    const Page reducedPage = r > 1 ? reducePage(page, r) : Page();
    const Page& work = r > 1 ? reducedPage : page;
    const double workDpi = dpi / r;

    // Sizes were tuned for 300 dpi; follow the resolution actually used.
    ST_PARAM_DETECT_PICT param = settings.record;
    const double s = workDpi / kReferenceDpi;
    param.dSpaceSigma = settings.record.dSpaceSigma * s;
    param.iMinWidth = int(std::lround(settings.record.iMinWidth * s));
    param.iMinHeight = int(std::lround(settings.record.iMinHeight * s));
    param.iMinArea = int(std::lround(settings.record.iMinArea * s * s));
    param.iPictPixelNum = 0;

    Classification cls;
    if (settings.attributes) {
        if (r == 1 && measured) {
            cls = classifyPage(work, gray, *measured, workDpi);
        } else {
            cls = classifyPage(work, gray, measurePage(work, gray), workDpi);
        }
    } else {
        cls.attributes = Plane((gray.width + 1) / 2, (gray.height + 1) / 2, 0);
    }
    Plane& attr = cls.attributes;
    // Table rectangles: page pixels -> the attribute map's grid, clipped so
    // that the detector's quarter grid holds them.
    const int w4 = (gray.width + 3) >> 2, h4 = (gray.height + 3) >> 2;
    std::vector<ST_TABLERECT> rects(1);
    for (const Rect& t : tables) {
        const int x0 = std::max(0, t.x0 / r / 2), y0 = std::max(0, t.y0 / r / 2);
        const int x1 = std::min(2 * w4 - 1, t.x1 / r / 2), y1 = std::min(2 * h4 - 1, t.y1 / r / 2);
        if (x0 > x1 || y0 > y1) continue;
        ST_TABLERECT tr{};
        tr.sRect0 = int16_t(x0), tr.sRect1 = int16_t(y0), tr.sRect2 = int16_t(x1), tr.sRect3 = int16_t(y1);
        rects.push_back(tr);
    }

    structFGInfos fg{};
    const uint16_t reso = resolutionField(workDpi);
    set_ImageTavrinP(&fg.stPageImg, const_cast<uint8_t*>(gray.data.data()), uint16_t(gray.width),
                     uint16_t(gray.height), TAVRIN_TYPE_GRAY, reso, reso, false);
    const uint16_t halfReso = resolutionField(workDpi / 2);
    set_ImageTavrinP(&fg.stAttrImg, attr.data.data(), uint16_t(attr.width), uint16_t(attr.height),
                     TAVRIN_TYPE_GRAY, halfReso, halfReso, false);
    fg.stTableData.iTableNum = int32_t(rects.size() - 1);
    fg.stTableData.pstTableRect = rects.data();

    std::vector<char> debugPath(TAVRIN_PATH_SIZE, 0);
    if (!settings.dumpDir.empty()) {
        if (settings.dumpDir.size() >= TAVRIN_PATH_SIZE)
            throw AppError(kExitUsage, "--dump: directory name longer than 1023 bytes");
        ensureDirectory(settings.dumpDir);
        std::copy(settings.dumpDir.begin(), settings.dumpDir.end(), debugPath.begin());
    }
    if (w4 < 1 || h4 < 2) {  // too small for the detector's morphology: no picture
        result.planeWidth = w4, result.planeHeight = h4;
        result.planePixels = w4 * h4;
        return result;
    }
    const int status = runDetectPict(&fg, work_.data(), settings.attributes ? 1 : 0, settings.labelPassMax, &param,
                                     settings.parallel ? 1 : 0, debugPath.data());
    if (status != 0 && status != 1)
        throw AppError(kExitFailure, pageLabel + ": picture detection failed: " + detectorFailure(status) +
                                         " (runDetectPict returned " + std::to_string(status) + ")");
    result.status = status;
    result.picturePage = status == 1;
    result.pictPixelNum = param.iPictPixelNum;
    result.planeWidth = w4;
    result.planeHeight = h4;
    result.planePixels = w4 * h4;
    result.coverage = result.planePixels ? double(result.pictPixelNum) / result.planePixels : 0.0;
    const uint8_t* mask = work_.data() + TAVRIN_DETECT_PICT_OFFSET;
    std::vector<Rect> boxes = maskBoxes(mask, w4, h4);  // quarter grid = the classifier's cells
    if (settings.snap && settings.attributes) boxes = fitBoxes(boxes, cls.pictureCells, cls.markedCells);
    const int unit = 4 * r;  // page pixels per quarter-grid pixel
    for (const Rect& b : boxes) {
        result.kinds.push_back(settings.attributes ? kindWithin(cls.pictureCells, b) : kPhoto);
        Rect p;
        p.x0 = b.x0 * unit;
        p.y0 = b.y0 * unit;
        p.x1 = std::min(pageGray.width - 1, (b.x1 + 1) * unit - 1);
        p.y1 = std::min(pageGray.height - 1, (b.y1 + 1) * unit - 1);
        result.regions.push_back(p);
    }
    return result;
}

}  // namespace tavrin
