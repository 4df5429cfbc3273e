#include <tarnwick/text.h>

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace tarnwick
{

namespace
{

struct DecodedCharacter
{
    char32_t character;
    size_t bytes;
};

constexpr DecodedCharacter kReplacement = {0xFFFD, 1};

bool IsAscii(char c)
{
    return static_cast<unsigned char>(c) < 0x80;
}

// The standard library's own conversions throw on bad text or depend on the locale.
DecodedCharacter DecodeFirst(std::string_view text)
{
    const auto lead = static_cast<unsigned char>(text.front());
    if (lead < 0x80)
    {
        return {lead, 1};
    }
    const size_t bytes = 1U + (lead >= 0xC0) + (lead >= 0xE0) + (lead >= 0xF0);
    if (bytes == 1 || bytes > text.size())
    {
        return kReplacement;
    }
    char32_t character = lead & (0xFFU >> bytes);
    for (const char c : text.substr(1, bytes - 1))
    {
        const auto next = static_cast<unsigned char>(c);
        if ((next & 0xC0U) != 0x80)
        {
            return kReplacement;
        }
        character = (character << 6U) | (next & 0x3FU);
    }
    constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = character >= 0xD800 && character < 0xE000;
    const bool wellFormed = character >= kSmallest[bytes] && character <= 0x10FFFF && !surrogate;
    return wellFormed ? DecodedCharacter{character, bytes} : kReplacement;
}

} // namespace

std::wstring utf8_to_filesystem_unicode(const std::string& text)
{
    std::wstring result;
    result.reserve(text.size());
    for (std::string_view rest = text; !rest.empty();)
    {
        const DecodedCharacter first = DecodeFirst(rest);
        result.push_back(static_cast<wchar_t>(first.character));
        rest.remove_prefix(first.bytes);
    }
    return result;
}

std::string latin1_to_utf8(const std::string& text)
{
    const auto ascii = static_cast<size_t>(std::count_if(text.begin(), text.end(), IsAscii));
    if (ascii == text.size())
    {
        return text;
    }
    std::string result;
    result.reserve(2 * text.size() - ascii);
    for (const char c : text)
    {
        if (IsAscii(c))
        {
            result.push_back(c);
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        result.push_back(static_cast<char>(0xC0U | (byte >> 6U)));
        result.push_back(static_cast<char>(0x80U | (byte & 0x3FU)));
    }
    return result;
}

} // namespace tarnwick
