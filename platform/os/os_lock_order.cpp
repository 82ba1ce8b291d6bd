#include "platform/os/os_lock_order.h"

#if defined(OS_LOCK_RANKS)

#include <cstdio>
#include <cstdlib>

// A thread that holds more locks than this at once has lost its way.
static constexpr size_t HELD_MAX = 32;

struct held_lock {
    const void *mutex;
    os_lock_rank rank;
    os_lock_place place;
};

static thread_local held_lock t_held[HELD_MAX];
static thread_local size_t t_held_count;

static const char *text_or(const char *text, const char *other)
{
    return text == nullptr ? other : text;
}

[[noreturn]] static void stop_at(const held_lock &held, const os_lock_rank &rank, const os_lock_place &place)
{
    std::fprintf(stderr, "lock order: %s (rank %d) taken at %s:%d while %s (rank %d) is held since %s:%d\n",
                 text_or(rank.name, "?"), rank.rank, text_or(place.file, "?"), place.line, text_or(held.rank.name, "?"),
                 held.rank.rank, text_or(held.place.file, "?"), held.place.line);
    std::fflush(stderr);
    std::abort();
}

static bool is_held(const void *mutex)
{
    for (size_t i = 0; i < t_held_count; i++)
        if (t_held[i].mutex == mutex)
            return true;
    return false;
}

void os_lock_order_check(const void *mutex, const os_lock_rank &rank, const os_lock_place &place)
{
    if (rank.rank == 0 || is_held(mutex))
        return;
    for (size_t i = 0; i < t_held_count; i++)
        if (t_held[i].rank.rank >= rank.rank)
            stop_at(t_held[i], rank, place);
}

void os_lock_order_taken(const void *mutex, const os_lock_rank &rank, const os_lock_place &place)
{
    if (t_held_count < HELD_MAX)
        t_held[t_held_count++] = {mutex, rank, place};
}

void os_lock_order_released(const void *mutex)
{
    size_t i = t_held_count;
    while (i > 0 && t_held[i - 1].mutex != mutex)
        i--;
    if (i == 0)
        return;
    for (; i < t_held_count; i++)
        t_held[i - 1] = t_held[i];
    t_held_count--;
}

void os_lock_order_check_lent(const void *mutex, const os_lock_place &place)
{
    size_t times = 0;
    for (size_t i = 0; i < t_held_count; i++)
        times += t_held[i].mutex == mutex;
    if (times == 1 || t_held_count == HELD_MAX)
        return;
    std::fprintf(stderr, "lock lent: held %zu times by the thread that lends it at %s:%d\n", times,
                 text_or(place.file, "?"), place.line);
    for (size_t i = 0; i < t_held_count; i++)
        if (t_held[i].mutex == mutex)
            std::fprintf(stderr, "lock lent: %s (rank %d) taken at %s:%d\n", text_or(t_held[i].rank.name, "?"),
                         t_held[i].rank.rank, text_or(t_held[i].place.file, "?"), t_held[i].place.line);
    std::fflush(stderr);
    std::abort();
}

#endif
