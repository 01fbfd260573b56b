#pragma once

#include <cstdint>

namespace Zem::Platform
{

/// An open file of the operating system. A plain value: copies name the same open file, and nothing closes by itself.
struct FileHandle
{
    std::intptr_t value = -1; // -1: none

    constexpr bool IsOpen() const { return value != -1; }
    friend constexpr bool operator==(FileHandle, FileHandle) = default;
};

/// How a file is opened, or-ed together. Without `OpenCreate` the file must exist.
enum OpenFlags : unsigned
{
    OpenReadOnly = 0x00,
    OpenReadWrite = 0x01,
    OpenWriteOnly = 0x02,
    OpenCreate = 0x10,    // makes the file if it is absent
    OpenTruncate = 0x20,  // empties a file that is there, once it is known that nobody else holds it
    OpenAppend = 0x40,    // each write goes to the end, whatever offset it names
    OpenExclusive = 0x80, // with OpenCreate: fails if the name exists in any form, a dangling link included
};

/// What other users of the library may do with the file while this handle is open. Other programs are not kept out.
enum class Share : unsigned
{
    DenyAll,   // one user: whoever writes
    DenyWrite, // any number of readers
    DenyNone,  // as DenyWrite towards those who deny; an archive's own handle
};

} // namespace Zem::Platform
