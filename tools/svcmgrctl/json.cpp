#include "json.h"

#include <cstdio>

#include "text.h"

namespace korvane::svcmgrctl {

namespace {

std::string quoted(std::string_view value) {
  std::u32string escaped = U"\"";
  for (const char32_t code_point : decode_utf8(value)) {
    if (code_point == U'"' || code_point == U'\\') {
      escaped += {U'\\', code_point};
    } else if (code_point < 0x20 || (code_point >= 0x7F && code_point <= 0x9F)) {
      char sequence[8];
      std::snprintf(sequence, sizeof(sequence), "\\u%04x", static_cast<unsigned>(code_point));
      escaped += decode_utf8(sequence);
    } else {
      escaped += code_point;
    }
  }
  return encode_utf8(escaped += U'"');
}

}  // namespace

void JsonObject::separate() {
  if (!members_.empty()) members_ += ',';
}

JsonObject &JsonObject::add_encoded(std::string_view key, std::string_view value) {
  separate();
  members_.append(quoted(key)).append(":").append(value);
  return *this;
}

JsonObject &JsonObject::merge(const JsonObject &other) {
  if (!other.members_.empty()) {
    separate();
    members_ += other.members_;
  }
  return *this;
}

JsonObject &JsonObject::add(std::string_view key, std::string_view value) {
  return add_encoded(key, quoted(value));
}

JsonObject &JsonObject::add(std::string_view key, const char *value) {
  return add(key, std::string_view(value));
}

JsonObject &JsonObject::add(std::string_view key, bool value) {
  return add_encoded(key, value ? "true" : "false");
}

JsonObject &JsonObject::add(std::string_view key, int value) {
  return add_encoded(key, std::to_string(value));
}

JsonObject &JsonObject::add(std::string_view key, const JsonObject &value) {
  return add_encoded(key, value.text());
}

JsonObject &JsonObject::add(std::string_view key, const std::vector<JsonObject> &values) {
  std::string list;
  for (const JsonObject &value : values) {
    if (!list.empty()) list += ',';
    list += value.text();
  }
  return add_encoded(key, "[" + list + "]");
}

JsonObject &JsonObject::add_null(std::string_view key) {
  return add_encoded(key, "null");
}

}  // namespace korvane::svcmgrctl
