#include "tools/media_export/parameter_sets.h"

#include "tools/media_export/av_guard.h"

#include <algorithm>

static constexpr int PICTURE_SIZE_MAX = 16384;
static constexpr size_t H264_SPS_MAX = 31, SETS_MAX = 255, SET_BYTES_MAX = 0xFFFF, SEQUENCE_BYTES_MIN = 4;

namespace {
enum set_kind { SET_VIDEO, SET_SEQUENCE, SET_PICTURE, SET_KINDS };

// The sets of an access unit by kind, in the order of the record.
struct found_sets {
    std::vector<byte_span> of[SET_KINDS];
};

// Reads a set bit by bit, bytes that only keep start codes apart left out. Behind its end it gives zeros and is broken.
class bit_reader {
public:
    explicit bit_reader(byte_span set)
    {
        for (size_t i = 0; i < set.size(); i++)
            if (i < 2 || set[i] != 3 || set[i - 1] != 0 || set[i - 2] != 0)
                bytes_.push_back(set[i]);
    }
    uint32_t bits(size_t count)
    {
        uint32_t value = 0;
        for (; count > 0; count--, at_++) {
            is_broken_ = is_broken_ || at_ >= bytes_.size() * 8;
            value = value << 1 | (is_broken_ ? 0u : uint32_t{bytes_[at_ / 8]} >> (7 - at_ % 8) & 1u);
        }
        return value;
    }
    void skip(size_t count) { at_ += count; }
    // An unsigned number of a variable length.
    uint32_t number()
    {
        size_t zeros = 0;
        while (!is_broken_ && zeros < 32 && bits(1) == 0)
            zeros++;
        is_broken_ = is_broken_ || zeros >= 32;
        return is_broken_ ? 0 : (uint32_t{1} << zeros) - 1 + bits(zeros);
    }
    bool is_broken() const { return is_broken_; }
    const byte_vector &bytes() const { return bytes_; }

private:
    byte_vector bytes_;
    size_t at_ = 0;
    bool is_broken_ = false;
};

struct picture_form {
    uint32_t chroma = 1, luma_depth = 0, chroma_depth = 0; // depths beyond 8 bits
};
} // namespace

static int kind_of_type(int mode, byte_span nal)
{
    int type = mode_is_h265(mode) ? (nal[0] >> 1) & 0x3F : nal[0] & 0x1F;
    return mode_is_h265(mode) ? type - 32 : type - 7 + SET_SEQUENCE;
}

static found_sets sets_find(int mode, byte_span key_frame)
{
    found_sets found;
    annexb_visit(key_frame, [&](byte_span nal) {
        if (annexb_kind(mode, nal) == NAL_PARAMETER_SET)
            found.of[kind_of_type(mode, nal)].push_back(nal);
    });
    return found;
}

static bool counts_are_usable(int mode, const found_sets &found)
{
    for (int kind = mode_is_h265(mode) ? SET_VIDEO : SET_SEQUENCE; kind < SET_KINDS; kind++) {
        const auto &sets = found.of[kind];
        size_t least = kind == SET_SEQUENCE ? SEQUENCE_BYTES_MIN : 2;
        if (sets.empty() || sets.size() > SETS_MAX || std::ranges::any_of(sets, [&](byte_span set) {
                return set.size() < least || set.size() > SET_BYTES_MAX;
            }))
            return false;
    }
    return mode_is_h265(mode) || found.of[SET_SEQUENCE].size() <= H264_SPS_MAX;
}

static bool form_is_usable(const picture_form &form, const bit_reader &bits)
{
    return !bits.is_broken() && form.chroma <= 3 && form.luma_depth <= 7 && form.chroma_depth <= 7;
}

static void put_big(byte_vector *to, size_t value, int bytes)
{
    for (int i = bytes - 1; i >= 0; i--)
        to->push_back(static_cast<uint8_t>(value >> (8 * i)));
}

static void put_set(byte_vector *to, byte_span set)
{
    put_big(to, set.size(), 2);
    to->insert(to->end(), set.begin(), set.end());
}

// ---- H.264 ----------------------------------------------------------------------------------------------------------

static bool h264_says_form(uint8_t profile)
{
    static constexpr uint8_t PROFILES[] = {100, 110, 122, 244, 44, 83, 86, 118, 128, 138, 139, 134, 135};
    return std::ranges::find(PROFILES, profile) != std::end(PROFILES);
}

static bool h264_form(byte_span sequence, picture_form *form)
{
    bit_reader bits(sequence);
    bits.skip(32); // the kind of unit, profile, constraints, level
    bits.number(); // the set's own
    if (h264_says_form(sequence[1])) {
        form->chroma = bits.number();
        if (form->chroma == 3)
            bits.bits(1);
        form->luma_depth = bits.number();
        form->chroma_depth = bits.number();
    }
    return form_is_usable(*form, bits);
}

static bool h264_record(const found_sets &found, byte_vector *record)
{
    byte_span sequence = found.of[SET_SEQUENCE][0];
    picture_form form;
    if (!h264_form(sequence, &form))
        return false;
    *record = {1, sequence[1], sequence[2], sequence[3], 0xFF};
    record->push_back(static_cast<uint8_t>(0xE0 | found.of[SET_SEQUENCE].size()));
    for (byte_span set : found.of[SET_SEQUENCE])
        put_set(record, set);
    record->push_back(static_cast<uint8_t>(found.of[SET_PICTURE].size()));
    for (byte_span set : found.of[SET_PICTURE])
        put_set(record, set);
    if (h264_says_form(sequence[1]))
        for (uint32_t bits : {0xFC | form.chroma, 0xF8 | form.luma_depth, 0xF8 | form.chroma_depth, 0u})
            record->push_back(static_cast<uint8_t>(bits));
    return true;
}

// ---- H.265 ----------------------------------------------------------------------------------------------------------

static constexpr size_t H265_PROFILE_BYTES = 12, H265_PROFILE_AT = 3;

static void h265_skip_layers(bit_reader *bits, uint32_t layers)
{
    uint32_t has_profile = 0, has_level = 0;
    for (uint32_t i = 0; i < layers; i++) {
        has_profile |= bits->bits(1) << i;
        has_level |= bits->bits(1) << i;
    }
    if (layers > 0)
        bits->skip(2 * (8 - layers));
    for (uint32_t i = 0; i < layers; i++)
        bits->skip((has_profile >> i & 1 ? 88 : 0) + (has_level >> i & 1 ? 8 : 0));
}

static bool h265_form(bit_reader *bits, uint32_t layers, picture_form *form)
{
    bits->skip(H265_PROFILE_BYTES * 8);
    h265_skip_layers(bits, layers);
    bits->number(); // the set's own
    form->chroma = bits->number();
    if (form->chroma == 3)
        bits->bits(1);
    bits->number(); // width
    bits->number(); // height
    if (bits->bits(1) != 0)
        for (int side = 0; side < 4; side++)
            bits->number();
    form->luma_depth = bits->number();
    form->chroma_depth = bits->number();
    return form_is_usable(*form, *bits);
}

static bool h265_record(const found_sets &found, byte_vector *record)
{
    bit_reader bits(found.of[SET_SEQUENCE][0]);
    bits.skip(16 + 4); // the kind of unit, the video set's number
    uint32_t layers = bits.bits(3), is_nested = bits.bits(1);
    picture_form form;
    if (layers > 6 || !h265_form(&bits, layers, &form))
        return false;
    auto profile = bits.bytes().begin() + H265_PROFILE_AT;
    *record = {1};
    record->insert(record->end(), profile, profile + H265_PROFILE_BYTES);
    for (uint32_t value : {0xF0u, 0x00u, 0xFCu, 0xFC | form.chroma, 0xF8 | form.luma_depth, 0xF8 | form.chroma_depth,
                           0u, 0u, (layers + 1) << 3 | is_nested << 2 | 3u, uint32_t{SET_KINDS}})
        record->push_back(static_cast<uint8_t>(value));
    for (int kind = 0; kind < SET_KINDS; kind++) {
        record->push_back(static_cast<uint8_t>(0x80 | (32 + kind)));
        put_big(record, found.of[kind].size(), 2);
        for (byte_span set : found.of[kind])
            put_set(record, set);
    }
    return true;
}

// ---- Both -----------------------------------------------------------------------------------------------------------

bool parameter_sets_record(int mode, byte_span key_frame, byte_vector *record)
{
    found_sets found = sets_find(mode, key_frame);
    return counts_are_usable(mode, found) &&
           (mode_is_h265(mode) ? h265_record(found, record) : h264_record(found, record));
}

// The picture size that the decoder's own reading of the sets finds; 0 when it finds none.
static void size_find(int mode, byte_span key_frame, parameter_sets *sets)
{
    av_parser_owner parser(av_parser_init(mode_is_h265(mode) ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264));
    av_codec_owner context(avcodec_alloc_context3(nullptr));
    byte_vector padded(key_frame.begin(), key_frame.end());
    padded.resize(padded.size() + AV_INPUT_BUFFER_PADDING_SIZE);
    if (!parser || !context)
        return;
    parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
    uint8_t *out = nullptr;
    int out_bytes = 0;
    av_parser_parse2(parser.get(), context.get(), &out, &out_bytes, padded.data(), static_cast<int>(key_frame.size()),
                     AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
    sets->width = parser->width;
    sets->height = parser->height;
}

bool parameter_sets_read(int mode, byte_span key_frame, parameter_sets *sets)
{
    if (!parameter_sets_record(mode, key_frame, &sets->record))
        return false;
    size_find(mode, key_frame, sets);
    return sets->width > 0 && sets->height > 0 && sets->width <= PICTURE_SIZE_MAX && sets->height <= PICTURE_SIZE_MAX;
}

byte_vector sized_units(byte_span unit)
{
    byte_vector sized;
    sized.reserve(unit.size() + 16);
    annexb_visit(unit, [&](byte_span nal) {
        put_big(&sized, nal.size(), 4);
        sized.insert(sized.end(), nal.begin(), nal.end());
    });
    return sized;
}
