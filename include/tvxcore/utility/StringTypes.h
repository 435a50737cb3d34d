// tvxcore/utility/StringTypes.h: the library's two string types.
//
// UTF16String holds every path, message and user-visible text; UTF8String holds
// what is stored, hashed or handed to narrow interfaces. Both live in the
// small-block allocator, have value semantics and may hold embedded zero units.
#pragma once

#include <cstdint>
#include <string>

#include "tvxcore/utility/SmallBlockAllocator.h"

namespace tvxcore {

using UTF16Char = char16_t;
using UTF8Char = unsigned char;

using UTF16String = std::basic_string<UTF16Char, std::char_traits<UTF16Char>,
                                      utility::SmallBlockAllocator::STLAllocator<UTF16Char>>;
using UTF8String = std::basic_string<UTF8Char, std::char_traits<UTF8Char>,
                                     utility::SmallBlockAllocator::STLAllocator<UTF8Char>>;

}  // namespace tvxcore
