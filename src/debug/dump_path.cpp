// Dump paths: fixed 1024-byte path buffers, directory + "/" + name joins,
// dump directories created on demand, and the dump file opener.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "TavrinDebug.h"

namespace {

constexpr int kDirectoryMissing = 615;  // internal: never leaves the library

// Clears the whole buffer and stores at most 1023 characters of
// dir + "/" + name; the last byte always stays zero.
void joinInto(char* dst, const char* dir, const char* name) {
    std::memset(dst, 0, TAVRIN_PATH_SIZE);
    int n = 0;
    for (const char* part : {dir, "/", name})
        for (const char* c = part; *c != '\0' && n < TAVRIN_PATH_SIZE - 1; ++c) dst[n++] = *c;
}

int checkDirectory(const char* path) {
    struct stat st;
    if (stat(path, &st) == 0 && S_ISDIR(st.st_mode)) return 0;
    return kDirectoryMissing;
}

// 0 when path is (or has now been made) a directory, 1 otherwise. Only the
// last component is created.
int ensureDirectory(const char* path) {
    if (checkDirectory(path) == 0) return 0;
    if (mkdir(path, 0777) == 0) return 0;
    // Another thread or process may have made it since the check.
    return errno == EEXIST && checkDirectory(path) == 0 ? 0 : 1;
}

}  // namespace

int set_CoreDirName(char* dst, char* name) {
    std::memset(dst, 0, TAVRIN_PATH_SIZE);
    // The name is documented to be shorter than the buffer; cut it anyway
    // rather than run past the buffer.
    std::strncpy(dst, name, TAVRIN_PATH_SIZE - 1);
    return 0;
}

int catPath(char* dst, char* dir, char* name) {
    // The join goes through a scratch buffer so that dst may also be the
    // directory argument.
    char joined[TAVRIN_PATH_SIZE];
    joinInto(joined, dir, name);
    std::memcpy(dst, joined, TAVRIN_PATH_SIZE);
    return 0;
}

int setDebugPath(__TavrinProcess_Ctrl_Info* ctrl, char* name) {
    return catPath(ctrl->cDebugPath, ctrl->cCoreDirName, name);
}

int setDumpPath(char* dst, char* dir, char* name, uint8_t sw) {
    if (sw == 0) return 0;
    char path[TAVRIN_PATH_SIZE];
    joinInto(path, dir, name);
    if (ensureDirectory(path) != 0) return 1;
    std::memcpy(dst, path, TAVRIN_PATH_SIZE);
    return 0;
}

int setDumpPath2(__TavrinProcess_Ctrl_Info* ctrl, ST_DEBUG_INFO* dbg, char* name) {
    if (dbg->ucDumpSw == 0) return 0;
    std::memset(dbg->cDumpName, 0, TAVRIN_DUMP_NAME_SIZE);
    // At most 15 characters fit with the terminating zero.
    std::strncpy(dbg->cDumpName, name, TAVRIN_DUMP_NAME_SIZE - 1);
    char path[TAVRIN_PATH_SIZE];
    joinInto(path, ctrl->cCoreDirName, dbg->cDumpName);
    return ensureDirectory(path);
}

extern "C" int _tfopen_s(FILE** fp, const char* path, const char* mode) {
    *fp = nullptr;
    *fp = std::fopen(path, mode);
    return *fp != nullptr ? 0 : -1;
}
