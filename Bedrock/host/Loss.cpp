#include <Bedrock/host/Loss.h>

#include <Bedrock/platform/Text.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>

namespace Zem
{

namespace
{

constinit std::atomic<void (*)(const char*)> lossTaker{nullptr};

} // namespace

void ReportLoss(const char* format, ...) noexcept
{
    char text[1024]; // two names and a reason
    std::va_list args;
    va_start(args, format);
    Platform::FormatBounded(text, format, args); // of a longer one the start
    va_end(args);
    if (const auto taker = lossTaker.load(std::memory_order_acquire))
        taker(text);
    else
        PrintLoss(text);
}

void SetLossTaker(void (*taker)(const char* text)) noexcept
{
    lossTaker.store(taker, std::memory_order_release);
}

void PrintLoss(const char* text) noexcept
{
    std::fprintf(stderr, "Bedrock: %s\n", text);
}

} // namespace Zem
