#include "TextLine.h"

#include <charconv>
#include <system_error>

namespace dvrkeeper {

void TextLine::write(std::FILE *out) const {
    fwrite_unlocked(mText.data(), 1, mText.size(), out);
}

TextLine &TextLine::text(const char *text) {
    mText += text;
    return *this;
}

TextLine &TextLine::text(const std::string &text) {
    mText += text;
    return *this;
}

TextLine &TextLine::padded(const std::string &text, int width, bool leftAligned) {
    const size_t padding = text.size() < static_cast<size_t>(width) ? width - text.size() : 0;
    if (!leftAligned) {
        mText.append(padding, ' ');
    }
    mText += text;
    if (leftAligned) {
        mText.append(padding, ' ');
    }
    return *this;
}

TextLine &TextLine::integer(int64_t value, int width, char fill) {
    char digits[24];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, value);
    const size_t length = static_cast<size_t>(end.ptr - digits);
    if (fill == '0' && value < 0) {
        // The sign stays in front of the zeros.
        mText += '-';
        mText.append(digits + 1, length - 1);
        padFront(length - 1, width - 1, fill);
    } else {
        mText.append(digits, length);
        padFront(length, width, fill);
    }
    return *this;
}

TextLine &TextLine::fixed(double value, int precision, int width) {
    char digits[400];  // any double in fixed notation
    const std::to_chars_result end =
        std::to_chars(digits, digits + sizeof digits, value, std::chars_format::fixed, precision);
    const size_t length = end.ec == std::errc() ? static_cast<size_t>(end.ptr - digits) : 0;
    mText.append(digits, length);
    padFront(length, width, ' ');
    return *this;
}

TextLine &TextLine::dateTime(const std::tm &time) {
    integer(time.tm_year + 1900, 4, '0').text("-");
    integer(time.tm_mon + 1, 2, '0').text("-");
    integer(time.tm_mday, 2, '0').text(" ");
    integer(time.tm_hour, 2, '0').text(":");
    integer(time.tm_min, 2, '0').text(":");
    return integer(time.tm_sec, 2, '0');
}

TextLine &TextLine::json(const std::string &text) {
    static const char kHex[] = "0123456789abcdef";
    mText += '"';
    for (const char c : text) {
        switch (c) {
            case '"':
                mText += "\\\"";
                break;
            case '\\':
                mText += "\\\\";
                break;
            case '\n':
                mText += "\\n";
                break;
            default:
                if (static_cast<unsigned char>(c) < 0x20) {
                    mText += "\\u00";
                    mText += kHex[(c >> 4) & 0xf];
                    mText += kHex[c & 0xf];
                } else {
                    mText += c;
                }
        }
    }
    mText += '"';
    return *this;
}

void TextLine::padFront(size_t length, int width, char fill) {
    if (width > 0 && length < static_cast<size_t>(width)) {
        mText.insert(mText.size() - length, static_cast<size_t>(width) - length, fill);
    }
}

}  // namespace dvrkeeper
