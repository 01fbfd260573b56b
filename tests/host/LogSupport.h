#pragma once

// What the tests of the log share: a fresh log in a folder of its own, and its lines.

#include <Bedrock/host/Log.h>
#include <Bedrock/host/Options.h>

#include "support/Support.h"

#include <sstream>
#include <string>
#include <vector>

namespace Test
{

inline const std::string logBanner = "Zem v???.?? Build 1.3.????? on Oct 17 2002 at 02:00:50.\r\n\r\n";

/// An empty folder, and a log that nobody has used.
class FreshLog : public ::testing::Test
{
protected:
    void SetUp() override { Reset(); }
    void TearDown() override { Reset(); }

    static void Reset()
    {
        Zem::Log::Shutdown(true);
        Zem::Log::Done();
        Zem::LogClient::disabled = false;
    }

    /// Done and a new start with these options.
    static void Start(const std::string& text)
    {
        Reset();
        Zem::Options options;
        options.ProcessRaw(text.c_str());
        options.ProcessRaw(text.find("LogFlush") == std::string::npos ? "-LogFlush+" : ""); // the last setting stays
        Zem::Log::Init(&options);
    }

    static std::string Content(const std::string& name = "ZemLog.txt")
    {
        const auto bytes = ReadFile(name);
        return std::string(bytes.begin(), bytes.end());
    }

    /// What stands between the head of an open or ended log and `end`.
    static std::string Body(const std::string& end = "")
    {
        const std::string all = Content();
        const std::string head = logBanner + "Begin:\r\n";
        EXPECT_EQ(all.substr(0, head.size()), head);
        EXPECT_GE(all.size(), head.size() + end.size());
        EXPECT_EQ(all.substr(all.size() - end.size()), end);
        return all.substr(head.size(), all.size() - head.size() - end.size());
    }

    /// The messages of lines without prefix.
    static std::vector<std::string> Lines(const std::string& body)
    {
        std::vector<std::string> lines;
        std::istringstream stream(body);
        for (std::string line; std::getline(stream, line);)
        {
            EXPECT_TRUE(!line.empty() && line.back() == '\r') << line;
            lines.push_back(line.substr(0, line.size() - 1));
        }
        return lines;
    }

    Directory here;
};

} // namespace Test
