// Any text as blocks. The first 32 bytes choose what is done with each entry: which values are read and as what, whether
// its block is entered, when one is left. Everything ends, and no entry is told twice.

#include "FuzzFile.h"

#include <Bedrock/files/BlockReader.h>
#include <Bedrock/memory/PString.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

using Zem::BlockReader;
using Zem::File;
using Zem::PString;

namespace
{

constexpr std::size_t choices = 32;

void Require(bool holds)
{
    if (!holds)
        std::abort();
}

// All of it, every block entered, or at random.
std::string Walk(const char* name, const std::uint8_t* choice, std::size_t lines)
{
    File file;
    Require(static_cast<bool>(file.Open(name, File::ModeReadPlain)));
    BlockReader root;
    root.Init(file);
    std::vector<BlockReader*> around;
    BlockReader* reader = &root;
    std::string seen;
    std::size_t entries = 0;
    for (PString key;;)
    {
        const std::uint8_t how = choice ? choice[entries % choices] : 0;
        if (reader->Next(key))
        {
            Require(++entries <= lines && key.Length() > 0 && key.Length() <= 510 && key[0] != '{');
            (seen += key) += ' ';
            char text[32];
            int n = 0;
            float f = 0;
            bool b;
            switch (how & 7)
            {
            case 0:
                for (PString value; reader->ReadString(value);)
                {
                    Require(value.Length() <= 510);
                    (seen += value) += ',';
                }
                break;
            case 1:
                while (reader->ReadInt(n))
                    seen += std::to_string(n);
                break;
            case 2:
                while (reader->ReadFloat(f))
                    ++n;
                break;
            case 3:
                while (reader->ReadBool(b))
                    seen += b ? 'y' : 'n';
                break;
            case 4:
                while (reader->ReadString(text, how >> 3))
                    Require(std::strlen(text) < how >> 3);
                break;
            case 5:
            {
                int many[3];
                Require(reader->ReadIntv(many, 3) <= 3);
                float floats[3];
                Require(reader->ReadFloatv(floats, 3) <= 3);
                PString words[3];
                Require(reader->ReadStringv(words, 3) <= 3);
                break;
            }
            default:
                break;
            }
            if (how & 32)
                continue;
            if (BlockReader* block = reader->Begin())
            {
                Require(!reader->Begin() && !reader->Next(key));
                seen += '{';
                around.push_back(reader);
                reader = block;
            }
            if (!(how & 128) || around.empty())
                continue;
        }
        else if (around.empty())
            break;
        // The end of this level, or enough of it; from further out, whatever is open within is left too.
        for (std::size_t levels = choice ? 1 + (how >> 3 & 3) : 1; levels > 0 && !around.empty(); --levels)
        {
            reader = around.back();
            around.pop_back();
        }
        reader->End();
        seen += '}';
    }
    return seen;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < choices || size > 1 << 17)
        return 0;
    PString::Init();
    const std::uint8_t* text = data + choices;
    const std::size_t length = size - choices;
    const FuzzFile disk(text, length);
    const auto lines = static_cast<std::size_t>(std::count(text, text + length, '\n')) + 1;
    const std::string whole = Walk(disk.Name(), nullptr, lines);
    // A walk that starts like the whole one, all values as texts and all blocks entered, sees the same.
    const std::string chosen = Walk(disk.Name(), data, lines);
    if (std::all_of(data, data + choices, [](std::uint8_t how) { return (how & 0xBF) == 0; }))
        Require(chosen == whole);
    return 0;
}
