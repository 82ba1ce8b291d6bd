/*
 * The message service: packages over TCP between modules of the platform. A package is a 12-byte little-endian head and
 * up to 20 attributes, `total_len` bytes in all; docs/protocol.md describes the wire.
 *
 * Functions return 1 for success and 0 for failure unless they say otherwise and may be called from any thread. A failed
 * call leaves its code in the thread's error number (os_get_errno). An MsLink* stays readable for as long as anyone may
 * hold it: using one after its connection has ended is answered with an error, never a crash.
 */
#ifndef PLATFORM_MS_MS_H
#define PLATFORM_MS_MS_H

#include "platform/os/orb_export.h"

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Packages --------------------------------------------------------------------------------------------------- */

#define MP_MAX_PACKAGE_LEN 65535
#define MP_MAX_DATA_LEN 64512 /* texts are shorter than this; one data attribute may hold one byte more */
#define MP_MAX_ATTR_NUM 20
#define MP_MAX_DEVID_LEN 60
#define MP_HEAD_FLAG 0x314D504Fu /* "OPM1" on the wire */

enum mp_code {
    MP_CODE_REQUEST_RES = 9,
    MP_CODE_ACCEPT_RES = 10,
    MP_CODE_REJECT_RES = 11,
    MP_CODE_GET_RES = 12,
    MP_CODE_SEND_RES = 13,
    MP_CODE_STOP_RES = 14,
    MP_CODE_SEND_CMD_CHS = 15,
    MP_CODE_ACK_RES = 16,
    MP_CODE_RET_CMD_CHS = 17,
    MP_CODE_PUSH_RES = 19
};

enum mp_attr_type {
    MP_ATTR_DEVICE_ID = 1,    /* 60 characters, not necessarily terminated */
    MP_ATTR_SESSION_ID = 2,   /* uint32 */
    MP_ATTR_RES_INFO = 3,     /* uint16 kind, uint16 number, then a text or record of that kind */
    MP_ATTR_PROGRESS = 4,     /* uint32 percent */
    MP_ATTR_REDIRECT = 5,     /* MpAttrRedirectInfo */
    MP_ATTR_RULES = 7,
    MP_ATTR_DATA = 8,
    MP_ATTR_ERROR = 9,        /* uint32 error code of a reject */
    MP_ATTR_HARDPLAY_INFO = 10,
    MP_ATTR_CMD_INFO = 11,    /* uint32 result, uint32 number of pieces, uint32 piece index, uint32 total length */
    MP_ATTR_INSERT_ABSTIME = 'n',
    MP_ATTR_CAPABILITY = 'm'
};

enum orb_error {
    ORB_ERROR_MORE_NUM = 0x1000008,
    ORB_ERROR_TRY_AGAIN = 0x1000009,
    ORB_ERROR_TCP_SEND_ERR = 0x100000a
};

#pragma pack(push, 1)

typedef struct MpPackHead {
    uint32_t flag;       /* MP_HEAD_FLAG */
    uint8_t reserved1;
    uint8_t code;        /* enum mp_code */
    uint16_t reserved2;  /* commands: not 0 asks for a reply */
    uint8_t module_des;
    uint8_t module_src;
    uint16_t total_len;  /* of the package, this head included */
} MpPackHead;

typedef struct MpAttrHead {
    uint8_t type;
    uint8_t reserved;
    uint16_t len;        /* of the attribute, this head included */
} MpAttrHead;

#pragma pack(pop)

/*
 * A package in memory. Received: head and attributes point into the receive buffer, valid during the callback, all
 * lengths already checked (every attribute lies whole inside the package, len >= 4). Under construction: they point into
 * the caller's buffer; `capacity` is its size and `used` the bytes so far. Field values are little-endian in memory on
 * every host that the system supports.
 */
typedef struct MpPackage {
    MpPackHead *head;
    MpAttrHead *attr[MP_MAX_ATTR_NUM];
    uint32_t size;       /* attributes present */
    uint32_t capacity, used;
} MpPackage;

/*
 * Parses `len` bytes as one package; the result points into `bytes`. 0 when anything does not fit: a head shorter than
 * 12 bytes or with a wrong flag, a total_len other than `len`, an attribute shorter than 4 bytes or past the end, or
 * more than 20 attributes.
 */
ORB_API int mp_parse_package(uint8_t *bytes, size_t len, MpPackage *package);
/*
 * How long the package that starts at `bytes` is: 0 while fewer than 12 bytes are there, -1 when no package can start
 * like this, else 12 to 65535.
 */
ORB_API int mp_frame_length(const uint8_t *bytes, size_t len);
/* The value bytes of attribute `index`, NULL when it is missing or shorter than `min_len`; `len` (may be NULL) their count. */
ORB_API const uint8_t *mp_attr_value(const MpPackage *package, uint32_t index, uint32_t min_len, uint32_t *len);
/* Index of the first attribute of `type` at or after `from`, -1 when there is none. */
ORB_API int mp_find_attr(const MpPackage *package, uint8_t type, uint32_t from);
/* Not 0 when the attribute is a whole session-id attribute. */
ORB_API int mp_check_attr_session_id(const MpAttrHead *attr);
ORB_API uint32_t mp_attr_session_id(const MpAttrHead *attr);

/* ---- Builders --------------------------------------------------------------------------------------------------- */

/*
 * Each builds a package in `buffer`, of which `buffer_size` bytes (65535 at most) may be used. It can be sent as it is,
 * or get more attributes (mp_add_attr), after which mp_commit_package fixes the length again; ms_send_package refuses
 * a package whose length is not the one of its attributes. 0 when it does not fit; `data_len` may be 64513 at most.
 */
ORB_API int mp_build_package_accept_res(void *buffer, uint32_t buffer_size, uint16_t module_des, uint16_t module_src,
                                        const void *data, uint32_t data_len, MpPackage *package);
ORB_API int mp_build_package_send_res(void *buffer, uint32_t buffer_size, uint16_t module_des, uint16_t module_src,
                                      const void *data, uint32_t data_len, MpPackage *package);
ORB_API int mp_build_package_reject_res(void *buffer, uint32_t buffer_size, uint32_t error_code, const char *local_devid,
                                        MpPackage *package);
/*
 * Device ids are 60-byte fields (NULL: zeros). `result` 0, `pieces` 1, `piece` 0 and `total_len` the data's length for a
 * short reply; a long one is cut into `pieces` packages, numbered from 0. `reserved` goes into the head's reserved2.
 */
ORB_API int mp_build_package_ret_cmd_chs(void *buffer, uint32_t buffer_size, uint32_t result, uint16_t module_des,
                                         uint16_t module_src, const void *id3, const void *id2, const void *id1,
                                         const void *id0, uint32_t session_id, uint32_t pieces, uint32_t piece,
                                         uint32_t total_len, uint32_t reserved, const void *data, uint32_t data_len,
                                         MpPackage *package);
/* An empty package of any code, for clients. `reserved2` is the head's field. */
ORB_API int mp_build_package(void *buffer, uint32_t buffer_size, uint8_t code, uint16_t module_des, uint16_t module_src,
                             uint16_t reserved2, MpPackage *package);
/*
 * A new attribute of `value_len` zero value bytes with its head filled in; NULL when it does not fit or 20 are there.
 * Fill the value behind the head. The plain form leaves `len` 4 and lets the caller set `len` (checked when the next
 * attribute is added or the package committed) and write the value: room for it is whatever the buffer still has.
 */
ORB_API MpAttrHead *mp_add_attr(MpPackage *package);
ORB_API MpAttrHead *mp_add_attr_value(MpPackage *package, uint8_t type, const void *value, uint32_t value_len);
/* Fixes the head's total_len. 0 when an attribute does not fit. */
ORB_API int mp_commit_package(MpPackage *package);

/* ---- Service ---------------------------------------------------------------------------------------------------- */

typedef struct MsLink MsLink;

enum ms_event { MS_CLIENT_EV_CONNECT = 0, MS_CLIENT_EV_READ = 1, MS_CLIENT_EV_DISCONNECT = 2 };

/*
 * Called on the service's threads; the events of one connection come one after the other. `package` is NULL but for
 * reads. After MS_CLIENT_EV_DISCONNECT, which comes exactly once, nothing more comes from that connection. A handler
 * bound to a module hears of a connection from its first package for that module on: MS_CLIENT_EV_CONNECT comes just
 * before that package's read. A handler may block; it then holds up its own connection only, as long as threads are left.
 */
typedef void (*ms_event_func)(MsLink *link, int event, MpPackage *package);

/*
 * Reads "etc\conf\ms_config.json" (a missing file or key gives the default), listens and starts the service's threads.
 * A second call while it runs succeeds and changes nothing.
 */
ORB_API int ms_startup(void);
/*
 * Closes every connection of the service (their disconnects are reported), stops the threads and forgets the handlers.
 * For hosts; 0 from a handler, which cannot wait for itself. Connections made with ms_connect are their owners'.
 */
ORB_API int ms_cleanup(void);
/* Packages for `module` go to `handler` from now on; a package goes to the module that its head names. */
ORB_API int ms_bind_client_event(uint16_t module, ms_event_func handler);
/* The port that is listened on (the settings may ask for any free one), 0 when none. */
ORB_API uint16_t ms_listen_port(void);

/*
 * Sends a committed package without ever blocking. ORB_ERROR_TRY_AGAIN: nothing was sent, the connection's queue is
 * full; ORB_ERROR_TCP_SEND_ERR: the connection is broken or gone.
 */
ORB_API int ms_send_package(MsLink *link, const MpPackage *package);
/* Waits for at most `ms` until a refused package may be tried again; returns early when it may or the connection ended. */
ORB_API void ms_wait_sendable(MsLink *link, uint32_t ms);
/* Declares the connection dead: nothing more is sent, it is closed and its disconnect reported. */
ORB_API void ms_timeout(MsLink *link);
/*
 * Stops reading from the connection (`hold` 1) or goes on with it (0), for handlers that cannot keep up with what one peer
 * sends: its packages then wait in the network, and it has to wait with them. Held by its handler, the package at hand
 * is the last one; held by others, one more may come. Sending goes on. While it is held the connection is not closed for being idle or late, and its end
 * is noticed by sending, or once it is read again. ORB_ERROR_TCP_SEND_ERR when it is gone.
 */
ORB_API int mslink_hold_reading(MsLink *link, int hold);
/*
 * While `hold` is 1 nothing is read from the connection as long as bytes wait for its socket, as if held above: a peer
 * that does not take its answers cannot ask on. ORB_ERROR_TCP_SEND_ERR when it is gone.
 */
ORB_API int mslink_hold_while_unsent(MsLink *link, int hold);
/*
 * How many bytes wait for the connection's socket, and how many more ms_send_package would queue behind them now.
 * ORB_ERROR_TCP_SEND_ERR when it is gone.
 */
ORB_API int mslink_send_queue(MsLink *link, size_t *unsent, size_t *room);
/* The device identifier of this machine (settings), into at least 64 bytes. */
ORB_API int ms_get_local_devid(char *buffer);
/* One pointer of the owner's. Cleared by the service after the disconnect was reported. */
ORB_API int mslink_set_udata(MsLink *link, void *udata);
ORB_API void *mslink_get_udata(MsLink *link);
/* Closes the connection from the owner's side; its disconnect is reported without user data. 0 when it is gone already. */
ORB_API int mslink_destroy(MsLink *link);
/* Address of the other side, "127.0.0.1:50312", for logs. */
ORB_API int mslink_peer_name(MsLink *link, char *buffer, size_t size);

struct ms_statistics {
    uint64_t connections;          /* open now */
    uint64_t accepted_total, refused_total, packages_in_total, packages_out_total, framing_errors_total, bytes_queued;
};
ORB_API void ms_get_statistics(struct ms_statistics *statistics);

/* ---- Client side ------------------------------------------------------------------------------------------------ */

/*
 * Connects to a service. `host` is a name or an address. Events go to `handler`, on threads of the library's own that
 * start with the first connection and need no ms_startup. NULL on failure or after `timeout_ms`; ms_connect_error tells
 * why in words. Ends with mslink_destroy.
 */
ORB_API MsLink *ms_connect(const char *host, uint16_t port, uint32_t timeout_ms, ms_event_func handler, void *udata);
ORB_API const char *ms_connect_error(void);

#ifdef __cplusplus
}
#endif

#endif
