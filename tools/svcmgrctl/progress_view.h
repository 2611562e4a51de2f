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

  /** No further report about this model is to come. */
  bool ends_model() const;
  bool failed() const;
  /** No further report at all is to come. */
  bool ends_request() const;
};

/**
 * Shows how a request goes: on a terminal a bar for each model, which leaves a full line behind;
 * elsewhere a line for each report.
 */
class ProgressView {
 public:
  /** names: the models of the request, in its order. */
  ProgressView(const Output &output, std::vector<std::string> names)
      : output_(output), names_(std::move(names)) {}
  ~ProgressView();
  ProgressView(const ProgressView &) = delete;
  ProgressView &operator=(const ProgressView &) = delete;

  void show(const Progress &progress);

 private:
  std::string name(const Progress &progress) const;
  std::string label(const Progress &progress) const;
  void tell(const Progress &progress) const;
  /** Tells people the end of those models whose end the service manager did not report. */
  void tell_other_ends(const Progress &last) const;
  /** Takes the bar from the terminal; with a line in its place when no other bar of its follows. */
  void remove_bar(bool leave_line);

  const Output &output_;
  std::vector<std::string> names_;
  std::set<int> completed_;        ///< by index
  std::optional<Progress> drawn_;  ///< what the bar on the terminal shows
};

}  // namespace korvane::svcmgrctl

#endif  // KORVANE_SVCMGRCTL_PROGRESS_VIEW_H_
