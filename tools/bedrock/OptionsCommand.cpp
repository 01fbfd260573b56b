// bedrock options: what an application would find in its options, and where it came from.

#include "Commands.h"
#include "Sources.h"

#include <Bedrock/files/File.h>
#include <Bedrock/host/Options.h>

#include <algorithm>
#include <cstdlib>

namespace Tool
{

namespace
{

using Zem::Options;

std::string Text(const char* text)
{
    return text ? text : "";
}

// One --source: "env:NAME", "file:NAME" or "text:OPTIONS".
void Take(Options& options, const Mounts& mounts, const std::string& source, Messages& messages)
{
    const std::size_t colon = source.find(':');
    const std::string kind = source.substr(0, colon);
    const std::string rest = colon == std::string::npos ? "" : source.substr(colon + 1);
    if (kind == "env")
    {
        if (!std::getenv(rest.c_str()))
            messages.Complain(Exit::Bad, rest, "no such variable is set");
        options.ProcessEnv(rest.c_str());
    }
    else if (kind == "file")
    {
        if (!Zem::File::Exists(rest.c_str()))
            messages.Complain(Exit::Bad, rest, "no such file");
        else if (const std::string why = mounts.IsMounted(rest) ? "" : WhyNotReadable(rest); !why.empty())
            messages.Complain(Exit::Disk, rest, "cannot open: " + why);
        options.ProcessFile(rest.c_str());
    }
    else if (kind == "text")
        options.ProcessRaw(rest.c_str());
    else
        Fail(Exit::Usage, source, "a source is env:NAME, file:NAME or text:OPTIONS");
}

// As an application with that prefix does when it starts.
void TakeAll(Options& options, const OptionsOptions& request)
{
    std::vector<std::string> arguments = {request.program.empty() ? request.prefix : request.program};
    arguments.insert(arguments.end(), request.arguments.begin(), request.arguments.end());
    std::vector<char*> argv;
    for (std::string& argument : arguments)
        argv.push_back(argument.data());
    options.Init(request.prefix.c_str(), static_cast<int>(argv.size()), argv.data());
}

std::string SourceOf(const Options::Origin& origin)
{
    switch (origin.kind)
    {
    case Options::Origin::Environment:
        return "variable " + Shown(origin.name);
    case Options::Origin::File:
        return "file " + Shown(origin.name);
    case Options::Origin::CommandLine:
        return "arguments";
    case Options::Origin::Text:
        break;
    }
    return "text";
}

void Print(const Options& options, const char* key)
{
    Options::Origin origin;
    options.GetOrigin(key, origin);
    const std::string value = Text(origin.value);
    std::printf("%s%s%s\n    from %s\n", Shown(key).c_str(), value.empty() ? "" : " = ",
                value.empty() ? "" : Shown(value).c_str(), SourceOf(origin).c_str());
    for (std::uint32_t back = 1;; ++back)
    {
        const bool appended = origin.appended;
        if (!options.GetOrigin(key, origin, back))
            break;
        std::printf("    %s %s from %s\n", appended ? "appended to" : "in place of", Shown(Text(origin.value)).c_str(),
                    SourceOf(origin).c_str());
    }
}

void Print(Json& json, const Options& options, const char* key)
{
    static const char* const kinds[] = {"variable", "file", "arguments", "text"};
    Options::Origin origin;
    options.GetOrigin(key, origin);
    json.Object().Text("key", key).Text("value", Text(origin.value)).Array("from");
    for (std::uint32_t back = 0; options.GetOrigin(key, origin, back); ++back)
        json.Object()
            .Text("source", kinds[origin.kind])
            .Text("name", origin.name)
            .Text("value", Text(origin.value))
            .Bool("appended", origin.appended)
            .End();
    json.End().End();
}

} // namespace

Exit ShowOptions(Mounts& mounts, const OptionsOptions& request)
{
    Messages messages("options");
    Options options;
    if (request.sources.empty())
        TakeAll(options, request);
    else if (!request.arguments.empty())
        Fail(Exit::Usage, request.arguments.front(), "either --source, or arguments of an application");
    for (const std::string& source : request.sources)
        Take(options, mounts, source, messages);

    std::vector<std::string> keys = request.keys;
    if (keys.empty())
        for (const Zem::OptionEntry* entry = options.First(); entry; entry = entry->next)
            keys.push_back(Text(entry->name));
    Json json;
    if (request.json)
        json.Array();
    for (const std::string& key : keys)
    {
        CheckInterrupt();
        if (!options.Get(key.c_str()))
            messages.Complain(Exit::Bad, key, "no source has it");
        else if (request.json)
            Print(json, options, key.c_str());
        else
            Print(options, key.c_str());
    }
    if (request.json)
        json.End();
    return messages.Worst();
}

} // namespace Tool
