/** JSON documents in files and as text. */
#ifndef KORVANE_EMULATOR_JSON_FILE_H_
#define KORVANE_EMULATOR_JSON_FILE_H_

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

namespace korvane::emulator {

/** Keeps the order of keys, so that edited files keep their layout. */
using Json = nlohmann::ordered_json;

/**
 * Writes on one line or indented. The output is ASCII only, so that text from a client cannot
 * control a terminal. Invalid UTF-8 is replaced.
 */
std::string to_text(const Json &document, int indent = -1);

/** Throws std::runtime_error, also when the document is nested too deeply. */
Json parse_json(const std::string &text);

/** Throws std::runtime_error with the name of the file. */
Json read_json(const std::filesystem::path &file);

/**
 * Replaces the file atomically and does not follow symbolic links: readers never see a partial
 * file, even if the program crashes. Throws std::system_error and leaves the file unchanged.
 */
void write_json(const std::filesystem::path &file, const Json &document);

}  // namespace korvane::emulator

#endif  // KORVANE_EMULATOR_JSON_FILE_H_
