// Files that link-state requests make the service write.
#pragma once

#include <string>

// Writes the document of a link-state request under the client's name (UTF-8). Without access roots that is where the file
// goes; with them it goes into the folder for state documents, which holds a limited number of them: the oldest makes
// room. 0, logged, when the name or the writing is refused.
int state_file_write(const std::string &name, const std::string &text);
