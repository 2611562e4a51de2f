/** JSON documents on disk and as text. */
#ifndef KORVANE_EMULATOR_JSON_FILE_H_
#define KORVANE_EMULATOR_JSON_FILE_H_

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

namespace korvane::emulator {

/** Keeps the order of keys, so that files stay as people wrote them. */
using Json = nlohmann::ordered_json;

/**
 * One line, or indented. ASCII alone, so that no text of a client can drive a terminal; what is not
 * UTF-8 is replaced.
 */
std::string to_text(const Json &document, int indent = -1);

/** Throws std::runtime_error, also when the document is nested too deeply to be handled. */
Json parse_json(const std::string &text);

/** Throws std::runtime_error, which names the file. */
Json read_json(const std::filesystem::path &file);

/**
 * Replaces the file as a whole: a reader, or a crash, never finds half of it, and no link leads the
 * writing elsewhere. Throws std::system_error, and leaves the file as it was.
 */
void write_json(const std::filesystem::path &file, const Json &document);

}  // namespace korvane::emulator

#endif  // KORVANE_EMULATOR_JSON_FILE_H_
