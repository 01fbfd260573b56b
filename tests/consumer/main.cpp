// What an application of somebody else's does first: include the chief header, make a file in a writable archive,
// read it back through the substitute, and compare.

#include <Bedrock/Bedrock.h>

#include <cstdio>
#include <cstring>

// With an argument: a failure that nobody catches, which starts the dialog of the installed tree.
static int Fail(void*)
{
    throw Zem::Exception("consumer", 1, "on purpose");
}

int main(int argc, char**)
{
    if (argc > 1)
        return Zem::ExceptionHandler::Main(Fail, nullptr);

    const char text[] = "served out of an archive";
    Zem::File::Unlink("consumer.arc");
    Zem::File::Subst("data", "consumer.arc", true);

    Zem::File file;
    if (file.Open("data:hello.txt", Zem::File::ModeCreate | Zem::File::ModeWriteCompressed) != 0)
        return 1;
    file.SafeWrite(text, 1, sizeof text);
    file.Close();

    char read[sizeof text] = {};
    if (file.Open("data:HELLO.TXT", Zem::File::ModeRead) != 0)
        return 2;
    file.SafeRead(read, 1, sizeof read);
    file.Close();

    std::printf("Bedrock %s: %s\n", ZEM_VERSION, read);
    return std::memcmp(read, text, sizeof text) == 0 ? 0 : 3;
}
