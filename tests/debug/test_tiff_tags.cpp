// The dump's tag extension is installed once and chained to the caller's
// extender, even when two threads use it first together. Each round runs in
// a fresh child process, so that it sees a true first use.
#include <sys/wait.h>
#include <tiffio.h>

#include <atomic>
#include <thread>

#include "support.h"

namespace {

std::atomic<int> callerCalls{0};
void callerExtender(TIFF* tif) {  // chained after the merge: the tags are known by then
    callerCalls += TIFFFindField(tif, TAVRIN_TIFFTAG_CIC_MASKOFFSET, TIFF_ANY) ? 1 : 1000;
}

// Installed twice, the extension would be its own predecessor: reading a
// TIFF would then recurse until it crashes, or loop for ever once the call
// becomes a jump.
int firstUseInChild(const std::string& dir) {
    alarm(30);  // a hang ends with SIGALRM
    TIFFSetTagExtender(callerExtender);
    std::atomic<int> ready{0};
    auto firstUse = [&] {
        for (++ready; ready < 2;) {
        }
        _XTIFFInitialize();
    };
    std::thread a(firstUse), b(firstUse);
    a.join();
    b.join();
    _XTIFFInitialize();  // once more: nothing changes
    TIFFClose(TIFFOpen((dir + "/sample.tif").c_str(), "w"));  // runs the extenders
    const TIFFExtendProc current = TIFFSetTagExtender(callerExtender);  // one installed afterwards stays
    _XTIFFInitialize();
    const bool installed = current == &_XTIFFDefaultDirectory, kept = TIFFSetTagExtender(nullptr) == &callerExtender;
    return installed && kept && callerCalls > 0 && callerCalls < 1000 ? 0 : 1;
}

TEST(TiffTagExtension, InstalledOnceAndChainedEvenWhenTwoThreadsRace) {
    const std::string dir = tt::scratchDir("tiff_tags");
    for (int round = 0; round < 12; ++round) {
        const pid_t child = fork();
        if (child == 0) _exit(firstUseInChild(dir));
        int status = 0;
        waitpid(child, &status, 0);
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "round " << round << ": status " << status;
    }
}

}  // namespace
