// In place of output_media.cpp where the media libraries are missing.
#include "tools/vodctl/output.h"

std::unique_ptr<play_output> media_output_open(const play_settings &, tool_output *, std::string *error)
{
    *error = "this vodctl was built without the FFmpeg libraries: use --format rec";
    return nullptr;
}
