// File: names of substitutes.

#include <Bedrock/files/FileSubstList.h>

namespace Zem
{

FileSubstitute* FileSubstList::Find(const PString&) noexcept
{
    return nullptr;
}
FileSubstitute* FilePath::GetSubst(const char*)
{
    return nullptr;
}
bool FileSubstitute::OpenWrite(File&, const char*, int, int)
{
    return false;
}
bool FileSubstitute::OpenRead(File&, const char*, int, int)
{
    return false;
}
File::Result FileSubstitute::Exists(PString&, const char*)
{
    return File::RES_FILENOTFOUND;
}
bool FileSubstitute::Unlink(const char*)
{
    return false;
}
bool FileSubstitute::Rename(const char*, const char*)
{
    return false;
}
bool FileSubstitute::GetStamp(File::Time&, const char*)
{
    return false;
}
bool FileSubstitute::TrueName(char*)
{
    return false;
}

} // namespace Zem
