#pragma once

// Archives and stored zips of the same members for the benchmarks, written here so that neither side's own writer has
// a say, in scratch files and folders that are gone when the program ends.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace Bench
{

/// A path of its own below the system's temporary folder, removed with all that is in it at the end.
inline std::string Scratch(const std::string& name)
{
    static std::string folder;
    if (folder.empty())
    {
        folder = std::filesystem::temp_directory_path() / ("bedrock-bench-" + std::to_string(getpid()));
        std::filesystem::create_directories(folder);
        std::atexit([] { std::filesystem::remove_all(folder); });
    }
    return folder + "/" + name;
}

/// Writes `stem`.arc and `stem`.zip side by side.
class CorpusWriter
{
public:
    explicit CorpusWriter(const std::string& stem)
        : arcPath(Scratch(stem + ".arc")), zipPath(Scratch(stem + ".zip")), arc(arcPath, std::ios::binary),
          zip(zipPath, std::ios::binary)
    {
        arc.write("ARCHINFO\x20\0\0\0"
                  "0CRA\x01\xF1\0\0",
                  20);
        arc.write(std::string(24, '\0').data(), 24);
        for (std::uint32_t i = 0; i < 256; ++i)
        {
            crcTable[i] = i;
            for (int bit = 0; bit < 8; ++bit)
                crcTable[i] = crcTable[i] & 1 ? crcTable[i] >> 1 ^ 0xEDB88320 : crcTable[i] >> 1;
        }
    }

    void Add(const std::string& name, const std::vector<char>& payload)
    {
        const auto size = static_cast<std::uint32_t>(payload.size());
        std::vector<char> chunk = {'F', 'I', 'L', ' '};
        Put(chunk, 288 + size, 4);
        chunk.insert(chunk.end(), name.begin(), name.end());
        chunk.resize(8 + 260);
        Put(chunk, size, 4);
        chunk.resize(8 + 284);
        Put(chunk, size, 4);
        arc.write(chunk.data(), static_cast<std::streamsize>(chunk.size()));
        arc.write(payload.data(), size);

        std::uint32_t crc = 0xFFFFFFFF;
        for (const char c : payload)
            crc = crcTable[(crc ^ static_cast<unsigned char>(c)) & 255] ^ crc >> 8;
        std::vector<char> fields; // what both headers share
        Put(fields, 10, 2);
        Put(fields, 0, 4);
        Put(fields, 0x21, 4);
        Put(fields, ~crc, 4);
        Put(fields, size, 4);
        Put(fields, size, 4);
        Put(fields, name.size(), 2);
        Put(fields, 0, 2);
        std::vector<char> local = {'P', 'K', 3, 4};
        local.insert(local.end(), fields.begin(), fields.end());
        local.insert(local.end(), name.begin(), name.end());
        central.insert(central.end(), {'P', 'K', 1, 2, 20, 0});
        central.insert(central.end(), fields.begin(), fields.end());
        Put(central, 0, 10);
        Put(central, zipAt, 4);
        central.insert(central.end(), name.begin(), name.end());
        zip.write(local.data(), static_cast<std::streamsize>(local.size()));
        zip.write(payload.data(), size);
        zipAt += local.size() + size;
        ++members;
    }

    void Finish()
    {
        const std::size_t centralSize = central.size();
        central.insert(central.end(), {'P', 'K', 5, 6});
        Put(central, 0, 4);
        Put(central, members, 2);
        Put(central, members, 2);
        Put(central, centralSize, 4);
        Put(central, zipAt, 4);
        Put(central, 0, 2);
        zip.write(central.data(), static_cast<std::streamsize>(central.size()));
        arc.close();
        zip.close();
        if (!arc || !zip)
        {
            std::fprintf(stderr, "cannot write the corpus\n");
            std::exit(1);
        }
    }

    const std::string arcPath;
    const std::string zipPath;

private:
    static void Put(std::vector<char>& to, std::uint64_t value, int bytes)
    {
        for (int i = 0; i < bytes; ++i)
            to.push_back(static_cast<char>(value >> 8 * i));
    }

    std::ofstream arc;
    std::ofstream zip;
    std::vector<char> central;
    std::uint32_t crcTable[256];
    std::uint64_t zipAt = 0;
    unsigned members = 0; // at most 65,535
};

} // namespace Bench
