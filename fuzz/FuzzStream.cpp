// A file's bytes, plain or compressed, read through File by any sequence of reads, lines and seeks. The first 16 bytes
// choose the sequence, the rest is the file. On a plain file each result is checked against the bytes.

#include "FuzzFile.h"

#include <Bedrock/files/File.h>
#include <Bedrock/host/Exception.h>

#include <algorithm>
#include <cstring>
#include <memory>

using Zem::File;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    constexpr std::size_t steps = 16;
    if (size < steps || size > 1 << 18)
        return 0;
    const std::uint8_t* bytes = data + steps;
    const std::size_t length = size - steps;
    const FuzzFile disk(bytes, length);
    File file;
    if (!file.Open(disk.Name(), File::ModeRead))
        std::abort();
    const bool compressed = length >= 4 && std::memcmp(bytes, "CFIL", 4) == 0;
    if (file.IsCompressed() != compressed)
        std::abort();
    static const auto block = std::make_unique<std::uint8_t[]>(70000);
    for (std::size_t i = 0; i < steps; ++i)
    {
        const std::uint32_t before = file.Tell();
        const std::uint32_t n = std::uint32_t{1} << (data[i] >> 4); // 1 to 32,768
        try
        {
            switch (data[i] & 7)
            {
            case 0:
            case 1:
            {
                const std::uint32_t got = file.Read(block.get(), n + (data[i] >> 3 & 1), 1);
                const std::size_t left = before < length ? length - before : 0;
                if (file.Tell() != before + got ||
                    (!compressed && (got != std::min<std::size_t>(left, n + (data[i] >> 3 & 1)) ||
                                     (got && std::memcmp(block.get(), bytes + before, got) != 0))))
                    std::abort();
                break;
            }
            case 2:
            {
                const std::uint32_t got = file.ReadLine(block.get(), n);
                if (got > n || (n >= 2 && block[got] != '\0'))
                    std::abort();
                break;
            }
            case 3:
                file.SeekSet(static_cast<std::int32_t>(n * 3 - 3));
                break;
            case 4:
                file.SeekCur(static_cast<std::int32_t>(n));
                break;
            case 5:
                if (before >= n)
                    file.SeekCur(-static_cast<std::int32_t>(n));
                break;
            case 6:
                if (!compressed)
                    file.SeekEnd(static_cast<std::int32_t>(n - 1));
                break;
            default:
                file.ReadBlock("DATA", block.get(), 65536);
            }
        }
        catch (const Zem::FileEx& failure)
        {
            if (!compressed || std::strcmp(failure.Class(), "File") != 0)
                std::abort();
        }
    }
    return 0;
}
