#include "progress_view.h"

#include <korvane_svcmgr.h>

#include <algorithm>
#include <cstdint>
#include <exception>

#include "terminal.h"

namespace korvane::svcmgrctl {

namespace {

constexpr std::size_t kSmallestBar = 10;
constexpr std::size_t kLargestBar = 40;
constexpr std::size_t kBarFrame = 4;    ///< its brackets, the space before and the column after it
constexpr std::size_t kStateWidth = 7;  ///< of "started", the longest state that a bar shows

std::string how_far(const Progress &progress) {
  if (progress.failed()) return "failed";
  if (progress.state == SVCMGR_AI_STATE_COMPLETED) return "completed";
  if (progress.state == SVCMGR_AI_STATE_START && progress.percentage == 0) return "started";
  return std::to_string(progress.percentage) + " %";
}

/** A bar of this many columns between its brackets. */
std::string bar(int percentage, std::size_t columns) {
  const auto share = static_cast<std::size_t>(std::clamp(percentage, 0, 100));
  const std::size_t filled = columns * share / 100;
  return " [" + std::string(filled, '#') + std::string(columns - filled, '.') + "]";
}

/** The label, the progress and the bar. Narrower than the terminal, so that it does not scroll. */
std::string bar_line(const std::string &label, const Progress &progress, std::size_t width) {
  const std::string progressed = how_far(progress);
  const std::size_t indent = kStateWidth - std::min(kStateWidth, progressed.size());
  const std::string state = std::string(indent + 2, ' ') + progressed;
  const std::size_t taken = display_width(label) + state.size() + kBarFrame;
  if (taken + kSmallestBar <= width) {
    return shortened(label, width) + state +
           bar(progress.percentage, std::min(width - taken, kLargestBar));
  }
  const std::size_t room = width - std::min(width, state.size() + 1);
  return shortened(shortened(label, room) + state, width - 1);
}

}  // namespace

bool Progress::failed() const {
  return result != SVCMGR_ERROR_NONE || state == SVCMGR_AI_STATE_FAILED;
}

bool Progress::ends_model() const {
  return failed() || state == SVCMGR_AI_STATE_COMPLETED;
}

bool Progress::ends_request() const {
  return failed() || (ends_model() && std::int64_t{index} + 1 >= count);
}

ProgressView::~ProgressView() {
  try {
    remove_bar(true);
  } catch (const std::exception &) {  // out of memory: the bar stays
  }
}

std::string ProgressView::name(const Progress &progress) const {
  const auto index = static_cast<std::size_t>(progress.index);
  return progress.index >= 0 && index < names_.size() ? names_[index] : "model";
}

std::string ProgressView::label(const Progress &progress) const {
  return name(progress) + " (" + std::to_string(std::int64_t{progress.index} + 1) + "/" +
         std::to_string(progress.count) + ")";
}

void ProgressView::print(const Progress &progress) const {
  const Json object = {{"event", "progress"},
                       {"model", name(progress)},
                       {"result", progress.result},
                       {"state", progress.state},
                       {"index", progress.index},
                       {"count", progress.count},
                       {"percentage", progress.percentage}};
  output_.report(label(progress) + ": " + how_far(progress), object);
}

void ProgressView::remove_bar(bool leave_line) {
  if (!drawn_) return;
  output_.draw("\r\x1b[K");
  if (leave_line) print(*drawn_);
  drawn_.reset();
}

void ProgressView::print_other_ends(const Progress &last) const {
  if (output_.is_json()) return;
  Progress other = last;
  const auto count = static_cast<int>(names_.size());
  for (other.index = 0; other.index < std::min(last.index, count); ++other.index) {
    if (completed_.count(other.index) == 0) print(other);
  }
}

void ProgressView::show(const Progress &progress) {
  remove_bar(drawn_ && drawn_->index != progress.index);
  if (progress.ends_model() && !progress.failed()) {
    if (progress.ends_request()) print_other_ends(progress);
    completed_.insert(progress.index);
  }
  if (output_.is_json() || !terminal_can_redraw() || progress.ends_model()) {
    print(progress);
    return;
  }
  output_.draw(bar_line(label(progress), progress, *terminal_width()));
  drawn_ = progress;
}

}  // namespace korvane::svcmgrctl
