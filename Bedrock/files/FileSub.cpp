// Locations and substitutes: what a folder and a link do, and the walks over a substitute's locations. Archives stand in
// FileSubArchive.cpp, the list of all substitutes in FileSubstList.cpp.

#include <Bedrock/files/FileSub.h>

#include <Bedrock/files/FileSubArchive.h>
#include <Bedrock/files/FileSubstList.h>
#include <Bedrock/files/NameCase.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/platform/Files.h>

#include <cstring>

namespace Zem
{

namespace
{

bool IsSeparator(char c)
{
    return c == '/' || c == '\\';
}

// Locations of the application that want one thread at a time share this.
constinit Platform::Lock foreignLock;

// The chain of locations grows while others go through it: what a link leads to is whole when the link is seen.
void Publish(ISingleListNode& node, ISingleListNode* following)
{
    std::atomic_ref<ISingleListNode*>(node.next).store(following, std::memory_order_release);
}

ISingleListNode* Following(ISingleListNode& node)
{
    return std::atomic_ref<ISingleListNode*>(node.next).load(std::memory_order_acquire);
}

// Takes the levels "." and ".." out of a name, in its text alone: what a link in it leads to has no say. False if that
// would lead above where the name begins.
bool Straighten(const char* name, char (&out)[FilePath::capacity + 1])
{
    std::size_t length = 0;
    if (std::strlen(name) >= FilePath::capacity)
        return false;
    while (*name)
    {
        std::size_t size = 0;
        while (name[size] && !IsSeparator(name[size]))
            ++size;
        const bool up = size == 2 && name[0] == '.' && name[1] == '.';
        const bool here = size == 0 || (size == 1 && name[0] == '.');
        if (up && length == 0)
            return false;
        if (up)
        {
            --length; // the separator
            while (length > 0 && !IsSeparator(out[length - 1]))
                --length;
        }
        const std::size_t step = size + (name[size] != '\0');
        if (!up && !here)
        {
            std::memcpy(out + length, name, size);
            length += size;
            out[length++] = '/';
        }
        name += step;
    }
    if (length > 0 && !IsSeparator(name[-1]))
        --length;
    out[length] = '\0';
    return true;
}

} // namespace

// ---------------------------------------------------------------------------------------------------- FileSub

FileSub::~FileSub() = default;

void FileSub::SubstRemoved(const PString&)
{
}

bool FileSub::IsReadOnly()
{
    return true;
}

bool FileSub::IsValid()
{
    return false;
}

bool FileSub::IsKind(int)
{
    return false;
}

bool FileSub::OpenWrite(File&, const char*, int, int)
{
    return false;
}

bool FileSub::OpenRead(File&, const char*, int, int)
{
    return false;
}

void FileSub::CloseFile(File&)
{
    throw FileEx("FileSub", __LINE__, "CloseFile() Logic Error");
}

bool FileSub::Exists(PString&, const char*)
{
    return false;
}

bool FileSub::Unlink(const char*)
{
    return false;
}

bool FileSub::Rename(const char*, const char*)
{
    return false;
}

bool FileSub::TrueName(char*)
{
    return false;
}

bool FileSub::GetStamp(File::Time&, const char*)
{
    return false;
}

void FileSub::AddToSearch(SearchList&)
{
}

void FileSub::Lock()
{
}

void FileSub::Unlock()
{
}

bool FileSub::IsPath(const char*)
{
    return false;
}

// --------------------------------------------------------------------------------------------- FileSubstitute

FileSubstitute::FileSubstitute(const PString& name) : substName(name)
{
    first.next = &first;
}

FileSubstitute::~FileSubstitute()
{
    for (ISingleListNode* node = first.next; node != &first;)
    {
        FileSub* location = static_cast<FileSub*>(node);
        node = node->next;
        delete location;
    }
}

FileSub* FileSubstitute::NewLocation(const PString& name, const char* path, bool writable)
{
    const std::size_t length = path ? std::strlen(path) : 0;
    if (length == 0 || length >= File::Path::capacity)
    {
        const char* word = name;
        FileEx failure("FileSubstList", __LINE__);
        failure.SetReasonf("Subst(%s) %s", word ? word : "", length == 0 ? "Path is empty" : "Path is too long");
        throw failure;
    }
    FileSub* location = nullptr;
    if (IsSeparator(path[length - 1]))
        location = new FileSubPath(path, writable);
    else
        location = new FileSubArchive(path, writable);
    if (!location)
        throw FileEx("FileSubstList", __LINE__, "Subst() Out of memory");
    return location;
}

void FileSubstitute::Add(FileSub* location)
{
    FileSubstList::Guard guard;
    location->next = first.next;
    Publish(first, location);
    count.fetch_add(1, std::memory_order_relaxed);
}

void FileSubstitute::AddLink(FileSubstitute* target)
{
    FileSubstList::Guard guard;
    if (target->LeadsTo(this))
    {
        FileEx failure("FileSubstList", __LINE__);
        failure.SetReasonf("SubstLink(%s,%s) Links would close a circle", static_cast<const char*>(substName),
                           static_cast<const char*>(target->substName));
        throw failure;
    }
    FileSub* link = new FileSubLink(target);
    if (!link)
        throw FileEx("FileSubstList", __LINE__, "SubstLink() Out of memory");
    ISingleListNode* last = &first;
    while (last->next != &first)
        last = last->next;
    link->next = &first;
    Publish(*last, link);
    count.fetch_add(1, std::memory_order_relaxed);
}

// The walk behind the operations that stop at the first location that serves them.
template <class Test, class Ask>
bool FileSubstitute::FirstThat(Test test, Ask ask)
{
    const FileSubstList::Walk walk;
    for (ISingleListNode* node = Following(first); node != &first; node = Following(*node))
    {
        FileSub& location = *static_cast<FileSub*>(node);
        if (location.IsAskedByMany())
        {
            if (test(location) && ask(location))
                return true;
            continue;
        }
        const Platform::LockGuard oneAtATime(foreignLock);
        if (test(location) && ask(location))
            return true;
    }
    return false;
}

// All locations, for those who look at the list and not for a name.
template <class See>
void FileSubstitute::ForEach(See see)
{
    const FileSubstList::Guard guard;
    for (ISingleListNode* node = first.next; node != &first; node = node->next)
        see(*static_cast<FileSub*>(node));
}

bool FileSubstitute::OpenWrite(File& file, const char* name, int flags, int permission)
{
    return FirstThat([](FileSub& location) { return !location.IsReadOnly(); },
                     [&](FileSub& location) { return location.OpenWrite(file, name, flags, permission); });
}

bool FileSubstitute::OpenRead(File& file, const char* name, int flags, int permission)
{
    return FirstThat([](FileSub& location) { return location.IsValid(); },
                     [&](FileSub& location) { return location.OpenRead(file, name, flags, permission); });
}

File::Result FileSubstitute::Exists(PString& subst, const char* name)
{
    PString found;
    const bool exists = FirstThat([](FileSub& location) { return location.IsValid(); },
                                  [&](FileSub& location)
                                  {
                                      found = substName;
                                      return location.Exists(found, name);
                                  });
    if (!exists)
        return File::RES_FILENOTFOUND;
    subst = found;
    return File::RES_OK;
}

bool FileSubstitute::Unlink(const char* name)
{
    bool deleted = false;
    FirstThat([](FileSub& location) { return location.IsValid() && !location.IsReadOnly(); },
              [&](FileSub& location)
              {
                  deleted |= location.Unlink(name);
                  return false;
              });
    return deleted;
}

bool FileSubstitute::Rename(const char* from, const char* to)
{
    return FirstThat([](FileSub& location) { return location.IsValid() && !location.IsReadOnly(); },
                     [&](FileSub& location) { return location.Rename(from, to); });
}

bool FileSubstitute::TrueName(char* name)
{
    return FirstThat([](FileSub&) { return true; }, [&](FileSub& location) { return location.TrueName(name); });
}

bool FileSubstitute::GetStamp(File::Time& time, const char* name)
{
    return FirstThat([](FileSub& location) { return location.IsValid(); },
                     [&](FileSub& location) { return location.GetStamp(time, name); });
}

void FileSubstitute::AddToSearch(FileSub::SearchList& list)
{
    FirstThat([](FileSub& location) { return location.IsValid(); },
              [&](FileSub& location)
              {
                  location.AddToSearch(list);
                  return false;
              });
}

void FileSubstitute::SubstRemoved(const PString& name)
{
    ForEach([&](FileSub& location) { location.SubstRemoved(name); });
}

std::uint32_t FileSubstitute::UseCount()
{
    std::uint32_t uses = 0;
    ForEach([&](FileSub& location) { uses += location.UseCount(); });
    return uses;
}

bool FileSubstitute::LeadsTo(const FileSubstitute* other)
{
    bool leads = this == other;
    ForEach(
        [&](FileSub& location)
        {
            const auto* link = dynamic_cast<FileSubLink*>(&location);
            leads = leads || (link && link->Target() && link->Target()->LeadsTo(other));
        });
    return leads;
}

// ------------------------------------------------------------------------------------------------- FileSubPath

FileSubPath::FileSubPath(const char* folder, bool writable)
    : FileSub(Threads::Many), path(folder), flags(static_cast<std::uint8_t>(writable ? 0 : ReadOnly))
{
    if (File::Path there(path); NameCase::Exists(there))
        flags |= Valid;
}

bool FileSubPath::IsReadOnly()
{
    return (flags & ReadOnly) != 0;
}

bool FileSubPath::IsValid()
{
    return (flags & Valid) != 0;
}

bool FileSubPath::IsKind(int kind)
{
    return kind == KindPath;
}

bool FileSubPath::Join(File::Path& out, const char* name) const
{
    char straight[File::Path::capacity + 1];
    if (std::strstr(name, ".."))
    {
        if (!Straighten(name, straight))
            return false;
        name = straight;
    }
    if (path.Length() + std::strlen(name) >= File::Path::capacity)
        return false;
    out.Make(path, name);
    return true;
}

bool FileSubPath::OpenWrite(File& file, const char* name, int openFlags, int)
{
    File::Path joined;
    if (!Join(joined, name))
        return false;
    if (!(flags & Valid))
    {
        if (!File::Md(path))
            return false;
        flags |= Valid;
    }
    if (!file.OpenHandle(joined, static_cast<unsigned>(openFlags), Platform::Share::DenyAll))
        return false;
    file.sub = this;
    AddUse();
    return true;
}

bool FileSubPath::OpenRead(File& file, const char* name, int openFlags, int)
{
    // A mode that reads and writes comes here too: it writes, so it needs a location that may be written, and the file
    // for itself.
    const bool writes = (file.mode & 0x0F) != 0;
    File::Path joined;
    if ((writes && (flags & ReadOnly)) || !Join(joined, name))
        return false;
    if (!file.OpenHandle(joined, static_cast<unsigned>(openFlags),
                         writes ? Platform::Share::DenyAll : Platform::Share::DenyWrite))
        return false;
    file.sub = this;
    AddUse();
    return true;
}

void FileSubPath::CloseFile(File& file)
{
    ReleaseUse();
    file.CloseHandle();
}

bool FileSubPath::Exists(PString&, const char* name)
{
    File::Path joined;
    return Join(joined, name) && NameCase::Exists(joined);
}

bool FileSubPath::Unlink(const char* name)
{
    File::Path joined;
    return Join(joined, name) && NameCase::Find(joined, Platform::Remove) == Platform::Status::Ok;
}

bool FileSubPath::Rename(const char* from, const char* to)
{
    File::Path source;
    File::Path target;
    return Join(source, from) && Join(target, to) && NameCase::Rename(source, target);
}

bool FileSubPath::TrueName(char* name)
{
    File::Path joined;
    if (!Join(joined, name) || !NameCase::Exists(joined))
        return false;
    std::memcpy(name, joined.Text(), joined.Length() + 1);
    return true;
}

bool FileSubPath::GetStamp(File::Time& time, const char* name)
{
    File::Path joined;
    Platform::FileInfo info;
    const auto ask = [&](const char* there) { return Platform::GetInfo(there, info); };
    if (!Join(joined, name) || NameCase::Find(joined, ask) != Platform::Status::Ok)
        return false;
    time = static_cast<std::int32_t>(info.modified);
    return true;
}

void FileSubPath::AddToSearch(SearchList& list)
{
    list.Add(this);
}

bool FileSubPath::IsPath(const char* text)
{
    return std::strcmp(path, text) == 0;
}

// ------------------------------------------------------------------------------------------------- FileSubLink

void FileSubLink::SubstRemoved(const PString& name)
{
    if (target && target->Name() == name)
        target = nullptr;
}

bool FileSubLink::IsReadOnly()
{
    return false;
}

bool FileSubLink::IsValid()
{
    return target != nullptr;
}

bool FileSubLink::IsKind(int kind)
{
    return kind == KindLink;
}

bool FileSubLink::OpenWrite(File& file, const char* name, int flags, int permission)
{
    return target && target->OpenWrite(file, name, flags, permission);
}

bool FileSubLink::OpenRead(File& file, const char* name, int flags, int permission)
{
    return target && target->OpenRead(file, name, flags, permission);
}

bool FileSubLink::Exists(PString& subst, const char* name)
{
    return target && target->Exists(subst, name);
}

void FileSubLink::AddToSearch(SearchList& list)
{
    if (target)
        target->AddToSearch(list);
}

} // namespace Zem
