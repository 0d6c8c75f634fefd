// The detector's inputs built from a real page the way the tavrin program
// builds them: the page read by the program's reader, its gray plane, the
// program's attribute map (half resolution) and its default detection
// settings, handed to runDetectPict as the program hands them. Sizes other
// than A4 are made from the bundled A4 page: A5 is its top half, A3 two
// copies side by side, the 600-dpi A4 every pixel doubled.
#ifndef TAVRIN_BENCH_SAMPLE_INPUTS_H
#define TAVRIN_BENCH_SAMPLE_INPUTS_H

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <TavrinDetect.h>

#include "cli/commands.h"
#include "formats/page_reader.h"
#include "pipeline/attribute_map.h"
#include "pipeline/picture_detector.h"

namespace bench_inputs {

inline const std::string kSamplePage = std::string(TAVRIN_SAMPLES_DIR) + "/sample-page.jpg";

inline tavrin::Plane grayOfFile(const std::string& path) {
    auto reader = tavrin::PageReader::open(path);
    tavrin::Page page;
    reader->next(page);
    tavrin::settleResolution(page, 0);
    return tavrin::grayOf(page);
}

inline const tavrin::Plane& sampleGray() {
    static const tavrin::Plane gray = grayOfFile(kSamplePage);
    return gray;
}

enum class PageSize { A5, A4, A3, A4at600 };

inline const char* sizeName(PageSize s) {
    switch (s) {
        case PageSize::A5: return "A5";
        case PageSize::A4: return "A4";
        case PageSize::A3: return "A3";
        default: return "A4-600dpi";
    }
}

inline double sizeDpi(PageSize s) { return s == PageSize::A4at600 ? 600.0 : 300.0; }

inline tavrin::Plane grayOfSize(PageSize s) {
    const tavrin::Plane& a4 = sampleGray();
    if (s == PageSize::A4) return a4;
    if (s == PageSize::A5) {
        tavrin::Plane p(a4.width, a4.height / 2);
        std::memcpy(p.data.data(), a4.data.data(), p.data.size());
        return p;
    }
    if (s == PageSize::A3) {
        tavrin::Plane p(2 * a4.width, a4.height);
        for (int y = 0; y < a4.height; ++y) {
            std::memcpy(p.row(y), a4.row(y), size_t(a4.width));
            std::memcpy(p.row(y) + a4.width, a4.row(y), size_t(a4.width));
        }
        return p;
    }
    tavrin::Plane p(2 * a4.width, 2 * a4.height);
    for (int y = 0; y < p.height; ++y)
        for (int x = 0; x < p.width; ++x) p.row(y)[x] = a4.row(y / 2)[x / 2];
    return p;
}

// One page prepared for runDetectPict exactly as the program prepares it at
// 300 dpi (a 600-dpi page is first reduced by 2, as the program does).
struct DetectorInput {
    tavrin::Plane gray;  // the page at 300 dpi
    tavrin::Plane attr;  // the program's attribute map of it
    ST_PARAM_DETECT_PICT param{};
    int labelPassMax = 0;
    structFGInfos fg{};
    ST_TABLERECT noTable{};

    explicit DetectorInput(const tavrin::Plane& page300) : gray(page300) {
        const tavrin::DetectSettings settings = tavrin::defaultDetectSettings();
        param = settings.record;
        labelPassMax = settings.labelPassMax;
        attr = tavrin::buildAttributeMap(gray, 300.0);
        fg.stPageImg = ImgTavrin{gray.data.data(), uint16_t(gray.width), uint16_t(gray.height),
                                 30000, 30000, 0};
        fg.stAttrImg = ImgTavrin{attr.data.data(), uint16_t(attr.width), uint16_t(attr.height),
                                 15000, 15000, 0};
        fg.stTableData = ST_TABLEDATA{0, &noTable};
    }
    // The program's call: P-attribute areas not added (mode 0).
    int run(uint8_t* work, int parallel) {
        char noDump[] = "";
        return runDetectPict(&fg, work, 0, labelPassMax, &param, parallel, noDump);
    }
};

inline DetectorInput& sampleInput() {
    static DetectorInput input(sampleGray());
    return input;
}

}  // namespace bench_inputs

#endif
