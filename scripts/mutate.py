#!/usr/bin/python3
"""Mutation check: does the test suite catch realistic faults?

Each fault below is one small edit, described by a file, an exact snippet and
its replacement (never by line number, so the table survives edits elsewhere).
The script copies the git-tracked tree into build-mutate/tree, builds it once
in build-mutate/build (a Release build whose programs are not relinked when
only the shared library changes), checks that the unmodified suite passes,
then plants the faults one at a time: edit, incremental rebuild, ctest
stopping at the first failure, restore. A fault is

  caught   some test failed (or the run hung past the time limit);
  MISSED   the whole suite passed with the fault in place;
  n/a      the tree did not build with it (a compile error proves nothing);
  stale    its snippet is not found exactly once (the code has moved on).

  scripts/mutate.py                  every fault
  scripts/mutate.py --only ID,ID     some of them
  scripts/mutate.py --list           check the snippets only, build nothing
  scripts/mutate.py --out F          also write the table to F
  scripts/mutate.py --compare F      list faults caught in table F but not now

Standard library only; runs at nice 10 with two build and test jobs.
"""
import argparse
import os
import re
import shutil
import signal
import subprocess
import sys
import time
from collections import namedtuple

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

Fault = namedtuple("Fault", "id path snippet replacement what")

# Faults of every subsystem, roughly in proportion to its size. The program's
# faults stay in its stable parts (readers and writers, command line, layer
# encoders, PDF writer, page helpers); detection faults stay in the
# arithmetic its definition fixes (thresholds, limits, table steps, statuses,
# rounding) rather than in loop mechanics.
FAULTS = [
    # --- src/image ---------------------------------------------------------
    Fault("image-pack-bound", "src/image/bilevel_pack.cpp",
          "8 * fullBytes + b < width;", "8 * fullBytes + b <= width;",
          "packing reads one pixel past the row end"),
    Fault("image-bytes-rule", "src/image/image_bytes.h",
          "* (type != 0 ? 3u : 1u);", "* (type == 1 || type == 2 ? 3u : 1u);",
          "bi-level and type 7 counted one byte per pixel"),
    Fault("image-size-limit", "src/image/request_case.cpp",
          "shortSide <= limit.shortSide && longSide <= limit.longSide",
          "shortSide < limit.shortSide && longSide <= limit.longSide",
          "page exactly at the short limit refused"),
    Fault("image-sc-rounding", "src/image/sc_result.cpp",
          "sX = truncToInt16(static_cast<double>(movedX) + 0.5);",
          "sX = truncToInt16(std::round(static_cast<double>(movedX)));",
          "origin rounded half away from zero"),
    Fault("image-memalloc", "src/image/work_memory.cpp",
          "if (size > limit) return nullptr;", "if (size >= limit) return nullptr;",
          "a region exactly the size of its limit refused"),
    # --- src/params --------------------------------------------------------
    Fault("params-ae-max", "src/params/input_params.cpp",
          "row.ucAeLevel = pick(12, 32, 36);", "row.ucAeLevel = pick(12, 32, 35);",
          "wrong maximum in the limit table"),
    Fault("params-message-size", "src/params/input_params.cpp",
          "constexpr size_t kMessageCapacity = 47;", "constexpr size_t kMessageCapacity = 46;",
          "longest message cut by one"),
    Fault("params-cic-groups", "src/params/sim_params.cpp",
          "if (failures == 0) failures = countFailures(strSimCICParams_Limit, kGroup2, *p);",
          "failures += countFailures(strSimCICParams_Limit, kGroup2, *p);",
          "second group counted although the first failed"),
    Fault("params-skew-limit", "src/params/sim_params.cpp",
          "{4500, 4500, 100, 0, 50, 3},", "{4500, 4500, 100, 0, 50, 2},",
          "wrong maximum in the skew-and-crop table"),
    # --- src/fom -----------------------------------------------------------
    Fault("fom-write-room", "src/fom/fom_io.cpp",
          "room = pos < e->capacity ? e->capacity - pos : 0;",
          "room = pos < e->capacity ? e->capacity - pos + 1 : 0;",
          "a write may pass the buffer by one byte"),
    Fault("fom-seek-back", "src/fom/fom_io.cpp",
          "if (offset < 0 && -int64_t(offset) > base) return -1;",
          "if (offset < 0 && -int64_t(offset) >= base) return -1;",
          "seeking back exactly to offset 0 refused"),
    Fault("fom-open-mode", "src/fom/fom_files.cpp",
          "if (((flags ^ e->mode) & 3) != 0) return -1;", "",
          "access mode of an open not checked"),
    Fault("fom-recording-count", "src/fom/fom_files.cpp",
          "if (e->recording) return 0;", "",
          "recorded length reported while still recording"),
    Fault("fom-descriptor-number", "src/fom/descriptor_table.h",
          "int fd = m.maxFd() + 1;", "int fd = static_cast<int>(m.descriptors.size());",
          "closed descriptor numbers reused"),
    Fault("fom-tiff-close", "src/fom/tiff_on_memory.cpp",
          "if (fd >= 0) fom_close(fd);", "(void)fd;",
          "descriptor left open after a failed libtiff open"),
    # --- src/encode --------------------------------------------------------
    Fault("encode-mmr-unset", "src/encode/mmr_encoder.cpp",
          "if (registered) fom_unset(kFileName);\n        return kFailed;", "return kFailed;",
          "file name left registered after a failed encoding"),
    Fault("encode-mmr-size", "src/encode/mmr_encoder.cpp",
          "info->lMmrSize = 0;\n        // End", "// End",
          "size not cleared on failure"),
    Fault("encode-jpeg-chroma", "src/encode/jpeg_stream.cpp",
          "jpeg_add_quant_table(&cinfo, 1, kChrominanceBase, chromaScale, TRUE);",
          "jpeg_add_quant_table(&cinfo, 1, kChrominanceBase, lumaScale, TRUE);",
          "chrominance table scaled with the luminance quality"),
    Fault("encode-jpeg-density", "src/encode/jpeg_stream.cpp",
          "static_cast<UINT16>(src->usYReso / 100);", "static_cast<UINT16>((src->usYReso + 50) / 100);",
          "density rounded instead of truncated"),
    Fault("encode-jpeg-overflow", "src/encode/jpeg_memory_dest.cpp",
          "if (dest->pub.next_output_byte != dest->spill) reportBufferTooSmall(cinfo);", "",
          "a stream longer than the buffer reported as success"),
    Fault("encode-flate-level", "src/encode/flate_wrapper.cpp",
          "compress(info->pucStreamData, &produced, source, info->ulStreamSize)",
          "compress2(info->pucStreamData, &produced, source, info->ulStreamSize, 9)",
          "wrong compression level"),
    Fault("encode-tiff-resolution", "src/encode/tiff_writer.cpp",
          "TIFFTAG_XRESOLUTION, img->usXReso / 100.0f);", "TIFFTAG_XRESOLUTION, img->usYReso / 100.0f);",
          "x resolution taken from y"),
    # --- src/detect --------------------------------------------------------
    Fault("detect-entropy-threshold", "src/detect/driver.cpp",
          "entropy[i] > kEntropyThreshold ? 1 : 0;", "entropy[i] >= kEntropyThreshold ? 1 : 0;",
          "entropy threshold inclusive"),
    Fault("detect-p-attribute", "src/detect/driver.cpp",
          "constexpr uint8_t kPAttribute = 112;", "constexpr uint8_t kPAttribute = 113;",
          "wrong P-attribute code"),
    Fault("detect-table-order", "src/detect/driver.cpp",
          "const int y0 = std::max(r.sRect1 >> 1, 0);\n        const int x1 = std::min(r.sRect2 >> 1, width - 1);",
          "const int y0 = std::max(r.sRect2 >> 1, 0);\n        const int x1 = std::min(r.sRect1 >> 1, width - 1);",
          "table rectangle read left, right, top, bottom"),
    Fault("detect-pass-status", "src/detect/driver.cpp",
          "std::min<int64_t>(kLabelPassBase + pass, INT_MAX)",
          "std::min<int64_t>(kLabelPassBase + pass + 1, INT_MAX)",
          "labelling pass counted from 1"),
    Fault("detect-page-ratio", "src/detect/driver.cpp",
          "share >= param->dPictPageRatio ? 1 : 0;", "share > param->dPictPageRatio ? 1 : 0;",
          "page threshold exclusive"),
    Fault("detect-min-height", "src/detect/driver.cpp",
          "if (width < 1 || height < 2) throw kNoRoom;", "if (width < 1 || height < 3) throw kNoRoom;",
          "two-row planes refused"),
    Fault("detect-attr-cover", "src/detect/driver.cpp",
          "if (lastAttr >= attrStride * attrMap.usHeight) throw kNoRoom;",
          "if (lastAttr > attrStride * attrMap.usHeight) throw kNoRoom;",
          "attribute map one byte short accepted"),
    Fault("detect-quarter-size", "src/detect/driver.cpp",
          "const int width = (page.usWidth + 3) >> 2;", "const int width = page.usWidth >> 2;",
          "quarter width rounded down"),
    Fault("detect-label-accept", "src/detect/labeling.cpp",
          "constexpr int kMaxAccepted = 4095;", "constexpr int kMaxAccepted = 4096;",
          "4096 final labels accepted"),
    Fault("detect-pixel-cap", "src/detect/labeling.cpp",
          "constexpr int32_t kPixelCap = 2097151;", "constexpr int32_t kPixelCap = 2097152;",
          "wrong pixel-count cap"),
    Fault("detect-provisional-limit", "src/detect/labeling.cpp",
          "constexpr uint32_t kMaxProvisional = 8192;", "constexpr uint32_t kMaxProvisional = 8191;",
          "one provisional label too few"),
    Fault("detect-box-init", "src/detect/labeling.cpp",
          "constexpr int32_t kBoxInit = 32767;", "constexpr int32_t kBoxInit = 32766;",
          "wrong initial box corner"),
    Fault("detect-resolution-steps", "src/detect/labeling.cpp",
          "uint32_t r = T[T[l]];", "uint32_t r = T[l];",
          "resolution follows one table step instead of two"),
    Fault("detect-min-width", "src/detect/bounding_box.cpp",
          "if (w < param.iMinWidth) return false;", "if (w <= param.iMinWidth) return false;",
          "minimum width exclusive"),
    Fault("detect-fill-ratio", "src/detect/bounding_box.cpp",
          "if (!(e.pixel >= area * param.dMinFillRatio)) return false;",
          "if (!(e.pixel > area * param.dMinFillRatio)) return false;",
          "fill ratio exclusive"),
    Fault("detect-empty-region", "src/detect/bounding_box.cpp",
          "if (e.pixel <= 0) return false;", "if (e.pixel < 0) return false;",
          "region without pixels accepted"),
    Fault("detect-cut-row", "src/detect/split_table.cpp",
          "const int64_t cutRow = above ? t.y0 - 1 : t.y1 + 1;",
          "const int64_t cutRow = above ? t.y0 : t.y1;",
          "cut row inside the table"),
    Fault("detect-split-order", "src/detect/split_table.cpp",
          "TableBox t{r.sRect0 >> 1, r.sRect1 >> 1, r.sRect2 >> 1, r.sRect3 >> 1};",
          "TableBox t{r.sRect0 >> 1, r.sRect2 >> 1, r.sRect1 >> 1, r.sRect3 >> 1};",
          "table read left, top, right, bottom when splitting"),
    Fault("detect-smooth-disc", "src/detect/smoothing.cpp",
          "r2 > kRadius * kRadius ? 0.0f", "r2 >= kRadius * kRadius ? 0.0f",
          "kernel disc without its rim"),
    Fault("detect-smooth-sigma", "src/detect/smoothing.cpp",
          "-0.5 / (pstParam->dRangeSigma * pstParam->dRangeSigma);",
          "-0.5 / (pstParam->dSpaceSigma * pstParam->dRangeSigma);",
          "range coefficient from the wrong sigma"),
    Fault("detect-entropy-min", "src/detect/entropy.cpp",
          "constexpr uint32_t kMinCounted = 17;", "constexpr uint32_t kMinCounted = 16;",
          "small neighbourhoods measured as 16"),
    Fault("detect-entropy-class", "src/detect/entropy.cpp",
          "table[i] = (d >= -35 && d <= 35)", "table[i] = (d >= -35 && d < 35)",
          "difference 35 counted as far"),
    Fault("detect-entropy-term", "src/detect/entropy_table.cpp",
          "     0,  3,  4,  6,  8,", "     0,  2,  4,  6,  8,",
          "wrong entropy-term constant"),
    Fault("detect-morph-rows", "src/detect/morphology.cpp",
          "width < 1 || height < 2 || dst.usWidth", "width < 1 || height < 1 || dst.usWidth",
          "one-row plane not refused"),
    Fault("detect-solo-value", "src/detect/morphology.cpp",
          "if (b[x] != 1) continue;", "if (b[x] == 0) continue;",
          "lone pixels of other values removed"),
    # --- src/debug ---------------------------------------------------------
    Fault("debug-path-cut", "src/debug/dump_path.cpp",
          "*c != '\\0' && n < TAVRIN_PATH_SIZE - 1;", "*c != '\\0' && n < TAVRIN_PATH_SIZE;",
          "joined path fills the last byte"),
    Fault("debug-fg-restore", "src/debug/fg_dump.cpp",
          "    reverseBits(layer.pucMmrData, static_cast<size_t>(n));\n    return written == n;",
          "    return written == n;",
          "caller's MMR bytes left bit-reversed"),
    Fault("debug-raw-path", "src/debug/scaled_dumps.cpp",
          "static_cast<size_t>(len) >= sizeof path", "static_cast<size_t>(len) > sizeof path",
          "cut dump name accepted"),
    Fault("debug-layout-sign", "src/debug/layout_dump.cpp",
          "b.iItem4, 0, b.cItem5);", "b.iItem4, 0, static_cast<uint8_t>(b.cItem5));",
          "last column unsigned"),
    Fault("debug-tags-once", "src/debug/tiff_tags.cpp",
          "static const bool installed = installExtender();", "const bool installed = installExtender();",
          "tag extender installed on every call"),
    # --- apps/tavrin -------------------------------------------------------
    Fault("app-page-side", "apps/tavrin/formats/page_reader.cpp",
          "if (w > uint64_t(kMaxPageSide) || h > uint64_t(kMaxPageSide))",
          "if (w >= uint64_t(kMaxPageSide) || h >= uint64_t(kMaxPageSide))",
          "page of exactly the largest side refused"),
    Fault("app-sniff-pnm", "apps/tavrin/formats/page_reader.cpp",
          "h[1] >= '1' && h[1] <= '6'", "h[1] >= '1' && h[1] < '6'",
          "P6 pixmaps not recognised"),
    Fault("app-pnm-scale", "apps/tavrin/formats/read_pnm.cpp",
          "d[i] = bitmap ? (v ? 0 : 255) : uint8_t((v * 255u + maxval / 2) / maxval);",
          "d[i] = bitmap ? (v ? 0 : 255) : uint8_t(v * 255u / maxval);",
          "plain PNM samples scaled without rounding"),
    Fault("app-jpeg-cm", "apps/tavrin/formats/read_jpeg.cpp",
          "page->dpiX = cinfo.X_density * 2.54;", "page->dpiX = cinfo.X_density / 2.54;",
          "dots per centimetre converted the wrong way"),
    Fault("app-tiff-last-page", "apps/tavrin/formats/read_tiff.cpp",
          "if (index_ >= count_) return false;", "if (index_ > count_) return false;",
          "reads one page past the last"),
    Fault("app-png-phys", "apps/tavrin/formats/read_png.cpp",
          "dpiX = be32(&file[pos + 8]) * 0.0254;", "dpiX = be32(&file[pos + 8]) * 0.254;",
          "wrong PNG resolution unit"),
    Fault("app-temp-cleanup", "apps/tavrin/formats/atomic_output.cpp",
          "    std::remove(temp_.c_str());\n    tempFiles().erase(temp_);", "    tempFiles().erase(temp_);",
          "temporary file left behind on failure"),
    Fault("app-overlay-scale", "apps/tavrin/formats/detect_report.cpp",
          "(longer + kOverlaySide - 1) / kOverlaySide", "longer / kOverlaySide",
          "overlay reduction rounded down"),
    Fault("app-int-range", "apps/tavrin/cli/options.cpp",
          "errno == ERANGE || n < lo || n > hi)", "errno == ERANGE || n <= lo || n > hi)",
          "lowest whole-number option value refused"),
    Fault("app-sampling-444", "apps/tavrin/cli/options.cpp",
          "if (v == \"444\") return 5;", "if (v == \"444\") return 3;",
          "444 mapped to the wrong library mode"),
    Fault("app-label-passes", "apps/tavrin/cli/options.cpp",
          "parseInt(n, v, 1, 64) - 1;", "parseInt(n, v, 1, 64);",
          "one labelling pass too many"),
    Fault("app-tables-exit", "apps/tavrin/cli/options.cpp",
          "throw AppError(kExitInput, path + \": cannot open the tables file: \"",
          "throw AppError(kExitUsage, path + \": cannot open the tables file: \"",
          "missing tables file gives the usage exit code"),
    Fault("app-tables-order", "apps/tavrin/cli/options.cpp",
          "if (v[0] > v[2] || v[1] > v[3])", "if (v[0] >= v[2] || v[1] >= v[3])",
          "one-pixel table rectangle refused"),
    Fault("app-version-args", "apps/tavrin/cli/main.cpp",
          "if (args.size() > 1) throw", "if (args.size() >= 1) throw",
          "version refuses its own command line"),
    Fault("app-no-args-exit", "apps/tavrin/cli/main.cpp",
          "return args.empty() ? kExitUsage : kExitOk;", "return kExitOk;",
          "no arguments exits 0"),
    Fault("app-resolution-field", "apps/tavrin/pipeline/layer_encoders.cpp",
          "std::clamp<long>(std::lround(dpi * 100.0), 1, 65535)",
          "std::clamp<long>(long(dpi * 100.0), 1, 65535)",
          "resolution field truncated"),
    Fault("app-pdf-blackis1", "apps/tavrin/pipeline/pdf_writer.cpp",
          "parms.replaceKey(\"/BlackIs1\", QOH::newBool(false));",
          "parms.replaceKey(\"/BlackIs1\", QOH::newBool(true));",
          "text masks inverted"),
    Fault("app-pdf-height", "apps/tavrin/pipeline/pdf_writer.cpp",
          "sy = 72.0 / page.dpiY;", "sy = 72.0 / page.dpiX;",
          "page height from the horizontal resolution"),
    Fault("app-gray-weights", "apps/tavrin/pipeline/page.cpp",
          "(77u * s[3 * i] + 150u * s[3 * i + 1] + 29u * s[3 * i + 2] + 128u)",
          "(29u * s[3 * i] + 150u * s[3 * i + 1] + 77u * s[3 * i + 2] + 128u)",
          "red and blue weights swapped"),
    Fault("app-reduce-rounding", "apps/tavrin/pipeline/page.cpp",
          "uint8_t((acc[size_t(bx) * channels + c] + count / 2) / count)",
          "uint8_t(acc[size_t(bx) * channels + c] / count)",
          "block means truncated"),
    Fault("app-photo-colours", "apps/tavrin/pipeline/classifier.cpp",
          "const bool tones = s.colours >= kMinColours;", "const bool tones = s.colours > 4 * kMinColours;",
          "photographs need four times as many colours"),
    Fault("app-edge-growth", "apps/tavrin/pipeline/box_fitting.cpp",
          "constexpr double kEdgeLine = 0.8;", "constexpr double kEdgeLine = 1.01;",
          "boxes never grow to the picture's edges"),
    Fault("app-picture-target", "apps/tavrin/pipeline/picture_layer.cpp",
          "255.0 * 255.0 / std::pow(10.0, s.targetPsnr / 10)", "255.0 * 255.0 / std::pow(10.0, s.targetPsnr / 20)",
          "picture target PSNR taken as an amplitude ratio"),
    Fault("app-mask-threshold", "apps/tavrin/pipeline/text_layer.cpp",
          "uint8_t((b + k + 1) / 2)", "uint8_t((3 * b + k + 2) / 4)",
          "text threshold too close to the paper"),
    Fault("app-speck-size", "apps/tavrin/pipeline/text_layer.cpp",
          "constexpr double kSpeckArea300 = 3;", "constexpr double kSpeckArea300 = 30;",
          "dots of i and full stops dropped as specks"),
]


def subsystem(path):
    parts = path.split("/")
    return "program" if parts[0] == "apps" else parts[1]


def run(cmd, cwd=None, timeout=None, log=None):
    """Runs cmd in its own process group; kills the group on timeout.
    Returns (exit status or None on timeout, output)."""
    proc = subprocess.Popen(cmd, cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                            text=True, start_new_session=True)
    try:
        out, _ = proc.communicate(timeout=timeout)
        return proc.returncode, out
    except subprocess.TimeoutExpired:
        os.killpg(proc.pid, signal.SIGKILL)
        out, _ = proc.communicate()
        return None, out


def tracked_files():
    code, out = run(["git", "ls-files", "-z"], cwd=ROOT)
    if code != 0:
        sys.exit("mutate: git ls-files failed:\n" + out)
    return [f for f in out.split("\0") if f and os.path.isfile(os.path.join(ROOT, f))]


def sync_tree(tree):
    """Mirrors the working tree's tracked files into tree, touching only
    files whose bytes differ (so that rebuilds stay incremental) and removing
    files that are no longer tracked (the test folders glob their sources)."""
    files = set(tracked_files())
    for rel in files:
        src, dst = os.path.join(ROOT, rel), os.path.join(tree, rel)
        with open(src, "rb") as f:
            data = f.read()
        if os.path.isfile(dst):
            with open(dst, "rb") as f:
                if f.read() == data:
                    continue
        os.makedirs(os.path.dirname(dst), exist_ok=True)
        shutil.copy2(src, dst)
        os.utime(dst)  # newer than any object built from an older copy
    for dirpath, _, names in os.walk(tree):
        for name in names:
            rel = os.path.relpath(os.path.join(dirpath, name), tree)
            if rel not in files:
                os.remove(os.path.join(dirpath, name))


def snippet_count(tree, fault):
    path = os.path.join(tree, fault.path)
    if not os.path.isfile(path):
        return 0
    with open(path, encoding="utf-8") as f:
        return f.read().count(fault.snippet)


def build(build_dir, jobs):
    code, out = run(["cmake", "--build", build_dir, "-j", str(jobs)])
    return code == 0, out


def run_suite(build_dir, jobs, timeout):
    """ctest stopping at the first failure: (passed, failing test names)."""
    failed_log = os.path.join(build_dir, "Testing", "Temporary", "LastTestsFailed.log")
    if os.path.exists(failed_log):
        os.remove(failed_log)
    code, out = run(["ctest", "--test-dir", build_dir, "-j", str(jobs), "--stop-on-failure",
                     "--timeout", "120"], timeout=timeout)
    if code is None:
        return False, ["(hung: killed after %d s)" % timeout]
    names = []
    if os.path.exists(failed_log):
        with open(failed_log) as f:
            names = [line.strip().split(":", 1)[1] for line in f if ":" in line]
    if code != 0 and not names:
        names = ["(ctest exit %d)" % code]
    return code == 0, names


def read_table(path):
    """Fault id -> result from a table this script wrote."""
    results = {}
    with open(path) as f:
        for line in f:
            cells = [c.strip() for c in line.strip().strip("|").split("|")]
            if len(cells) >= 4 and cells[0] in {x.id for x in FAULTS}:
                results[cells[0]] = cells[2]
    return results


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--only", help="comma-separated fault ids")
    ap.add_argument("--list", action="store_true", help="check the snippets, build nothing")
    ap.add_argument("--out", help="also write the table to this file")
    ap.add_argument("--compare", help="a table written before: report faults it caught that are missed now")
    ap.add_argument("--jobs", type=int, default=int(os.environ.get("JOBS", "2")))
    ap.add_argument("--scratch", default=os.path.join(ROOT, "build-mutate"))
    args = ap.parse_args()

    faults = FAULTS
    if args.only:
        wanted = set(args.only.split(","))
        unknown = wanted - {f.id for f in FAULTS}
        if unknown:
            sys.exit("mutate: unknown fault ids: " + ", ".join(sorted(unknown)))
        faults = [f for f in FAULTS if f.id in wanted]
    try:
        os.nice(10)  # the machine is shared
    except OSError:
        pass

    tree = os.path.join(args.scratch, "tree")
    build_dir = os.path.join(args.scratch, "build")
    os.makedirs(tree, exist_ok=True)
    sync_tree(tree)

    if args.list:
        for f in faults:
            n = snippet_count(tree, f)
            print("%-26s %-8s %s" % (f.id, "ok" if n == 1 else "stale(%d)" % n, f.what))
        return 0

    code, out = run(["cmake", "-S", tree, "-B", build_dir, "-DCMAKE_BUILD_TYPE=Release",
                     "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON"])
    if code != 0:
        sys.exit("mutate: configuring the scratch tree failed:\n" + out)
    ok, out = build(build_dir, args.jobs)
    if not ok:
        sys.exit("mutate: the unmodified tree does not build:\n" + out[-4000:])
    start = time.time()
    passed, failing = run_suite(build_dir, args.jobs, timeout=3600)
    if not passed:
        sys.exit("mutate: the unmodified suite fails: " + ", ".join(failing))
    baseline = time.time() - start
    limit = max(120, int(10 * baseline))
    print("unmodified suite passes in %.1f s; a run over %d s counts as hung\n" % (baseline, limit))

    header = "| fault | subsystem | result | caught by | fault planted | s |\n|---|---|---|---|---|---|"
    print(header)
    rows = []
    for f in faults:
        t0 = time.time()
        path = os.path.join(tree, f.path)
        n = snippet_count(tree, f)
        if n != 1:
            result, by = "stale", "snippet found %d times" % n
        else:
            with open(path, encoding="utf-8") as fh:
                original = fh.read()
            try:
                with open(path, "w", encoding="utf-8") as fh:
                    fh.write(original.replace(f.snippet, f.replacement))
                built, _ = build(build_dir, args.jobs)
                if not built:
                    result, by = "n/a", "does not build"
                else:
                    passed, failing = run_suite(build_dir, args.jobs, limit)
                    result = "MISSED" if passed else "caught"
                    by = "" if passed else failing[0] + (" +%d" % (len(failing) - 1) if len(failing) > 1 else "")
            finally:
                with open(path, "w", encoding="utf-8") as fh:
                    fh.write(original)
        row = "| %s | %s | %s | %s | %s | %.0f |" % (f.id, subsystem(f.path), result, by, f.what,
                                                     time.time() - t0)
        rows.append(row)
        print(row, flush=True)

    counts = {}
    for f, row in zip(faults, rows):
        result = row.split("|")[3].strip()
        counts.setdefault(subsystem(f.path), {}).setdefault(result, 0)
        counts[subsystem(f.path)][result] += 1
    summary = ["", "| subsystem | faults | caught | missed | n/a or stale |", "|---|---|---|---|---|"]
    for sub in sorted(counts):
        c = counts[sub]
        summary.append("| %s | %d | %d | %d | %d |" % (sub, sum(c.values()), c.get("caught", 0),
                                                       c.get("MISSED", 0),
                                                       c.get("n/a", 0) + c.get("stale", 0)))
    total = {k: sum(c.get(k, 0) for c in counts.values()) for k in ("caught", "MISSED", "n/a", "stale")}
    summary.append("| all | %d | %d | %d | %d |" % (len(rows), total["caught"], total["MISSED"],
                                                    total["n/a"] + total["stale"]))
    print("\n".join(summary))

    status = 0
    if args.compare:
        before = read_table(args.compare)
        now = {f.id: row.split("|")[3].strip() for f, row in zip(faults, rows)}
        lost = [i for i in now if before.get(i) == "caught" and now[i] != "caught"]
        print("\ncompared with %s: %s" % (args.compare, "no fault caught before is missed now" if not lost
                                          else "caught before, not now: " + ", ".join(lost)))
        status = 1 if lost else 0
    if args.out:
        with open(args.out, "w") as fh:
            fh.write("\n".join([header] + rows + summary) + "\n")
    return status


if __name__ == "__main__":
    sys.exit(main())
