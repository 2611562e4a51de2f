#ifndef KORVANE_SVCMGRCTL_ERRORS_H_
#define KORVANE_SVCMGRCTL_ERRORS_H_

#include <exception>
#include <nlohmann/json.hpp>
#include <string>

namespace korvane::svcmgrctl {

using Json = nlohmann::ordered_json;

/** What is shown of a code of the library: its value, its name and what it means. */
struct CodeText {
  int code;
  std::string name;
  std::string meaning;

  Json to_json() const;
};

CodeText describe_error(int code);
CodeText describe_connection_state(int state);
CodeText describe_update_status(int status);
CodeText describe_model_state(int state);

/** Ends the command with exit status 1. */
class Failure : public std::exception {
 public:
  explicit Failure(CodeText text) : text_(std::move(text)) {}

  const CodeText &text() const noexcept { return text_; }
  const char *what() const noexcept override { return text_.meaning.c_str(); }

 private:
  CodeText text_;
};

/** Throws the Failure of a code that is not success. */
void check(int code);

}  // namespace korvane::svcmgrctl

#endif  // KORVANE_SVCMGRCTL_ERRORS_H_
