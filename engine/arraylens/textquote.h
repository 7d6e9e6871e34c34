// Quoting what a person typed back to them in a message. Columns count
// characters of UTF-8 text, not bytes, so that a message points where the
// person sees the mistake and shows every character as it was typed; long
// texts are cut to a window around the column, so a 100 KB slice does not
// give a 100 KB message.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace arraylens {

// Characters a quote shows at most, not counting the marks where it is cut.
constexpr std::size_t kQuoteChars = 80;

// Bytes of the character that starts at byte i: a well-formed UTF-8
// sequence counts as one character, every other byte as one of its own.
std::size_t charBytes(std::string_view text, std::size_t i);

// Characters in text.
std::size_t charCount(std::string_view text);

// The column, from 1 and in characters, of the byte at `byteOffset`
// (text.size() gives the column just after the end).
std::size_t charColumn(std::string_view text, std::size_t byteOffset);

// The whole text when it has at most `width` characters; otherwise `width`
// characters around `column` (characters, from 1), with "…" where text was
// left out.
std::string quoteAround(std::string_view text, std::size_t column, std::size_t width = kQuoteChars);

// Keeps the running column while a scanner moves forward through a text, so
// that each token's column costs only the bytes since the last one.
class ColumnCounter {
public:
    explicit ColumnCounter(std::string_view text) : text_(text) {}
    // The column of the byte at `byteOffset`; offsets must not go backwards.
    std::size_t at(std::size_t byteOffset);

private:
    std::string_view text_;
    std::size_t byte_ = 0;
    std::size_t column_ = 1;
};

} // namespace arraylens
