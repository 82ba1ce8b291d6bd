/*
 * The files that programs make for their users.
 *
 * What is being written bears a temporary name beside the target, made exclusively, with no link followed and nobody able
 * to guess it. The target changes in one step at the end, or not at all. What a break leaves behind stays, under the
 * target's name with ".part" behind it. A device or a pipe is written into as it is.
 *
 * An object is used by one thread at a time. Names are in the host's form (os_program_start). os_file_error tells why
 * the last call of this thread failed.
 */
#ifndef PLATFORM_OS_OS_OUTPUT_H
#define PLATFORM_OS_OS_OUTPUT_H

#include "platform/os/orb_export.h"

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct os_output os_output;

enum os_output_flags {
    OS_OUTPUT_REPLACE = 1,  /* a file that is already there is replaced in the end */
    OS_OUTPUT_NAME_ONLY = 2 /* the caller makes the temporary file, exclusively, and writes and closes it */
};

enum os_output_result {
    OS_OUTPUT_FAILED = 0,
    OS_OUTPUT_OPENED = 1,
    OS_OUTPUT_EXISTS = 2, /* and OS_OUTPUT_REPLACE was not given */
    OS_OUTPUT_FOLDER = 3,
    OS_OUTPUT_INPUT = 4   /* it is one of the inputs, by whatever name, and is not touched whatever the flags */
};

struct os_output_wish {
    const char *name;
    int flags;
    const char *const *inputs; /* files that are read meanwhile; what is no file here counts for nothing */
    size_t input_count;
};

/*
 * Links in the name are followed to the file that they lead to: that is the target, and it is replaced where it lies. A
 * link that leads nowhere, a disk, a socket or a terminal is refused. Opening a pipe waits for its reader. Nothing is
 * changed unless OS_OUTPUT_OPENED is answered.
 */
ORB_API int os_output_open(const struct os_output_wish *wish, os_output **output);
/* 1 for a device or a pipe, which is written from front to back. */
ORB_API int os_output_is_stream(const os_output *output);
/* The temporary file's name; empty for a stream. Lives as long as the object. */
ORB_API const char *os_output_temporary(const os_output *output);
/* Writes all bytes or fails. To a stream they go in order, whatever the offset. A signal ends a wait for a reader. */
ORB_API int os_output_write(os_output *output, const void *bytes, size_t size, uint64_t offset);
/* Brings it to the disk and gives it its name, with the rights of the file that it replaces. Once, as the last of the
   writing; what fails here is left to os_output_leave. */
ORB_API int os_output_finish(os_output *output);
/*
 * Gives up what is not finished. What has been written stays as NAME.part; where that is taken as NAME.part.2 to
 * NAME.part.9, else under its temporary name. `kept` receives the name, or an empty text when nothing was written (then
 * nothing stays) or a stream was.
 */
ORB_API int os_output_leave(os_output *output, char *kept, size_t kept_size);
/* Removes what is not finished. */
ORB_API int os_output_drop(os_output *output);
/* Ends the object; what is neither finished nor dropped is left as by os_output_leave. NULL is allowed. */
ORB_API void os_output_close(os_output *output);

#ifdef __cplusplus
}
#endif

#endif
