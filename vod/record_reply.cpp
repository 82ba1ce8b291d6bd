// Answers of the record worker: completions of its operations, long texts in pieces, and sending to a link that may be
// busy or gone.
#include "vod/record_worker.h"

#include "vod/record_text.h"
#include "vod/reply.h"

#include <cstdio>
#include <cstdlib>
#include <functional>

static constexpr int TRY_AGIAN_NUM = 30;
static constexpr uint32_t TRY_AGAIN_MS = 10;

static constexpr char FIND_FILE_REPLY[] = "<?xml version=\"1.0\"?>\n<command_return name=\"find_file\" result=\"%s\">\n"
                                          "\t<session_id>%d</session_id>\n</command_return>";

// ---- Sending --------------------------------------------------------------------------------------------------------

// 0, or the error of the message service. A slot that serves another client by now is as good as a broken connection.
static uint32_t send_once(const VodAsynRecUdata *udata, const MpPackage *package)
{
    vodlinks_guard held;
    VodLink *link = vodlink_of_cookie(held, udata->link_life);
    if (link == nullptr || link->mslink == nullptr)
        return ORB_ERROR_TCP_SEND_ERR;
    return ms_send_package(link->mslink, package) ? 0 : os_get_errno();
}

enum send_result { SEND_DONE, SEND_FAILED, SEND_NO_ROOM };

// Tries again while the connection takes nothing; each time `on_no_room` is told.
static send_result send_patiently(const VodAsynRecUdata *udata, const MpPackage *package,
                                  const std::function<void()> &on_no_room)
{
    for (int i = 0; i < TRY_AGIAN_NUM; i++) {
        uint32_t error = send_once(udata, package);
        if (error == 0)
            return SEND_DONE;
        if (error != ORB_ERROR_TRY_AGAIN)
            return SEND_FAILED;
        on_no_room();
        os_sleep(TRY_AGAIN_MS);
    }
    return SEND_NO_ROOM;
}

struct reply_piece {
    uint32_t pieces, piece, total_len;
    const char *data;
    uint32_t data_len;
};

static int build_piece(reply_package *reply, const VodAsynRecUdata *udata, const reply_piece &of)
{
    return mp_build_package_ret_cmd_chs(reply->buffer, sizeof reply->buffer, 0, udata->module_s, udata->module_d,
                                        udata->src_id, udata->src_sup_id, udata->des_sup_id, udata->des_id,
                                        udata->mp_session_id, of.pieces, of.piece, of.total_len, 0, of.data,
                                        of.data_len, &reply->package);
}

// ---- "find_file" ----------------------------------------------------------------------------------------------------

static void quit_for_package(int line)
{
    log_buf_lock();
    log_buf_date();
    log_buf_msg("[fatal] file: %s line: %d ", LOG_UNIT, line);
    err_buf_quit_unlock("!mp_build_package_ret_cmd_chs");
}

static void send_find_file(const VodAsynRecUdata *udata, const MpPackage *package)
{
    switch (send_patiently(udata, package, [] { LOG(LOG_SYSTEM, "try again!"); })) {
    case SEND_DONE:
        return;
    case SEND_FAILED:
        return LOG(LOG_SYSTEM, "err");
    case SEND_NO_ROOM:
        return LOG(LOG_SYSTEM, "i == TRY_AGIAN_NUM");
    }
}

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
    auto whole = static_cast<uint32_t>(xml_size + 1);
    reply_package reply;
    if (!build_piece(&reply, udata, {1, 0, whole, xml, whole}))
        return quit_for_package(__LINE__);
    send_find_file(udata, &reply.package);
}

// ---- "find_next_file" -----------------------------------------------------------------------------------------------

static bool send_next_file_piece(const VodAsynRecUdata *udata, const reply_piece &piece)
{
    reply_package reply;
    if (!build_piece(&reply, udata, piece)) {
        LOG(LOG_FATAL, "!mp_build_package_ret_cmd_chs");
        os_exit(1);
        return false;
    }
    send_result result = send_patiently(udata, &reply.package, [] {});
    if (result == SEND_NO_ROOM)
        LOG(LOG_SYSTEM, "TRY_AGIAN_NUM == j");
    return result == SEND_DONE;
}

// The terminating zero goes with the last piece, which therefore may hold one byte more than the others.
static void send_in_pieces(const VodAsynRecUdata *udata, const std::string &text)
{
    auto size = static_cast<uint32_t>(text.size());
    uint32_t pieces = (size + MP_MAX_DATA_LEN - 1) / MP_MAX_DATA_LEN;
    for (uint32_t piece = 0; piece < pieces; piece++) {
        uint32_t begin = piece * MP_MAX_DATA_LEN;
        uint32_t length = piece + 1 == pieces ? size - begin + 1 : uint32_t{MP_MAX_DATA_LEN};
        if (!send_next_file_piece(udata, {pieces, piece, size + 1, text.c_str() + begin, length}))
            return;
    }
}

static void send_records(const VodAsynRecUdata *udata, const VodAsynRec_GetFile &opit)
{
    xml_doc doc = record_reply_document(opit);
    if (doc == nullptr)
        return;
    std::string xml_data = xml_dump(doc.get(), nullptr, false);
    if (xml_data.empty() || xml_data.size() >= INT32_MAX)
        return LOG(LOG_SYSTEM, "xml_data == NULL || len <= 0");
    doc.reset();
    send_in_pieces(udata, xml_data);
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
