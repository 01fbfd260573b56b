// A library that knows nothing of Bedrock and starts before it: its static ends after Bedrock has detached. It keeps
// whatever destructor it was given until then, as a registry of somebody else's would.

namespace
{

struct Keeper
{
    ~Keeper()
    {
        if (end)
            end(object);
    }
    void* object = nullptr;
    void (*end)(void*) = nullptr;
};

Keeper keeper;

} // namespace

__attribute__((visibility("default"))) void KeepUntilTheEnd(void* object, void (*end)(void*))
{
    keeper.object = object;
    keeper.end = end;
}
