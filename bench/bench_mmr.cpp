// Tavrin_bwToMmr on an A4 page at 300 dpi (2480 x 3508, text-like) against
// libtiff encoding the same one-strip Group 4 image straight into memory
// through minimal client procedures of its own. The difference is the
// library's overhead around libtiff's coding (the in-memory file store and
// the recording); the program ends with the ratio of the best times.
#include <tiffio.h>

#include <cstring>
#include <vector>

#include <TavrinEncode.h>

#include "compare_main.h"
#include "encode/g4_fields.h"
#include "encode_pages.h"

namespace {

using bench_pages::kA4Height;
using bench_pages::kA4Width;

// A growable-free memory file for the baseline: fixed buffer, position, end.
struct MemoryFile {
    std::vector<uint8_t> bytes;
    toff_t position = 0, end = 0;
};

tmsize_t memRead(thandle_t h, void* buf, tmsize_t n) {
    auto* f = static_cast<MemoryFile*>(h);
    tmsize_t avail = f->position < f->end ? tmsize_t(f->end - f->position) : 0;
    if (n > avail) n = avail;
    std::memcpy(buf, f->bytes.data() + f->position, size_t(n));
    f->position += toff_t(n);
    return n;
}
tmsize_t memWrite(thandle_t h, void* buf, tmsize_t n) {
    auto* f = static_cast<MemoryFile*>(h);
    if (f->position + toff_t(n) > f->bytes.size()) return -1;
    std::memcpy(f->bytes.data() + f->position, buf, size_t(n));
    f->position += toff_t(n);
    if (f->end < f->position) f->end = f->position;
    return n;
}
toff_t memSeek(thandle_t h, toff_t off, int whence) {
    auto* f = static_cast<MemoryFile*>(h);
    toff_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? f->position : f->end;
    f->position = base + off;
    if (f->end < f->position) f->end = f->position;  // holes are never read back here
    return f->position;
}
int memClose(thandle_t) { return 0; }
toff_t memSize(thandle_t h) { return static_cast<MemoryFile*>(h)->end; }
int memMap(thandle_t, void**, toff_t*) { return 0; }
void memUnmap(thandle_t, void*, toff_t) {}

const std::vector<uint8_t>& page() {
    static const std::vector<uint8_t> p = bench_pages::textPage(kA4Width, kA4Height);
    return p;
}

void BM_Tavrin_bwToMmr(benchmark::State& state) {
    std::vector<uint8_t> image = page();
    std::vector<uint8_t> out(image.size());
    strFgImgInfo info{};
    info.pucMmrData = out.data();
    info.usWidth = kA4Width;
    info.usHeight = kA4Height;
    info.usXReso = 30000;
    info.usYReso = 30000;
    for (auto _ : state) {
        if (Tavrin_bwToMmr(&info, image.data(), out.size()) != 0) state.SkipWithError("status");
        benchmark::DoNotOptimize(out.data());
    }
    state.counters["mmr_bytes"] = info.lMmrSize;
}

void BM_LibtiffG4ToMemory(benchmark::State& state) {
    std::vector<uint8_t> image = page();
    MemoryFile file;
    file.bytes.resize(image.size() + 4096);
    uint64_t stripBytes = 0;
    for (auto _ : state) {
        file.position = file.end = 0;
        TIFF* tif = TIFFClientOpen("bench", "w", &file, memRead, memWrite, memSeek, memClose,
                                   memSize, memMap, memUnmap);
        encode_test::setG4Fields(tif, kA4Width, kA4Height);
        if (TIFFWriteEncodedStrip(tif, 0, image.data(), tmsize_t(image.size())) == -1)
            state.SkipWithError("strip");
        stripBytes = TIFFGetStrileByteCount(tif, 0);
        TIFFClose(tif);
        benchmark::DoNotOptimize(file.bytes.data());
    }
    state.counters["mmr_bytes"] = double(stripBytes);
}

}  // namespace

void registerContenders() {
    bench_compare::contender("mmr", "ours_Tavrin_bwToMmr", BM_Tavrin_bwToMmr);
    bench_compare::contender("mmr", "libtiff_g4_memory", BM_LibtiffG4ToMemory);
}
