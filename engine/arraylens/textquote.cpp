#include "textquote.h"

namespace arraylens {

namespace {

constexpr std::string_view kEllipsis = "\xe2\x80\xa6"; // U+2026

bool continuation(unsigned char c) {
    return (c & 0xC0) == 0x80;
}

} // namespace

std::size_t charBytes(std::string_view text, std::size_t i) {
    const auto at = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char c = at(i);
    std::size_t n;
    unsigned char lo = 0x80, hi = 0xBF; // allowed range of the second byte
    if (c < 0x80)
        return 1;
    if (c >= 0xC2 && c <= 0xDF) {
        n = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
        n = 3;
        // No overlong forms and no surrogates.
        if (c == 0xE0)
            lo = 0xA0;
        else if (c == 0xED)
            hi = 0x9F;
    } else if (c >= 0xF0 && c <= 0xF4) {
        n = 4;
        if (c == 0xF0)
            lo = 0x90;
        else if (c == 0xF4)
            hi = 0x8F;
    } else {
        return 1;
    }
    if (i + n > text.size() || at(i + 1) < lo || at(i + 1) > hi)
        return 1;
    for (std::size_t k = 2; k < n; ++k)
        if (!continuation(at(i + k)))
            return 1;
    return n;
}

std::size_t charCount(std::string_view text) {
    std::size_t n = 0;
    for (std::size_t i = 0; i < text.size(); i += charBytes(text, i))
        ++n;
    return n;
}

std::size_t charColumn(std::string_view text, std::size_t byteOffset) {
    ColumnCounter counter(text);
    return counter.at(byteOffset);
}

std::size_t ColumnCounter::at(std::size_t byteOffset) {
    while (byte_ < byteOffset && byte_ < text_.size()) {
        byte_ += charBytes(text_, byte_);
        ++column_;
    }
    return column_;
}

std::string quoteAround(std::string_view text, std::size_t column, std::size_t width) {
    // Byte offsets of the characters, found by one walk that stops as soon
    // as the window is known.
    const std::size_t total = charCount(text);
    if (total <= width)
        return std::string(text);
    if (width == 0)
        return std::string(kEllipsis);
    // The window starts half a width before the column, and no later than
    // where it would run past the end.
    const std::size_t at = column == 0 ? 0 : column - 1;
    std::size_t first = at > width / 2 ? at - width / 2 : 0;
    if (first > total - width)
        first = total - width;
    const std::size_t last = first + width; // one past the window, in characters
    std::size_t begin = text.size(), end = text.size();
    std::size_t k = 0;
    for (std::size_t i = 0; i < text.size(); i += charBytes(text, i), ++k) {
        if (k == first)
            begin = i;
        if (k == last) {
            end = i;
            break;
        }
    }
    std::string out;
    if (first > 0)
        out += kEllipsis;
    out += text.substr(begin, end - begin);
    if (last < total)
        out += kEllipsis;
    return out;
}

} // namespace arraylens
