// The log beside spdlog's file logger, and a committed line beside write(2) and fdatasync(2) by hand.
//
// Lines that are not committed go to a file in memory (/dev/shm): what is measured is the making of the line and its way
// into the buffer, with a write of the system for each 16 KiB here, 4 KiB there. Both loggers have their locks and print
// thread, level, time, name and message. Committed lines go to the disk that holds the current folder.

#include <Bedrock/host/Log.h>
#include <Bedrock/host/Options.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>
#ifdef BENCH_HAS_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

namespace
{

using Zem::Log;
using Zem::LogClient;

constexpr int lineCount = 1000000; // 70 MB

// A file of the process's own, deleted at its end.
const char* FileName(bool inMemory)
{
    static const std::string names[2] = {"bedrock-log-bench-" + std::to_string(getpid()),
                                         "/dev/shm/bedrock-log-bench-" + std::to_string(getpid())};
    static const int registered = std::atexit(
        []
        {
            for (const std::string& name : names)
                unlink(name.c_str());
        });
    benchmark::DoNotOptimize(registered);
    return names[inMemory].c_str();
}

LogClient* Start(const char* options, bool inMemory)
{
    Log::Done();
    Zem::Options all;
    all.ProcessRaw((std::string(options) + " -Log=Bench:Prog -LogFile='" + FileName(inMemory) + "'").c_str());
    Log::Init(&all);
    if (LogClient::disabled)
        std::abort();
    return Log::GetClient("Bench");
}

enum Work
{
    Number, // a message with two numbers
    Plain,  // a constant message of 60 characters
    Text,   // a message with a text of 40 characters
};

constexpr const char* plain = "The level has been loaded, and the first frame is on its way";
constexpr const char* word = "textures/terrain/grass_and_stones_02.tga";

void Lines(benchmark::State& state, LogClient* const& started, Work work)
{
    int i = 0;
    for (auto _ : state)
    {
        ++i;
        LogClient* const client = started; // the first thread has started it when the loop begins
        if (!LogClient::Wants(client, LogClient::Diag))
            continue;
        if (work == Number)
            client->Write(LogClient::Diag, "frame %d took %d us", i, i & 1023);
        else if (work == Plain)
            client->Write(LogClient::Diag, "%s", plain);
        else
            client->Write(LogClient::Diag, "loaded %s", word);
    }
}

void BedrockLines(benchmark::State& state, Work work)
{
    static LogClient* client;
    if (state.thread_index() == 0)
        client = Start("-LogFlush=off", true);
    Lines(state, client, work);
    state.SetItemsProcessed(state.iterations());
}

#ifdef BENCH_HAS_SPDLOG
void SpdlogLines(benchmark::State& state, Work work)
{
    static std::shared_ptr<spdlog::logger> logger;
    if (state.thread_index() == 0)
    {
        logger = std::make_shared<spdlog::logger>(
            "Bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(FileName(true), true));
        logger->set_level(spdlog::level::debug);
        logger->set_pattern("%L %t %l %M:%S %n : %v");
    }
    int i = 0;
    for (auto _ : state)
    {
        ++i;
        if (work == Number)
            logger->debug("frame {} took {} us", i, i & 1023);
        else if (work == Plain)
            logger->debug(plain);
        else
            logger->debug("loaded {}", word);
    }
    state.SetItemsProcessed(state.iterations());
}
#endif

void BedrockCommitted(benchmark::State& state)
{
    LogClient* const client = Start("-LogFlush=on", false);
    Lines(state, client, Number);
}

void ByHandCommitted(benchmark::State& state)
{
    const int file = open(FileName(false), O_RDWR | O_CREAT | O_TRUNC, 0666);
    const double start = static_cast<double>(std::clock());
    int i = 0;
    for (auto _ : state)
    {
        ++i;
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        char line[256];
        const int length = std::snprintf(
            line, sizeof line, "%c %08X %s %3.0f:%04.1f %-15.15s : frame %d took %d us\r\n", '+',
            static_cast<unsigned>(getpid()), "Diag", start, static_cast<double>(now.tv_sec % 60), "Bench", i, i & 1023);
        if (write(file, line, static_cast<std::size_t>(length)) != length || fdatasync(file) != 0)
            std::abort();
    }
    close(file);
}

BENCHMARK_CAPTURE(BedrockLines, numbers, Number)->Name("Log/line with numbers/Bedrock")->Iterations(lineCount);
BENCHMARK_CAPTURE(BedrockLines, plain, Plain)->Name("Log/line of plain text/Bedrock")->Iterations(lineCount);
BENCHMARK_CAPTURE(BedrockLines, text, Text)->Name("Log/line with a name/Bedrock")->Iterations(lineCount);
BENCHMARK_CAPTURE(BedrockLines, two, Number)
    ->Name("Log/line, two threads/Bedrock")
    ->Iterations(lineCount / 2)
    ->Threads(2)
    ->UseRealTime();
#ifdef BENCH_HAS_SPDLOG
BENCHMARK_CAPTURE(SpdlogLines, numbers, Number)->Name("Log/line with numbers/spdlog")->Iterations(lineCount);
BENCHMARK_CAPTURE(SpdlogLines, plain, Plain)->Name("Log/line of plain text/spdlog")->Iterations(lineCount);
BENCHMARK_CAPTURE(SpdlogLines, text, Text)->Name("Log/line with a name/spdlog")->Iterations(lineCount);
BENCHMARK_CAPTURE(SpdlogLines, two, Number)
    ->Name("Log/line, two threads/spdlog")
    ->Iterations(lineCount / 2)
    ->Threads(2)
    ->UseRealTime();
#endif
BENCHMARK(BedrockCommitted)->Name("Log/committed line/Bedrock")->Iterations(2000)->UseRealTime();
BENCHMARK(ByHandCommitted)->Name("Log/committed line/write and fdatasync")->Iterations(2000)->UseRealTime();

} // namespace
