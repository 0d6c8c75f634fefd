// tavrin: the command-line program over libTavrinCommon.
#include <malloc.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "TavrinCommon.h"
#include "cli/batch_command.h"
#include "cli/commands.h"
#include "formats/atomic_output.h"
#include "formats/page_reader.h"
#include "pipeline/app_error.h"

using namespace tavrin;

namespace {

// A page's working buffers of a few megabytes (crops, trial JPEGs decoded
// back) come and go dozens of times per page. By default each is a fresh
// mapping that the kernel zero-fills page by page and takes back on free;
// kept in the heap instead, they are reused (a tenth of the run's system
// time). Buffers of a whole page have a cache of their own (page.h).
void keepWorkingBuffers() {
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, 512 << 20);
}

}  // namespace

int main(int argc, char** argv) {
    installOutputCleanup();  // first: before any other thread exists
    keepWorkingBuffers();
    const std::vector<std::string> args(argv + 1, argv + argc);
    quietTiffMessages();
    try {
        if (args.empty() || args[0] == "help" || args[0] == "--help" || args[0] == "-h") {
            std::fputs(usageText(true, Command::Detect).c_str(), args.empty() ? stderr : stdout);
            return args.empty() ? kExitUsage : kExitOk;
        }
        const std::string& cmd = args[0];
        if (cmd == "version" || cmd == "--version") {
            if (args.size() > 1) throw AppError(kExitUsage, "version takes no arguments");
            std::printf("%s\n", LibTavrinCommonGetVersion());
            return kExitOk;
        }
        if (cmd == "batch") runBatch(std::vector<std::string>(args.begin() + 1, args.end()));
        Command command;
        if (cmd == "detect")
            command = Command::Detect;
        else if (cmd == "compress")
            command = Command::Compress;
        else
            throw AppError(kExitUsage, "unknown command '" + cmd + "' (detect, compress, batch, version)");
        const std::vector<std::string> rest(args.begin() + 1, args.end());
        for (const std::string& a : rest)
            if (a == "--help" || a == "-h") {
                std::fputs(usageText(false, command).c_str(), stdout);
                return kExitOk;
            }
        const Options options = parseOptions(command, rest);
        return command == Command::Detect ? runDetect(options) : runCompress(options);
    } catch (const AppError& e) {
        std::fprintf(stderr, "tavrin: %s\n", e.what());
        return e.code();
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "tavrin: out of memory\n");
        return kExitFailure;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "tavrin: %s\n", e.what());
        return kExitFailure;
    }
}
