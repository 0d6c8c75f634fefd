#!/usr/bin/env bash
# Installs the Debian 12 packages that building, testing and running
# libTavrinCommon need, and only those that are missing. Runs as root, or
# through sudo when it is there.
#   bash scripts/deps.sh          the packages of every build, test and run
#   bash scripts/deps.sh bench    also the peers the benchmarks compare with
#   bash scripts/deps.sh eval     also what the page-set evaluation needs
#   bash scripts/deps.sh check    also clang 14 with libFuzzer, its sanitizer
#   bash scripts/deps.sh fuzz     runtimes and libomp (thread sanitizer, fuzzing)
# Other arguments (make targets passed on by make.sh) add nothing.
set -eu

packages=(
  # toolchain
  g++ make cmake pkg-config binutils
  # the library's dependencies
  libtiff-dev libjpeg62-turbo-dev zlib1g-dev
  # tests and benchmarks
  libgtest-dev libbenchmark-dev
  # i386 layout check (compiles the public headers with -m32)
  g++-multilib
  # the tavrin program: PNG input/output, PDF writing
  libpng-dev libqpdf-dev
  # its end-to-end tests render PDFs with two independent readers and read
  # the renderings with an OCR engine
  mupdf-tools ghostscript tesseract-ocr tesseract-ocr-eng
  # python: the tavrin module (pybind11) and its batch runner on Dask, for
  # Debian's /usr/bin/python3; tests with pytest, and Pillow as an
  # independent decoder of the module's streams
  pybind11-dev python3-dev python3-numpy python3-distributed python3-pytest python3-pil
)

# bench: the libraries and programs that bench/ sets ours against (never
# linked into the library or the program), hyperfine for whole processes,
# matplotlib for the scaling plot, valgrind for instruction counts.
bench_packages=(
  libopencv-imgproc-dev libleptonica-dev leptonica-progs img2pdf
  hyperfine python3-matplotlib valgrind
)
# eval (bench/eval): composing the page sets (images, drawings, fonts; the
# stress set's SVG pages are rasterised by poppler) and the programs the
# evaluation reads and compares with (OCR, one-JPEG PDF, DjVu's wavelet codec)
eval_packages=(
  python3-numpy python3-pil python3-scipy python3-skimage python3-matplotlib
  openclipart-svg librsvg2-bin poppler-utils mate-backgrounds tango-icon-theme
  fonts-dejavu-core fonts-dejavu-extra fonts-liberation2 fonts-freefont-ttf
  fonts-urw-base35 fonts-lyx
  tesseract-ocr tesseract-ocr-eng img2pdf djvulibre-bin
)
# check, fuzz: clang 14 with libFuzzer and the sanitizer runtimes; libomp,
# because ThreadSanitizer cannot see into libgomp's synchronisation.
clang_packages=(clang-14 libfuzzer-14-dev libclang-rt-14-dev libomp-14-dev)
for group in "$@"; do
  case $group in
    bench) packages+=("${bench_packages[@]}") ;;
    eval) packages+=("${eval_packages[@]}") ;;
    check | fuzz) packages+=("${clang_packages[@]}") ;;
  esac
done

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  [ "$status" = "install ok installed" ] || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "deps: installing ${missing[*]}" >&2
sudo=""
if [ "$(id -u)" != 0 ]; then
  command -v sudo >/dev/null || { echo "deps: need root or sudo to install: ${missing[*]}" >&2; exit 1; }
  sudo=sudo
fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
