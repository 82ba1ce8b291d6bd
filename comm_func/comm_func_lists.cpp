#include "comm_func/comm_lists.h"

#include "comm_func/comm_time.h"
#include "platform/json/json.h"
#include "platform/os/os_guard.h"

// ---- JSON -----------------------------------------------------------------------------------------------------------

// The text at a place of a range, NULL when there is none.
static const char *range_text(json_object *range, size_t index)
{
    return json_object_get_string(json_object_array_get_idx(range, index));
}

static bool read_range(json_object *range, PairTime *pair_time)
{
    const char *start = range_text(range, 0);
    if (start == nullptr)
        return LOGGED(false, LOG_REFUSE, "json_start_time == NULL");
    const char *end = range_text(range, 1);
    if (end == nullptr)
        return LOGGED(false, LOG_REFUSE, "json_end_time == NULL");
    return strtime_to_commtime(start, &pair_time->start_time) && strtime_to_commtime(end, &pair_time->end_time);
}

static void append_or_exit(DList *lst, DataTimeMap *time_dev_map)
{
    dlist_guard held(lst);
    if (adt_dlist_push_back(lst, &time_dev_map) != nullptr)
        return;
    std::free(time_dev_map);
    LOG(LOG_FATAL, "time_dev_map == NULL!!!");
    os_exit(1);
}

static void add_range(json_object *range, DList *lst, void *data)
{
    if (range == nullptr)
        return LOG(LOG_REFUSE, "jso_host == NULL");
    if (!json_object_is_type(range, json_type_array))
        return LOG(LOG_REFUSE, "!json_object_is_type(jso_param, json_type_array)");

    auto time_dev_map = new_or_exit<DataTimeMap>("time_dev_map == NULL!!!");
    time_dev_map->data = data;
    time_dev_map->findfd = INVALID_HANDLE_ORB;
    if (read_range(range, &time_dev_map->pair_time))
        append_or_exit(lst, time_dev_map);
    else
        std::free(time_dev_map);
}

int parse_json_to_list(const char *json, DList *lst, void *data)
{
    if (json == nullptr)
        return LOGGED(0, LOG_REFUSE, "json == NULL");
    if (data == nullptr)
        return LOGGED(0, LOG_REFUSE, "data == NULL");
    if (lst == nullptr)
        return LOGGED(0, LOG_REFUSE, "ls_pair_time == NULL");
    json_ref root(json_tokener_parse(json));
    if (root == nullptr)
        return LOGGED(0, LOG_REFUSE, "json_object_from_file is_error !!!");

    json_object *param = nullptr;
    if (json_object_is_type(root.get(), json_type_object))
        json_object_object_get_ex(root.get(), "param", &param);
    if (param == nullptr)
        return LOGGED(1, LOG_REFUSE, "jso_param == NULL");
    if (!json_object_is_type(param, json_type_array))
        return LOGGED(1, LOG_REFUSE, "!json_object_is_type(jso_param, json_type_array)");
    for (size_t i = 0; i < json_object_array_length(param); i++)
        add_range(json_object_array_get_idx(param, i), lst, data);
    return 1;
}

// ---- Order ----------------------------------------------------------------------------------------------------------

struct dlist_destroyer {
    void operator()(DList *list) const { adt_dlist_destroy(list); }
};
using dlist_ref = std::unique_ptr<DList, dlist_destroyer>;

static DataTimeMap *&map_at(DListNode *node)
{
    return *static_cast<DataTimeMap **>(adt_dlist_data(node));
}

// Behind the last entry that does not start later. Searched from the end, where entries mostly belong.
static bool insert_in_order(DList *sorted, DataTimeMap *map)
{
    DListNode *later = nullptr;
    for (DListNode *node = adt_dlist_tail(sorted); node != nullptr; node = adt_dlist_prev(node)) {
        if (commtime_compare(&map_at(node)->pair_time.start_time, &map->pair_time.start_time) != 1)
            break;
        later = node;
    }
    return adt_dlist_insert(sorted, later, &map) != nullptr;
}

// Puts the sorted entries into the nodes that are there, which cannot fail half-way, and removes the nodes left over.
static void take_over_order(DList *lst, DList *sorted)
{
    DListNode *to = adt_dlist_head(lst);
    for (DListNode *from = adt_dlist_head(sorted); from != nullptr; from = adt_dlist_next(from)) {
        map_at(to) = map_at(from);
        to = adt_dlist_next(to);
    }
    while (to != nullptr)
        to = adt_dlist_erase(lst, to);
}

int sort_list_by_time(DList *lst)
{
    if (lst == nullptr)
        return LOGGED(0, LOG_REFUSE, "lst == NULL");
    dlist_guard held(lst);
    dlist_ref sorted(adt_dlist_create(sizeof(DataTimeMap *)));
    if (sorted == nullptr)
        return LOGGED(0, LOG_REFUSE, "ls_data_time_map == NULL");
    for (DListNode *node = adt_dlist_head(lst); node != nullptr; node = adt_dlist_next(node))
        if (map_at(node) != nullptr && !insert_in_order(sorted.get(), map_at(node)))
            return LOGGED(0, LOG_REFUSE, "ls_data_time_map == NULL");
    take_over_order(lst, sorted.get());
    return 1;
}
