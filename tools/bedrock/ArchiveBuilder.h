#pragma once

// Writes a new archive from start to end.
//
// The library appends a member so that no crash ever costs more than this one: a temporary file and two waits for the
// disk each. A new archive has no name yet while it is made, so all that would be for nothing: here the members go
// straight into the file, and the disk is waited for once. The bytes are the same.

#include "Output.h"
#include "Sources.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Tool
{

class ArchiveBuilder
{
public:
    /// Creates the file `path`, which must not be there yet. Messages call it `shownName`.
    ArchiveBuilder(const std::string& path, const std::string& shownName);

    void Add(const Source& source, bool compress, Progress& progress);

    /// Writes what is still buffered, and waits until all of it is on the device.
    void Finish();

private:
    void Put(const void* data, std::size_t size);
    void PutFrame(const unsigned char* data, std::uint32_t size, std::uint32_t& stored);
    void Patch(std::uint64_t offset, const void* data, std::size_t size);
    void Flush();
    void WriteAt(std::uint64_t offset, const void* data, std::size_t size);

    std::string shown;
    Descriptor file;
    std::vector<unsigned char> buffer; // bytes from offset `flushed` on that are not written yet
    std::uint64_t flushed = 0;
};

} // namespace Tool
