// The protected entry: a call that goes well beside a try block with a jump target, which is what it takes by hand; an
// exception that ends it beside one that a handler catches; a fault beside a handler of signals that jumps back.

#include <Bedrock/host/ExceptionHandler.h>
#include <Bedrock/platform/Fault.h>

#include <benchmark/benchmark.h>

#include <csetjmp>
#include <csignal>

namespace
{

int (*volatile body)(void*); // unknown to the compiler, as somebody else's function is

int Return(void* data)
{
    return ++*static_cast<int*>(data);
}

int Throw(void*)
{
    throw Zem::Exception("Bench", 1, "thrown");
}

int Fault(void*)
{
    __asm__ volatile("ud2");
    return 1;
}

thread_local sigjmp_buf* target;

[[gnu::noinline]] int ByHand(int (*function)(void*), void* argument)
{
    sigjmp_buf frame;
    sigjmp_buf* const outer = target;
    target = &frame;
    int result = 0;
    if (sigsetjmp(frame, 1) == 0)
    {
        try
        {
            result = function(argument);
        }
        catch (Zem::Exception& failure)
        {
            benchmark::DoNotOptimize(failure.Reason());
        }
    }
    target = outer;
    return result;
}

using Entry = int (*)(int (*)(void*), void*);

template <int (*Function)(void*)>
void Run(benchmark::State& state, Entry enter)
{
    Zem::ExceptionHandler::SetAssertions(false);
    body = Function;
    int counter = 0;
    // Within a frame, as every call but the first of a thread is.
    struct Loop
    {
        benchmark::State& state;
        Entry enter;
        int& counter;
    } loop = {state, enter, counter};
    const auto inner = [](void* data)
    {
        auto& [inState, inEnter, inCounter] = *static_cast<Loop*>(data);
        for (auto _ : inState)
        {
            const int result = inEnter(body, &inCounter);
            benchmark::DoNotOptimize(result);
        }
        return 1;
    };
    Zem::ExceptionHandler::Main(inner, &loop);
}

template <int (*Function)(void*)>
void Bedrock(benchmark::State& state)
{
    Run<Function>(state, Zem::ExceptionHandler::Main);
}

// Without the report, which the other side does not make either.
void BedrockFault(benchmark::State& state)
{
    Run<Fault>(state,
               [](int (*function)(void*), void* argument)
               {
                   int result = 0;
                   Zem::Platform::CallProtected(
                       function, argument,
                       [](const Zem::Platform::Fault& fault)
                       {
                           benchmark::DoNotOptimize(fault.code);
                           return Zem::Platform::FaultAnswer::Abandon;
                       },
                       result);
                   return result;
               });
}

template <int (*Function)(void*)>
void Hand(benchmark::State& state)
{
    struct sigaction action = {}, before;
    action.sa_flags = SA_SIGINFO | SA_NODEFER;
    action.sa_sigaction = [](int, siginfo_t*, void*) { siglongjmp(*target, 1); };
    Zem::ExceptionHandler::SetAssertions(false);
    body = Function;
    int counter = 0;
    sigaction(SIGILL, &action, &before);
    for (auto _ : state)
    {
        const int result = ByHand(body, &counter);
        benchmark::DoNotOptimize(result);
    }
    sigaction(SIGILL, &before, nullptr);
}

BENCHMARK(Bedrock<Return>)->Name("Protect/call/Bedrock");
BENCHMARK(Hand<Return>)->Name("Protect/call/sigsetjmp and try");
BENCHMARK(Bedrock<Throw>)->Name("Protect/exception/Bedrock");
BENCHMARK(Hand<Throw>)->Name("Protect/exception/sigsetjmp and try");
BENCHMARK(BedrockFault)->Name("Protect/fault/Bedrock");
BENCHMARK(Hand<Fault>)->Name("Protect/fault/sigaction");

} // namespace
