#include "tools/orbrec/index_store.h"

#include "silo_pool/silo_orb.h"
#include "tools/store_address/store_address.h"

static constexpr int ATTEMPTS = 5;

static std::string printable(const std::string &address)
{
    char text[1100] = "";
    silo_uri_printable(address.c_str(), text, sizeof text);
    return text;
}

static int address_choose(const store_settings &settings, std::string *address)
{
    if (!settings.store.empty()) {
        *address = settings.store;
        return ORBREC_OK;
    }
    bool is_named = os_environment_get(STORE_VARIABLE) != nullptr;
    if (settings.root.empty() && !is_named && !store_root_is_service("."))
        return orbrec_fail(ORBREC_USAGE, "which index? Name the service's folder with --root DIR, or the store with "
                                         "--store lmdb:DIR or --store postgresql://...");
    *address = store_address(settings.folder());
    return ORBREC_OK;
}

int index_open(const store_settings &settings, index_use use, std::string *address)
{
    int failed = use == INDEX_IS_MADE ? ORBREC_UNWRITABLE : ORBREC_UNREADABLE;
    if (int status = address_choose(settings, address); status != ORBREC_OK)
        return status;
    std::string uri = *address;
    *address = printable(uri);
    // Connecting would make one.
    if (use == INDEX_AS_IS && store_is_missing(uri))
        return orbrec_fail(failed, "there is no index at " + *address);
    silo_pool_set_db_uri(uri.c_str());
    bool is_open = silo_connection_ptr(silo_pool_get_connection()) != nullptr;
    if (!is_open || (use == INDEX_IS_MADE && silo_orb_initialize() != 0))
        return orbrec_fail(failed, "the index at " + *address + " cannot be opened; an address is lmdb:DIR or "
                                   "postgresql://..., and orbrec -v tells more");
    return ORBREC_OK;
}

enum attempt_result { ATTEMPT_DONE, ATTEMPT_FAILED, ATTEMPT_AGAIN };

static attempt_result write_once(const index_work &work)
{
    silo_connection_ptr conn(silo_pool_get_connection());
    silo_transaction_ptr trans(conn != nullptr ? silo_begin_transaction(conn->db, SILO_WRITE) : nullptr);
    if (trans == nullptr)
        return ATTEMPT_FAILED;
    index_step step = work(trans.get());
    if (step == INDEX_NOTHING)
        return ATTEMPT_DONE;
    if (step == INDEX_FAILED)
        return silo_transaction_conflict(trans.get()) ? ATTEMPT_AGAIN : ATTEMPT_FAILED;
    int committed = silo_commit(trans.get());
    return committed == 0 ? ATTEMPT_DONE : committed == SILO_COMMIT_FAILED ? ATTEMPT_FAILED : ATTEMPT_AGAIN;
}

bool index_write(const index_work &work)
{
    attempt_result result = ATTEMPT_AGAIN;
    for (int i = 0; i < ATTEMPTS && result == ATTEMPT_AGAIN; i++)
        result = write_once(work);
    return result == ATTEMPT_DONE;
}

bool index_read(const std::function<bool(silo_transaction_t *trans)> &work)
{
    silo_connection_ptr conn(silo_pool_get_connection());
    silo_transaction_ptr trans(conn != nullptr ? silo_begin_transaction(conn->db, SILO_READ) : nullptr);
    return trans != nullptr && work(trans.get());
}
