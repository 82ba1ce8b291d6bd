// A stream of arbitrary bytes, cut into packages as the message service cuts it. Whatever parses must read whole, and
// must be what the builders make of the same attributes.
#include "platform/ms/ms.h"

#include <cstdlib>
#include <cstring>
#include <vector>

static void require(bool holds)
{
    if (!holds)
        std::abort();
}

// Touches every byte that the accessors give out.
static uint64_t read_whole(const MpPackage &package)
{
    uint64_t sum = mp_find_attr(&package, MP_ATTR_DATA, 7) >= 0;
    for (uint32_t i = 0; i < package.size; i++) {
        uint32_t len = 0;
        const uint8_t *value = mp_attr_value(&package, i, 0, &len);
        require(value != nullptr && len == package.attr[i]->len - sizeof(MpAttrHead));
        for (uint32_t at = 0; at < len; at++)
            sum += value[at];
        require(mp_attr_value(&package, i, len + 1, nullptr) == nullptr);
        if (mp_check_attr_session_id(package.attr[i]))
            sum += mp_attr_session_id(package.attr[i]);
    }
    require(mp_attr_value(&package, package.size, 0, nullptr) == nullptr);
    return sum;
}

static void rebuild(const MpPackage &package, const uint8_t *bytes, size_t len)
{
    static uint8_t buffer[MP_MAX_PACKAGE_LEN];
    MpPackage copy;
    const MpPackHead &head = *package.head;
    require(
        mp_build_package(buffer, sizeof buffer, head.code, head.module_des, head.module_src, head.reserved2, &copy));
    copy.head->reserved1 = head.reserved1;
    for (uint32_t i = 0; i < package.size; i++) {
        uint32_t value_len = 0;
        const uint8_t *value = mp_attr_value(&package, i, 0, &value_len);
        MpAttrHead *attr = mp_add_attr_value(&copy, package.attr[i]->type, value, value_len);
        require(attr != nullptr);
        attr->reserved = package.attr[i]->reserved;
    }
    require(mp_commit_package(&copy) && copy.used == len && std::memcmp(buffer, bytes, len) == 0);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    for (size_t at = 0; at < size;) {
        int len = mp_frame_length(data + at, size - at);
        if (len <= 0 || static_cast<size_t>(len) > size - at)
            break;
        // Its own block of just its size; the parser takes bytes that it may hand out for writing.
        std::vector<uint8_t> bytes(data + at, data + at + len);
        MpPackage package;
        if (!mp_parse_package(bytes.data(), bytes.size(), &package))
            break;
        read_whole(package);
        rebuild(package, bytes.data(), bytes.size());
        at += static_cast<size_t>(len);
    }
    // The whole input as one package: mostly refused, never read past.
    std::vector<uint8_t> whole(data, data + size);
    MpPackage package;
    if (mp_parse_package(whole.data(), whole.size(), &package))
        read_whole(package);
    return 0;
}
