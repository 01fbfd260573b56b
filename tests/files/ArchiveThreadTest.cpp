// Threads that read, miss and append in one archive at once.

#include "files/Mounted.h"
#include "support/Support.h"

#include <atomic>
#include <thread>

using namespace ::Test;
using Zem::File;

TEST(ArchiveThreads, ReadMissAndAppendAtOnce)
{
    const Directory directory;
    const Mounted mounted("arc", "a.arc", true);
    constexpr std::uint32_t members = 60;
    for (std::uint32_t i = 0; i < members; ++i)
        ASSERT_EQ(Store("arc:m" + std::to_string(i), Text(i * 701, i), i % 2 ? 1 : 2), "");

    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (std::uint32_t t = 0; t < 4; ++t)
        threads.emplace_back(
            [&, t]
            {
                for (std::uint32_t i = 0; i < 2 * members; ++i)
                {
                    const std::uint32_t id = (i * 7 + t * 13) % members;
                    wrong += Fetch("arc:M" + std::to_string(id)) != Text(id * 701, id);
                    wrong += Fetch("arc:none" + std::to_string(t)).has_value();
                    if (i % 40 == t)
                    {
                        const std::string name = "arc:t" + std::to_string(t) + "-" + std::to_string(i);
                        wrong += !Store(name, Content(i * 100, t)).empty();
                        wrong += Fetch(name) != Content(i * 100, t);
                    }
                }
            });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
}
