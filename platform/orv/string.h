#pragma once

#include <list>
#include <map>
#include <string>
#include <string_view>

namespace orv::string {

// Reads the leading decimal number of a text as atoi does: it may have blanks and one sign in front, what
// follows it is ignored, and without a number the result is 0. A number beyond 32 bits becomes the nearest
// one within them, on every machine.
int toInteger(std::string_view text);

// Appends the parts of a text between the separators, empty ones included; an empty text has no part.
void SeparatedStringtoList(const std::string& text, std::list<std::string>& parts, char separator);

// Enters the pairs of a text, each a key and a value: "1:a 2:b" with ':' and ' ' gives 1 => a and 2 => b. A
// pair without a key/value separator has an empty value; an empty pair is passed over; of two pairs with the
// same key the later one counts.
void SeparatedStringtoMap(const std::string& text, std::map<std::string, std::string>& pairs,
                          char keyValueSeparator, char pairSeparator);

} // namespace orv::string
