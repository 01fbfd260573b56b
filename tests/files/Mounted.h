#pragma once

// Substitutes for a test: mounted while the object lives, and short ways to store and fetch whole files.

#include "support/Support.h"

#include <Bedrock/files/File.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/memory/PString.h>

#include <optional>
#include <string>
#include <vector>

namespace Test
{

using Bytes = std::vector<std::uint8_t>;

/// A substitute with one location at first.
class Mounted
{
public:
    Mounted(const std::string& word, const std::string& path, bool writable) : name(word)
    {
        Zem::File::Subst(name.c_str(), path.c_str(), writable);
    }
    ~Mounted()
    {
        if (Zem::File::SubstExists(name.c_str()))
            Zem::File::Subst(name.c_str(), nullptr, false);
    }
    Mounted(const Mounted&) = delete;
    Mounted& operator=(const Mounted&) = delete;

private:
    std::string name;
};

/// Noise of `n` bytes, the same for the same numbers.
inline Bytes Content(std::size_t n, std::uint32_t salt = 1)
{
    Bytes bytes(n);
    std::uint32_t state = salt * 2654435761u + 12345;
    for (auto& byte : bytes)
    {
        state = state * 1664525 + 1013904223;
        byte = static_cast<std::uint8_t>(state >> 24);
    }
    return bytes;
}

/// `n` bytes that the codec makes much smaller.
inline Bytes Text(std::size_t n, std::uint32_t salt = 1)
{
    Bytes bytes(n);
    for (std::size_t i = 0; i < n; ++i)
        bytes[i] = static_cast<std::uint8_t>("the quick brown fox "[(i + salt) % 20]);
    return bytes;
}

/// Stores a whole file; what was thrown, or an empty text. "open" if it cannot be opened.
inline std::string Store(const std::string& name, const Bytes& bytes, std::uint32_t mode = Zem::File::ModeWrite)
{
    try
    {
        Zem::File file;
        if (!file.Open(name.c_str(), Zem::File::ModeCreate | mode))
            return "open";
        if (!bytes.empty())
            file.SafeWrite(bytes.data(), 1, bytes.size());
        file.Close();
        return "";
    }
    catch (const Zem::Exception& failure)
    {
        return failure.Reason();
    }
}

/// All of a file; nothing if it cannot be opened or read.
inline std::optional<Bytes> Fetch(const std::string& name, std::uint32_t mode = Zem::File::ModeRead)
{
    Zem::File file;
    if (!file.Open(name.c_str(), mode))
        return std::nullopt;
    try
    {
        Bytes bytes;
        std::uint8_t part[5000];
        while (const std::uint32_t n = file.Read(part, sizeof part, 1))
            bytes.insert(bytes.end(), part, part + n);
        return bytes;
    }
    catch (const Zem::Exception&)
    {
        return std::nullopt;
    }
}

/// Writes a text file, and makes its folders.
inline void Put(const std::string& name, const std::string& text = "x")
{
    if (const auto folder = std::filesystem::path(name).parent_path(); !folder.empty())
        std::filesystem::create_directories(folder);
    WriteFile(name, text.data(), text.size());
}

/// The text of a file, read through the library; "(none)" if there is none.
inline std::string Get(const std::string& name)
{
    const auto bytes = Fetch(name);
    return bytes ? std::string(bytes->begin(), bytes->end()) : "(none)";
}

} // namespace Test
