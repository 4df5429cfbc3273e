#include <tarnwick/text.h>

#include <algorithm>
#include <cstddef>

namespace tarnwick
{

namespace
{

constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kFirstSupplementary = 0x10000;

struct DecodedCharacter
{
    char32_t character;
    size_t bytes;
};

unsigned char ByteAt(const std::string& text, size_t position)
{
    return static_cast<unsigned char>(text[position]);
}

size_t SequenceLength(unsigned char lead)
{
    if (lead < 0x80)
    {
        return 1;
    }
    if (lead >= 0xC2 && lead < 0xE0)
    {
        return 2;
    }
    if (lead >= 0xE0 && lead < 0xF0)
    {
        return 3;
    }
    return lead >= 0xF0 && lead < 0xF5 ? 4 : 0;
}

bool IsWellFormed(char32_t character, size_t bytes)
{
    constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, kFirstSupplementary};
    const bool surrogate = character >= 0xD800 && character < 0xE000;
    return character >= kSmallest[bytes] && character <= 0x10FFFF && !surrogate;
}

DecodedCharacter Decode(const std::string& text, size_t position)
{
    const unsigned char lead = ByteAt(text, position);
    const size_t bytes = SequenceLength(lead);
    if (bytes == 1)
    {
        return {lead, 1};
    }
    if (bytes == 0 || position + bytes > text.size())
    {
        return {kReplacement, 1};
    }
    char32_t character = lead & (0x7FU >> bytes);
    for (size_t i = 1; i < bytes; ++i)
    {
        const unsigned char next = ByteAt(text, position + i);
        if ((next & 0xC0U) != 0x80U)
        {
            return {kReplacement, 1};
        }
        character = (character << 6U) | (next & 0x3FU);
    }
    return IsWellFormed(character, bytes) ? DecodedCharacter{character, bytes} : DecodedCharacter{kReplacement, 1};
}

void Append(std::wstring& result, char32_t character)
{
    if (sizeof(wchar_t) == 2 && character >= kFirstSupplementary)
    {
        const char32_t offset = character - kFirstSupplementary;
        result.push_back(static_cast<wchar_t>(0xD800U + (offset >> 10U)));
        result.push_back(static_cast<wchar_t>(0xDC00U + (offset & 0x3FFU)));
        return;
    }
    result.push_back(static_cast<wchar_t>(character));
}

bool IsAscii(char c)
{
    return static_cast<unsigned char>(c) < 0x80;
}

} // namespace

std::wstring utf8_to_filesystem_unicode(const std::string& text)
{
    std::wstring result;
    result.reserve(text.size());
    for (size_t position = 0; position < text.size();)
    {
        const DecodedCharacter decoded = Decode(text, position);
        Append(result, decoded.character);
        position += decoded.bytes;
    }
    return result;
}

std::string latin1_to_utf8(const std::string& text)
{
    const auto firstHigh = std::find_if_not(text.begin(), text.end(), IsAscii);
    if (firstHigh == text.end())
    {
        return text;
    }
    std::string result(text.begin(), firstHigh);
    result.reserve(text.size() +
                   static_cast<size_t>(std::count_if(firstHigh, text.end(), [](char c) { return !IsAscii(c); })));
    for (auto it = firstHigh; it != text.end(); ++it)
    {
        const auto byte = static_cast<unsigned char>(*it);
        if (byte < 0x80)
        {
            result.push_back(*it);
            continue;
        }
        result.push_back(static_cast<char>(0xC0U | (byte >> 6U)));
        result.push_back(static_cast<char>(0x80U | (byte & 0x3FU)));
    }
    return result;
}

} // namespace tarnwick
