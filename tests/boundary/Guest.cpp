// A small application of the library's: prints what it sees in the order in which it happens.

#include <Bedrock/Bedrock.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <unistd.h>

void KeepUntilTheEnd(void* object, void (*end)(void*));

namespace
{

void Say(const char* text)
{
    [[maybe_unused]] const auto written = write(1, text, std::strlen(text));
}

// A static of the application's own: the library started before it and ends after it.
struct Registry
{
    Registry() : name("made before main")
    {
        Say(name == Zem::PString("made before main") ? "interned " : "not-interned ");
    }
    ~Registry() { Say(std::strcmp(name, "made before main") == 0 ? "own-static " : "broken "); }
    Zem::PString name;
};
Registry registry;

// A handle that outlives the cache behind it.
alignas(Zem::PString) unsigned char late[sizeof(Zem::PString)];

void EndLate(void* object)
{
    auto* handle = static_cast<Zem::PString*>(object);
    handle->~PString();
    Say(Zem::PString::Cache() ? "cache-alive " : "cache-gone ");
    const Zem::PString fresh("text after the end");
    Say(static_cast<const char*>(fresh) ? "text " : "null ");
    void* block = Zem::Alloc::New(100); // late users of the heap are served still
    Say(block ? "heap " : "no-heap ");
    Zem::Alloc::Delete(block);
}

} // namespace

int main()
{
    KeepUntilTheEnd(new (late) Zem::PString("kept"), EndLate);
    Say(Zem::Time::GetCounterFrequency() > 0 ? "main " : "no-clock ");
    return 0;
}
