// Debug output of libTavrinCommon: dump paths and directories, and dump
// writers. Every path buffer is 1024 bytes; its last byte is always zero.
#ifndef TAVRIN_DEBUG_H
#define TAVRIN_DEBUG_H

#include <cstdint>
#include <cstdio>

#include "TavrinExport.h"

enum { TAVRIN_PATH_SIZE = 1024, TAVRIN_DUMP_NAME_SIZE = 16 };

// Process control information: where dumps go.
struct __TavrinProcess_Ctrl_Info {
    char cCoreDirName[TAVRIN_PATH_SIZE];  // base directory of all dumps
    char cDebugPath[TAVRIN_PATH_SIZE];    // core directory joined with a name
};

// Settings of one dump target.
struct ST_DEBUG_INFO {
    uint8_t ucDumpSw;                       // 0 = dumps off
    char cDumpName[TAVRIN_DUMP_NAME_SIZE];  // directory below the core directory
};

// Clears the 1024-byte dst and copies name (shorter than 1024 bytes). Returns 0.
TAVRIN_API int set_CoreDirName(char* dst, char* name);
// dst (1024 bytes) = dir + "/" + name, cut to 1023 characters. Returns 0.
TAVRIN_API int catPath(char* dst, char* dir, char* name);
// ctrl->cDebugPath = catPath(ctrl->cCoreDirName, name). Returns 0.
TAVRIN_API int setDebugPath(__TavrinProcess_Ctrl_Info* ctrl, char* name);
// With sw non-zero: makes sure dir + "/" + name is a directory (creating the
// last component with mode 0777) and stores the path in dst. Returns 0, or 1
// when it cannot be created (dst untouched). sw 0: returns 0, does nothing.
TAVRIN_API int setDumpPath(char* dst, char* dir, char* name, uint8_t sw);
// With dbg->ucDumpSw non-zero: stores name (at most 15 characters) in
// dbg->cDumpName and makes sure core directory + "/" + name is a directory.
// Returns 0, or 1 when it cannot be created.
TAVRIN_API int setDumpPath2(__TavrinProcess_Ctrl_Info* ctrl, ST_DEBUG_INFO* dbg, char* name);
// Opens path with fopen(mode) into *fp (null first). Returns 0, or -1 when
// it could not be opened (*fp null).
TAVRIN_C_API int _tfopen_s(FILE** fp, const char* path, const char* mode);

#endif
