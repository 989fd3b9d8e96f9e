#include "base/text/distance.h"

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

namespace lumsar::base {
namespace {

// Shorter words are too easily others.
constexpr std::size_t kShortestWord = 4;
// Names and keys come from outside, and comparing takes the product of both lengths.
constexpr std::size_t kLongestWord = 100;

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

std::string_view takeWord(std::string_view& text) {
  const std::string_view word = text.substr(0, text.find(' '));
  text.remove_prefix(std::min(word.size() + 1, text.size()));
  return word;
}

std::string lowered(std::string_view text) {
  std::string result(text);
  for (char& c : result) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return result;
}

bool isMistypedWord(std::string_view typed, std::string_view word) {
  return std::min(typed.size(), word.size()) >= kShortestWord &&
         std::ranges::none_of(typed, isDigit) && std::ranges::none_of(word, isDigit) &&
         distance(typed, word) == 1;
}

}  // namespace

std::size_t distance(std::string_view one, std::string_view other) {
  if (std::max(one.size(), other.size()) > kLongestWord) return kLongestWord;
  std::vector<std::vector<std::size_t>> rows(one.size() + 1,
                                             std::vector<std::size_t>(other.size() + 1));
  for (std::size_t i = 0; i <= one.size(); ++i) {
    for (std::size_t j = 0; j <= other.size(); ++j) {
      if (i == 0 || j == 0) {
        rows[i][j] = i + j;
        continue;
      }
      const std::size_t replaced = rows[i - 1][j - 1] + (one[i - 1] == other[j - 1] ? 0 : 1);
      rows[i][j] = std::min({replaced, rows[i - 1][j] + 1, rows[i][j - 1] + 1});
      if (i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1]) {
        rows[i][j] = std::min(rows[i][j], rows[i - 2][j - 2] + 1);
      }
    }
  }
  return rows.back().back();
}

bool isMistyped(std::string_view typed, std::string_view name) {
  const std::string typedText = lowered(typed);
  const std::string nameText = lowered(name);
  std::string_view typedRest = typedText;
  std::string_view nameRest = nameText;
  while (!typedRest.empty() && !nameRest.empty()) {
    const std::string_view word = takeWord(typedRest);
    const std::string_view meant = takeWord(nameRest);
    if (word != meant && !isMistypedWord(word, meant)) return false;
  }
  return typedRest.empty() && nameRest.empty() && typed != name;
}

}  // namespace lumsar::base
