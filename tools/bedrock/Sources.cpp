#include "Sources.h"

#include "ArchiveIndex.h"

#include <Bedrock/files/File.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_map>

namespace Tool
{

namespace
{

namespace fs = std::filesystem;

// While a member is written, the name of its temporary file stands behind its own in the same 260 bytes.
constexpr std::size_t longestMember = Zem::File::Path::capacity - 14;

class Collector
{
public:
    Collector(const Mounts& allMounts, const std::string& folder, Messages& output)
        : mounts(allMounts), under(folder), messages(output)
    {
    }

    void Add(const std::string& name)
    {
        if (mounts.IsMounted(name))
            AddMounted(name);
        else
            AddPath(name);
    }

    std::vector<Source> Sorted();

private:
    void AddPath(const std::string& path);
    void AddFolder(const fs::path& folder);
    void AddMounted(const std::string& name);
    void AddFile(const std::string& path, const std::string& member, const struct stat& status);
    std::string Member(const std::string& name) const;

    const Mounts& mounts;
    const std::string& under;
    Messages& messages;
    std::vector<Source> sources;
};

std::string Collector::Member(const std::string& name) const
{
    std::string member = under;
    while (!member.empty() && member.back() == '/')
        member.pop_back();
    if (!member.empty())
        member += '/';
    member += name;
    if (const std::string refusal = TargetFolder::Refusal(member); !refusal.empty())
        Fail(Exit::Usage, member, "cannot be a member, " + refusal);
    if (member.size() > longestMember)
        Fail(Exit::Usage, member, "cannot be a member: longer than " + std::to_string(longestMember) + " bytes");
    return member;
}

void Collector::AddFile(const std::string& path, const std::string& member, const struct stat& status)
{
    sources.push_back(
        {Member(member), path, true, static_cast<std::uint64_t>(status.st_size), status.st_dev, status.st_ino});
}

void Collector::AddPath(const std::string& path)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0)
        FailSystem(path, "cannot open", errno);
    if (S_ISDIR(status.st_mode))
        AddFolder(path);
    else if (S_ISREG(status.st_mode))
        AddFile(path, fs::path(path).filename().string(), status);
    else
        Fail(Exit::Usage, path, "is neither a file nor a folder");
}

void Collector::AddFolder(const fs::path& folder)
{
    std::error_code error;
    fs::recursive_directory_iterator entry(folder, error);
    for (const fs::recursive_directory_iterator end; !error && entry != end; entry.increment(error))
    {
        const std::string path = entry->path().string();
        struct stat status;
        if (stat(path.c_str(), &status) != 0)
            FailSystem(path, "cannot open", errno);
        if (S_ISREG(status.st_mode))
            AddFile(path, entry->path().lexically_relative(folder).generic_string(), status);
        else if (!S_ISDIR(status.st_mode))
            messages.Note(path, "passed over: no regular file");
        else if (entry->is_symlink(error))
            messages.Note(path, "passed over: a link to a folder");
        CheckInterrupt();
    }
    if (error)
        Fail(Exit::Disk, folder.string(), "cannot read the folder: " + error.message());
}

void Collector::AddMounted(const std::string& name)
{
    Zem::File file;
    const auto result = file.Open(name.c_str(), Zem::File::ModeRead);
    if (!result)
        Fail(Exit::Disk, name, std::string("cannot open: ") + result.Text());
    file.Close();
    const std::string_view rest = BehindWord(name);
    sources.push_back({Member(std::string(rest.substr(rest.rfind('/') + 1))), name, false, 0, 0, 0});
}

std::vector<Source> Collector::Sorted()
{
    std::sort(sources.begin(), sources.end(), [](const Source& a, const Source& b) { return a.member < b.member; });
    std::unordered_map<std::string, const Source*> names;
    for (const Source& source : sources)
    {
        const auto [at, isNew] = names.try_emplace(ArchiveIndex::Folded(source.member), &source);
        if (!isNew)
            Fail(Exit::Usage, source.member,
                 "cannot be a member beside \"" + Shown(at->second->path) +
                     "\": an archive does not tell upper case from lower");
    }
    return std::move(sources);
}

} // namespace

std::vector<Source> Collect(const Mounts& mounts, const std::vector<std::string>& names, const std::string& under,
                            Messages& messages)
{
    Collector collector(mounts, under, messages);
    for (const std::string& name : names)
        collector.Add(name);
    return collector.Sorted();
}

std::string WhyNotReadable(const std::string& path)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0 || access(path.c_str(), R_OK) != 0)
        return std::strerror(errno);
    return S_ISDIR(status.st_mode) ? "is a folder" : "";
}

Reader::Reader(const std::string& name, bool onDisk) : path(name)
{
    if (onDisk)
    {
        disk = Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC));
        if (!disk)
            FailSystem(path, "cannot open", errno);
        return;
    }
    file = std::make_unique<Zem::File>();
    if (const auto result = file->Open(path.c_str(), Zem::File::ModeRead); !result)
        Fail(Exit::Disk, path, std::string("cannot open: ") + result.Text());
}

Reader::~Reader() = default;
Reader::Reader(Reader&&) noexcept = default;

std::size_t Reader::Read(void* dst, std::size_t size)
{
    if (file)
        return file->Read(dst, size, 1);
    for (;;)
    {
        const ssize_t n = read(disk.Get(), dst, size);
        if (n >= 0)
            return static_cast<std::size_t>(n);
        if (errno != EINTR)
            FailSystem(path, "cannot read", errno);
    }
}

} // namespace Tool
