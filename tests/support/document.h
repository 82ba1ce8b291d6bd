// The project's documents as tests read them: what a manual says is compared with what a program does.
#pragma once

#include <string>
#include <vector>

// The text of docs/`name`; the test fails when there is none.
std::string document(const std::string &name);

// What stands below the heading `heading` ("## play"), up to the next one of its level or above; empty when there is no
// such heading.
std::string section_of(const std::string &text, const std::string &heading);

// The rows of the first table whose header row is `header`, each cell without the blanks around it; the header and the
// line below it are left out.
using document_table = std::vector<std::vector<std::string>>;
document_table table_of(const std::string &text, const std::string &header);

// `text` cut at each `separator`, the parts without the blanks around them.
std::vector<std::string> parts_of(const std::string &text, const std::string &separator);
