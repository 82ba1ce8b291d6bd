#include "platform/silo/pg_resolve.h"

#include "platform/os/os_guard.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>

struct pg_name {
    bool is_looked_up = false; // a thread is about it
    std::vector<std::string> addresses;
};

// Threads that wait for a name server may outlive everything else, so these are never taken down.
static auto &s_names_mutex = *new std::mutex;
static auto &s_names_changed = *new std::condition_variable;
// Guarded by s_names_mutex. Entries stay, so that threads may hold on to them; a process knows few names.
static auto &s_names = *new std::map<std::string, pg_name>;

bool pg_is_name(const std::string &host)
{
    bool is_address = host.find(':') != host.npos || host.find_first_not_of("0123456789.") == host.npos;
    return !host.empty() && host.front() != '/' && host.front() != '@' && !is_address;
}

struct pg_lookup_job {
    std::string host;
    pg_lookup lookup;
    pg_name *name;
};

static int look_up(void *arg)
{
    std::unique_ptr<pg_lookup_job> job(static_cast<pg_lookup_job *>(arg));
    std::vector<std::string> addresses;
    bool is_good = job->lookup(job->host, &addresses) && !addresses.empty();
    std::lock_guard held(s_names_mutex);
    if (is_good)
        job->name->addresses = std::move(addresses);
    job->name->is_looked_up = false;
    s_names_changed.notify_all();
    return 0;
}

static bool start_look_up(const std::string &host, pg_lookup lookup, pg_name *name)
{
    auto job = std::make_unique<pg_lookup_job>(pg_lookup_job{host, lookup, name});
    LThread thread = {};
    if (!os_thread_create(&thread, 0, look_up, job.get()))
        return false;
    static_cast<void>(job.release()); // the thread's now
    os_thread_detach(&thread);
    return true;
}

bool pg_resolve(const std::string &name, uint32_t ms, pg_lookup lookup, std::vector<std::string> *addresses)
{
    std::unique_lock held(s_names_mutex);
    pg_name &entry = s_names[name];
    if (!entry.is_looked_up)
        entry.is_looked_up = start_look_up(name, lookup, &entry);
    s_names_changed.wait_for(held, std::chrono::milliseconds(ms), [&] { return !entry.is_looked_up; });
    *addresses = entry.addresses;
    return !addresses->empty();
}
