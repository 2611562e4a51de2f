/** Words that somebody typed, and those that exist. */
#ifndef KORVANE_COMMAND_LINE_WORDS_H_
#define KORVANE_COMMAND_LINE_WORDS_H_

#include <string>
#include <vector>

namespace korvane::command_line {

using Words = std::vector<std::string>;

/** What to add to a message about an unknown word: the nearest that exists; otherwise this text. */
std::string suggestion(const std::string &word, const Words &existing,
                       const std::string &otherwise = "");

/** The words between commas. */
std::string listed(const Words &words);

}  // namespace korvane::command_line

#endif  // KORVANE_COMMAND_LINE_WORDS_H_
