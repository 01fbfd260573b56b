// Any sequence of edits keeps a path terminated within its 260 bytes, and changes nothing behind them. Input: one byte
// for the edit, one for the length of its argument, the argument.

#include <Bedrock/files/Path.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    struct
    {
        Zem::FilePath path{""};
        std::uint8_t fence[64];
    } fenced;
    std::memset(fenced.fence, 0xA5, sizeof fenced.fence);
    Zem::FilePath& path = fenced.path;
    std::size_t at = 0;
    while (size - at >= 2)
    {
        const std::uint8_t edit = data[at];
        std::size_t n = std::size_t{data[at + 1]} * 2;
        at += 2;
        if (n > size - at)
            n = size - at;
        const std::string text(reinterpret_cast<const char*>(data + at), n);
        const char* argument = edit & 0x80 ? nullptr : text.c_str();
        at += n;
        switch (edit % 19)
        {
        case 0:
            path = argument;
            break;
        case 1:
            path.Add(argument);
            break;
        case 2:
            path.Add(argument, edit);
            break;
        case 3:
            path.ToLower();
            break;
        case 4:
            path.DelPath();
            break;
        case 5:
            path.DelName();
            break;
        case 6:
            path.DelFileName();
            break;
        case 7:
            path.DelDrive();
            break;
        case 8:
            path.Del(static_cast<std::uint32_t>(n), edit);
            break;
        case 9:
            path.PrevDir();
            break;
        case 10:
            path.RootDir();
            break;
        case 11:
            path.SetExt(argument);
            break;
        case 12:
            if (path.IsExt(argument) && argument)
                path.SetExt(argument);
            break;
        case 13:
            path.Make(path, argument);
            break;
        case 14:
            path.Make(argument, path);
            break;
        case 15:
            path.AddPath(argument);
            break;
        case 16:
            path.AddPath(argument, edit);
            break;
        case 17:
        {
            const std::string whole = path.Text();
            const Zem::FilePath first = path.ExtractFirstPath();
            if (whole != std::string(first.Text()) + path.Text())
                std::abort();
            break;
        }
        default:
            path.AddPath(path.GetFileName());
        }
        if (!std::memchr(path.Text(), '\0', sizeof path) || path.Length() != std::strlen(path) ||
            path.GetPath() > path.Text() + path.Length() || path.GetFileName() > path.Text() + path.Length())
            std::abort();
        for (const std::uint8_t byte : fenced.fence)
            if (byte != 0xA5)
                std::abort();
    }
    return 0;
}
