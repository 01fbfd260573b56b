// Puts a folder (its name ends with "/") under the name "pics" and loads an image through it. An archive in the folder's
// place works the same.

#include <Bedrock/Bedrock.h>

#include <cstdio>

int main(int argc, char** argv)
{
    using namespace Zem;
    File::Subst("pics", argc > 1 ? argv[1] : "examples/assets/", false);
    Bitmap planet;
    if (!planet.Load("planet.tga", "pics", false))
        return std::puts("pics:planet.tga cannot be loaded"), 1;
    const Rect area = planet;
    const PackedColor middle = planet.Pixel({area.width / 2, area.height / 2});
    std::printf("%d x %d pixels, the middle one is (%d, %d, %d)\n", area.width, area.height, middle.r, middle.g,
                middle.b);
}
