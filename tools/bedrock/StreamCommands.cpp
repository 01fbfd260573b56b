// bedrock stream: compress, expand, info.

#include "Commands.h"
#include "Output.h"
#include "Sources.h"

#include <Bedrock/files/File.h>
#include <Bedrock/host/Exception.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tool
{

namespace
{

constexpr std::uint32_t frameSize = Zem::File::blockSize; // logical bytes of every frame but the last

// The frames of a compressed stream as their headers tell:
//
//     "CFIL"  { header: 16 bits, little-endian; payload } ...
//
// Bit 15 of a header: the payload is stored as it is, and bits 0 to 14 are its length; otherwise the header is the
// length of a compressed payload.
struct Frames
{
    std::uint64_t stored = 0;
    std::uint64_t compressed = 0;
    std::uint64_t fileSize = 0;
    bool lastIsStored = false;
    std::uint32_t lastLength = 0; // payload bytes

    std::uint64_t Count() const { return stored + compressed; }
};

// Walks the headers of the stream at `path`, a path on disk. Throws a `Failure` for a file that is no stream or whose
// frames do not end where it ends.
Frames Walk(const std::string& path, const std::string& shown)
{
    struct stat status;
    if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) // a pipe is told, not waited for
        Fail(Exit::Disk, shown, "cannot open: is no regular file");
    std::FILE* const in = std::fopen(path.c_str(), "rb");
    if (!in)
        FailSystem(shown, "cannot open", errno);
    struct Closer
    {
        std::FILE* file;
        ~Closer() { std::fclose(file); }
    } closer{in};
    if (fstat(fileno(in), &status) != 0 || !S_ISREG(status.st_mode))
        Fail(Exit::Disk, shown, "cannot open: is no regular file");

    Frames frames;
    frames.fileSize = static_cast<std::uint64_t>(status.st_size);
    char magic[4];
    if (std::fread(magic, 1, 4, in) != 4 || std::memcmp(magic, "CFIL", 4) != 0)
        Fail(Exit::Bad, shown, "is not a compressed stream");
    std::uint64_t at = 4;
    while (at < frames.fileSize)
    {
        unsigned char header[2];
        const auto frame = [&]
        { return "frame " + std::to_string(frames.Count() + 1) + " at offset " + std::to_string(at); };
        if (std::fread(header, 1, 2, in) != 2)
            Fail(Exit::Bad, shown, "is cut short: " + frame() + " has half a header");
        const unsigned word = header[0] | header[1] << 8;
        const unsigned length = word & 0x7FFF;
        const bool isStored = (word & 0x8000) != 0;
        if (length == 0 || length > frameSize)
            Fail(Exit::Bad, shown, "is damaged: " + frame() + " has a length of " + std::to_string(length));
        if (at + 2 + length > frames.fileSize)
            Fail(Exit::Bad, shown, "is cut short: " + frame() + " goes past the end");
        at += 2 + length;
        if (isStored && length < frameSize && at < frames.fileSize)
            Fail(Exit::Bad, shown, "is damaged: a frame before the last is short");
        ++(isStored ? frames.stored : frames.compressed);
        frames.lastIsStored = isStored;
        frames.lastLength = length;
        if (std::fseek(in, static_cast<long>(length), SEEK_CUR) != 0)
            FailSystem(shown, "cannot read", errno);
    }
    return frames;
}

// Reads a stream of known frames from start to end and hands its bytes to `take`: the logical length. A stream does not
// say how long it is, and reading behind its last frame is a failure, so the last frame is read in two steps: its first
// byte brings the frame in, and what is left of it comes until the reader meets the end. Throws a `Failure` for damage.
template <class Take>
std::uint64_t Expand(const std::string& opened, const std::string& shown, const Frames& frames, Take&& take)
{
    std::vector<char> block(frameSize);
    Zem::File in;
    std::uint64_t frame = 1;
    try
    {
        if (const auto result = in.Open(opened.c_str(), Zem::File::ModeReadCompressed); !result)
            Fail(Exit::Disk, shown, std::string("cannot open: ") + result.Text());
        for (; frame < frames.Count(); ++frame)
        {
            in.SafeRead(block.data(), frameSize, 1);
            take(block.data(), frameSize);
            CheckInterrupt();
        }
        if (frames.Count() == 0)
            return 0;
        std::uint32_t last = in.Read(block.data(), 1, 1);
        if (last == 1 && (frames.lastIsStored ? frames.lastLength : frameSize) > 1)
        {
            const std::uint32_t before = in.Tell();
            try
            {
                const std::uint32_t rest = (frames.lastIsStored ? frames.lastLength : frameSize) - 1;
                last += in.Read(block.data() + 1, rest, 1);
            }
            catch (const Zem::FileEx&)
            {
                last += in.Tell() - before; // the frame is in hand: only its end can be what failed
            }
        }
        take(block.data(), last);
        return (frames.Count() - 1) * frameSize + last;
    }
    catch (const Zem::FileEx& failure)
    {
        Fail(Exit::Bad, shown, "frame " + std::to_string(frame) + " is damaged: " + failure.Reason());
    }
}

std::uint64_t SizeOnDisk(const std::string& path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

} // namespace

Exit StreamCompress(Mounts& mounts, const FileOptions& options)
{
    const std::string& name = options.input;
    const bool mounted = mounts.IsMounted(name);
    Reader in(name, !mounted);
    const std::string path = mounts.ForWriting(options.output);
    const auto write = [&](const std::string& target)
    {
        Zem::File out;
        if (!out.Open(target.c_str(), Zem::File::ModeCreate | Zem::File::ModeWriteCompressed))
            Fail(Exit::Disk, options.output, "cannot create");
        Progress progress(mounted ? 0 : SizeOnDisk(name));
        std::vector<char> block(4 * frameSize);
        std::uint64_t total = 0;
        while (const std::size_t n = in.Read(block.data(), block.size()))
        {
            if (total == 0 && !mounted && n >= 4 && std::memcmp(block.data(), "CFIL", 4) == 0)
                Fail(Exit::Bad, name, "is a compressed stream already");
            total += n;
            if (total > 0xFFFFFFFE)
                Fail(Exit::Usage, name, "cannot be compressed: larger than 4 GiB");
            out.SafeWrite(block.data(), n, 1);
            progress.Advance(n, name);
            CheckInterrupt();
        }
        out.Close();
        return total;
    };

    if (path.empty())
    {
        if (Zem::File::Exists(options.output.c_str()))
            Fail(Exit::Usage, options.output,
                 "the mounted archive has this member already, and the old version stays the one found");
        write(options.output);
        return Exit::Done;
    }
    Replacement out(path, options.force);
    const std::uint64_t total = write(mounts.ForFile(out.Path(), true));
    const std::uint64_t stored = SizeOnDisk(out.Path());
    out.Commit();
    std::printf("%s: %s stored in %s\n", Shown(options.output).c_str(), Bytes(total).c_str(), Bytes(stored).c_str());
    return Exit::Done;
}

Exit StreamExpand(Mounts& mounts, const FileOptions& options)
{
    const std::string& name = options.input;
    const std::string path = mounts.OnDisk(name);
    const Frames frames = Walk(path, name);
    const std::string target = mounts.ForWriting(options.output);
    if (target.empty())
        Fail(Exit::Usage, options.output,
             "cannot be written: a plain copy goes to a file on disk, not into an archive");

    Replacement out(target, options.force);
    std::FILE* const file = std::fopen(out.Path().c_str(), "wbx");
    if (!file)
        FailSystem(options.output, "cannot create", errno);
    struct Closer
    {
        std::FILE* file;
        ~Closer()
        {
            if (file)
                std::fclose(file);
        }
    } closer{file};
    Progress progress(frames.Count());
    const std::uint64_t total = Expand(mounts.ForFile(path, false), name, frames,
                                       [&](const char* data, std::size_t n)
                                       {
                                           if (std::fwrite(data, 1, n, file) != n)
                                               FailSystem(options.output, "cannot write", errno);
                                           progress.Advance(1, name);
                                       });
    closer.file = nullptr;
    if (std::fclose(file) != 0)
        FailSystem(options.output, "cannot write", errno);
    out.Commit();
    Progress::Clear();
    std::printf("%s: %s\n", Shown(options.output).c_str(), Bytes(total).c_str());
    return Exit::Done;
}

Exit StreamInfo(Mounts& mounts, const FileOptions& options)
{
    Messages messages("stream info");
    Json json;
    if (options.json)
        json.Array();
    else
        std::printf("%11s %11s %7s %8s %8s  %s\n", "SIZE", "STORED", "RATIO", "PACKED", "PLAIN", "NAME");
    for (const std::string& name : options.inputs)
    {
        try
        {
            const std::string path = mounts.OnDisk(name);
            const Frames frames = Walk(path, name);
            const std::uint64_t size =
                Expand(mounts.ForFile(path, false), name, frames, [](const char*, std::size_t) {});
            if (options.json)
                json.Object()
                    .Text("name", name)
                    .Number("size", size)
                    .Number("stored", frames.fileSize)
                    .Number("compressed_frames", frames.compressed)
                    .Number("stored_frames", frames.stored)
                    .End();
            else
                std::printf("%11llu %11llu %5.0f %% %8llu %8llu  %s\n", static_cast<unsigned long long>(size),
                            static_cast<unsigned long long>(frames.fileSize),
                            size ? 100.0 * static_cast<double>(frames.fileSize) / static_cast<double>(size) : 100.0,
                            static_cast<unsigned long long>(frames.compressed),
                            static_cast<unsigned long long>(frames.stored), Shown(name).c_str());
        }
        catch (const Failure& failure)
        {
            messages.Complain(failure.exit, name,
                              failure.text.substr(std::min(failure.text.size(), Shown(name).size() + 2)));
        }
    }
    if (options.json)
        json.End();
    return messages.Worst();
}

} // namespace Tool
