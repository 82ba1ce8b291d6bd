#include "vod/record_item.h"

#include <cstdlib>

void record_item_free(VodOperateRecItem *item)
{
    if (item == nullptr)
        return;
    if (item->command == RECORD_GET_FILE && item->size == int32_t{sizeof(VodAsynRec_GetFile)} && item->param != nullptr)
        std::free(static_cast<VodAsynRec_GetFile *>(item->param)->file_info);
    std::free(item->param);
    std::free(item->udata);
    std::free(item);
}

static void *zeroed(size_t size)
{
    return os_fault_point("record_item") ? nullptr : std::calloc(1, size);
}

record_item record_item_create(int32_t command, int32_t param_size)
{
    record_item item(static_cast<VodOperateRecItem *>(zeroed(sizeof(VodOperateRecItem))));
    if (item == nullptr)
        return nullptr;
    item->command = command;
    item->size = param_size;
    item->udata = static_cast<VodAsynRecUdata *>(zeroed(sizeof(VodAsynRecUdata)));
    item->param = zeroed(static_cast<size_t>(param_size));
    return item->udata == nullptr || item->param == nullptr ? nullptr : std::move(item);
}
