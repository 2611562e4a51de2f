#include "json_file.h"

#include <fstream>
#include <stdexcept>

namespace korvane::emulator {

std::string to_text(const Json &document, int indent) {
  return document.dump(indent, ' ', false, Json::error_handler_t::replace);
}

Json read_json(const std::filesystem::path &file) {
  std::ifstream stream(file);
  if (!stream) throw std::runtime_error("cannot read " + file.string());
  try {
    return Json::parse(stream);
  } catch (const Json::exception &error) {
    throw std::runtime_error(file.string() + ": " + error.what());
  }
}

void write_json(const std::filesystem::path &file, const Json &document) {
  std::filesystem::path fresh = file;
  fresh += ".new";
  std::ofstream stream(fresh);
  stream << to_text(document, 2) << '\n';
  stream.close();
  if (!stream) throw std::runtime_error("cannot write " + fresh.string());
  std::filesystem::rename(fresh, file);
}

}  // namespace korvane::emulator
