#include "tests/silo_pool/fake_silo.h"

#include "platform/silo/silo.h"

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <set>

struct silo_t {
    int fd = -1;
};

struct silo_transaction_t {
    bool is_write = false, is_failed = false;
    std::shared_ptr<const fake_content> snapshot;
    std::shared_ptr<fake_content> changed; // of writing ones
    uint64_t version = 0;
    const fake_content &content() const { return is_write ? *changed : *snapshot; }
};

struct silo_iterator_t {
    silo_transaction_t *trans = nullptr;
    std::string bound, next_bound, key, value;
    silo_kv kv = {"", "", 0, 0, nullptr};
};

struct planned_failure {
    std::string call;
    int times, after;
};

struct fake_state {
    std::mutex mutex;
    std::condition_variable writer_gone;
    bool is_writing = false;
    std::shared_ptr<fake_content> content = std::make_shared<fake_content>();
    uint64_t version = 1;
    std::vector<std::string> calls;
    std::vector<planned_failure> failures;
    std::vector<std::pair<int, bool>> commit_answers;
    bool is_conflict = false, is_error = false, is_server = false;
    int next_fd = 1000, handles = 0;
    std::set<int> descriptors;
    std::function<void()> on_connect;
};
static fake_state s_fake;

using fake_lock = std::unique_lock<std::mutex>;

// ---- What tests see and set -----------------------------------------------------------------------------------------

void fake_silo_reset()
{
    fake_lock held(s_fake.mutex);
    s_fake.content = std::make_shared<fake_content>();
    s_fake.calls.clear();
    s_fake.failures.clear();
    s_fake.commit_answers.clear();
    s_fake.is_conflict = s_fake.is_error = s_fake.is_server = false;
    s_fake.on_connect = nullptr;
}

std::shared_ptr<const fake_content> fake_silo_snapshot()
{
    fake_lock held(s_fake.mutex);
    return s_fake.content;
}

fake_content fake_silo_content()
{
    return *fake_silo_snapshot();
}

// The content as it can be changed: a copy where somebody looks at it.
static fake_content &own_content(const fake_lock &)
{
    if (s_fake.content.use_count() > 1)
        s_fake.content = std::make_shared<fake_content>(*s_fake.content);
    s_fake.version++;
    return *s_fake.content;
}

void fake_silo_set_content(const fake_content &content)
{
    fake_lock held(s_fake.mutex);
    s_fake.content = std::make_shared<fake_content>(content);
    s_fake.version++;
}

void fake_silo_put(const std::string &key, const std::string &value)
{
    fake_lock held(s_fake.mutex);
    own_content(held)[key] = value;
}

void fake_silo_erase(const std::string &key)
{
    fake_lock held(s_fake.mutex);
    own_content(held).erase(key);
}

std::vector<std::string> fake_silo_calls()
{
    fake_lock held(s_fake.mutex);
    return s_fake.calls;
}

std::vector<std::string> fake_silo_calls_of(const std::vector<std::string> &words)
{
    std::vector<std::string> found;
    for (const std::string &call : fake_silo_calls())
        if (std::ranges::any_of(words, [&](const std::string &word) { return call.starts_with(word); }))
            found.push_back(call);
    return found;
}

void fake_silo_clear_calls()
{
    fake_lock held(s_fake.mutex);
    s_fake.calls.clear();
}

void fake_silo_fail(const std::string &call, int times, int after)
{
    fake_lock held(s_fake.mutex);
    s_fake.failures.push_back({call, times, after});
}

void fake_silo_fail_no_more()
{
    fake_lock held(s_fake.mutex);
    s_fake.failures.clear();
}

void fake_silo_answer_commit(int answer, bool applied)
{
    fake_lock held(s_fake.mutex);
    s_fake.commit_answers.emplace_back(answer, applied);
}

void fake_silo_set_conflict(bool is_conflict)
{
    fake_lock held(s_fake.mutex);
    s_fake.is_conflict = is_conflict;
}

void fake_silo_set_error(bool is_error)
{
    fake_lock held(s_fake.mutex);
    s_fake.is_error = is_error;
}

void fake_silo_set_server(bool is_server)
{
    fake_lock held(s_fake.mutex);
    s_fake.is_server = is_server;
}

void fake_silo_on_connect(std::function<void()> called)
{
    fake_lock held(s_fake.mutex);
    s_fake.on_connect = std::move(called);
}

int fake_silo_open_handles()
{
    fake_lock held(s_fake.mutex);
    return s_fake.handles;
}

int fake_silo_open_descriptors()
{
    fake_lock held(s_fake.mutex);
    return static_cast<int>(s_fake.descriptors.size());
}

// Records the call; false when it shall fail.
static bool passes(const fake_lock &, const std::string &call)
{
    s_fake.calls.push_back(call);
    for (planned_failure &failure : s_fake.failures) {
        if (failure.times == 0 || !call.starts_with(failure.call))
            continue;
        if (failure.after > 0) {
            failure.after--;
            continue;
        }
        failure.times--;
        return false;
    }
    return true;
}

static bool passes(const std::string &call)
{
    fake_lock held(s_fake.mutex);
    return passes(held, call);
}

static bool passes_in(silo_transaction_t *trans, const std::string &call)
{
    bool passed = passes(call);
    trans->is_failed = trans->is_failed || !passed;
    return passed && !trans->is_failed;
}

// ---- Connections ----------------------------------------------------------------------------------------------------

static void tell_connect()
{
    fake_lock held(s_fake.mutex);
    std::function<void()> called = s_fake.on_connect;
    held.unlock();
    if (called)
        called();
}

int silo_connect_fd(const char *uri)
{
    tell_connect();
    fake_lock held(s_fake.mutex);
    if (!passes(held, std::string("connect ") + uri))
        return -1;
    s_fake.descriptors.insert(s_fake.next_fd);
    return s_fake.next_fd++;
}

void silo_close_fd(int fd)
{
    fake_lock held(s_fake.mutex);
    s_fake.descriptors.erase(fd);
    passes(held, "close " + std::to_string(fd));
}

silo_t *silo_open_proxy_fd(int read_fd, int write_fd)
{
    fake_lock held(s_fake.mutex);
    if (!passes(held, "open " + std::to_string(read_fd)) || read_fd != write_fd ||
        !s_fake.descriptors.contains(read_fd))
        return nullptr;
    s_fake.handles++;
    return new silo_t{read_fd};
}

int silo_proxy_select_db(silo_t *, const char *name)
{
    return passes(std::string("select ") + name) ? 0 : -1;
}

int silo_proxy_error(silo_t *)
{
    fake_lock held(s_fake.mutex);
    return s_fake.is_error;
}

void silo_destroy(silo_t *db)
{
    fake_lock held(s_fake.mutex);
    passes(held, "destroy");
    s_fake.handles--;
    delete db;
}

uint64_t silo_round_trips(silo_t *)
{
    return 0;
}

// ---- Transactions ---------------------------------------------------------------------------------------------------

silo_transaction_t *silo_begin_transaction(silo_t *, int flag)
{
    fake_lock held(s_fake.mutex);
    bool is_write = flag == SILO_WRITE;
    if (!passes(held, is_write ? "begin write" : "begin read"))
        return nullptr;
    s_fake.writer_gone.wait(held, [&] { return !is_write || !s_fake.is_writing; });
    s_fake.is_writing = s_fake.is_writing || is_write;
    auto trans = new silo_transaction_t;
    trans->is_write = is_write;
    trans->snapshot = s_fake.content;
    trans->version = s_fake.version;
    if (is_write)
        trans->changed = std::make_shared<fake_content>(*s_fake.content);
    return trans;
}

int silo_commit(silo_transaction_t *trans)
{
    fake_lock held(s_fake.mutex);
    std::pair<int, bool> answer = {0, true};
    if (!passes(held, "commit") || trans->is_failed)
        answer = {SILO_COMMIT_FAILED, false};
    else if (!s_fake.commit_answers.empty()) {
        answer = s_fake.commit_answers.front();
        s_fake.commit_answers.erase(s_fake.commit_answers.begin());
    }
    if (answer.second) {
        s_fake.content = trans->changed;
        s_fake.version++;
    }
    return answer.first;
}

int silo_transaction_conflict(silo_transaction_t *trans)
{
    fake_lock held(s_fake.mutex);
    return trans->is_failed && s_fake.is_conflict;
}

int silo_transaction_failed(silo_transaction_t *trans)
{
    fake_lock held(s_fake.mutex);
    return trans->is_failed || s_fake.is_error;
}

void silo_end_transaction(silo_transaction_t *trans)
{
    if (trans == nullptr)
        return;
    fake_lock held(s_fake.mutex);
    passes(held, "end");
    if (trans->is_write) {
        s_fake.is_writing = false;
        s_fake.writer_gone.notify_all();
    }
    delete trans;
}

int silo_get_vstr(silo_transaction_t *trans, const char *key, char *buf, size_t bufsize)
{
    if (!passes_in(trans, std::string("get ") + key) || bufsize == 0)
        return -1;
    auto found = trans->content().find(key);
    if (found == trans->content().end())
        return -1;
    size_t length = std::min(found->second.size(), bufsize - 1);
    std::memcpy(buf, found->second.data(), length);
    buf[length] = '\0';
    return static_cast<int>(length);
}

int silo_set_kv(silo_transaction_t *trans, const char *key, size_t key_len, const char *val, size_t val_len)
{
    std::string text(key, key_len), value(val, val_len);
    if (!passes_in(trans, "set " + text + "=" + value) || !trans->is_write || key_len == 0 || key_len > SILO_KEY_MAX)
        return -1;
    (*trans->changed)[text] = value;
    return 0;
}

int silo_delete(silo_transaction_t *trans, const char *key, size_t key_len)
{
    std::string text(key, key_len);
    if (!passes_in(trans, "delete " + text) || !trans->is_write || key_len == 0 || key_len > SILO_KEY_MAX)
        return -1;
    trans->changed->erase(text);
    return 0;
}

int silo_remove_prefix(silo_transaction_t *trans, const char *prefix, size_t prefix_len)
{
    std::string text(prefix, prefix_len);
    if (!passes_in(trans, "remove " + text) || !trans->is_write || prefix_len == 0)
        return -1;
    std::erase_if(*trans->changed, [&](const auto &pair) { return pair.first.starts_with(text); });
    return 0;
}

int silo_plock_acquire(silo_transaction_t *trans, const char *name, int mode, int wait)
{
    std::string call = std::string("lock ") + name + " " + std::to_string(mode) + " " + std::to_string(wait);
    return passes_in(trans, call) ? 0 : -1;
}

// ---- Iterators ------------------------------------------------------------------------------------------------------

silo_iterator_t *silo_iterator_init(silo_transaction_t *trans)
{
    if (!passes_in(trans, "iterator"))
        return nullptr;
    auto iter = new silo_iterator_t;
    iter->trans = trans;
    return iter;
}

void silo_iterator_destroy(silo_iterator_t *iter)
{
    delete iter;
}

int silo_iterator_bound(silo_iterator_t *iter, const char *prefix, size_t prefix_len)
{
    iter->next_bound.assign(prefix, prefix_len);
    return 0;
}

static int stand_on(silo_iterator_t *iter, fake_content::const_iterator at)
{
    iter->kv = {"", "", 0, 0, nullptr};
    bool is_beyond =
        at == iter->trans->content().end() || (at->first > iter->bound && !at->first.starts_with(iter->bound));
    if (is_beyond)
        return -1;
    iter->key = at->first;
    iter->value = at->second;
    iter->kv = {iter->key.data(), iter->value.data(), static_cast<uint32_t>(iter->key.size()),
                static_cast<uint32_t>(iter->value.size()), nullptr};
    return 0;
}

int silo_iterator_seek(silo_iterator_t *iter, const char *key, size_t key_len, int)
{
    std::string text(key, key_len);
    iter->bound = iter->next_bound;
    if (!passes_in(iter->trans, "seek " + text)) {
        iter->kv = {"", "", 0, 0, nullptr};
        return -1;
    }
    return stand_on(iter, iter->trans->content().lower_bound(text));
}

int silo_iterator_next(silo_iterator_t *iter)
{
    bool passed = passes_in(iter->trans, "next");
    if (iter->kv.key_len == 0)
        return -1;
    return passed ? stand_on(iter, iter->trans->content().upper_bound(iter->key))
                  : stand_on(iter, iter->trans->content().end());
}

int silo_iterator_walk(silo_iterator_t *iter, int (*visit)(void *user, const silo_kv *kv), void *user)
{
    int result = silo_iterator_next(iter);
    while (result == 0 && visit(user, &iter->kv) != 0)
        result = silo_iterator_next(iter);
    return result;
}

silo_kv *silo_iterator_kv(silo_iterator_t *iter)
{
    return &iter->kv;
}

int silo_if_prefix(const silo_kv *kv, const char *prefix, size_t prefix_len)
{
    return std::string_view(kv->key, kv->key_len).starts_with(std::string_view(prefix, prefix_len));
}

int silo_compare_key(const char *key, size_t key_len, const char *other, size_t other_len)
{
    return std::string_view(key, key_len).compare({other, other_len});
}

int silo_prefetch(silo_transaction_t *trans, const silo_prefix *, size_t count)
{
    passes_in(trans, "announce " + std::to_string(count));
    fake_lock held(s_fake.mutex);
    return s_fake.is_server ? 0 : 1;
}

uint64_t silo_snapshot_id(silo_transaction_t *trans)
{
    return trans->version;
}
