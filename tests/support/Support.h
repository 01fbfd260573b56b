#pragma once

// Helpers that tests of every folder share.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace Test
{

/// The seed of this run's random tests: BEDROCK_TEST_SEED if set, else a fresh one. The run prints it first, so that a
/// failure can be repeated.
std::uint64_t Seed();

/// A generator for one random test; `salt` keeps the tests of a run apart.
inline std::mt19937_64 Random(std::uint64_t salt = 0)
{
    return std::mt19937_64(Seed() + salt * 0x9E3779B97F4A7C15u);
}

/// A name that no other run and no earlier call uses, for what processes share by name.
std::string UniqueName(const char* what);

/// A heap block of exactly the bytes given: AddressSanitizer sees one byte too far on either side.
inline std::unique_ptr<std::uint8_t[]> Exact(const void* data, std::size_t size)
{
    auto block = std::make_unique<std::uint8_t[]>(size);
    if (size != 0 && size <= PTRDIFF_MAX)
        std::memcpy(block.get(), data, size);
    return block;
}

template <class Bytes>
std::unique_ptr<std::uint8_t[]> Exact(const Bytes& bytes)
{
    return Exact(bytes.data(), bytes.size());
}

/// An empty directory of its own, which is the current directory too until the object goes; then everything in it is
/// deleted and the previous current directory is back.
class Directory
{
public:
    Directory();
    ~Directory();
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    const std::filesystem::path& Path() const { return path; }
    /// Path of a file in it, as text.
    std::string operator/(const std::string& name) const { return (path / name).string(); }

private:
    std::filesystem::path path;
    std::filesystem::path previous;
};

/// Whole contents of a file on disk; a test failure if it cannot be read.
std::vector<std::uint8_t> ReadFile(const std::filesystem::path& path);

/// Writes (replaces) a file on disk.
void WriteFile(const std::filesystem::path& path, const void* data, std::size_t size);

template <class Bytes>
void WriteFile(const std::filesystem::path& path, const Bytes& bytes)
{
    WriteFile(path, bytes.data(), bytes.size());
}

} // namespace Test
