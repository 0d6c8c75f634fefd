// tavrin: the command-line program over libTavrinCommon.
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "TavrinCommon.h"
#include "cli/batch_command.h"
#include "cli/commands.h"
#include "formats/page_reader.h"
#include "pipeline/app_error.h"

using namespace tavrin;

int main(int argc, char** argv) {
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
