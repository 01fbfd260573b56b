// How a program starts, and how it fails: options, the log, the protected entry, an assertion, a fault on a thread.
//
//     host -Level=3        runs
//     host -Level=30       an assertion: "Continue" goes on, "Terminate" ends the run
//     host -Crash          a thread faults; the program ends in its own way

#include <Bedrock/Bedrock.h>

#include <cstdio>

namespace
{

using namespace Zem;

struct Arguments
{
    int count;
    char** texts;
};

// An emergency hook saves what it can: it runs wherever the program broke, so it keeps to what needs no heap.
int SaveGame(void* slot)
{
    std::printf("saved in slot %d\n", *static_cast<int*>(slot));
    std::fflush(stdout);
    return 0;
}

unsigned int Stream(void* texture)
{
    *static_cast<volatile int*>(texture) = 1; // null, when the program is told to crash
    return 1;
}

int Run(void* data)
{
    const auto& arguments = *static_cast<Arguments*>(data);
    OS os(nullptr, nullptr, nullptr);
    Options& options = *os.GetOptions();
    options.Init("Host", arguments.count, arguments.texts);
    Log::Init(&options);
    LogClient* client = Log::GetClient("Host");
    if (LogClient::Wants(client, LogClient::Warn))
        client->Write(LogClient::Warn, "the host starts");

    static int slot = 4; // outlives this function: hooks also run when a failure has taken it down
    const unsigned int hook = ExceptionHandler::AddCriticalShutdown(SaveGame, &slot);

    int level;
    options.Get("Level", level, 1);
    if (ZEM_ASSERT(level <= 10, "level %d of 10", level))
        std::printf("level %d\n", level);

    int texture;
    bool crash;
    options.Get("Crash", crash, false);
    Thread streaming(Stream, crash ? nullptr : &texture, true);
    std::printf("the thread ends with %u\n", streaming.Terminate());

    ExceptionHandler::RemoveCriticalShutdown(hook);
    return level;
}

} // namespace

int main(int argc, char** argv)
{
    Arguments arguments = {argc, argv};
    const int result = ExceptionHandler::Main(Run, &arguments);
    std::printf("the program ends with %d\n", result);
}
