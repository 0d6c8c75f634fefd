// The subcommands of the tavrin program.
#ifndef TAVRIN_APP_COMMANDS_H
#define TAVRIN_APP_COMMANDS_H

#include "cli/options.h"

namespace tavrin {

// Each returns the exit code and throws AppError on failure.
int runDetect(const Options& options);
int runCompress(const Options& options);

// The input of a run: the page option or the bundled sample page.
std::string inputPath(const Options& options);

// Settles the page's resolution: --dpi, else the file's, else 300 dpi.
// Returns where it came from: "option", "file" or "default".
std::string settleResolution(Page& page, double optionDpi);

}  // namespace tavrin

#endif
