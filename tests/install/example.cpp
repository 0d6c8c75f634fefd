// The smallest caller: prints the version and packs a tiny bi-level image.
#include <TavrinCommon.h>

#include <cstdio>
#include <cstring>

int main() {
    std::printf("%s\n", LibTavrinCommonGetVersion());
    uint8_t pixels[9] = {0, 255, 0, 255, 0, 255, 0, 255, 0};  // width 9, one row
    ImgTavrin img{};
    set_ImageTavrinP(&img, pixels, 9, 1, TAVRIN_TYPE_BILEVEL, 30000, 30000, false);
    if (pack_ImageTavrin(&img, &img) != 0) return 1;
    // black pixels 0, 2, 4, 6 -> 1010 1010; pixel 8 black -> 1000 0000
    return (pixels[0] == 0xAA && pixels[1] == 0x80) ? 0 : 1;
}
