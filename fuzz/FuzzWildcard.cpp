// Wildcards against a reference that tries every way of a star: a match must be one by the rules, with one star and one
// alternative each match must be found, and `subdir` points at a separator of the name.

#include <Bedrock/files/Path.h>

#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace
{

bool IsSeparator(char c)
{
    return c == '/' || c == '\\';
}

// One alternative. `budget` bounds the tries.
bool Reference(const char* name, const char* pattern, int& budget)
{
    if (--budget < 0)
        return true;
    if (*pattern == '*')
        return Reference(name, pattern + 1, budget) ||
               (*name && !IsSeparator(*name) && Reference(name + 1, pattern, budget)) ||
               (!*name && std::strcmp(pattern, "*.") == 0);
    if (!*name || !*pattern)
        return !*name && !*pattern;
    if (*pattern == '?')
        return IsSeparator(*name) ? Reference(name, pattern + 1, budget) : Reference(name + 1, pattern + 1, budget);
    if (IsSeparator(*pattern)
            ? !IsSeparator(*name)
            : std::tolower(static_cast<unsigned char>(*pattern)) != std::tolower(static_cast<unsigned char>(*name)))
        return false;
    return Reference(name + 1, pattern + 1, budget);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > 64)
        return 0;
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::size_t cut = text.find('\n');
    if (cut == std::string::npos || text.find('\0') != std::string::npos)
        return 0;
    const std::string name = text.substr(0, cut);
    const std::string pattern = text.substr(cut + 1);
    const char* subdir = nullptr;
    const bool match = Zem::FilePath::IsMatch(name.c_str(), pattern.c_str(), &subdir);
    if (match != Zem::FilePath::IsMatch(name.c_str(), pattern.c_str()))
        std::abort();
    if (subdir && (subdir < name.c_str() || subdir >= name.c_str() + name.size() || !IsSeparator(*subdir)))
        std::abort();

    // The reference knows no ";": the alternatives are put behind the folder one by one.
    const std::size_t folder = pattern.find_last_of("/\\");
    const std::string head = folder == std::string::npos ? "" : pattern.substr(0, folder + 1);
    std::string rest = pattern.substr(head.size());
    if (head.find(';') != std::string::npos)
        return 0;
    int budget = 200000;
    int alternatives = 0;
    bool rules = false;
    for (bool more = true; more; ++alternatives)
    {
        const std::size_t end = rest.find(';');
        more = end != std::string::npos;
        rules |= Reference(name.c_str(), (head + rest.substr(0, end)).c_str(), budget);
        rest = more ? rest.substr(end + 1) : "";
    }
    std::size_t stars = 0;
    for (const char c : pattern)
        stars += c == '*';
    if (match && !rules)
        std::abort();
    if (!match && rules && budget >= 0 && stars <= 1 && alternatives == 1 && head.empty())
        std::abort();
    return 0;
}
