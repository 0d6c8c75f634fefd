// Layout dump: the caller's two parallel layout arrays as comma-separated
// text, one line of fourteen signed decimals per entry.
#include <cstdio>

#include "TavrinDebug.h"

int Tavrin_Debug_LayoutData(char* dir, char* name, ST_LAYOUT* layout) {
    if (layout == nullptr || layout->pstLayoutA == nullptr || layout->pstLayoutB == nullptr)
        return 0;
    if (dir == nullptr || name == nullptr) return 0;
    char path[TAVRIN_PATH_SIZE];
    catPath(path, dir, name);
    FILE* fp = nullptr;
    if (_tfopen_s(&fp, path, "w") != 0) return 0;
    for (int32_t i = 0; i < layout->iLayoutNum; ++i) {
        const ST_LAYOUTRECT& a = layout->pstLayoutA[i];
        const ST_LAYOUTRECT& b = layout->pstLayoutB[i];
        // Columns 7 and 13 are constant zeros of the format; the int16 and
        // int8 members are sign-extended by the promotion to int.
        std::fprintf(fp, "%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d\n", i, a.sItem0, a.sItem1,
                     a.sItem2, a.sItem3, a.iItem4, 0, b.sItem0, b.sItem1, b.sItem2, b.sItem3,
                     b.iItem4, 0, b.cItem5);
    }
    std::fclose(fp);
    return 0;
}
