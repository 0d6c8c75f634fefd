// Masked entropy texture filter: for a lattice of 3x3 blocks, how evenly the
// gray-level differences between the block's centre and the unmasked pixels
// of its 11x11 neighbourhood spread over nine difference classes, as a base-9
// entropy scaled to 0..255 and written into the whole block.
//
// Blocks away from the row ends are counted with byte vectors
// (entropy_count.cpp), the others here with clamped columns; the term of
// each class comes from a table of every count and divisor a block can have.
#include <cstddef>

#include "TavrinDetect.h"
#include "detect/entropy_count.h"
#include "detect/entropy_table.h"
#include "detect/filter_bands.h"

namespace {

using tavrin::detect::kClasses;        // classes 0..8 enter the measure
using tavrin::detect::kEntropyRadius;  // neighbourhood 11 x 11
constexpr int kRadius = kEntropyRadius;
constexpr int kFarClass = 9;          // |difference| > 35
constexpr uint32_t kMinCounted = 17;  // smaller neighbourhoods are measured as 17

// The counters of classes 0..8 are packed into one 64-bit word, 7 bits each
// (a neighbourhood has 121 positions, so no field overflows into the next).
// Counting becomes a plain sum of per-position increments: no histogram in
// memory and no chain of dependent stores. Far differences and masked
// positions add 0.
constexpr int kFieldBits = 7;
constexpr uint64_t kFieldMask = (uint64_t{1} << kFieldBits) - 1;

// Difference class of d = p - c, indexed by d + 255: floor((35 - d) / 8) for
// |d| <= 35 (class 0 holds the largest positive steps), else 9.
void buildClassTable(int32_t (&table)[511]) {
    for (int i = 0; i < 511; ++i) {
        const int d = i - 255;
        table[i] = (d >= -35 && d <= 35) ? (35 - d) / 8 : kFarClass;
    }
}

// Packed increment of each difference, from the class table.
void buildIncrementTable(const int32_t (&classOf)[511], uint64_t (&increment)[511]) {
    for (int i = 0; i < 511; ++i)
        increment[i] = classOf[i] < kClasses ? uint64_t{1} << (kFieldBits * classOf[i]) : 0;
}

// The increment when the mask byte is 0, else 0; branch-free, since masks
// mix set and clear bytes unpredictably.
inline uint64_t unlessMasked(uint64_t increment, uint8_t maskByte) {
    return increment & (uint64_t{0} - static_cast<uint64_t>(maskByte == 0));
}

// The counters of classes 0..8 held in a packed word.
void unpack(uint64_t packed, uint32_t (&hist)[kClasses]) {
    for (int k = 0; k < kClasses; ++k)
        hist[k] = static_cast<uint32_t>((packed >> (kFieldBits * k)) & kFieldMask);
}

// Counters of classes 0..8 of the block at column x, any column: the first
// and last columns that exist stand for every position clamped onto them
// (weight), the others once. incrementOf[p]: packed increment of p - c.
void countClamped(const uint8_t* const* srcRows, const uint8_t* const* maskRows, int x, int width,
                  const uint64_t* incrementOf, uint32_t (&hist)[kClasses]) {
    const int left = x - kRadius < 0 ? 0 : x - kRadius;
    const int right = x + kRadius > width - 1 ? width - 1 : x + kRadius;
    const uint32_t leftWeight = static_cast<uint32_t>(left - (x - kRadius) + 1);
    const uint32_t rightWeight = static_cast<uint32_t>(x + kRadius - right + 1);
    uint64_t packed = 0;
    for (int k = 0; k <= 2 * kRadius; ++k) {
        const uint8_t* s = srcRows[k];
        const uint8_t* m = maskRows[k];
        packed += unlessMasked(incrementOf[s[left]], m[left]) * leftWeight;
        for (int j = left + 1; j < right; ++j) packed += unlessMasked(incrementOf[s[j]], m[j]);
        packed += unlessMasked(incrementOf[s[right]], m[right]) * rightWeight;
    }
    unpack(packed, hist);
}

// Term of one class holding `count` of `divisor` counted positions:
// E[min(floor(count * 256 * r), 255)] with r = 1 / divisor held in long
// double, the 64-bit-mantissa x87 format on x86 and the precision of the
// established results. Its relative error is below 2^-64, so the index is
// the integer quotient count * 256 / divisor except where that division is
// exact: there the rounding of r may put the product just below the
// quotient, and the long double product decides. (For the sums S <= 121
// that occur, double precision would differ only between indices 127 and
// 128, which have the same term.) Comparing instead of converting keeps the
// x87 rounding mode untouched.
int classTerm(uint32_t count, uint32_t divisor) {
    const long double reciprocal = 1.0L / divisor;
    const uint32_t scaled = count * 256u;
    uint32_t index = scaled / divisor;
    if (index * divisor == scaled && static_cast<long double>(scaled) * reciprocal < index) --index;
    return tavrin::detect::kEntropyTerm[index > 255 ? 255 : index];
}

// Every term a block can need, [divisor][count] for divisors 17..121 and
// counts up to the divisor, built once on first use (thread-safe).
constexpr uint32_t kPositions = (2 * kRadius + 1) * (2 * kRadius + 1);
struct TermTable {
    uint8_t term[kPositions + 1][kPositions + 1];
    TermTable() : term{} {
        for (uint32_t divisor = kMinCounted; divisor <= kPositions; ++divisor)
            for (uint32_t count = 1; count <= divisor; ++count)
                term[divisor][count] = static_cast<uint8_t>(classTerm(count, divisor));
    }
};

const TermTable& termTable() {
    static const TermTable table;
    return table;
}

// Entropy of one neighbourhood from its counters of classes 0..8, 0..255:
// classes under 51/512 of the strongest one are noise, the others' terms
// are summed over S counted positions, measured as 17 when S <= 16.
int blockEntropy(uint32_t (&hist)[kClasses], const TermTable& table) {
    uint32_t strongest = 0;
    for (int k = 0; k < kClasses; ++k)
        if (hist[k] > strongest) strongest = hist[k];
    uint32_t counted = 0;
    for (int k = 0; k < kClasses; ++k) {
        if (hist[k] * 512u < strongest * 51u) hist[k] = 0;
        counted += hist[k];
    }
    const uint8_t* const terms = table.term[counted > 16 ? counted : kMinCounted];
    int entropy = 0;
    for (int k = 0; k < kClasses; ++k) entropy += terms[hist[k]];  // E[0] = 0
    return entropy > 255 ? 255 : entropy;
}


}  // namespace

int maskedEntropy2(int first, int end, ImgTavrin* src, ImgTavrin* mask, ImgTavrin* dst) {
    if (src == nullptr || mask == nullptr || dst == nullptr || src->pucImage == nullptr ||
        mask->pucImage == nullptr || dst->pucImage == nullptr)
        return 0;
    const int width = src->usWidth;
    const int height = src->usHeight;

    int32_t classOf[511];
    buildClassTable(classOf);
    uint64_t increment[511];
    buildIncrementTable(classOf, increment);
    if (width <= 4) return 0;  // no block column fits
    const TermTable& terms = termTable();
    const tavrin::detect::CountBlocksFn countInner = tavrin::detect::countBlocksForThisCpu();

    // Block centres run first, first + 3, ...; a block must lie inside the
    // plane (rows y - 1 .. y + 1), so centres outside 1 .. H - 2 are skipped
    // (the callers' bands never produce them).
    int y = first;
    if (y < 1) y += (1 - y + 2) / 3 * 3;
    const int yEnd = end < height - 1 ? end : height - 1;

    const ptrdiff_t stride = width;
    const uint8_t* const srcPix = src->pucImage;
    const uint8_t* const maskPix = mask->pucImage;
    uint8_t* const dstPix = dst->pucImage;

    for (; y < yEnd; y += 3) {
        // Neighbourhood rows clamped into the plane: a replicated edge row is
        // counted once per repetition, so there are always 11 rows.
        const uint8_t* srcRows[2 * kRadius + 1];
        const uint8_t* maskRows[2 * kRadius + 1];
        for (int k = 0; k <= 2 * kRadius; ++k) {
            int r = y - kRadius + k;
            r = r < 0 ? 0 : (r > height - 1 ? height - 1 : r);
            srcRows[k] = srcPix + r * stride;
            maskRows[k] = maskPix + r * stride;
        }
        const uint8_t* const centreRow = srcPix + y * stride;

        auto write = [&](int x, uint32_t (&hist)[kClasses]) {
            const uint8_t value = static_cast<uint8_t>(blockEntropy(hist, terms));
            for (int dy = -1; dy <= 1; ++dy) {
                uint8_t* out = dstPix + (y + dy) * stride + x;
                out[-1] = value;
                out[0] = value;
                out[1] = value;
            }
        };
        for (int x = 2; x < width - 2;) {
            if (countInner != nullptr && tavrin::detect::countFits(x, width)) {
                uint32_t hist[tavrin::detect::kCountChunk][kClasses];
                const int n = countInner(srcRows, maskRows, centreRow, x, width, hist);
                for (int i = 0; i < n; ++i, x += 3) write(x, hist[i]);
            } else {
                uint32_t hist[kClasses];
                countClamped(srcRows, maskRows, x, width, increment + 255 - centreRow[x], hist);
                write(x, hist);
                x += 3;
            }
        }
    }
    return 0;
}

int maskedEntropy(ImgTavrin* src, ImgTavrin* mask, ImgTavrin* dst, int iParallel) {
    // Only the source's geometry is read; the mask and destination must share
    // it, or the blocks would be written past the destination.
    if (src == nullptr || mask == nullptr || dst == nullptr || src->pucImage == nullptr ||
        mask->pucImage == nullptr || dst->pucImage == nullptr ||
        mask->usWidth != src->usWidth || mask->usHeight != src->usHeight ||
        dst->usWidth != src->usWidth || dst->usHeight != src->usHeight)
        return 2;
    const int height = src->usHeight;
    // Bands of centre rows; the middle limit 3k + 2 continues the lattice.
    const int limits[3] = {2, 3 * (height / 6) + 2, height - 2};

    initZero_ImageTavrin(dst);
    if (iParallel == 0) return maskedEntropy2(limits[0], limits[2], src, mask, dst);
    return tavrin::detect::runTwoBands([&](int band) {
        return maskedEntropy2(limits[band], limits[band + 1], src, mask, dst);
    });
}
