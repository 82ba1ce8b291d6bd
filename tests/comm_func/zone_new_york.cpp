#include "tests/comm_func/test_zone.h"

static char s_zone[] = "TZ=EST5EDT,M3.2.0,M11.1.0";
[[maybe_unused]] static auto s_environment = testing::AddGlobalTestEnvironment(new test_zone(s_zone));
