// Dump paths: joins, truncation at 1023 characters, directory creation and
// the dump file opener.
#include <gtest/gtest.h>

#include <TavrinDebug.h>

#include <sys/stat.h>

#include <cstring>
#include <string>
#include <vector>

#include "test_files.h"

namespace {

using tavrin_test::mut;

bool isDirectory(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

TEST(DumpPath, CatPathAlwaysInsertsTheSeparator) {
    char out[1024];
    std::string tmp = "/tmp", slash = "/tmp/", empty = "", name = "a.tif";
    catPath(out, mut(tmp), mut(name));
    EXPECT_STREQ(out, "/tmp/a.tif");
    catPath(out, mut(slash), mut(name));
    EXPECT_STREQ(out, "/tmp//a.tif");
    catPath(out, mut(empty), mut(name));
    EXPECT_STREQ(out, "/a.tif");
}

TEST(DumpPath, LongPathIsCutTo1023CharactersInsideTheBuffer) {
    std::vector<char> out(1024 + 16, 'G');  // guard bytes after the buffer
    std::string dir(1000, 'd'), name(499, 'n');  // 1500 characters joined
    catPath(out.data(), mut(dir), mut(name));
    EXPECT_EQ(std::string(out.data()).size(), 1023u);
    EXPECT_EQ(out[1023], '\0');
    EXPECT_EQ(out[1000], '/');
    EXPECT_EQ(out[1024], 'G');
    // Short joins clear the rest of the buffer.
    std::string a = "a", b = "b";
    catPath(out.data(), mut(a), mut(b));
    for (int i = 3; i < 1024; ++i) ASSERT_EQ(out[i], '\0');
}

TEST(DumpPath, CoreAndDebugPath) {
    __TavrinProcess_Ctrl_Info ctrl;
    std::memset(&ctrl, 'x', sizeof ctrl);
    std::string core = "/var/dump", name = "page1";
    set_CoreDirName(ctrl.cCoreDirName, mut(core));
    EXPECT_STREQ(ctrl.cCoreDirName, "/var/dump");
    for (int i = 9; i < 1024; ++i) ASSERT_EQ(ctrl.cCoreDirName[i], '\0');
    setDebugPath(&ctrl, mut(name));
    EXPECT_STREQ(ctrl.cDebugPath, "/var/dump/page1");
}

TEST(DumpPath, SetDumpPathCreatesOnlyTheLastComponent) {
    std::string base = tavrin_test::scratchDir("dump_path"), name = "stage", missing = "no/such";
    char out[1024] = "untouched";
    EXPECT_EQ(setDumpPath(out, mut(base), mut(name), 0), 0);  // switch off
    EXPECT_STREQ(out, "untouched");
    EXPECT_FALSE(isDirectory(base + "/stage"));

    EXPECT_EQ(setDumpPath(out, mut(base), mut(name), 1), 0);
    EXPECT_TRUE(isDirectory(base + "/stage"));
    EXPECT_EQ(std::string(out), base + "/stage");

    std::strcpy(out, "untouched");
    EXPECT_EQ(setDumpPath(out, mut(base), mut(name), 1), 0);  // exists already
    EXPECT_EQ(std::string(out), base + "/stage");

    std::strcpy(out, "untouched");
    EXPECT_EQ(setDumpPath(out, mut(base), mut(missing), 1), 1);  // parent missing
    EXPECT_STREQ(out, "untouched");

    std::string file = "plain";
    std::FILE* fp = std::fopen((base + "/plain").c_str(), "w");
    ASSERT_NE(fp, nullptr);
    std::fclose(fp);
    EXPECT_EQ(setDumpPath(out, mut(base), mut(file), 1), 1);  // a regular file
    EXPECT_STREQ(out, "untouched");
}

TEST(DumpPath, SetDumpPath2RecordsTheNameOnlyWhenSwitchedOn) {
    __TavrinProcess_Ctrl_Info ctrl{};
    std::string base = tavrin_test::scratchDir("dump_path"), name = "bg";
    set_CoreDirName(ctrl.cCoreDirName, mut(base));
    ST_DEBUG_INFO dbg{};
    std::strcpy(dbg.cDumpName, "old-long-name");
    EXPECT_EQ(setDumpPath2(&ctrl, &dbg, mut(name)), 0);
    EXPECT_STREQ(dbg.cDumpName, "old-long-name");
    EXPECT_FALSE(isDirectory(base + "/bg"));

    dbg.ucDumpSw = 1;
    EXPECT_EQ(setDumpPath2(&ctrl, &dbg, mut(name)), 0);
    EXPECT_STREQ(dbg.cDumpName, "bg");
    for (int i = 2; i < 16; ++i) ASSERT_EQ(dbg.cDumpName[i], '\0');
    EXPECT_TRUE(isDirectory(base + "/bg"));
    EXPECT_EQ(setDumpPath2(&ctrl, &dbg, mut(name)), 0);  // exists

    std::string nested = "x/y";
    EXPECT_EQ(setDumpPath2(&ctrl, &dbg, mut(nested)), 1);
}

TEST(DumpPath, FileOpenerReportsFailureWithNullHandle) {
    std::string dir = tavrin_test::scratchDir("dump_path");
    FILE* fp = reinterpret_cast<FILE*>(0x1);
    EXPECT_EQ(_tfopen_s(&fp, (dir + "/a.txt").c_str(), "w"), 0);
    ASSERT_NE(fp, nullptr);
    std::fclose(fp);
    fp = reinterpret_cast<FILE*>(0x1);
    EXPECT_EQ(_tfopen_s(&fp, (dir + "/missing/a.txt").c_str(), "w"), -1);
    EXPECT_EQ(fp, nullptr);
}

}  // namespace
