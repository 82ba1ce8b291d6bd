// Owners and small conveniences over os.h for the system's C++ code.
#pragma once

#include "platform/os/os.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <source_location>
#include <span>
#include <string_view>
#include <type_traits>

// Logs at the place where it stands. LOGGED yields its first argument: `return LOGGED(0, LOG_REFUSE, "vodlink == NULL")`.
#define LOG(level, ...)                                                                                                \
    (os_log_enabled(level) ? log_debug_ex(level, LOG_UNIT, __LINE__, __VA_ARGS__) : static_cast<void>(0))
#define LOGGED(value, level, ...) (LOG(level, __VA_ARGS__), (value))

// A file that logs under another unit name than its own defines LOG_UNIT before including this.
#ifndef LOG_UNIT
#define LOG_UNIT __FILE_NAME__
#endif

// Where a caller stands. Not every compiler of ours has the standard library's.
#if defined(__cpp_lib_source_location)
using os_place = std::source_location;
#else
class os_place {
  public:
    static constexpr os_place current(const char *file = __builtin_FILE(), unsigned line = __builtin_LINE())
    {
        return os_place(file, line);
    }
    constexpr const char *file_name() const { return file_; }
    constexpr unsigned line() const { return line_; }

  private:
    constexpr os_place(const char *file, unsigned line) : file_(file), line_(line) {}
    const char *file_;
    unsigned line_;
};
#endif

// Holds a mutex for the life of the guard. Give each lock its own guard type, derived from this one.
class os_lock_guard {
  public:
    explicit os_lock_guard(LMutex *mutex, os_place place = os_place::current()) : mutex_(mutex)
    {
        os_mutex_lock_at(mutex_, place.file_name(), static_cast<int>(place.line()));
    }
    ~os_lock_guard() { os_mutex_unlock(mutex_); }
    os_lock_guard(const os_lock_guard &) = delete;
    os_lock_guard &operator=(const os_lock_guard &) = delete;
    LMutex *mutex() const { return mutex_; }

  private:
    LMutex *mutex_;
};

// Lends the lock of a guard for the life of this object; afterwards look again at whatever you knew before.
class os_unlock_guard {
  public:
    explicit os_unlock_guard(os_lock_guard &held, os_place place = os_place::current())
        : mutex_(held.mutex()), place_(place)
    {
        os_mutex_lend_at(mutex_, place_.file_name(), static_cast<int>(place_.line()));
    }
    ~os_unlock_guard() { os_mutex_lock_at(mutex_, place_.file_name(), static_cast<int>(place_.line())); }
    os_unlock_guard(const os_unlock_guard &) = delete;
    os_unlock_guard &operator=(const os_unlock_guard &) = delete;

  private:
    LMutex *mutex_;
    os_place place_;
};

inline void os_sleep_unlocked(os_lock_guard &held, uint32_t ms, os_place place = os_place::current())
{
    os_unlock_guard released(held, place);
    os_sleep(ms);
}

// Takes and releases the lock of a list.
class dlist_guard {
  public:
    explicit dlist_guard(DList *list) : list_(list) { adt_dlist_lock(list_); }
    ~dlist_guard() { adt_dlist_unlock(list_); }
    dlist_guard(const dlist_guard &) = delete;
    dlist_guard &operator=(const dlist_guard &) = delete;

  private:
    DList *list_;
};

struct os_file_closer {
    void operator()(os_file *file) const { os_file_close(file); }
};
using os_file_ptr = std::unique_ptr<os_file, os_file_closer>;

// Copies a text into a fixed buffer, cut where it must be, always terminated.
inline void text_copy(std::span<char> to, std::string_view from)
{
    size_t length = from.size() < to.size() ? from.size() : to.size() - 1;
    std::memcpy(to.data(), from.data(), length);
    to[length] = '\0';
}

// A zeroed record of `T` that the system cannot do without: when there is no memory, logs `text` at level 5 and ends the
// process with status 1. Freed with std::free by whoever ends up owning it.
template <class T> T *new_or_exit(const char *text, os_place place = os_place::current())
{
    static_assert(std::is_trivially_destructible_v<T>);
    void *memory = os_fault_point("new_or_exit") ? nullptr : std::calloc(1, sizeof(T));
    if (memory == nullptr) {
        log_debug_ex(LOG_FATAL, place.file_name(), static_cast<int>(place.line()), "%s", text);
        os_exit(1);
    }
    return static_cast<T *>(memory);
}

// Copies a wire record out of received bytes; false when they do not reach.
template <class T> bool wire_read(std::span<const uint8_t> bytes, size_t offset, T *record)
{
    static_assert(std::is_trivially_copyable_v<T>);
    if (offset > bytes.size() || bytes.size() - offset < sizeof(T))
        return false;
    std::memcpy(record, bytes.data() + offset, sizeof(T));
    return true;
}

// Little-endian integers, whatever the host's own order.
template <class T> T wire_load(const void *bytes)
{
    static_assert(std::is_integral_v<T>);
    auto from = static_cast<const uint8_t *>(bytes);
    std::make_unsigned_t<T> value = 0;
    for (size_t i = 0; i < sizeof(T); i++)
        value = static_cast<std::make_unsigned_t<T>>(value | static_cast<std::make_unsigned_t<T>>(from[i]) << (8 * i));
    return static_cast<T>(value);
}

template <class T> void wire_store(void *bytes, T value)
{
    static_assert(std::is_integral_v<T>);
    auto to = static_cast<uint8_t *>(bytes);
    auto bits = static_cast<std::make_unsigned_t<T>>(value);
    for (size_t i = 0; i < sizeof(T); i++)
        to[i] = static_cast<uint8_t>(bits >> (8 * i));
}
