#pragma once

// A second reader of option texts, for tests and fuzzing.

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace Test
{

/// Keys in small letters and their values, in order of first appearance.
using Pairs = std::vector<std::pair<std::string, std::string>>;

/// The rules of the library in another hand: positions in a std::string, and a list that is searched from end to end.
/// `text` has no zero byte; `pairs` is what is there before.
inline Pairs ParseOptions(const std::string& text, Pairs pairs = {})
{
    const std::string blanks = " \t\n\v\f\r";
    const auto skip = [&](std::size_t at) { return std::min(text.find_first_not_of(blanks, at), text.size()); };
    for (std::size_t at = 0; at < text.size();)
    {
        at = skip(at);
        char prefix = 0;
        if (at < text.size() && std::string("/-+").find(text[at]) != std::string::npos)
            prefix = text[at++];
        const std::size_t keyEnd = std::min(text.find_first_of(blanks + "=-+", at), text.size());
        std::string key = text.substr(at, keyEnd - at);
        std::string value;
        at = skip(keyEnd);
        if (at < text.size() && text[at] == '=')
        {
            at = skip(at + 1);
            if (at < text.size() && (text[at] == '\'' || text[at] == '"'))
            {
                const std::size_t end = std::min(text.find_first_of("'\"", at + 1), text.size());
                value = text.substr(at + 1, end - at - 1);
                at = end == text.size() ? end : end + 1;
            }
            else
            {
                std::size_t end = at;
                while (end < text.size() && !(blanks.find(text[end]) != std::string::npos && end + 1 < text.size() &&
                                              std::string("/-+").find(text[end + 1]) != std::string::npos))
                    ++end;
                value = text.substr(at, end - at);
                value.erase(value.find_last_not_of(blanks + "/-+") + 1);
                at += value.size();
            }
        }
        else if (at == keyEnd && at < text.size() && text[at] != '=')
            value = text[at++];
        for (char& c : key)
            c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
        if (key.empty())
            continue;
        auto found = std::find_if(pairs.begin(), pairs.end(), [&](const auto& pair) { return pair.first == key; });
        if (found == pairs.end())
            pairs.emplace_back(key, value);
        else if (prefix == '+' && !found->second.empty())
            found->second += "," + value;
        else
            found->second = value;
    }
    return pairs;
}

} // namespace Test
