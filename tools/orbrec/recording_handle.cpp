#include "tools/orbrec/recording_handle.h"

#include "platform/os/os_guard.h"

recording_ref recording_open(const std::string &path)
{
    AVOrbFileFilter filter = {};
    filter.iSize = sizeof filter;
    filter.iCreateType = 1;
    text_copy(filter.cFileName, path);
    AVFilterStartup();
    return recording_ref(AVFilterCreate(0, &filter, sizeof filter));
}
