#include "platform/json/json_repeated.h"

#include "platform/json/json.h"

#include <algorithm>
#include <set>
#include <vector>

namespace {
struct open_value {
    bool is_object;
    bool wants_key;
    std::string path; // of the value itself
    std::set<std::string> keys;
};

class key_scan {
  public:
    explicit key_scan(std::string_view text) : text_(text) {}
    std::vector<std::string> repeated();

  private:
    void skip_comment();
    std::string quoted();
    bool take_key(const std::string &key);
    void open(bool is_object);

    std::string_view text_;
    size_t at_ = 0;
    std::vector<open_value> open_;
    std::string path_; // of the value that comes next
};
}

// A slash outside a text begins a comment, of a line or up to the next "*/".
void key_scan::skip_comment()
{
    bool is_block = text_.substr(at_).starts_with("/*");
    size_t end = is_block ? text_.find("*/", at_ + 2) : text_.find('\n', at_);
    at_ = end == text_.npos ? text_.size() : end + (is_block ? 2 : 1);
}

// The text at the quote where the scan stands, escapes resolved; the scan goes on behind it.
std::string key_scan::quoted()
{
    size_t begin = at_;
    char quote = text_[at_++];
    while (at_ < text_.size() && text_[at_] != quote)
        at_ += text_[at_] == '\\' ? 2 : 1;
    at_ = std::min(at_ + 1, text_.size());
    std::string written(text_.substr(begin, at_ - begin));
    if (written.find('\\') == written.npos)
        return written.substr(1, written.size() - 2);
    json_ref plain(json_tokener_parse(written.c_str()));
    return json_object_is_type(plain.get(), json_type_string) ? json_object_get_string(plain.get()) : written;
}

// True when the object has the key already.
bool key_scan::take_key(const std::string &key)
{
    open_value &object = open_.back();
    object.wants_key = false;
    path_ = object.path.empty() ? key : object.path + '.' + key;
    return !object.keys.insert(key).second;
}

void key_scan::open(bool is_object)
{
    bool is_element = !open_.empty() && !open_.back().is_object;
    open_.push_back({is_object, is_object, is_element ? open_.back().path : path_, {}});
}

std::vector<std::string> key_scan::repeated()
{
    std::vector<std::string> twice;
    while (at_ < text_.size()) {
        char c = text_[at_];
        if (c == '"' || c == '\'') {
            bool is_key = !open_.empty() && open_.back().wants_key;
            std::string found = quoted();
            if (is_key && take_key(found))
                twice.push_back(path_);
            continue;
        }
        if (c == '/') {
            skip_comment();
            continue;
        }
        if (c == '{' || c == '[')
            open(c == '{');
        else if ((c == '}' || c == ']') && !open_.empty())
            open_.pop_back();
        else if (c == ',' && !open_.empty())
            open_.back().wants_key = open_.back().is_object;
        at_++;
    }
    return twice;
}

std::vector<std::string> json_repeated_keys(std::string_view text)
{
    return key_scan(text).repeated();
}
