#!/usr/bin/env bash
# The entry point for a fresh Debian 12 machine (as root or with sudo):
#   ./make.sh run     build and run the main job on the sample page
#   ./make.sh test    build and run every test
#   ./make.sh python  install the Python module and run a batch of the samples
#   ./make.sh check   sanitizer, thread-sanitizer and i386 layout checks
#   ./make.sh fuzz SECONDS=60   every fuzz target for 60 s (default 10)
#   ./make.sh mutate  plant faults one at a time and report which the tests catch
#   ./make.sh bench   benchmarks
# It first installs the missing Debian packages (make itself among them),
# then runs the Makefile target of the same name.
set -eu
cd "$(dirname "$0")"
bash scripts/deps.sh "${@:-run}"
exec make "${@:-run}"
