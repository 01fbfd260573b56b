// The shared library from outside: what it exports, how it loads, starts, ends and unloads.

#include "support/Child.h"
#include "support/Support.h"

#include <dlfcn.h>
#include <fstream>
#include <sstream>

namespace
{

std::vector<std::vector<std::string>> Table(const std::string& text)
{
    std::vector<std::vector<std::string>> rows;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
    {
        std::istringstream words(line);
        rows.emplace_back();
        for (std::string word; words >> word;)
            rows.back().push_back(word);
    }
    return rows;
}

bool StartsWith(const std::string& text, std::initializer_list<const char*> beginnings)
{
    for (const char* beginning : beginnings)
        if (text.rfind(beginning, 0) == 0)
            return true;
    return false;
}

bool IsMapped(const std::string& file)
{
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        if (line.find(file) != std::string::npos)
            return true;
    return false;
}

const std::string libraryFile = std::filesystem::canonical(LIBRARY).filename().string();

// An application's own symbols must never meet ours, and its operators new and malloc stay its own.
TEST(Boundary, ExportsTheNamespaceAndTwoFunctionsAndImportsNoGlobalHeap)
{
    const auto listed = ::Test::RunProgram({"nm", "-D", LIBRARY});
    ASSERT_EQ(listed.result, 0);
    int exported = 0;
    for (const auto& row : Table(listed.text))
    {
        const std::string symbol = row.back().substr(0, row.back().find('@'));
        EXPECT_TRUE(SANITIZED || !StartsWith(symbol, {"_Znw", "_Zna", "_ZdlPv", "_ZdaPv"})) << symbol;
        if (row.size() != 3)
            continue; // imported
        ++exported;
        EXPECT_TRUE(SANITIZED || StartsWith(symbol, {"_ZN3Zem", "_ZNK3Zem", "_ZTVN3Zem", "_ZTIN3Zem", "_ZTSN3Zem",
                                                     "_ZThn", "_Z11ARGBToRGB16", "_Z11ARGBToRGB24"}))
            << symbol;
    }
    EXPECT_GT(exported, 100);
}

// The names that a program binds to: one for each class of a family, so that a lost ZEM_API is seen.
TEST(Boundary, HasItsChiefClassesAndItsName)
{
    const auto dynamic = ::Test::RunProgram({"readelf", "-d", LIBRARY});
    EXPECT_NE(dynamic.text.find("Library soname: [" SONAME "]"), std::string::npos) << dynamic.text;
    EXPECT_STREQ(SONAME, "libBedrock.so.1");
    const auto listed = ::Test::RunProgram({"nm", "-DC", "--defined-only", LIBRARY});
    for (const char* name :
         {"Zem::Alloc::New(", "Zem::String::", "Zem::PString::Init()", "vtable for Zem::Exception",
          "typeinfo for Zem::FileEx", "vtable for Zem::CriticalSection", "Zem::SingleLock::Lock(", "Zem::Time::Ms()",
          "Zem::Date::Str(", "vtable for Zem::DynamicLibrary", "Zem::SharedMemory::ProcessAttach()",
          "Zem::Debugger::Output(", "Zem::Thread::GetCurrentId()"})
        EXPECT_NE(listed.text.find(name), std::string::npos) << name;
    for (const auto& row : Table(::Test::RunProgram({"nm", "-D", "--defined-only", LIBRARY}).text))
        EXPECT_FALSE(StartsWith(row.back(), {"_ZN3Zem8Platform", "_ZNK3Zem8Platform", "_ZN3Zem7Library"}))
            << row.back();
}

// Statics of the application live within the library's life; a handle that outlives the cache finds it gone and does no
// harm.
TEST(Boundary, OutlivesStaticsAndIsHarmlessWhenOutlived)
{
    const auto run = ::Test::RunProgram({GUEST});
    EXPECT_EQ(run.result, 0);
    EXPECT_EQ(run.text, "interned main own-static cache-gone null heap ");
}

// In a child, which starts without the library.
TEST(Boundary, LoadsStartsAndUnloadsTwice)
{
    if (SANITIZED)
        GTEST_SKIP() << "a sanitizer keeps what it has seen in memory";
    EXPECT_EQ(::Test::WaitFor(::Test::Fork(
                  []
                  {
                      if (IsMapped(libraryFile))
                          return 1;
                      for (int round = 0; round < 2; ++round)
                      {
                          void* library = dlopen(LIBRARY, RTLD_NOW | RTLD_LOCAL);
                          if (!library)
                              return 10 * round + 2;
                          auto** cache = static_cast<void**>(dlsym(library, "_ZN3Zem7PString5cacheE"));
                          auto* frequency = static_cast<const std::int64_t*>(dlsym(library, "_ZN3Zem4Time4freqE"));
                          if (!cache || !*cache)
                              return 10 * round + 3; // not attached
                          if (!frequency || *frequency <= 0)
                              return 10 * round + 4; // the clock was not started
                          const auto take = reinterpret_cast<void* (*)(std::size_t)>(
                              dlsym(library, sizeof(void*) == 8 ? "_ZN3Zem5Alloc3NewEm" : "_ZN3Zem5Alloc3NewEj"));
                          const auto give =
                              reinterpret_cast<void (*)(void*)>(dlsym(library, "_ZN3Zem5Alloc6DeleteEPv"));
                          if (!take || !give)
                              return 10 * round + 7;
                          give(take(1000));
                          if (dlclose(library) != 0)
                              return 10 * round + 5;
                          if (IsMapped(libraryFile))
                              return 10 * round + 6; // kept in memory
                      }
                      return 0;
                  })),
              0);
}

} // namespace
