// bedrock which, bedrock info.

#include "Commands.h"

#include <Bedrock/Version.h>
#include <Bedrock/files/File.h>

#include <cstdlib>

namespace Tool
{

namespace
{

// The best instruction set of those that the pixel kernels know.
const char* ProcessorLevel()
{
#if defined(__x86_64__) || defined(__i386__)
    if (__builtin_cpu_supports("avx2"))
        return "avx2";
    if (__builtin_cpu_supports("sse2"))
        return "sse2";
#endif
    return "scalar";
}

} // namespace

Exit Which(Mounts& mounts, const FileOptions& options)
{
    const std::string& name = options.input;
    const auto locations = mounts.Of(name);
    if (locations.empty())
        Fail(Exit::Usage, name, "expected NAME:PATH, with a --mount for NAME");
    const std::string rest(BehindWord(name));
    if (rest.empty())
        Fail(Exit::Usage, name, "expected NAME:PATH, and the path is empty");
    const Mount* serving = nullptr;
    Json json;
    if (options.json)
        json.Array();
    for (const Mount* mount : locations)
    {
        if (!Zem::File::Exists((mount->alone + ':' + rest).c_str()))
            continue;
        const bool serves = serving == nullptr;
        if (serves)
            serving = mount;
        const char* const kind = mount->IsFolder() ? "folder" : "archive";
        if (options.json)
            json.Object().Text("location", mount->path).Text("kind", kind).Bool("serves", serves).End();
        else
            std::printf("%-8s  %-7s  %s\n", serves ? "serves" : "shadowed", kind, Shown(mount->path).c_str());
    }
    if (options.json)
        json.End();
    if (!serving)
        Fail(Exit::Bad, name, "none of " + Count(locations.size(), "location") + " has it");
    return Exit::Done;
}

Exit Info(const FileOptions& options)
{
#if defined(__clang__)
    const char* const compiler = "Clang " __clang_version__;
#else
    const char* const compiler = "GCC " __VERSION__;
#endif
    const char* const forced = std::getenv("BEDROCK_KERNELS");
    if (options.json)
    {
        Json()
            .Object()
            .Text("version", ZEM_VERSION)
            .Text("compiler", compiler)
            .Number("bits", 8 * sizeof(void*))
            .Text("processor", ProcessorLevel())
            .Text("kernels", forced ? forced : "")
            .End();
        return Exit::Done;
    }
    std::printf("version    %s\ncompiler   %s, %zu bits\nprocessor  %s\n", ZEM_VERSION, compiler, 8 * sizeof(void*),
                ProcessorLevel());
    if (forced)
        std::printf("kernels    BEDROCK_KERNELS=%s\n", Shown(forced).c_str());
    return Exit::Done;
}

} // namespace Tool
