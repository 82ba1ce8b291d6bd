// What a process costs, as Windows tells it.
#pragma once

#include "tests/support/child_process.h"

#include <windows.h>

child_figures child_figures_of(HANDLE process, DWORD pid);
