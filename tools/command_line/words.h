/** Suggestions for mistyped words. */
#ifndef KORVANE_COMMAND_LINE_WORDS_H_
#define KORVANE_COMMAND_LINE_WORDS_H_

#include <string>
#include <vector>

namespace korvane::command_line {

using Words = std::vector<std::string>;

/** A suffix for a message about an unknown word: the nearest existing word, or this text. */
std::string suggestion(const std::string &word, const Words &existing,
                       const std::string &otherwise = "");

/** Joins words with commas. */
std::string listed(const Words &words);

}  // namespace korvane::command_line

#endif  // KORVANE_COMMAND_LINE_WORDS_H_
