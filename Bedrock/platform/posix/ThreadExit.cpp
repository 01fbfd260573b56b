#include <Bedrock/platform/ThreadExit.h>

#include <atomic>
#include <pthread.h>

namespace Zem::Platform
{

namespace
{

constinit pthread_key_t key = 0;
constinit std::atomic<bool> isOpen{false};

} // namespace

bool OpenThreadExit(void (*call)(void*)) noexcept
{
    if (isOpen.load(std::memory_order_acquire) || pthread_key_create(&key, call) != 0)
        return false;
    isOpen.store(true, std::memory_order_release);
    return true;
}

bool SetThreadExit(void* value) noexcept
{
    return isOpen.load(std::memory_order_acquire) && pthread_setspecific(key, value) == 0;
}

void CloseThreadExit() noexcept
{
    if (isOpen.exchange(false, std::memory_order_acq_rel))
        pthread_key_delete(key);
}

} // namespace Zem::Platform
