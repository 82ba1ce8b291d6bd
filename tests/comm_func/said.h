// What was logged, as level and text, without the places.
#pragma once

#include "tests/support/log_capture.h"

#include <string>
#include <utility>
#include <vector>

using said_lines = std::vector<std::pair<int, std::string>>;

inline said_lines said(const log_capture &logs)
{
    said_lines lines;
    for (const log_line &line : logs.lines())
        lines.emplace_back(line.level, line.text);
    return lines;
}
