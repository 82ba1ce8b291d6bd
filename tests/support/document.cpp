#include "tests/support/document.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

std::string document(const std::string &name)
{
    std::filesystem::path path = std::filesystem::path(VOD_SOURCE_DIR) / "docs" / name;
    std::stringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    if (text.str().empty())
        ADD_FAILURE() << path << " is not there";
    return text.str();
}

static std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

static size_t heading_level(const std::string &line)
{
    size_t level = line.find_first_not_of('#');
    return level != std::string::npos && level > 0 && line[level] == ' ' ? level : 0;
}

std::string section_of(const std::string &text, const std::string &heading)
{
    std::string section;
    bool is_inside = false, is_code = false;
    for (const std::string &line : lines_of(text)) {
        is_code ^= line.starts_with("```");
        size_t level = is_code ? 0 : heading_level(line);
        if (is_inside && level != 0 && level <= heading_level(heading))
            break;
        if (is_inside)
            section += line + '\n';
        is_inside = is_inside || line == heading;
    }
    return section;
}

static std::string trimmed(const std::string &text)
{
    size_t first = text.find_first_not_of(' '), last = text.find_last_not_of(' ');
    return first == std::string::npos ? std::string() : text.substr(first, last - first + 1);
}

std::vector<std::string> parts_of(const std::string &text, const std::string &separator)
{
    std::vector<std::string> parts;
    for (size_t at = 0;;) {
        size_t end = text.find(separator, at);
        parts.push_back(trimmed(text.substr(at, end == std::string::npos ? end : end - at)));
        if (end == std::string::npos)
            return parts;
        at = end + separator.size();
    }
}

document_table table_of(const std::string &text, const std::string &header)
{
    document_table rows;
    bool is_inside = false;
    for (const std::string &line : lines_of(text)) {
        bool is_row = line.starts_with("| ") && line.size() > 3;
        if (is_inside && is_row)
            rows.push_back(parts_of(line.substr(1, line.rfind('|') - 1), "|"));
        else if (is_inside && !line.starts_with("|-"))
            break;
        is_inside = is_inside || line == header;
    }
    return rows;
}
