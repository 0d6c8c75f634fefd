// Netpbm pages: P1/P4 bitmaps, P2/P5 graymaps, P3/P6 pixmaps; samples above
// 8 bits are scaled down. PNM carries no resolution.
#include <algorithm>
#include <cctype>

#include "formats/page_reader.h"
#include "pipeline/app_error.h"

namespace tavrin {

namespace {

class PnmParser {
public:
    PnmParser(const std::vector<uint8_t>& f, const std::string& path) : f_(f), path_(path) {}

    AppError damaged(const std::string& what) const {
        return AppError(kExitFormat, path_ + ": damaged PNM (" + what + ")");
    }
    // Skips white space and # comments between header fields.
    void skipSpace() {
        while (pos_ < f_.size()) {
            if (f_[pos_] == '#') {
                while (pos_ < f_.size() && f_[pos_] != '\n') ++pos_;
            } else if (std::isspace(f_[pos_])) {
                ++pos_;
            } else {
                break;
            }
        }
    }
    uint64_t number(const char* what) {
        skipSpace();
        if (pos_ >= f_.size() || !std::isdigit(f_[pos_])) throw damaged(std::string("no ") + what);
        uint64_t v = 0;
        while (pos_ < f_.size() && std::isdigit(f_[pos_])) {
            v = v * 10 + (f_[pos_++] - '0');
            if (v > 0xFFFFFFFFull) throw damaged(std::string(what) + " too large");
        }
        return v;
    }
    // Plain formats: one decimal sample; P1 also allows digits without spaces.
    unsigned plainSample(bool bit) {
        skipSpace();
        if (bit && pos_ < f_.size() && (f_[pos_] == '0' || f_[pos_] == '1')) return f_[pos_++] - '0';
        const uint64_t v = number("sample");
        return unsigned(v);
    }
    size_t pos_ = 2;
    const std::vector<uint8_t>& f_;
    const std::string& path_;
};

}  // namespace

Page decodePnm(const std::vector<uint8_t>& file, const std::string& path) {
    PnmParser p(file, path);
    const char kind = char(file[1]);
    const bool bitmap = kind == '1' || kind == '4';
    const bool color = kind == '3' || kind == '6';
    const bool plain = kind <= '3';
    const uint64_t w = p.number("width"), h = p.number("height");
    const uint64_t maxval = bitmap ? 1 : p.number("maximum value");
    if (maxval == 0 || maxval > 65535) throw p.damaged("maximum value out of range");
    checkPageSize(w, h, path);
    Page page;
    page.width = int(w);
    page.height = int(h);
    page.channels = color ? 3 : 1;
    // Every sample takes at least one byte of the file (a packed bitmap one
    // per 8 pixels): a short file is refused before the page is allocated.
    const size_t samples = page.pixelCount() * page.channels;
    const size_t least = kind == '4' ? (size_t(w) + 7) / 8 * h : samples;
    if (file.size() <= p.pos_ || file.size() - p.pos_ - (plain ? 0 : 1) < least)
        throw p.damaged("file too short");
    allocatePixels(page, path);
    uint8_t* d = page.pixels.data();
    if (plain) {
        for (size_t i = 0; i < samples; ++i) {
            const unsigned v = p.plainSample(bitmap);
            if (v > maxval) throw p.damaged("sample above the maximum value");
            d[i] = bitmap ? (v ? 0 : 255) : uint8_t((v * 255u + maxval / 2) / maxval);
        }
        return page;
    }
    ++p.pos_;  // the single white-space byte after the header
    if (bitmap) {
        const size_t rowBytes = (size_t(w) + 7) / 8;
        for (int y = 0; y < page.height; ++y) {
            const uint8_t* s = file.data() + p.pos_ + rowBytes * y;
            for (int x = 0; x < page.width; ++x) page.row(y)[x] = (s[x >> 3] >> (7 - (x & 7)) & 1) ? 0 : 255;
        }
        return page;
    }
    const size_t bytesPerSample = maxval > 255 ? 2 : 1;
    if (file.size() - p.pos_ < samples * bytesPerSample) throw p.damaged("file too short");
    const uint8_t* s = file.data() + p.pos_;
    for (size_t i = 0; i < samples; ++i) {
        const unsigned v = bytesPerSample == 2 ? unsigned(s[2 * i]) << 8 | s[2 * i + 1] : s[i];
        d[i] = maxval == 255 ? uint8_t(v) : uint8_t((std::min<uint64_t>(v, maxval) * 255u + maxval / 2) / maxval);
    }
    return page;
}

}  // namespace tavrin
