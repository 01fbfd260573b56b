// Option text of any bytes, in two sources: the keys and values are those that a second reader finds, the history ends in
// the value in force, and the tokens of a value are slices of it in order.

#include <Bedrock/host/Options.h>
#include <tests/support/OptionsModel.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

using Zem::Options;
using Zem::String;

namespace
{

void Require(bool holds)
{
    if (!holds)
        std::abort();
}

std::string Text(const char* text)
{
    return text ? text : "";
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > 1 << 14)
        return 0;
    // Up to two texts, parted by the first zero byte; another one ends the second.
    const std::string all(reinterpret_cast<const char*>(data), size);
    const std::string first = all.c_str();
    const std::string second = first.size() < size ? all.c_str() + first.size() + 1 : "";
    Options options;
    options.ProcessRaw(first.c_str());
    setenv("FuzzOptions", second.c_str(), 1);
    options.ProcessEnv("FuzzOptions");

    const auto model = Test::ParseOptions(second, Test::ParseOptions(first));
    Require(options.Count() == model.size());
    const Zem::OptionEntry* entry = options.First();
    for (const auto& [key, value] : model)
    {
        Require(Text(entry->name) == key && Text(entry->value) == value);
        String found;
        Require(options.Get(key.c_str(), found) && Text(found) == value);

        Options::Origin origin;
        std::string newer;
        bool appended = false;
        for (std::uint32_t back = 0; back == 0 || options.GetOrigin(key.c_str(), origin, back); ++back)
        {
            Require(back < 2);
            if (back == 0)
                Require(options.GetOrigin(key.c_str(), origin) && Text(origin.value) == value);
            const std::string text = Text(origin.value);
            Require(!appended || newer.compare(0, text.size() + 1, text + ",") == 0);
            newer = text;
            appended = origin.appended;
        }

        options.SetSeperators(key.c_str(), ",:=");
        String token;
        std::size_t at = 0;
        while (options.GetNext(key.c_str(), token))
        {
            const std::string text = Text(token);
            Require(text.find_first_of(",:=") == std::string::npos);
            at = value.find(text, at);
            Require(at != std::string::npos);
            at += text.size();
        }
        std::int32_t number;
        std::uint32_t whole;
        float real;
        bool on;
        Zem::Range<int> range{};
        Require(options.Get(key.c_str(), number, 0) && options.Get(key.c_str(), whole, 0) &&
                options.Get(key.c_str(), real, 0) && options.Get(key.c_str(), on, false));
        const std::size_t colon = value.find(':');
        Require(options.Get(key.c_str(), range) == (colon != std::string::npos && colon + 1 < value.size()));
        entry = entry->next;
    }
    Require(entry == nullptr);
    return 0;
}
