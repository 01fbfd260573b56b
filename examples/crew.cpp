// A worker that can be asked to stop, a mutex that keeps a second copy of the program out, and a wait for several things.
// Start it twice: the second one leaves at once.

#include <Bedrock/Bedrock.h>

#include <atomic>
#include <cstdio>

using namespace Zem;

namespace
{

struct Crew
{
    Thread* thread = nullptr;
    WEvent work; // there is something to do
    WEvent isFinished;
    std::atomic<int> open{0};
    unsigned int steps = 0; // the worker's own until it has ended
};

unsigned int Work(void* data)
{
    auto& crew = *static_cast<Crew*>(data);
    SyncObject* objects[] = {crew.thread, &crew.work}; // a thread stands for its quit event
    MultiLock wait(objects, 2, false);
    while (wait.Lock() == MultiLock::Signalled + 1)
        for (; crew.open > 0; --crew.open)
            if (++crew.steps == 10)
                crew.isFinished.Set();
    return crew.steps;
}

int Run(void*)
{
    Mutex alone(false, "Bedrock example crew");
    if (!alone.Lock(0))
    {
        std::puts("another one is at work");
        return 1;
    }
    Crew crew;
    Thread thread(Work, &crew, false);
    if (!thread.StartedOk())
        return 1;
    crew.thread = &thread;
    thread.SetName("crew");
    thread.SetPriority(Thread::PriorityBelowNormal);
    thread.Resume();

    for (int n = 0; n < 10; ++n)
    {
        ++crew.open;
        crew.work.Set();
        Time::Delay(20);
    }
    if (!crew.isFinished.Lock(5000))
        std::puts("the crew is slow");
    std::printf("the crew did %u steps\n", thread.Terminate());
    alone.Unlock();
    return 0;
}

} // namespace

int main()
{
    return ExceptionHandler::Main(Run, nullptr);
}
