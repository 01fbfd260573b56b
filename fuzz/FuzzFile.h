#pragma once

// A file in memory that fuzz targets open by name.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

class FuzzFile
{
public:
    FuzzFile(const std::uint8_t* data, std::size_t size) : fd(::memfd_create("fuzz", MFD_CLOEXEC))
    {
        if (fd < 0 || (size > 0 && ::pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)))
            std::abort();
        std::snprintf(name, sizeof name, "/proc/self/fd/%d", fd);
    }
    ~FuzzFile() { ::close(fd); }
    FuzzFile(const FuzzFile&) = delete;
    FuzzFile& operator=(const FuzzFile&) = delete;
    const char* Name() const { return name; }

private:
    int fd;
    char name[40];
};
