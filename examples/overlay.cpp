// An archive and a folder under one name: what the folder has wins, what it lacks comes from the archive.

#include <Bedrock/Bedrock.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace
{

using namespace Zem;

void Store(const char* name, const char* text, std::uint32_t mode)
{
    File file;
    if (const auto result = file.Open(name, File::ModeCreate | mode); !result)
    {
        std::printf("%s: %s\n", name, result.Text());
        std::exit(1);
    }
    file.WriteLine(text);
}

void Show(const char* name)
{
    File file;
    char line[80] = "";
    if (file.Open(name, File::ModeRead))
        file.ReadLine(line, sizeof line);
    std::printf("%-18s %s\n", name, line[0] ? line : "nobody has it");
}

} // namespace

int main()
{
    std::string work = (std::filesystem::temp_directory_path() / "overlay-XXXXXX").string();
    if (!mkdtemp(work.data()))
        return std::puts("no folder for temporary files"), 1;

    // A name that ends in a separator is a folder, any other an archive. Members are stored compressed or plain.
    File::Subst("base", (work + "/base.arc").c_str(), true);
    Store("base:hero.txt", "the hero of the archive", File::ModeWriteCompressed);
    Store("base:map.txt", "the map of the archive", File::ModeWrite);
    File::Subst("patch", (work + "/patch/").c_str(), true);
    Store("patch:hero.txt", "the hero of the patch", File::ModeWrite);

    // The location that came last is asked first.
    File::Subst("game", (work + "/base.arc").c_str(), false);
    File::Subst("game", (work + "/patch/").c_str(), false);
    Show("game:hero.txt");
    Show("game:map.txt");
    Show("game:villain.txt");

    for (const char* name : {"game", "patch", "base"})
        File::Subst(name, nullptr, false);
    std::filesystem::remove_all(work);
}
