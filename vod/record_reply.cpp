// Answers of the record worker: completions of its operations and their texts.
#include "vod/record_worker.h"

#include "vod/record_outbox.h"
#include "vod/record_text.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

static constexpr char FIND_FILE_REPLY[] = "<?xml version=\"1.0\"?>\n<command_return name=\"find_file\" result=\"%s\">\n"
                                          "\t<session_id>%d</session_id>\n</command_return>";

// ---- "find_file" ----------------------------------------------------------------------------------------------------

static void quit_for_find_file()
{
    log_buf_lock();
    log_buf_date();
    log_buf_msg("[fatal] file: %s line: %d ", LOG_UNIT, __LINE__);
    err_buf_quit_unlock("!mp_build_package_ret_cmd_chs");
}

static constexpr record_reply_kind s_find_file_reply = {
    .unbuildable = quit_for_find_file,
    .try_again = "try again!",
    .broken = "err",
    .given_up = "i == TRY_AGIAN_NUM",
};

void on_rec_operate_complete_file_find(VodAsynRecUdata *udata, void *param, int32_t size)
{
    if (param == nullptr)
        return LOG(LOG_SYSTEM, "param == NULL");
    if (size != int32_t{sizeof(VodAsynRec_FindFile)})
        return LOG(LOG_SYSTEM, "size != sizeof(VodAsynRec_FindFile)");
    auto opit = static_cast<const VodAsynRec_FindFile *>(param);
    if (!opit->success)
        LOG(LOG_SYSTEM, "!opit->success");
    char xml[sizeof FIND_FILE_REPLY + 32];
    int xml_size = std::snprintf(xml, sizeof xml, FIND_FILE_REPLY, opit->success ? "ok" : "error", opit->findfd);
    static_assert(sizeof xml < MP_MAX_DATA_LEN, "so the text always goes out in one piece");
    record_outbox_send(*udata, std::string(xml, static_cast<size_t>(xml_size)), &s_find_file_reply);
}

// ---- "find_next_file" -----------------------------------------------------------------------------------------------

static void quit_for_records()
{
    LOG(LOG_FATAL, "!mp_build_package_ret_cmd_chs");
    os_exit(1);
}

static constexpr record_reply_kind s_records_reply = {
    .unbuildable = quit_for_records,
    .try_again = nullptr,
    .broken = nullptr,
    .given_up = "TRY_AGIAN_NUM == j",
};

static void send_records(const VodAsynRecUdata *udata, const VodAsynRec_GetFile &opit)
{
    xml_doc doc = record_reply_document(opit);
    if (doc == nullptr)
        return;
    std::string xml_data = xml_dump(doc.get(), nullptr, false);
    if (xml_data.empty() || xml_data.size() >= INT32_MAX)
        return LOG(LOG_SYSTEM, "xml_data == NULL || len <= 0");
    doc.reset();
    record_outbox_send(*udata, std::move(xml_data), &s_records_reply);
}

void on_rec_operate_complate_get_file(VodAsynRecUdata *udata, void *param, int32_t size)
{
    if (param == nullptr)
        return LOG(LOG_SYSTEM, "param == NULL");
    if (size != int32_t{sizeof(VodAsynRec_GetFile)})
        return LOG(LOG_SYSTEM, "size != sizeof(VodAsynRec_GetFile)");
    auto opit = static_cast<VodAsynRec_GetFile *>(param);
    send_records(udata, *opit);
    std::free(opit->file_info);
    opit->file_info = nullptr;
}

// ---- "findfile_close" -----------------------------------------------------------------------------------------------

void on_rec_operate_complete_find_close(VodAsynRecUdata *, void *param, int32_t size)
{
    if (param == nullptr)
        return LOG(LOG_SYSTEM, "param == NULL");
    if (size != int32_t{sizeof(VodAsynRec_FindClose)})
        LOG(LOG_SYSTEM, "size != sizeof(VodAsynRec_FindClose)");
}

void on_rec_operate_complete(int32_t command, void *, VodAsynRecUdata *udata, void *param, int32_t size)
{
    switch (command) {
    case RECORD_FIND_FILE:
        return on_rec_operate_complete_file_find(udata, param, size);
    case RECORD_GET_FILE:
        return on_rec_operate_complate_get_file(udata, param, size);
    case RECORD_FIND_CLOSE:
        return on_rec_operate_complete_find_close(udata, param, size);
    default:
        return;
    }
}
