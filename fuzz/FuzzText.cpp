// Length-prefixed text from any bytes: File (both kinds of text) and MemoryFile agree with each other and never take more
// than there is.

#include "FuzzFile.h"

#include <Bedrock/files/MemoryFile.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/memory/PString.h>

#include <cstring>
#include <string_view>

using Zem::File;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > 1 << 16)
        return 0;
    Zem::PString::Init();
    const FuzzFile disk(data, size);
    File file;
    File other;
    if (!file.Open(disk.Name(), File::ModeReadPlain) || !other.Open(disk.Name(), File::ModeReadPlain))
        std::abort();
    const Zem::MemoryFile memory(const_cast<std::uint8_t*>(data), static_cast<std::uint32_t>(size));
    for (int i = 0; i < 64 && file.Tell() < size; ++i)
    {
        const std::uint32_t start = file.Tell();
        Zem::String text;
        Zem::PString word;
        Zem::PString fromMemory;
        file.Read(text);
        other.Read(word);
        memory.Read(fromMemory, false);
        if (file.Tell() != other.Tell() || file.Tell() != memory.Tell() || text.Length() != word.Length())
            std::abort();
        if (text.Length() > size - start || (text.Length() > 0 && std::memcmp(text, word, text.Length()) != 0))
            std::abort();
        const char* from = fromMemory; // ends at the first zero byte
        if (std::string_view(from ? from : "") != std::string_view(word.Length() ? static_cast<const char*>(word) : ""))
            std::abort();
    }

    // The same behind the mark of a compressed stream: whatever comes, it ends.
    File stream;
    if (!stream.Open(disk.Name(), File::ModeRead))
        std::abort();
    try
    {
        Zem::PString word;
        for (int i = 0; i < 16; ++i)
            stream.Read(word);
    }
    catch (const Zem::FileEx&)
    {
    }
    return 0;
}
