// bedrock find.

#include "Commands.h"

#include <Bedrock/files/FileFind.h>

#include <cstring>
#include <ctime>

namespace Tool
{

namespace
{

// When a file was written, in UTC; archives do not say.
std::string Written(const Zem::File::Time& time)
{
    const std::time_t seconds = time.seconds;
    std::tm parts = {};
    char text[32];
    if (seconds == 0 || !gmtime_r(&seconds, &parts) || std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &parts) == 0)
        return "-";
    return text;
}

std::string Attributes(const Zem::File::Entry& entry)
{
    std::string text = "----";
    if (entry.IsDir())
        text[0] = 'd';
    if (entry.attributes & Zem::File::Entry::ReadOnly)
        text[1] = 'r';
    if (entry.IsHidden())
        text[2] = 'h';
    if (entry.IsCompressed())
        text[3] = 'c';
    return text;
}

} // namespace

Exit Find(Mounts& mounts, const FileOptions& options)
{
    const std::string& pattern = options.input;
    const std::size_t last = pattern.find_last_of(":/\\");
    if (last != std::string::npos && pattern.find_first_of("*?") < last)
        Fail(Exit::Usage, pattern, "only the last level may hold * and ?");
    if (pattern.size() + 1 >= Zem::File::Path::capacity)
        Fail(Exit::Usage, pattern, "is too long");
    // The folder is shown as it was asked for, so that every line is a name that other commands take.
    const std::string folder = last == std::string::npos ? std::string() : pattern.substr(0, last + 1);

    Json json;
    if (options.json)
        json.Array();
    std::uint64_t count = 0;
    Zem::File::Find found;
    for (bool more = found.Open(pattern.c_str()); more; more = found.Next())
    {
        CheckInterrupt();
        if (std::strcmp(found.name, ".") == 0 || std::strcmp(found.name, "..") == 0)
            continue;
        ++count;
        const std::string name = folder + found.name.Text();
        if (options.json)
            json.Object()
                .Text("name", name)
                .Bool("folder", found.IsDir())
                .Number("size", found.IsDir() ? 0 : found.size)
                .Number("attributes", found.attributes)
                .Number("written",
                        static_cast<std::uint64_t>(found.timeWrite.seconds > 0 ? found.timeWrite.seconds : 0))
                .End();
        else if (options.namesOnly)
            std::printf("%s\n", Shown(name).c_str());
        else if (found.IsDir())
            std::printf("%11s  %-16s  %s  %s\n", "", "", Attributes(found).c_str(), Shown(name + "/").c_str());
        else
            std::printf("%11u  %-16s  %s  %s\n", found.size, Written(found.timeWrite).c_str(),
                        Attributes(found).c_str(), Shown(name).c_str());
    }
    if (options.json)
        json.End();
    if (count == 0)
        Fail(Exit::Bad, pattern, mounts.IsMounted(pattern) ? "nothing there matches" : "nothing on disk matches");
    return Exit::Done;
}

} // namespace Tool
