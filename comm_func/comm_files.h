// File names and small probes of files and the host. Results are 1 and 0 where nothing else is said.
#pragma once

#include <cstdint>

// ---- Device-qualified names -----------------------------------------------------------------------------------------

// Writes "<device>--<name>"; `filename_out` has room for both and three bytes more. 0 when an argument is NULL.
int add_cloud_devid_to_filename(const char *dev_id, const char *filename, char *filename_out);
// Splits at the first "--"; each output has room for the whole name. 1 also when there is none; the outputs are
// untouched then. 0 when an argument is NULL.
int parse_cloud_devid_filename(const char *filename, char *dev_id, char *real_filename);

// ---- Recordings -----------------------------------------------------------------------------------------------------

// 1 when one of the first 64 words of four bytes is "ftyp". The name is a client's: UTF-8, held to the access roots,
// and nothing but regular files is opened.
int is_mp4_file(const char *filename);
// The companion name with the suffix ".md5" in place of its own; `filename_md5_len` is the room for it in bytes. 0 when
// the name has that suffix already or the result does not fit; `filename_md5` may then hold the name as it was.
int replace_suffix_by_md5(const char *filename, char *filename_md5, int filename_md5_len);
// The record index's type for a recording type; types unknown to the index stay as they are.
int get_db_rec_type(int rec_type);

// ---- Disk status ----------------------------------------------------------------------------------------------------

// "/orbfs/sda/1" gives "/var/run/diskstatus/_sda_1", cut to `buf_len` bytes. Writes nothing where an argument is NULL.
void get_disk_status_filename(const char *disk_path, char *buf, int buf_len);
// 1 when the time in the check-time file is less than `valid_interval` seconds of uptime ago.
int disk_check_is_active(int valid_interval);
// The same for a check-time file of any name.
int disk_check_file_is_active(const char *filename, int valid_interval);
// Fixed answers: 0, -1, and 0 without running anything.
long get_uptime();
long get_uptime_from_status_file(const char *filename);
int get_cmd_result(const char *cmd, char *result, int size);
