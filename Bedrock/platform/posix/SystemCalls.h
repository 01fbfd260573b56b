#pragma once

// Every call of the kernel that the file layer makes goes through this one table. A test replaces entries to make the
// Nth call fail, come short, or be the process's last.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <time.h>

namespace Zem::Platform
{

struct SystemCalls
{
    int (*open)(const char*, int, mode_t);
    int (*close)(int);
    ssize_t (*pread)(int, void*, size_t, off_t);
    ssize_t (*preadv)(int, const iovec*, int, off_t);
    ssize_t (*write)(int, const void*, size_t);
    ssize_t (*pwrite)(int, const void*, size_t, off_t);
    int (*ftruncate)(int, off_t);
    int (*fdatasync)(int);
    int (*flock)(int, int);
    int (*lock)(int, int, struct flock*); // fcntl with an open file description lock
    int (*fstat)(int, struct stat*);
    int (*stat)(const char*, struct stat*);
    int (*statx)(int, const char*, int, unsigned, struct statx*);
    ssize_t (*getdents)(int, void*, size_t);
    int (*fchmod)(int, mode_t);
    int (*access)(const char*, int);
    int (*rename)(const char*, const char*);
    int (*renameat2)(int, const char*, int, const char*, unsigned);
    int (*link)(const char*, const char*);
    int (*unlink)(const char*);
    char* (*realpath)(const char*, char*);
    int (*mkdir)(const char*, mode_t);
    int (*rmdir)(const char*);
    int (*chdir)(const char*);
    char* (*getcwd)(char*, size_t);
    int (*utimensat)(int, const char*, const timespec*, int);
};

/// The table in use. Tests alone change it, while no other thread is in the file layer.
extern SystemCalls systemCalls;

} // namespace Zem::Platform
