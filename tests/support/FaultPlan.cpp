#include "support/FaultPlan.h"

#include <Bedrock/platform/posix/SystemCalls.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <type_traits>
#include <unistd.h>

namespace Test
{

namespace
{

using Zem::Platform::SystemCalls;
using Zem::Platform::systemCalls;

SystemCalls real;
FaultPlan::Kind kind;
int target;
int error;
int calls;
int handles;
const char* what;

// Counts a call; true if it is to fail.
bool Strike(const char* name, bool cleansUp)
{
    ++calls;
    if (calls == target)
    {
        what = name;
        if (kind == FaultPlan::Kill)
            ::kill(::getpid(), SIGKILL);
    }
    const bool fails =
        (kind == FaultPlan::Fail && calls == target) || (kind == FaultPlan::FailFrom && calls >= target && !cleansUp);
    if (fails)
        errno = error;
    return fails;
}

size_t Cut(size_t size)
{
    return kind == FaultPlan::Short && calls == target && size > 1 ? size / 2 : size;
}

} // namespace

FaultPlan::FaultPlan(Kind newKind, int newTarget, int newError)
{
    real = systemCalls;
    kind = newKind;
    target = newTarget;
    error = newError;
    calls = 0;
    handles = 0;
    what = "";

    systemCalls.open = [](const char* name, int flags, mode_t mode)
    {
        if (Strike("open", false))
            return -1;
        const int fd = real.open(name, flags, mode);
        handles += fd >= 0;
        return fd;
    };
    // A close that fails has closed all the same.
    systemCalls.close = [](int fd)
    {
        const bool fails = Strike("close", true);
        const int kept = errno;
        const int result = real.close(fd);
        handles -= result == 0;
        if (fails)
            errno = kept;
        return fails ? -1 : result;
    };
    systemCalls.pread = [](int fd, void* dst, size_t n, off_t at) -> ssize_t
    { return Strike("pread", false) ? -1 : real.pread(fd, dst, Cut(n), at); };
    systemCalls.preadv = [](int fd, const iovec* parts, int count, off_t at) -> ssize_t
    {
        if (Strike("preadv", false))
            return -1;
        return kind == Short && calls == target ? real.pread(fd, parts[0].iov_base, Cut(parts[0].iov_len), at)
                                                : real.preadv(fd, parts, count, at);
    };
    systemCalls.write = [](int fd, const void* src, size_t n) -> ssize_t
    { return Strike("write", false) ? -1 : real.write(fd, src, Cut(n)); };
    systemCalls.pwrite = [](int fd, const void* src, size_t n, off_t at) -> ssize_t
    { return Strike("pwrite", false) ? -1 : real.pwrite(fd, src, Cut(n), at); };
    systemCalls.ftruncate = [](int fd, off_t n) { return Strike("ftruncate", false) ? -1 : real.ftruncate(fd, n); };
    systemCalls.fdatasync = [](int fd) { return Strike("fdatasync", false) ? -1 : real.fdatasync(fd); };
    systemCalls.flock = [](int fd, int how) { return Strike("flock", false) ? -1 : real.flock(fd, how); };
    systemCalls.lock = [](int fd, int how, struct flock* range)
    { return Strike("lock", range->l_type == F_UNLCK) ? -1 : real.lock(fd, how, range); };
    systemCalls.fstat = [](int fd, struct stat* out) { return Strike("fstat", false) ? -1 : real.fstat(fd, out); };
    systemCalls.stat = [](const char* n, struct stat* out) { return Strike("stat", false) ? -1 : real.stat(n, out); };
    systemCalls.statx = [](int d, const char* n, int how, unsigned mask, struct statx* out)
    { return Strike("statx", false) ? -1 : real.statx(d, n, how, mask, out); };
    systemCalls.getdents = [](int fd, void* out, size_t n) -> ssize_t
    { return Strike("getdents", false) ? -1 : real.getdents(fd, out, n); };
    systemCalls.fchmod = [](int fd, mode_t mode) { return Strike("fchmod", false) ? -1 : real.fchmod(fd, mode); };
    systemCalls.access = [](const char* n, int how) { return Strike("access", false) ? -1 : real.access(n, how); };
    systemCalls.rename = [](const char* a, const char* b) { return Strike("rename", false) ? -1 : real.rename(a, b); };
    systemCalls.renameat2 = [](int d, const char* a, int e, const char* b, unsigned how)
    { return Strike("renameat2", false) ? -1 : real.renameat2(d, a, e, b, how); };
    systemCalls.link = [](const char* a, const char* b) { return Strike("link", false) ? -1 : real.link(a, b); };
    systemCalls.unlink = [](const char* n) { return Strike("unlink", true) ? -1 : real.unlink(n); };
    systemCalls.realpath = [](const char* n, char* out) -> char*
    { return Strike("realpath", false) ? nullptr : real.realpath(n, out); };
    systemCalls.mkdir = [](const char* n, mode_t mode) { return Strike("mkdir", false) ? -1 : real.mkdir(n, mode); };
    systemCalls.rmdir = [](const char* n) { return Strike("rmdir", true) ? -1 : real.rmdir(n); };
    systemCalls.chdir = [](const char* n) { return Strike("chdir", false) ? -1 : real.chdir(n); };
    systemCalls.getcwd = [](char* out, size_t n) -> char*
    { return Strike("getcwd", false) ? nullptr : real.getcwd(out, n); };
    systemCalls.utimensat = [](int d, const char* n, const timespec* t, int how)
    { return Strike("utimensat", false) ? -1 : real.utimensat(d, n, t, how); };
}

FaultPlan::~FaultPlan()
{
    systemCalls = real;
}

bool FaultPlan::Reached() const
{
    return target > 0 && calls >= target;
}

int FaultPlan::Calls() const
{
    return calls;
}

const char* FaultPlan::What() const
{
    return what;
}

int FaultPlan::OpenHandles() const
{
    return handles;
}

} // namespace Test
