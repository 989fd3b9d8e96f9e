// How unlike two texts are, to tell a mistyped word from another one.
#pragma once

#include <cstddef>
#include <string_view>

namespace lumsar::base {

// How many characters have to be inserted, removed, replaced or exchanged with their neighbours;
// 100 when one of the texts is longer than that.
std::size_t distance(std::string_view one, std::string_view other);

// Whether somebody who wrote `typed` may well have meant `name`: only letters differ, at most one
// in a word of some length. What differs by a number or a single letter is something else.
bool isMistyped(std::string_view typed, std::string_view name);

}  // namespace lumsar::base
