// Content analysis for builds without an analysis engine: every call refuses cleanly.
#include "platform/vca/vca.h"

int vca_startup(void)
{
    return -1;
}

int vca_cleanup(void)
{
    return 0;
}

int vca_destory_query(int)
{
    return -1;
}
