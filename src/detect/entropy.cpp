// Masked entropy texture filter: for a lattice of 3x3 blocks, how evenly the
// gray-level differences between the block's centre and the unmasked pixels
// of its 11x11 neighbourhood spread over nine difference classes, as a base-9
// entropy scaled to 0..255 and written into the whole block.
#include <cstddef>

#include "TavrinDetect.h"
#include "detect/entropy_table.h"
#include "detect/filter_bands.h"

namespace {

constexpr int kRadius = 5;            // neighbourhood 11 x 11
constexpr int kClasses = 9;           // classes 0..8 enter the measure
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

// Entropy of one neighbourhood from its packed counters, 0..255.
int blockEntropy(uint64_t packed) {
    uint32_t hist[kClasses];
    uint32_t strongest = 0;
    for (int k = 0; k < kClasses; ++k) {
        hist[k] = static_cast<uint32_t>((packed >> (kFieldBits * k)) & kFieldMask);
        if (hist[k] > strongest) strongest = hist[k];
    }
    // A class under 51/512 of the strongest one is noise.
    uint32_t counted = 0;
    for (int k = 0; k < kClasses; ++k) {
        if (hist[k] * 512u < strongest * 51u) hist[k] = 0;
        counted += hist[k];
    }
    // Index floor(count * 256 * r) with r the reciprocal of S (or of 17 for
    // S <= 16) held in long double, the 64-bit-mantissa x87 format on x86 and
    // the precision of the established results. Its relative error is below
    // 2^-64, so the index is the integer quotient count * 256 / divisor except
    // where that division is exact: there the rounding of r may put the
    // product just below the quotient, and the long double product decides.
    // (For the sums S <= 121 that occur, double precision would differ only
    // between indices 127 and 128, which have the same term.) Comparing
    // instead of converting keeps the x87 rounding mode untouched.
    const uint32_t divisor = counted > 16 ? counted : kMinCounted;
    const long double reciprocal = 1.0L / divisor;
    int entropy = 0;
    for (int k = 0; k < kClasses; ++k) {
        if (hist[k] == 0) continue;  // E[0] = 0
        const uint32_t scaled = hist[k] * 256u;
        uint32_t index = scaled / divisor;
        if (index * divisor == scaled && static_cast<long double>(scaled) * reciprocal < index)
            --index;
        if (index > 255) index = 255;
        entropy += tavrin::detect::kEntropyTerm[index];
    }
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

        for (int x = 2; x < width - 2; x += 3) {
            // Clamped columns: the first and last columns that exist stand
            // for every position clamped onto them (weight), the others once.
            const int left = x - kRadius < 0 ? 0 : x - kRadius;
            const int right = x + kRadius > width - 1 ? width - 1 : x + kRadius;
            const uint32_t leftWeight = static_cast<uint32_t>(left - (x - kRadius) + 1);
            const uint32_t rightWeight = static_cast<uint32_t>(x + kRadius - right + 1);
            // incrementOf[p] = packed increment of the class of p - c
            const uint64_t* const incrementOf = increment + 255 - centreRow[x];

            uint64_t packed = 0;
            for (int k = 0; k <= 2 * kRadius; ++k) {
                const uint8_t* s = srcRows[k];
                const uint8_t* m = maskRows[k];
                packed += unlessMasked(incrementOf[s[left]], m[left]) * leftWeight;
                for (int j = left + 1; j < right; ++j)
                    packed += unlessMasked(incrementOf[s[j]], m[j]);
                packed += unlessMasked(incrementOf[s[right]], m[right]) * rightWeight;
            }

            const uint8_t value = static_cast<uint8_t>(blockEntropy(packed));
            for (int dy = -1; dy <= 1; ++dy) {
                uint8_t* out = dstPix + (y + dy) * stride + x;
                out[-1] = value;
                out[0] = value;
                out[1] = value;
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
