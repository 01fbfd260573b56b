#pragma once

// The commands, one function each. They print what was asked for on standard output, throw a `Failure` for what ends
// them, and return the exit code otherwise.

#include "Mounts.h"

#include <string>
#include <vector>

namespace Tool
{

struct ArchiveOptions
{
    std::string archive;
    std::vector<std::string> names; // sources of create and add; members or patterns of list, extract, test
    std::string folder = ".";       // extract: where to
    std::string under;              // create, add: folder in the archive
    bool compress = false;
    bool force = false;
    bool shadowed = false;
    bool discard = false; // repair: keeps no copy of what is cut
    bool json = false;
};

Exit ArchiveCreate(Mounts& mounts, const ArchiveOptions& options);
Exit ArchiveAdd(Mounts& mounts, const ArchiveOptions& options);
Exit ArchiveList(Mounts& mounts, const ArchiveOptions& options);
Exit ArchiveExtract(Mounts& mounts, const ArchiveOptions& options);
Exit ArchiveTest(Mounts& mounts, const ArchiveOptions& options);
Exit ArchiveRepair(Mounts& mounts, const ArchiveOptions& options);

struct FileOptions
{
    std::vector<std::string> inputs; // of info
    std::string input;               // of all others
    std::string output;
    bool force = false;
    bool flat = false; // chunk dump: does not look for blocks in blocks
    bool json = false;
    bool namesOnly = false; // find: a line holds the name and nothing else
};

Exit StreamCompress(Mounts& mounts, const FileOptions& options);
Exit StreamExpand(Mounts& mounts, const FileOptions& options);
Exit StreamInfo(Mounts& mounts, const FileOptions& options);

Exit ImageInfo(Mounts& mounts, const FileOptions& options);
Exit ImageConvert(Mounts& mounts, const FileOptions& options);

/// image scale, crop, adjust, draw.
struct EditOptions
{
    std::string input;
    std::string output;
    std::string shapes;    // draw: the file that lists them
    std::vector<int> size; // scale: width, height
    std::vector<int> rect; // crop: x, y, width, height
    float brightness = 1;  // adjust, 0 to 2
    float contrast = 1;    // adjust, 0 to 2
    float saturation = 1;  // adjust, 0 and more
    bool force = false;
};

Exit ImageScale(Mounts& mounts, const EditOptions& options);
Exit ImageCrop(Mounts& mounts, const EditOptions& options);
Exit ImageAdjust(Mounts& mounts, const EditOptions& options);
Exit ImageDraw(Mounts& mounts, const EditOptions& options);

Exit ChunkDumpCommand(Mounts& mounts, const FileOptions& options);
Exit BlockDumpCommand(Mounts& mounts, const FileOptions& options);

struct ViewOptions
{
    std::vector<std::string> images;
    bool fullscreen = false;
};

Exit View(Mounts& mounts, const ViewOptions& options);

Exit Find(Mounts& mounts, const FileOptions& options);
Exit Which(Mounts& mounts, const FileOptions& options);
Exit Info(const FileOptions& options);

struct OptionsOptions
{
    std::string prefix;                 // of the application's variable and option files
    std::string program;                // its path: an option file may lie beside it
    std::vector<std::string> sources;   // these instead, in this order
    std::vector<std::string> keys;      // show these alone
    std::vector<std::string> arguments; // of the application
    bool json = false;
};

Exit ShowOptions(Mounts& mounts, const OptionsOptions& options);

} // namespace Tool
