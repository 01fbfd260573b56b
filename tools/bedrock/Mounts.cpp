#include "Mounts.h"

#include <Bedrock/files/File.h>
#include <Bedrock/memory/PString.h>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace Tool
{

namespace
{

Mount Parse(const std::string& text)
{
    const auto wrong = [&](const char* why) { Fail(Exit::Usage, "--mount " + text, why); };
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos)
        wrong("expected NAME=PATH or NAME=PATH:ro");
    Mount mount;
    mount.name = text.substr(0, equals);
    mount.path = text.substr(equals + 1);
    mount.readOnly = mount.path.size() > 3 && mount.path.ends_with(":ro");
    if (mount.readOnly)
        mount.path.resize(mount.path.size() - 3);
    if (mount.name.size() < 2)
        wrong("the name needs two letters at least");
    if (mount.name.find_first_of(":/\\") != std::string::npos)
        wrong("the name may not hold a colon or a separator");
    if (mount.path.empty())
        wrong("the path is empty");

    struct stat status;
    if (stat(mount.path.c_str(), &status) != 0)
        FailSystem(mount.path, "cannot mount", errno);
    if (S_ISDIR(status.st_mode))
    {
        if (mount.path.back() != '/')
            mount.path += '/';
    }
    else if (!S_ISREG(status.st_mode))
        Fail(Exit::Disk, mount.path, "cannot mount: neither a folder nor an archive");
    if (mount.path.size() >= Zem::File::Path::capacity)
        Fail(Exit::Usage, mount.path, "cannot mount: longer than 259 bytes");
    return mount;
}

// An archive's first bytes; a file of fewer than four counts as an archive with no members.
bool LooksLikeArchive(const std::string& path)
{
    char magic[4] = {};
    std::FILE* const in = std::fopen(path.c_str(), "rb");
    if (!in)
        FailSystem(path, "cannot mount", errno);
    const std::size_t got = std::fread(magic, 1, sizeof magic, in);
    std::fclose(in);
    return got < 4 || std::memcmp(magic, "ARCH", 4) == 0;
}

// The path on disk of a name in a mounted folder, in the spelling that it has there; empty if it is not there.
std::string InFolder(const Mount& mount, const std::string& name)
{
    char path[Zem::File::Path::capacity];
    const std::string full = mount.alone + ':' + name;
    if (full.size() >= sizeof path)
        return {};
    std::memcpy(path, full.c_str(), full.size() + 1);
    return Zem::File::TrueName(path) ? path : "";
}

std::string_view Word(std::string_view name)
{
    const std::size_t colon = name.find(':');
    return colon == std::string_view::npos || colon < 2 ? std::string_view() : name.substr(0, colon);
}

} // namespace

std::string_view BehindWord(std::string_view name)
{
    name.remove_prefix(name.find(':') + 1);
    while (!name.empty() && (name.front() == '/' || name.front() == '\\'))
        name.remove_prefix(1);
    return name;
}

void Mounts::Register(const std::vector<std::string>& texts, bool writable)
{
    for (const std::string& text : texts)
    {
        Mount mount = Parse(text);
        if (!mount.IsFolder() && !LooksLikeArchive(mount.path))
            Fail(Exit::Bad, mount.path, "cannot mount: not an archive");
        if (writable && !mount.readOnly && !mount.IsFolder() && access(mount.path.c_str(), W_OK) != 0)
            FailSystem(mount.path, "cannot mount for writing (\":ro\" keeps writes out)", errno);
        mount.alone = "bedrock-mount-" + std::to_string(mounts.size());
        Zem::File::Subst(Zem::PString(mount.name.c_str()), mount.path.c_str(), writable && !mount.readOnly);
        Zem::File::Subst(Zem::PString(mount.alone.c_str()), mount.path.c_str(), false);
        mounts.push_back(std::move(mount));
    }
}

std::vector<const Mount*> Mounts::Of(std::string_view name) const
{
    std::vector<const Mount*> found;
    const std::string_view word = Word(name);
    for (auto mount = mounts.rbegin(); mount != mounts.rend(); ++mount)
        if (!word.empty() && mount->name == word)
            found.push_back(&*mount);
    return found;
}

std::string Mounts::ForFile(const std::string& path, bool writable)
{
    if (path.find(':') == std::string::npos)
        return path;
    const std::size_t slash = path.rfind('/');
    const std::size_t nameStart = slash == std::string::npos ? 0 : slash + 1;
    const std::string folder = nameStart ? path.substr(0, nameStart) : "./";
    const std::string word = "bedrock-folder-" + std::to_string(folders++);
    Zem::File::Subst(Zem::PString(word.c_str()), folder.c_str(), writable);
    return word + ':' + path.substr(nameStart);
}

std::string Mounts::OnDisk(const std::string& name) const
{
    const auto locations = Of(name);
    if (locations.empty())
        return name;
    const std::string rest(BehindWord(name));
    for (const Mount* mount : locations)
        if (mount->IsFolder())
            if (std::string path = InFolder(*mount, rest); !path.empty())
                return path;
    for (const Mount* mount : locations)
        if (!mount->IsFolder() && Zem::File::Exists((mount->alone + ':' + rest).c_str()))
            Fail(Exit::Usage, name, "lies inside an archive, and has to be a file on disk here");
    Fail(Exit::Disk, name, "no mounted folder has it");
}

std::string Mounts::ForWriting(const std::string& name) const
{
    const auto locations = Of(name);
    if (locations.empty())
        return name;
    for (const Mount* mount : locations)
        if (!mount->readOnly)
        {
            if (!mount->IsFolder())
                return {};
            const std::string rest(BehindWord(name));
            const std::string there = InFolder(*mount, rest);
            return there.empty() ? mount->path + rest : there;
        }
    Fail(Exit::Usage, name, "cannot write: every location of this mount is read-only");
}

} // namespace Tool
