/*
 * Writes recording files. One writer is used by one thread at a time. Functions return 1 for success and 0 for failure;
 * os_file_error tells why in words.
 */
#ifndef PLATFORM_AVFILTERSDK_AVFILTERWRITER_H
#define PLATFORM_AVFILTERSDK_AVFILTERWRITER_H

#include "platform/avfiltersdk/avfiltersdk.h"

#ifdef __cplusplus
extern "C" {
#endif

enum av_frame_type { AVFRAME_TYPE_KEY = 1, AVFRAME_TYPE_DELTA = 2 };
enum av_video_mode { AVMODE_H264 = 21, AVMODE_H264_EX = 22, AVMODE_H265 = 23 };
/* 8000 samples a second, one channel. */
enum av_audio_coder { AVAUDIO_NONE = 0, AVAUDIO_G711A = 1, AVAUDIO_G711U = 2, AVAUDIO_PCM16 = 3 };

typedef struct AVWriterSettings {
    int32_t iSize;
    char cFileName[256];    /* system path */
    int32_t iFrameRate, iWidth, iHeight;
    int32_t iVEncMode;
    int32_t bAudio;
    AVUtcTime tStart;       /* local time of the first frame */
} AVWriterSettings;

typedef struct AVWriterFrame {
    int32_t iFrameType;      /* enum av_frame_type; the first frame must be a key frame */
    uint32_t uiTimeStamp;    /* milliseconds from the start of the recording, never falling */
    const void *pVideo;      /* one access unit, Annex B with 4-byte start codes */
    uint32_t uiVideoBytes;
    const void *pAudio;      /* usAudioFrames * usAudioFrameSize bytes */
    uint16_t usAudioFrames, usAudioFrameSize;
    int32_t iAudioCoder;     /* enum av_audio_coder */
} AVWriterFrame;

/* Creates the file (an existing one fails) with its header. NULL on failure. */
ORB_API void *AVWriterCreate(const AVWriterSettings *settings);
/* Frame numbers count from 1. */
ORB_API int AVWriterAddFrame(void *writer, const AVWriterFrame *frame);
/* Bytes written so far, header included. */
ORB_API int64_t AVWriterSize(void *writer);
/* Completes the header (size, frame count), syncs and closes; the writer is gone whatever the result. */
ORB_API int AVWriterFinish(void *writer);
/* Closes without completing, as a crash of the recorder would leave the file. */
ORB_API void AVWriterAbandon(void *writer);

#ifdef __cplusplus
}
#endif

#endif
