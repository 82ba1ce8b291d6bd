// The background file operations of uploads: a queue of writes, closes and removes that one thread carries out in
// order, so that whoever receives data never waits for the disk. Functions may be called from any thread.
#pragma once

#include "platform/os/os.h"

#include <cstdint>
#include <ctime>

enum save_operation { SAVE_WRITE = 0, SAVE_CLOSE = 1, SAVE_REMOVE = 2 };

struct FileProPerty {
    char filename[260];
    time_t tm; // modification time to apply after a close, 0 for none
};

// One queued operation, allocated together with its data, which follow the record.
struct VodSaveFileInfo {
    int type;
    os_file *fp; // the file to write or close
    FileProPerty file_property;
    int size; // bytes of data that follow
};

// Creates the queue and its thread; both live as long as the process. Later calls change nothing.
int save_queue_start();
// A zeroed operation with room for `size` bytes of data. Ends the process when there is no memory.
VodSaveFileInfo *save_file_info_create(int type, const char *filename, int size);
char *save_file_info_data(VodSaveFileInfo *info);
// Hands the operation over to the queue, which frees it. 0, and nothing is handed over, before the queue was started.
int save_queue_push(VodSaveFileInfo *info);
// Queues the removal of a file.
int fremove_thr(const char *filename);
// Whether a queued operation names this file, byte for byte.
bool save_queue_names(const char *filename);
// Bytes of data waiting in the queue.
uint64_t save_queue_bytes();
// How full the queue is with that many bytes, 0 to 3.
int calc_ability_level(uint64_t queued_bytes);
// What the thread does with an operation; frees it.
void save_file_info_carry_out(VodSaveFileInfo *info, int32_t storage_type);
