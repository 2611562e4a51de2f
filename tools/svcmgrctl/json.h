#ifndef KORVANE_SVCMGRCTL_JSON_H_
#define KORVANE_SVCMGRCTL_JSON_H_

#include <string>
#include <string_view>
#include <vector>

namespace korvane::svcmgrctl {

/** A JSON object under construction, on one line. The members appear in the order of their adding.
 */
class JsonObject {
 public:
  JsonObject &add(std::string_view key, std::string_view value);
  JsonObject &add(std::string_view key, const char *value);
  JsonObject &add(std::string_view key, bool value);
  JsonObject &add(std::string_view key, int value);
  JsonObject &add(std::string_view key, const JsonObject &value);
  JsonObject &add(std::string_view key, const std::vector<JsonObject> &values);
  JsonObject &add_null(std::string_view key);

  /** Appends the members of another object. */
  JsonObject &merge(const JsonObject &other);

  std::string text() const { return "{" + members_ + "}"; }

 private:
  void separate();
  JsonObject &add_encoded(std::string_view key, std::string_view value);

  std::string members_;
};

}  // namespace korvane::svcmgrctl

#endif  // KORVANE_SVCMGRCTL_JSON_H_
