#include "command_line/words.h"

#include <algorithm>
#include <numeric>

namespace korvane::command_line {

namespace {

/** The edit distance: insertions, deletions and changes of one letter. */
std::size_t distance(const std::string &from, const std::string &to) {
  std::vector<std::size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), 0);
  for (const char letter : from) {
    std::size_t diagonal = row[0]++;
    for (std::size_t i = 1; i < row.size(); ++i) {
      const std::size_t changed = diagonal + (letter == to[i - 1] ? 0 : 1);
      diagonal = row[i];
      row[i] = std::min({row[i] + 1, row[i - 1] + 1, changed});
    }
  }
  return row.back();
}

/** The distance, at most limit. 0 when word is a prefix of the existing word. */
std::size_t distance_within(std::size_t limit, const std::string &word,
                            const std::string &existing) {
  if (word.size() > 1 && existing.rfind(word, 0) == 0) return 0;
  // Decided by the lengths alone, so that long words cost nothing.
  if (word.size() >= existing.size() + limit || existing.size() >= word.size() + limit)
    return limit;
  return distance(word, existing);
}

}  // namespace

std::string suggestion(const std::string &word, const Words &existing,
                       const std::string &otherwise) {
  const std::string *nearest = nullptr;
  std::size_t smallest = std::max<std::size_t>(2, word.size() / 3) + 1;
  for (const std::string &candidate : existing) {
    const std::size_t away = distance_within(smallest, word, candidate);
    if (away >= smallest || away >= candidate.size()) continue;
    smallest = away;
    nearest = &candidate;
  }
  return nearest == nullptr ? otherwise : "; did you mean \"" + *nearest + "\"?";
}

std::string listed(const Words &words) {
  std::string list;
  for (const std::string &word : words) list += (list.empty() ? "" : ", ") + word;
  return list;
}

}  // namespace korvane::command_line
