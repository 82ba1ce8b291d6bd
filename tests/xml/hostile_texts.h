// Texts that cost a parser much more than their length suggests.
#pragma once

#include <functional>
#include <string>
#include <vector>

inline std::string repeated(const std::string &begin, const std::function<std::string(size_t)> &part, size_t bytes,
                            const std::string &end)
{
    std::string text = begin;
    for (size_t i = 0; text.size() + end.size() < bytes; i++)
        text += part(i);
    return text + end;
}

struct hostile_text {
    const char *name;
    std::function<std::string(size_t bytes)> make; // of about this length
};

// One attribute declared after the other: 40 s for 64 KB where the parser reads all of it.
inline std::string declared_attributes(size_t bytes)
{
    return repeated(
        "<!DOCTYPE command [<!ATTLIST a",
        [](size_t i) { return std::string(" ") + static_cast<char>('a' + i % 26) + std::to_string(i / 26) + " ID ''"; },
        bytes, ">]><command name=\"x\"/>");
}

inline std::string so_many_attributes(size_t bytes)
{
    return repeated("<command", [](size_t i) { return " a" + std::to_string(i) + "=''"; }, bytes, "/>");
}

inline const std::vector<hostile_text> &hostile_texts()
{
    auto repeat = [](const char *begin, const char *part, const char *end) {
        return [=](size_t bytes) { return repeated(begin, [=](size_t) { return part; }, bytes, end); };
    };
    static const std::vector<hostile_text> s_texts = {
        {"declared attributes", declared_attributes},
        {"declared entities", repeat("<!DOCTYPE command [", "<!ENTITY a 'b'>", "]><command/>")},
        {"a type of its own", repeat("<!DOCTYPE command SYSTEM 'a'>", " ", "<command/>")},
        {"attributes", so_many_attributes},
        {"name spaces", [](size_t bytes) {
             return repeated("<command", [](size_t i) { return " xmlns:a" + std::to_string(i) + "='a'"; }, bytes, "/>");
         }},
        {"names", [](size_t bytes) {
             return repeated("<command>", [](size_t i) { return "<a" + std::to_string(i) + "/>"; }, bytes, "</command>");
         }},
        {"elements", repeat("<command>", "<a/>", "</command>")},
        {"comments", repeat("<command>", "<!---->", "</command>")},
        {"instructions", repeat("<command>", "<?a?>", "</command>")},
        {"raw sections", repeat("<command>", "<![CDATA[a]]>", "</command>")},
        {"depth", repeat("<command>", "<a>", "")},
        {"bare ampersands", repeat("<command>", "&", "</command>")},
        {"unknown entities", repeat("<command>", "&a;", "</command>")},
        {"bare brackets", repeat("<command>", "<", "</command>")},
        {"ends of raw sections", repeat("<command>", "]]>", "</command>")},
        {"controls", repeat("<command>", "\x01", "</command>")},
    };
    return s_texts;
}
