// Texts of single elements for the table's cells.
#pragma once

#include "descriptor.h"

#include <string>

namespace arraylens {

// The display formats, numbered as the plug-in numbers them.
enum class DataFormat : int {
    Automatic = 0,
    HexDec = 1,     // 0xffffffd6 (-42)
    DecHex = 2,     // -42 (0xffffffd6)
    Decimal = 3,    // -42; floating point in fixed notation
    Hex = 4,        // 0xffffffd6, two's complement of the element's width
    Octal = 5,      // 037777777726
    Character = 6,  // 97 'a'
    Scientific = 7, // floating point only
    Default = 8,    // nothing chosen yet: as Automatic
};

// Formats the element whose bytes start at p. Floating point gives the
// shortest text that reads back to the same value (in the element's own
// precision), in fixed or scientific notation if asked; integer formats
// fall back to Automatic for floating point and vice versa.
std::string formatElement(ElementKind kind, const unsigned char* p, DataFormat format);

// A character code as a C character literal: 'a', '\n', '\377', '\u03bb'.
// Codes beyond 32 bits (the bits of a 64-bit integer) keep all their bits
// as a hexadecimal escape: '\x100000041'.
std::string charLiteral(std::uint64_t code);

} // namespace arraylens
