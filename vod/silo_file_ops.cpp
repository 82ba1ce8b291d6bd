#include "vod/silo_file_ops.h"

void silo_db_init() {}
