#include <Bedrock/files/Path.h>

#include <Bedrock/platform/Files.h>
#include <Bedrock/platform/Text.h>

#include <cstring>

namespace Zem
{

namespace
{

bool IsSeparator(char c)
{
    return c == '/' || c == '\\';
}

bool IsSeparatorOrColon(char c)
{
    return IsSeparator(c) || c == ':';
}

// Index behind the last byte for which `is` holds; 0 if there is none.
template <class Is>
std::size_t BehindLast(const char* text, Is is)
{
    std::size_t behind = 0;
    for (std::size_t i = 0; text[i]; ++i)
        if (is(text[i]))
            behind = i + 1;
    return behind;
}

// Text that grows by pieces and is put in the place of a path only when all of it fits. A piece may lie in that path.
class Draft
{
public:
    void Add(const char* piece, std::size_t n)
    {
        if (n >= FilePath::capacity - length)
            fits = false;
        if (!fits)
            return;
        std::memcpy(text + length, piece, n);
        length += n;
    }
    void Add(const char* piece) { Add(piece, std::strlen(piece)); }
    std::size_t Length() const { return length; }
    char Last() const { return length ? text[length - 1] : '\0'; }
    void Store(char* path) const
    {
        if (!fits)
            return;
        std::memcpy(path, text, length);
        path[length] = '\0';
    }

private:
    char text[FilePath::capacity];
    std::size_t length = 0;
    bool fits = true;
};

// At most the first `n` bytes of a text.
std::size_t Bounded(const char* text, int n)
{
    return n > 0 ? strnlen(text, static_cast<std::size_t>(n)) : 0;
}

} // namespace

FilePath::FilePath(const char* from)
{
    text[0] = '\0';
    *this = from;
}

FilePath& FilePath::operator=(const char* from)
{
    const std::size_t n = from ? std::strlen(from) : 0;
    if (n < capacity)
    {
        std::memmove(text, from ? from : "", n);
        text[n] = '\0';
    }
    return *this;
}

std::uint32_t FilePath::Length() const
{
    return static_cast<std::uint32_t>(std::strlen(text));
}

std::uint32_t FilePath::Last() const
{
    const std::size_t n = std::strlen(text);
    return n ? static_cast<unsigned char>(text[n - 1]) : 0;
}

void FilePath::Add(const char* more)
{
    if (!more)
        return;
    Draft draft;
    draft.Add(text);
    draft.Add(more);
    draft.Store(text);
}

void FilePath::Add(const char* more, int n)
{
    if (!more)
        return;
    Draft draft;
    draft.Add(text);
    draft.Add(more, Bounded(more, n));
    draft.Store(text);
}

void FilePath::ToLower()
{
    Platform::LowerInPlace(text);
}

void FilePath::GetCwd()
{
    if (Platform::CurrentFolder(text, capacity) != Platform::Status::Ok)
        text[0] = '\0';
}

const char* FilePath::GetPath(const char* path)
{
    const char* colon = std::strchr(path, ':');
    return colon ? colon + 1 : path;
}

const char* FilePath::GetFileName(const char* path)
{
    return path + BehindLast(path, IsSeparatorOrColon);
}

void FilePath::DelPath()
{
    const char* fileName = GetFileName();
    std::memmove(text, fileName, std::strlen(fileName) + 1);
}

void FilePath::DelName()
{
    text[BehindLast(text, IsSeparatorOrColon)] = '\0';
}

void FilePath::DelFileName()
{
    const auto begin = static_cast<std::uint32_t>(BehindLast(text, IsSeparatorOrColon));
    const char* dot = std::strrchr(text + begin, '.');
    Del(begin, (dot ? static_cast<std::uint32_t>(dot - text) : Length()) - begin);
}

void FilePath::DelDrive()
{
    const char* colon = std::strchr(text, ':');
    if (colon)
        Del(0, static_cast<std::uint32_t>(colon - text));
}

void FilePath::Del(std::uint32_t pos, std::uint32_t n)
{
    const std::uint32_t length = Length();
    if (n == 0 || pos >= length)
        return;
    if (n >= length - pos)
        text[pos] = '\0';
    else
        std::memmove(text + pos, text + pos + n, length - pos - n + 1);
}

void FilePath::PrevDir()
{
    const std::size_t last = BehindLast(text, IsSeparator);
    if (last < 2)
        return;
    std::size_t before = last - 1; // the last separator
    while (before > 0 && !IsSeparator(text[before - 1]))
        --before;
    if (before > 0)
        Del(static_cast<std::uint32_t>(before), static_cast<std::uint32_t>(last - before));
}

void FilePath::RootDir()
{
    std::size_t first = 0;
    while (text[first] && !IsSeparator(text[first]))
        ++first;
    const std::size_t last = BehindLast(text, IsSeparator);
    if (last > first + 1)
        Del(static_cast<std::uint32_t>(first + 1), static_cast<std::uint32_t>(last - first - 1));
}

void FilePath::SetExt(const char* ext)
{
    const char* dot = std::strrchr(text, '.');
    Draft draft;
    draft.Add(text, dot ? static_cast<std::size_t>(dot - text) : std::strlen(text));
    if (ext)
    {
        if (*ext != '.')
            draft.Add(".");
        draft.Add(ext);
    }
    draft.Store(text);
}

bool FilePath::IsExt(const char* ext) const
{
    const std::size_t behind = BehindLast(text, [](char c) { return c == '.' || IsSeparator(c); });
    const char* candidate = text + (behind ? behind - 1 : 0);
    if (!ext)
        return *candidate == '\0';
    if (*ext == '.')
        ++ext;
    return *candidate == '.' && Platform::CompareIgnoreCase(candidate + 1, ext) == 0;
}

void FilePath::Make(const char* dir, const char* name)
{
    if (!name)
        name = "";
    Draft draft;
    if (!dir || !*dir)
    {
        draft.Add(name);
        draft.Store(text);
        return;
    }
    const std::size_t folder = BehindLast(dir, IsSeparator);
    if (folder)
        draft.Add(dir, folder);
    else
    {
        draft.Add(dir);
        if (*dir != '.' && !std::strchr(dir, ':'))
            draft.Add(":");
        draft.Add("/");
    }
    draft.Add(IsSeparator(*name) ? name + 1 : name);
    draft.Store(text);
}

void FilePath::AddPath(const char* more)
{
    AddPath(more, more ? static_cast<int>(strnlen(more, capacity + 1)) : 0);
}

void FilePath::AddPath(const char* more, int n)
{
    Draft draft;
    draft.Add(text);
    if (draft.Length() && !IsSeparator(draft.Last()))
        draft.Add("/");
    if (more)
    {
        if (IsSeparator(*more))
            ++more;
        draft.Add(more, Bounded(more, n));
    }
    draft.Store(text);
}

FilePath FilePath::ExtractFirstPath()
{
    std::size_t end = text[0] ? 1 : 0;
    while (text[end] && !IsSeparator(text[end]))
        ++end;
    FilePath first("");
    std::memcpy(first.text, text, end);
    first.text[end] = '\0';
    std::memmove(text, text + end, std::strlen(text + end) + 1);
    return first;
}

// ------------------------------------------------------------------------------------------------------ wildcards

namespace
{

unsigned Fold(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 128)
        return Platform::ToLowerAscii(byte);
    return Platform::ToLower(byte);
}

// Whether what is left of a pattern matches the end of a name: nothing, an alternative's end, or a star with at most a
// dot behind it.
bool MatchesEnd(const char* pattern)
{
    if (*pattern == '*')
    {
        ++pattern;
        if (*pattern == '.')
            ++pattern;
    }
    return *pattern == '\0' || *pattern == ';';
}

} // namespace

bool FilePath::IsMatch(const char* name, const char* pattern, const char** subdir)
{
    if (subdir)
        *subdir = nullptr;
    const char* const begin = name;
    const char* const fileNamePattern = pattern + BehindLast(pattern, IsSeparator);

    const char* fileName = name;    // where every alternative starts
    const char* star = nullptr;     // the armed star
    const char* starName = nullptr; // and where its next try starts

    // Goes back to the armed star, which is spent with that. False if there is none.
    const auto goBack = [&]
    {
        if (!star)
            return false;
        pattern = star;
        name = starName;
        star = nullptr;
        return true;
    };
    // One step at a star that faces a byte of the name: it eats the byte, or is armed and passed.
    const auto stepStar = [&]
    {
        if (IsSeparator(*name))
            ++pattern;
        else if (pattern[1] && pattern[1] != ';' && (pattern[1] == '?' || Fold(*name) == Fold(pattern[1])))
        {
            star = pattern;
            starName = name + 1;
            ++pattern;
        }
        else
            ++name;
    };

    // The folders: through the pattern's last separator.
    while (pattern < fileNamePattern)
    {
        if (IsSeparator(*pattern))
        {
            if (IsSeparator(*name))
            {
                ++pattern;
                ++name;
                fileName = name;
                star = nullptr;
                continue;
            }
        }
        else if (!*name)
            return false;
        else if (*pattern == '*')
        {
            stepStar();
            continue;
        }
        else if (*pattern == '?' && IsSeparator(*name))
        {
            ++pattern;
            continue;
        }
        else if (*pattern == '?' || (!IsSeparator(*name) && Fold(*name) == Fold(*pattern)))
        {
            ++pattern;
            ++name;
            continue;
        }
        if (!*name || !goBack())
            return false;
    }
    star = nullptr;
    if (*pattern == '\0' && subdir && fileName - begin > 1)
        *subdir = fileName - 1; // the pattern names a folder, and the name lies in it

    // The file name: one alternative after the other.
    for (;;)
    {
        bool same = false;
        if (!*name)
        {
            if (MatchesEnd(pattern))
                return true;
        }
        else if (*pattern == '\0' || *pattern == ';')
        {
            if (IsSeparator(*name) && subdir && !*subdir)
                *subdir = name;
        }
        else if (*pattern == '*')
        {
            stepStar();
            continue;
        }
        else if (*pattern == '?')
        {
            if (!IsSeparator(*name))
                ++name;
            ++pattern;
            continue;
        }
        else
            same = IsSeparator(*pattern) ? IsSeparator(*name) : Fold(*name) == Fold(*pattern);
        if (same)
        {
            ++pattern;
            ++name;
            continue;
        }
        // A try that ran off the name's end can't do better further on, but for the star's own end rule above.
        if (goBack())
            continue;
        const char* next = std::strchr(pattern, ';');
        if (!next)
            return false;
        pattern = next + 1;
        name = fileName;
        star = nullptr;
    }
}

} // namespace Zem
