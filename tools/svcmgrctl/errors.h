#ifndef KORVANE_SVCMGRCTL_ERRORS_H_
#define KORVANE_SVCMGRCTL_ERRORS_H_

#include <exception>
#include <korvane_svcmgr.hpp>
#include <nlohmann/json.hpp>
#include <string>

namespace korvane::svcmgrctl {

using Json = nlohmann::ordered_json;
using svcmgr::check;

/** A code as it is shown: value, name and meaning. */
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

constexpr int kFailureStatus = 1;

/** Ends the command with a message and an exit status. */
class Failure : public std::exception {
 public:
  explicit Failure(CodeText text, int exit_status = kFailureStatus)
      : text_(std::move(text)), exit_status_(exit_status) {}
  /** A library error, with its meaning in this context. */
  Failure(korvane_svcmgr_error_e code, std::string meaning);

  const CodeText &text() const noexcept { return text_; }
  int exit_status() const noexcept { return exit_status_; }
  const char *what() const noexcept override { return text_.meaning.c_str(); }

 private:
  CodeText text_;
  int exit_status_;
};

}  // namespace korvane::svcmgrctl

#endif  // KORVANE_SVCMGRCTL_ERRORS_H_
