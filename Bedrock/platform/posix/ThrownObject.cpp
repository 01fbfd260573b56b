// What a thrown object says of itself while it is on its way: its type, and the text of a standard failure.

#include <Bedrock/platform/Fault.h>
#include <Bedrock/platform/posix/FaultFrame.h>

#include <cstddef>
#include <cstring>
#include <exception>
#include <typeinfo>

namespace Zem::Platform
{

namespace
{

// The record that precedes a thrown object, as the C++ ABI has it, and the one of a rethrown copy, which points to the
// object.
struct ThrownRecord
{
    const std::type_info* type; // of a copy: the object
    void (*destroy)(void*);
    void (*unexpected)();
    void (*terminate)();
    void* next;
    int handlers;
    int handlerSwitch;
    const unsigned char* action;
    const unsigned char* data;
    void* catchTemp;
    void* adjusted;
    _Unwind_Exception header;
};

const ThrownRecord& RecordOf(const void* header)
{
    return *reinterpret_cast<const ThrownRecord*>(static_cast<const char*>(header) - offsetof(ThrownRecord, header));
}

// Text with a bound.
class Line
{
public:
    Line(char* target, std::size_t room) : text(target), capacity(room) { text[0] = '\0'; }

    void Add(const char* part, std::size_t count)
    {
        if (count > capacity - 1 - length)
            count = capacity - 1 - length;
        std::memcpy(text + length, part, count);
        length += count;
        text[length] = '\0';
    }
    void Add(const char* part) { Add(part, std::strlen(part)); }
    void Clear() { text[length = 0] = '\0'; }

private:
    char* text;
    std::size_t capacity;
    std::size_t length = 0;
};

// Names of types as programs throw them: built-in ones, pointers to them, classes in namespaces. The runtime's own
// reader of names calls the heap, which may be what broke. False for anything else, such as a template's.
bool AddTypeName(Line& line, const char* name)
{
    const char* suffix = "";
    if (std::strncmp(name, "PK", 2) == 0)
    {
        suffix = " const*";
        name += 2;
    }
    else if (*name == 'P')
    {
        suffix = "*";
        ++name;
    }
    static constexpr const char* builtin[] = {
        "bbool",  "cchar",         "asigned char", "hunsigned char", "sshort",     "tunsigned short",
        "iint",   "junsigned int", "llong",        "munsigned long", "xlong long", "yunsigned long long",
        "ffloat", "ddouble",       "elong double", "wwchar_t",       "vvoid"};
    if (name[0] != '\0' && name[1] == '\0')
        for (const char* type : builtin)
            if (*type == *name)
            {
                line.Add(type + 1);
                line.Add(suffix);
                return true;
            }
    const bool isNested = *name == 'N';
    if (isNested)
        ++name;
    bool isFirst = true;
    const auto separate = [&]
    {
        if (!isFirst)
            line.Add("::");
        isFirst = false;
    };
    if (name[0] == 'S' && name[1] == 't')
    {
        separate();
        line.Add("std");
        name += 2;
    }
    else if (name[0] == 'S' && name[1] == 's' && name[2] == '\0')
    {
        line.Add("std::string");
        line.Add(suffix);
        return true;
    }
    while (*name >= '1' && *name <= '9')
    {
        std::size_t count = 0;
        for (; *name >= '0' && *name <= '9'; ++name)
            count = count * 10 + static_cast<std::size_t>(*name - '0');
        if (count > std::strlen(name))
            return false;
        separate();
        if (count >= 10 && std::strncmp(name, "_GLOBAL__N", 10) == 0)
            line.Add("(anonymous namespace)");
        else
            line.Add(name, count);
        name += count;
    }
    line.Add(suffix);
    return !isFirst && std::strcmp(name, isNested ? "E" : "") == 0;
}

} // namespace

void DescribeThrown(const Fault& fault, char* buffer, std::size_t capacity)
{
    Line line(buffer, capacity);
    if (!fault.thrown)
        return;
    const auto* header = static_cast<const _Unwind_Exception*>(fault.thrown);
    const ThrownRecord* record = &RecordOf(header);
    const void* object = header + 1;
    if (header->exception_class & 0xFF) // a rethrown copy
    {
        std::memcpy(&object, record, sizeof object);
        record = &RecordOf(static_cast<const _Unwind_Exception*>(object) - 1);
    }
    const std::type_info& type = *record->type;
    const char* name = type.name();
    if (!AddTypeName(line, name))
    {
        line.Clear();
        line.Add(name);
    }
    // What a handler for std::exception would be asked.
    void* base = const_cast<void*>(object);
    if (typeid(std::exception).__do_catch(&type, &base, 1))
    {
        line.Add(": ");
        line.Add(static_cast<const std::exception*>(base)->what());
    }
}

} // namespace Zem::Platform
