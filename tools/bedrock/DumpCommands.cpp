// bedrock chunk dump, bedrock block dump: what the library's readers see in a file.

#include "Commands.h"
#include "Sources.h"

#include <Bedrock/files/BlockReader.h>
#include <Bedrock/files/KROMFile.h>
#include <Bedrock/memory/PString.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

namespace Tool
{

namespace
{

// Opens an input as it is stored. The readers ask for the length of the file, which a compressed stream on disk does not
// tell; a member of an archive does.
void OpenInput(Mounts& mounts, const std::string& name, Zem::File& file)
{
    if (const std::string why = mounts.IsMounted(name) ? "" : WhyNotReadable(name); !why.empty())
        Fail(Exit::Disk, name, "cannot open: " + why);
    if (const auto result = file.Open(mounts.ForReading(name).c_str(), Zem::File::ModeRead); !result)
        Fail(Exit::Disk, name, std::string("cannot open: ") + result.Text());
    if (file.IsCompressed() && !mounts.IsMounted(name))
        Fail(Exit::Bad, name, "is a compressed stream: `bedrock stream expand` gives the file within");
}

// ----------------------------------------------------------------------------------------------------------- chunk files

constexpr std::uint32_t headerBytes = 12;
constexpr std::uint32_t blockHeaderBytes = 8;
constexpr unsigned deepestIndent = 20; // levels; deeper ones stand as far to the right

// 0x4853454D "MESH": a number, and its four bytes in the order of the file where they are readable.
std::string Id(std::uint32_t id)
{
    char text[32];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(id));
    std::string shown = text;
    const char bytes[4] = {static_cast<char>(id), static_cast<char>(id >> 8), static_cast<char>(id >> 16),
                           static_cast<char>(id >> 24)};
    if (std::all_of(bytes, bytes + 4, [](char c) { return c >= ' ' && c < 127; }))
        shown.append(" \"").append(bytes, 4).append("\"");
    return shown;
}

class ChunkDump
{
public:
    ChunkDump(Zem::KROMFile& in, const FileOptions& what) : file(in), options(what), end(in.Size()) {}

    void Run()
    {
        const std::string damage = Header();
        const std::string torn = Blocks();
        if (options.json)
            json.End();
        if (const std::string& reason = torn.empty() ? damage : torn; !reason.empty())
            Fail(Exit::Bad, options.input, reason);
    }

private:
    struct Block
    {
        std::uint32_t id = 0, size = 0;
    };

    Block At(std::uint64_t offset)
    {
        Block block;
        file.SeekSet(static_cast<std::int32_t>(offset));
        static_cast<void>(file.ReadBlockHeader(block.id, block.size));
        return block;
    }

    void Show(std::uint64_t offset, std::uint32_t size, const std::string& label, std::uint32_t id, std::size_t depth)
    {
        if (options.json)
            json.Object().Number("offset", offset).Number("size", size).Number("id", id).Number("depth", depth).End();
        else
            std::printf("%11llu %11lu  %*s%s\n", static_cast<unsigned long long>(offset),
                        static_cast<unsigned long>(size),
                        static_cast<int>(2 * std::min<std::size_t>(depth, deepestIndent)), "", label.c_str());
    }

    // What is wrong with the header, for the end of the list: a size that is wrong keeps no block from being shown.
    std::string Header()
    {
        std::uint32_t word[3] = {};
        if (end < headerBytes || file.Read(word, 4, 1) != 4 || std::memcmp(word, "KROM", 4) != 0)
            Fail(Exit::Bad, options.input,
                 end < headerBytes ? "is not a chunk file: it has no whole header"
                                   : "is not a chunk file: it does not begin with \"KROM\"");
        file.Read(word[1]);
        file.Read(word[2]);
        if (options.json)
            json.Array();
        else
            std::printf("%11s %11s  %s\n", "OFFSET", "SIZE", "ID");
        Show(0, word[1], "KROM, type " + Id(word[2]), word[2], 0);
        if (word[1] == 0)
            return "its header has no size: whoever wrote it did not come to the end";
        const std::uint64_t told = std::uint64_t{word[1]} + 8;
        if (told > end)
            return "is cut short: by its header it has " + Count(told, "byte") + ", and there are " +
                   std::to_string(end);
        if (told < end)
            return "has " + Count(end - told, "byte") + " behind the end that its header tells";
        return {};
    }

    // The blocks, depth first, without a call per level. Returns: why the list ends before the file does.
    std::string Blocks()
    {
        std::vector<std::uint64_t> ends{end};
        for (std::uint64_t at = headerBytes;;)
        {
            while (at == ends.back())
            {
                ends.pop_back();
                if (ends.empty())
                    return {};
            }
            if (ends.back() - at < blockHeaderBytes)
                return "is torn: " + Count(ends.back() - at, "byte") + " at offset " + std::to_string(at) +
                       " are no whole block";
            const Block block = At(at);
            Show(at, block.size, Id(block.id), block.id, ends.size());
            const std::uint64_t body = at + blockHeaderBytes;
            if (block.size > ends.back() - body)
                return "is torn: the block at offset " + std::to_string(at) + " has a size of " +
                       Count(block.size, "byte") + ", and " + std::to_string(ends.back() - body) + " are left";
            at = body + block.size;
            if (!options.flat && HoldsBlocks(body, at))
            {
                ends.push_back(at);
                at = body;
            }
        }
    }

    // Which bodies hold blocks only their writer knows. One that divides into blocks without a rest is taken for such;
    // zeros, which would, are not.
    bool HoldsBlocks(std::uint64_t at, std::uint64_t bodyEnd)
    {
        if (at == bodyEnd)
            return false;
        while (at < bodyEnd)
        {
            if (bodyEnd - at < blockHeaderBytes)
                return false;
            const Block block = At(at);
            at += blockHeaderBytes;
            if ((block.id == 0 && block.size == 0) || block.size > bodyEnd - at)
                return false;
            at += block.size;
        }
        return true;
    }

    Zem::KROMFile& file;
    const FileOptions& options;
    std::uint64_t end; // bytes of the file
    Json json;
};

// ---------------------------------------------------------------------------------------------------------- text blocks

// Every entry with its values and its block. A value that only opens the block is left out.
class BlockDump
{
public:
    BlockDump(Zem::BlockReader& root, bool asJson) : reader(&root), isJson(asJson) {}

    void Run()
    {
        if (isJson)
            json.Array();
        std::vector<Zem::BlockReader*> around; // of `reader`, the root first
        for (Zem::PString key;;)
        {
            if (reader->Next(key))
            {
                std::vector<std::string> values;
                for (char value[512]; reader->ReadString(value, sizeof value);)
                    values.emplace_back(value);
                Zem::BlockReader* const block = reader->Begin();
                if (block && !values.empty() && values.back() == "{")
                    values.pop_back();
                Show(static_cast<const char*>(key), values, block != nullptr, around.size());
                if (block)
                {
                    around.push_back(reader);
                    reader = block;
                }
                continue;
            }
            if (around.empty())
                break;
            reader = around.back();
            around.pop_back();
            reader->End();
            Line(around.size(), "}");
        }
        if (isJson)
            json.End();
    }

private:
    void Line(std::size_t depth, const std::string& text)
    {
        if (!isJson)
            std::printf("%*s%s\n", static_cast<int>(4 * std::min<std::size_t>(depth, deepestIndent)), "", text.c_str());
    }

    void Show(const char* key, const std::vector<std::string>& values, bool hasBlock, std::size_t depth)
    {
        if (isJson)
        {
            json.Object().Text("key", key).Array("values");
            for (const std::string& value : values)
                json.Text({}, value);
            json.End().Bool("block", hasBlock).Number("depth", depth).End();
            return;
        }
        std::string line = Shown(key);
        for (const std::string& value : values)
        {
            const bool quoted =
                value.empty() || value.find_first_of(" \t") != std::string::npos || value.starts_with("//");
            line += quoted ? " \"" + (value.empty() ? value : Shown(value)) + '"' : ' ' + Shown(value);
        }
        Line(depth, line);
        if (hasBlock)
            Line(depth, "{");
    }

    Zem::BlockReader* reader;
    Json json;
    bool isJson;
};

} // namespace

Exit ChunkDumpCommand(Mounts& mounts, const FileOptions& options)
{
    Zem::KROMFile file;
    OpenInput(mounts, options.input, file);
    ChunkDump(file, options).Run();
    return Exit::Done;
}

Exit BlockDumpCommand(Mounts& mounts, const FileOptions& options)
{
    Zem::File file;
    OpenInput(mounts, options.input, file);
    Zem::BlockReader reader(file);
    BlockDump(reader, options.json).Run();
    return Exit::Done;
}

} // namespace Tool
