#include "tests/comm_func/test_zone.h"

[[maybe_unused]] static auto s_environment = testing::AddGlobalTestEnvironment(new test_zone("EST5EDT,M3.2.0,M11.1.0"));
