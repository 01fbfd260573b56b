// bedrock archive: create, add, list, extract, test, repair.

#include "ArchiveBuilder.h"
#include "ArchiveIndex.h"
#include "Commands.h"
#include "Sources.h"

#include <Bedrock/files/BPE.h>
#include <Bedrock/files/File.h>
#include <Bedrock/host/Crc.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/memory/PString.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_set>

namespace Tool
{

namespace
{

constexpr std::size_t blockSize = 64 * 1024;
constexpr std::uint64_t largestMember = 0xFFFFFFFE;
constexpr std::uint64_t perFile = 4096; // what a file costs on the progress bar apart from its bytes

// A substitute over one archive and nothing else, for the time of a command.
class OpenArchive
{
public:
    OpenArchive(const std::string& path, bool writable) : word("bedrock-archive")
    {
        if (path.size() >= Zem::File::Path::capacity)
            Fail(Exit::Usage, path, "longer than 259 bytes");
        Zem::File::Subst(word, path.c_str(), writable);
    }
    ~OpenArchive()
    {
        try
        {
            Zem::File::Subst(word, nullptr, false);
        }
        catch (const Zem::Exception&)
        {
            // A member is still open, because its own failure is on its way to the user.
        }
    }
    OpenArchive(const OpenArchive&) = delete;
    OpenArchive& operator=(const OpenArchive&) = delete;

    const Zem::PString& Word() const { return word; }

private:
    Zem::PString word;
};

// Appends one member. The archive has it when this returns, and nothing of it otherwise.
void Store(const OpenArchive& archive, const Source& source, bool compress, std::vector<char>& block,
           Progress& progress)
{
    Reader in(source.path, source.onDisk);
    Zem::File out;
    const std::uint32_t mode =
        Zem::File::ModeCreate | (compress ? Zem::File::ModeWriteCompressed : Zem::File::ModeWrite);
    if (const auto result = out.Open(archive.Word(), source.member.c_str(), mode); !result)
        Fail(Exit::Disk, source.member, "cannot be stored: the temporary file for it cannot be made");
    std::uint64_t total = 0;
    while (const std::size_t n = in.Read(block.data(), block.size()))
    {
        total += n;
        if (total > largestMember)
            Fail(Exit::Usage, source.path, "cannot be stored: larger than 4 GiB");
        out.SafeWrite(block.data(), n, 1);
        progress.Advance(n, source.member);
        CheckInterrupt();
    }
    out.Close();
    progress.Advance(perFile, source.member);
}

struct Totals
{
    std::uint64_t members = 0, size = 0, stored = 0;

    void Add(const Record& record)
    {
        ++members;
        size += record.size;
        stored += record.stored;
    }
};

std::string Percent(std::uint64_t part, std::uint64_t whole)
{
    if (whole == 0)
        return "-";
    char text[32];
    std::snprintf(text, sizeof text, "%.0f %%", 100.0 * static_cast<double>(part) / static_cast<double>(whole));
    return text;
}

// The work that storing the sources is, for a progress bar.
std::uint64_t WorkOf(const std::vector<Source>& sources)
{
    std::uint64_t work = 0;
    for (const Source& source : sources)
    {
        if (source.size > largestMember)
            Fail(Exit::Usage, source.path, "cannot be stored: larger than 4 GiB");
        work += source.size + perFile;
    }
    return work;
}

// Throws if what was stored is not what the index of the archive shows behind the first `before` records.
Totals CheckStored(const std::string& path, const std::vector<Source>& sources, std::size_t before)
{
    const ArchiveIndex index(path);
    Totals totals;
    const auto& records = index.Records();
    bool same = records.size() == before + sources.size() && index.WholeSize() == index.FileSize();
    for (std::size_t i = 0; same && i < sources.size(); ++i)
    {
        same = records[before + i].name == sources[i].member;
        totals.Add(records[before + i]);
    }
    if (!same)
        Fail(Exit::Disk, path, "the archive does not hold what was stored; is another program writing to it?");
    return totals;
}

bool IsSameFile(const std::string& path, const Source& source)
{
    struct stat status;
    return source.onDisk && stat(path.c_str(), &status) == 0 && status.st_ino == source.inode &&
           status.st_dev == source.device;
}

// Members that the user named, by name, folder or pattern.
class Selection
{
public:
    explicit Selection(const std::vector<std::string>& names) : patterns(names), used(names.size(), false) {}
    bool Has(const Record& record)
    {
        bool found = patterns.empty();
        for (std::size_t i = 0; i < patterns.size(); ++i)
            if (Matches(record.name, patterns[i]))
                found = used[i] = true;
        return found;
    }
    // A pattern that chose nothing is a mistake, or an archive without what was expected.
    void ComplainOfUnused(Messages& messages) const
    {
        for (std::size_t i = 0; i < patterns.size(); ++i)
            if (!used[i])
                messages.Complain(Exit::Bad, patterns[i], "the archive has no such member");
    }

private:
    static bool Matches(const std::string& name, const std::string& pattern)
    {
        const std::string folded = ArchiveIndex::Folded(name), wanted = ArchiveIndex::Folded(pattern);
        if (folded == wanted)
            return true;
        const bool folder = wanted.ends_with('/');
        const std::string prefix = folder ? wanted : wanted + '/';
        if (folded.starts_with(prefix))
            return true;
        return !folder && Zem::File::Path::IsMatch(name.c_str(), pattern.c_str());
    }

    const std::vector<std::string>& patterns;
    std::vector<bool> used;
};

std::string Attributes(const Record& record)
{
    std::string text;
    text += record.IsCompressed() ? 'c' : '-';
    text += record.IsFolder() ? 'd' : '-';
    text += record.attributes & 0x02 ? 'h' : '-';
    text += record.attributes & 0x01 ? 'r' : '-';
    text += record.shadowed ? 's' : '-';
    return text;
}

std::string Torn(const ArchiveIndex& index)
{
    return "ends in a torn member: " + Count(index.FileSize() - index.WholeSize(), "byte") + " from offset " +
           std::to_string(index.WholeSize()) + " on";
}

// Reads a member from start to end, hands its bytes to `take`, and compares them with the size and checksum stored.
// What is wrong with the member, empty if nothing is.
template <class Take>
std::string ReadMember(const OpenArchive& archive, const Record& record, std::vector<char>& block, Take&& take)
{
    std::uint64_t total = 0;
    std::uint32_t crc = 0;
    try
    {
        Zem::File in;
        const std::uint32_t mode = record.IsCompressed() ? Zem::File::ModeRead : Zem::File::ModeReadPlain;
        if (const auto result = in.Open(archive.Word(), record.name.c_str(), mode); !result)
            return std::string("cannot be opened: ") + result.Text();
        if (record.IsCompressed() && !in.IsCompressed())
            return "is marked as compressed and is not";
        while (const std::uint32_t n = in.Read(block.data(), block.size(), 1))
        {
            crc = Zem::Crc::Calc(block.data(), n, crc);
            total += n;
            take(block.data(), n);
            CheckInterrupt();
        }
    }
    catch (const Zem::FileEx& failure)
    {
        return std::string("cannot be read: ") + failure.Reason();
    }
    if (record.size != 0xFFFFFFFF && total != record.size)
        return "holds " + Count(total, "byte") + " where " + std::to_string(record.size) + " were stored";
    if (crc != record.crc)
        return "the checksum is wrong: the contents were damaged";
    return {};
}

} // namespace

Exit ArchiveCreate(Mounts& mounts, const ArchiveOptions& options)
{
    Messages messages("archive create");
    const std::string target = mounts.IsMounted(options.archive) ? mounts.ForWriting(options.archive) : options.archive;
    Replacement out(target, options.force);
    std::vector<Source> sources = Collect(mounts, options.names, options.under, messages);
    std::erase_if(sources, [&](const Source& source) { return IsSameFile(target, source); });

    {
        Progress progress(WorkOf(sources));
        ArchiveBuilder builder(out.Path(), target);
        for (const Source& source : sources)
        {
            builder.Add(source, options.compress, progress);
            progress.Advance(perFile, source.member);
        }
        builder.Finish();
    }
    const Totals totals = CheckStored(out.Path(), sources, 0);
    out.Commit();
    std::printf("%s: %s, %s stored in %s\n", Shown(options.archive).c_str(), Count(totals.members, "member").c_str(),
                Bytes(totals.size).c_str(), Bytes(totals.stored).c_str());
    return messages.Worst();
}

Exit ArchiveAdd(Mounts& mounts, const ArchiveOptions& options)
{
    Messages messages("archive add");
    const std::string path = mounts.OnDisk(options.archive);
    const ArchiveIndex before(path);
    if (before.WholeSize() != before.FileSize())
        Fail(Exit::Bad, options.archive, Torn(before) + "; run `bedrock archive repair` first");
    if (access(path.c_str(), W_OK) != 0)
        FailSystem(options.archive, "cannot open for writing", errno);
    std::vector<Source> sources = Collect(mounts, options.names, options.under, messages);
    std::erase_if(sources, [&](const Source& source) { return IsSameFile(path, source); });

    std::unordered_set<std::string> names;
    for (const Record& record : before.Records())
        names.insert(ArchiveIndex::Folded(record.name));
    for (const Source& source : sources)
        if (names.contains(ArchiveIndex::Folded(source.member)))
        {
            constexpr const char* why = "the archive has this member already, and the old version stays the one found";
            if (options.shadowed)
                messages.Note(source.member, why);
            else
                messages.Complain(Exit::Bad, source.member, why);
        }
    if (messages.Worst() != Exit::Done)
        Fail(messages.Worst(), options.archive, "nothing was added (--shadowed appends all the same)");

    {
        Progress progress(WorkOf(sources));
        const OpenArchive archive(path, true);
        std::vector<char> block(blockSize);
        for (const Source& source : sources)
            Store(archive, source, options.compress, block, progress);
    }
    const Totals totals = CheckStored(path, sources, before.Records().size());
    std::printf("%s: %s added, %s stored in %s\n", Shown(options.archive).c_str(),
                Count(totals.members, "member").c_str(), Bytes(totals.size).c_str(), Bytes(totals.stored).c_str());
    return messages.Worst();
}

Exit ArchiveList(Mounts& mounts, const ArchiveOptions& options)
{
    Messages messages("archive list");
    const ArchiveIndex index(mounts.OnDisk(options.archive));
    Selection selection(options.names);
    Totals totals;
    Json json;
    if (options.json)
        json.Array();
    else
        std::printf("%11s %11s %7s  %-5s  %s\n", "SIZE", "STORED", "RATIO", "ATTR", "NAME");
    for (const Record& record : index.Records())
    {
        if (!selection.Has(record))
            continue;
        totals.Add(record);
        if (options.json)
        {
            char crc[16];
            std::snprintf(crc, sizeof crc, "%08x", record.crc);
            json.Object().Text("name", record.name).Number("size", record.size).Number("stored", record.stored);
            json.Text("crc", crc).Number("attributes", record.attributes).Bool("compressed", record.IsCompressed());
            json.Bool("shadowed", record.shadowed).Number("offset", record.offset).End();
        }
        else
            std::printf("%11u %11u %7s  %s  %s\n", record.size, record.stored,
                        Percent(record.stored, record.size).c_str(), Attributes(record).c_str(),
                        Shown(record.name).c_str());
    }
    if (options.json)
        json.End();
    else
        std::printf("%11llu %11llu %7s         %s\n", static_cast<unsigned long long>(totals.size),
                    static_cast<unsigned long long>(totals.stored), Percent(totals.stored, totals.size).c_str(),
                    Count(totals.members, "member").c_str());
    if (index.WholeSize() != index.FileSize())
        messages.Complain(Exit::Bad, options.archive, Torn(index));
    selection.ComplainOfUnused(messages);
    return messages.Worst();
}

Exit ArchiveExtract(Mounts& mounts, const ArchiveOptions& options)
{
    Messages messages("archive extract");
    const std::string path = mounts.OnDisk(options.archive);
    const ArchiveIndex index(path);
    const OpenArchive archive(path, false);
    TargetFolder folder(mounts.IsMounted(options.folder) ? mounts.ForWriting(options.folder) : options.folder);

    Selection selection(options.names);
    std::vector<const Record*> chosen;
    std::uint64_t work = 0;
    for (const Record& record : index.Records())
        if (selection.Has(record) && !record.shadowed) // a shadowed one could only overwrite what everybody else sees
        {
            chosen.push_back(&record);
            work += record.stored + perFile;
        }

    Progress progress(work);
    std::vector<char> block(blockSize);
    std::uint64_t extracted = 0, bytes = 0;
    for (const Record* record : chosen)
    {
        progress.Advance(record->stored + perFile, record->name);
        if (const std::string refusal = TargetFolder::Refusal(record->name); !refusal.empty())
        {
            messages.Complain(Exit::Bad, record->name, refusal);
            continue;
        }
        try
        {
            if (record->IsFolder() && record->stored == 0)
            {
                folder.MakeFolder(record->name);
                continue;
            }
            TargetFolder::NewFile out(folder, record->name, options.force);
            const std::string wrong =
                ReadMember(archive, *record, block, [&](const char* data, std::size_t n) { out.Write(data, n); });
            if (!wrong.empty())
            {
                messages.Complain(Exit::Bad, record->name, wrong + "; not extracted");
                continue;
            }
            out.Commit();
            ++extracted;
            bytes += record->size;
        }
        catch (const Failure& failure)
        {
            if (failure.exit != Exit::Bad)
                throw;
            messages.Complain(failure.exit, record->name, failure.text.substr(Shown(record->name).size() + 2));
        }
    }
    if (index.WholeSize() != index.FileSize())
        messages.Complain(Exit::Bad, options.archive, Torn(index));
    selection.ComplainOfUnused(messages);
    Progress::Clear();
    std::printf("%s extracted, %s\n", Count(extracted, "member").c_str(), Bytes(bytes).c_str());
    return messages.Worst();
}

namespace
{

// What is wrong with a record that no lookup finds, so that it is read past `Zem::File`; empty if nothing is.
std::string CheckShadowed(std::ifstream& in, const Record& record)
{
    std::vector<char> stored(blockSize), logical(blockSize);
    std::uint64_t left = record.stored;
    const auto take = [&](std::size_t count)
    {
        if (count > left || !in.read(stored.data(), static_cast<std::streamsize>(count)))
            return false;
        left -= count;
        return true;
    };
    in.clear();
    in.seekg(static_cast<std::streamoff>(record.offset));
    std::uint32_t crc = 0;
    if (record.IsCompressed() && (!take(4) || std::memcmp(stored.data(), "CFIL", 4) != 0))
        return "is no compressed stream";
    while (left > 0)
    {
        std::uint32_t count = static_cast<std::uint32_t>(left < blockSize ? left : blockSize);
        const char* bytes = stored.data();
        if (record.IsCompressed())
        {
            if (!take(2))
                return "ends inside a frame";
            const unsigned header = static_cast<unsigned char>(stored[0]) | static_cast<unsigned char>(stored[1]) << 8;
            count = header & 0x7FFF;
            if (count == 0 || count > Zem::File::blockSize || !take(count))
                return "has a damaged frame";
            if (!(header & 0x8000))
            {
                const std::uint32_t packed = count;
                if (!Zem::BPE::DecompBounded(logical.data(), Zem::File::blockSize, stored.data(), packed, count))
                    return "has a damaged frame";
                bytes = logical.data();
            }
        }
        else if (!take(count))
            return "cannot be read";
        crc = Zem::Crc::Calc(bytes, count, crc);
    }
    return crc == record.crc ? "" : "the checksum is wrong";
}

} // namespace

Exit ArchiveTest(Mounts& mounts, const ArchiveOptions& options)
{
    Messages messages("archive test");
    const std::string path = mounts.OnDisk(options.archive);
    const ArchiveIndex index(path);
    const OpenArchive archive(path, false);

    std::uint64_t work = 0;
    for (const Record& record : index.Records())
        work += record.stored + perFile;
    Progress progress(work);
    std::vector<char> block(blockSize);
    Selection selection(options.names);
    std::uint64_t tested = 0, bad = 0, shadowed = 0;
    std::ifstream raw(path, std::ios::binary);
    Json json;
    if (options.json)
        json.Object().Array("bad");
    for (const Record& record : index.Records())
    {
        progress.Advance(record.stored + perFile, record.name);
        if (!selection.Has(record))
            continue;
        ++tested;
        shadowed += record.shadowed;
        const std::string wrong = record.shadowed ? CheckShadowed(raw, record)
                                                  : ReadMember(archive, record, block, [](const char*, std::size_t) {});
        if (wrong.empty())
            continue;
        ++bad;
        messages.Complain(Exit::Bad, record.name, wrong);
        if (options.json)
            json.Object().Text("name", record.name).Text("reason", wrong).End();
    }
    if (index.Nameless())
        messages.Complain(Exit::Bad, options.archive, Count(index.Nameless(), "member") + " without a proper name");
    const std::uint64_t torn = index.FileSize() - index.WholeSize();
    if (torn)
        messages.Complain(Exit::Bad, options.archive, Torn(index) + "; `bedrock archive repair` cuts it off");
    selection.ComplainOfUnused(messages);

    Progress::Clear();
    if (options.json)
        json.End().Number("tested", tested).Number("shadowed", shadowed).Number("torn", torn).End();
    else if (bad)
        std::printf("%s: %llu of %s bad\n", Shown(options.archive).c_str(), static_cast<unsigned long long>(bad),
                    Count(tested, "member").c_str());
    else if (tested || messages.Worst() == Exit::Done)
        std::printf("%s: %s tested, all good%s\n", Shown(options.archive).c_str(), Count(tested, "member").c_str(),
                    torn ? ", but the end is torn" : "");
    return messages.Worst();
}

Exit ArchiveRepair(Mounts& mounts, const ArchiveOptions& options)
{
    const std::string path = mounts.OnDisk(options.archive);
    const Descriptor file(open(path.c_str(), O_RDWR | O_CLOEXEC));
    if (!file)
        FailSystem(path, "cannot open for writing", errno);
    const ArchiveIndex index(path);
    const std::uint64_t torn = index.FileSize() - index.WholeSize();
    if (torn == 0)
    {
        std::printf("%s: whole, nothing to repair\n", Shown(options.archive).c_str());
        return Exit::Done;
    }

    // A damaged length in the middle looks like a torn end too, and good members may follow it: so the bytes are kept.
    std::string copyPath;
    if (!options.discard)
    {
        copyPath = path + ".cut";
        Replacement copy(copyPath, false);
        {
            const Descriptor out(open(copy.Path().c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
            if (!out)
                FailSystem(copyPath, "cannot create", errno);
            std::vector<char> block(blockSize);
            for (std::uint64_t at = index.WholeSize(); at < index.FileSize();)
            {
                const ssize_t n = pread(file.Get(), block.data(), block.size(), static_cast<off_t>(at));
                if (n < 0 && errno == EINTR)
                    continue;
                if (n <= 0)
                    FailSystem(path, "cannot read", n < 0 ? errno : EIO);
                if (write(out.Get(), block.data(), static_cast<std::size_t>(n)) != n)
                    FailSystem(copyPath, "cannot write", errno ? errno : ENOSPC);
                at += static_cast<std::uint64_t>(n);
            }
            if (fsync(out.Get()) != 0)
                FailSystem(copyPath, "cannot write", errno);
        }
        copy.Commit();
    }
    struct stat status;
    if (fstat(file.Get(), &status) != 0 || static_cast<std::uint64_t>(status.st_size) != index.FileSize())
        Fail(Exit::Disk, path, "another program is writing to it; nothing was cut");
    if (ftruncate(file.Get(), static_cast<off_t>(index.WholeSize())) != 0 || fsync(file.Get()) != 0)
        FailSystem(path, "cannot cut", errno);
    std::printf("%s: cut %s of a torn member from the end; %s whole\n", Shown(options.archive).c_str(),
                Count(torn, "byte").c_str(), Count(index.Records().size(), "member is", "members are").c_str());
    if (!copyPath.empty())
        std::printf("What was cut off is kept in %s\n", Shown(copyPath).c_str());
    return Exit::Done;
}

} // namespace Tool
