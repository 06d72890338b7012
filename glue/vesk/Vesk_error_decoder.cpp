#include <glue/vesk/Vesk_error_decoder.h>

#include "detail/assertion.h"
#include "detail/line_end.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

namespace {

constexpr const char* phrases[] = {
    ",wrong command",
    ",1st parameter missed",
    ",wrong 1st parameter",
    ",value missed",
    ",value out of range",
    ",2nd parameter missed",
    ",wrong 2nd parameter",
    ",wrong file name",
    ",file open error",
    ",file system not mounted",
    ",file read error",
    ",file already exists",
    ",data transfer open",
    ",can't create file",
    ",terminated by user",
    ",wrong receiver id",
    ",wrong option name",
    ",bad option date",
    ",bad option value",
    ",access denied",
    ",option disabled",
    ",operation in progress",
    ",no file system device",
    ",dup loop",
    ",not supported",
    ",can't remove file",
    ",device is not accessible",
    ",broken file",
    ",wrong hardware version",
    ",incompatible file version",
    ",file write error",
    ",data transfer error",
    ",can't lock",
    ",no valid mass storage found",
    ",can't create work directory",
    ",file system not supported",
    ",file not found",
    ",can't copy onto itself",
    ",device is write protected",
    ",device busy,invalid file length", // on purpose one entry
    ",data transfer delay",
};
constexpr int phrase_count = static_cast<int>(std::size(phrases));

/// The text without the CRs and LFs at its end.
std::string_view without_line_end(std::string_view text) {
    while (!text.empty() && glue_detail::ends_line(static_cast<unsigned char>(text.back())))
        text.remove_suffix(1);
    return text;
}

/// The last field of a text. Commas separate the fields, a "}" ends one.
class Last_field {
  public:
    explicit Last_field(std::string_view text) {
        for (const char character : text)
            append(character);
        field_[length_] = '\0';
    }

    const char* text() const { return field_; }
    int length() const { return length_; }

  private:
    static constexpr int longest = 63; // characters; those that follow are skipped

    void append(char character) {
        if (character == ',') {
            length_ = 0;
            closed_ = false;
        } else if (character == '}') {
            closed_ = true;
        } else if (!closed_) {
            field_[length_++] = character;
            closed_ = length_ == longest;
        }
    }

    char field_[longest + 1];
    int length_ = 0;
    bool closed_ = false;
};

} // namespace

const char* errcode2str(int code) {
    return code >= 1 && code <= phrase_count ? phrases[code - 1] : nullptr;
}

const char* Vesk::errcode2str(vesk_ret_t code) {
    return ::errcode2str(static_cast<int>(code));
}

Vesk_error_decoder::Item Vesk_error_decoder::items_[capacity];
int Vesk_error_decoder::count_ = 0;
bool Vesk_error_decoder::initialised_ = false;

bool Vesk_error_decoder::Item::operator<(const Item& other) const {
    return std::strcmp(text, other.text) < 0;
}

bool Vesk_error_decoder::Item::operator>(const Item& other) const {
    return std::strcmp(text, other.text) > 0;
}

void Vesk_error_decoder::init() {
    count_ = 0;
    for (int code = 1; code <= capacity; ++code) {
        const char* const str = errcode2str(code);
        if (!str)
            break;
        GLUE_ASSERT(str[0] == ',');
        const Item item{str + 1, code};
        Item* const end = items_ + count_;
        Item* const position = std::find_if(items_, end, [&](const Item& present) { return present > item; });
        std::move_backward(position, end, end + 1);
        *position = item;
        ++count_;
    }
    initialised_ = true;
}

int Vesk_error_decoder::get(const char* phrase) {
    if (!phrase)
        return -1;
    if (!initialised_)
        init();
    int low = 0;
    int high = count_ - 1;
    while (low <= high) {
        const int middle = (low + high) / 2;
        const int order = std::strcmp(phrase, items_[middle].text);
        if (order == 0)
            return items_[middle].code;
        if (order < 0)
            high = middle - 1;
        else
            low = middle + 1;
    }
    return -1;
}

int Vesk_error_decoder::extract(const char* text) {
    constexpr int shortest_phrase = 3;
    if (!text)
        return -1;
    const Last_field field(without_line_end(text));
    return field.length() < shortest_phrase ? -1 : get(field.text());
}
