// Text dumps of the detection stages: opening a file in a dump directory.
#ifndef TAVRIN_DETECT_DUMP_FILE_H
#define TAVRIN_DETECT_DUMP_FILE_H

#include <cstdio>
#include <cstring>

#include "TavrinDebug.h"

namespace tavrin_detect {

// Opens dir/name for writing ("w"). Returns null when dumps are off (dir
// empty) or the file cannot be opened: dumps are best-effort and never
// change a stage's result.
inline FILE* openDumpFile(char* dir, const char* name) {
    if (dir == nullptr || dir[0] == '\0') return nullptr;
    char file[64];
    std::strncpy(file, name, sizeof file - 1);
    file[sizeof file - 1] = '\0';
    char path[TAVRIN_PATH_SIZE];
    catPath(path, dir, file);
    FILE* fp = nullptr;
    if (_tfopen_s(&fp, path, "w") != 0) return nullptr;
    return fp;
}

}  // namespace tavrin_detect

#endif
