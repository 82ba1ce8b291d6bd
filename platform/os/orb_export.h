/* How the platform libraries mark the functions that they offer. */
#ifndef PLATFORM_OS_ORB_EXPORT_H
#define PLATFORM_OS_ORB_EXPORT_H

#if defined(_WIN32)
#if defined(ORB_BUILDING_LIBRARY)
#define ORB_API __declspec(dllexport)
#else
#define ORB_API
#endif
#else
#define ORB_API __attribute__((visibility("default")))
#endif

#if defined(__MINGW32__)
/* C99 formats, not those of the old Windows runtime. */
#define ORB_PRINTF(format_index, first_index) __attribute__((format(gnu_printf, format_index, first_index)))
#elif defined(__GNUC__)
#define ORB_PRINTF(format_index, first_index) __attribute__((format(printf, format_index, first_index)))
#else
#define ORB_PRINTF(format_index, first_index)
#endif

#endif
