// Command-line options of `tavrin detect` and `tavrin compress`, and the
// parameter file that may hold the same settings.
#ifndef TAVRIN_APP_OPTIONS_H
#define TAVRIN_APP_OPTIONS_H

#include <string>
#include <vector>

#include "pipeline/page_compressor.h"
#include "pipeline/picture_detector.h"

namespace tavrin {

enum class Command { Detect, Compress };

struct Options {
    Command command = Command::Detect;
    std::string page;                 // input file ("" = the bundled sample page)
    double dpi = 0;                   // --dpi; 0 = from the file, else 300
    std::string tablesFile;           // --tables
    CompressSettings settings;        // detection settings live in settings.detect
    // detect
    std::string overlayPath;          // --overlay (default STEM-overlay.png)
    std::string jsonPath;             // --json (default STEM.json, "-" = standard output)
    // compress
    std::string outputPath;           // -o (default STEM.pdf)
    bool explain = false;
    bool quiet = false;               // no summary on standard output
};

// Parses the arguments after the command name. Throws AppError(kExitUsage)
// with a message naming the option for anything wrong.
Options parseOptions(Command command, const std::vector<std::string>& args);

// Reads table rectangles ("x0 y0 x1 y1" per line, inclusive page pixels,
// # comments). Throws AppError: kExitInput when unreadable, kExitUsage when
// malformed.
std::vector<Rect> readTablesFile(const std::string& path);

// The help text of one command (or of the program when `all`).
std::string usageText(bool all, Command command);

// Input name without directory and extension ("scan" for "dir/scan.tif").
std::string stemOf(const std::string& path);

}  // namespace tavrin

#endif
