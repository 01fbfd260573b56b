// The object of an application's process: what it owns, what it only points to, and what it hands out.

#include <Bedrock/host/DynamicLibrary.h>
#include <Bedrock/host/OS.h>
#include <Bedrock/host/Options.h>
#include <Bedrock/memory/AllocReport.h>
#include <Bedrock/window/Window.h>

#include <gtest/gtest.h>

#include <memory>

namespace
{

using namespace Zem;

TEST(OS, OwnsItsOptionsAndPointsToTheRest)
{
    int instance = 0, first = 0, second = 0;
    const char* line = "-Width=800";
    auto os = std::make_unique<OS>(&instance, line, &first);
    EXPECT_EQ(os->GetInstance(), &instance);
    EXPECT_EQ(os->GetCmdLine(), line);
    EXPECT_STREQ(os->GetName(), "Windows");
    ASSERT_TRUE(os->GetOptions());
    EXPECT_FALSE(os->GetOptions()->Get("Width")) << "the command line is not read by itself";
    os->GetOptions()->ProcessRaw(line); // its entries go with it
    EXPECT_TRUE(os->GetOptions()->Get("width"));

    EXPECT_EQ(os->GetWindow(), nullptr);
    const std::unique_ptr<Window> inFirst(os->CreateNewWindow());
    EXPECT_EQ(os->GetWindow(), nullptr) << "the application says which one is its";
    os->SetParent(&second);
    const std::unique_ptr<Window> inSecond(os->CreateNewWindow());
    os->SetWindow(inFirst.get());
    EXPECT_EQ(os->GetWindow(), inFirst.get());
    const std::unique_ptr<DynamicLibrary> library(os->CreateDynamicLibrary());
    os.reset();
    EXPECT_EQ(inFirst->GetParent(), &first);
    EXPECT_EQ(inSecond->GetParent(), &second);
    void* symbol = &first;
    EXPECT_FALSE(library->Import(&symbol, "malloc")) << "made closed";
    EXPECT_EQ(symbol, nullptr);

    const AllocFailureForTest failure(0);
    const OS poor(nullptr, nullptr, nullptr);
    EXPECT_EQ(poor.GetOptions(), nullptr);
}

} // namespace
