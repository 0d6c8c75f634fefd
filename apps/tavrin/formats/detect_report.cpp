#include "formats/detect_report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>

namespace tavrin {

namespace {

constexpr int kOverlaySide = 1200;
constexpr uint8_t kTint[3] = {255, 140, 0};
constexpr uint8_t kOutline[3] = {220, 60, 0};

std::string jsonString(const std::string& s) {
    std::string out = "\"";
    for (unsigned char c : s) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += char(c);
        } else if (c < 0x20) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04x", c);
            out += buf;
        } else {
            out += char(c);
        }
    }
    return out + "\"";
}

std::string number(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.6g", v);
    return buf;
}

}  // namespace

Page makeOverlay(const Page& page, const std::vector<Rect>& regions) {
    const int longer = std::max(page.width, page.height);
    const int f = std::max(1, (longer + kOverlaySide - 1) / kOverlaySide);
    const Page small = reducePage(page, f);
    Page out;
    out.width = small.width;
    out.height = small.height;
    out.channels = 3;
    out.pixels.resize(out.pixelCount() * 3);
    for (size_t i = 0; i < small.pixelCount(); ++i)
        for (int c = 0; c < 3; ++c) out.pixels[3 * i + c] = small.pixels[i * small.channels + (small.channels == 3 ? c : 0)];
    const int line = std::max(2, out.width / 400);
    for (const Rect& r : regions) {
        const int x0 = std::clamp(r.x0 / f, 0, out.width - 1), x1 = std::clamp(r.x1 / f, 0, out.width - 1);
        const int y0 = std::clamp(r.y0 / f, 0, out.height - 1), y1 = std::clamp(r.y1 / f, 0, out.height - 1);
        for (int y = y0; y <= y1; ++y)
            for (int x = x0; x <= x1; ++x) {
                uint8_t* p = out.row(y) + size_t(x) * 3;
                const bool edge = x - x0 < line || x1 - x < line || y - y0 < line || y1 - y < line;
                for (int c = 0; c < 3; ++c)
                    p[c] = edge ? kOutline[c] : uint8_t((p[c] * 65 + kTint[c] * 35 + 50) / 100);
            }
    }
    return out;
}

std::string detectionJson(const DetectionRunInfo& run, const std::vector<PageDetection>& pages) {
    const ST_PARAM_DETECT_PICT& p = run.settings.record;
    std::ostringstream j;
    j << "{\n";
    j << "  \"file\": " << jsonString(run.file) << ",\n";
    j << "  \"format\": " << jsonString(run.format) << ",\n";
    j << "  \"parameters\": {\n"
      << "    \"dSpaceSigma\": " << number(p.dSpaceSigma) << ",\n"
      << "    \"dRangeSigma\": " << number(p.dRangeSigma) << ",\n"
      << "    \"iMinWidth\": " << p.iMinWidth << ",\n"
      << "    \"iMinHeight\": " << p.iMinHeight << ",\n"
      << "    \"iMinArea\": " << p.iMinArea << ",\n"
      << "    \"dMinFillRatio\": " << number(p.dMinFillRatio) << ",\n"
      << "    \"dMaxHighAttrRatio\": " << number(p.dMaxHighAttrRatio) << ",\n"
      << "    \"dPictPageRatio\": " << number(p.dPictPageRatio) << ",\n"
      << "    \"labelPasses\": " << run.settings.labelPassMax + 1 << ",\n"
      << "    \"attributeMap\": " << (run.settings.attributes ? "true" : "false") << "\n"
      << "  },\n";
    j << "  \"tables\": [";
    for (size_t i = 0; i < run.tables.size(); ++i) {
        const Rect& t = run.tables[i];
        j << (i ? ", " : "") << "{\"x\": " << t.x0 << ", \"y\": " << t.y0 << ", \"width\": " << t.width()
          << ", \"height\": " << t.height() << "}";
    }
    j << "],\n";
    j << "  \"pages\": [\n";
    for (size_t k = 0; k < pages.size(); ++k) {
        const PageDetection& pg = pages[k];
        const DetectResult& r = pg.result;
        j << "    {\n"
          << "      \"page\": " << pg.number << ",\n"
          << "      \"width\": " << pg.width << ",\n"
          << "      \"height\": " << pg.height << ",\n"
          << "      \"dpi\": [" << number(pg.dpiX) << ", " << number(pg.dpiY) << "],\n"
          << "      \"dpiSource\": " << jsonString(pg.dpiSource) << ",\n"
          << "      \"detectionReduction\": " << r.reduction << ",\n"
          << "      \"reducedForLimits\": " << (r.reducedForLimits ? "true" : "false") << ",\n"
          << "      \"quarterPlane\": {\"width\": " << r.planeWidth << ", \"height\": " << r.planeHeight << "},\n"
          << "      \"picturePage\": " << (r.picturePage ? "true" : "false") << ",\n"
          << "      \"iPictPixelNum\": " << r.pictPixelNum << ",\n"
          << "      \"planePixels\": " << r.planePixels << ",\n"
          << "      \"coverage\": " << number(r.coverage) << ",\n"
          << "      \"overlay\": " << jsonString(pg.overlayPath) << ",\n"
          << "      \"regions\": [";
        for (size_t i = 0; i < r.regions.size(); ++i) {
            const Rect& g = r.regions[i];
            const bool graphic = i < r.kinds.size() && r.kinds[i] == kGraphic;
            j << (i ? "," : "") << "\n        {\"x\": " << g.x0 << ", \"y\": " << g.y0 << ", \"width\": " << g.width()
              << ", \"height\": " << g.height() << ", \"kind\": \"" << (graphic ? "graphic" : "photo") << "\"}";
        }
        j << (r.regions.empty() ? "]\n" : "\n      ]\n") << "    }" << (k + 1 < pages.size() ? "," : "") << "\n";
    }
    j << "  ]\n}\n";
    return j.str();
}

}  // namespace tavrin
