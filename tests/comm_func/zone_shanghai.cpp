#include "tests/comm_func/test_zone.h"

[[maybe_unused]] static auto s_environment = testing::AddGlobalTestEnvironment(new test_zone("CST-8"));
