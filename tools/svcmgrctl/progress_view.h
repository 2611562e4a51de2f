#ifndef KORVANE_SVCMGRCTL_PROGRESS_VIEW_H_
#define KORVANE_SVCMGRCTL_PROGRESS_VIEW_H_

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "output.h"

namespace korvane::svcmgrctl {

/** One progress report of the service manager. */
struct Progress {
  int result;
  int state;
  int index;
  int count;
  int percentage;

  /** No further report about this model follows. */
  bool ends_model() const;
  bool failed() const;
  /** No further report about the request follows. */
  bool ends_request() const;
};

/**
 * Shows the progress of a request. On a terminal it draws a bar for each model and replaces it with
 * a line at the end. Elsewhere it prints a line for each report.
 */
class ProgressView {
 public:
  /** names: the models in the order of the request. */
  ProgressView(const Output &output, std::vector<std::string> names)
      : output_(output), names_(std::move(names)) {}
  ~ProgressView();
  ProgressView(const ProgressView &) = delete;
  ProgressView &operator=(const ProgressView &) = delete;

  void show(const Progress &progress);

 private:
  std::string name(const Progress &progress) const;
  std::string label(const Progress &progress) const;
  void print(const Progress &progress) const;
  /**
   * Prints the end of models for which the service manager did not report one. Not used for JSON.
   */
  void print_other_ends(const Progress &last) const;
  /** Removes the bar from the terminal. leave_line: prints a line in its place. */
  void remove_bar(bool leave_line);

  const Output &output_;
  std::vector<std::string> names_;
  std::set<int> completed_;        ///< by index
  std::optional<Progress> drawn_;  ///< what the bar on the terminal shows
};

}  // namespace korvane::svcmgrctl

#endif  // KORVANE_SVCMGRCTL_PROGRESS_VIEW_H_
