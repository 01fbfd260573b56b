// The option "Log" of any bytes: Init takes it, and the clients are set as a second reader would set them. What is not
// understood changes nothing.

#include <Bedrock/host/Log.h>
#include <Bedrock/host/Options.h>

#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>
#include <unistd.h>
#include <vector>

using Zem::Log;
using Zem::LogClient;
using Zem::Options;

namespace
{

void Require(bool holds)
{
    if (!holds)
        std::abort();
}

std::string Lower(std::string text)
{
    for (char& c : text)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    return text;
}

struct Settings
{
    int threshold = 2;
    std::uint32_t outputs = 3;
    std::uint32_t format = 3;
};

// The parts between separators that are not empty.
std::vector<std::string> Parts(const std::string& text, char separator)
{
    std::vector<std::string> parts(1);
    for (const char c : text)
        if (c == separator)
            parts.emplace_back();
        else
            parts.back() += c;
    std::erase(parts, "");
    return parts;
}

void Apply(std::map<std::string, Settings>& model, const std::string& setting)
{
    const auto fields = Parts(setting, ':');
    if (fields.empty())
        return;
    Settings& settings = model[Lower(fields[0])];
    for (std::size_t i = 1; i < fields.size(); ++i)
    {
        std::string field = Lower(fields[i]);
        const std::vector<std::string> levels = {"none", "err", "warn", "diag", "prog"};
        for (int level = 0; level < 5; ++level)
            if (field == levels[static_cast<std::size_t>(level)])
                settings.threshold = level;
        field.erase(0, field.find_first_not_of('='));
        const std::string word = field.substr(0, field.find('='));
        const bool on = field != word + "=off";
        const auto set = [on](std::uint32_t& flags, std::uint32_t flag) { flags = on ? flags | flag : flags & ~flag; };
        if (word == "file")
            set(settings.outputs, 1);
        if (word == "mono")
            set(settings.outputs, 2);
        if (word == "window")
            set(settings.outputs, 8);
        if (word == "newlines")
            set(settings.format, 1);
        if (word == "displaymodulename")
            set(settings.format, 2);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > 1 << 14)
        return 0;
    const std::string value = std::string(reinterpret_cast<const char*>(data), size).c_str();
    static const std::string file = "/dev/shm/bedrock-fuzz-log-" + std::to_string(getpid());
    Log::Done();
    Log::ForgetClientsForTest();
    LogClient::disabled = false;
    Options options;
    // In quotes when it has none, so that every other byte reaches the log; otherwise as it comes.
    options.ProcessRaw(value.find_first_of("'\"") == std::string::npos ? ("-Log='" + value + "'").c_str()
                                                                       : ("-Log=" + value).c_str());
    options.ProcessRaw(("-LogFlush=off -LogFile=" + file).c_str());
    Log::Init(&options);
    unlink(file.c_str());

    std::map<std::string, Settings> model;
    options.SetSeperators("Log", ",");
    Zem::String token;
    while (options.GetNext("log", token))
        Apply(model, token ? static_cast<const char*>(token) : "");
    for (const auto& [name, settings] : model)
    {
        LogClient* const client = Log::GetClient(name.c_str());
        Require(client != nullptr && Lower(client->Name() ? client->Name() : "") == name);
        Require(client->threshold == settings.threshold && client->outputs == settings.outputs &&
                client->format == settings.format);
        client->Write(LogClient::Warn, "%s", name.c_str());
    }
    Require(LogClient::disabled == options.Get("NoLog"));
    return 0;
}
