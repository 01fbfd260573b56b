// image-dump FILE: prints "width height" and a line end, then the pixels as blue, green, red, alpha. Exit status 1 for a
// file that is refused. compare-foreign.py calls it.

#include <Bedrock/bitmap/Bitmap.h>
#include <Bedrock/memory/PString.h>

#include <cstdio>

int main(int argc, char** argv)
{
    Zem::PString::Init();
    Zem::Bitmap bitmap;
    if (argc != 2 || !bitmap.Load(Zem::PString(argv[1]), Zem::PString(), false))
        return 1;
    const Zem::Rect all = bitmap;
    std::printf("%d %d\n", all.width, all.height);
    for (int y = 0; y < all.height; ++y)
        std::fwrite(bitmap.GetPtr(Zem::Point{0, y}), 4, static_cast<std::size_t>(all.width), stdout);
    return 0;
}
