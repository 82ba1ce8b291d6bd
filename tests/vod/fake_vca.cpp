#include "tests/vod/fake_vca.h"

#include "platform/vca/vca.h"

fake_vca_state s_fake_vca;

int vca_startup(void)
{
    s_fake_vca.startups++;
    return s_fake_vca.startup_result;
}

int vca_cleanup(void)
{
    s_fake_vca.cleanups++;
    return s_fake_vca.cleanup_result;
}
