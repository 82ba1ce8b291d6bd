/*
 * Reads recording files: an 88-byte file header, then frames with 32-byte frame headers (docs/recording-format.md).
 *
 * Every record begins with its own size, which the caller must set; a call with another size is refused. A handle may be
 * used by one thread at a time. Files are read with positioned reads, so a file that another process cuts short or still
 * writes is safe: it is readable up to its last whole frame. Damaged stretches are skipped to the next good frame.
 */
#ifndef PLATFORM_AVFILTERSDK_AVFILTERSDK_H
#define PLATFORM_AVFILTERSDK_AVFILTERSDK_H

#include "platform/os/orb_export.h"

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define AVFILTER_FILE_HEAD_SIZE 88
#define AVFILTER_FRAME_HEAD_SIZE 32
#define AVFILTER_FRAME_ID 0xE5020000u /* u32FrameID of every frame: 00 00 02 E5, which Annex B video cannot hold */
#define AVFILTER_PACKAGE_SIZE 49152 /* what one data package carries; kind 1 fills it with whole frames */

typedef struct AVUtcTime {
    uint16_t usYear, usMonth, usDay, usHour, usMinute, usSecond;
} AVUtcTime;

typedef struct AVFilterMem {
    int32_t iSize;
    void *(*pMalloc)(size_t size);
    void (*pFree)(void *memory);
} AVFilterMem;

typedef struct AVFileOperate {
    int32_t iSize;
    void *pfOpen, *pfRead, *pfWrite, *pfTell, *pfSeek, *pfClose, *pfFeof;
} AVFileOperate;

typedef struct AVOrbFileFilter {
    int32_t iSize; /* 424 */
    char cFileName[256];  /* system path: GB18030 with backslashes */
    AVUtcTime tFileStartTime, tFileStopTime, tPlayStartTime, tPlayStopTime; /* local time; all zero: not known */
    AVFilterMem tFilterMem;      /* left zero: the library's own */
    AVFileOperate tFileOperate;  /* left zero: the library's own */
    int32_t iCreateType;         /* 1: the play range is the whole file; 0: play start to play stop, from a key frame */
    int32_t iUsrFlag;            /* 1: insert absolute time into key frames */
    int32_t iTimeZone;           /* hours east of UTC of the times above */
    void *pfOsOpen;
} AVOrbFileFilter;

typedef struct AVFileInfo {
    int32_t iSise; /* 88 */
    int32_t iFrameRate, iWidth, iHeight;
    int32_t iVEncMode;                  /* 21, 22 H.264; 23 H.265 */
    int32_t iTotalTime;                 /* of the play range, seconds */
    int32_t iTotalFrame;                /* of the play range */
    int32_t iFirstFrmNo, iLastFrmNo;
    uint32_t uiFirstFrmTimeStamp, uiLastFrmTimeStamp; /* milliseconds */
    int64_t llFileRealSize;             /* bytes of the file, its header included */
    int64_t llPlayRealSize;             /* bytes of the play range's frames, the file header not counted */
    int32_t iAChannels, iBitsPerSample;
    uint32_t uiSamplesPerSec;
    uint32_t uiFirstAbsTime, uiLastAbsTime; /* seconds since 1970 */
} AVFileInfo;

typedef struct AVFrameInfo {
    int32_t iSize; /* 32 */
    int32_t iFrameType;
    uint32_t uiFrameNO, uiTimeStamp, uiVideoFrmSize, uiAudioFrmCount, uiAudioFrmSize;
    int32_t iAudioEncode;
} AVFrameInfo;

typedef struct AVPlayDirection {
    int32_t iSise; /* 8 */
    int32_t iDirection; /* 0 forward, 1 reverse: key frames, last to first */
} AVPlayDirection;

typedef struct AVSeekByFrmNo {
    int32_t iSise; /* 8 */
    int32_t iFrameNo; /* within the play range, 1 its first frame */
} AVSeekByFrmNo;

typedef struct AVSeekByAbsTime {
    int32_t iSise; /* 16 */
    int64_t llAbsTime; /* seconds since 1970 */
} AVSeekByAbsTime;

typedef struct AVSeekByRelativeTime {
    int32_t iSise; /* 16 */
    int64_t llRelativeTime; /* milliseconds from the start of the play range */
} AVSeekByRelativeTime;

typedef struct AVSeekByBytes {
    int32_t iSise; /* 16 */
    int64_t llBytes; /* from the first frame of the play range */
} AVSeekByBytes;

enum {
    SET_FILTERCMD_PLAYMODE = 0,
    SET_FILTERCMD_EXACTSEEKBYFRAMENO = 2,
    SET_FILTERCMD_SEEKBYABSTIME = 3,
    SET_FILTERCMD_SEEKBYRELATIVETIME = 4,
    SET_FILTERCMD_SEEKBYBYTES = 5
};

enum { AVFILTER_INFO_FILE_HEAD = 0, AVFILTER_INFO_FILE = 1 };
enum { AVFILTER_DATA_STORED = 0, AVFILTER_DATA_FRAMES = 1, AVFILTER_DATA_NEXT_KEY = 4, AVFILTER_DATA_FIRST_KEY = 6 };

/* Once before the rest. 0 on success. Calling it again is harmless. */
ORB_API int AVFilterStartup(void);
/*
 * Opens one recording in a handful of reads. `kind` 0, `size` 424. NULL when the file cannot be opened, is no regular
 * file, or holds no whole frame and no plausible header. The name counts as client-named (access roots hold).
 */
ORB_API void *AVFilterCreate(int kind, const AVOrbFileFilter *filter, int size);
ORB_API void AVFilterDestroy(void *handle);
/* `kind` 0: `bytes` are the 88 bytes of a file header. 0 when they can be one. */
ORB_API int AVFilterCheckValidData(int kind, const void *bytes, int size);
/*
 * Info 0: the file header, 88 bytes, into `size` (at least 88) bytes. Info 1: an AVFileInfo, `size` 88, measured anew
 * at each call (a file may grow). 0 on success.
 */
ORB_API int AVFilterGetInfo(void *handle, int info, void *buffer, int size);
/*
 * Kind 1: the next whole frames, as many as fit into 49152 bytes, at least one (`size` must hold it); reverse: the
 * key frame before the last delivered. Kind 0: the next stored bytes of the play range, at most `size`. Kind 4: the next
 * key frame; kind 6: the first key frame of the play range. Frames come with their 32-byte headers; `info` (may be NULL
 * for kind 0) describes the first. Bytes written; 0 at the end; below 0 when `size` is too small or the file unreadable.
 */
ORB_API int AVFilterGetData(void *handle, int kind, void *buffer, int size, AVFrameInfo *info);
/*
 * `record_size` must be the record's size. Seeks go to the key frame at or before the target (to the first frame when
 * there is none before) and, forwards, the next data starts there; after a frame-number seek it starts at that very
 * frame. Targets past the end seek to the end (bytes) or the last key frame (times). After a byte seek kind 0 goes on at
 * that very byte, so that an interrupted download continues where it stopped; frames go on at the key frame at or before
 * it. Half of the bytes need not be half of the time: whoever wants that seeks by time. 0 on success.
 */
ORB_API int AVFilterSetCommond(void *handle, int command, const void *record, int record_size);

/*
 * The good frames of the play range (or its key frames only) in order, for tools: `offset` in the file and bytes with
 * the frame header. Ends when `visit` returns 0. Leaves the position as it is. 0, or below 0 for bad arguments.
 */
ORB_API int AVFilterVisitFrames(void *handle, int key_frames_only,
                                int (*visit)(void *user, const AVFrameInfo *info, int64_t offset, int32_t frame_bytes),
                                void *user);

#ifdef __cplusplus
}
#endif

#endif
