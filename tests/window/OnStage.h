#pragma once

// A window on a stage, and what it has heard.

#include "support/Support.h"
#include "window/Stage.h"

#include <Bedrock/host/Options.h>
#include <Bedrock/window/MessageQueue.h>
#include <Bedrock/window/Window.h>

#include <chrono>
#include <set>
#include <thread>

namespace Test
{

using Zem::Platform::Desktop;
using Zem::Platform::WindowHandle;

/// Message as the tests compare it: which one, and its two numbers.
struct Heard
{
    std::uintptr_t number, first, second;

    bool operator==(const Heard&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const Heard& heard)
    {
        return out << std::dec << heard.number << '(' << std::hex << heard.first << ", " << heard.second << ')'
                   << std::dec;
    }
};

/// A `Window` with a hook that notes all messages but MessageFrame, and swallows those in `swallowed`.
class HostWindow
{
public:
    explicit HostWindow(void* parent = nullptr, const char* settings = "") : window(parent)
    {
        options.ProcessRaw(settings);
        opened = window.Open("Test", &options);
        window.RegisterWindowHook(&Hook, this);
    }

    WindowHandle Handle() const { return {reinterpret_cast<std::uintptr_t>(window.GetHandle())}; }

    /// A window at that place, shown, with all that this causes heard and forgotten.
    void Show(int x, int y, int width, int height)
    {
        ASSERT_TRUE(window.CreateWindowedHost(x, y, width, height, nullptr));
        window.Show(true);
        ASSERT_TRUE(Until([this] { return Has(Zem::MessagePaint); }));
        Settle();
        heard.clear();
    }

    /// Handles messages until the condition holds, for up to five seconds.
    template <class Condition>
    bool Until(Condition condition)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        for (;;)
        {
            if (!quit)
                quit = !window.HandleMessages();
            if (condition())
                return true;
            if (std::chrono::steady_clock::now() > end)
                return false;
            if (Desktop* desktop = Zem::Platform::OpenedDesktop())
                desktop->Wait(10);
        }
    }

    /// Handles messages until none has come for a while: what must not happen would have happened.
    void Settle()
    {
        std::size_t before = 0;
        for (int quiet = 0; quiet < 5 && !quit; before == heard.size() ? ++quiet : quiet = 0)
        {
            before = heard.size();
            quit = !window.HandleMessages();
            if (Desktop* desktop = Zem::Platform::OpenedDesktop())
                desktop->Wait(10);
        }
    }

    bool Has(std::uintptr_t number) const
    {
        for (const Heard& one : heard)
            if (one.number == number)
                return true;
        return false;
    }

    /// What was heard of those numbers, in order.
    std::vector<Heard> Of(const std::set<std::uintptr_t>& numbers) const
    {
        std::vector<Heard> result;
        for (const Heard& one : heard)
            if (numbers.count(one.number))
                result.push_back(one);
        return result;
    }

    Zem::Options options;
    Zem::Window window;
    bool opened = false;
    bool quit = false;
    int frames = 0;
    std::vector<Heard> heard;
    std::set<std::uintptr_t> swallowed;

private:
    static bool Hook(void* data, void* block, int&)
    {
        auto& host = *static_cast<HostWindow*>(data);
        const auto& message = *static_cast<const Zem::WindowMessage*>(block);
        if (message.number == Zem::MessageFrame)
            ++host.frames;
        else
            host.heard.push_back({message.number, message.first, message.second});
        return host.swallowed.count(message.number) != 0;
    }
};

/// Tests that run on every desktop.
class OnStage : public testing::TestWithParam<StageKind>
{
protected:
    void SetUp() override
    {
        std::string reason;
        stage = Stage::Open(GetParam(), reason);
        if (!stage)
            GTEST_SKIP() << reason;
        desktop = Zem::Platform::OpenDesktop();
        ASSERT_NE(desktop, nullptr) << Zem::Platform::DesktopProblem();
        desktop->MovePointer({Stage::size.width - 1, Stage::size.height - 1});
    }

    void TearDown() override
    {
        Zem::MessageQueue::ResetForTest();
        stage.reset();
    }

    std::unique_ptr<Stage> stage;
    Desktop* desktop = nullptr;
};

} // namespace Test
