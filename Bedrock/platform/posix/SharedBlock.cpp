#include <Bedrock/platform/SharedBlock.h>

#include <Bedrock/platform/posix/NamedFile.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Zem::Platform
{

namespace
{

// A handle is the descriptor and 1, so that 0 is none.
int Descriptor(SharedBlockHandle block)
{
    return static_cast<int>(block.value - 1);
}

// Room is taken now: a page that cannot be had later would end the process when it is touched.
bool Reserve(int file, std::uint32_t size)
{
    int error;
    while ((error = posix_fallocate(file, 0, static_cast<off_t>(size))) == EINTR)
    {
    }
    return error == 0;
}

SharedBlockHandle OpenNameless(std::uint32_t size)
{
    const int file = memfd_create("zem", MFD_CLOEXEC);
    if (file >= 0 && Reserve(file, size))
        return {file + 1};
    if (file >= 0)
        close(file);
    return {0};
}

} // namespace

SharedBlockHandle OpenSharedBlock(const char* name, std::uint32_t size) noexcept
{
    if (size == 0)
        return {0};
    if (!name)
        return OpenNameless(size);
    char path[512];
    if (!NamedFile::MakePath(path, 'm', name))
        return {0};
    const NamedFile::Gate gate;
    bool isAlone = false;
    const int file = gate.IsHeld() ? NamedFile::Open(path, isAlone) : -1;
    if (file < 0)
        return {0};
    struct stat status;
    if (isAlone ? Reserve(file, size) : fstat(file, &status) == 0 && status.st_size >= static_cast<off_t>(size))
        return {file + 1};
    NamedFile::Close(file, path);
    return {0};
}

bool CloseSharedBlock(SharedBlockHandle block, const char* name) noexcept
{
    if (!name)
        return close(Descriptor(block)) == 0;
    char path[512];
    if (!NamedFile::MakePath(path, 'm', name))
        return false;
    const NamedFile::Gate gate;
    return gate.IsHeld() && NamedFile::Close(Descriptor(block), path);
}

void* MapSharedBlock(SharedBlockHandle block, std::uint32_t size) noexcept
{
    void* data = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, Descriptor(block), 0);
    return data == MAP_FAILED ? nullptr : data;
}

bool UnmapSharedBlock(void* data, std::uint32_t size) noexcept
{
    return munmap(data, size) == 0;
}

} // namespace Zem::Platform
