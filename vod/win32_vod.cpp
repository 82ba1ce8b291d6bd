// The module's shared library is made of the static libraries of its folders; this file only gives it a source of its
// own.
#include "win32_vod/vod.h"
