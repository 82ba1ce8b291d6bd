// The real package builders with a fault point before each, so that a test can make them fail. The program that links this
// wraps them (see CMakeLists.txt).
#include "platform/ms/ms.h"
#include "platform/os/os.h"

extern "C" {
int __real_mp_build_package_accept_res(void *, uint32_t, uint16_t, uint16_t, const void *, uint32_t, MpPackage *);
int __real_mp_build_package_send_res(void *, uint32_t, uint16_t, uint16_t, const void *, uint32_t, MpPackage *);
int __real_mp_build_package_reject_res(void *, uint32_t, uint32_t, const char *, MpPackage *);
int __real_mp_build_package_ret_cmd_chs(void *, uint32_t, uint32_t, uint16_t, uint16_t, const void *, const void *,
                                        const void *, const void *, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t,
                                        const void *, uint32_t, MpPackage *);
MpAttrHead *__real_mp_add_attr_value(MpPackage *, uint8_t, const void *, uint32_t);

int __wrap_mp_build_package_accept_res(void *buffer, uint32_t size, uint16_t des, uint16_t src, const void *data,
                                       uint32_t data_len, MpPackage *package)
{
    return !os_fault_point("mp_build_package_accept_res") &&
           __real_mp_build_package_accept_res(buffer, size, des, src, data, data_len, package);
}

int __wrap_mp_build_package_send_res(void *buffer, uint32_t size, uint16_t des, uint16_t src, const void *data,
                                     uint32_t data_len, MpPackage *package)
{
    return !os_fault_point("mp_build_package_send_res") &&
           __real_mp_build_package_send_res(buffer, size, des, src, data, data_len, package);
}

int __wrap_mp_build_package_reject_res(void *buffer, uint32_t size, uint32_t code, const char *devid,
                                       MpPackage *package)
{
    return !os_fault_point("mp_build_package_reject_res") &&
           __real_mp_build_package_reject_res(buffer, size, code, devid, package);
}

int __wrap_mp_build_package_ret_cmd_chs(void *buffer, uint32_t size, uint32_t result, uint16_t des, uint16_t src,
                                        const void *id3, const void *id2, const void *id1, const void *id0,
                                        uint32_t session, uint32_t pieces, uint32_t piece, uint32_t total,
                                        uint32_t reserved, const void *data, uint32_t data_len, MpPackage *package)
{
    return !os_fault_point("mp_build_package_ret_cmd_chs") &&
           __real_mp_build_package_ret_cmd_chs(buffer, size, result, des, src, id3, id2, id1, id0, session, pieces,
                                               piece, total, reserved, data, data_len, package);
}

MpAttrHead *__wrap_mp_add_attr_value(MpPackage *package, uint8_t type, const void *value, uint32_t value_len)
{
    return os_fault_point("mp_add_attr_value") ? nullptr : __real_mp_add_attr_value(package, type, value, value_len);
}
}
