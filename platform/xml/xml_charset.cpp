#include "platform/xml/xml_charset.h"

#include "platform/os/os.h"

#include <cstring>
#include <string_view>

// What libxml2 expects of a conversion.
static constexpr int NOT_REPRESENTABLE = -2;

// Where a conversion stands: it ends before a character that is not whole, does not fit or does not convert.
struct conversion {
    std::string_view in;
    unsigned char *out;
    int room, made = 0, taken = 0;
};

static std::string_view bytes_of(const unsigned char *in, int length)
{
    return {reinterpret_cast<const char *>(in), static_cast<size_t>(length)};
}

static size_t utf8_length(std::string_view text)
{
    auto lead = static_cast<unsigned char>(text[0]);
    return lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

static size_t chinese_length(std::string_view text)
{
    if (static_cast<unsigned char>(text[0]) < 0x80)
        return 1;
    return text.size() > 1 && text[1] >= '0' && text[1] <= '9' ? 4 : 2;
}

using length_func = size_t (*)(std::string_view text);

static int convert(const char *from, const char *to, length_func length_of, conversion *at)
{
    while (!at->in.empty()) {
        size_t length = length_of(at->in);
        char one[8];
        if (length > at->in.size())
            break;
        int made = os_code_convert(from, to, one, sizeof one, at->in.data(), length);
        if (made <= 0)
            return NOT_REPRESENTABLE;
        if (made > at->room - at->made)
            break;
        std::memcpy(at->out + at->made, one, static_cast<size_t>(made));
        at->made += made;
        at->taken += static_cast<int>(length);
        at->in.remove_prefix(length);
    }
    return at->made;
}

static int run(const char *from, const char *to, length_func length_of, unsigned char *out, int *out_length,
               const unsigned char *in, int *in_length)
{
    conversion at = {bytes_of(in, *in_length), out, *out_length};
    int result = convert(from, to, length_of, &at);
    *out_length = at.made;
    *in_length = at.taken;
    return result;
}

// No set of these begins with a mark of its own, which is what a call without input asks for.
template <const char *const &NAME>
static int output(unsigned char *out, int *out_length, const unsigned char *in, int *in_length)
{
    if (in == nullptr) {
        *out_length = *in_length = 0;
        return 0;
    }
    return run("UTF-8", NAME, utf8_length, out, out_length, in, in_length);
}

template <const char *const &NAME>
static int input(unsigned char *out, int *out_length, const unsigned char *in, int *in_length)
{
    return run(NAME, "UTF-8", chinese_length, out, out_length, in, in_length);
}

static constexpr const char *GB2312 = "GB2312", *GBK = "GBK", *GB18030 = "GB18030";

std::span<const xml_charset> xml_charsets()
{
    static constexpr xml_charset CHARSETS[] = {
        {GB2312, input<GB2312>, output<GB2312>},
        {GBK, input<GBK>, output<GBK>},
        {GB18030, input<GB18030>, output<GB18030>},
    };
    return CHARSETS;
}

void xml_charsets_register()
{
    for (const xml_charset &one : xml_charsets()) {
        xmlCharEncodingHandler *known = xmlFindCharEncodingHandler(one.name);
        if (known == nullptr)
            xmlNewCharEncodingHandler(one.name, one.input, one.output);
        else
            xmlCharEncCloseFunc(known);
    }
}
