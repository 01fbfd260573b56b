// Fails in the way that it is told, to see what becomes of it:
//
//     failures file          reads a file that is not open: an exception nobody catches
//     failures fault         writes to address 16
//     failures assertion     relies on what is not so; "Continue" lets it go on

#include <Bedrock/Bedrock.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace
{

int SaveTheGame(void*)
{
    std::puts("emergency: the game is saved");
    return 0;
}

int Run(void* argument)
{
    const char* kind = static_cast<const char*>(argument);
    if (std::strcmp(kind, "file") == 0)
    {
        char header[16];
        Zem::File().Read(header, 1, sizeof(header));
    }
    else if (std::strcmp(kind, "fault") == 0)
    {
        volatile std::uintptr_t nowhere = 16;
        *reinterpret_cast<volatile int*>(nowhere) = 1;
    }
    else if (std::strcmp(kind, "assertion") == 0)
    {
        const int lives = -1;
        if (ZEM_ASSERT(lives >= 0, "the player has %d lives\n", lives))
            std::puts("it went on");
    }
    else
        std::puts("failures file | fault | assertion");
    return 7;
}

} // namespace

int main(int argc, char** argv)
{
    char none[] = "";
    std::setbuf(stdout, nullptr);
    Zem::ExceptionHandler::AddCriticalShutdown(SaveTheGame, nullptr);
    const int result = Zem::ExceptionHandler::Main(Run, argc > 1 ? argv[1] : none);
    std::printf("Main gave %d\n", result);
}
