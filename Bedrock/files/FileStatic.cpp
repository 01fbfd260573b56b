// File: the operations on names. What registers and looks up substitutes stands in FileSubst.cpp.

#include <Bedrock/files/File.h>

#include <Bedrock/files/FileSub.h>
#include <Bedrock/files/FileSubstList.h>
#include <Bedrock/files/NameCase.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/memory/PString.h>
#include <Bedrock/platform/Files.h>

namespace Zem
{

namespace
{

bool Fits(const char* name)
{
    return name && std::strlen(name) < FilePath::capacity;
}

bool IsSeparator(char c)
{
    return c == '/' || c == '\\';
}

// Behind the colon, without one leading separator.
const char* Inside(const char* name)
{
    const char* path = FilePath::GetPath(name);
    return IsSeparator(*path) ? path + 1 : path;
}

// A call of the system for a plain name in any case.
template <class Operation>
bool OnDisk(const char* name, Operation operation)
{
    FilePath path(name);
    return NameCase::Find(path, operation) == Platform::Status::Ok;
}

// The substitute that a name or a word means, or null; it stays while this object lives.
class Asked
{
public:
    explicit Asked(const char* name) noexcept : found(FilePath::GetSubst(name)) {}
    explicit Asked(const PString& word) noexcept : found(word.Length() > 0 ? FileSubstList::Find(word) : nullptr) {}
    explicit operator bool() const noexcept { return found != nullptr; }
    FileSubstitute* operator->() const noexcept { return found; }

private:
    const FileSubstList::Walk walk;
    FileSubstitute* const found;
};

} // namespace

File::Result File::Exists(const char* path)
{
    if (!Fits(path))
        return RES_FILENOTFOUND;
    if (const Asked found(path); found)
    {
        PString word;
        return found->Exists(word, Inside(path));
    }
    Path plain(path);
    return NameCase::Exists(plain) ? RES_OK : RES_FILENOTFOUND;
}

File::Result File::Exists(PString& subst, const char* path)
{
    const Asked found(subst);
    if (!found)
        return Exists(path);
    return Fits(path) ? found->Exists(subst, path) : Result(RES_FILENOTFOUND);
}

bool File::Unlink(const char* path)
{
    if (!Fits(path))
        return false;
    if (const Asked found(path); found)
        return found->Unlink(Inside(path));
    return OnDisk(path, Platform::Remove);
}

bool File::Unlink(const PString& subst, const char* path)
{
    const Asked found(subst);
    return found ? Fits(path) && found->Unlink(path) : Unlink(path);
}

bool File::Rename(const char* from, const char* to)
{
    if (!Fits(from) || !Fits(to))
        return false;
    if (const Asked found(from); found)
        return found->Rename(Path::GetPath(from), Path::GetPath(to));
    Path source(from);
    Path target(to);
    return NameCase::Rename(source, target);
}

bool File::Rename(const PString& subst, const char* from, const char* to)
{
    const Asked found(subst);
    return found ? Fits(from) && Fits(to) && found->Rename(from, to) : Rename(from, to);
}

bool File::Cd(const char* path)
{
    return Fits(path) && OnDisk(path, Platform::ChangeFolder);
}

bool File::Rd(const char* path)
{
    return Fits(path) && OnDisk(path, Platform::RemoveFolder);
}

bool File::Md(const char* path)
{
    if (!Fits(path))
        return false;
    Path rest(path);
    Path made("");
    while (rest.Length() > 0)
    {
        made.Add(rest.ExtractFirstPath());
        if (NameCase::Exists(made))
            continue;
        const Platform::Status status = Platform::MakeFolder(made);
        if (status != Platform::Status::Ok && status != Platform::Status::Exists) // made by another just now
            return false;
    }
    return true;
}

bool File::GetStamp(Time& time, const char* path)
{
    if (!Fits(path))
        return false;
    if (const Asked found(path); found)
    {
        time = 0;
        return found->GetStamp(time, Inside(path));
    }
    Platform::FileInfo info;
    if (!OnDisk(path, [&](const char* plain) { return Platform::GetInfo(plain, info); }))
        return false;
    time = static_cast<std::int32_t>(info.modified);
    return true;
}

void File::SetStamp(Time& time, const char* path)
{
    Platform::FileInfo info;
    const auto set = [&](const char* plain)
    {
        const Platform::Status status = Platform::GetInfo(plain, info);
        return status == Platform::Status::Ok ? Platform::SetTimes(plain, info.accessed, time.seconds) : status;
    };
    if (!Fits(path) || !OnDisk(path, set))
        throw FileEx("File", __LINE__, "SetStamp() failure");
}

bool File::TrueName(char* path)
{
    if (!Fits(path))
        return false;
    const Asked found(path);
    if (!found)
    {
        Path plain(path);
        const bool exists = NameCase::Exists(plain);
        if (exists)
            std::memcpy(path, plain.Text(), plain.Length() + 1); // as long as it was
        return exists;
    }
    const char* inside = Inside(path);
    std::memmove(path, inside, std::strlen(inside) + 1);
    return found->TrueName(path);
}

void File::SetCallBack(Progress progress)
{
    callback = progress;
}

void File::SetLog(bool)
{
}

} // namespace Zem
