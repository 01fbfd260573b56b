// asset-check [FOLDER]: the file and image layers at work on the images of a folder.
//
// Packs them into two archives, plain and compressed; puts the compressed one and a folder with one changed image under
// one name; loads every image through that name; converts, saves, reads back and compares. Everything that is written
// goes to a temporary folder. The exit code is 1 if a comparison failed, 2 for a folder that cannot be read.

#include "ImageReason.h" // in tools/bedrock

#include <Bedrock/bitmap/Bitmap.h>
#include <Bedrock/files/File.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/memory/PString.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace
{

namespace fs = std::filesystem;
using namespace Zem;

// Text of a file name that a terminal can take.
std::string Shown(const std::string& name)
{
    std::string out;
    for (const char c : name)
        out += static_cast<unsigned char>(c) < 32 || c == 127 ? '?' : c;
    return out;
}

class WorkFolder
{
public:
    WorkFolder()
    {
        std::string name = (fs::temp_directory_path() / "asset-check-XXXXXX").string();
        if (!mkdtemp(name.data()))
            throw fs::filesystem_error("cannot make a temporary folder", name,
                                       std::error_code(errno, std::generic_category()));
        path = name + '/';
    }
    ~WorkFolder()
    {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;
    std::string operator/(const char* name) const { return path + name; }

private:
    std::string path;
};

// One image of the folder.
struct Picture
{
    std::string name; // path below the folder, and name of the member
    std::uint64_t size = 0;
};

// One row of the table.
struct Format
{
    unsigned images = 0, refused = 0;
    std::uint64_t bytes = 0, plain = 0, packed = 0, pixels = 0;
    double seconds = 0;
};

class Demo
{
public:
    explicit Demo(std::string folderPath) : folder(std::move(folderPath)) {}
    int Run();

private:
    void Collect();
    void Pack();
    bool Store(const Picture& picture);
    void MakeOverlay();
    void LoadAll();
    void Look(const Picture& picture);
    void Convert(const Picture& picture, const Bitmap& image);
    void PrintTable() const;

    void Check(bool ok, const std::string& name, const char* what);
    void Refuse(const std::string& name, const std::string& reason);
    Format& RowOf(const std::string& name);

    std::string folder;
    WorkFolder work;
    std::vector<Picture> pictures;
    std::map<std::string, Format> rows;
    std::vector<std::string> refusals;
    std::string changed; // the picture that the overlay has another version of
    unsigned others = 0; // files that are no images by their names
    unsigned passed = 0, failed = 0;
};

std::string Extension(const std::string& name)
{
    std::string extension = fs::path(name).extension().string();
    for (char& c : extension)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return extension;
}

void Demo::Check(bool ok, const std::string& name, const char* what)
{
    ++(ok ? passed : failed);
    if (!ok)
        std::printf("  FAILED  %s: %s\n", Shown(name).c_str(), what);
}

void Demo::Refuse(const std::string& name, const std::string& reason)
{
    refusals.push_back(Shown(name) + ": " + reason);
}

Format& Demo::RowOf(const std::string& name)
{
    const std::string extension = Extension(name);
    return rows[extension == ".jpeg" ? "jpg" : extension.substr(1)];
}

// ------------------------------------------------------------------------------------------------- what is there

void Demo::Collect()
{
    const std::set<std::string> known = {".tga", ".bmp", ".pcx", ".jpg", ".jpeg"};
    std::set<std::string> folded; // an archive does not tell upper case from lower
    std::error_code error;
    std::vector<std::string> names;
    fs::recursive_directory_iterator entry(folder, fs::directory_options::skip_permission_denied, error);
    for (const fs::recursive_directory_iterator end; !error && entry != end; entry.increment(error))
    {
        std::error_code ignored;
        if (!entry->is_regular_file(ignored))
            continue;
        if (known.contains(Extension(entry->path().filename().string())))
            names.push_back(entry->path().lexically_relative(folder).generic_string());
        else
            ++others;
    }
    if (error)
        Refuse(folder, "the folder cannot be read to its end: " + error.message());
    std::sort(names.begin(), names.end());
    for (const std::string& name : names)
    {
        std::string lower = name;
        std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
        std::error_code sizeError;
        const std::uint64_t size = fs::file_size(fs::path(folder) / name, sizeError);
        if (name.size() > File::Path::capacity - 14 || folder.size() + name.size() >= File::Path::capacity)
            Refuse(name, "its path is longer than 259 bytes");
        else if (name.find('\\') != std::string::npos)
            Refuse(name, "its name holds a backslash, which separates folders");
        else if (!folded.insert(lower).second)
            Refuse(name, "another file has this name in upper or lower case");
        else if (sizeError || size > 1u << 30)
            Refuse(name, sizeError ? sizeError.message() : "larger than 1 GiB");
        else
        {
            pictures.push_back({name, size});
            continue;
        }
        ++RowOf(name).refused;
    }
}

// --------------------------------------------------------------------------------------------------------- packing

// Stores a picture in both archives; false if it cannot be read.
bool Demo::Store(const Picture& picture)
{
    std::vector<char> bytes(picture.size);
    std::FILE* const in = std::fopen((folder + picture.name).c_str(), "rb");
    const bool whole = in && std::fread(bytes.data(), 1, bytes.size(), in) == bytes.size() && std::fgetc(in) == EOF &&
                       !std::ferror(in);
    const int error = errno;
    if (in)
        std::fclose(in);
    if (!whole)
    {
        Refuse(picture.name, std::string("cannot be read: ") + std::strerror(error));
        return false;
    }
    for (const auto& [archive, mode] :
         {std::pair("plain", File::ModeWrite), std::pair("packed", File::ModeWriteCompressed)})
    {
        File out;
        if (!out.Open(PString(archive), picture.name.c_str(), File::ModeCreate | mode))
            throw FileEx("Demo", __LINE__, "a member cannot be stored");
        if (!bytes.empty())
            out.SafeWrite(bytes.data(), bytes.size(), 1);
        out.Close();

        // What the archive gives back is what went in.
        File back;
        std::vector<char> again(bytes.size() + 1);
        const bool opened = bool(back.Open(PString(archive), picture.name.c_str(),
                                           mode == File::ModeWrite ? File::ModeReadPlain : File::ModeRead));
        const std::uint32_t n = opened ? back.Read(again.data(), again.size(), 1) : 0;
        again.resize(n);
        Check(opened && again == bytes, picture.name,
              mode == File::ModeWrite ? "the plain member differs" : "the compressed member differs");
    }
    return true;
}

void Demo::Pack()
{
    File::Subst("plain", (work / "plain.arc").c_str(), true);
    File::Subst("packed", (work / "packed.arc").c_str(), true);
    std::uint64_t plain = 0, packed = 0;
    const auto grown = [](const std::string& path, std::uint64_t& before)
    {
        const std::uint64_t now = fs::file_size(path), by = now - before;
        before = now;
        return by;
    };
    grown(work / "plain.arc", plain);
    grown(work / "packed.arc", packed);
    std::erase_if(pictures,
                  [&](const Picture& picture)
                  {
                      Format& row = RowOf(picture.name);
                      if (!Store(picture))
                      {
                          ++row.refused;
                          return true;
                      }
                      row.bytes += picture.size;
                      row.plain += grown(work / "plain.arc", plain);
                      row.packed += grown(work / "packed.arc", packed);
                      return false;
                  });
}

// --------------------------------------------------------------------------------------------------------- loading

bool SamePixels(const Bitmap& a, const Bitmap& b, bool alpha)
{
    const Rect areaA = a, areaB = b;
    if (!(areaA == areaB) || !a.IsValid() || !b.IsValid())
        return false;
    for (std::int32_t y = 0; y < areaA.height; ++y)
        for (std::int32_t x = 0; x < areaA.width; ++x)
            if (std::memcmp(a.GetPtr({x, y}), b.GetPtr({x, y}), alpha ? 4 : 3) != 0)
                return false;
    return true;
}

// An owning copy in another 32-bit format.
Bitmap CopyAs(const Bitmap& image, Bitmap::Format format)
{
    const Rect area = image;
    Bitmap copy(area, format, nullptr);
    for (std::int32_t y = 0; copy.IsValid() && y < area.height; ++y)
        std::memcpy(copy.GetPtr({0, y}), image.GetPtr({0, y}), static_cast<std::size_t>(area.width) * 4);
    return copy;
}

// Gives the overlay a version of the first picture that can be saved again, with a cross of one colour over it.
void Demo::MakeOverlay()
{
    File::Subst("overlay", (work / "overlay/").c_str(), true);
    for (const Picture& picture : pictures)
    {
        const std::string extension = Extension(picture.name);
        Bitmap image;
        if ((extension != ".tga" && extension != ".bmp") ||
            !image.Load(PString(picture.name.c_str()), PString("packed"), false))
            continue;
        const Rect area = image;
        Bitmap crossed = CopyAs(image, Bitmap::ARGB32);
        if (!crossed.IsValid() || (extension == ".bmp" && area.width % 4 != 0))
            continue;
        for (std::int32_t x = 0; x < area.width; ++x)
            for (const std::int64_t y : {std::int64_t{x} * area.height / area.width,
                                         area.height - 1 - std::int64_t{x} * area.height / area.width})
            {
                const PackedColor old = crossed.Pixel({x, static_cast<std::int32_t>(y)});
                crossed.Pixel({x, static_cast<std::int32_t>(y)},
                              old == PackedColor::orange ? PackedColor::black : PackedColor::orange);
            }
        const std::string target = work / "overlay/" + picture.name;
        fs::create_directories(fs::path(target).parent_path());
        if (target.size() >= File::Path::capacity || !crossed.Save(("overlay:" + picture.name).c_str()))
            continue;
        changed = picture.name;
        return;
    }
}

void Demo::Convert(const Picture& picture, const Bitmap& image)
{
    const Rect area = image;
    const Bitmap withAlpha = CopyAs(image, Bitmap::ARGB32);
    Bitmap back;
    Check(withAlpha.Save("work:out.tga") && back.Load(PString("out.tga"), PString("work"), false) &&
              SamePixels(image, back, true),
          picture.name, "saved as TGA and loaded again it differs");
    if (area.width % 4 == 0) // no other width is read from a BMP
        Check(image.Save("work:out.bmp") && back.Load(PString("out.bmp"), PString("work"), false) &&
                  SamePixels(image, back, false),
              picture.name, "saved as BMP and loaded again it differs");
}

void Demo::Look(const Picture& picture)
{
    using Clock = std::chrono::steady_clock;
    Format& row = RowOf(picture.name);
    const PString name(picture.name.c_str());
    Bitmap image;
    const auto start = Clock::now();
    const bool loaded = image.Load(name, PString("demo"), false);
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();

    Bitmap original;
    const bool originalLoaded = original.Load(name, PString("source"), false);
    if (!loaded)
    {
        ++row.refused;
        Refuse(picture.name, Tool::WhyNotLoaded("demo:" + picture.name));
        Check(!originalLoaded, picture.name, "it loads from the folder, and not from the archive");
        return;
    }
    const Rect area = image;
    ++row.images;
    row.seconds += seconds;
    row.pixels += static_cast<std::uint64_t>(area.width) * static_cast<std::uint64_t>(area.height);
    if (picture.name == changed)
    {
        Bitmap version;
        Check(version.Load(name, PString("overlay"), false) && SamePixels(image, version, true), picture.name,
              "the overlay's version does not win");
        Check(!SamePixels(image, original, false), picture.name, "the overlay's version is no other");
        Check(version.Load(name, PString("packed"), false) && SamePixels(version, original, true), picture.name,
              "the archive's version changed");
    }
    else
        Check(originalLoaded && SamePixels(image, original, true), picture.name, "loaded from the archive it differs");
    Convert(picture, image);
}

void Demo::LoadAll()
{
    File::Subst("source", folder.c_str(), false);
    File::Subst("work", (work / "").c_str(), true);
    File::Subst("demo", (work / "packed.arc").c_str(), false);
    File::Subst("demo", (work / "overlay/").c_str(), false);
    for (const Picture& picture : pictures)
    {
        try
        {
            Look(picture);
        }
        catch (const FileEx& failure)
        {
            Check(false, picture.name, failure.Reason());
        }
    }
}

// ---------------------------------------------------------------------------------------------------------- results

void Demo::PrintTable() const
{
    std::printf("\n%-7s %7s %8s %12s %12s %12s %6s %10s %11s\n", "FORMAT", "IMAGES", "REFUSED", "BYTES", "IN ARCHIVE",
                "COMPRESSED", "RATIO", "LOAD EACH", "MPIXELS/S");
    const auto print = [](const char* name, const Format& row)
    {
        const double ratio = row.bytes ? 100.0 * static_cast<double>(row.packed) / static_cast<double>(row.bytes) : 0;
        std::printf("%-7s %7u %8u %12llu %12llu %12llu %4.0f %% %7.2f ms %11.0f\n", name, row.images, row.refused,
                    static_cast<unsigned long long>(row.bytes), static_cast<unsigned long long>(row.plain),
                    static_cast<unsigned long long>(row.packed), ratio,
                    row.images ? 1000 * row.seconds / row.images : 0,
                    row.seconds > 0 ? static_cast<double>(row.pixels) / row.seconds / 1e6 : 0);
    };
    Format sum;
    for (const auto& [name, row] : rows)
    {
        print(name.c_str(), row);
        sum.images += row.images;
        sum.refused += row.refused;
        sum.bytes += row.bytes;
        sum.plain += row.plain;
        sum.packed += row.packed;
        sum.pixels += row.pixels;
        sum.seconds += row.seconds;
    }
    print("all", sum);

    if (!refusals.empty())
        std::puts("\nRefused:");
    for (const std::string& refusal : refusals)
        std::printf("  %s\n", refusal.c_str());
    std::printf("\n%u checks passed, %u failed.\n", passed, failed);
}

int Demo::Run()
{
    std::error_code error;
    if (!fs::is_directory(folder, error))
    {
        std::fprintf(stderr, "asset-check: %s: %s\n", Shown(folder).c_str(),
                     error ? error.message().c_str() : "is no folder");
        return 2;
    }
    if (folder.back() != '/')
        folder += '/';
    Collect();
    std::printf("%s: %zu images to pack, %u other files\n", Shown(folder).c_str(), pictures.size(), others);
    Pack();
    MakeOverlay();
    if (!changed.empty())
        std::printf("An archive and a folder share the name \"demo\"; the folder has its own %s, and wins.\n",
                    Shown(changed).c_str());
    else
        std::puts("No image here can be saved again, so the folder over the archive stays empty.");
    LoadAll();
    PrintTable();
    return failed ? 1 : 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc > 2 || (argc == 2 && argv[1][0] == '-'))
    {
        std::fprintf(stderr, "Usage: asset-check [FOLDER]\n");
        return 2;
    }
    try
    {
        return Demo(argc == 2 ? argv[1] : "examples/assets").Run();
    }
    catch (const Exception& failure)
    {
        std::fprintf(stderr, "asset-check: %s\n", failure.Reason());
    }
    catch (const std::exception& failure)
    {
        std::fprintf(stderr, "asset-check: %s\n", failure.what());
    }
    return 1;
}
