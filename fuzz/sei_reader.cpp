// Absolute time in frames: the first byte chooses the coding mode, the rest is the frame.
#include "comm_func/orb_userdata.h"

#include "platform/os/os.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

static constexpr int HEAD = 32;

// A message that is put into a frame must be what the reader finds in it, unless the frame's own header looks like one.
static void insert_and_read_back(int mode, const std::vector<uint8_t> &frame, uint32_t seconds)
{
    std::vector<uint8_t> longer(frame.size() + 64);
    const int length = add_new_abstime_sei(mode, frame.data(), static_cast<int>(frame.size()), longer.data(),
                                           static_cast<int>(longer.size()), seconds);
    uint8_t flag[8];
    const int flag_length = get_userdata_flag(mode, flag, nullptr);
    if (flag_length == 0 || length == 0)
        return;
    if (length < static_cast<int>(frame.size()) + get_sei_frame_size(mode))
        std::abort();
    longer.resize(static_cast<size_t>(length));
    longer.shrink_to_fit();
    uint32_t read = 0;
    const bool is_first = find_pos_by_flag(longer.data(), length, flag, flag_length) == HEAD;
    // The one time whose last byte looks like an inserted one: the bytes behind an escaped one are not escaped.
    const bool is_ambiguous = seconds == 0x03000000;
    if (is_first && !is_ambiguous && (get_abstime_from_sei(mode, longer.data(), length, &read) != 1 || read != seconds))
        std::abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    os_log_set_level(LOG_FATAL); // refusals are the ordinary case here
    if (size < 1 || size > 1 << 16)
        return 0;
    const int mode = 20 + data[0] % 6;
    const std::vector<uint8_t> frame(data + 1, data + size);
    const int length = static_cast<int>(frame.size());
    uint32_t seconds = 0;
    get_abstime_from_sei(mode, frame.data(), length, &seconds);
    uint8_t payload[USERDATA_MAX_LENGTH];
    for (int wanted : {0, 9, length, 2 * length})
        if (sei_frame_del_03(frame.data(), length, wanted, payload, sizeof(payload)) > USERDATA_MAX_LENGTH)
            std::abort();
    std::vector<uint8_t> escaped(frame.size() * 4 / 3 + 4);
    if (sei_frame_add_03(frame.data(), length, escaped.data()) > length / 3 + 1)
        std::abort();
    insert_and_read_back(mode, frame, seconds * 2654435761u + data[0]);
    return 0;
}
