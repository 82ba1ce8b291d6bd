#include "tests/comm_func/test_zone.h"

static char s_zone[] = "TZ=CST-8";
[[maybe_unused]] static auto s_environment = testing::AddGlobalTestEnvironment(new test_zone(s_zone));
