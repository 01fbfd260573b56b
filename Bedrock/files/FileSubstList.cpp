// The list of substitutes, and what `File` and `File::Path` do with it: registering and looking up by name.

#include <Bedrock/files/FileSubstList.h>

#include <Bedrock/files/NameCase.h>
#include <Bedrock/host/Exception.h>
#include <Bedrock/memory/PString.h>

#include <cstring>

namespace Zem
{

constinit Platform::Lock FileSubstList::lock;

namespace
{

// The order of the list says nothing of the texts; it lets a look-up end early.
bool IsBelow(const PString& a, const PString& b)
{
    return reinterpret_cast<std::uintptr_t>(a.GetNode()) < reinterpret_cast<std::uintptr_t>(b.GetNode());
}

const char* Text(const PString& text)
{
    const char* bytes = text;
    return bytes ? bytes : "";
}

} // namespace

// At the end of the process nobody else is left to keep out.
FileSubstList::~FileSubstList()
{
    for (FileSubstitute* node = head; node;)
    {
        FileSubstitute* gone = node;
        node = node->next;
        delete gone;
    }
    head = nullptr;
    count = 0;
    NameCase::Clear();
}

FileSubstitute* FileSubstList::Find(const PString& name) noexcept
{
    Guard guard;
    FileSubstitute* node = instance.head;
    while (node && IsBelow(node->substName, name))
        node = node->next;
    return node && node->substName == name ? node : nullptr;
}

FileSubstitute* FileSubstList::Insert(const PString& name)
{
    FileSubstitute* made = new FileSubstitute(name);
    if (!made)
        throw FileEx("FileSubstList", __LINE__, "Subst() Out of memory");
    Guard guard;
    FileSubstitute** link = &instance.head;
    while (*link && IsBelow((*link)->substName, name))
        link = &(*link)->next;
    made->next = *link;
    *link = made;
    ++instance.count;
    return made;
}

void FileSubstList::Remove(const PString& name)
{
    Guard guard;
    FileSubstitute* removed = Find(name);
    const char* wrong = !removed                   ? "Closing non-existant subst?"
                        : removed->UseCount() != 0 ? "Files are open through it"
                                                   : nullptr;
    if (wrong)
    {
        FileEx failure("FileSubstList", __LINE__);
        failure.SetReasonf("Subst(%s) %s", Text(name), wrong);
        throw failure;
    }
    for (FileSubstitute* node = instance.head; node; node = node->next)
        node->SubstRemoved(name);
    FileSubstitute** link = &instance.head;
    while (*link != removed)
        link = &(*link)->next;
    *link = removed->next;
    --instance.count;
    delete removed;
}

void File::Subst(const PString& name, const char* path, bool writable)
{
    if (!path)
        return FileSubstList::Remove(name);
    // Made before the lock is taken: opening an archive may take its time.
    FileSub* location = FileSubstitute::NewLocation(name, path, writable);
    FileSubstList::Guard guard;
    FileSubstitute* substitute = FileSubstList::Find(name);
    try
    {
        if (!substitute)
            substitute = FileSubstList::Insert(name);
    }
    catch (const FileEx&)
    {
        delete location;
        throw;
    }
    substitute->Add(location);
}

void File::SubstLink(const PString& name, const PString& other)
{
    FileSubstList::Guard guard;
    FileSubstitute* target = FileSubstList::Find(other);
    if (!target)
    {
        FileEx failure("File", __LINE__);
        failure.SetReasonf("SubstLink(%s,%s) Other subst (%s) not found", Text(name), Text(other), Text(other));
        throw failure;
    }
    FileSubstitute* substitute = FileSubstList::Find(name);
    if (!substitute)
        substitute = FileSubstList::Insert(name);
    substitute->AddLink(target);
}

File::Result File::SubstExists(const PString& subst)
{
    return FileSubstList::Find(subst) ? RES_OK : RES_SUBSTNOTFOUND;
}

FileSubstitute* FilePath::GetSubst(const char* path)
{
    const char* colon = path ? std::strchr(path, ':') : nullptr;
    if (!colon || colon - path >= static_cast<std::ptrdiff_t>(capacity))
        return nullptr;
    return FileSubstList::Find(PString(path, static_cast<unsigned>(colon - path)));
}

} // namespace Zem
