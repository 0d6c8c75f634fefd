// Connected-component labelling of the quarter-resolution picture mask
// (8-connectivity): a raster pass hands out provisional labels and records
// equivalences, a pass over the labels turns them into consecutive final
// labels, and a raster pass writes the final labels and gathers each label's
// pixel count and bounding box.
//
// The equivalence table is followed at most two steps anywhere, and a link
// is written to the entry those two steps pass through. A region whose chain
// grew longer than two steps can therefore keep two final labels; that is the
// labelling the detector's thresholds were tuned on, so it is kept exactly.
#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "TavrinDetect.h"
#include "detect/dump_file.h"
#include "detect/labeling_passes.h"

namespace {

constexpr uint32_t kMaxProvisional = 8192;  // provisional labels 1..8192
constexpr int kMaxFinal = 4096;             // final labels formed at most
constexpr int kMaxAccepted = 4095;          // final labels entLabeling accepts
constexpr int kFailure = -4096;
constexpr int32_t kPixelCap = 2097151;      // pixel counts stop here
constexpr int32_t kBoxInit = 32767;         // min_x / min_y before the first pixel

// A work area's byte size as the placement helper takes it; sizes beyond int
// are clamped (they exceed every limit anyway).
int areaSize(int64_t bytes) {
    return bytes > INT_MAX ? INT_MAX : static_cast<int>(bytes);
}

// The pixel count after `run` more pixels, each adding 1 unless the count
// already stands at the cap.
int32_t addCapped(int32_t count, int run) {
    if (count == kPixelCap) return count;
    const int64_t sum = static_cast<int64_t>(count) + run;
    if (count < kPixelCap) return static_cast<int32_t>(std::min<int64_t>(sum, kPixelCap));
    return static_cast<int32_t>(static_cast<uint32_t>(sum));  // beyond the cap: never reaches it
}

void dumpLabelTable(char* dir, const PictLabel* table, int k) {
    FILE* fp = tavrin_detect::openDumpFile(dir, "label_table.txt");
    if (fp == nullptr) return;
    std::fputs("Label,pixel,min_x,min_y,max_x,max_y\n", fp);
    for (int l = 1; l <= k; ++l) {
        const PictLabel& e = table[l];
        std::fprintf(fp, "%5d,%5d,%5d,%5d,%5d,%5d\n", l, e.pixel, e.min_x, e.min_y, e.max_x,
                     e.max_y);
    }
    std::fclose(fp);
}

// The provisional pass of init_label without its dump. With zeroRest, a
// failing pass also clears the provisional labels of the pixels it did not
// reach, as if the plane had been cleared before (entLabeling's step).
int provisionalPass(const uint8_t* pucMask, uint16_t* pusProv, uint32_t* T, int iWidth, int iHeight,
                    bool zeroRest) {
    uint32_t count = 0;
    for (int y = 0; y < iHeight; ++y) {
        const uint8_t* row = pucMask + static_cast<size_t>(y) * iWidth;
        const uint8_t* up = y > 0 ? row - iWidth : nullptr;
        uint16_t* lab = pusProv + static_cast<size_t>(y) * iWidth;
        const uint16_t* labUp = y > 0 ? lab - iWidth : nullptr;
        for (int x = 0; x < iWidth; ++x) {
            // Masks are mostly background: a run of clear bytes, found eight
            // at a time, gets its zero labels at once.
            int clear = x;
            for (uint64_t eight; clear + 8 <= iWidth; clear += 8) {
                std::memcpy(&eight, row + clear, 8);
                if (eight != 0) break;
            }
            if (clear > x) {
                std::memset(lab + x, 0, sizeof(uint16_t) * static_cast<size_t>(clear - x));
                x = clear;
                if (x >= iWidth) break;
            }
            if (row[x] == 0) {
                lab[x] = 0;
                continue;
            }
            // Inside a region (all four neighbours present, one label above)
            // the steps below reduce to: t = T[T[u]] against the left label.
            if (up != nullptr && x > 0 && x + 1 < iWidth && row[x - 1] != 0 && up[x - 1] != 0 &&
                up[x] != 0 && up[x + 1] != 0 && labUp[x - 1] == labUp[x] &&
                labUp[x + 1] == labUp[x]) {
                const uint32_t left = lab[x - 1];
                const uint16_t u = labUp[x];
                const uint32_t t = T[T[u]];
                if (t < left) {
                    lab[x] = static_cast<uint16_t>(t);
                    T[left] = t;
                } else if (t > left) {
                    lab[x] = static_cast<uint16_t>(left);
                    T[T[u]] = left;
                } else {
                    // t = left changes nothing in the table, so the following
                    // pixels of the run with u above (upper-right included)
                    // take the same label.
                    int end = x + 1;
                    while (end + 1 < iWidth && row[end] != 0 && labUp[end + 1] == u) ++end;
                    std::fill(lab + x, lab + end, static_cast<uint16_t>(t));
                    x = end - 1;
                }
                continue;
            }
            const bool hasL = x > 0 && row[x - 1] != 0;
            const bool hasU = up != nullptr && up[x] != 0;
            const bool hasUL = up != nullptr && x > 0 && up[x - 1] != 0;
            const bool hasUR = up != nullptr && x + 1 < iWidth && up[x + 1] != 0;
            const uint32_t fresh = count + 1;

            // Smallest label among the neighbours: upper ones two table steps
            // away, the left one as it was handed out in this pass.
            uint32_t m = fresh;
            if (hasU) {
                const uint32_t t = T[T[labUp[x]]];
                if (t <= fresh) m = t;
            }
            if (hasL && lab[x - 1] <= m) m = lab[x - 1];
            if (hasUL) {
                const uint32_t t = T[T[labUp[x - 1]]];
                if (t <= m) m = t;
            }

            uint32_t cur;
            if (hasUR) {
                const uint32_t r = T[T[labUp[x + 1]]];
                if (r <= m) {
                    lab[x] = static_cast<uint16_t>(r);
                    cur = r;
                } else {
                    // The upper-right side is linked down to m; the left and
                    // upper-left sides stay as they are for this pixel.
                    lab[x] = static_cast<uint16_t>(m);
                    T[T[labUp[x + 1]]] = m;
                    continue;
                }
            } else if (hasL || hasU || hasUL) {
                lab[x] = static_cast<uint16_t>(m);
                cur = m;
            } else {
                if (fresh > kMaxProvisional) {
                    if (zeroRest) {
                        const size_t at = static_cast<size_t>(y) * iWidth + x;
                        const size_t n = static_cast<size_t>(iWidth) * iHeight;
                        std::fill(pusProv + at, pusProv + n, uint16_t{0});
                    }
                    return -static_cast<int>(fresh);
                }
                lab[x] = static_cast<uint16_t>(fresh);
                count = fresh;
                continue;
            }

            // Link at most one of the left and upper-left sides to cur.
            if (hasL && cur < lab[x - 1]) {
                T[lab[x - 1]] = cur;
            } else if (hasUL && cur < T[T[labUp[x - 1]]]) {
                T[T[labUp[x - 1]]] = cur;
            }
        }
    }

    return static_cast<int>(count);
}

void dumpInitTable(char* dir, const uint32_t* T, int count) {
    if (FILE* fp = tavrin_detect::openDumpFile(dir, "init_table.txt")) {
        for (int l = 1; l <= count; ++l) std::fprintf(fp, "%d,%d\n", l, static_cast<int>(T[l]));
        std::fclose(fp);
    }
}

}  // namespace

int init_label(uint8_t* pucMask, uint16_t* pusProv, uint32_t* puiTable, int iWidth, int iHeight,
               char* pcDumpDir) {
    const int count = provisionalPass(pucMask, pusProv, puiTable, iWidth, iHeight, false);
    if (count >= 0) dumpInitTable(pcDumpDir, puiTable, count);
    return count;
}

int CorrelationTableGeneration(uint32_t* puiTable, uint32_t* puiCorr, int n, char* pcDumpDir) {
    uint32_t* const T = puiTable;
    int k = 0;
    // T[l] <= l, and every entry below l already holds a final label, so one
    // more step from T[l] finds l's final label; a root exceeds k and opens
    // the next one.
    for (int l = 1; l <= n; ++l) {
        uint32_t r = T[T[l]];
        T[l] = r;
        if (r > static_cast<uint32_t>(k)) {
            ++k;
            if (k > kMaxFinal) return -k;
            T[l] = static_cast<uint32_t>(k);
            r = static_cast<uint32_t>(k);
        }
        puiCorr[l] = r;
    }

    if (FILE* fp = tavrin_detect::openDumpFile(pcDumpDir, "corr_table.txt")) {
        for (int l = 1; l <= n; ++l) std::fprintf(fp, "%d,%d\n", l, static_cast<int>(puiCorr[l]));
        std::fclose(fp);
    }
    return k;
}

int correct_label(PictLabel* pstLabel, uint16_t* pusProv, uint8_t* pucLabel, uint32_t* puiCorr,
                  int iWidth, int iHeight) {
    // Every byte of the label plane is written below, so it needs no
    // separate clearing. A row is taken in runs of one provisional label:
    // the statistics of a run equal those of its pixels taken one by one.
    for (int y = 0; y < iHeight; ++y) {
        const uint16_t* prov = pusProv + static_cast<size_t>(y) * iWidth;
        uint8_t* out = pucLabel + static_cast<size_t>(y) * iWidth;
        for (int x = 0; x < iWidth;) {
            const uint16_t l = prov[x];
            int end = x + 1;
            // Runs are long: eight labels at a time while all eight match.
            uint64_t eight[2];
            const uint64_t same = 0x0001000100010001ull * l;
            while (end + 8 <= iWidth && (std::memcpy(eight, prov + end, 16), ((eight[0] ^ same) | (eight[1] ^ same)) == 0))
                end += 8;
            while (end < iWidth && prov[end] == l) ++end;
            const uint32_t f = puiCorr[l];
            std::memset(out + x, static_cast<uint8_t>(f), static_cast<size_t>(end - x));  // 300 -> 44
            PictLabel& e = pstLabel[f];
            e.pixel = addCapped(e.pixel, end - x);
            e.min_y = std::min(e.min_y, y);
            e.max_y = std::max(e.max_y, y);
            e.min_x = std::min(e.min_x, x);
            e.max_x = std::max(e.max_x, end - 1);
            x = end;
        }
    }
    return 0;
}

int entLabeling(PictLabel* pstLabel, ImgTavrin* mask, ImgTavrin* labelPlane, uint8_t* pucWorkBuf,
                char* pcDumpDir) {
    uint32_t identityFrom = 0;
    return tavrin::detect::labelAgain(pstLabel, mask, labelPlane, pucWorkBuf, pcDumpDir,
                                      identityFrom);
}

int tavrin::detect::labelAgain(PictLabel* pstLabel, ImgTavrin* mask, ImgTavrin* labelPlane,
                               uint8_t* pucWorkBuf, char* pcDumpDir, uint32_t& identityFrom) {
    const uint32_t knownFrom = identityFrom;
    identityFrom = 0;
    if (pstLabel == nullptr || mask == nullptr || labelPlane == nullptr || pucWorkBuf == nullptr)
        return kFailure;
    const int width = mask->usWidth;
    const int height = mask->usHeight;
    const int64_t n = static_cast<int64_t>(width) * height;

    uint8_t* tableArea = TavrinApp_MemAlloc(pucWorkBuf, areaSize(n * 4),
                                            static_cast<int>(TAVRIN_DETECT_EQUIV_LIMIT),
                                            static_cast<int>(TAVRIN_DETECT_EQUIV_OFFSET));
    uint8_t* provArea = TavrinApp_MemAlloc(pucWorkBuf, areaSize(n * 2),
                                           static_cast<int>(TAVRIN_DETECT_PROV_LIMIT),
                                           static_cast<int>(TAVRIN_DETECT_PROV_OFFSET));
    if (tableArea == nullptr || provArea == nullptr) return kFailure;
    if (n > 0 && (mask->pucImage == nullptr || labelPlane->pucImage == nullptr)) return kFailure;
    uint32_t* T = reinterpret_cast<uint32_t*>(tableArea);
    uint16_t* prov = reinterpret_cast<uint16_t*>(provArea);

    // Provisional labels stay below N, except on a one-pixel plane: its
    // pixel gets label 1 = N, whose entry the resolution reads. Only there
    // is the entry past the table initialised; every other call leaves that
    // byte of the work buffer as it was.
    const uint32_t entries = static_cast<uint32_t>(n);  // n fits the region, so 32 bits
    const uint32_t initialise = knownFrom > 0 && knownFrom < entries ? knownFrom : entries;
    for (uint32_t i = 0; i < initialise; ++i) T[i] = i;
    if (n == 1) T[1] = 1;

    // The provisional and label planes start cleared. The provisional pass
    // writes every provisional label (and clears the rest when it fails) and
    // the final pass every byte of the label plane, so the label plane is
    // cleared only when a failure stops the call before that pass.
    uint8_t* const labels = labelPlane->pucImage;
    auto fail = [&] {
        std::fill(labels, labels + n, uint8_t{0});
        return kFailure;
    };
    const int provisional = provisionalPass(mask->pucImage, prov, T, width, height, true);
    if (provisional < 0) return fail();
    dumpInitTable(pcDumpDir, T, provisional);

    uint8_t* corrArea = TavrinApp_MemAlloc(pucWorkBuf, (provisional + 1) * 4,
                                           static_cast<int>(TAVRIN_DETECT_CORR_LIMIT),
                                           static_cast<int>(TAVRIN_DETECT_CORR_OFFSET));
    if (corrArea == nullptr) return fail();  // 8192 provisional labels
    uint32_t* corr = reinterpret_cast<uint32_t*>(corrArea);
    for (int l = 0; l <= provisional; ++l) corr[l] = static_cast<uint32_t>(l);

    const int k = CorrelationTableGeneration(T, corr, provisional, pcDumpDir);
    // Taken as unsigned, a failure (-4097) exceeds the limit as well as 4096.
    if (static_cast<unsigned>(k) > static_cast<unsigned>(kMaxAccepted)) return fail();

    for (int l = 0; l <= k; ++l) pstLabel[l] = PictLabel{0, kBoxInit, kBoxInit, 0, 0};
    correct_label(pstLabel, prov, labels, corr, width, height);
    dumpLabelTable(pcDumpDir, pstLabel, k);
    // The passes wrote table entries up to the provisional labels only.
    identityFrom = static_cast<uint32_t>(provisional) + 1;
    return k;
}
