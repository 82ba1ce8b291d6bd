/*
 * The operating-system layer: the only door through which the system reaches threads, clocks, files, character sets,
 * the logger and the host. Everything above it is the same on every host.
 *
 * Unless a function says otherwise it may be called from any thread, returns 1 for success and 0 for failure, and
 * leaves its output arguments untouched when it fails. Texts are zero-terminated. Sizes are bytes, times are
 * milliseconds where the name ends in _ms and seconds since 1970-01-01 00:00:00 UTC where it says seconds.
 */
#ifndef PLATFORM_OS_OS_H
#define PLATFORM_OS_OS_H

#include "platform/os/orb_export.h"

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Error number of the calling thread ------------------------------------------------------------------------- */

/* The code that the last failing call of this thread left behind (0x10000xx values of the service). 0 at start. */
ORB_API uint32_t os_get_errno(void);
ORB_API void os_set_errno(uint32_t code);

/* ---- Clocks ----------------------------------------------------------------------------------------------------- */

/* Milliseconds of a monotonic clock with an arbitrary start. Never goes back, whatever happens to the wall clock. */
ORB_API uint64_t os_tick(void);
/* The wall clock, seconds since 1970. */
ORB_API int64_t os_time(void);
/* Blocks the calling thread for at least `ms` milliseconds; 0 only yields. */
ORB_API void os_sleep(uint32_t ms);

/*
 * A clock of the caller's own, for tests: while one is installed every clock, sleep and timed wait of this layer goes
 * through it. `sleep` may return at once (recording what was asked). `tick` must not go back. NULL restores the host's.
 * The record is copied. Install it before the threads that use it start.
 */
struct os_clock {
    uint64_t (*tick)(void *user);
    int64_t (*time)(void *user);
    void (*sleep)(void *user, uint32_t ms);
    void *user;
};
ORB_API void os_clock_install(const struct os_clock *clock);

/*
 * Calendar conversions with one behaviour on every host. os_mktime reads local time, normalises `parts` and answers -1
 * for instants before 1970 and after the year 3000. os_localtime and os_gmtime fail, leaving `parts` as it is, for the
 * same instants. With tm_isdst below 0 a local time that comes twice is standard time, and one that is skipped is put
 * right by the bias (02:30 becomes 01:30), whatever was converted before. The host's zone is read once in a process.
 */
ORB_API int64_t os_mktime(struct tm *parts);
ORB_API int os_localtime(int64_t seconds, struct tm *parts);
ORB_API int os_gmtime(int64_t seconds, struct tm *parts);

/* ---- Threads ---------------------------------------------------------------------------------------------------- */

typedef struct LThread {
    struct os_thread_impl *impl;
} LThread;

typedef int (*os_thread_func)(void *arg);

/*
 * Starts `func(arg)` on a new thread. `stack_bytes` 0 takes the layer's default (512 KiB). `thread` receives the handle,
 * which must be given to exactly one of join and detach. Failure leaves `thread` zero.
 */
ORB_API int os_thread_create(LThread *thread, size_t stack_bytes, os_thread_func func, void *arg);
/* Waits for the end of the thread and releases the handle. `result` (may be NULL) receives what the thread returned. */
ORB_API int os_thread_join(LThread *thread, int *result);
/* Releases the handle; the thread goes on by itself. */
ORB_API int os_thread_detach(LThread *thread);
/* Names the calling thread for debuggers and logs; at most 15 characters are kept. */
ORB_API void os_thread_name(const char *name);
/* A number that no other living thread has. */
ORB_API uint64_t os_thread_id(void);

/* ---- Mutexes and conditions ------------------------------------------------------------------------------------- */

typedef struct LMutex {
    struct os_mutex_impl *impl;
} LMutex;

/* `recursive` 1: the thread that holds it may lock it again. A mutex must be initialised before anything else. */
ORB_API int os_mutex_init(LMutex *mutex, int recursive);
/* The mutex must be free and nobody may wait for it. Destroying an uninitialised (zero) mutex fails. */
ORB_API int os_mutex_destroy(LMutex *mutex);
ORB_API int os_mutex_lock(LMutex *mutex);
ORB_API int os_mutex_unlock(LMutex *mutex);
/*
 * Gives the mutex a place in the lock order, 1 outermost. Builds with OS_LOCK_RANKS stop the process, naming both
 * places, when a thread takes a mutex whose rank is not above every ranked mutex that it already holds (taking the same
 * mutex again is allowed). Rank 0, the start, is not checked.
 */
ORB_API void os_mutex_set_rank(LMutex *mutex, int rank, const char *name);
/* As os_mutex_lock, with the place that the order check names. */
ORB_API int os_mutex_lock_at(LMutex *mutex, const char *file, int line);
/*
 * As os_mutex_unlock, for a mutex that is lent around a wait or a callback. Builds with OS_LOCK_RANKS stop the process,
 * naming all places, unless the caller holds it exactly once: a recursive one would stay locked meanwhile. os_cond_wait
 * checks the same.
 */
ORB_API int os_mutex_lend_at(LMutex *mutex, const char *file, int line);

typedef struct LCond {
    struct os_cond_impl *impl;
} LCond;

#define OS_WAIT_FOREVER 0xFFFFFFFFu

ORB_API int os_cond_init(LCond *cond);
ORB_API int os_cond_destroy(LCond *cond);
/*
 * Waits on the monotonic clock for at most `ms`, with `mutex` (held exactly once by the caller) released meanwhile.
 * 1 when woken, which may be for no reason, 0 when the time ran out.
 */
ORB_API int os_cond_wait(LCond *cond, LMutex *mutex, uint32_t ms);
ORB_API int os_cond_signal(LCond *cond);
ORB_API int os_cond_broadcast(LCond *cond);

/* ---- Lists ------------------------------------------------------------------------------------------------------ */

/*
 * Doubly linked lists of elements of one size, copied in and out, each with its own recursive lock. No call takes that
 * lock by itself: callers that share a list bracket their work with adt_dlist_lock and adt_dlist_unlock.
 */
typedef struct DList DList;
typedef struct DListNode DListNode;

ORB_API DList *adt_dlist_create(size_t element_size);
/* Frees the list and its nodes, not what pointer elements point at. NULL is allowed. */
ORB_API void adt_dlist_destroy(DList *list);
ORB_API void adt_dlist_lock(DList *list);
ORB_API void adt_dlist_unlock(DList *list);
/* Place of the list's lock in the lock order, see os_mutex_set_rank. */
ORB_API void adt_dlist_set_rank(DList *list, int rank, const char *name);
ORB_API size_t adt_dlist_size(const DList *list);
ORB_API int adt_dlist_empty(const DList *list);
/* Each copies one element in and returns its node, NULL when out of memory. `before` NULL appends. */
ORB_API DListNode *adt_dlist_push_back(DList *list, const void *element);
ORB_API DListNode *adt_dlist_push_front(DList *list, const void *element);
ORB_API DListNode *adt_dlist_insert(DList *list, DListNode *before, const void *element);
/* Removes and frees the node; returns the one after it, NULL at the end. */
ORB_API DListNode *adt_dlist_erase(DList *list, DListNode *node);
ORB_API DListNode *adt_dlist_head(const DList *list);
ORB_API DListNode *adt_dlist_tail(const DList *list);
ORB_API DListNode *adt_dlist_next(const DListNode *node);
ORB_API DListNode *adt_dlist_prev(const DListNode *node);
/* The element inside the node; valid until the node is erased. */
ORB_API void *adt_dlist_data(DListNode *node);

/* ---- Character sets --------------------------------------------------------------------------------------------- */

/*
 * Converts `in_len` bytes from one character set to another ("utf-8", "GB18030", "GB2312"; case does not matter). The
 * result is zero-terminated and never cut: returns its length without the zero, or 0 or less when the input is invalid,
 * ends inside a character, or does not fit into `out_size` with its zero. `out` is then an empty text.
 */
ORB_API int os_code_convert(const char *from, const char *to, char *out, size_t out_size, const char *in, size_t in_len);

/* ---- Files ------------------------------------------------------------------------------------------------------ */

/*
 * Paths inside the system keep backslashes and are GB18030. os_path_to_host is the one function that turns them into
 * the host's form; every call below uses it. 0 when the result does not fit or cannot be represented.
 */
ORB_API int os_path_to_host(const char *path, char *host, size_t host_size);
/* The other way round, for names that come from the host (command lines, folder listings). */
ORB_API int os_path_from_host(const char *host, char *path, size_t path_size);
/*
 * Character set of names in the host's file system: "GB18030" (bytes as they are, the default) or "UTF-8" (names are
 * decoded before use). Set once at start, before other threads use files.
 */
ORB_API int os_fs_charset_set(const char *charset);

/*
 * Folders below which client-named files must lie, after resolving `..` and links. With none set (count 0) every path
 * is allowed. Holds for calls with OS_FILE_CLIENT. The texts (UTF-8, host separators or backslashes) are copied.
 * Set once at start. Fails, leaving the earlier roots, when a root is not an existing folder.
 */
ORB_API int os_access_roots_set(const char *const *roots, size_t count);
/*
 * Shuts a folder (in the host's form) and everything below it to calls with OS_FILE_CLIENT, roots or not: for files that
 * must not be opened a second time by this process, such as a store's. Fails when it is no existing folder.
 */
ORB_API int os_access_protect(const char *host_folder);

typedef struct os_file os_file;

enum os_file_flags {
    OS_FILE_READ = 1,      /* must exist */
    OS_FILE_WRITE = 2,     /* created when missing, emptied when there */
    OS_FILE_UPDATE = 4,    /* read and write, created when missing, kept when there */
    OS_FILE_EXCLUSIVE = 8, /* with WRITE or UPDATE: must not exist */
    OS_FILE_CLIENT = 16    /* a client named it: the access roots hold, links are resolved before the check */
};

/*
 * Opens a regular file. Anything else (folders, devices, pipes) is refused without blocking. The handle is not
 * inherited by child processes. os_file_error tells why the last call of this thread failed, in words.
 */
ORB_API int os_file_open(const char *path, int flags, os_file **file);
ORB_API int os_file_close(os_file *file);
/* Bytes read (fewer only at the end of the file), 0 at the end, -1 on error. Interrupted reads are continued. */
ORB_API int64_t os_file_pread(os_file *file, void *buffer, size_t size, uint64_t offset);
/* Writes all bytes or fails. */
ORB_API int os_file_pwrite(os_file *file, const void *buffer, size_t size, uint64_t offset);
ORB_API int os_file_size(os_file *file, uint64_t *size);
ORB_API int os_file_truncate(os_file *file, uint64_t size);
ORB_API int os_file_sync(os_file *file);
ORB_API const char *os_file_error(void);

struct os_file_info {
    uint64_t size;
    int64_t modified_seconds;
    int is_regular;
    int is_directory;
};
/* `flags`: 0 or OS_FILE_CLIENT. */
ORB_API int os_file_stat(const char *path, int flags, struct os_file_info *info);
ORB_API int os_file_rename(const char *from, const char *to);
ORB_API int os_file_remove(const char *path);
/* Sets the modification time (and the time of last access) of a file that is there; seconds since 1970. */
ORB_API int os_file_set_modified(const char *path, int64_t seconds);
/* Succeeds when the folder is already there. */
ORB_API int os_directory_create(const char *path);
/* Calls `visit(user, name)` for each entry but "." and "..", in name order, until it returns 0. Names are paths' parts. */
ORB_API int os_directory_list(const char *path, int (*visit)(void *user, const char *name), void *user);
/* Bytes that this process may still write below `path`, and the file system's size. */
ORB_API int os_disk_space(const char *path, uint64_t *available_bytes, uint64_t *total_bytes);
/*
 * Writes the whole text to `path` through a temporary file beside it and a rename, so that a reader sees the old file
 * or the new one. A link or anything that is no regular file at `path` is refused. `flags`: 0 or OS_FILE_CLIENT.
 */
ORB_API int os_file_replace(const char *path, int flags, const void *bytes, size_t size);

/* ---- The host --------------------------------------------------------------------------------------------------- */

/* Full path of the running executable with the host's separators. The length, or 0 when it cannot be had or is cut. */
ORB_API size_t os_module_filename(char *buffer, size_t size);
ORB_API int os_process_id(void);
/*
 * Variables of the process's environment; NULL when there is no such one. Set them, over an earlier value, before other
 * threads run: who reads meanwhile may see neither value.
 */
ORB_API const char *os_environment_get(const char *name);
ORB_API int os_environment_set(const char *name, const char *value);
/*
 * What a program does first: takes its arguments in the host's form (UTF-8 on Windows, as they are elsewhere) and makes
 * its standard streams carry bytes as they are written. `argv` itself when there is nothing to do or no memory.
 */
ORB_API char **os_program_start(int argc, char **argv);
/* 1 when that standard stream (0 input, 1 output, 2 errors) is a terminal, that is, when somebody looks on. */
ORB_API int os_is_terminal(int stream);
/* 1 when `error`, the errno of a failed write to standard output, says that the reader of that pipe has gone. */
ORB_API int os_is_reader_gone(int error);
/*
 * Calls `handler` when somebody asks the process to end (Ctrl-C, a request of the host's): it may only set lock-free
 * flags. Reads that block are interrupted. A second request ends the process at once.
 */
ORB_API int os_interrupt_install(void (*handler)(void));
/*
 * For a program that serves until it is told to end. From os_end_take on such a request (Ctrl-C, a polite kill; on
 * Windows also Ctrl-Break, the closing of the console, the end of the session or of the host) is kept for os_end_wait,
 * which waits for it. Another one after that ends the process at once. Where the host would end the process as soon as
 * it has been told, it is held up until the process has ended by itself, as long as the host allows. Also from
 * os_end_take on, a reader of the program's output that has gone is an error of the write, and no reason to end.
 */
ORB_API int os_end_take(void);
ORB_API int os_end_wait(void);

/*
 * Runs a command line in the host's shell (sh, cmd on Windows) and reads what it writes to its standard output, byte for
 * byte; its other streams are the caller's own. `command` is in the system's character set; it must never hold a
 * client's text. NULL when it cannot be started: one that the shell does not find is started and ends with a status.
 */
typedef struct os_pipe os_pipe;
ORB_API os_pipe *os_popen(const char *command);
/* Up to `size` bytes, fewer only at the end; 0 at the end, -1 on error. */
ORB_API int64_t os_pipe_read(os_pipe *pipe, void *buffer, size_t size);
/* The next line with its line feed, cut to `size` - 1 characters (the rest is the next line). 0 at the end. */
ORB_API int os_pipe_line(os_pipe *pipe, char *line, size_t size);
/* Waits for the command's end. Its exit status, -1 when that cannot be had (it was killed, its end was taken elsewhere). */
ORB_API int os_pclose(os_pipe *pipe);

typedef struct os_guid {
    uint32_t data1;
    uint16_t data2, data3;
    uint8_t data4[8];
} os_guid;
/* A random GUID from the system's secure source. */
ORB_API int os_guid_create(os_guid *guid);

struct os_system_version {
    uint32_t major, minor, platform_id;
    int is_workstation;     /* product type 1 */
    int is_x64;             /* processor architecture 9 */
    int server_r2_metric;   /* system metric 89 */
};
/* 0 when the host does not tell, OS_NO_SYSTEM_VERSION on hosts that have no such version (everything but Windows). */
#define OS_NO_SYSTEM_VERSION (-1)
ORB_API int os_system_version_get(struct os_system_version *version);
/* Where versions come from instead, for tests; NULL restores the host's. */
ORB_API void os_system_version_install(int (*source)(struct os_system_version *version));

/* ---- Logger ----------------------------------------------------------------------------------------------------- */

/* Levels: 1 each package and step, 2 refusals and notices, 3 package building, 4 platform and files, 5 before the end. */
enum os_log_level { LOG_TRACE = 1, LOG_REFUSE = 2, LOG_PACKAGE = 3, LOG_SYSTEM = 4, LOG_FATAL = 5 };

/*
 * One line. `unit` is the source unit's name, `line` its line. Control bytes in the text are escaped. A place that
 * repeats without pause is cut down: the first lines are kept, the rest counted and reported.
 */
ORB_API void log_debug_ex(int level, const char *unit, int line, const char *format, ...) ORB_PRINTF(4, 5);
/* 1 when a line of this level would be written: ask before building costly arguments. */
ORB_API int os_log_enabled(int level);

/*
 * The buffered log: lock, date, prefix, then the message and unlock, makes one line. err_buf_quit_unlock writes the line
 * and ends the process with exit status 1.
 */
ORB_API void log_buf_lock(void);
ORB_API void log_buf_date(void);
ORB_API void log_buf_msg(const char *format, ...) ORB_PRINTF(1, 2);
ORB_API void log_buf_msg_unlock(const char *format, ...) ORB_PRINTF(1, 2);
ORB_API void err_buf_quit_unlock(const char *format, ...) ORB_PRINTF(1, 2);

struct os_log_settings {
    int level;            /* lines below it are not written; 1 to 5, 2 at start */
    int to_stderr;        /* 1 at start */
    const char *file;     /* rotating file, NULL for none */
    uint64_t file_bytes;  /* size at which it rotates; 0: 10 MiB */
    int file_count;       /* rotated files kept; 0: 5 */
    int to_journal;       /* standard error leads to the host's journal: write priorities instead of dates there */
    uint32_t burst;       /* lines a second that one place may write before it is cut down; 0: 50 */
    uint64_t queue_bytes; /* lines that may wait for each output; 0: 4 MiB */
};
/*
 * Until it is opened, the log writes to standard error in place, as a program at a terminal wants it. Opened, each output
 * has a queue and a thread ("vod-log") of its own: nobody who logs waits for a reader that has stopped, and one that has
 * gone does not end the process. Lines that find the queue full are counted and told once the output takes lines again.
 * Fails, leaving the outputs as they are, when the file cannot be opened or there is no thread.
 */
ORB_API int os_log_open(const struct os_log_settings *settings);
/*
 * Writes what is buffered, but waits no longer than a second for outputs that stand still. Lines of level 5 are followed
 * by it. A program calls it before it returns from main.
 */
ORB_API void os_log_flush(void);

/* Receives every line that passes the level instead of the outputs above, uncut and unescaped; for tests. */
typedef void (*os_log_sink)(void *user, int level, const char *unit, int line, const char *text);
ORB_API void os_log_set_sink(os_log_sink sink, void *user);
ORB_API void os_log_set_level(int level);

/* Ends the process at once with `status`, the log flushed. Tests may put their own function in its place. */
ORB_API void os_exit(int status);
ORB_API void os_exit_install(void (*exit_func)(int status));

/* ---- Fault injection -------------------------------------------------------------------------------------------- */

/*
 * Every fallible call of the platform libraries asks os_fault_point first. Disarmed (the normal state) that is one load.
 * os_fault_arm(n) makes the n-th call from now fail (1 the next, 0 none); os_fault_calls tells how many were asked since.
 */
ORB_API int os_fault_point(const char *name);
ORB_API void os_fault_arm(uint32_t n);
ORB_API uint32_t os_fault_calls(void);
ORB_API void os_fault_disarm(void);

#ifdef __cplusplus
}
#endif

#endif
