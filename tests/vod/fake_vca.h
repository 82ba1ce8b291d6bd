// An analysis engine that answers what the test has set.
#pragma once

struct fake_vca_state {
    int startup_result = 0, cleanup_result = 0, startups = 0, cleanups = 0;
};
extern fake_vca_state s_fake_vca;
