#include "vod/silo_file_ops.h"

// There is no store behind the index: nothing can be searched, nothing entered.
int silo_db_init()
{
    return -1;
}

int silo_db_find_file(const char *, int32_t, int32_t, const DVR_TIME *, const DVR_TIME *, int32_t *)
{
    return 0;
}

int silo_db_get_next_file(int32_t, RecordFileInfo *)
{
    return -1;
}

int silo_db_find_close(int32_t)
{
    return 0;
}

int silo_insert_upload_rec_info(UpDataInfo *)
{
    return 0;
}

int silo_delete_upload_rec_info(const char *)
{
    return 0;
}
